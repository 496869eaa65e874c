#!/bin/zsh
# Time the Network Monitor takes to analyse a long run and write its report, and the report's size: synthetic
# samples of ROUNDS rounds (default 14,400: eight hours every two seconds) for five targets, with noise, a slow
# hour, single lost probes and two outages, fed to the script's own analysis (the part from "# --- Analysis" on,
# with its "# --- Figures" helpers). Touches no network. Usage: bench/monitor_report.zsh [ROUNDS] [KEEP-DIR]
# With KEEP-DIR the report is left there, to look at the timeline of a long run.
emulate -R zsh
integer rounds=${1:-14400}
script=${0:A:h}/../resources/scripts/orvanta-mac-network-monitor.zsh
typeset -g WORK=$(mktemp -d) HOME_DIR=${2:-$(mktemp -d)}
source ${0:A:h}/../resources/scripts/orvanta-common.zsh >/dev/null
typeset -F INTERVAL=2 START=$(( EPOCHSECONDS - rounds * 2 )) STOPPED_AT=$EPOCHSECONDS
typeset -i ROUND=$rounds NO_GATEWAY=0 HAVE_RELAY=1
typeset -g STOP_REASON="the chosen duration ended" TUNNEL="" RELAY_RECORDED="" QNAME=example.com
typeset -ga T_LABEL=("DNS 192.0.2.53" "DNS 192.0.2.54" "Gateway 192.168.1.1" "Front end 203.0.113.10" "Relay 203.0.113.20")
typeset -ga T_ROLE=(dns dns gateway frontend relay) T_KIND=(dns dns icmp tcp tcp)
typeset -ga T_HOST=(192.0.2.53 192.0.2.54 192.168.1.1 203.0.113.10 203.0.113.20) T_PORT=("" "" "" 443 3389)
typeset -ga T_P95 NOTES
integer i
for (( i = 1; i <= 5; i++ )); do
    awk -v n=$rounds -v s=$START -v i=$i -v seed=$i 'BEGIN {
        srand(seed); base = (i == 3) ? 2 : (i <= 2 ? 18 : 35)
        for (k = 0; k < n; k++) {
            t = s + 2 * k; h = k * 2 / 3600
            lost = rand() < 0.003 || (i == 5 && k >= 3600 && k < 3690) || (k >= 9000 && k < 9030)
            if (lost) { printf "%.6f - no answer\n", t; continue }
            v = base * (1 + 0.15 * rand()) + (h >= 6 && h < 7 ? base * rand() : 0)
            printf "%.6f %.3f\n", t, v
        }
    }' > $WORK/s.$i
done
HOME=$HOME_DIR
typeset -F t0=$EPOCHREALTIME
out=$( eval "$(sed -n '/^# --- Figures/,/^# --- The probing loop/p; /^# --- Analysis/,$p' $script)" )
typeset -F took=$(( EPOCHREALTIME - t0 ))
report=${${(f)out}[-1]}
printf 'analysis and report of %d rounds x 5 targets: %.2f s, report %d KiB, %d SVG elements\n' $rounds $took \
    $(( $(wc -c < $report) / 1024 )) ${#${(f)"$(grep -o '<\(rect\|polygon\|polyline\|circle\|line\|text\) ' $report)"}}
print -r -- "report: $report"
rm -rf $WORK
[[ -n $2 ]] || rm -rf $HOME_DIR
