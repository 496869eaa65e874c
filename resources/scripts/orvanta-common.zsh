# Shared by the three Orvanta diagnostic scripts: the service's targets, tool detection, probes with their own
# time-outs, console lines for a person watching, and the self-contained HTML report.
# Sourced, never run on its own. Works with macOS (BSD tools, LibreSSL) and Debian (GNU tools, OpenSSL 3).

# Numbers, dates and the tools' messages follow the C conventions whatever the user's locale, so that a decimal
# comma never enters arithmetic, SVG coordinates or the parsing of ping, dig and openssl. Characters keep the
# user's encoding, so that names and certificate fields stay readable.
if [[ -n $LC_ALL ]]; then
    export LC_CTYPE=$LC_ALL
    unset LC_ALL
fi
export LC_NUMERIC=C LC_TIME=C LC_MESSAGES=C

zmodload zsh/datetime || { print -r -- "zsh/datetime is missing: this zsh cannot time anything"; exit 1 }
zmodload zsh/mathfunc || { print -r -- "zsh/mathfunc is missing: this zsh cannot compute timings"; exit 1 }
zmodload zsh/zselect 2>/dev/null
zmodload zsh/net/tcp 2>/dev/null
zmodload zsh/parameter 2>/dev/null
setopt extended_glob pipe_fail no_nomatch
# At quit the application asks a running script to stop and does not wait for it: once it has gone, the
# console has no reader, and a write there must not end the script before its report is written (see orv_say).
trap '' PIPE

typeset -g ORV_SCRIPT_VERSION="1.0"
typeset -g ORV_OS=${$(uname -s 2>/dev/null):-unknown}

# --- The service's targets: one place, named by role. The real host names are set by deployment or by the
# environment; the reserved example domain stands in until then.
typeset -g ORV_FRONTEND=${ORVANTA_FRONTEND:-frontend.example.com:443}
typeset -g ORV_ENDPOINTS=${ORVANTA_ENDPOINTS:-"$ORV_FRONTEND broker.example.com:443 gateway.example.com:443"}
typeset -g ORV_DNS_RESOLVERS=${ORVANTA_DNS_RESOLVERS:-"1.1.1.1 8.8.8.8"}
typeset -g ORV_DNS_QUERY_NAME=${ORVANTA_DNS_QUERY_NAME:-}
typeset -g ORV_GATEWAY_OVERRIDE=${ORVANTA_GATEWAY:-}
typeset -g ORV_RELAY_OVERRIDE=${ORVANTA_RELAY:-}
typeset -g ORV_CLIENT_PROCESS=${ORVANTA_CLIENT_PROCESS:-Windows App}
typeset -g ORV_CONNECTOR_PROCESS=${ORVANTA_CONNECTOR_PROCESS:-Orvanta Mac Connector}
typeset -g ORV_CA_FILE=${ORVANTA_CA_FILE:-}
typeset -g ORV_TIMEOUT=${ORVANTA_TIMEOUT:-5}

typeset -gi ORV_PASSED=0 ORV_FAILED=0 ORV_WARNED=0
typeset -ga ORV_FAILURES ORV_WARNINGS ORV_CHECKS
typeset -ga ORV_BODY
typeset -gA ORV_TOOL_NOTED

# --- Console: plain lines with the local time, one when a step starts and one when it ends.
orv_say() {
    local ts
    strftime -s ts %H:%M:%S $EPOCHSECONDS
    # A console nobody reads any more (the application has quit) is let go, so the run still ends with its
    # report; zsh would otherwise end the script at the first failed write.
    { print -r -- "[$ts] $*" } 2>/dev/null || exec >/dev/null 2>&1
}
orv_step() { orv_say "-- $*" }
# orv_result STATUS TEXT: STATUS is OK, FAIL, WARN, SKIP or INFO; FAIL and WARN are counted for the verdict.
orv_result() {
    local st=$1; shift
    case $st in
    OK) (( ORV_PASSED++ )) ;;
    FAIL) (( ORV_FAILED++ )); ORV_FAILURES+=("$*") ;;
    WARN) (( ORV_WARNED++ )); ORV_WARNINGS+=("$*") ;;
    esac
    ORV_CHECKS+=("$st"$'\t'"$*")
    orv_say "   ${(r:4:)st}  $*"
}

# orv_have TOOL [WHAT-IS-LOST]: true when TOOL is on PATH; otherwise says once what is lost without it.
orv_have() {
    (( $+commands[$1] )) && return 0
    if [[ -n $2 && -z ${ORV_TOOL_NOTED[$1]} ]]; then
        ORV_TOOL_NOTED[$1]=1
        orv_say "   NOTE  '$1' was not found on PATH ($PATH): $2"
    fi
    return 1
}

# --- Milliseconds since the epoch as a float, and a duration printed for people.
orv_now() { REPLY=$EPOCHREALTIME }
orv_ms_since() { printf -v REPLY '%.1f' $(( (EPOCHREALTIME - $1) * 1000.0 )) }

orv_sleep() { # fractional seconds, as a builtin so that a trap interrupts it
    if (( $+builtins[zselect] )); then
        zselect -t $(( int($1 * 100) )) 2>/dev/null
    else
        sleep $1
    fi
}

# orv_limit SECONDS COMMAND...: runs COMMAND with a time-out of its own, so that nothing hangs and a stop
# request is honoured soon. Status 124 on time-out, otherwise the command's.
orv_limit() {
    local secs=$1; shift
    local -F t0=$EPOCHREALTIME
    "$@" &
    local pid=$!
    { orv_sleep $secs; orv_kill_tree TERM $pid; orv_sleep 0.5; orv_kill_tree KILL $pid } &
    local dog=$! rc
    wait $pid; rc=$?
    kill -KILL $dog 2>/dev/null
    wait $dog 2>/dev/null
    # The watchdog is the only sender of a signal at the limit: a signal death then is a time-out.
    (( rc > 128 && EPOCHREALTIME - t0 >= secs )) && return 124
    return rc
}

