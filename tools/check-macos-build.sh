#!/usr/bin/env bash
# The macOS build, checked on a machine without a Mac. For every architecture of the release bundle (the
# macos-universal preset), at its deployment target:
#
# 1. CMake configures this project for macOS (cmake/MacCrossCheck.cmake), so the list of sources is the
#    build's own, and Clang compiles every translation unit of that configuration: the portable sources, the
#    Objective-C++ backend, main.cpp, the tests and what moc and rcc make of them, against Apple's SDK and its
#    libc++, with -Wall -Wextra -Werror -Werror=unguarded-availability-new. Qt's headers and tools are the
#    installed Qt 6's.
# 2. ld64.lld links every program of that configuration against the SDK's stubs of the frameworks
#    CMakeLists.txt links and stubs made here: Qt's (the installed Qt libraries' exports, plus the Apple-only
#    functions Qt's headers declare), libc++'s and the C library's (the SDK has none for these two; see
#    `cxx_symbols` and `c_library_symbols`). Every symbol none of these defines is named by the linker, and
#    fails the check.
#
# Only a Mac can show that the program runs, asks for its permissions and shows its status item.
#
#   tools/check-macos-build.sh        the SDK from ../shared/macos-sdk, or ORVANTA_MACOS_SDK=FILE.tar.gz
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/macos-check
archive=${ORVANTA_MACOS_SDK:-$root/../shared/macos-sdk/MacOSX14.2.sdk.tar.gz}
jobs=${CMAKE_BUILD_PARALLEL_LEVEL:-2}

die() {
    echo "check-macos-build: $*" >&2
    exit 2
}

# A tool by its name or, as Debian installs some of LLVM's, by its name and version (ld64.lld-14).
find_tool() {
    local name=$1 versioned
    command -v "$name" 2>/dev/null && return
    versioned=$(compgen -c | grep -E "^${name//./\\.}-[0-9]+$" | sort -t- -k2 -V | tail -n1 || true)
    [ -n "$versioned" ] && command -v "$versioned" && return
    die "$name is needed (Debian: apt-get install clang lld llvm)"
}
clang=$(find_tool clang++)
lld=$(find_tool ld64.lld)
nm=$(find_tool llvm-nm)
ar=$(find_tool llvm-ar)
ranlib=$(find_tool llvm-ranlib)
cxxfilt=$(find_tool llvm-cxxfilt)
command -v ninja >/dev/null || die "ninja is needed"
qt_libdir=$(pkg-config --variable=libdir Qt6Core 2>/dev/null) || die "Qt 6 is needed (tools/dev.sh test installs it)"
qt_include=$(pkg-config --variable=includedir Qt6Core)
# Header-only libraries the build finds on the host are seen through a folder of their own, so that the
# host's /usr/include, which holds them, stays off the include path.
rapidjson=""
for folder in /usr/include /usr/local/include /opt/homebrew/include; do
    [ -f "$folder/rapidjson/reader.h" ] && rapidjson=$folder/rapidjson && break
done
[ -n "$rapidjson" ] || die "RapidJSON is needed (tools/dev.sh test installs it)"
mkdir -p "$work/host-headers"
ln -sfn "$rapidjson" "$work/host-headers/rapidjson"

# ---- what the release bundle is built for ------------------------------------------------------------
cat >"$work/preset.cmake" <<'EOF'
file(READ "${presets}" json)
string(JSON count LENGTH "${json}" configurePresets)
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
    string(JSON name GET "${json}" configurePresets ${i} name)
    if(name STREQUAL "macos-universal")
        string(JSON target GET "${json}" configurePresets ${i} cacheVariables CMAKE_OSX_DEPLOYMENT_TARGET)
        string(JSON archs GET "${json}" configurePresets ${i} cacheVariables CMAKE_OSX_ARCHITECTURES)
        string(REPLACE ";" " " archs "${archs}")
        execute_process(COMMAND ${CMAKE_COMMAND} -E echo "${target} ${archs}")
    endif()
