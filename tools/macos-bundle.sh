#!/usr/bin/env bash
# The macOS application bundle as it is handed to users, one step per command:
#
#   tools/macos-bundle.sh deploy   APP                 copy Qt's frameworks and plug-ins in (macdeployqt on PATH
#                                                      or in $MACDEPLOYQT), keep only bundle-relative rpaths
#   tools/macos-bundle.sh sign     APP ENTITLEMENTS    sign inside-out with $CODESIGN_IDENTITY (default "-", ad hoc)
#   tools/macos-bundle.sh check    APP [ARCH...]       linkage, architectures, and the binary runs
#   tools/macos-bundle.sh dmg      APP DMG             a disk image with the app and a link to /Applications
#   tools/macos-bundle.sh notarize DMG                 notarize with $APPLE_ID, $APPLE_TEAM_ID, $APPLE_APP_PASSWORD
#                                                      and staple the ticket
set -euo pipefail

die() {
    echo "macos-bundle: $*" >&2
    exit 1
}

executable_of() {
    local app=$1
    local name
    name=$(/usr/libexec/PlistBuddy -c 'Print :CFBundleExecutable' "$app/Contents/Info.plist")
    echo "$app/Contents/MacOS/$name"
}

# Every Mach-O file of the bundle, one a line.
machO_files() {
    find "$1" -type f -print0 | while IFS= read -r -d '' file; do
        case "$(file -b "$file")" in
        Mach-O*) echo "$file" ;;
        esac
    done
}

