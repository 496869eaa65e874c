#!/usr/bin/env bash
# Retakes docs/toolkit-window.png: the toolkit window of a user named Alex (home folder /home/alex, four
# earlier reports on the Desktop, one session open) right after a Connector Reachability run. It runs in
# `unshare -rmn`: a network namespace with nothing but loopback, where every ORVANTA_* target is 127.0.0.1,
# and a private /home, so that nothing outside the namespace is touched.
set -euo pipefail
cd "$(dirname "$0")/.."
binary=${1:-build/default/orvanta-mac-toolkit}
out=$PWD/docs/toolkit-window.png
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat >"$work/world.json" <<'JSON'
{
  "runningApplications": [{"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"}],
  "windows": {"812": [{"title": "Accounting Department", "subrole": "AXStandardWindow", "size": [1920, 1080],
                       "minimized": false}]}
}
JSON
exec unshare -rmn bash -c '
    set -euo pipefail
    ip link set lo up 2>/dev/null || true
    mount -t tmpfs tmpfs /home
    mkdir -p /home/alex/Desktop
    cd /home/alex
    for report in OrvantaMacClientReach_20261123-094207 OrvantaTraceRoute_20261123-094208 \
                  OrvantaNetMonitor_20261123-094211 OrvantaMacClientReach_20261123-094212; do
        stamp=${report#*_}
        echo "<html></html>" > "Desktop/$report.html"
        touch -d "${stamp:0:4}-${stamp:4:2}-${stamp:6:2} ${stamp:9:2}:${stamp:11:2}:${stamp:13:2}" "Desktop/$report.html"
    done
    export HOME=/home/alex USER=alex LOGNAME=alex QT_QPA_PLATFORM=offscreen
    export ORVANTA_FRONTEND=127.0.0.1:443 ORVANTA_ENDPOINTS="127.0.0.1:443 127.0.0.1:8443 127.0.0.1:9"
    export ORVANTA_DNS_RESOLVERS=127.0.0.1 ORVANTA_DNS_QUERY_NAME=localhost ORVANTA_GATEWAY=127.0.0.1
    export ORVANTA_RELAY=127.0.0.1 ORVANTA_TIMEOUT=2
    "$0" --simulate "$1" --screenshot "$2" --run reach
' "$(realpath "$binary")" "$work/world.json" "$out"