endforeach()
EOF
read -r target archs <<<"$(cmake -Dpresets="$root/CMakePresets.json" -P "$work/preset.cmake")"
[ -n "${archs:-}" ] || die "CMakePresets.json has no macos-universal preset with a deployment target and architectures"
plist_target=$(grep -A1 '<key>LSMinimumSystemVersion</key>' resources/mac/Info.plist.in |
    sed -n 's:.*<string>\(.*\)</string>.*:\1:p')
[ "$plist_target" = "$target" ] ||
    die "Info.plist.in asks for macOS $plist_target, the macos-universal preset builds for $target"

# ---- the SDK -----------------------------------------------------------------------------------------
sdk_name=$(basename "$archive" .tar.gz)
sdk=$work/$sdk_name
sdk_version=${sdk_name#MacOSX}
sdk_version=${sdk_version%.sdk}
if [ ! -f "$sdk/.unpacked" ] || [ "$archive" -nt "$sdk/.unpacked" ]; then
    [ -f "$archive" ] || die "no SDK at $archive"
    if [ -f "$archive.sha256" ]; then
        (cd "$(dirname "$archive")" && sha256sum --quiet -c "$(basename "$archive").sha256") ||
            die "$archive does not match its checksum"
    fi
    rm -rf "$sdk"
    tar -xzf "$archive" -C "$work"
    # The linker finds a re-exported library by its install name (…/Versions/A/X); the SDK holds each stub
    # once, beside its framework, so each gets a link where its install name points.
    find "$sdk" -name '*.tbd' -print0 | while IFS= read -r -d '' stub; do
        install_name=$(sed -n "s/^install-name: *'\{0,1\}\([^']*\)'\{0,1\} *$/\1/p" "$stub" | head -n1)
        [ -n "$install_name" ] || continue
        link=$sdk${install_name%.dylib}.tbd
        [ -e "$link" ] && continue
        mkdir -p "$(dirname "$link")"
        ln -s "$(realpath --relative-to="$(dirname "$link")" "$stub")" "$link"
    done
    touch "$sdk/.unpacked"
fi

# ---- what the stubs hold -----------------------------------------------------------------------------

# Qt functions that exist only in Qt's Apple builds (QString::toNSString and the like): names declared
# inside the Apple-only conditional blocks of Qt's public headers, with their module ("QtCore toNSString").
qt_apple_api=$work/qt-apple-api.txt
find "$qt_include" -mindepth 2 -maxdepth 2 -name 'q*.h' -print0 | sort -z | xargs -0 awk '
    FNR == 1 { depth = 0; module = FILENAME; sub(/\/[^\/]*$/, "", module); sub(/.*\//, "", module) }
    /^[ \t]*#[ \t]*if/ {
        apple[++depth] = $0 ~ /Q_OS_(DARWIN|MACOS|APPLE)|__OBJC__/ && $0 !~ /!defined|#[ \t]*ifndef/
        next
    }
    /^[ \t]*#[ \t]*elif/ { apple[depth] = $0 ~ /Q_OS_(DARWIN|MACOS|APPLE)|__OBJC__/ && $0 !~ /!defined/; next }
    /^[ \t]*#[ \t]*else/ { apple[depth] = 0; next }
    /^[ \t]*#[ \t]*endif/ { if (depth > 0) depth--; next }
    {
        inside = 0
        for (i = 1; i <= depth; i++) if (apple[i]) inside = 1
        line = $0
        while (inside && match(line, /[A-Za-z_][A-Za-z0-9_]*[ \t]*\(/)) {
            name = substr(line, RSTART, RLENGTH)
            sub(/[ \t]*\($/, "", name)
            print module, name
            line = substr(line, RSTART + RLENGTH)
        }
    }' | sort -u >"$qt_apple_api"

# Names the C library of macOS (libSystem) declares: its headers in the SDK, less those of the separate
# libraries that live beside it in usr/include and that this project does not link.
c_library_names=$work/c-library-names.txt
if [ ! -s "$c_library_names" ] || [ "$sdk/.unpacked" -nt "$c_library_names" ]; then
    (cd "$sdk/usr/include" && grep -rhoE '\b[A-Za-z_][A-Za-z0-9_]*\b' \
        --exclude-dir={c++,objc,cups,editline,readline,ffi,gssapi,krb5,sasl,tidy,xar,libDER,libexslt} \
        --exclude-dir={EndpointSecurity,networkext} \
        --exclude={sqlite3*,zlib.h,zconf.h,bzlib.h,expat*,iconv.h,libcharset.h,localcharset.h,pcap*} \
        --exclude={curses.h,ncurses*,term.h,term_entry.h,termcap.h,unctrl.h,menu.h,form.h,panel.h,eti.h,tic.h} \
        --exclude={nc_tparm.h,histedit.h,gssapi.h,krb5.h,com_err.h,profile.h,ldap*,lber*,slapi-plugin.h,ldif.h} \
        --exclude={compression.h,AppleEXR.h,AppleTextureEncoder.h,Xplugin.h,libmanagedconfigurationfiles.h} \
        .) | sort -u >"$c_library_names"
fi

# What the compiler and the linker themselves add to a program: the runtime of `@available`, stack
# protection, the image handle, zero-filling, thread-local variables and dyld's binder.
runtime_symbols="___isPlatformVersionAtLeast ___isOSVersionAtLeast ___stack_chk_fail ___stack_chk_guard
___dso_handle ___chkstk_darwin ___bzero __tlv_bootstrap dyld_stub_binder"

# libc++ (with libc++abi), from "symbol<TAB>demangled" lines: the standard library's namespaces and the C++
# runtime's entry points. Its own availability is its headers' business: they refuse what the deployment
# target lacks.
cxx_symbols() {
    awk -F'\t' '
        $2 ~ /^((typeinfo|typeinfo name|vtable|VTT|guard variable) for )?(std|__cxxabi[v0-9]*)::/ ||
        $2 ~ /^operator (new|delete)(\[\])?\(/ || $1 ~ /^___(cxa_|gxx_personality_|dynamic_cast$)/ { print $1 }'
}

# The C library (libSystem), from symbols that nothing else defines: C names its headers declare.
c_library_symbols() {
    awk -v runtime="$runtime_symbols" -v names="$c_library_names" '
        BEGIN {
            while ((getline name <names) > 0) declared["_" name] = 1
            split(runtime, list, /[ \n]+/)
            for (i in list) declared[list[i]] = 1
        }
        # An Intel variant of a C function carries a suffix after its name: _fstat$INODE64.
        { base = $1; sub(/\$.*/, "", base) }
        $1 !~ /^__Z/ && (($1 in declared) || (base in declared)) { print $1 }'
}

# A text stub (.tbd) of a library exporting the symbols in FILE, for ARCH.
write_stub() {
    local stub=$1 install_name=$2 arch=$3 symbols=$4
    {
        echo "--- !tapi-tbd"
        echo "tbd-version: 4"
        echo "targets: [ $arch-macos ]"
        echo "install-name: '$install_name'"
        echo "exports:"
        echo "  - targets: [ $arch-macos ]"
        printf "    symbols: [ "
        sed "s/.*/'&'/" "$symbols" | paste -sd, - | sed 's/,/, /g'
        echo " ]"
        echo "..."
    } >"$stub"
}

# ---- one architecture --------------------------------------------------------------------------------

check_arch() {
    local arch=$1
    local dir=$work/$arch
    local logs=$work/$arch-logs
    mkdir -p "$logs"

    if ! cmake -S "$root" -B "$dir" -G Ninja --toolchain "$root/cmake/MacCrossCheck.cmake" \
        -DORVANTA_CHECK_SDK="$sdk" -DORVANTA_CHECK_ARCH="$arch" -DORVANTA_CHECK_CLANG="$clang" \
        -DORVANTA_CHECK_AR="$ar" -DORVANTA_CHECK_RANLIB="$ranlib" -DCMAKE_OSX_DEPLOYMENT_TARGET="$target" \
        -DCMAKE_BUILD_TYPE=Release -DORVANTA_BUILD_TESTS=ON -DCMAKE_PREFIX_PATH="$qt_libdir/cmake" \
        -DORVANTA_RAPIDJSON_INCLUDE_DIR="$work/host-headers" \
        >"$logs/configure.log" 2>&1; then
        cat "$logs/configure.log" >&2
        echo "$arch: the macOS configuration does not configure" >&2
        return 1
    fi

    # Only the SDK may stand for the system: a host folder on an include path would let a fault through.
    local foreign
    foreign=$(grep -oE -- '(-I|-isystem |-iquote |-idirafter )[^ "]+' "$dir/compile_commands.json" |
        sed -E 's/^-(I|isystem |iquote |idirafter )//' | sort -u |
        grep -vE "^($root/|$sdk/|$qt_include(/|$)|$qt_libdir/qt6/mkspecs/)" || true)
    if [ -n "$foreign" ]; then
        echo "$arch: host folders on the include path: $foreign" >&2
        return 1
    fi

    # The programs and what each links, as the build would link them: "program<TAB>inputs<TAB>libraries".
    awk '
        /^build [^:]*: (CXX|OBJCXX)_EXECUTABLE_LINKER__/ {
            program = $2; sub(/:$/, "", program); inputs = ""
            for (i = 4; i <= NF && $i != "|" && $i != "||"; i++) inputs = inputs " " $i
        }
        program != "" && /^  LINK_LIBRARIES = / {
            sub(/^  LINK_LIBRARIES = /, ""); print program "\t" inputs "\t" $0; program = ""
        }' "$dir/build.ninja" >"$logs/programs.txt"
    [ -s "$logs/programs.txt" ] || { echo "$arch: the configuration builds no program" >&2; return 1; }

    # Every translation unit, then the static libraries the programs link.
    local objects libraries
    objects=$(ninja -C "$dir" -t targets all | sed -n 's/: \(CXX\|OBJCXX\)_COMPILER__.*//p')
    libraries=$(cut -f3 "$logs/programs.txt" | tr ' ' '\n' | grep -E '^[^/-].*\.a$' | sort -u || true)
    if ! ninja -C "$dir" -j "$jobs" -k 0 $objects $libraries >"$logs/build.log" 2>&1; then
        grep -vE '^\[[0-9]+/[0-9]+\] ' "$logs/build.log" >&2
        echo "$arch: the macOS configuration does not compile" >&2
        return 1
    fi
    local units
    units=$(grep -c '"file":' "$dir/compile_commands.json")

    # Every symbol the objects need, and where it comes from.
    local files
    files=$( (echo "$objects" && cut -f2,3 "$logs/programs.txt" | tr '\t ' '\n\n') |
        grep -E '\.(o|a)$' | sort -u | sed "s|^|$dir/|")
    # shellcheck disable=SC2086
    "$nm" -u -j $files 2>/dev/null | grep -vE ':$|^$' | sort -u >"$logs/undefined.txt"
    # shellcheck disable=SC2086
    "$nm" -j --defined-only --extern-only $files 2>/dev/null | grep -vE ':$|^$' | sort -u >"$logs/defined.txt"
    comm -23 "$logs/undefined.txt" "$logs/defined.txt" >"$logs/external.txt"

    local stubs=$dir/stubs
    rm -rf "$stubs"
    mkdir -p "$stubs"
    : >"$logs/qt.txt"
    local qt_library module
    for qt_library in $(cut -f3 "$logs/programs.txt" | tr ' ' '\n' | grep -E '/libQt6[A-Za-z]+\.so' | sort -u); do
        module=$(basename "$qt_library" | sed -E 's/^libQt6([A-Za-z]+)\.so.*/Qt\1/')
        "$nm" -D -j --defined-only "$qt_library" | sed 's/@.*//; s/^/_/' | sort -u >"$stubs/$module.txt"
        # A function whose signature names a standard type is mangled after the C++ library (std::__1:: in
        # libc++, std:: or std::__cxx11:: in libstdc++): such exports are matched by their demangled names.
        # Apple-only functions match by their names: "QString::toNSString() const" is QtCore's toNSString.
        comm -23 "$logs/external.txt" "$stubs/$module.txt" >"$stubs/$module.missing"
        paste "$stubs/$module.missing" <("$cxxfilt" -_ <"$stubs/$module.missing") |
            awk -F'\t' -v module="$module" -v api="$qt_apple_api" -v exports=<("$cxxfilt" -_ <"$stubs/$module.txt") '
                function plain(name) { gsub(/std::__(1|cxx11)::/, "std::", name); return name }
                BEGIN {
                    while ((getline line <exports) > 0) exported[plain(line)] = 1
                    while ((getline line <api) > 0) { split(line, f, " "); if (f[1] == module) apple[f[2]] = 1 }
                }
                plain($2) in exported { print $1; next }
                {
                    name = $2; sub(/\(.*/, "", name)
                    if (name ~ /^Q[A-Za-z]*::/) { sub(/.*::/, "", name); if (name in apple) print $1 }
                }' >>"$stubs/$module.txt"
        sort -u -o "$stubs/$module.txt" "$stubs/$module.txt"
        write_stub "$stubs/$module.tbd" "@rpath/$module.framework/Versions/A/$module" "$arch" "$stubs/$module.txt"
        comm -12 "$logs/external.txt" "$stubs/$module.txt" >>"$logs/qt.txt"
    done
    sort -u -o "$logs/qt.txt" "$logs/qt.txt"

    # libc++ by its names; what is left is the frameworks' and the C library's.
    comm -23 "$logs/external.txt" "$logs/qt.txt" >"$logs/rest.txt"
    paste "$logs/rest.txt" <("$cxxfilt" -_ <"$logs/rest.txt") | cxx_symbols >"$logs/libc++.txt"
    write_stub "$stubs/libc++.tbd" /usr/lib/libc++.1.dylib "$arch" "$logs/libc++.txt"

    # Each program's linker arguments, as the build would link it (one file each, NUL-separated).
    local count=0 program inputs link_libraries item previous module
    : >"$logs/messages.txt"
    while IFS=$'\t' read -r program inputs link_libraries; do
        count=$((count + 1))
        {
            printf '%s\0' -o "$dir/linked/$(basename "$program")"
            for item in $inputs; do printf '%s\0' "$dir/$item"; done
            previous=""
            for item in $link_libraries; do
                [ "$item" = -Xlinker ] && continue
                case "$previous/$item" in
                */-framework) ;;
                -framework/*)
                    if [ -d "$sdk/System/Library/Frameworks/$item.framework" ]; then
                        printf '%s\0' -framework "$item"
                    else
                        # Qt's OpenGL dependency asks for AGL, which this SDK does not hold; nothing here uses
                        # it, and a symbol that needed it would be reported as undefined.
                        echo "-framework $item is not in the SDK: left out" >>"$logs/messages.txt"
                    fi
                    ;;
                *.o | *.a) printf '%s\0' "$dir/$item" ;;
                */libQt6*.so*)
                    module=$(basename "$item" | sed -E 's/^libQt6([A-Za-z]+)\.so.*/Qt\1/')
                    printf '%s\0' "$stubs/$module.tbd"
                    ;;
                *) echo "error: does not know how to link \"$item\"" >>"$logs/messages.txt" ;;
                esac
                previous=$item
            done
            printf '%s\0' "$stubs/libc++.tbd"
        } >"$logs/link-$count.args"
    done <"$logs/programs.txt"
    mkdir -p "$dir/linked"
    local common=(-arch "$arch" -platform_version macos "$target" "$sdk_version" -syslibroot "$sdk"
        -F"$sdk/System/Library/Frameworks" -demangle --error-limit=0)

    # What no framework, Qt, libc++ nor object defines: a first link that only warns of each such symbol.
    local n arguments
    : >"$logs/unresolved.txt"
    for n in $(seq "$count"); do
        mapfile -d '' arguments <"$logs/link-$n.args"
        "$lld" "${common[@]}" -flat_namespace -undefined warning "${arguments[@]}" 2>&1 |
            sed -n 's/^.*warning: undefined symbol: //p' >>"$logs/unresolved.txt" || true
    done
    # Their mangled names, for the C library's stub: the linker wrote them demangled.
    comm -23 "$logs/rest.txt" "$logs/libc++.txt" >"$logs/unmangled-rest.txt"
    sort -u -o "$logs/unresolved.txt" "$logs/unresolved.txt"
    paste "$logs/unmangled-rest.txt" <("$cxxfilt" -_ <"$logs/unmangled-rest.txt") |
        awk -F'\t' -v unresolved="$logs/unresolved.txt" '
            BEGIN { while ((getline line <unresolved) > 0) wanted[line] = 1 }
            ($2 in wanted) || (substr($1, 2) in wanted) || ($1 in wanted) { print $1 }' |
        c_library_symbols >"$logs/libSystem.txt"
    { cat "$logs/libSystem.txt" && echo dyld_stub_binder; } >"$logs/libSystem-stub.txt"
    write_stub "$stubs/libSystem.tbd" /usr/lib/libSystem.B.dylib "$arch" "$logs/libSystem-stub.txt"

    # The real link: every symbol that is still undefined is named, with the objects that need it.
    local failed=0 linked=0
    for n in $(seq "$count"); do
        mapfile -d '' arguments <"$logs/link-$n.args"
        if "$lld" "${common[@]}" "${arguments[@]}" "$stubs/libSystem.tbd" >"$logs/link.log" 2>&1; then
            linked=$((linked + 1))
        else
            failed=1
        fi
        # One line a message: "undefined symbol: X (referenced by A.o, B.o)".
        awk '
            function flush() { if (message != "") print message (refs ? " (referenced by " refs ")" : ""); message = "" }
            />>> referenced by / { ref = $0; sub(/.*referenced by /, "", ref); sub(/.*\//, "", ref)
                                  refs = refs (refs ? ", " : "") ref; next }
            /(error|warning): / { flush(); message = $0; sub(/^[^:]*: /, "", message); refs = ""; next }
            END { flush() }' "$logs/link.log" >>"$logs/messages.txt"
    done
    if [ -s "$logs/messages.txt" ]; then
        sort "$logs/messages.txt" | uniq -c | sed -E "s/^ *([0-9]+) (.*)/$arch: \2 [\1 of $count programs]/" >&2
    fi
    grep -q '^error: ' "$logs/messages.txt" && failed=1
    [ "$failed" = 0 ] || return 1

    local total internal qt cxx c frameworks
    total=$(wc -l <"$logs/undefined.txt")
    internal=$(comm -12 "$logs/undefined.txt" "$logs/defined.txt" | wc -l)
    qt=$(wc -l <"$logs/qt.txt")
    cxx=$(wc -l <"$logs/libc++.txt")
    c=$(wc -l <"$logs/libSystem.txt")
    frameworks=$((total - internal - qt - cxx - c))
    echo "$arch: macOS $target: $units translation units compiled, $linked programs linked;" \
        "$total symbols checked: $internal defined by the objects, $qt by Qt, $frameworks by the frameworks," \
        "$cxx by libc++, $c by the C library"
}

status=0
for arch in $archs; do
    check_arch "$arch" || status=1
done
[ "$status" = 0 ] && echo "check-macos-build: the macOS build compiles and links for: $archs (SDK $sdk_version)"
exit $status
