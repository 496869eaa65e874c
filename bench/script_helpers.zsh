#!/bin/zsh
# Cost per call of the diagnostic scripts' helpers that run once per probe: a console line, an elapsed time and
# a report row with its badge. Touches no network. Usage: bench/script_helpers.zsh [CALLS]
source ${0:A:h}/../resources/scripts/orvanta-common.zsh >/dev/null
integer n=${1:-2000} i
typeset -F t0
t0=$EPOCHREALTIME; for (( i = 0; i < n; i++ )); do orv_say "probe $i" >/dev/null; done
printf 'orv_say           %7.1f us per call\n' $(( (EPOCHREALTIME - t0) * 1e6 / n ))
t0=$EPOCHREALTIME; for (( i = 0; i < n; i++ )); do orv_ms_since $t0; done
printf 'orv_ms_since      %7.1f us per call\n' $(( (EPOCHREALTIME - t0) * 1e6 / n ))
t0=$EPOCHREALTIME; for (( i = 0; i < n; i++ )); do orv_row OK "TCP connect" "127.0.0.1 port 443 in 1.2 ms"; done
printf 'orv_row, a badge  %7.1f us per call\n' $(( (EPOCHREALTIME - t0) * 1e6 / n ))
