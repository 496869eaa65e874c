# Sourced by the whole-application measurements: reads [BINARY] [SECONDS] (SECONDS defaulting to
# $default_seconds), makes a scratch folder $work with a home of its own, and on exit stops the application
# started as $pid and removes the folder.
binary=${1:-build/release/orvanta-mac-toolkit}
seconds=${2:-$default_seconds}
[ -x "$binary" ] || { echo "no application binary at $binary (build the release preset first)" >&2; exit 2; }

work=$(mktemp -d)
cleanup() {
    [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
# A home of its own, so a running copy of the application and the user's Desktop are left alone.
mkdir -p "$work/home/Desktop"