# orv_kill_tree SIGNAL PID: signals PID and every process below it. A function run under a limit is a subshell
# whose tools are its children; were only the subshell ended, a tool waiting on a silent port would live on
# (and hold the output that the caller reads) until its own time-out.
orv_kill_tree() {
    orv_descendants $2
    kill -$1 $2 $reply 2>/dev/null
}

# --- Process trees. A tool that is stopped can leave children of its own (a wrapper script's sleep, a helper);
# ending only the process that the script started would leave those running after the script.

# orv_descendants PID...: reply holds every living descendant of the given processes.
orv_descendants() {
    local -A kids
    local line
    local -a f queue=($@)
    reply=()
    for line in ${(f)"$(ps -axo pid=,ppid= 2>/dev/null)"}; do
        f=(${=line})
        kids[$f[2]]+=" $f[1]"
    done
    while (( ${#queue} )); do
        f=(${=kids[$queue[1]]})
        shift queue
        reply+=($f); queue+=($f)
    done
}

# orv_end_tree PID...: ends the given processes and all their descendants. Each is stopped before its children
# are listed, so that none can start another unseen or be handed to init when its parent ends; then all are sent
# SIGTERM and continued, so that they act on it.
orv_end_tree() {
    local -a all=($@) fresh=($@)
    local -i round
    for (( round = 0; round < 8 && ${#fresh}; round++ )); do
        kill -STOP $fresh 2>/dev/null
        orv_descendants $@
        fresh=(${reply:|all})
        all+=($fresh)
    done
    kill -TERM $all 2>/dev/null
    kill -CONT $all 2>/dev/null
    return 0
}

# orv_end_children: ends every process this shell started, directly or not; for the end of a script.
orv_end_children() {
    local line
    local -a f kids
    for line in ${(f)"$(ps -axo pid=,ppid= 2>/dev/null)"}; do
        f=(${=line})
        [[ $f[2] == $$ ]] && kids+=($f[1])
    done
    (( ${#kids} )) && orv_end_tree $kids
    return 0
}

# The scripts' traps act in the script's own process only; a probe's subshell just ends.
orv_in_subshell() { (( ZSH_SUBSHELL > 0 )) }
orv_subshell_stop() { orv_in_subshell && { orv_kill_jobs; exit $1 }; return 1 }

# Ends every background job still running, for a stop request or the end of the script.
orv_kill_jobs() {
    local j pid
    for j in ${(k)jobstates}; do
        for pid in ${${(s.:.)jobstates[$j]}[3,-1]}; do
            kill -TERM ${pid%%=*} 2>/dev/null
        done
    done
}

# --- Targets: "host", "host:port", "[v6]:port" or a bare IPv6 address.
# orv_split TARGET DEFAULT-PORT: sets ORV_HOST and ORV_PORT.
orv_split() {
    local t=$1
    ORV_PORT=$2
    if [[ $t == \[*\]:<-> ]]; then
        ORV_HOST=${${t%:*}[2,-2]}; ORV_PORT=${t##*:}
    elif [[ $t == \[*\] ]]; then
        ORV_HOST=${t[2,-2]}
    elif [[ $t == *:*:* ]]; then
        ORV_HOST=$t
    elif [[ $t == *:<-> ]]; then
        ORV_HOST=${t%:*}; ORV_PORT=${t##*:}
    else
        ORV_HOST=$t
    fi
}

# Only plain host names and addresses go to tools, so no target can turn into an option or worse.
orv_valid_host() { orv_is_ipv6 $1 || [[ $1 == [A-Za-z0-9]([A-Za-z0-9._-]#) && ${#1} -le 253 ]] }
orv_valid_target() { orv_split $1 $2 && orv_valid_host $ORV_HOST && [[ $ORV_PORT == <1-65535> ]] }
orv_is_ipv4() { [[ $1 == <0-255>.<0-255>.<0-255>.<0-255> ]] }
# An IPv6 address, optionally with a zone ("fe80::1%en0").
orv_is_ipv6() {
    local a=${1%%\%*}
    [[ $a == *:*:* && $a == [0-9A-Fa-f:.]## && $a != *:::* && ${#a} -le 45 ]] || return 1
    [[ $1 != *%* || ${1#*%} == [A-Za-z0-9_.-]## ]]
}
orv_is_ip() { orv_is_ipv4 $1 || orv_is_ipv6 $1 }
# orv_ipv6_full ADDRESS: REPLY is the address as eight lower-case groups without leading zeros, the form that
# two spellings of one address share ("::1" and "0:0:0:0:0:0:0:1").
orv_ipv6_full() {
    local a=${(L)1%%\%*} g
    local -a head tail out
    if [[ $a == *::* ]]; then head=(${(s.:.)a%%::*}); tail=(${(s.:.)a#*::}); else head=(${(s.:.)a}); fi
    local -a all=($head $tail)
    if [[ $all[-1] == *.* ]] && orv_is_ipv4 $all[-1]; then # an IPv4 tail becomes two groups
        local -a q=(${(s:.:)all[-1]})
        local h1 h2
        printf -v h1 '%x' $(( q[1] * 256 + q[2] )); printf -v h2 '%x' $(( q[3] * 256 + q[4] ))
        if (( ${#tail} )); then tail[-1]=$h1; tail+=($h2); else head[-1]=$h1; head+=($h2); fi
    fi
    out=($head)
    if [[ $a == *::* ]]; then
        repeat $(( 8 - ${#head} - ${#tail} )) out+=(0)
        out+=($tail)
    fi
    REPLY=""
    for g in $out; do g=${g##0##}; REPLY+=":${g:-0}"; done
    REPLY=${REPLY#:}
}
# orv_ipv6_short ADDRESS: REPLY is the address in its short form (RFC 5952), "::1" for "0:0:0:0:0:0:0:1": the
# longest run of two or more zero groups, the first of equal ones, becomes "::".
orv_ipv6_short() {
    orv_ipv6_full $1
    local -a g=(${(s.:.)REPLY})
    local -i i at=0 len=0 run=0
    for (( i = 1; i <= ${#g}; i++ )); do
        if [[ $g[i] == 0 ]]; then (( ++run > len )) && (( len = run, at = i - run + 1 )); else run=0; fi
    done
    (( len >= 2 )) && REPLY="${(j.:.)g[1,at-1]}::${(j.:.)g[at+len,-1]}"
}
orv_hostport() { if orv_is_ipv6 $1; then REPLY="[$1]:$2"; else REPLY="$1:$2"; fi }

# orv_resolve HOST: addresses from the system resolver (the one the client uses) in reply, one per element.
orv_resolve() {
    reply=()
    local host=$1 out
    if orv_is_ip $host; then reply=($host); return 0; fi
    if [[ $ORV_OS == Darwin ]] && orv_have dscacheutil; then
        out=$(orv_limit $ORV_TIMEOUT dscacheutil -q host -a name $host 2>/dev/null)
        reply=(${(u)${(M)${(f)out}:#ip*_address:*}##*: })
    elif orv_have getent; then
        out=$(orv_limit $ORV_TIMEOUT getent ahosts $host 2>/dev/null)
        reply=(${(u)${${(M)${(f)out}:#*STREAM*}%% *}})
    elif orv_have dig "names cannot be looked up (no getent or dscacheutil, and no dig)"; then
        out=$(orv_limit $ORV_TIMEOUT dig +short +time=2 +tries=1 $host A $host AAAA 2>/dev/null)
        reply=(${(u)${(M)${(f)out}:#[0-9a-fA-F]*[.:]*}})
    fi
    (( ${#reply} > 0 ))
}

# orv_tcp_once HOST PORT: opens and closes one connection. The last line is "ok MS", the connect alone timed (a
# tool's start-up is not network time); anything before it is the tool's complaint. zsh's own ztcp knows IPv4
# only; bash's /dev/tcp, which every Mac has, takes IPv6 too and times itself: in microseconds where its clock has
# them (bash 5), in milliseconds with its `time` otherwise (macOS's bash 3.2).
orv_tcp_once() {
    local host=$1 port=$2 rc out
    local -F t0 t1
    if (( $+builtins[ztcp] )) && ! orv_is_ipv6 $host; then
        t0=$EPOCHREALTIME; ztcp $host $port 2>&1; rc=$?; t1=$EPOCHREALTIME
        (( rc == 0 )) || return 1
        ztcp -c $REPLY 2>/dev/null
        printf 'ok %.3f\n' $(( (t1 - t0) * 1000.0 ))
    elif (( $+commands[bash] )); then
        out=$(bash -c 'if [ -n "${EPOCHREALTIME-}" ]; then
                s=$EPOCHREALTIME; exec 3<>"/dev/tcp/$1/$2" || exit 1; e=$EPOCHREALTIME; echo "us $(( ${e/./} - ${s/./} ))"
            else TIMEFORMAT="s %3R"; time exec 3<>"/dev/tcp/$1/$2" || exit 1; fi' orvanta-tcp $host $port 2>&1 </dev/null)
        rc=$?
        (( rc == 0 )) || { print -r -- $out; return 1 }
        case ${out##*$'\n'} in
        (#b)us\ ([0-9]##)) printf 'ok %.3f\n' $(( match[1] / 1000.0 )) ;;
        (#b)s\ ([0-9.]##)) printf 'ok %.3f\n' $(( match[1] * 1000.0 )) ;;
        *) print -r -- $out; return 1 ;;
        esac
    else
        return 3
    fi
}

# orv_tcp HOST PORT [SECONDS]: one TCP connection. Status 0 with REPLY the connect time in ms; otherwise REPLY
# says why, and the status tells a silent port (124: no answer in time, packets dropped) from a refusal (1),
# an unreachable host or other failure (2) and a missing tool (3).
orv_tcp() {
    local secs=${3:-$ORV_TIMEOUT} out rc
    out=$(orv_limit $secs orv_tcp_once $1 $2); rc=$?
    if (( rc == 0 )) && [[ ${out##*$'\n'} == (#b)ok\ ([0-9.]##) ]]; then
        REPLY=$match[1]; return 0
    fi
    case $rc:${(L)out} in
    124:*) REPLY="no answer within ${secs}s (packets dropped: a firewall filters the port, or the host is down)"; return 124 ;;
    3:*) REPLY="no tool to open a connection (zsh/net/tcp or bash)"; return 3 ;;
    *refused*) REPLY="connection refused (the host answered: nothing listens on port $2, or the service there is down)"; return 1 ;;
    *(unreachable|no\ route)*) REPLY="unreachable (no route to $1)"; return 2 ;;
    *(resolution|not\ known|nodename|name\ or\ service)*) REPLY="name not found: $1 does not resolve"; return 2 ;;
    esac
    out=${out##*$'\n'}
    REPLY="connection failed${out:+: ${out##*: }}"
    return 2
}

# orv_ping HOST [SECONDS]: REPLY is the round-trip time in ms of one echo request.
orv_ping() {
    local host=$1 secs=${2:-2} out rc tool=ping
    local -a args=(-c 1 -n)
    if orv_is_ipv6 $host; then
        if [[ $ORV_OS == Darwin ]]; then tool=ping6; else args+=(-6); fi
    fi
    if [[ $ORV_OS == Darwin ]]; then
        [[ $tool == ping ]] && args+=(-t $(( int(ceil(secs)) )))   # -t is the time-out on macOS
    else
        args+=(-W $(( int(ceil(secs)) )))                         # -t would be the TTL here
    fi
    out=$(orv_limit $(( secs + 1 )) $tool $args $host 2>&1); rc=$?
    if [[ $out == (#b)*time[=\<]([0-9.]##)* ]]; then
        REPLY=$match[1]
        return 0
    fi
    # A router's complaint says more than the closing count of packets, which says only that none came back.
    local -a said=(${(M)${(f)out}:#(#i)*(unreachable|no route|sendto)*})
    REPLY=$said[1]
    [[ -z $REPLY && $out == *\ 0\ (packets\ |)received* ]] && REPLY="no answer"
    [[ -n $REPLY ]] || REPLY=${out##*$'\n'}
    return $(( rc ? rc : 1 ))
}

# orv_dns_query RESOLVER NAME [SECONDS]: asks RESOLVER (address or address#port) for NAME; REPLY is the time in ms,
# as dig measures the query (whole ms); host and nslookup do not time themselves, so theirs includes their start.
orv_dns_query() {
    local server=${1%%\#*} port=53 name=$2 secs=${3:-2} out rc t0
    [[ $1 == *\#<-> ]] && port=${1##*\#}
    t0=$EPOCHREALTIME
    if (( $+commands[dig] )); then
        out=$(orv_limit $(( secs + 1 )) dig +time=$(( int(ceil(secs)) )) +tries=1 -p $port @$server $name A 2>&1); rc=$?
        if [[ $out == (#b)*status:\ ([A-Z]##)* && $out == (#b)*Query\ time:\ ([0-9]##)* ]]; then
            REPLY=$match[1]   # dig's own clock, in whole ms: 0 is an answer within a millisecond
            return 0
        fi
        local -a said=(${(M)${(f)out}:#*;; *})
        REPLY=${said[1]#;; }
        [[ -n $REPLY ]] || REPLY="no answer"
        return 1
    elif (( $+commands[host] )) && (( port == 53 )); then
        out=$(orv_limit $(( secs + 1 )) host -W $(( int(ceil(secs)) )) $name $server 2>&1); rc=$?
    elif (( $+commands[nslookup] )) && (( port == 53 )); then
        out=$(orv_limit $(( secs + 1 )) nslookup -timeout=$(( int(ceil(secs)) )) $name $server 2>&1); rc=$?
    else
        return 3
    fi
    # host and nslookup say NXDOMAIN with a non-zero status, which still proves the resolver answered.
    if (( rc == 0 )) || [[ $out == *(NXDOMAIN|not found|can\'t find)* ]]; then
        printf -v REPLY '%.1f' $(( (EPOCHREALTIME - t0) * 1000.0 ))
        return 0
    fi
    REPLY="no answer"
    return 1
}
orv_dns_tool() { (( $+commands[dig] || $+commands[host] || $+commands[nslookup] )) }

# --- The system: default gateway, running processes, the client's remote peers.
# orv_default_gateway: status 0 when there is a default route. REPLY is the next hop's address, empty when the
# route names only an interface (a full-tunnel VPN such as utun on macOS or "dev wg0" on Linux, or another
# point-to-point link); ORV_GW_IF is the route's interface. For a route without an address, ORV_GW_PEER is the
# far end of that interface when it has one, and ORV_GW_LOCAL the router of another default route (the local
# network under the tunnel), each empty when unknown.
orv_default_gateway() {
    REPLY=$ORV_GATEWAY_OVERRIDE; ORV_GW_IF=""; ORV_GW_PEER=""; ORV_GW_LOCAL=""
    [[ -n $REPLY ]] && { ORV_GW_IF="(set by ORVANTA_GATEWAY)"; return 0 }
    local out line gw ifc
    local -a f
    if [[ $ORV_OS == Darwin ]] && orv_have route "the default gateway cannot be found"; then
        # netstat -rn changed its columns in macOS 11.3; route get prints labelled fields.
        out=$(orv_limit 3 route -n get default 2>/dev/null)
        # A network with IPv6 only has its default route there.
        [[ $out == *interface:* ]] || out=$(orv_limit 3 route -n get -inet6 default 2>/dev/null)
        [[ $out == (#b)*gateway:\ ([^$'\n']##)* ]] && gw=${match[1]## #}
        [[ $out == (#b)*interface:\ ([^$'\n']##)* ]] && ORV_GW_IF=${match[1]## #}
        orv_is_ip $gw && REPLY=$gw
        [[ -n $REPLY || -n $ORV_GW_IF ]] || return 1
        if [[ -z $REPLY ]]; then
            out=$(orv_limit 3 ifconfig $ORV_GW_IF 2>/dev/null)
            [[ $out == (#b)*inet\ ([0-9.]##)\ --\>\ ([0-9.]##)* && $match[2] != $match[1] ]] && ORV_GW_PEER=$match[2]
            # Interface-scoped default routes of the other interfaces: the first with a router address.
            for line in ${(f)"$(orv_limit 3 netstat -rn -f inet 2>/dev/null)"}; do
                f=(${=line})
                [[ $f[1] == default ]] && orv_is_ipv4 $f[2] || continue
                ifc=${${(M)f[3,-1]:#[a-z]##<->}[1]}
                [[ $ifc != $ORV_GW_IF ]] && { ORV_GW_LOCAL=$f[2]; break }
            done
        fi
    elif orv_have ip; then
        # The first default route is the one in use; a later one with a router is the network under a tunnel.
        # IPv6 is asked only when there is no IPv4 default route; its routers are link-local, so they carry
        # their interface.
        local fam
        for fam in -4 -6; do
            for line in ${(f)"$(orv_limit 3 ip $fam route show default 2>/dev/null)"}; do
                gw=""; ifc=""
                [[ $line == (#b)*\ via\ ([^ ]##)* ]] && gw=$match[1]
                [[ $line == (#b)*\ dev\ ([^ ]##)* ]] && ifc=$match[1]
                [[ $gw == [Ff][Ee]80:* && -n $ifc ]] && gw+="%$ifc"
                if [[ -z $ORV_GW_IF ]]; then
                    REPLY=$gw; ORV_GW_IF=$ifc
                    [[ -n $REPLY ]] && break
                elif [[ -n $gw ]]; then
                    ORV_GW_LOCAL=$gw; break
                fi
            done
            [[ -n $ORV_GW_IF ]] && break
        done
        [[ -n $REPLY || -n $ORV_GW_IF ]] || return 1
        if [[ -z $REPLY ]]; then
            out=$(orv_limit 3 ip -4 -o addr show dev $ORV_GW_IF 2>/dev/null)
            [[ $out == (#b)*\ peer\ ([0-9.]##)* ]] && ORV_GW_PEER=$match[1]
        fi
    elif [[ -r /proc/net/route ]]; then
        local dest rest
        while read -r ifc dest gw rest; do
            [[ $dest == 00000000 && $gw == [0-9A-F](#c8) ]] || continue
            ORV_GW_IF=$ifc
            [[ $gw != 00000000 ]] && REPLY="$(( 16#${gw[7,8]} )).$(( 16#${gw[5,6]} )).$(( 16#${gw[3,4]} )).$(( 16#${gw[1,2]} ))"
            break
        done < /proc/net/route
    fi
    [[ -n $REPLY || -n $ORV_GW_IF ]]
}

# orv_pids NAME: reply holds the ids of processes whose command name is NAME (Linux keeps 15 characters of it).
orv_pids() {
    reply=()
    local line pid comm
    for line in ${(f)"$(ps -axo pid=,comm= 2>/dev/null)"}; do
        line=${line##[[:space:]]#}
        pid=${line%%[[:space:]]*}
        comm=${${line#*[[:space:]]}##[[:space:]]#}
        comm=${comm:t}
        if [[ $comm == $1 ]] || { (( ${#comm} == 15 )) && [[ $1 == ${comm}* ]] }; then
            [[ $pid != $$ ]] && reply+=($pid)
        fi
    done
    (( ${#reply} > 0 ))
}

# orv_relay_peers: reply holds the remote peers (address:port) of the client's established TCP connections, the
# likely relay first, when a session is active; ORV_RELAY_SOURCE says where they came from. ORV_RELAY_GUESS is 1
# when nothing marks the first peer as the session's: no connection on the remote-desktop port, and more than one
# peer (telemetry and sign-in use HTTPS too), so the peer with the most connections was taken.
orv_relay_peers() {
    reply=(); ORV_RELAY_SOURCE=""; ORV_RELAY_GUESS=0
    if [[ -n $ORV_RELAY_OVERRIDE ]]; then
        reply=(${=ORV_RELAY_OVERRIDE}); ORV_RELAY_SOURCE="set by ORVANTA_RELAY"; return 0
    fi
    orv_pids $ORV_CLIENT_PROCESS || { ORV_RELAY_SOURCE="'$ORV_CLIENT_PROCESS' is not running"; return 1 }
    local -a pids=($reply) rdp other
    reply=()
    orv_have lsof "the client's connections (the relay) cannot be read" || { ORV_RELAY_SOURCE="lsof is missing"; return 1 }
    local out line proto="" name="" state="" peer
    local -A count
    out=$(orv_limit 5 lsof -nP -a -p ${(j:,:)pids} -iTCP -sTCP:ESTABLISHED -FfPnT 2>/dev/null)
    # One record per open file: "f" (or "p" for the next process) starts it, then P protocol, n addresses, T state.
    # The state is checked here as well, since lsof versions differ in what -s filters.
    for line in ${(f)out} f; do
        case $line in
        f*|p*)
            if [[ $proto == TCP && $name == *-\>* && ( -z $state || $state == ESTABLISHED ) ]]; then
                peer=${${name#*->}%% *}
                if [[ $peer != (127.*|\[::1\]*|\[::ffff:127.*|localhost*):* ]]; then
                    count[$peer]=$(( ${count[$peer]:-0} + 1 ))
                    if [[ $peer == *:3389 ]]; then rdp+=($peer); else other+=($peer); fi
                fi
            fi
            proto=""; name=""; state="" ;;
        P*) proto=${line#P} ;;
        n*) name=${line#n} ;;
        TST=*) state=${line#TST=} ;;
        esac
    done
    rdp=(${(u)rdp}); other=(${(u)other})
    # Most connections first; equal counts keep lsof's order.
    local -a keyed
    local -i k=0 key
    for peer in $other; do (( k++ )); key=$(( 999999 - ${count[$peer]} )); keyed+=("${(l:6::0:)key} ${(l:6::0:)k} $peer"); done
    local -a ranked=(${${(on)keyed}##* })
    reply=($rdp $ranked)
    if (( ${#rdp} )); then
        ORV_RELAY_SOURCE="remote-desktop connection of '$ORV_CLIENT_PROCESS'"
    elif (( ${#reply} == 1 )); then
        ORV_RELAY_SOURCE="the only established connection of '$ORV_CLIENT_PROCESS'"
    elif (( ${#reply} )); then
        ORV_RELAY_GUESS=1
        ORV_RELAY_SOURCE="a guess: the busiest of ${#reply} established connections of '$ORV_CLIENT_PROCESS', none on the remote-desktop port"
    else
        ORV_RELAY_SOURCE="'$ORV_CLIENT_PROCESS' has no established connection (no active session)"
    fi
    (( ${#reply} > 0 ))
}

# The latest relay a report recorded, for a trace when no session is open now.
orv_last_recorded_relay() {
    REPLY=""
    local f line
    for f in $HOME/Desktop/(OrvantaMacClientReach_|OrvantaNetMonitor_)*.html(N.om); do
        line=$(grep -m1 '<meta name="orvanta-relay"' $f 2>/dev/null)
        if [[ $line == (#b)*content=\"([0-9A-Fa-f.:\[\]]##)\"* ]]; then
            REPLY=$match[1]; ORV_RELAY_SOURCE="recorded in ${f:t}"; return 0
        fi
    done
    return 1
}

# --- HTML: everything from the network or the system goes through orv_esc.
orv_esc() {
    local s=$1
    s=${s//&/&amp;}; s=${s//</&lt;}; s=${s//>/&gt;}; s=${s//\"/&quot;}; s=${s//\'/&#39;}
    REPLY=$s
}
orv_h() { orv_esc "$*"; ORV_BODY+=("$REPLY") }      # escaped text
orv_raw() { ORV_BODY+=("$*") }                     # markup written by the script itself
orv_section() { orv_esc "$1"; ORV_BODY+=("<h2>$REPLY</h2>") }
orv_para() { orv_esc "$2"; ORV_BODY+=("<p class=\"$1\">$REPLY</p>") }
orv_table() {
    local c row="<table><thead><tr>"
    for c in "$@"; do orv_esc "$c"; row+="<th>$REPLY</th>"; done
    ORV_BODY+=("$row</tr></thead><tbody>")
}
orv_table_end() { ORV_BODY+=("</tbody></table>") }
# orv_row STATUS CELL...: a table row whose first cell is a badge (OK, FAIL, WARN, SKIP, INFO, or empty for none).
orv_row() {
    local st=$1 c row="<tr>"; shift
    [[ -n $st ]] && { orv_badge $st; row+="<td>$REPLY</td>" }
    for c in "$@"; do orv_esc "$c"; row+="<td>$REPLY</td>"; done
    ORV_BODY+=("$row</tr>")
}
# orv_badge STATUS: REPLY is the badge's markup.
orv_badge() { REPLY="<span class=\"b ${(L)1}\">$1</span>" }

# --- Secrets: nothing that could be a credential reaches the console or a report.
# orv_mask VALUE [NAME]: REPLY is VALUE with every user name, password and token hidden. Whatever stands before
# the last "@" of a value is taken as credentials, with or without a scheme and whatever characters the password
# holds; so are the values of query parameters, and the whole value of a setting named like a credential.
orv_mask() {
    local v=$1 scheme=""
    if [[ $2 == (#i)*(password|passwd|secret|token|credential|authoriz|user|login)* ]]; then
        REPLY="***"; return
    fi
    [[ $v == (#b)([A-Za-z][A-Za-z0-9+.-]#://)(*) ]] && { scheme=$match[1]; v=$match[2] }
    [[ $v == *@* ]] && v="***@${v##*@}"
    v=${v//(#b)([?&;][^=&;#]#=)[^&;#]#/$match[1]***}
    REPLY=$scheme$v
}
# orv_mask_words TEXT: REPLY is free TEXT (a tool's message) with orv_mask applied to each word.
orv_mask_words() {
    local w out=""
    for w in ${(s: :)1}; do orv_mask "$w"; out+="${out:+ }$REPLY"; done
    REPLY=$out
}

typeset -g ORV_CSS='
:root{--blue:#1f5fbf;--ok:#1e7d32;--fail:#c62828;--warn:#b26a00;--mute:#667085}
*{box-sizing:border-box}
body{font:14px/1.45 -apple-system,BlinkMacSystemFont,"Segoe UI",Helvetica,Arial,sans-serif;color:#1d2433;background:#f4f6fa;margin:0}
header{background:var(--blue);color:#fff;padding:18px 28px}
header h1{margin:0;font-size:22px;font-weight:600}
header p{margin:4px 0 0;opacity:.9;font-size:13px}
main{max-width:1080px;margin:0 auto;padding:20px 28px 40px}
.verdict{border-radius:10px;padding:14px 18px;margin:0 0 18px;border:1px solid;background:#fff}
.verdict h2{margin:0 0 6px;font-size:19px;border:0;padding:0}
.verdict.ok{border-color:var(--ok);background:#eef8ef}.verdict.ok h2{color:var(--ok)}
.verdict.fail{border-color:var(--fail);background:#fdeeee}.verdict.fail h2{color:var(--fail)}
.verdict.warn{border-color:var(--warn);background:#fff6e5}.verdict.warn h2{color:var(--warn)}
.verdict ul{margin:6px 0 0;padding-left:20px}
h2{font-size:17px;margin:26px 0 8px;padding-bottom:4px;border-bottom:1px solid #d8dde6}
h3{font-size:15px;margin:18px 0 6px}
table{border-collapse:collapse;width:100%;background:#fff;margin:6px 0 12px;font-size:13px}
th,td{text-align:left;padding:5px 9px;border-bottom:1px solid #e6e9ef;vertical-align:top;overflow-wrap:anywhere}
th{background:#eef1f6;font-weight:600}
tr.mark td{background:#fff3e0}
.b{display:inline-block;min-width:44px;text-align:center;border-radius:4px;padding:1px 6px;font-size:11px;font-weight:700;color:#fff;white-space:nowrap;overflow-wrap:normal}
td:has(> .b:only-child){width:1%}
th,td:not(:last-child){overflow-wrap:break-word}
table.checks td:nth-child(2){white-space:nowrap}
.verdict,.verdict li,h2,h3,p,header p,footer{overflow-wrap:anywhere}
.verdict li .b{margin-right:6px}
.verdict li{margin:0 0 4px}
.verdict .step{display:block;margin:2px 0 0;padding-left:8px;border-left:3px solid var(--blue)}
.verdict p.step{margin:10px 0 0}
.b.ok{background:var(--ok)}.b.fail{background:var(--fail)}.b.warn{background:var(--warn)}
.b.skip,.b.info{background:var(--mute)}
.note{color:var(--mute);font-size:12.5px}
pre{background:#fff;border:1px solid #e6e9ef;padding:8px;font-size:12px;overflow-x:auto;white-space:pre-wrap}
svg.chart{display:block;background:#fff;border:1px solid #e6e9ef;width:100%}
footer{color:var(--mute);font-size:12px;margin-top:28px}
'

# orv_write_report PREFIX TITLE VERDICT-CLASS VERDICT-TITLE [VERDICT-LINE...]: writes the report to the Desktop
# through a hidden temporary file that is renamed when complete; REPLY is its full path. A verdict line
# "STATUS<tab>text" is shown with its badge, and "STATUS<tab>text<tab>next step" with what to do about it beside
# it. Where no line has a step of its own, the report's closing words (orv_next_steps) stand under the verdict too,
# so that the reader need not scroll for them.
typeset -ga ORV_HEAD_EXTRA
orv_write_report() {
    local prefix=$1 title=$2 vclass=$3 vtitle=$4; shift 4
    local desk=$HOME/Desktop stamp name dest tmp line
    mkdir -p $desk 2>/dev/null
    if [[ ! -d $desk || ! -w $desk ]]; then
        orv_say "Cannot write to $desk: no report was written."
        REPLY=""; return 1
    fi
    strftime -s stamp %Y%m%d-%H%M%S $EPOCHSECONDS
    name="$prefix$stamp"
    local -i n=2
    while [[ -e $desk/$name.html ]]; do name="$prefix$stamp-$n"; (( n++ )); done
    dest=$desk/$name.html
    tmp=$desk/.$name.html.tmp$$
    local host_name os_text
    host_name=$(hostname 2>/dev/null)
    if [[ $ORV_OS == Darwin ]] && (( $+commands[sw_vers] )); then
        os_text="macOS $(sw_vers -productVersion 2>/dev/null)"
    elif [[ -r /etc/os-release ]]; then
        os_text=${${(M)${(f)"$(</etc/os-release)"}:#PRETTY_NAME=*}#PRETTY_NAME=}; os_text=${(Q)os_text}
    else
        os_text=$ORV_OS
    fi
    {
        print -r -- '<!DOCTYPE html>'
        print -r -- '<html lang="en"><head><meta charset="utf-8" />'
        print -r -- '<meta name="viewport" content="width=device-width, initial-scale=1" />'
        orv_esc "$title"; print -r -- "<title>$REPLY</title>"
        for line in $ORV_HEAD_EXTRA; do print -r -- $line; done
        print -r -- "<style>$ORV_CSS</style></head><body>"
        orv_esc "$title"; print -r -- "<header><h1>Orvanta $REPLY</h1>"
        orv_esc "Computer $host_name · user ${USER:-?} · $os_text · $(strftime '%Y-%m-%d %H:%M:%S %Z' $EPOCHSECONDS)"
        print -r -- "<p>$REPLY</p></header><main>"
        orv_esc "$vtitle"; print -r -- "<section class=\"verdict $vclass\"><h2>$REPLY</h2>"
        local badge step steps=0
        if (( $# )); then
            print -r -- "<ul>"
            for line in "$@"; do
                badge="" step=""
                [[ $line == (OK|FAIL|WARN|SKIP|INFO)$'\t'* ]] && { orv_badge ${line%%$'\t'*}; badge=$REPLY; line=${line#*$'\t'} }
                if [[ $line == *$'\t'* ]]; then
                    orv_esc "${line#*$'\t'}"; step="<span class=\"step\">$REPLY</span>"; line=${line%%$'\t'*}; steps=1
                fi
                orv_esc "$line"; print -r -- "<li>$badge$REPLY$step</li>"
            done
            print -r -- "</ul>"
        fi
        if (( ! steps )) && [[ -n $ORV_NEXT_SAID ]]; then
            orv_esc "$ORV_NEXT_SAID"; print -r -- "<p class=\"step\"><b>What to do next:</b> $REPLY</p>"
        fi
        print -r -- "</section>"
        for line in $ORV_BODY; do print -r -- $line; done
        orv_esc "Written by ${ZSH_ARGZERO:t} $ORV_SCRIPT_VERSION with zsh $ZSH_VERSION on $ORV_OS."
        print -r -- "<footer>$REPLY</footer></main></body></html>"
    } > $tmp 2>/dev/null && mv -f $tmp $dest 2>/dev/null || {
        rm -f $tmp 2>/dev/null
        orv_say "Writing $dest failed: no report was written."
        REPLY=""; return 1
    }
    REPLY=$dest
}

# Prints the standard closing: the report's path as the last line.
orv_finish() { # orv_finish PATH EXIT-STATUS
    [[ -n $1 ]] && print -r -- $1
    exit $2
}

# --- Settings: every ORVANTA_* value is checked before any work, so that a typing error is a usage error that
# names the variable instead of a number silently read as 0 (or a value evaluated as arithmetic).
# Kinds: target(s) "host[:port]"; resolvers "address[#port]"; host; address; name (free text on one line);
# file (readable); seconds MIN MAX (decimal); count MIN MAX (whole number).
typeset -gA ORV_SETTINGS=(
    ORVANTA_FRONTEND target
    ORVANTA_ENDPOINTS targets
    ORVANTA_RELAY targets
    ORVANTA_DNS_RESOLVERS resolvers
    ORVANTA_DNS_QUERY_NAME host
    ORVANTA_GATEWAY address
    ORVANTA_CLIENT_PROCESS name
    ORVANTA_CONNECTOR_PROCESS name
    ORVANTA_CA_FILE file
    ORVANTA_TIMEOUT "seconds 0.1 600"
    ORVANTA_PROBE_INTERVAL "seconds 0.05 3600"
    ORVANTA_PROBE_TIMEOUT "seconds 0.01 600"
    ORVANTA_MINUTE_SECONDS "seconds 0.1 3600"
    ORVANTA_TRACE_MAX_HOPS "count 1 64"
    ORVANTA_TRACE_WAIT "count 1 60"
    ORVANTA_TRACE_TIMEOUT "count 1 3600"
)

# orv_setting_ok KIND VALUE: true when VALUE fits KIND; REPLY says what was expected.
orv_setting_ok() {
    local -a k=(${=1}); local v=$2 t
    case $k[1] in
    target|targets)
        REPLY="host names or addresses with an optional port (host, host:443, [::1]:443)"
        [[ $k[1] == target ]] && REPLY="a host name or address with an optional port (host, host:443, [::1]:443)"
        local -a ts=(${=v})
        [[ $k[1] == target ]] && (( ${#ts} != 1 )) && return 1
        for t in $ts; do orv_valid_target $t 443 || return 1; done ;;
    resolvers)
        REPLY="addresses of DNS servers with an optional port (192.0.2.53, ::1#5353)"
        for t in ${=v}; do
            orv_is_ip ${t%%\#*} && [[ $t != *\#* || ${t##*\#} == <1-65535> ]] || return 1
        done ;;
    host) REPLY="a host name"; orv_valid_host $v ;;
    address) REPLY="an IPv4 or IPv6 address"; orv_is_ip $v ;;
    name) REPLY="a name on one line"; [[ $v != *[[:cntrl:]]* ]] ;;
    file) REPLY="the path of a readable file"; [[ -f $v && -r $v ]] ;;
    seconds)
        REPLY="a number of seconds from $k[2] to $k[3], with a decimal point (1.5)"
        [[ $v == (<->|<->.<->|.<->) ]] && (( v >= k[2] && v <= k[3] )) ;;
    count)
        REPLY="a whole number from $k[2] to $k[3]"
        [[ $v == <-> ]] && (( 10#$v >= k[2] && 10#$v <= k[3] )) ;;
    *) return 0 ;;
    esac
}

orv_check_settings() {
    local name shown expected
    for name in ${(ok)parameters[(I)ORVANTA_*]}; do
        [[ ${parameters[$name]} == *export* ]] || continue
        if (( ! $+ORV_SETTINGS[$name] )); then
            orv_say "   NOTE  $name is not a setting of these scripts: ignored"
            continue
        fi
        [[ -z ${(P)name} ]] && continue # empty means the default
        orv_setting_ok "$ORV_SETTINGS[$name]" "${(P)name}" && continue
        expected=$REPLY
        orv_mask "${(P)name}" $name; shown=${REPLY//[[:cntrl:]]/?}
        print -r -- "${ZSH_ARGZERO:t}: usage error: $name='$shown' is not valid; expected $expected"
        return 2
    done
    return 0
}

# --- What to do next: the report's closing words for the person reading it, chosen by the verdict's cause.
# A cause is where the problem lies, so that the reader knows whether to act or whom to send the report to.
typeset -gA ORV_NEXT_TEXT=(
    none "Nothing to do: everything checked works. If the problem comes back, run this check again while it happens and send the report to support."
    local "The problem is on this Mac or its local network (Wi-Fi, cable, router): check that other web sites open, restart the router if they do not, then run this check again."
    dns "This Mac cannot look up the service's names: check the network's DNS settings (or ask its administrator), then run this check again."
    firewall "A firewall between this Mac and the service blocks the connection: send this report to your network administrator."
    provider "The problem lies beyond your router, with the internet provider: send this report to the provider, or to support if it persists."
    proxy "The proxy of this network does not let the service through: send this report to your network administrator and ask for the service to be allowed."
    certificate "This Mac does not trust the certificate it was shown: if this network inspects encrypted traffic, ask its administrator to exempt the service; otherwise send this report to support."
    service "The problem is on the service's side, not on this Mac: send this report to support."
    client "Start the Orvanta Mac Connector (reinstall it if it will not start), then run this check again."
)
ORV_CSS+='.next{border-left:4px solid var(--blue);background:#fff;padding:10px 16px;margin:22px 0 0;border-radius:0 8px 8px 0}
.next h2{margin:0 0 4px;border:0;padding:0;font-size:16px}.next p{margin:0}
'
# orv_next_steps CAUSE [SENTENCE]: ends the report and the console with what to do next. CAUSE is a key of
# ORV_NEXT_TEXT; SENTENCE, when given, replaces that cause's own words. Call it after the last section.
typeset -g ORV_NEXT_SAID=""
orv_next_steps() {
    local text=${2:-$ORV_NEXT_TEXT[$1]}
    [[ -n $text ]] || text=$ORV_NEXT_TEXT[none]
    ORV_NEXT_SAID=$text
    orv_say "Next: $text"
    orv_esc "$text"
    ORV_BODY+=("<section class=\"next\" data-cause=\"${1//[^a-z]/}\"><h2>What to do next</h2><p>$REPLY</p></section>")
}

orv_check_settings || exit 2
