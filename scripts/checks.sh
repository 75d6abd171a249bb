# shellcheck shell=bash
# What can be read off the sources and the release libraries without running them; sourced by ./vex, whose helpers it uses.

# ---- the release libraries ----------------------------------------------------------------------------------------------

readonly FRAME_LIMIT=4096 # bytes; workers have 100 KB of stack
# Known to be larger: the region's image, which a run must write even without memory; a file of 4 KB that a tester wrote.
readonly LARGE_FRAMES='publish_inventory|simulate_status'
readonly ALLOWED_NEEDED='libvexplatform-linux\.so\.1|libgcc_s\.so\.1|libc\.so\.6|ld-linux-armhf\.so\.3'
readonly FOREIGN='^(__cxa_(throw|allocate_exception|begin_catch|rethrow)|_Unwind_|_Zn|_Zd|__gxx_personality)'

# lacks LIBRARY OBJECTS: what a hardened library has and this one has not, one a line. OBJECTS: the folder of what it is made of.
lacks() {
    local library=$1 dynamic segments imports object
    dynamic=$(readelf -dW "$library")
    segments=$(readelf -lW "$library")
    imports=$(imports_of "$library")
    grep -qE '^__[a-z]+_chk$' <<<"$imports" || echo "calls that check their buffers (FORTIFY)"
    grep -qx '__stack_chk_fail' <<<"$imports" || echo "stack protector"
    grep -q 'GNU_RELRO' <<<"$segments" || echo "segment that is read-only after relocation (RELRO)"
    grep -qE 'BIND_NOW|FLAGS_1.*NOW' <<<"$dynamic" || echo "binding at load (NOW)"
    grep -qE 'GNU_STACK.* RW ' <<<"$segments" || echo "stack that cannot be executed (NX)"
    ! grep -q 'TEXTREL' <<<"$dynamic" || echo "code without relocations, has TEXTREL"
    grep 'NEEDED' <<<"$dynamic" | grep -vE "\[($ALLOWED_NEEDED)\]" | sed 's/.*\[\(.*\)\]/freedom from \1/'
    grep -E "$FOREIGN" <<<"$imports" | sed 's/^/freedom from /'
    # In the objects: the C library's start files, which the linker adds, have no such note.
    if readelf -h "$library" | grep -qE 'Machine: .*(X86-64|80386)'; then
        find "$2" -name '*.o' | while read -r object; do
            readelf -nW "$object" | grep -q 'IBT, SHSTK' || echo "branch targets (CET) in $(basename "$object")"
        done
    fi
    [ -n "$(find "$2" -name '*.su' -print -quit)" ] || echo "frame sizes from the compiler"
    find "$2" -name '*.su' -exec cat {} + | awk -F '\t' -v limit=$FRAME_LIMIT -v known="[: ]($LARGE_FRAMES)[(]" '
        $3 == "dynamic" || ($2 > limit && $1 !~ known) { print "frame of known size up to " limit " in " $0 }'
}

imports_of() { readelf --dyn-syms -W "$1" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }'; }

# largest_frame OBJECTS: of the functions that have no name to exceed the limit.
largest_frame() {
    find "$1" -name '*.su' -exec grep -hvE "[: ]($LARGE_FRAMES)[(]" {} + | awk -F '\t' '$2 > most { most = $2 } END { print most + 0 }'
}

# build_as_installed PRESET FOLDER: the release library without the build folder's place in it, and its frame sizes.
build_as_installed() {
    CXXFLAGS=-fstack-usage build "$1-release" "$2" -DBUILD_TESTING=OFF -DCMAKE_BUILD_WITH_INSTALL_RPATH=ON -- vexutils
}

