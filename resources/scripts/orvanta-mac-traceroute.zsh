#!/bin/zsh
# Trace Route: hop-by-hop traces to the Orvanta front end, the latest known relay and the default gateway, each
# hop printed as it arrives. The HTML report shows each path as a table and a per-hop latency chart, and marks
# the hop where latency jumps or where replies stop.
emulate -R zsh
source ${0:A:h}/orvanta-common.zsh 2>/dev/null || {
    print -r -- "Cannot read orvanta-common.zsh beside this script (${0:A:h}): reinstall the toolkit."
    exit 1
}

usage() { print -r -- "usage: ${ZSH_ARGZERO:t} [--help]"; }
if (( $# )); then
    if [[ $1 == (-h|--help) && $# == 1 ]]; then usage; exit 0; fi
    print -r -- "Unknown argument: $1"; usage; exit 2
fi

typeset -i MAX_HOPS=${ORVANTA_TRACE_MAX_HOPS:-30}
typeset -i HOP_WAIT=${ORVANTA_TRACE_WAIT:-2}
typeset -i TRACE_LIMIT=${ORVANTA_TRACE_TIMEOUT:-120}
typeset -i SILENT_STOP=5      # consecutive silent hops after which a trace is ended
(( MAX_HOPS >= 1 && MAX_HOPS <= 64 && HOP_WAIT >= 1 && TRACE_LIMIT >= 1 )) || { print -r -- "ORVANTA_TRACE_MAX_HOPS, ORVANTA_TRACE_WAIT or ORVANTA_TRACE_TIMEOUT is out of range"; exit 2 }

# A stopped trace ends its traceroute and whatever that started, so nothing outlives the script.
TRAPEXIT() { orv_in_subshell || { orv_kill_jobs; orv_end_children } }
TRAPINT() { orv_subshell_stop 130; orv_end_children; orv_say "Stopped (interrupt): no report written."; exit 130 }
TRAPTERM() { orv_subshell_stop 143; orv_end_children; orv_say "Stopped: no report written."; exit 143 }

orv_say "Orvanta Trace Route $ORV_SCRIPT_VERSION on ${ORV_OS}: up to $MAX_HOPS hops, ${HOP_WAIT}s per probe"
typeset -g TOOL=""
if (( $+commands[traceroute] )); then TOOL=traceroute
elif (( $+commands[tracepath] )); then TOOL=tracepath; orv_say "   NOTE  traceroute is missing: using tracepath (one probe per hop)"
else orv_say "   NOTE  neither traceroute nor tracepath was found on PATH ($PATH): no path can be traced"
fi

# --- Targets
typeset -a TARGETS LABELS
orv_split $ORV_FRONTEND 443
TARGETS+=($ORV_HOST); LABELS+=("Front end")
typeset -g RELAY_NOTE=""
if orv_relay_peers; then
    orv_split $reply[1] 3389; TARGETS+=($ORV_HOST); RELAY_NOTE=$ORV_RELAY_SOURCE
    if (( ORV_RELAY_GUESS )); then LABELS+=("Relay (a guess)"); else LABELS+=("Relay"); fi
elif orv_last_recorded_relay; then
    orv_split $REPLY 3389; TARGETS+=($ORV_HOST); LABELS+=("Relay (last known)"); RELAY_NOTE=$ORV_RELAY_SOURCE
else
    RELAY_NOTE="no relay known: $ORV_RELAY_SOURCE, and no earlier report recorded one"
    orv_result SKIP "Relay: $RELAY_NOTE"
fi
if orv_default_gateway && [[ -n $REPLY ]]; then
    TARGETS+=($REPLY); LABELS+=("Default gateway")
elif [[ -n $ORV_GW_IF ]]; then
    # A full-tunnel VPN: the default route is the tunnel itself. Its far end and the local router beneath it
    # can still be traced when they are known.
    orv_result INFO "Default gateway: none; the default route goes through $ORV_GW_IF with no gateway address (a full-tunnel VPN or another point-to-point link)"
    [[ -n $ORV_GW_PEER ]] && { TARGETS+=($ORV_GW_PEER); LABELS+=("Tunnel peer ($ORV_GW_IF)") }
    [[ -n $ORV_GW_LOCAL ]] && { TARGETS+=($ORV_GW_LOCAL); LABELS+=("Local router (beside $ORV_GW_IF)") }
else
    orv_result FAIL "Default gateway: none (this computer has no route to a network)"
fi

# parse_hop LINE: sets HOP (number), HNAME, HIP, HRTTS (array), HFLAGS and HREACHED from one line of
# traceroute (BSD or Linux) or tracepath; status 1 for lines that are not hops.
parse_hop() {
    local tok i
    local -a toks=(${=1})
    HOP=""; HNAME=""; HIP=""; HRTTS=(); HFLAGS=""; HREACHED=0
    [[ $toks[1] == (#b)([0-9]##)(\?|):# ]] || return 1
    [[ $1 == *LOCALHOST* ]] && return 1   # tracepath's own first line
    HOP=$match[1]
    for (( i = 2; i <= ${#toks}; i++ )); do
        tok=$toks[i]
        if [[ $tok == \* ]]; then :
        elif [[ $tok == no && $toks[i+1] == reply ]]; then (( i++ ))
        elif [[ $tok == (#b)([0-9.]##)ms ]]; then HRTTS+=($match[1])
        elif [[ $tok == [0-9.]## && $toks[i+1] == ms ]]; then HRTTS+=($tok); (( i++ ))
        elif [[ $tok == \((#b)([^\)]##)\) ]]; then [[ -z $HIP ]] && HIP=$match[1]
        elif [[ $tok == \!* ]]; then HFLAGS+="$tok "
        elif [[ $tok == reached ]]; then HREACHED=1
        elif [[ $tok == (pmtu|asymm|back) ]]; then (( i++ ))
        elif [[ -z $HNAME ]]; then HNAME=$tok
        fi
    done
    [[ -z $HIP && $HNAME == [0-9a-fA-F:.]## ]] && HIP=$HNAME
    [[ -z $HNAME ]] && HNAME=$HIP
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

median() { local -a v=(${(on)@}); (( $# )) || { REPLY=""; return }; REPLY=$v[$(( (${#v} + 1) / 2 ))] }

# trace_one LABEL HOST: runs one trace and adds its table and chart to the report.
typeset -i N_TRACED=0
trace_one() {
    local label=$1 host=$2
    orv_section "$label: $host"
    if ! orv_valid_host $host; then
        orv_result FAIL "$label: '$host' is not a valid host name"
        orv_para "" "Not traced: not a valid host name."; return
    fi
    if [[ -z $TOOL ]]; then
        orv_result WARN "$label $host: not traced (no traceroute or tracepath)"
        orv_para "" "Not traced: neither traceroute nor tracepath is installed."; return
    fi
    local dest=$host
    if ! orv_is_ip $host; then
        if orv_resolve $host; then dest=$reply[1]; else
            orv_result FAIL "$label $host: the name does not resolve"
            orv_para "" "Not traced: the name does not resolve with the system resolver."; return
        fi
    fi
    local -a cmd
    if [[ $TOOL == traceroute ]]; then
        cmd=(traceroute -q 2 -w $HOP_WAIT -m $MAX_HOPS)
        if orv_is_ipv6 $dest; then
            if [[ $ORV_OS == Darwin ]]; then cmd[1]=traceroute6; else cmd+=(-6); fi
        fi
    else
        cmd=(tracepath -b -m $MAX_HOPS)
    fi
    cmd+=($dest)
    orv_step "$label: tracing $host${${dest:#$host}:+ ($dest)} with $cmd[1]"
    local -a nos names ips rtts notes unreach
    local line silent=0 reached=0 t0=$EPOCHREALTIME pid ended="finished" rt who flag why failed_at=0
    # exec: the job is the tool itself, not a subshell that would wait for it before honouring a stop.
    coproc { exec $cmd 2>&1 }
    pid=$!
    while true; do
        if ! read -r -t 1 -p line; then
            kill -0 $pid 2>/dev/null || break
            if (( EPOCHREALTIME - t0 > TRACE_LIMIT )); then ended="stopped after ${TRACE_LIMIT}s"; break; fi
            continue
        fi
        parse_hop "$line" || { [[ $line == *(unknown|not known|Cannot|cannot|Invalid|invalid|failure)* ]] && notes+=("$line"); continue }
        rt="${(j: ms, :)HRTTS}${HRTTS:+ ms}"
        why=""
        for flag in ${(u)=HFLAGS}; do unreachable_text $flag && { why="$REPLY ($flag)"; break }; done
        if (( ${#nos} )) && [[ $nos[-1] == $HOP ]]; then      # tracepath may print a hop twice
            [[ -z $ips[-1] && -n $HIP ]] && { ips[-1]=$HIP; names[-1]=$HNAME }
            [[ -n $HRTTS ]] && rtts[-1]="${rtts[-1]:+$rtts[-1] }$HRTTS"
            [[ -n $why ]] && unreach[-1]=$why
        else
            nos+=($HOP); names+=("$HNAME"); ips+=("$HIP"); rtts+=("$HRTTS"); unreach+=("$why")
        fi
        if [[ -n $HIP ]]; then
            silent=0
            who=$HIP; [[ $HNAME != $HIP ]] && who="$HNAME ($HIP)"
            orv_say "   hop ${(l:2:)HOP}  $who  ${rt:-no time}${why:+  $why}"
        else
            (( silent++ ))
            orv_say "   hop ${(l:2:)HOP}  no reply"
        fi
        # An unreachable answer ends the path here, whoever sent it.
        if [[ -n $why ]]; then failed_at=${#nos}; ended="stopped at hop $HOP: $why"; break; fi
        [[ $HIP == $dest ]] || (( HREACHED )) && { reached=1 }
        (( reached )) && break
        if (( silent >= SILENT_STOP )); then ended="ended after $SILENT_STOP silent hops"; break; fi
        if (( EPOCHREALTIME - t0 > TRACE_LIMIT )); then ended="stopped after ${TRACE_LIMIT}s"; break; fi
    done
    orv_end_tree $pid
    (( N_TRACED++ ))

    # Analysis: per-hop median, the last hop that replied, and the largest latency jump that holds: a step up
    # of 30 ms or more (and at least half the latency before it) after which no later hop falls back below the
    # middle of the step. A router that is slow to answer probes but forwards traffic quickly shows a step up
    # and then lower hops again; that is not a jump. A step at the last hop that replied counts only when that
    # hop is the destination.
    local -a med
    local i j last_reply=0 jump_at=0 jump=0 prev_v="" step holds
    for (( i = 1; i <= ${#nos}; i++ )); do
        median ${=rtts[i]}; med[i]=$REPLY
        [[ -n $ips[i] ]] && last_reply=$i
    done
    for (( i = 1; i <= ${#nos}; i++ )); do
        [[ -n $med[i] ]] || continue
        if [[ -n $prev_v ]] && (( (step = med[i] - prev_v) > jump && step >= 30 && step >= 0.5 * prev_v )); then
            holds=0
            (( reached && i == ${#nos} )) && holds=1
            for (( j = i + 1; j <= ${#nos}; j++ )); do
                [[ -n $med[j] ]] || continue
                if (( med[j] < prev_v + step / 2 )); then holds=0; break; fi
                holds=1
            done
            (( holds )) && { jump=$step; jump_at=$i }
        fi
        prev_v=$med[i]
    done
    local stop_at=0
    (( ! reached && ! failed_at && last_reply > 0 )) && stop_at=$last_reply

    if (( failed_at )); then
        who=${ips[failed_at]}; [[ -n $names[failed_at] && $names[failed_at] != $who ]] && who="$names[failed_at], $who"
        orv_result FAIL "$label $host: hop $nos[failed_at]${who:+ ($who)} answered: $unreach[failed_at]"
    elif (( reached )); then
        orv_result OK "$label $host reached in ${#nos} hop(s)${med[-1]:+, $med[-1] ms}"
    elif (( ${#nos} == 0 )); then
        orv_result FAIL "$label $host: the trace produced no hops ($ended)${notes:+: $notes[1]}"
    elif [[ $label == "Default gateway" ]]; then
        orv_result FAIL "$label $host did not answer ($ended)"
    else
        orv_result WARN "$label $host did not answer trace probes (many servers filter them); replies stop after hop ${nos[stop_at]:-0}"
    fi
    (( jump_at )) && orv_result INFO "$label: latency jumps by $(printf '%.0f' $jump) ms at hop $nos[jump_at] ($names[jump_at])"

    local tail=""; (( reached )) || tail=" The destination did not reply."
    (( failed_at )) && tail=" The path ends in an unreachable answer."
    orv_para note "${(j: :)cmd} — $ended.$tail"
    for line in $notes; do orv_para note "$line"; done
    orv_table "Hop" "Host" "Address" "Times" "Median" "Remark"
    local remark cls cells c
    for (( i = 1; i <= ${#nos}; i++ )); do
        remark=""; cls=""
        [[ -n $unreach[i] ]] && { remark=$unreach[i]; cls=" class=\"mark\"" }
        (( i == jump_at )) && { remark="latency jumps here (+$(printf '%.0f' $jump) ms)"; cls=" class=\"mark\"" }
        (( i == stop_at )) && { remark="${remark:+$remark; }replies stop after this hop"; cls=" class=\"mark\"" }
        (( reached && i == ${#nos} )) && remark="${remark:+$remark; }destination"
        cells=""
        for c in $nos[i] "${names[i]:-*}" "${ips[i]:-no reply}" "${${rtts[i]// / ms, }:+${rtts[i]// / ms, } ms}" "${med[i]:+$med[i] ms}" "$remark"; do
            orv_esc "$c"; cells+="<td>$REPLY</td>"
        done
        orv_raw "<tr$cls>$cells</tr>"
    done
    (( ${#nos} )) || orv_row "" "-" "no hops" "" "" "" ""
    orv_table_end
    (( ${#nos} )) && chart nos med jump_at $(( stop_at ? stop_at : failed_at )) "${${failed_at:#0}:+unreachable}"
}

# chart HOPS MEDIANS JUMP-INDEX STOP-INDEX [STOP-TEXT]: bars of per-hop median latency; silent hops as grey
# ticks, the jump in red, a dashed line after the hop where the path ends, labelled "replies stop" or STOP-TEXT.
chart() {
    local -a n=("${(@P)1}") m=("${(@P)2}"); local ja=${(P)3} sa=$4 stop_text=${5:-replies stop}
    integer W=960 LX=64 PW=880 H=200 TOP=16 PH=150
    local mx=1 i v x bw
    for v in $m; do [[ -n $v ]] && (( v > mx )) && mx=$v; done
    (( mx = mx * 1.1 ))
    bw=$(( PW / ${#n}.0 ))
    local -a s=("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"$W\" height=\"$H\" viewBox=\"0 0 $W $H\" font-family=\"Helvetica,Arial,sans-serif\" font-size=\"11\">")
    s+=("<line x1=\"$LX\" y1=\"$(( TOP + PH ))\" x2=\"$(( LX + PW ))\" y2=\"$(( TOP + PH ))\" stroke=\"#98a2b3\"/>")
    s+=("<text x=\"$(( LX - 4 ))\" y=\"$(( TOP + 4 ))\" text-anchor=\"end\" fill=\"#667085\">$(printf '%.0f' $mx) ms</text>")
    s+=("<text x=\"$(( LX - 4 ))\" y=\"$(( TOP + PH ))\" text-anchor=\"end\" fill=\"#667085\">0</text>")
    for (( i = 1; i <= ${#n}; i++ )); do
        x=$(( LX + (i - 1) * bw ))
        if [[ -n $m[i] ]]; then
            local h=$(( m[i] / mx * PH )); (( h < 1 )) && h=1
            local fill="#1f5fbf"; (( i == ja )) && fill="#c62828"
            s+=("$(printf '<rect x="%.1f" y="%.1f" width="%.1f" height="%.1f" fill="%s"/>' $(( x + bw * 0.15 )) $(( TOP + PH - h )) $(( bw * 0.7 )) $h $fill)")
        else
            s+=("$(printf '<text x="%.1f" y="%d" text-anchor="middle" fill="#98a2b3">*</text>' $(( x + bw / 2 )) $(( TOP + PH - 4 )))")
        fi
        s+=("$(printf '<text x="%.1f" y="%d" text-anchor="middle" fill="#667085">%s</text>' $(( x + bw / 2 )) $(( TOP + PH + 14 )) $n[i])")
        if (( i == sa )); then
            # The label goes right of the line, or left of it when it would run past the chart's edge.
            local lx=$(( x + bw + 3 )) anchor=start colour="#b26a00"
            [[ $stop_text == "replies stop" ]] || colour="#c62828"
            (( lx + 7 * ${#stop_text} > W )) && { lx=$(( x + bw - 3 )); anchor=end }
            s+=("$(printf '<line x1="%.1f" y1="%d" x2="%.1f" y2="%d" stroke="%s" stroke-dasharray="4 3"/>' $(( x + bw )) $TOP $(( x + bw )) $(( TOP + PH )) $colour)")
            s+=("$(printf '<text x="%.1f" y="%d" text-anchor="%s" fill="%s">%s</text>' $lx $(( TOP + 10 )) $anchor $colour $stop_text)")
        fi
    done
    s+=("<text x=\"$(( LX + PW / 2 ))\" y=\"$(( H - 4 ))\" text-anchor=\"middle\" fill=\"#667085\">hop</text></svg>")
    orv_raw ${(j::)s}
}

for (( k = 1; k <= ${#TARGETS}; k++ )); do
    trace_one "$LABELS[k]" "$TARGETS[k]"
done
orv_para note "Relay: $RELAY_NOTE"

if (( ORV_FAILED )); then
    vclass=fail; vtitle="$ORV_FAILED trace(s) failed"; vlines=($ORV_FAILURES $ORV_WARNINGS)
elif (( ORV_WARNED )); then
    vclass=warn; vtitle="Traced, with $ORV_WARNED warning(s)"; vlines=($ORV_WARNINGS)
else
    vclass=ok; vtitle="Every destination was reached"; vlines=()
fi
vlines+=(${${(M)ORV_CHECKS:#INFO$'\t'*}#INFO$'\t'})
orv_step "Writing the report"
orv_write_report OrvantaTraceRoute_ "Trace Route" $vclass "$vtitle" $vlines || exit 1
orv_say "   Done: $vtitle"
orv_finish $REPLY $(( ORV_FAILED ? 1 : 0 ))
