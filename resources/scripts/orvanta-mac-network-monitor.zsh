#!/bin/zsh
# Network Monitor: probes public DNS resolvers, the default gateway, the Orvanta front end and the active relay
# every two seconds, prints state changes as they happen and a summary each minute, then writes an HTML report
# with per-target loss, median, 95th percentile and jitter, outages clustered in time, a verdict on which side of
# the path failed with what to do next, and a timeline of each target's spread. Stops at the end of its duration,
# or on SIGTERM/SIGINT, and still writes its report then.
emulate -R zsh
source ${0:A:h}/orvanta-common.zsh 2>/dev/null || {
    print -r -- "Cannot read orvanta-common.zsh beside this script (${0:A:h}): reinstall the toolkit."
    exit 1
}

usage() { print -r -- "usage: ${ZSH_ARGZERO:t} [--duration MINUTES | --indefinite]   (default: 60 minutes)"; }
typeset -i MINUTES=60 INDEFINITE=0
while (( $# )); do
    case $1 in
    --duration)
        [[ $2 == <1-100000> ]] || { print -r -- "--duration needs a whole number of minutes, got '${2-}'"; usage; exit 2 }
        MINUTES=$2; shift 2 ;;
    --duration=*)
        [[ ${1#*=} == <1-100000> ]] || { print -r -- "--duration needs a whole number of minutes, got '${1#*=}'"; usage; exit 2 }
        MINUTES=${1#*=}; shift ;;
    --indefinite) INDEFINITE=1; shift ;;
    -h|--help) usage; exit 0 ;;
    *) print -r -- "Unknown argument: $1"; usage; exit 2 ;;
    esac
done

# Probe rhythm; tests shorten these through the environment.
typeset -F INTERVAL=${ORVANTA_PROBE_INTERVAL:-2}
typeset -F PROBE_TIMEOUT=${ORVANTA_PROBE_TIMEOUT:-1.5}
typeset -F MINUTE=${ORVANTA_MINUTE_SECONDS:-60}
(( INTERVAL >= 0.05 && PROBE_TIMEOUT > 0 && MINUTE >= 0.1 )) || { print -r -- "ORVANTA_PROBE_INTERVAL, ORVANTA_PROBE_TIMEOUT or ORVANTA_MINUTE_SECONDS is not a positive number"; exit 2 }
(( PROBE_TIMEOUT > INTERVAL )) && PROBE_TIMEOUT=$INTERVAL

typeset -g WORK=$(mktemp -d "${TMPDIR:-/tmp}/orvanta-monitor.XXXXXX") || { print -r -- "Cannot create a temporary folder"; exit 1 }
typeset -gi STOP=0
typeset -g STOP_REASON=""
setopt traps_async   # a stop request ends the wait for the current probes at once
TRAPEXIT() { orv_in_subshell || { orv_kill_jobs; orv_end_children; rm -rf $WORK } }
TRAPTERM() { orv_subshell_stop 143; STOP=1; STOP_REASON="stopped by a termination request"; orv_kill_jobs; return 0 }
TRAPINT() { orv_subshell_stop 130; STOP=1; STOP_REASON="stopped by an interrupt"; orv_kill_jobs; return 0 }

# --- Targets: id → label, role, kind (dns, icmp, tcp), host, port.
typeset -ga T_LABEL T_ROLE T_KIND T_HOST T_PORT T_STATE T_SINCE T_LOSTRUN T_P95 T_JITTER
typeset -ga T_WHOLE   # 1 where the probe's tool times in whole milliseconds (dig): its 0 is an answer within one
typeset -ga NOTES
add_target() {
    T_LABEL+=("$1"); T_ROLE+=("$2"); T_KIND+=("$3"); T_HOST+=("$4"); T_PORT+=("$5")
    T_STATE+=(new); T_SINCE+=(0); T_LOSTRUN+=(0)
    if [[ $3 == dns ]] && (( $+commands[dig] )); then T_WHOLE+=(1); else T_WHOLE+=(0); fi
    : > $WORK/s.${#T_LABEL}
    orv_say "   target ${#T_LABEL}: $1 ($3 probe${4:+ to $4}${5:+ port $5})"
}
note() { NOTES+=("$*"); orv_say "   NOTE  $*" }

orv_say "Orvanta Network Monitor $ORV_SCRIPT_VERSION on ${ORV_OS}: every $(printf %g $INTERVAL)s, probe time-out $(printf %g $PROBE_TIMEOUT)s, $( (( INDEFINITE )) && print -rn -- "until stopped" || print -rn -- "for $MINUTES minute(s)")"
orv_step "Choosing the targets"

typeset -g QNAME=$ORV_DNS_QUERY_NAME
if [[ -z $QNAME ]]; then orv_split $ORV_FRONTEND 443; QNAME=$ORV_HOST; fi
orv_valid_host $QNAME && ! orv_is_ip $QNAME || QNAME=example.com
typeset -i n_dns=0
for r in ${=ORV_DNS_RESOLVERS}; do
    (( n_dns >= 2 )) && break
    host=${r%%\#*}
    orv_valid_host $host || { note "DNS resolver '$r' is not a valid address: skipped"; continue }
    (( n_dns++ ))
    if (( $+commands[dig] )) || { orv_dns_tool && [[ $r != *\#* ]] }; then
        add_target "DNS $r" dns dns $r ""
    elif orv_have ping; then
        note "no DNS tool (dig, host, nslookup): DNS resolver $host is pinged instead of queried"
        add_target "DNS $host (ping)" dns icmp $host ""
    else
        note "no DNS tool and no ping: DNS resolver $host is probed by a TCP connection to port 53"
        add_target "DNS $host (TCP 53)" dns tcp $host 53
    fi
done
(( n_dns )) || note "no DNS resolvers to probe (ORVANTA_DNS_RESOLVERS is empty)"

typeset -gi NO_GATEWAY=0
typeset -g TUNNEL=""
if orv_default_gateway && [[ -n $REPLY ]] && orv_valid_host $REPLY; then
    gw=$REPLY
    if orv_have ping; then
        add_target "Gateway $gw" gateway icmp $gw ""
    else
        note "ping is missing: the default gateway $gw is not probed"
    fi
elif [[ -z $REPLY && -n $ORV_GW_IF ]] && orv_valid_host $ORV_GW_IF; then
    # A full-tunnel VPN: traffic leaves through the tunnel, which has no router address to ping. Its far end
    # and the local router beneath it are probed when known; the rest of the path is probed as usual.
    TUNNEL=$ORV_GW_IF
    note "the default route goes through $TUNNEL with no gateway address: a full-tunnel VPN or another point-to-point link, so there is no default gateway to probe"
    if orv_have ping; then
        [[ -n $ORV_GW_PEER ]] && orv_valid_host $ORV_GW_PEER && add_target "Tunnel peer $ORV_GW_PEER ($TUNNEL)" tunnel icmp $ORV_GW_PEER ""
        [[ -n $ORV_GW_LOCAL ]] && orv_valid_host $ORV_GW_LOCAL && add_target "Local router $ORV_GW_LOCAL (beside $TUNNEL)" gateway icmp $ORV_GW_LOCAL ""
    fi
else
    NO_GATEWAY=1
    note "no default gateway: this computer has no route to the internet right now"
fi

orv_split $ORV_FRONTEND 443
if orv_valid_host $ORV_HOST && [[ $ORV_PORT == <1-65535> ]]; then
    fe=$ORV_HOST
    if ! orv_is_ip $fe; then
        # Resolved once here, so that each probe measures the connection and not the name lookup.
        if orv_resolve $fe; then fe=$reply[1]; else note "front end $ORV_HOST does not resolve now; probes will look it up each time"; fi
    fi
    add_target "Front end $ORV_HOST" frontend tcp $fe $ORV_PORT
else
    note "front end '$ORV_FRONTEND' is not a valid host name and port: not probed"
fi

typeset -gi HAVE_RELAY=0
typeset -g RELAY_RECORDED=""
find_relay() {
    orv_relay_peers || return 1
    orv_split $reply[1] 3389
    orv_valid_host $ORV_HOST && [[ $ORV_PORT == <1-65535> ]] || { note "relay '$reply[1]' is not a valid address: not probed"; HAVE_RELAY=1; return 1 }
    add_target "Relay $ORV_HOST${${ORV_RELAY_GUESS:#0}:+ (a guess)}" relay tcp $ORV_HOST $ORV_PORT
    (( ORV_RELAY_GUESS )) && note "relay $ORV_HOST is $ORV_RELAY_SOURCE"
    orv_hostport $ORV_HOST $ORV_PORT; RELAY_RECORDED=$REPLY
    HAVE_RELAY=1
}
find_relay || orv_say "   INFO  no relay yet: $ORV_RELAY_SOURCE (checked again each minute)"

# One probe of target i: prints "ok MS" or "fail REASON".
probe() {
    local i=$1 rc
    case $T_KIND[i] in
    dns) orv_dns_query $T_HOST[i] $QNAME $PROBE_TIMEOUT ;;
    icmp) orv_ping $T_HOST[i] $PROBE_TIMEOUT ;;
    tcp) orv_tcp $T_HOST[i] $T_PORT[i] $PROBE_TIMEOUT ;;
    esac
    rc=$?
    if (( rc == 0 )) && [[ $REPLY == [0-9.]## ]]; then
        print -r -- "ok $REPLY"
    elif (( rc == 124 )) || [[ $REPLY == (#i)*(timed\ out|no\ servers|no\ answer)* ]]; then
        print -r -- "fail no answer within $(printf %g $PROBE_TIMEOUT)s"
    elif [[ $REPLY == (#i)*refused* ]]; then
        print -r -- "fail connection refused"
    else
        print -r -- "fail ${${REPLY:-no answer}//[$'\n\t']/ }"
    fi
}

# --- Figures, shared by the minute summaries and the report.
# fmt_ms VALUE [WHOLE]: REPLY is a latency for people, "-" for none; two decimals under 1 ms (loopback, a wired
# LAN), or "<1 ms" when WHOLE is 1 (a tool that times in whole milliseconds).
fmt_ms() {
    if [[ $1 == - ]]; then REPLY=-
    elif (( $1 < 1 && ${2:-0} )); then REPLY="<1 ms"
    elif (( $1 < 1 )); then printf -v REPLY '%.2f ms' $1
    else printf -v REPLY '%.1f ms' $1
    fi
}
# latency_stats VALUE... in the order measured: S_MIN, S_MEDIAN, S_P95, S_MAX and S_JITTER, "-" when there are
# none. The median is the middle answer (the mean of the two middle ones for an even count), the 95th
# percentile the nearest rank; the jitter is the mean absolute difference between consecutive answers, the
# inter-arrival jitter of real-time media without its smoothing. Values are recorded with three decimals, so
# that the numeric sort, which compares the digits after the point as a whole number, orders them right.
latency_stats() {
    S_MIN=- S_MEDIAN=- S_P95=- S_MAX=- S_JITTER=-
    (( $# )) || return 1
    local -a s=(${(on)@})
    local -i n=$# k=$(( (95 * $# + 99) / 100 ))
    local -F sum=0 prev=$1 v
    S_MIN=$s[1]; S_MAX=$s[-1]; S_P95=$s[k]
    if (( n % 2 )); then S_MEDIAN=$s[n/2+1]; else printf -v S_MEDIAN '%.3f' $(( (s[n/2] + s[n/2+1]) / 2.0 )); fi
    (( n > 1 )) || return 0
    for v; do (( sum += v > prev ? v - prev : prev - v, prev = v )); done
    printf -v S_JITTER '%.3f' $(( sum / (n - 1) ))
}

# --- The probing loop
typeset -F START=$EPOCHREALTIME
typeset -F END_AT=0
(( INDEFINITE )) || END_AT=$(( START + MINUTES * MINUTE ))
typeset -F NEXT_MINUTE=$(( START + MINUTE ))
typeset -i ROUND=0 MINUTE_NO=0
typeset -ga M_SENT M_VALS   # per target, this minute: probes sent and the answers in order
(( ${#T_LABEL} )) || note "nothing can be probed: every target is missing a tool or an address"
orv_step "Probing ${#T_LABEL} target(s); stop with Cancel (SIGTERM) or Ctrl-C at any time"

while (( ! STOP )); do
    typeset -F round_start=$EPOCHREALTIME
    (( END_AT > 0 && round_start >= END_AT )) && { STOP_REASON="the chosen duration ended"; break }
    (( ROUND++ ))
    for (( i = 1; i <= ${#T_LABEL}; i++ )); do
        probe $i > $WORK/r.$i 2>/dev/null &
    done
    wait
    (( STOP )) && { (( ROUND-- )); break }   # a round cut short is not counted
    typeset -i t_now=${round_start%.*}
    for (( i = 1; i <= ${#T_LABEL}; i++ )); do
        res=$(<$WORK/r.$i)
        [[ -n $res ]] || res="fail no result"
        (( M_SENT[i]++ ))
        if [[ $res == ok\ * ]]; then
            printf -v ms '%.3f' ${res#ok }
            print -r -- "$round_start $ms" >> $WORK/s.$i
            M_VALS[i]+=" $ms"
            if [[ $T_STATE[i] == down ]]; then
                fmt_ms $ms $T_WHOLE[i]
                orv_say "UP    $T_LABEL[i]: answering again ($REPLY) after $(( t_now - T_SINCE[i] )) s, $T_LOSTRUN[i] probe(s) lost"
            elif [[ $T_STATE[i] == new ]]; then
                fmt_ms $ms $T_WHOLE[i]
                orv_say "UP    $T_LABEL[i]: $REPLY"
            fi
            T_STATE[i]=up; T_LOSTRUN[i]=0
        else
            why=${res#fail }
            print -r -- "$round_start - $why" >> $WORK/s.$i
            (( T_LOSTRUN[i]++ ))
            if [[ $T_STATE[i] != down ]]; then
                orv_say "DOWN  $T_LABEL[i]: $why"
                T_STATE[i]=down; T_SINCE[i]=$t_now
            fi
        fi
    done
    if (( EPOCHREALTIME >= NEXT_MINUTE )); then
        (( MINUTE_NO++ ))
        line=""
        for (( i = 1; i <= ${#T_LABEL}; i++ )); do
            latency_stats ${=M_VALS[i]}
            fmt_ms $S_MEDIAN $T_WHOLE[i]; md=$REPLY; fmt_ms $S_JITTER $T_WHOLE[i]
            line+="${line:+ | }$T_LABEL[i] $(( ${#${=M_VALS[i]}} ))/${M_SENT[i]:-0} ok, median $md, jitter $REPLY"
            M_SENT[i]=0; M_VALS[i]=""
        done
        orv_say "minute $MINUTE_NO: ${line:-no targets}"
        NEXT_MINUTE=$(( NEXT_MINUTE + MINUTE ))
        (( HAVE_RELAY )) || find_relay
    fi
    typeset -F rest=$(( round_start + INTERVAL - EPOCHREALTIME ))
    if (( rest > 0 && ! STOP )); then
        # A hundredth more, as the sleep counts whole hundredths: a round never starts early.
        orv_sleep $(( rest + 0.01 )) &
        wait
    fi
done
[[ -n $STOP_REASON ]] || STOP_REASON="stopped"
orv_kill_jobs
typeset -F STOPPED_AT=$EPOCHREALTIME
orv_say "Probing ended ($STOP_REASON) after $ROUND round(s)"
# --- Analysis
orv_step "Analysing ${ROUND} round(s)"
typeset -ga OUTAGES   # "start end target lost", times as epoch seconds with fractions
fmt_clock() { strftime %H:%M:%S ${1%.*} }
fmt_dur() { local s=$(( int($1 + 0.5) )); if (( s >= 3600 )); then print -rn -- "$((s/3600)) h $((s%3600/60)) min"; elif (( s >= 60 )); then print -rn -- "$((s/60)) min $((s%60)) s"; else print -rn -- "$s s"; fi }
orv_section "Targets"
# The figures keep their unit beside them in a narrow window; the names and probes wrap instead.
ORV_HEAD_EXTRA+=("<style>main>table:first-of-type :is(td,th){padding:5px 6px}main>table:first-of-type td:nth-child(n+4){white-space:nowrap}</style>")
orv_table "" "Target" "Probe" "Sent" "Lost" "Loss" "Min" "Median" "95th" "Max" "Jitter"
typeset -gi ANY_LOSS=0
for (( i = 1; i <= ${#T_LABEL}; i++ )); do
    local_lines=(${(f)"$(<$WORK/s.$i)"})
    lats=() ; typeset -i sent=0 lost=0
    typeset -F o_start=0 o_last=0 t
    typeset -i o_lost=0
    for l in $local_lines; do
        t=${l%% *}; v=${${l#* }%% *}
        (( sent++ ))
        if [[ $v == - ]]; then
            (( lost++ ))
            (( o_lost == 0 )) && o_start=$t
            (( o_lost++ )); o_last=$t
        else
            lats+=($v)
            if (( o_lost )); then OUTAGES+=("$o_start $t $i $o_lost"); o_lost=0; fi
        fi
    done
    (( o_lost )) && OUTAGES+=("$o_start $(( o_last + INTERVAL )) $i $o_lost")
    latency_stats $lats
    T_P95[i]=$S_P95; T_JITTER[i]=$S_JITTER
    (( ${#lats} < 8 )) && T_JITTER[i]=-   # too few answers to judge: one stalled probe would decide it
    w=$T_WHOLE[i]
    fmt_ms $S_MIN $w; mn=$REPLY; fmt_ms $S_MEDIAN $w; md=$REPLY; fmt_ms $S_P95 $w; p95=$REPLY; fmt_ms $S_MAX $w; mx=$REPLY
    fmt_ms $S_JITTER $w; jit=$REPLY
    loss="-"; (( sent )) && printf -v loss '%.1f%%' $(( 100.0 * lost / sent ))
    # A target that had an outage (two or more probes lost in a row) fails here as it does in the outages table.
    st=OK; (( lost )) && { st=WARN; ANY_LOSS=1 }; (( sent && lost == sent )) && st=FAIL; (( sent )) || st=SKIP
    for o in $OUTAGES; do parts=(${=o}); (( parts[3] == i && parts[4] >= 2 )) && st=FAIL; done
    orv_row $st "$T_LABEL[i]" "${T_KIND[i]/icmp/ping} ${T_HOST[i]}${T_PORT[i]:+:$T_PORT[i]}" $sent $lost $loss $mn $md $p95 $mx $jit
    orv_say "   ${(r:4:)st}  $T_LABEL[i]: $sent sent, $lost lost ($loss), median $md, 95th $p95, jitter $jit"
done
(( ${#T_LABEL} )) || orv_row SKIP "no targets" "" "" "" "" "" "" "" "" ""
orv_table_end
orv_para note "Median and 95th percentile of the answers; jitter: the mean difference between consecutive answers, as real-time media measures it (a remote-desktop session stutters when it is high). Each time is the tool's own, not counting its start: DNS, dig's query time in whole milliseconds (<1 ms where dig says 0 msec; host and nslookup, where dig is missing, are timed with their start); gateway, ping's round trip; front end and relay, the TCP connect alone."
for n in $NOTES; do orv_para note "Note: $n"; done

# Outages: a run of consecutive lost probes of one target; runs of a single probe count as loss, not outage.
typeset -ga CLUSTERS   # "start end targets(comma ids)"
typeset -a big=()
for o in $OUTAGES; do
    parts=(${=o}); (( parts[4] >= 2 )) && big+=($o)
done
big=(${(on)big})
typeset -F c_start=0 c_end=0
c_ids=""
for o in $big; do
    parts=(${=o})
    if [[ -n $c_ids ]] && (( parts[1] <= c_end + 1.5 * INTERVAL )); then
        (( parts[2] > c_end )) && c_end=$parts[2]
        [[ ,$c_ids, == *,$parts[3],* ]] || c_ids+=",$parts[3]"
    else
        [[ -n $c_ids ]] && CLUSTERS+=("$c_start $c_end $c_ids")
        c_start=$parts[1]; c_end=$parts[2]; c_ids=$parts[3]
    fi
done
[[ -n $c_ids ]] && CLUSTERS+=("$c_start $c_end $c_ids")

# Which side of the path failed, from the roles that were down together.
side_of() { # side_of IDS(comma separated): REPLY is the side
    local -a ids=(${(s:,:)1}) roles_down
    local i
    for i in $ids; do roles_down+=($T_ROLE[i]); done
    roles_down=(${(u)roles_down})
    has() { (( ${roles_down[(Ie)$1]} )) }
    probed() { (( ${T_ROLE[(Ie)$1]} )) }
    local unreachable=0
    for i in $ids; do [[ $T_ROLE[i] == gateway ]] && grep -qiE 'unreachable|no route|sendto' $WORK/s.$i && unreachable=1; done
    local -a service=()
    has frontend && service+=("front end")
    has relay && service+=(relay)
    if has gateway && (( unreachable )); then REPLY="this computer's network (no link or no route: Wi-Fi or Ethernet)"
    elif has tunnel && { has dns || has frontend || { ! probed dns && ! probed frontend } }; then REPLY="the VPN tunnel ($TUNNEL) or the VPN server"
    elif has tunnel && (( ${#roles_down} == 1 )); then REPLY="the far end of the VPN tunnel stopped answering pings while traffic still passed"
    elif has gateway && { ! probed dns || has dns } && { ! probed frontend || has frontend }; then REPLY="the local gateway (router or Wi-Fi access point) or the link to it"
    elif has gateway; then REPLY="the gateway stopped answering pings while traffic still passed (routers often drop pings when busy)"
    elif has dns && { has frontend || ! probed frontend } && [[ -n $TUNNEL ]]; then REPLY="the network beyond the VPN tunnel ($TUNNEL): the VPN server's side or your provider"
    elif has dns && { has frontend || ! probed frontend }; then REPLY="the internet beyond the local gateway (your provider)"
    elif (( ${#service} )); then REPLY="the Orvanta service (${(j: and :)service})"
    elif has dns; then REPLY="public DNS resolvers only (they may be filtered on this network)"
    else REPLY="undetermined"
    fi
}
# why_down ID START END: REPLY is why target ID was down from START to END, the reason most of its lost probes
# then gave.
why_down() {
    local -A n
    local l best=""
    for l in ${(M)${(f)"$(<$WORK/s.$1)"}:#* - *}; do
        (( ${l%% *} >= $2 && ${l%% *} <= $3 )) && n[${l#* - }]=$(( ${n[${l#* - }]:-0} + 1 ))
    done
    for l in ${(k)n}; do (( $n[$l] > ${n[$best]:-0} )) && best=$l; done
    REPLY=${best:-no answer}
}
orv_section "Outages"
typeset -gA SIDE_TIME
typeset -ga SIDE_ORDER   # sides in the order of their first outage, so that equal downtimes go to the earlier
if (( ${#CLUSTERS} )); then
    orv_table "" "From" "To" "Duration" "Targets down, and why" "Likely failed side"
    for c in $CLUSTERS; do
        parts=(${=c}); ids=(${(s:,:)parts[3]})
        labels=(); for i in $ids; do why_down $i $parts[1] $parts[2]; labels+=("$T_LABEL[i]: $REPLY"); done
        side_of $parts[3]
        (( ${SIDE_ORDER[(Ie)$REPLY]} )) || SIDE_ORDER+=("$REPLY")
        SIDE_TIME[$REPLY]=$(( ${SIDE_TIME[$REPLY]:-0} + parts[2] - parts[1] ))
        orv_row FAIL "$(fmt_clock $parts[1])" "$(fmt_clock $parts[2])" "$(fmt_dur $(( parts[2] - parts[1] )))" "${(j:; :)labels}" "$REPLY"
    done
    orv_table_end
else
    orv_para "" "No outages: no target lost two or more probes in a row."
fi


# --- Timeline: one lane per target, on the lane's own scale. The answers are gathered per interval, at most 240
# intervals across the run (two minutes each over eight hours), so that a long run stays as readable as a short
# one: a band from the lowest to the highest answer of each interval, the interval's median as a line, lost
# probes as ticks at the foot of the lane (taller for a larger share), and outages as solid bands. Answers above
# the lane's top are cut there and marked, so that a spike never hides.
typeset -F span=$(( STOPPED_AT - START )); (( span < INTERVAL )) && span=$INTERVAL
# Intervals are never shorter than the probe rhythm, so that each holds at least one round.
integer NB=$(( int(ceil(span / INTERVAL)) )); (( NB > 240 )) && NB=240; (( NB < 1 )) && NB=1
typeset -F BW=$(( span / NB ))
# The chart takes the report's width: text is placed in pixels and percentages, never scaled, and each lane's
# drawing is a picture of its own (PW units wide) stretched across the plot, which ends at PLOT % of the width;
# the scale stands in the margin right of it.
integer PW=1000 LH=48 GAP=24 TOP=20 PLOT=92
integer H=$(( TOP + ${#T_LABEL} * (LH + GAP) + 4 ))
typeset -i b run_n ncut
typeset -F x run_t=-1 t scale top cutmax
typeset -a bv bl bs   # per interval of the lane being drawn: answers, lost probes, probes sent
typeset -a l_band l_line l_tick l_out l_cut dn cut_text
svg=("<svg class=\"chart\" xmlns=\"http://www.w3.org/2000/svg\" width=\"100%\" height=\"$H\" font-family=\"Helvetica,Arial,sans-serif\" font-size=\"11\">")
for f in 0 0.25 0.5 0.75 1; do
    printf -v x '%.2f' $(( f * PLOT ))
    svg+=("<line x1=\"$x%\" y1=\"$TOP\" x2=\"$x%\" y2=\"$(( H - 4 ))\" stroke=\"#e3e7ee\"/>")
    anchor=middle; (( f == 0 )) && anchor=start; (( f == 1 )) && anchor=end
    svg+=("<text x=\"$x%\" y=\"12\" text-anchor=\"$anchor\" fill=\"#667085\">$(fmt_clock $(( START + f * span )))</text>")
done
# nice_top MS: REPLY is the least round value (1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 6 or 8 times a power of ten) at or
# above MS, so that the lane's top and its middle read as plain numbers.
nice_top() {
    local -F p=$(( 10.0 ** floor(log10($1)) )) m
    for m in 1 1.2 1.5 2 2.5 3 4 5 6 8 10; do (( m * p >= $1 * 0.9999 )) && break; done
    printf -v REPLY '%g' $(( m * p ))
}
# scale_text MS: REPLY is a value of the scale as written beside it ("7.5 ms", "0").
scale_text() { if (( $1 > 0 )); then printf -v REPLY '%g ms' $1; else REPLY=0; fi }
# x_of TIME: REPLY is the x coordinate of an instant in the lane's picture, kept inside it.
x_of() { local -F v=$(( ($1 - START) / span * PW )); (( v > PW )) && v=$PW; (( v < 0 )) && v=0; printf -v REPLY '%.1f' $v }
# y_of MS: REPLY is the y coordinate of a latency in the lane's picture; values beyond the scale stay at its top.
y_of() { local -F v=$1; (( v > scale )) && v=$scale; printf -v REPLY '%.1f' $(( LH - 2 - v / scale * (LH - 4) )) }
# Ends the band and the median line where an interval had no answer.
flush_lane() {
    [[ -n $up ]] && l_band+=("<polygon class=\"band\" points=\"$up${(j: :)dn}\" fill=\"#1f5fbf\" fill-opacity=\".22\"/>")
    if (( ${#${=pts}} > 1 )); then
        l_line+=("<polyline class=\"median\" points=\"$pts\" fill=\"none\" stroke=\"#1f5fbf\" stroke-width=\"1.5\" vector-effect=\"non-scaling-stroke\"/>")
    elif [[ -n $pts ]]; then
        l_line+=("<rect class=\"median\" x=\"$(( ${pts%%,*} - 1 ))\" y=\"$(( ${${pts#*,}%% *} - 1 ))\" width=\"2\" height=\"2\" fill=\"#1f5fbf\"/>")
    fi
    up=""; dn=(); pts=""
}
for (( i = 1; i <= ${#T_LABEL}; i++ )); do
    y0=$(( TOP + 18 + (i - 1) * (LH + GAP) ))
    label=$T_LABEL[i]; (( ${#label} > 60 )) && label="${label[1,59]}…"
    orv_esc "$label"
    svg+=("<text x=\"0\" y=\"$(( y0 - 5 ))\" fill=\"#1d2433\">$REPLY</text>")
    svg+=("<rect x=\"0\" y=\"$y0\" width=\"$PLOT%\" height=\"$LH\" fill=\"#f7f9fc\" stroke=\"#e3e7ee\"/>")
    svg+=("<line x1=\"0\" y1=\"$(( y0 + LH / 2 ))\" x2=\"$PLOT%\" y2=\"$(( y0 + LH / 2 ))\" stroke=\"#d0d5dd\" stroke-dasharray=\"3 3\"/>")
    # A tool that times in whole milliseconds has no finer scale than one.
    top=${${T_P95[i]:--}/-/1}
    (( top = top * 1.25, top < (T_WHOLE[i] ? 1 : 0.1) ? (top = T_WHOLE[i] ? 1 : 0.1) : 0 ))
    nice_top $top; scale=$REPLY
    # The scale: the lane's top, its middle (the dashed line) and its foot.
    for f in 1 0.5 0; do
        scale_text $(( f * scale ))
        svg+=("<text class=\"scale\" x=\"100%\" y=\"$(( y0 + 4 + int((1 - f) * (LH - 8)) + (f == 1 ? 4 : 0) ))\" text-anchor=\"end\" fill=\"#667085\">$REPLY</text>")
    done
    # One pass in time order. A run of two or more lost probes is an outage: one band from its first probe to
    # the next probe that answered (or one interval past its last), however long the probes took.
    bv=(); bl=(); bs=(); l_band=(); l_line=(); l_tick=(); l_out=(); l_cut=()
    run_t=-1; run_n=0; t=$START; ncut=0; cutmax=0; cut_at=0
    for l in ${(f)"$(<$WORK/s.$i)"} "end"; do
        if [[ $l == end ]]; then t=$(( t + INTERVAL )); v=end; else t=${l%% *}; v=${${l#* }%% *}; fi
        (( b = int((t - START) / BW) + 1, b > NB ? (b = NB) : 0, b < 1 ? (b = 1) : 0 ))   # its interval
        if [[ $v == - ]]; then
            (( run_t < 0 )) && run_t=$t
            (( run_n++, bs[b]++, bl[b]++ ))
            continue
        fi
        if (( run_n >= 2 )); then
            x_of $run_t; bx=$REPLY; x_of $t
            printf -v REPLY '%.1f' $(( REPLY - bx > 1 ? REPLY - bx : 1 ))
            l_out+=("<rect class=\"outage\" x=\"$bx\" y=\"0\" width=\"$REPLY\" height=\"$LH\" fill=\"#c62828\"/>")
        fi
        run_t=-1; run_n=0
        [[ $v == end ]] && break
        (( bs[b]++ )); bv[b]+=" $v"
        (( v > scale )) && { (( ncut++ )); (( v > cutmax )) && { cutmax=$v; cut_at=$b } }
    done
    up=""; dn=(); pts=""
    for (( b = 1; b <= NB; b++ )); do
        (( ${bs[$b]:-0} )) || continue
        printf -v xl '%.1f' $(( (b - 1.0) * PW / NB ))
        printf -v xr '%.1f' $(( b * 1.0 * PW / NB ))
        if [[ -n ${bv[$b]} ]]; then
            latency_stats ${=bv[$b]}
            y_of $S_MAX; yt=$REPLY; y_of $S_MIN; yb=$REPLY
            # A band at least a pixel high, so that a steady interval still shows.
            (( yb - yt < 1 )) && { printf -v yt '%.1f' $(( yt - 0.5 )); printf -v yb '%.1f' $(( yb + 0.5 )) }
            up+="$xl,$yt $xr,$yt "; dn=("$xr,$yb $xl,$yb" $dn)
            y_of $S_MEDIAN; printf -v REPLY '%.1f,%s ' $(( (xl + xr) / 2 )) $REPLY; pts+=$REPLY
            # Cut at the top: a dark tick over the interval.
            (( S_MAX > scale )) && l_cut+=("<rect class=\"cut\" x=\"$xl\" y=\"0\" width=\"$(( xr - xl ))\" height=\"4\" fill=\"#1d2433\"/>")
        else
            flush_lane
        fi
        if (( ${bl[$b]:-0} )); then
            typeset -F th=$(( 2 + bl[$b] * 1.0 / bs[$b] * (LH / 2 - 2) ))   # at most half the lane: unlike an outage
            printf -v REPLY 'x="%s" y="%.1f" width="%.1f" height="%.1f"' $xl $(( LH - th )) $(( xr - xl )) $th
            l_tick+=("<rect class=\"loss\" $REPLY fill=\"#e8833a\"/>")
        fi
    done
    flush_lane
    svg+=("<svg x=\"0\" y=\"$y0\" width=\"$PLOT%\" height=\"$LH\" viewBox=\"0 0 $PW $LH\" preserveAspectRatio=\"none\">" $l_band $l_line $l_tick $l_out $l_cut "</svg>")
    if (( ncut )); then
        # The highest answer cut, written at its interval, inside the plot whatever the interval.
        typeset -F cx=$(( (cut_at - 0.5) * PLOT / NB ))
        anchor=middle; (( cx < 8 )) && anchor=start; (( cx > PLOT - 8 )) && anchor=end
        fmt_ms $cutmax $T_WHOLE[i]
        svg+=("<text class=\"cut\" x=\"$(printf '%.2f' $cx)%\" y=\"$(( y0 + 15 ))\" text-anchor=\"$anchor\" fill=\"#1d2433\" stroke=\"#fff\" stroke-width=\"3\" paint-order=\"stroke\">▲ $REPLY</text>")
        cut_text+=("$T_LABEL[i] ($ncut answer(s) above $(scale_text $scale; print -rn -- $REPLY), the highest $REPLY)")
    fi
done
svg+=("</svg>")
orv_section "Timeline"
if (( BW >= 60 )); then interval_text=$(fmt_dur $BW); else printf -v interval_text '%.3g s' $BW; fi
cut_note="No answer lies above its lane's top."
(( ${#cut_text} )) && cut_note="Answers above a lane's top are cut there: a dark tick at the top marks each interval with one, and ▲ gives the highest. Cut: ${(j:; :)cut_text}."
orv_para note "Each lane has its own scale, from 0 at its foot to the value at its right, the dashed line at half of it; intervals of $interval_text. Light blue: lowest to highest answer in each interval; blue line: the interval's median; orange ticks: lost probes, taller for a larger share; red: outages (two or more probes lost in a row). $cut_note"
orv_raw ${(j::)svg}

# --- Verdict, what to do next, and the report
# Jitter beyond 30 ms makes a remote-desktop session stutter even without loss. The resolvers are left out: they
# are not on the session's path, and a query's time includes starting the tool. Only targets with eight answers or
# more are judged (16 s at the usual rhythm). The first target beyond the limit on the path, from the gateway
# outwards, tells where the unsteadiness begins.
typeset -F JITTER_LIMIT=30
unsteady=""
for role in gateway tunnel frontend relay; do
    for (( i = 1; i <= ${#T_LABEL}; i++ )); do
        [[ -z $unsteady && $T_ROLE[i] == $role && $T_JITTER[i] != - ]] && (( T_JITTER[i] > JITTER_LIMIT )) && unsteady=$i
    done
done
if (( ${#CLUSTERS} )); then
    worst=""; typeset -F worst_t=-1
    for s in $SIDE_ORDER; do (( ${SIDE_TIME[$s]} > worst_t )) && { worst=$s; worst_t=$SIDE_TIME[$s] }; done
    vclass=fail; vtitle="${#CLUSTERS} outage(s) seen; most downtime points at $worst"
    case $worst in
    "this computer's network"*) cause=local next="Check this Mac's Wi-Fi or Ethernet connection (signal, cable, or another network) and run the monitor again. If the link looks fine, send this report to whoever looks after your local network." ;;
    *"stopped answering pings while traffic still passed"*) cause=none next="Your connection kept working: a device on the way only ignored pings for a while. Nothing needs doing unless sessions dropped at those times; then send this report to Orvanta support." ;;
    "the VPN tunnel"*|"the network beyond the VPN tunnel"*) cause=local next="Reconnect the VPN and run the monitor again. If the outages come back, send this report to whoever runs your VPN." ;;
    "the local gateway"*) cause=local next="Restart your router or Wi-Fi access point, or move closer to it, and run the monitor again. If the outages come back, send this report to whoever looks after your local network." ;;
    "the internet beyond"*) cause=provider next="Your internet connection dropped beyond your router: tell your internet provider the times listed above, and send this report to Orvanta support if sessions were affected." ;;
    "the Orvanta service"*) cause=service next="Your network answered while the Orvanta service did not: send this report to Orvanta support, with the times of the outages." ;;
    "public DNS resolvers only"*) cause=dns next="Only the public DNS servers stopped answering, which some networks block. Nothing needs doing unless the client cannot connect; then send this report to your network administrator." ;;
    *) cause=service next="Send this report to Orvanta support: the outages could not be placed on one side of the path." ;;
    esac
elif (( NO_GATEWAY )); then
    vclass=fail; vtitle="No default gateway: this computer was not connected to a network"
    cause=local next="Connect this Mac to a network (Wi-Fi or Ethernet) and run the monitor again."
elif (( ${#T_LABEL} == 0 )); then
    vclass=warn; vtitle="Nothing could be probed"
    cause=none next="Send this report to Orvanta support: the notes above say why nothing could be probed on this Mac."
elif (( ! ${T_ROLE[(Ie)frontend]} )); then
    # Quiet targets say nothing about the service when the service itself was never probed.
    vclass=warn; vtitle="No outages among the targets probed, but the Orvanta front end could not be probed"
    cause=service next="Send this report to Orvanta support: the notes above say why the front end could not be probed."
elif [[ -n $unsteady ]]; then
    fmt_ms $T_JITTER[unsteady]
    vclass=warn; vtitle="No outages, but the connection was unsteady: a jitter of $REPLY at $T_LABEL[unsteady]"
    if [[ $T_ROLE[unsteady] == (gateway|tunnel) ]]; then
        cause=local next="Sessions may stutter on this network: use a cable or move closer to the Wi-Fi access point, pause large downloads and video calls, and run the monitor again."
    else
        cause=provider next="Sessions may stutter: the delay to the Orvanta service varied widely beyond your router. If it goes on, send this report to Orvanta support and tell your internet provider."
    fi
elif (( ANY_LOSS )); then
    vclass=warn; vtitle="No outages; a few single probes were lost"
    cause=none next="Nothing needs doing: a few lost probes are normal. If sessions stutter or drop, run the monitor while it happens and send that report to Orvanta support."
else
    vclass=ok; vtitle="No outages: every target answered every probe"
    cause=none next="Your network and the Orvanta service answered throughout. If sessions still fail, run Connector Reachability and send both reports to Orvanta support."
fi
vlines=("Monitored from $(fmt_clock $START) to $(fmt_clock $STOPPED_AT) ($(fmt_dur $(( STOPPED_AT - START ))), $ROUND rounds every $(printf %g $INTERVAL)s); $STOP_REASON.")
[[ -n $TUNNEL ]] && vlines+=("Traffic left through the VPN tunnel $TUNNEL (a default route with no gateway address).")
if [[ -n $unsteady && $vtitle != *unsteady* ]]; then
    fmt_ms $T_JITTER[unsteady]
    vlines+=("WARN"$'\t'"Unsteady: a jitter of $REPLY at $T_LABEL[unsteady] (sessions stutter beyond 30 ms).")
fi
for c in $CLUSTERS; do
    parts=(${=c}); side_of $parts[3]
    vlines+=("$(fmt_clock $parts[1])–$(fmt_clock $parts[2]) ($(fmt_dur $(( parts[2] - parts[1] )))): $REPLY")
done
# The report's closing words, with this verdict's own sentence.
orv_next_steps $cause "$next"
[[ -n $RELAY_RECORDED ]] && ORV_HEAD_EXTRA+=("<meta name=\"orvanta-relay\" content=\"$(orv_esc $RELAY_RECORDED; print -rn -- $REPLY)\" />")
orv_step "Writing the report"
orv_write_report OrvantaNetMonitor_ "Network Monitor" $vclass "$vtitle" $vlines || exit 1
orv_say "   Done: $vtitle"
orv_finish $REPLY $(( ${#CLUSTERS} || NO_GATEWAY ? 1 : 0 ))