# command_harden: what the release libraries are protected by, and whether a second folder gives the same bytes.
command_harden() {
    local preset folder library missing again status=0
    require "${BUILD_PACKAGES[@]}" binutils
    again=$(mktemp -d)
    git ls-files -zco --exclude-standard -- . ':!tests' ':!fuzz' | tar --null -T - -c | tar -x -C "$again"
    for preset in native i386 arm; do
        # shellcheck disable=SC2046 # a list of names
        provide $(packages_of "$preset") || continue
        folder=build/harden-$preset library=$folder/vexutils/libvexutils.so.1
        # A compiler cache that serves several folders writes other names into what helps a debugger.
        if ! (unset CCACHE_BASEDIR CCACHE_NOHASHDIR && build_as_installed "$preset" "$folder") ||
            ! (cd "$again" && CCACHE_DISABLE=1 build_as_installed "$preset" "$folder"); then
            rm -rf "$again"
            return 1
        fi
        missing=$(lacks "$library" "$folder/vexutils/CMakeFiles/vexutils_objects.dir")
        cmp "$library" "$again/$library" || missing=$missing${missing:+$'\n'}"the same bytes from another folder"
        echo "figures: R13 target=$preset hardened=$([ -z "$missing" ] && echo 1 || echo 0)" \
            "fortified=$(imports_of "$library" | grep -cE '^__[a-z]+_chk$') largest_frame=$(largest_frame "$folder/vexutils")"
        if [ -n "$missing" ]; then
            printf '%s\n' "$preset lacks:" "$missing"
            status=1
        fi
    done
    rm -rf "$again"
    return $status
}

# ---- the sources --------------------------------------------------------------------------------------------------------

readonly COMPLEXITY_LIMIT=25 LINES_LIMIT=150 # of a function

# findings LOG PATTERN COMMAND...: runs it and prints how many different lines of its output match, 1 if it fails without any.
findings() {
    local log=$1 pattern=$2 status=0 count
    shift 2
    "$@" >"$log" 2>&1 || status=1
    count=$(sort -u "$log" | grep -cE "$pattern") || true
    [ "$count" != 0 ] || count=$status
    echo "$count"
}

# Without the log statement, whose macro it cannot read: it sees calls of that name.
run_cppcheck() {
    cppcheck -q --std=c++20 --platform=unix32 --enable=warning,style,performance,portability --inline-suppr \
        --suppress=useStlAlgorithm -ULOG -ULOG_AS -Ivexutils -I. -Iplatform/include vexutils
}

run_tidy() { printf '%s\n' vexutils/*/*.cpp | xargs -P "${VEX_JOBS:-$(nproc)}" -n 1 clang-tidy-14 --quiet -p "$1"; }

# Complexity and length of each function of the library: "COMPLEXITY LINES PLACE NAME". Without the words for clang's check of
# locks, which the counter does not know.
measure_functions() {
    local plain=build/lint/plain file
    rm -rf "$plain"
    for file in vexutils/*/*.cpp; do
        mkdir -p "$plain/$(dirname "$file")"
        sed -E 's/ *VEX_(REQUIRES|TAKES|ACQUIRES|RELEASES)\([^)]*\)//; s/ VEX_UNCHECKED//; s/ VEX_SCOPED_LOCK//' "$file" >"$plain/$file"
    done
    (cd "$plain" && pmccabe vexutils/*/*.cpp) | awk -F '\t' '{ print $2, $5, $6 }'
}

# command_lint: static checks of the library and of the shell code; fails on any finding.
command_lint() {
    local folder=build/lint cppcheck tidy shell large findings
    require "${BUILD_PACKAGES[@]}" clang-14 clang-tidy-14 cppcheck pmccabe shellcheck
    run_logged "$folder/configure.log" cmake --preset native-clang -B "$folder" -DBUILD_TESTING=OFF || return 1
    say "cppcheck"
    cppcheck=$(findings "$folder/cppcheck.log" '^[^ ].*: (error|warning|style|performance|portability):' run_cppcheck)
    say "clang-tidy, some minutes"
    tidy=$(findings "$folder/tidy.log" '(warning|error):' run_tidy "$folder")
    say "shellcheck and pmccabe"
    shell=$(findings "$folder/shellcheck.log" '^In ' shellcheck vex scripts/*.sh)
    measure_functions >"$folder/functions" 2>"$folder/large.log" || true
    awk -v complexity=$COMPLEXITY_LIMIT -v lines=$LINES_LIMIT '
        $1 > complexity || $2 > lines { print "too complex or too long: " $0 }
        END { if (!NR) print "no functions" }' "$folder/functions" >>"$folder/large.log"
    large=$(wc -l <"$folder/large.log")
    findings=$((cppcheck + tidy + shell + large))
    echo "figures: R14 findings=$findings cppcheck=$cppcheck clang_tidy=$tidy shellcheck=$shell large=$large" \
        "$(awk '$1 > c { c = $1 } $2 > l { l = $2 } END { print "functions=" NR " complexity=" c " function_lines=" l }' "$folder/functions")"
    [ $findings = 0 ] || { cat "$folder"/{cppcheck,tidy,shellcheck,large}.log; return 1; }
}
