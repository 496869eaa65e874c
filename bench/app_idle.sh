#!/usr/bin/env bash
# Whole-application cost at rest: starts the application offscreen on a simulated world with one open
# session, lets it run for a while (60 s unless given), and reports the CPU time it used and its peak
# resident memory, read from /proc (Linux only).
#   bench/app_idle.sh [BINARY] [SECONDS]
# With DESKTOP_FILES=N the Desktop holds N other files and 25 reports, which the open toolkit window (headless,
# it opens at start) lists again every 5 s.
set -euo pipefail
cd "$(dirname "$0")/.."
default_seconds=60
source bench/app_common.sh

cat >"$work/world.json" <<'JSON'
{
  "runningApplications": [{"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"}],
  "windows": {"812": [{"title": "Work desktop", "subrole": "AXStandardWindow", "size": [1920, 1080], "minimized": false}]}
}
JSON

desktop_files=${DESKTOP_FILES:-0}
if [ "$desktop_files" -gt 0 ]; then
    (cd "$work/home/Desktop" && seq -f 'note-%g.txt' 1 "$desktop_files" | xargs touch &&
        seq -f 'OrvantaMacClientReach_2025%g.html' 1 25 | xargs touch)
    echo "desktop: $desktop_files files and 25 reports"
fi
HOME="$work/home" QT_QPA_PLATFORM=offscreen "$binary" --simulate "$work/world.json" >/dev/null 2>&1 &
pid=$!
sleep 3 # start-up is not what this measures
ticks() { awk '{print $14 + $15}' "/proc/$pid/stat"; }
hz=$(getconf CLK_TCK)
start=$(ticks)
sleep "$seconds"
kill -0 "$pid" 2>/dev/null || { echo "the application exited early" >&2; exit 1; }
end=$(ticks)
peak_kb=$(awk '/^VmHWM:/ {print $2}' "/proc/$pid/status")
threads=$(awk '/^Threads:/ {print $2}' "/proc/$pid/status")
awk -v t=$((end - start)) -v hz="$hz" -v s="$seconds" -v kb="$peak_kb" -v th="$threads" 'BEGIN {
    cpu = t / hz
    printf "cpu_seconds=%.2f over %d s (%.3f %% of one core)\n", cpu, s, 100 * cpu / s
    printf "peak_rss_mb=%.1f\n", kb / 1024
    printf "threads=%d\n", th
}'
