#!/usr/bin/env bash
# Soak: the application on a simulated world that changes every second (sessions appearing and
# disappearing, titles changing, Accessibility trust revoked and granted again) for a while (600 s unless
# given). Samples resident memory, thread count and open descriptors every 30 s; at the end says whether
# they held steady (the last sample against the one after the first minute). Linux only (/proc).
#   bench/soak_app.sh [BINARY] [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
default_seconds=600
source bench/app_common.sh

# World number N: 0 to 3 sessions with titles that change, trust missing one second in seven.
write_world() {
    local n=$1 windows="" i count=$(($1 % 4)) trusted=true
    [ $(($1 % 7)) -eq 3 ] && trusted=false
    for ((i = 0; i < count; i++)); do
        windows+="${windows:+,}{\"title\": \"Desk $i run $n\", \"subrole\": \"AXStandardWindow\", \"size\": [1920, 1080], \"minimized\": false}"
    done
    cat >"$work/world.tmp" <<JSON
{"accessibilityTrusted": $trusted,
 "runningApplications": [{"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"}],
 "windows": {"812": [$windows]}}
JSON
    mv "$work/world.tmp" "$work/world.json" # replaced whole, as editors save
}

write_world 0
HOME="$work/home" QT_QPA_PLATFORM=offscreen "$binary" --simulate "$work/world.json" >/dev/null 2>&1 &
pid=$!
sleep 2

sample() {
    local rss threads fds
    rss=$(awk '/^VmRSS:/ {print $2}' "/proc/$pid/status")
    threads=$(awk '/^Threads:/ {print $2}' "/proc/$pid/status")
    fds=$(ls "/proc/$pid/fd" | wc -l)
    echo "$1 $rss $threads $fds"
}

printf '%8s %10s %8s %6s\n' seconds rss_kb threads fds
baseline=""
for ((t = 1; t <= seconds; t++)); do
    write_world "$t"
    sleep 1
    kill -0 "$pid" 2>/dev/null || { echo "the application exited after $t s" >&2; exit 1; }
    if [ $((t % 30)) -eq 0 ]; then
        line=$(sample "$t")
        printf '%8s %10s %8s %6s\n' $line
        [ "$t" -eq 60 ] && baseline=$line
        last=$line
    fi
done

read -r _ rss0 threads0 fds0 <<<"${baseline:-$last}"
read -r _ rss1 threads1 fds1 <<<"$last"
peak=$(awk '/^VmHWM:/ {print $2}' "/proc/$pid/status")
echo "rss_growth_kb=$((rss1 - rss0)) threads=$threads0->$threads1 fds=$fds0->$fds1 peak_rss_mb=$((peak / 1024))"
# Steady: no new threads or descriptors, and under 2 MB of growth after the first minute.
if [ "$threads1" -le "$threads0" ] && [ "$fds1" -le "$fds0" ] && [ $((rss1 - rss0)) -lt 2048 ]; then
    echo "steady"
else
    echo "NOT steady"
    exit 1
fi
