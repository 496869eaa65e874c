#!/usr/bin/env bash
# Every benchmark and measurement of the project in one run, on the release build:
#   bench/run_all.sh [SOAK_SECONDS]     (600 unless given)
# Builds the release preset first. Linux only for the whole-application parts (/proc). Takes about
# SOAK_SECONDS + 4 minutes; run it on an otherwise quiet machine.
set -euo pipefail
cd "$(dirname "$0")/.."
soak_seconds=${1:-600}
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
bin=build/release
export QT_QPA_PLATFORM=offscreen

section() { printf '\n== %s\n' "$*"; }
section "machine"
echo "$(nproc) cores, $(awk '/MemTotal/ {printf "%.0f GiB", $2 / 1048576}' /proc/meminfo), load $(cut -d' ' -f1-3 /proc/loadavg)"
for program in "$bin"/bench/bench_*; do
    [ -f "$program" ] && [ -x "$program" ] || continue
    section "$(basename "$program")"
    "$program" --benchmark_counters_tabular=true 2>&1 | grep -v -E 'propagateSizeHints|^\*\*\*'
done
section "measure_poll_rhythm (60 s)"
"$bin"/bench/measure_poll_rhythm 60
section "soak_runner (500 start/cancel cycles)"
"$bin"/bench/soak_runner 500
section "script_helpers.zsh (2,000 calls each)"
bench/script_helpers.zsh 2000
section "monitor_report.zsh (eight hours of samples)"
bench/monitor_report.zsh 14400
section "app_idle.sh (60 s, one session)"
bench/app_idle.sh "$bin"/orvanta-mac-toolkit 60
section "app_idle.sh (60 s, one session, Desktop with 10,000 files, window open)"
DESKTOP_FILES=10000 bench/app_idle.sh "$bin"/orvanta-mac-toolkit 60
section "soak_app.sh ($soak_seconds s, world changing every second)"
bench/soak_app.sh "$bin"/orvanta-mac-toolkit "$soak_seconds"