deploy() {
    local app=$1
    local macdeployqt=${MACDEPLOYQT:-macdeployqt}
    "$macdeployqt" "$app" -always-overwrite
    # The build tree's rpaths name the Qt installation on the build machine; a user's Mac has only the
    # bundle's own Frameworks folder.
    local executable
    executable=$(executable_of "$app")
    local rpath
    otool -l "$executable" | awk '/cmd LC_RPATH/ { getline; getline; print $2 }' | sort -u | while read -r rpath; do
        case "$rpath" in
        @executable_path/* | @loader_path/*) ;;
        *) install_name_tool -delete_rpath "$rpath" "$executable" ;;
        esac
    done
    if ! otool -l "$executable" | grep -q '@executable_path/../Frameworks'; then
        install_name_tool -add_rpath @executable_path/../Frameworks "$executable"
    fi
}

sign() {
    local app=$1 entitlements=$2
    local identity=${CODESIGN_IDENTITY:--}
    local options=(--force --sign "$identity")
    # The hardened runtime and a secure time stamp are what notarization asks for. An ad-hoc signature has
    # no team, and the runtime's library validation would then refuse the bundle's own Qt frameworks.
    if [ "$identity" != "-" ]; then
        options+=(--options runtime --timestamp)
    fi
    # Inside-out, without --deep: the loose libraries and plug-ins, then each framework, then the
    # application, which alone carries the entitlements.
    local file
    find "$app/Contents" -type f -name '*.dylib' -print0 | while IFS= read -r -d '' file; do
        codesign "${options[@]}" "$file"
    done
    if [ -d "$app/Contents/Frameworks" ]; then
        find "$app/Contents/Frameworks" -maxdepth 1 -name '*.framework' -print0 |
            while IFS= read -r -d '' file; do
                codesign "${options[@]}" "$file"
            done
    fi
    codesign "${options[@]}" --entitlements "$entitlements" "$app"
    codesign --verify --deep --strict --verbose=2 "$app"
    codesign --display --entitlements - "$app"
}

check() {
    local app=$1
    shift
    local archs=("$@")
    local failed=0 file
    while read -r file; do
        # Every library a binary loads lies in the bundle or in the system. (A library's own install name
        # is listed too; it is not something it loads.)
        local own dependency
        own=$(otool -D "$file" | awk 'NR > 1 && !/:$/ { print $1 }' | sort -u)
        while read -r dependency; do
            grep -qxF -- "$dependency" <<<"$own" && continue
            case "$dependency" in
            @rpath/* | @executable_path/* | @loader_path/* | /System/Library/* | /usr/lib/*) ;;
            *)
                echo "outside the bundle: $file -> $dependency" >&2
                failed=1
                ;;
            esac
        done < <(otool -L "$file" | awk 'NR > 1 && !/:$/ { print $1 }')
        local rpath
        while read -r rpath; do
            case "$rpath" in
            @executable_path/* | @loader_path/*) ;;
            *)
                echo "rpath outside the bundle: $file -> $rpath" >&2
                failed=1
                ;;
            esac
        done < <(otool -l "$file" | awk '/cmd LC_RPATH/ { getline; getline; print $2 }')
        local has arch
        has=$(lipo -archs "$file")
        for arch in "${archs[@]}"; do
            if [[ " $has " != *" $arch "* ]]; then
                echo "lacks $arch ($has): $file" >&2
                failed=1
            fi
        done
    done < <(machO_files "$app")
    [ "$failed" -eq 0 ] || die "the bundle would not run as it is on a user's Mac"

    local executable
    executable=$(executable_of "$app")
    "$executable" --version
    # Without Accessibility trust (a CI runner) the pass says so; what matters is that the native
    # backend loaded and answered.
    local detection
    detection=$("$executable" --detect)
    echo "$detection"
    grep -q '^status: ' <<<"$detection" || die "--detect printed no status"
    # The other architecture, where this Mac can run it.
    if [[ " ${archs[*]} " == *" x86_64 "* ]] && [ "$(uname -m)" = arm64 ] && arch -x86_64 /usr/bin/true 2>/dev/null; then
        arch -x86_64 "$executable" --version
        arch -x86_64 "$executable" --detect | grep -q '^status: ' || die "--detect (x86_64) printed no status"
    fi
}

dmg() {
    local app=$1 image=$2
    local staging
    staging=$(mktemp -d)
    ditto "$app" "$staging/$(basename "$app")"
    ln -s /Applications "$staging/Applications"
    # On hosted runners hdiutil now and then fails with "Resource busy" while something still holds the
    # folder or the new image; a few more tries after a pause get past it. Any other failure is final.
    local tries=${HDIUTIL_TRIES:-5} try output
    for ((try = 1; ; try++)); do
        rm -f "$image"
        if output=$(hdiutil create -volname "Orvanta Mac Toolkit" -srcfolder "$staging" -fs HFS+ -format UDZO \
            "$image" 2>&1); then
            echo "$output"
            break
        fi
        if [[ $output != *"Resource busy"* ]] || ((try >= tries)); then
            rm -rf "$staging"
            die "hdiutil create failed (try $try of $tries): $output"
        fi
        echo "macos-bundle: hdiutil create: resource busy (try $try of $tries), trying again" >&2
        sleep "${HDIUTIL_PAUSE:-5}"
    done
    rm -rf "$staging"
    local identity=${CODESIGN_IDENTITY:--}
    if [ "$identity" != "-" ]; then
        codesign --force --sign "$identity" --timestamp "$image"
    fi
}

notarize() {
    local image=$1
    : "${APPLE_ID:?}" "${APPLE_TEAM_ID:?}" "${APPLE_APP_PASSWORD:?}"
    xcrun notarytool submit "$image" --apple-id "$APPLE_ID" --team-id "$APPLE_TEAM_ID" \
        --password "$APPLE_APP_PASSWORD" --wait
    xcrun stapler staple "$image"
    xcrun stapler validate "$image"
    spctl --assess --type open --context context:primary-signature --verbose=2 "$image"
}

command=${1:-}
[ $# -gt 0 ] && shift
case "$command" in
deploy) [ $# -eq 1 ] || die "usage: deploy APP" && deploy "$@" ;;
sign) [ $# -eq 2 ] || die "usage: sign APP ENTITLEMENTS" && sign "$@" ;;
check) [ $# -ge 1 ] || die "usage: check APP [ARCH...]" && check "$@" ;;
dmg) [ $# -eq 2 ] || die "usage: dmg APP DMG" && dmg "$@" ;;
notarize) [ $# -eq 1 ] || die "usage: notarize DMG" && notarize "$@" ;;
*) die "usage: tools/macos-bundle.sh deploy|sign|check|dmg|notarize ..." ;;
esac
