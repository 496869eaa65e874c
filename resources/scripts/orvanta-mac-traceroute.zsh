#!/bin/zsh
# Trace Route: hop-by-hop traces to the Orvanta front end, the latest known relay and the default gateway, in
# several rounds, so that every hop has the figures a network engineer reads in mtr: probes sent, loss, best,
# average, worst and deviation. Probes go by TCP to the service's port where the system allows it, the path the
# client's own traffic takes. The HTML report shows each path as a table and a chart of the spread per hop,
# marks where latency jumps, where loss starts and where replies stop, and ends with what to do next.
emulate -R zsh
source ${0:A:h}/orvanta-common.zsh 2>/dev/null || {
    print -r -- "Cannot read orvanta-common.zsh beside this script (${0:A:h}): reinstall the toolkit."
    exit 1
}

typeset -i ROUNDS=5 QUERIES=2
usage() { print -r -- "usage: ${ZSH_ARGZERO:t} [--rounds N] [--help]"; }
help() {
    usage
    print -r -- "  --rounds N  trace each destination N times (1 to 30, default $ROUNDS), $QUERIES probes per hop each"
    print -r -- "              time; a destination's rounds end after ORVANTA_TRACE_TIMEOUT seconds (default 120)"
}
while (( $# )); do
    case $1 in
    -h|--help) help; exit 0 ;;
    --rounds=*) set -- --rounds "${1#*=}" "${@:2}" ;;
    --rounds)
        if [[ $2 != <1-30> ]]; then print -r -- "--rounds needs a whole number from 1 to 30"; usage; exit 2; fi
        ROUNDS=$(( 10#$2 )); shift 2 ;;
    *) print -r -- "Unknown argument: $1"; usage; exit 2 ;;
    esac
done

typeset -i MAX_HOPS=${ORVANTA_TRACE_MAX_HOPS:-30}
typeset -i HOP_WAIT=${ORVANTA_TRACE_WAIT:-2}
typeset -i TRACE_LIMIT=${ORVANTA_TRACE_TIMEOUT:-120}
typeset -i SILENT_STOP=5      # consecutive silent hops after which a round is ended
(( MAX_HOPS >= 1 && MAX_HOPS <= 64 && HOP_WAIT >= 1 && TRACE_LIMIT >= 1 )) || { print -r -- "ORVANTA_TRACE_MAX_HOPS, ORVANTA_TRACE_WAIT or ORVANTA_TRACE_TIMEOUT is out of range"; exit 2 }

# A stop request ends the tool that runs and whatever it started; the script then writes what it measured so far.
typeset -gi STOP=0
typeset -g STOP_REASON=""
TRAPEXIT() { orv_in_subshell || { orv_kill_jobs; orv_end_children } }
TRAPINT() { orv_subshell_stop 130; STOP=130; STOP_REASON="stopped by an interrupt"; orv_end_children; return 0 }
TRAPTERM() { orv_subshell_stop 143; STOP=143; STOP_REASON="stopped by a termination request"; orv_end_children; return 0 }

orv_say "Orvanta Trace Route $ORV_SCRIPT_VERSION on ${ORV_OS}: $ROUNDS round(s) of $QUERIES probes per hop, up to $MAX_HOPS hops, ${HOP_WAIT}s per probe"
typeset -g TOOL=""
if (( $+commands[traceroute] )); then TOOL=traceroute
elif (( $+commands[tracepath] )); then TOOL=tracepath; orv_say "   NOTE  traceroute is missing: using tracepath (UDP, one probe per hop)"
else orv_say "   NOTE  neither traceroute nor tracepath was found on PATH ($PATH): no path can be traced"
fi

# --- Targets. A service is probed on its own port; the routers of the local network by echo requests, which
# routers answer most readily.
typeset -a TARGETS LABELS PORTS KINDS
orv_split $ORV_FRONTEND 443
TARGETS+=($ORV_HOST); LABELS+=("Front end"); PORTS+=($ORV_PORT); KINDS+=(service)
typeset -g RELAY_NOTE=""
if orv_relay_peers; then
    orv_split $reply[1] 3389; TARGETS+=($ORV_HOST); PORTS+=($ORV_PORT); KINDS+=(service); RELAY_NOTE=$ORV_RELAY_SOURCE
    if (( ORV_RELAY_GUESS )); then LABELS+=("Relay (a guess)"); else LABELS+=("Relay"); fi
elif orv_last_recorded_relay; then
    orv_split $REPLY 3389; TARGETS+=($ORV_HOST); PORTS+=($ORV_PORT); KINDS+=(service)
    LABELS+=("Relay (last known)"); RELAY_NOTE=$ORV_RELAY_SOURCE
else
    RELAY_NOTE="no relay known: $ORV_RELAY_SOURCE, and no earlier report recorded one"
    orv_result SKIP "Relay: $RELAY_NOTE"
fi
typeset -gi GATEWAY_FAILED=0
if orv_default_gateway && [[ -n $REPLY ]]; then
    TARGETS+=($REPLY); LABELS+=("Default gateway"); PORTS+=(0); KINDS+=(local)
elif [[ -n $ORV_GW_IF ]]; then
    # A full-tunnel VPN: the default route is the tunnel itself. Its far end and the local router beneath it
    # can still be traced when they are known.
    orv_result INFO "Default gateway: none; the default route goes through $ORV_GW_IF with no gateway address (a full-tunnel VPN or another point-to-point link)"
    [[ -n $ORV_GW_PEER ]] && { TARGETS+=($ORV_GW_PEER); LABELS+=("Tunnel peer ($ORV_GW_IF)"); PORTS+=(0); KINDS+=(local) }
    [[ -n $ORV_GW_LOCAL ]] && { TARGETS+=($ORV_GW_LOCAL); LABELS+=("Local router (beside $ORV_GW_IF)"); PORTS+=(0); KINDS+=(local) }
else
    orv_result FAIL "Default gateway: none (this computer has no route to a network)"
    GATEWAY_FAILED=1
fi

# --- Reading the tools. parse_hop LINE: sets HOP (number, empty for a line that continues the previous hop),
# HADDRS (addresses in the order they answered), HNAME_OF (names the tool printed), HRTTS, HSENT (probes the
# line accounts for), HFLAGS and HREACHED from one line of traceroute (BSD or Linux) or tracepath; status 1 for
# lines that are not hops.
typeset -gA HNAME_OF
parse_hop() {
    local tok pending="" i
    local -a toks=(${=1})
    HOP=""; HADDRS=(); HNAME_OF=(); HRTTS=(); HSENT=0; HFLAGS=""; HREACHED=0
    (( ${#toks} )) || return 1
    [[ $1 == *LOCALHOST* ]] && return 1   # tracepath's own first line
    if [[ $toks[1] == (#b)([0-9]##)(\?|):# ]]; then
        HOP=$match[1]; i=2
    elif [[ $1 == [[:space:]]* ]] && orv_is_ip ${${toks[1]#\(}%\)}; then
        i=1                                # BSD: another router answered for the same hop
    else
        return 1
    fi
    for (( ; i <= ${#toks}; i++ )); do
        tok=$toks[i]
        if [[ $tok == \(*\) ]]; then
            tok=${${tok#\(}%\)}
            if orv_is_ip $tok; then
                HADDRS+=($tok)
                [[ -n $pending && $pending != $tok ]] && HNAME_OF[$tok]=$pending
            fi
            pending=""; continue
        fi
        [[ -n $pending ]] && orv_is_ip $pending && HADDRS+=($pending)
        pending=""
        if [[ $tok == \* ]]; then (( HSENT++ ))
        elif [[ $tok == no && $toks[i+1] == reply ]]; then (( HSENT++, i++ ))
        elif [[ $tok == (#b)([0-9]##(.[0-9]##|))ms ]]; then HRTTS+=($match[1]); (( HSENT++ ))
        elif [[ $tok == [0-9]##(.[0-9]##|) && $toks[i+1] == ms ]]; then HRTTS+=($tok); (( HSENT++, i++ ))
        elif [[ $tok == \!* ]]; then HFLAGS+="$tok "
        elif [[ $tok == reached ]]; then HREACHED=1
        elif [[ $tok == (pmtu|asymm|back) ]]; then (( i++ ))
        else pending=$tok
        fi
    done
    [[ -n $pending ]] && orv_is_ip $pending && HADDRS+=($pending)
    HADDRS=(${(u)HADDRS})
    return 0
}

# unreachable_text MARKER: REPLY describes an ICMP unreachable marker of traceroute; status 1 for other markers.
unreachable_text() {
    case $1 in
    !H) REPLY="host unreachable" ;;
    !N) REPLY="network unreachable" ;;
    !X|!A|!Z|!C) REPLY="administratively prohibited" ;;
    !P) REPLY="protocol unreachable" ;;
    !S) REPLY="source route failed" ;;
    !F*) REPLY="fragmentation needed" ;;
    !U) REPLY="destination host unknown" ;;
    !W) REPLY="destination network unknown" ;;
    !V) REPLY="host precedence violation" ;;
    !<->) REPLY="unreachable (ICMP code ${1#!})" ;;
    *) return 1 ;;
    esac
}

# --- Names: the tools run with -n, and each address is looked up once for the whole run, in a bounded time.
typeset -gA NAME_OF
typeset -gi LOOKUPS=0
typeset -gF LOOKUP_TIME=0   # seconds spent on lookups; they end after 20
hop_name() {
    local a=$1 out
    if (( ${+NAME_OF[$a]} )); then REPLY=$NAME_OF[$a]; return; fi
    REPLY=""
    if (( ! STOP && LOOKUP_TIME < 20 )) && orv_is_ip $a; then
        local -F t0=$EPOCHREALTIME
        (( LOOKUPS++ ))
        if [[ $ORV_OS == Darwin ]] && (( $+commands[dscacheutil] )); then
            out=$(orv_limit 2 dscacheutil -q host -a ip_address $a 2>/dev/null)
            [[ $out == (#b)*name:\ ([^$'\n']##)* ]] && REPLY=$match[1]
        elif (( $+commands[getent] )); then
            out=$(orv_limit 2 getent hosts $a 2>/dev/null)
            local -a f=(${(f)out}); f=(${=f[1]})
            REPLY=$f[2]
        elif (( $+commands[host] )); then
            out=$(orv_limit 2 host -W 2 $a 2>/dev/null)
            [[ $out == (#b)*pointer\ ([^[:space:]]##)* ]] && REPLY=${match[1]%.}
        fi
        (( LOOKUP_TIME += EPOCHREALTIME - t0 ))
    fi
    [[ $REPLY == $a || $REPLY == *[[:cntrl:]]* ]] && REPLY=""
    NAME_OF[$a]=$REPLY
}
# who ADDRESS: REPLY is "name (address)", or the address alone; who_in ADDRESS: "name, address" for text already
# in parentheses.
who() { hop_name $1; REPLY=${REPLY:+$REPLY ($1)}; REPLY=${REPLY:-$1} }
who_in() { hop_name $1; REPLY=${REPLY:+$REPLY, $1}; REPLY=${REPLY:-$1} }

# --- Probe methods, most faithful first: TCP to the service's port (the client's own path), then UDP, then ICMP.
# A method the tool refuses (Linux allows TCP and ICMP probes to administrators only) is not tried again.
typeset -gA REFUSED
typeset -ga FALLBACK_NOTES
method_text() {
    case $1 in
    tcp) REPLY="TCP probes to port $2" ;;
    udp) REPLY="UDP probes" ;;
    icmp) REPLY="ICMP echo probes" ;;
    esac
}
# methods KIND DEST: reply lists the methods to try, in order.
methods() {
    if [[ $TOOL == tracepath ]] || { [[ $ORV_OS == Darwin ]] && orv_is_ipv6 $2 }; then
        reply=(udp)   # tracepath and macOS's traceroute6 send UDP only
    elif [[ $1 == service ]]; then
        reply=(tcp udp icmp)
    else
        reply=(icmp udp)
    fi
    local -a refused=(${(k)REFUSED})
    reply=(${reply:|refused})
}
# trace_cmd METHOD DEST PORT HOPS: reply is the command line of one round.
trace_cmd() {
    local m=$1 dest=$2 port=$3 hops=$4
    if [[ $TOOL == tracepath ]]; then reply=(tracepath -n -m $hops $dest); return; fi
    reply=(traceroute -n -q $QUERIES -w $HOP_WAIT -m $hops)
    if [[ $ORV_OS == Darwin ]]; then
        if orv_is_ipv6 $dest; then reply[1]=traceroute6
        elif [[ $m == tcp ]]; then reply+=(-P tcp -e -p $port)   # -e: the port stays fixed
        elif [[ $m == icmp ]]; then reply+=(-P icmp)
        fi
    else
        orv_is_ipv6 $dest && reply+=(-6)
        if [[ $m == tcp ]]; then reply+=(-T -p $port)
        elif [[ $m == icmp ]]; then reply+=(-I)
        fi
    fi
    reply+=($dest)
}

# next_line FD: REPLY is the next line from FD; status 1 when none came within a second, 2 at the end.
next_line() {
    REPLY=""
    if (( $+builtins[zselect] )); then
        zselect -t 100 -r $1 2>/dev/null || return 1
        IFS= read -r -u $1 REPLY || [[ -n $REPLY ]] || return 2
        return 0
    fi
    local -F t0=$EPOCHREALTIME
    IFS= read -r -t 1 -u $1 REPLY && return 0
    [[ -n $REPLY ]] && return 0
    (( EPOCHREALTIME - t0 < 0.9 )) && return 2   # read gave up at once: the end of the output
    return 1
}

# --- Figures. stats VALUE...: S_N, S_BEST, S_AVG, S_WORST, S_SD (sample deviation, as mtr), S_MED, S_Q1, S_Q3.
stats() {
    local -a k; local v
    for v; do printf -v v '%016.4f' $v; k+=($v); done
    k=(${(o)k})
    S_N=$#; S_BEST=""; S_AVG=""; S_WORST=""; S_SD=""; S_MED=""; S_Q1=""; S_Q3=""
    (( S_N )) || return 1
    local -F sum=0 ss=0
    for v in $k; do (( sum += v )); done
    (( S_AVG = sum / S_N ))
    for v in $k; do (( ss += (v - S_AVG) ** 2 )); done
    (( S_SD = S_N > 1 ? sqrt(ss / (S_N - 1)) : 0 ))
    (( S_BEST = k[1], S_WORST = k[-1] ))
    (( S_MED = S_N % 2 ? k[(S_N + 1) / 2] : (k[S_N / 2] + k[S_N / 2 + 1]) / 2.0 ))
    (( S_Q1 = k[int(ceil(S_N * 0.25))], S_Q3 = k[int(ceil(S_N * 0.75))] ))
}
ms() { printf -v REPLY '%.1f' $1 }

# Private (RFC 1918), carrier-grade NAT (100.64/10), link-local and loopback addresses, and IPv6 unique-local and
# link-local ones, belong to the user's own network or their company's, wherever they stand on the path.
is_private() {
    [[ $1 == (10.*|192.168.*|172.(1[6-9]|2[0-9]|3[01]).*|100.(6[4-9]|[7-9][0-9]|1[01][0-9]|12[0-7]).*|169.254.*|127.*|[Ff][CcDd]*:*|[Ff][Ee][89AaBb]*:*|::1) ]]
}

# Where a finding lies, for the advice at the end: place HOP-INDEX reads the caller's kind, reached, H_NO and
# H_ADDR; REPLY is local, service or provider.
place() {
    local i=$1 j
    [[ $kind == local ]] && { REPLY=local; return }
    if (( reached && i == ${#H_NO} )); then REPLY=service; return; fi
    REPLY=local
    (( i == 1 )) && return
    [[ -n $H_ADDR[i] ]] && { is_private ${H_ADDR[i]%% *} || REPLY=provider; return }
    for (( j = 1; j < i; j++ )); do
        [[ -z $H_ADDR[j] ]] || is_private ${H_ADDR[j]%% *} || { REPLY=provider; return }
    done
}
# advise RANK TEXT [CAUSE]: keeps the advice of the most serious finding (the first of equal rank).
typeset -gi ADVICE_RANK=0
typeset -g ADVICE="" ADVICE_CAUSE=none
advise() { (( $1 > ADVICE_RANK )) && { ADVICE_RANK=$1; ADVICE=$2; ADVICE_CAUSE=${3:-none} }; return 0 }
advice_for() { # advice_for PLACE FINDING: REPLY is the advice, ADVICE_PLACE the place
    ADVICE_PLACE=$1
    case $1 in
    local) REPLY="$2, inside your own network or your company's. Send this report to your IT department, or to whoever runs this network; at home, restart your router, move closer to the Wi-Fi or use a cable, and run Trace Route again." ;;
    provider) REPLY="$2, outside your own network. Send this report to your internet provider or IT department, and to Orvanta support if it persists." ;;
    service) REPLY="$2, at the Orvanta service itself while the way there is clean. Send this report to Orvanta support." ;;
    esac
}

# trace_one LABEL HOST PORT KIND: traces one destination in rounds and adds its table and chart to the report.
trace_one() {
    local label=$1 host=$2 port=$3 kind=$4 noun=${(L)1%% \(*}
    orv_section "$label: $host"
    if (( STOP )); then orv_para "" "Not traced: the run was $STOP_REASON first."; return; fi
    if ! orv_valid_host $host; then
        orv_result FAIL "$label: '$host' is not a valid host name"
        orv_para "" "Not traced: not a valid host name."; return
    fi
    if [[ -z $TOOL ]]; then
        orv_result WARN "$label $host: not traced (no traceroute or tracepath)"
        advise 1 "Trace Route needs traceroute, which macOS includes. Run Connector Reachability instead and send its report to Orvanta support."
        orv_para "" "Not traced: neither traceroute nor tracepath is installed."; return
    fi
    local dest=$host
    if ! orv_is_ip $host; then
        if orv_resolve $host; then dest=$reply[1]; else
            orv_result FAIL "$label $host: the name does not resolve"
            advise 4 "The name $host does not resolve on this computer. Check the DNS and VPN settings, or run Connector Reachability and send its report to Orvanta support." dns
            orv_para "" "Not traced: the name does not resolve with the system resolver."; return
        fi
    fi

    # Per hop (by TTL): probes sent and answered, the answering times, the addresses that answered (most
    # frequent first once counted) and any unreachable answer with the number of rounds that gave it.
    local -A sent recv rtts addrs acount mark markn
    local -a notes cmd first_cmd
    local -F t_end=$(( EPOCHREALTIME + TRACE_LIMIT ))
    local -i round=0 announced=0 hops=$MAX_HOPS reached=0 dest_hop=0 failed_hop=0 last_reply=0 top=0 silent h
    local line rt why flag a m method="" ended="" mt fd rc
    while (( round < ROUNDS && ! STOP )); do
        if (( EPOCHREALTIME >= t_end )); then ended="$round of $ROUNDS round(s), then the time limit of ${TRACE_LIMIT}s was reached"; break; fi
        methods $kind $dest
        (( ${#reply} )) || { notes+=("No probe method is allowed here."); break }
        method=$reply[1]
        trace_cmd $method $dest $port $hops; cmd=($reply)
        (( round == 0 )) && first_cmd=($cmd)
        method_text $method $port; mt=$REPLY
        if (( ! announced )); then
            announced=1
            orv_step "$label: tracing $host${${dest:#$host}:+ ($dest)} with $cmd[1] ($mt)"
        fi
        # The tool's output comes through a descriptor of this script's own (a coprocess's would be closed once
        # the tool has ended, losing a refusal that it printed); exec: the child is the tool itself.
        exec {fd}< <(exec $cmd 2>&1)
        local -a said=()
        local -i lines=0 cur=0
        silent=0
        while (( ! STOP )); do
            next_line $fd; rc=$?
            (( rc == 2 )) && break
            if (( rc == 1 )); then
                (( EPOCHREALTIME < t_end )) && continue
                break
            fi
            line=$REPLY
            if ! parse_hop "$line"; then
                [[ $line == *(unknown|not\ known|annot|nvalid|failure|privilege|not\ permitted|ermission|llegal|nrecognized)* ]] && said+=("$line")
                continue
            fi
            [[ -n $HOP ]] && cur=$HOP
            (( cur )) || continue
            h=$cur; (( lines++ ))
            (( sent[$h] += HSENT ))
            (( recv[$h] += ${#HRTTS} ))
            rtts[$h]+=" $HRTTS"
            for a in $HADDRS; do
                [[ -n $HNAME_OF[$a] && -z $NAME_OF[$a] ]] && NAME_OF[$a]=$HNAME_OF[$a]
                [[ " $addrs[$h] " == *" $a "* ]] || addrs[$h]+=" $a"
                (( acount[$h $a] += 1 ))
            done
            why=""
            for flag in ${(u)=HFLAGS}; do unreachable_text $flag && { why="$REPLY ($flag)"; break }; done
            [[ -n $why ]] && { mark[$h]=$why; (( markn[$h]++ )) }
            (( h > top )) && top=$h
            if (( round == 0 )); then
                rt="${(j: ms, :)HRTTS}${HRTTS:+ ms}"
                if (( ${#HADDRS} )); then
                    who $HADDRS[1]
                    orv_say "   hop ${(l:2:)h}  $REPLY  ${rt:-no time}${why:+  $why}"
                else
                    orv_say "   hop ${(l:2:)h}  no reply"
                fi
            fi
            if (( ${#HADDRS} )); then silent=0; (( h > last_reply )) && last_reply=$h; elif [[ -n $HOP ]]; then (( silent++ )); fi
            # An unreachable answer ends the path here, whoever sent it.
            if [[ -n $why ]]; then (( failed_hop == 0 || h < failed_hop )) && failed_hop=$h; break; fi
            if (( ${HADDRS[(Ie)$dest]} || HREACHED )); then
                (( dest_hop == 0 || h < dest_hop )) && dest_hop=$h
                reached=1; break
            fi
            (( silent >= SILENT_STOP || h >= hops )) && break
        done
        orv_end_children   # the tool and whatever it started; nothing else runs between rounds
        exec {fd}<&-
        if (( lines == 0 && ${#said} )) && [[ ${(F)said} == *(privilege|not\ permitted|ermission|nknown\ protocol|llegal|nvalid\ option|nrecognized)* ]]; then
            # The tool refuses this method here: the next one is tried in the same round.
            REFUSED[$method]=1
            local why_not="$cmd[1] cannot send $mt on this system"
            if [[ ${(F)said} == *(privilege|not\ permitted|ermission)* ]]; then why_not+=" (it needs administrator rights)"
            else orv_mask_words "$said[1]"; why_not+=" ($REPLY)"
            fi
            methods $kind $dest
            method_text $reply[1] $port
            if (( ${#reply} )); then
                orv_say "   NOTE  $why_not: using $REPLY"
                FALLBACK_NOTES+=("$why_not: $REPLY was used")
            fi
            continue
        fi
        (( STOP )) && break
        (( round++ ))
        notes+=($said)
        if (( round == 1 )); then
            # Later rounds go no further than the first one found worth probing: the destination, the router
            # that refused, or one hop past the last that answered.
            if (( dest_hop )); then hops=$dest_hop
            elif (( failed_hop )); then hops=$failed_hop
            elif (( last_reply )); then hops=$(( last_reply + 1 < top ? last_reply + 1 : top ))
            fi
            (( hops < 1 )) && hops=1
        elif (( round > 1 )); then
            orv_say "   round $round of $ROUNDS: ${${reached:#0}:+destination reached at hop $dest_hop}${${reached:#1}:+replies up to hop $last_reply}"
        fi
    done
    [[ -z $ended ]] && (( STOP )) && ended="$round of $ROUNDS round(s) and part of the next, then $STOP_REASON"
    [[ -z $ended ]] && ended="$round round(s)"
    (( dest_hop )) && top=$dest_hop
    (( failed_hop && failed_hop < top )) && top=$failed_hop

    # Per-hop figures, in hop order.
    local -a H_NO H_ADDR H_SENT H_LOSS H_BEST H_AVG H_WORST H_SD H_MED H_Q1 H_Q3
    local -i i j
    local -F loss
    for (( h = 1; h <= top; h++ )); do
        (( ${+sent[$h]} )) || continue
        H_NO+=($h)
        # The address that answered most often stands first.
        local -a keyed=()
        for a in ${=addrs[$h]}; do keyed+=("${(l:4::0:)$(( 9999 - acount[$h $a] ))} $a"); done
        keyed=(${(o)keyed}); keyed=(${keyed#* })
        H_ADDR+=("${(j: :)keyed}")
        H_SENT+=($sent[$h])
        (( loss = sent[$h] ? 100.0 * (sent[$h] - recv[$h]) / sent[$h] : 0 ))
        printf -v m '%.1f' $loss; H_LOSS+=($m)
        if stats ${=rtts[$h]}; then
            ms $S_BEST; H_BEST+=($REPLY); ms $S_AVG; H_AVG+=($REPLY); ms $S_WORST; H_WORST+=($REPLY)
            ms $S_SD; H_SD+=($REPLY); H_MED+=($S_MED); H_Q1+=($S_Q1); H_Q3+=($S_Q3)
        else
            H_BEST+=(""); H_AVG+=(""); H_WORST+=(""); H_SD+=(""); H_MED+=(""); H_Q1+=(""); H_Q3+=("")
        fi
    done
    local n=${#H_NO} dest_i=0 fail_i=0 last_i=0
    for (( i = 1; i <= n; i++ )); do
        (( H_NO[i] == dest_hop )) && dest_i=$i
        (( H_NO[i] == failed_hop )) && fail_i=$i
        [[ -n $H_ADDR[i] ]] && last_i=$i
    done
    (( reached && dest_i == 0 )) && reached=0

    # The largest latency jump that holds, on the medians: a step up of 30 ms or more (and at least half the
    # latency before it) after which no later hop falls back below the middle of the step. A router that is slow
    # to answer probes but forwards traffic quickly shows a step up and then lower hops again; that is not a
    # jump. A step at the last hop that replied counts only when that hop is the destination.
    local jump_at=0 jump=0 prev_v="" step holds
    for (( i = 1; i <= n; i++ )); do
        [[ -n $H_MED[i] ]] || continue
        if [[ -n $prev_v ]] && (( (step = H_MED[i] - prev_v) > jump && step >= 30 && step >= 0.5 * prev_v )); then
            holds=0
            (( reached && i == n )) && holds=1
            for (( j = i + 1; j <= n; j++ )); do
                [[ -n $H_MED[j] ]] || continue
                if (( H_MED[j] < prev_v + step / 2 )); then holds=0; break; fi
                holds=1
            done
            (( holds )) && { jump=$step; jump_at=$i }
        fi
        prev_v=$H_MED[i]
    done
    # Loss that matters reaches the destination: it starts at the first hop from which every answering hop up to
    # the destination lost probes. Loss at a hop that later hops do not share is a router limiting its answers.
    local loss_at=0
    if (( reached && H_LOSS[dest_i] > 0 )); then
        loss_at=$dest_i
        for (( i = dest_i - 1; i >= 1; i-- )); do
            [[ -n $H_ADDR[i] ]] || continue
            (( H_LOSS[i] > 0 )) || break
            loss_at=$i
        done
    fi
    local stop_at=0
    (( ! reached && ! fail_i && last_i > 0 )) && stop_at=$last_i

    local at place_text rounds_text=""
    if (( fail_i )); then
        who_in ${H_ADDR[fail_i]%% *}; at=$REPLY
        rounds_text=" in $markn[$failed_hop] of $round round${${round:#1}:+s}"
        orv_result FAIL "$label $host: hop $failed_hop ($at) answered: $mark[$failed_hop]$rounds_text"
        place $fail_i; advice_for $REPLY "A router at hop $failed_hop ($at) refused the path to the $noun"
        advise 5 $REPLY $ADVICE_PLACE
    elif (( reached )); then
        orv_result OK "$label $host reached in $dest_hop hop(s): avg $H_AVG[dest_i] ms, loss $H_LOSS[dest_i]%"
        if (( loss_at )); then
            who_in ${H_ADDR[loss_at]%% *}; at=$REPLY
            if (( loss_at == dest_i )); then place_text="only at the destination"; else place_text="from hop $H_NO[loss_at] ($at) on"; fi
            orv_result WARN "$label $host: $H_LOSS[dest_i]% of the probes to the destination were lost, $place_text"
            place $loss_at; advice_for $REPLY "Probes to the $noun are lost from hop $H_NO[loss_at] ($at) on"
            advise 3 $REPLY $ADVICE_PLACE
        fi
    elif (( n == 0 )); then
        orv_result FAIL "$label $host: the trace produced no hops ($ended)${notes:+: $notes[1]}"
        [[ $kind == local ]] && GATEWAY_FAILED=1
    elif [[ $kind == local ]]; then
        orv_result FAIL "$label $host did not answer ($ended)"
        GATEWAY_FAILED=1
    elif (( STOP )); then
        orv_result INFO "$label $host: the run was stopped before the destination answered (${${H_NO[stop_at]:+replies up to hop $H_NO[stop_at]}:-no hop answered})"
    else
        orv_result WARN "$label $host did not answer trace probes (many servers filter them); ${${H_NO[stop_at]:+replies stop after hop $H_NO[stop_at]}:-no hop answered}"
        advise 1 "The last steps to the $noun do not answer trace probes, which is common and not a fault by itself. If the client cannot connect, run Connector Reachability and send both reports to Orvanta support."
    fi
    if (( jump_at )); then
        who_in ${H_ADDR[jump_at]%% *}; at=$REPLY
        orv_result INFO "$label: latency jumps by $(printf '%.0f' $jump) ms at hop $H_NO[jump_at] ($at)"
        place $jump_at; advice_for $REPLY "Latency to the $noun rises at hop $H_NO[jump_at] ($at) and stays high"
        advise 2 $REPLY $ADVICE_PLACE
    fi

    # Console: the figures per hop, as mtr prints them.
    for (( i = 1; i <= n; i++ )); do
        if [[ -n $H_ADDR[i] ]]; then who ${H_ADDR[i]%% *}; else REPLY="no reply"; fi
        orv_say "   hop ${(l:2:)H_NO[i]}  $REPLY  sent $H_SENT[i], loss $H_LOSS[i]%${H_AVG[i]:+, best $H_BEST[i], avg $H_AVG[i], worst $H_WORST[i], stdev $H_SD[i] ms}"
    done

    local tail=""; (( reached )) || tail=" The destination did not reply."
    (( fail_i )) && tail=" The path ends in an unreachable answer."
    method_text $method $port
    orv_para note "${(j: :)first_cmd} — ${REPLY}, $QUERIES per hop in each round; $ended.$tail"
    for line in ${(u)notes}; do orv_mask_words "$line"; orv_para note "$REPLY"; done
    orv_table "Hop" "Host" "Address" "Sent" "Loss" "Best (ms)" "Avg (ms)" "Worst (ms)" "StDev (ms)" "Remark"
    local remark cls cells c others first
    for (( i = 1; i <= n; i++ )); do
        remark=""; cls=""
        first=${H_ADDR[i]%% *}; others=${H_ADDR[i]#$first}; others=${others# }
        (( i == fail_i )) && { remark=$mark[$H_NO[i]]$rounds_text; cls=" class=\"mark\"" }
        (( i == jump_at )) && { remark="latency jumps here (median +$(printf '%.0f' $jump) ms)"; cls=" class=\"mark\"" }
        (( i == loss_at )) && { remark="${remark:+$remark; }loss starts here and reaches the destination"; cls=" class=\"mark\"" }
        (( i == stop_at )) && { remark="${remark:+$remark; }replies stop after this hop"; cls=" class=\"mark\"" }
        if [[ -n $first ]] && (( H_LOSS[i] > 0 && (loss_at == 0 || i < loss_at) )); then
            for (( j = i + 1; j <= n; j++ )); do
                [[ -n $H_ADDR[j] ]] && (( H_LOSS[j] == 0 )) || continue
                remark="${remark:+$remark; }this router limits its answers to probes (later hops lose nothing)"; break
            done
        fi
        [[ -n $others ]] && remark="${remark:+$remark; }also answered: ${others// /, }"
        (( reached && i == dest_i )) && remark="${remark:+$remark; }destination"
        hop_name "$first"
        cells=""
        for c in $H_NO[i] "${REPLY:-${first:-*}}" "${first:-no reply}" $H_SENT[i] "$H_LOSS[i]%" "$H_BEST[i]" "$H_AVG[i]" "$H_WORST[i]" "$H_SD[i]" "$remark"; do
            orv_esc "$c"; cells+="<td>$REPLY</td>"
        done
        orv_raw "<tr$cls>$cells</tr>"
    done
    (( n )) || orv_row "" "-" "no hops" "" "" "" "" "" "" "" ""
    orv_table_end
    (( n )) && chart $jump_at $(( stop_at ? stop_at : fail_i )) "${${fail_i:#0}:+unreachable}"
}

# chart JUMP-INDEX STOP-INDEX [STOP-TEXT]: the spread of each hop's replies from the caller's H_* figures: a line
# from best to worst, a box over the middle half with the median across it, the loss under the hop's number;
# silent hops as grey stars, the jump in red, a dashed line where the path ends: after the last hop that replied,
# or through the hop that answered unreachable. The chart takes the report's width: across, everything is placed
# in percent (the scale's labels in the first LX %), and text keeps its size in pixels.
chart() {
    local ja=$1 sa=$2 stop_text=${3:-replies stop}
    integer TOP=16 PH=150 H=212
    local -F LX=7 PW=92 mx=0 q3max=0 bw x cx y1 y2 v half sx lx
    local i fill tip label colour anchor
    for (( i = 1; i <= ${#H_NO}; i++ )); do
        [[ -n $H_WORST[i] ]] || continue
        (( H_WORST[i] > mx )) && mx=$H_WORST[i]
        (( H_Q3[i] > q3max )) && q3max=$H_Q3[i]
    done
    # One wild reply must not flatten every other hop: the scale stops at twice the highest upper quartile and
    # longer lines end in an arrow with their value.
    (( q3max > 0 && mx > 2 * q3max )) && mx=$(( 2 * q3max ))
    (( mx = (mx > 0 ? mx : 1) * 1.1 ))
    (( bw = PW / ${#H_NO}.0, half = bw * 0.25 < 2 ? bw * 0.25 : 2 ))   # a lone hop gets a box, not a band
    local fmt='%.0f ms'; (( mx < 10 )) && fmt='%.1f ms'; (( mx < 1 )) && fmt='%.2f ms'
    ypos() { (( REPLY = TOP + PH - (($1 < mx ? $1 : mx) / mx) * PH )) }
    local -a s=("<svg class=\"chart\" xmlns=\"http://www.w3.org/2000/svg\" width=\"100%\" height=\"$H\" font-family=\"Helvetica,Arial,sans-serif\" font-size=\"11\">")
    for v in 0 0.5 1; do
        printf -v label $fmt $(( mx * v )); colour="#e6e9ef"
        (( v == 0 )) && { label=0; colour="#98a2b3" }
        s+=("$(printf '<line x1="%.2f%%" y1="%.1f" x2="%.2f%%" y2="%.1f" stroke="%s"/>' $LX $(( TOP + PH - v * PH )) $(( LX + PW )) $(( TOP + PH - v * PH )) $colour)")
        s+=("$(printf '<text x="%.2f%%" y="%.1f" text-anchor="end" fill="#667085">%s</text>' $(( LX - 0.5 )) $(( TOP + PH - v * PH + 4 )) "$label")")
    done
    for (( i = 1; i <= ${#H_NO}; i++ )); do
        (( x = LX + (i - 1) * bw, cx = x + bw / 2 ))
        if (( i == sa )); then
            # After the last hop that replied, or through the one that answered unreachable; the label goes right of
            # the line, or left of it near the chart's right edge.
            colour="#b26a00" sx=$(( x + bw ))
            [[ $stop_text == "replies stop" ]] || { colour="#c62828" sx=$cx }
            lx=$(( sx + 0.5 )); anchor=start
            (( lx > LX + PW - 12 )) && { lx=$(( sx - 0.5 )); anchor=end }
            s+=("$(printf '<line class="stop" x1="%.2f%%" y1="%d" x2="%.2f%%" y2="%d" stroke="%s" stroke-dasharray="4 3"/>' $sx $TOP $sx $(( TOP + PH )) $colour)")
            s+=("$(printf '<text x="%.2f%%" y="%d" text-anchor="%s" fill="%s" stroke="#fff" stroke-width="3" paint-order="stroke">%s</text>' $lx $(( TOP + 10 )) $anchor $colour $stop_text)")
        fi
        if [[ -n $H_MED[i] ]]; then
            fill="#1f5fbf"; (( i == ja )) && fill="#c62828"
            orv_esc "hop $H_NO[i]: sent $H_SENT[i], loss $H_LOSS[i]%, best $H_BEST[i], avg $H_AVG[i], worst $H_WORST[i], stdev $H_SD[i] ms"; tip=$REPLY
            s+=("<g><title>$tip</title>")
            ypos $H_BEST[i]; y1=$REPLY; ypos $H_WORST[i]; y2=$REPLY
            s+=("$(printf '<line x1="%.2f%%" y1="%.1f" x2="%.2f%%" y2="%.1f" stroke="%s"/>' $cx $y1 $cx $y2 $fill)")
            if (( H_WORST[i] > mx )); then
                s+=("$(printf '<text x="%.2f%%" y="%.1f" text-anchor="middle" fill="%s">▲ %s</text>' $cx $(( TOP - 4 + 12 )) $fill $H_WORST[i])")
            fi
            ypos $H_Q3[i]; y1=$REPLY; ypos $H_Q1[i]; y2=$REPLY
            (( y2 - y1 < 2 )) && (( y1 -= 1, y2 += 1 ))
            s+=("$(printf '<rect x="%.2f%%" y="%.1f" width="%.2f%%" height="%.1f" fill="%s" fill-opacity="0.35" stroke="%s"/>' $(( cx - half )) $y1 $(( 2 * half )) $(( y2 - y1 )) $fill $fill)")
            ypos $H_MED[i]
            s+=("$(printf '<line x1="%.2f%%" y1="%.1f" x2="%.2f%%" y2="%.1f" stroke="%s" stroke-width="2"/></g>' $(( cx - half * 1.2 )) $REPLY $(( cx + half * 1.2 )) $REPLY $fill)")
        else
            s+=("$(printf '<text x="%.2f%%" y="%d" text-anchor="middle" fill="#98a2b3">*</text>' $cx $(( TOP + PH - 4 )))")
        fi
        s+=("$(printf '<text x="%.2f%%" y="%d" text-anchor="middle" fill="#667085">%s</text>' $cx $(( TOP + PH + 14 )) $H_NO[i])")
        (( H_LOSS[i] > 0 )) && s+=("$(printf '<text x="%.2f%%" y="%d" text-anchor="middle" fill="#c62828">%.0f%%</text>' $cx $(( TOP + PH + 27 )) $H_LOSS[i])")
    done
    s+=("$(printf '<text x="%.2f%%" y="%d" text-anchor="middle" fill="#667085">hop (loss below its number)</text></svg>' $(( LX + PW / 2 )) $(( H - 4 )))")
    orv_raw ${(j::)s}
    (( CHARTS++ )) || orv_para note "Each hop: the line runs from the best to the worst reply, the box covers the middle half of the replies and the bar across it is the median."
}

typeset -i CHARTS=0
for (( k = 1; k <= ${#TARGETS}; k++ )); do
    trace_one "$LABELS[k]" "$TARGETS[k]" "$PORTS[k]" "$KINDS[k]"
done
orv_para note "Relay: $RELAY_NOTE"
for line in ${(u)FALLBACK_NOTES}; do orv_result INFO "Probes: $line"; done
(( LOOKUPS )) && orv_para note "Names were looked up once per address: $LOOKUPS lookup(s) for the whole run."

# --- What to do next, chosen by the most serious finding.
if (( GATEWAY_FAILED )); then
    advise 9 "This computer does not reach its own router. Check the Wi-Fi or cable and restart the router, then run Trace Route again; if it stays like this, ask whoever runs this network." local
fi
if (( STOP )) && (( ADVICE_RANK < 2 )); then
    ADVICE="The trace was $STOP_REASON before it finished, so this report is incomplete. Run Trace Route again and let it finish before sending the report to support."
fi
[[ -n $ADVICE ]] || ADVICE="Nothing to fix on these paths. If the client still misbehaves, run Connector Reachability and send both reports to Orvanta support."
orv_next_steps $ADVICE_CAUSE "$ADVICE"

if (( ORV_FAILED )); then
    vclass=fail; vtitle="$ORV_FAILED trace(s) failed"; vlines=($ORV_FAILURES $ORV_WARNINGS)
elif (( STOP )); then
    vclass=warn; vtitle="Stopped before the end: the report shows what was measured"; vlines=($ORV_WARNINGS)
elif (( ORV_WARNED )); then
    vclass=warn; vtitle="Traced, with $ORV_WARNED warning(s)"; vlines=($ORV_WARNINGS)
else
    vclass=ok; vtitle="Every destination was reached"; vlines=()
fi
(( STOP )) && vlines=("WARN"$'\t'"The run was $STOP_REASON: destinations not reached by then are not traced." $vlines)
(( STOP )) && (( ORV_FAILED )) && vtitle="Stopped before the end; $vtitle"
vlines+=(${${(M)ORV_CHECKS:#INFO$'\t'*}#INFO$'\t'})
orv_step "Writing the report"
orv_write_report OrvantaTraceRoute_ "Trace Route" $vclass "$vtitle" $vlines || exit 1
if (( STOP )); then
    orv_say "   Stopped: the report holds what was measured until then."
    orv_finish $REPLY $STOP
fi
orv_say "   Done: $vtitle"
orv_finish $REPLY $(( ORV_FAILED ? 1 : 0 ))
