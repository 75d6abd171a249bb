# shellcheck shell=bash
# The reliability goals and what a run reaches of them; sourced by ./vex, whose helpers it uses.
# Harnesses print "figures: ID name=number ..." lines, which end up in the logs of ctest and of ./vex fuzz.

# ---- what a build must keep ---------------------------------------------------------------------------------------------

# record_abi PRESET LIBRARY FILE
record_abi() {
    abidw --no-show-locs --no-corpus-path --no-comp-dir-path --drop-private-types --exported-interfaces-only \
        --headers-dir vexutils --headers-dir platform/include --out-file "$2" "$1"
}

# command_abi [--record]: compares the library's binary interface with the recorded one, per machine model.
command_abi() {
    local preset folder library baseline status=0
    case ${1:-} in '' | --record) ;; *) die "abi: unknown argument '$1', expected --record" 2 ;; esac
    require "${BUILD_PACKAGES[@]}" abigail-tools
    for preset in native i386 arm; do
        # shellcheck disable=SC2046 # a list of names
        provide $(packages_of "$preset") || continue
        folder=build/abi-$preset library=$folder/vexutils/libvexutils.so.1 baseline=abi/$preset.abi
        build "$preset-release" "$folder" -DBUILD_TESTING=OFF -DCMAKE_CXX_FLAGS_RELEASE="-O2 -g" -- vexutils || return 1
        if [ "${1:-}" = --record ]; then
            record_abi "$library" "$baseline"
            say "$preset: recorded in $baseline"
        elif abidiff --no-added-syms "$baseline" "$library" >"$folder/report" 2>&1; then
            echo "figures: R12 same=1 model=$preset"
        else
            cat "$folder/report"
            say "$preset: the binary interface differs from $baseline; meant? then: ./vex abi --record"
            status=1
        fi
    done
    return $status
}

# What reads foreign bytes, copies records, keeps the cache and publishes: no line or branch of it may be left out.
COVERED_WHOLE='vexutils/(rt_(dup|cache)/|rt_shm/(fqdd_text|rt_shm_(topology|pciessd_fru|fru|slots|update(_drives)?|regions|bpapi|simulation|pciessd(_topology)?))\.|rt_shm/snapshot|internal/wide_text)'

# command_coverage: lines and branches of the library that its unit tests, the fault sweep and the stored inputs run, on i386.
command_coverage() {
    local folder=build/coverage lines branches whole
    require "${BUILD_PACKAGES[@]}" googletest g++-12-multilib gcovr
    say "building with counters"
    build i386 "$folder" -DVEX_COVERAGE=ON -DVEX_SANITIZE= \
        -DCMAKE_CXX_FLAGS_DEBUG=-O0 -- unit_tests fault_tests fuzz_replay || return 1
    find "$folder" -name '*.gcda' -delete
    run_logged "$folder/test.log" ctest --test-dir "$folder" -R '^(unit|fault)_tests$' --output-on-failure &&
        run_logged "$folder/replay.log" "$folder/fuzz/fuzz_replay" fuzz/corpus &&
        run_logged "$folder/replay.log" "$folder/fuzz/fuzz_replay" fuzz/corpus 16 || return 1
    run_logged "$folder/gcovr.log" gcovr -r . --gcov-executable gcov-12 --branches --exclude-throw-branches -f vexutils/ \
        --txt "$folder/by-branch" --json "$folder/all.json" --json-summary "$folder/summary.json" "$folder" || return 1
    run_logged "$folder/whole.log" gcovr -r . -a "$folder/all.json" -f "$COVERED_WHOLE" --print-summary \
        --json-summary "$folder/whole.json" || return 1
    # The total of branches stands before the files, that of lines behind them.
    lines=$(percent line "$folder/summary.json" | tail -n 1)
    branches=$(percent branch "$folder/summary.json" | head -n 1)
    whole=$({ percent branch "$folder/whole.json"; percent line "$folder/whole.json"; } | sort -n | head -n 1)
    echo "figures: R10 branches=$branches lines=$lines whole=$whole"
    awk "BEGIN { exit !($lines >= 99 && $branches >= 97 && $whole >= 100) }" ||
        { say "expected 99 % of lines, 97 % of branches, and 100 % of what must be whole: see $folder/by-branch"; return 1; }
}

percent() { grep -oE "\"$1_percent\": [0-9.]+" "$2" | grep -oE '[0-9.]+$'; }

# build_plain TARGET...: tests without sanitizers, which are the fastest.
build_plain() { build i386 build/mutate -DVEX_SANITIZE= -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -- "$@"; }

