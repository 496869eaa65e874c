#!/usr/bin/env bash
# Parses the Objective-C++ backend (OrvantaMacToolkit/platform/mac/*.mm) on a machine without Apple's SDK:
# Clang in Objective-C++ mode with ARC, Qt's own headers as macOS sees them (__APPLE__ defined), and small
# stand-ins for the framework headers under tools/mac-syntax, which declare only what the backend calls,
# as the SDK declares it. It catches syntax, type and Qt-API mistakes; it cannot catch a declaration the
# stand-ins got wrong, nor link or run anything: the macOS workflow does that.
set -euo pipefail
cd "$(dirname "$0")/.."

command -v clang++ >/dev/null || { echo "check-mac-syntax: clang++ is needed" >&2; exit 2; }
read -r -a qt_flags <<<"$(pkg-config --cflags Qt6Core Qt6Gui Qt6Widgets)"
status=0
for source in OrvantaMacToolkit/platform/mac/*.mm; do
    if clang++ -std=c++20 -fsyntax-only -x objective-c++ -fobjc-runtime=macosx-13.5 -fobjc-arc -fblocks \
        -D__APPLE__ -D__MACH__ -DQT_NO_KEYWORDS -Wall -Wextra -Werror \
        -isystem tools/mac-syntax "${qt_flags[@]}" -IOrvantaMacToolkit "$source"; then
        echo "ok: $source"
    else
        status=1
    fi
done
exit $status