# command_mutate [--seed N] [COUNT [SOURCE...]]: how many changed branches of the library the tests notice.
command_mutate() {
    local folder=build/mutate
    require "${BUILD_PACKAGES[@]}" googletest g++-12-multilib python3 lld
    say "building"
    build_plain unit_tests fault_tests fuzz_replay system_tools_tests || return 1
    scripts/mutate.py --build "$folder" "$@"
}

# command_plants: whether each harness notices a defect that is put there for it.
command_plants() {
    require "${BUILD_PACKAGES[@]}" googletest g++-12-multilib clang-14 libclang-rt-14-dev valgrind abigail-tools python3
    scripts/plants.py
}

# compare_regions: whether the shipped scenario leaves the same bytes in every region, whatever the machine model.
compare_regions() {
    local preset run region equal=0 different=0
    for preset in native i386 arm; do
        run=()
        [ $preset != arm ] || run=(qemu-arm -L /usr/arm-linux-gnueabihf)
        VEX_SHM_NAMESPACE=vexgoals$$$preset VEX_DEBUG_LOG=none VEX_EVENT_LOG=build/goals/events.$preset \
            "${run[@]}" "build/$preset/bin/vexsim" --keep --state build/goals/state >/dev/null || return 1
    done
    for region in "/dev/shm/vexgoals$$native".*; do
        for preset in i386 arm; do
            if cmp -s "$region" "${region/native/$preset}"; then
                equal=$((equal + 1))
            else
                different=$((different + 1))
            fi
        done
    done
    rm -f "/dev/shm/vexgoals$$"*
    echo "figures: R15 equal=$equal different=$different"
    [ $different = 0 ]
}

# repeat_plain: lives without end, unit tests in any order, and threads where no sanitizer sets their pace.
repeat_plain() {
    local tests=build/mutate/tests
    build_plain unit_tests fault_tests thread_tests &&
        VEX_TEST_LIVES=100000 $tests/faults/fault_tests --gtest_filter='*Lives*' &&
        $tests/unit_tests --gtest_shuffle --gtest_repeat=20 --gtest_brief=1 &&
        echo "figures: R18 rounds=20 failures=0" &&
        VEX_TEST_EVENTS=4500000 timeout 600 $tests/threads/thread_tests | sed 's/ operations=/ plain_operations=/' &&
        VEX_TEST_EVENTS=450000 timeout 600 qemu-arm -L /usr/arm-linux-gnueabihf build/arm/tests/threads/thread_tests |
        sed 's/ operations=/ arm_operations=/'
}

# command_soak [MINUTES]: threads, kills and shuffled unit tests over and over.
command_soak() {
    local minutes=${1:-30} rounds=0 end
    case $minutes in '' | *[!0-9]*) die "soak: expected a number of minutes, got '$minutes'" 2 ;; esac
    require "${BUILD_PACKAGES[@]}" googletest g++-12-multilib clang-14 libclang-rt-14-dev
    say "building"
    build native-tsan build/native-tsan -- thread_tests && build i386 build/i386 || return 1
    end=$((SECONDS + 60 * minutes))
    while [ $SECONDS -lt $end ] || [ $rounds = 0 ]; do
        rounds=$((rounds + 1))
        if ! { run_logged build/soak/threads.log ctest --test-dir build/native-tsan -R '^thread_tests$' --output-on-failure &&
            run_logged build/soak/kills.log ctest --test-dir build/i386 -R '^system_shm_kill_tests$' --output-on-failure &&
            run_logged build/soak/unit.log build/i386/tests/unit_tests --gtest_shuffle --gtest_repeat=5 \
                --gtest_recreate_environments_when_repeating --gtest_brief=1; }; then
            say "round $rounds failed"
            return 1
        fi
        say "round $rounds passed, $(((end - SECONDS) / 60)) minutes to go"
    done
}

# ---- the sheet ----------------------------------------------------------------------------------------------------------

# figure HOW ID NAME: of this run's figures the sum, the least or the most; nothing if there is none.
figure() {
    awk -v how="$1" -v id="$2" -v name="$3=" '
        $2 == id { for (i = 3; i <= NF; ++i) if (index($i, name) == 1) {
            value = substr($i, length(name) + 1) + 0
            if (how == "sum") result += value
            else if (!found || (how == "most" ? value > result : value < result)) result = value
            found = 1 } }
        END { if (found) print result }' build/goals/figures
}

# row ID PROMISE HOW NAME RELATION GOAL: one line of the sheet; counts in MET and ROWS.
row() {
    local value verdict=no
    value=$(figure "$3" "$1" "$4")
    ROWS=$((ROWS + 1))
    if [ -z "$value" ]; then
        value=- verdict="not run"
    elif awk "BEGIN { exit !($value $5 $6) }"; then
        verdict=yes MET=$((MET + 1))
    fi
    printf '%-4s %-56s %12s %3s %-8s %s\n' "$1" "$2" "$value" "$5" "$6" "$verdict"
}

# stage NAME COMMAND...: one harness of the sheet; its output, with its figures, goes to a log of that name.
stage() {
    local name=$1 began=$SECONDS result="done"
    shift
    ("$@") >"build/goals/$name.log" 2>&1 || result=failed
    say "$name: $result in $((SECONDS - began)) s"
    [ "$result" = "done" ] || FAILED="$FAILED $name"
}

# thread_stage: building is a check of its own, since clang refuses what takes no lock.
thread_stage() {
    test_preset native-tsan thread_tests && echo "figures: R6 findings=0"
}

# command_goals [SECONDS]: runs the harnesses, fuzzing each target for so long, and prints the sheet.
command_goals() {
    local seconds=${1:-15} preset
    case $seconds in '' | *[!0-9]*) die "goals: expected the seconds to fuzz each target, got '$seconds'" 2 ;; esac
    rm -rf build/goals
    mkdir -p build/goals
    FAILED=
    stage threads thread_stage
    stage test command_test native i386 arm
    stage regions compare_regions
    stage fuzz command_fuzz "$seconds"
    stage coverage command_coverage
    stage mutate command_mutate 600
    stage repeat repeat_plain
    stage valgrind check_release
    stage abi command_abi
    stage harden command_harden
    stage lint command_lint
    stage plants command_plants
    # Each figure from where it says most: threads under their sanitizer, kills from the 32-bit models, the rest from i386.
    # A publisher with a planted defect shows only that the readers notice.
    {
        grep -h '^figures: R5' build/native-tsan/Testing/Temporary/LastTest.log
        grep -hE '^figures: R[0-9]+' build/i386/Testing/Temporary/LastTest.log | grep -vE ' R(5|8) |one-copy'
        grep -h '^figures: R7' build/arm/Testing/Temporary/LastTest.log | grep -v one-copy
        grep -hE '^figures: R' build/goals/*.log
    } >build/goals/figures || true
    print_sheet | tee build/goals/sheet
    [ -z "$FAILED" ] || die "failed:$FAILED, see build/goals"
}

print_sheet() {
    MET=0 ROWS=0
    printf '%-4s %-56s %12s %-12s %s\n' Goal Promise "This run" "    Goal" Met
    row R1 "failed allocations survived" sum allocation_failures '>=' 20000
    row R2 "failed platform calls survived" sum platform_failures '>=' 5000
    row R2 "pairs of failures survived" sum pairs '>=' 10000
    row R3 "fuzz findings" sum findings '==' 0
    row R3 "executions of the slowest target" least executions '>=' 50000
    row R3 "executions of the parser that keeps no state" least parser_executions '>=' 300000
    row R4 "broken inputs refused or clamped" sum parses '>=' 42896
    row R5 "operations under the thread sanitizer" sum operations '>=' 3000000
    row R5 "operations without it, i386" sum plain_operations '>=' 20000000
    row R5 "operations without it, arm" sum arm_operations '>=' 2000000
    row R6 "places that take no lock, for the compiler" sum findings '==' 0
    row R7 "publishers killed (i386 and arm)" sum kills '>=' 6000
    row R7 "kills in each write that the next start repaired" sum kills_at_writes '>=' 48
    row R7 "reads meanwhile" sum reads '>=' 100000
    row R7 "reads torn" sum torn '==' 0
    row R8 "lives that left nothing behind" sum lives '>=' 100000
    row R9 "undefined bytes that left the library" sum undefined '==' 0
    row R10 "lines run by tests, %" sum lines '>=' 99
    row R10 "branches run by tests, %" sum branches '>=' 97
    row R10 "of parsers, copies, cache and publisher, the lesser, %" sum whole '>=' 100
    row R11 "changed branches noticed, %" sum score '>=' 85
    row R11 "the same in parsers, copies and cache, %" sum strict '>=' 95
    row R12 "machine models whose binary interface is as recorded" sum same '>=' 3
    row R13 "release libraries hardened as promised" sum hardened '>=' 3
    row R14 "findings of the static checks" sum findings '==' 0
    row R15 "regions that differ between machine models" sum different '==' 0
    row R16 "seconds of the slowest fuzzed input" most slowest '<=' 1
    row R16 "milliseconds until a waiting worker has its event" most woken_ms '<=' 100
    row R16 "milliseconds of an end with a worker waiting" most ended_ms '<=' 1000
    row R17 "calls with odd clocks and failing disks" sum clock_and_disk_calls '>=' 1000
    row R18 "rounds of shuffled tests without a failure" sum rounds '>=' 20
    row R19 "planted defects missed" sum missed '==' 0
    echo "$MET of $ROWS goals met on $(date -u +%F), $(nproc) cores of $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)"
}
