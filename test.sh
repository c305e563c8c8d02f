#!/usr/bin/env bash
# Builds quilt and runs its tests; ends with the line "N passed, N failed".
#   ./test.sh        the release build: quilt_tests, whole runs, and volume images
#   ./test.sh --all  also the format check, the sanitizer builds, the Windows build under
#                    Wine, a short run of every fuzz target, a fleet of workers, the packages, and
#                    a report and a form added to a copy of the tree
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/cmake/prepare.sh"

case "$*" in
'') all=false ;;
--all) all=true ;;
*)
    echo 'usage: ./test.sh [--all]' >&2
    exit 2
    ;;
esac

# What came of each step: <name>.passed and <name>.failed, with the number of tests, and .ended where it
# ended well. (Of a process that ended long ago its number may be another's.)
counts=$logs/counts
rm -rf "$counts"
mkdir "$counts"
steps=0

heading() { printf '== %s\n' "$1"; }

count() { # name passed-or-failed number
    printf '%s\n' "$3" >"$counts/$1.$2"
}

total() { # passed-or-failed
    find "$counts" -name "*.$1" -exec cat {} + | awk '{ sum += $1 } END { print sum + 0 }'
}

# Starts a step, beside others where there are processors for it.
beside() { # function argument...
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do
        sleep 0.2
    done
    steps=$((steps + 1))
    {
        "$@"
        : >"$counts/$steps.ended"
    } &
}

# Waits for the steps that were started. The run ends where one of them failed.
end_steps() {
    local bad
    wait
    if [ "$(find "$counts" -name '*.ended' | wc -l)" -ne "$steps" ]; then
        bad=$(total failed) # none where a step ended without a word
        printf '%d passed, %d failed\n' "$(total passed)" "$((bad > 0 ? bad : 1))"
        exit 1
    fi
}

# A step that nothing runs beside.
step() { # function argument...
    end_steps
    beside "$@"
    end_steps
}

# Shows what a failed step wrote and ends it.
fail() { # name log failed-count
    tail -n 500 "$2"
    count "$1" failed "$3"
    exit 1
}

build() { # preset target...
    heading "build $1"
    alone configure_preset "$1"
    alone build_preset "$@"
}

# Runs a GoogleTest program. A run that tells no number of tests, or none passed, has failed.
unit_tests() { # name command...
    local log=$logs/$1.log passed bad status=0
    heading "$1"
    timeout 600 "${@:2}" --gtest_brief=1 </dev/null >"$log" 2>&1 || status=$?
    passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\?\..*/\1/p' "$log")
    bad=$(sed -n 's/^\[  FAILED  \] \([0-9]*\) tests\?, .*/\1/p' "$log")
    count "$1" passed "${passed:-0}"
    if [ "$status" -ne 0 ] || [ "${passed:-0}" -eq 0 ]; then
        fail "$1" "$log" "${bad:-1}"
    fi
    grep -a '^\[  SKIPPED \] [0-9]* test' "$log" || true
}

# Runs a script of tests, whose last line is "N passed, N failed" and which names on lines of their
# own those that it skipped.
script_tests() { # name script argument...
    local log=$logs/$1.log status=0 words=(0 1)
    heading "$1"
    timeout 600 "$python" "tests/$2" "${@:3}" </dev/null >"$log" 2>&1 || status=$?
    if [[ $(tail -n 1 "$log") =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
        words=("${BASH_REMATCH[@]:1}")
    fi
    count "$1" passed "${words[0]}"
    if [ "$status" -ne 0 ] || [ "${words[1]}" -ne 0 ] || [ "${words[0]}" -eq 0 ]; then
        fail "$1" "$log" "$((words[1] > 0 ? words[1] : 1))"
    fi
    grep -a '^skipped: ' "$log" || true
}

volume_tests() { # name-suffix folder argument...
    beside script_tests "volumes$1" volumes_test.py --quilt "$2/quilt" --reader "$2/read_volume" "${@:3}"
    [ "$1" = -windows ] || beside script_tests "images$1" images_test.py --quilt "$2/quilt"
}

format_check() {
    local folders=() folder files
    heading 'format check'
    for folder in src tests fuzz bench; do
        [ ! -d "$folder" ] || folders+=("$folder")
    done
    mapfile -t files < <(find "${folders[@]}" -name '*.cpp' -o -name '*.h')
    clang-format --dry-run -Werror "${files[@]}" >"$logs/format.log" 2>&1 ||
        fail format "$logs/format.log" 1
    count format passed 1
}

# A prefix of our own, and one Wine server for all runs: services that a test's own Wine
# started would keep that test's pipes open.
start_wine() {
    export WINEPREFIX=$root/build/wineprefix WINEDEBUG=-all
    export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
    unset DISPLAY WAYLAND_DISPLAY
    heading 'start wine'
    trap 'wineserver -k || true' EXIT
    mkdir -p "$WINEPREFIX"
    logged wine wineserver -p
    logged wine timeout 300 wineboot -u
}

# Long work by several threads: no data race, and the bytes of the release program.
thread_tests() {
    local database=build/tsan/large.sdb other=build/tsan/other.sdb options words passed=0 log=$logs/threads.log
    local header='^run time: \|^"cmdline: \|^{"kind":"run"\|^<title>\|^<dt>time\|^<dt>command line'
    heading 'threads'
    build/release/make_large_database 3000000 "$database" >"$log" 2>&1 || fail threads "$log" 1
    build/release/make_large_database 3000000 "$other" shared >"$log" 2>&1 || fail threads "$log" 1
    for options in -apps '-apps -multiline -threads 8' '-apps -json' '-apps -html' -stats -explain \
        "-diff $database" "-diff $other"; do
        read -ra words <<<"$options"
        for program in release tsan; do
            timeout 300 "build/$program/quilt" -sdb "$database" -quiet "${words[@]}" \
                >"build/tsan/$program.out" 2>"$log" </dev/null || fail threads "$log" 1
        done
        # The run header has another time and program.
        diff <(grep -av "$header" build/tsan/release.out) <(grep -av "$header" build/tsan/tsan.out) >"$log" ||
            fail threads "$log" 1
        count threads passed $((++passed))
    done
    script_tests lists-tsan targets_test.py --quilt build/tsan/quilt --only any_number_of_threads
}

unused_functions() {
    heading 'unused functions'
    logged unused cmake/lint.sh unused
}

# Runs one fuzz target on its seeds and what it makes of them. Answers by the file "status".
fuzz_target() { # name
    local place=build/asan/runs/$1 seeds=() more=()
    rm -rf "$place/corpus" "$place/status"
    mkdir -p "$place/corpus" "$place/artifacts"
    [ ! -d "fuzz/corpus/$1" ] || seeds+=("fuzz/corpus/$1")
    case $1 in
    listing* | match*) more=(-dict=build/asan/tags.dict) && seeds+=(build/asan/samples) ;;
    esac
    "build/asan/$1" -runs=20000 -max_total_time=10 -timeout=5 -malloc_limit_mb=512 -seed=1 \
        -artifact_prefix="$place/artifacts/" "${more[@]}" "$place/corpus" "${seeds[@]}" \
        </dev/null >"$logs/fuzz-$1.log" 2>&1 && echo passed >"$place/status"
}

fuzz_smoke() {
    local names name passed=0
    heading 'fuzz targets'
    mapfile -t names < <(fuzz_targets)
    rm -rf build/asan/samples
    mkdir build/asan/samples
    cp examples/*.sdb build/asan/samples
    fuzz_dictionary >build/asan/tags.dict
    export logs
    export -f fuzz_target
    printf '%s\n' "${names[@]}" | xargs -P "$(nproc)" -I '{}' bash -c 'fuzz_target "$1" || true' - '{}'
    for name in "${names[@]}"; do
        [ -e "build/asan/runs/$name/status" ] || fail fuzz "$logs/fuzz-$name.log" 1
        count fuzz passed $((++passed))
    done
}

cd "$root"
trap 'trap "" TERM; kill 0; exit 130' INT
# The first read of a file marks it; then tests may read side by side what must stay as it is.
cat examples/* >/dev/null
heading 'packages'
if $all; then
    alone install_packages "${all_packages[@]}"
    step format_check
else
    alone install_packages "${test_packages[@]}"
fi

step script_tests house house_test.py
build release
if $all; then most=200; else most=40; fi
beside script_tests faults faults_test.py --quilt build/release/quilt --most $most
beside unit_tests quilt_tests build/release/quilt_tests
for subject in reports forms json html recipes options targets; do
    beside script_tests "$subject" "${subject}_test.py" --quilt build/release/quilt
done
for subject in memory pages guide; do
    beside script_tests "$subject" "${subject}_test.py" --quilt build/release/quilt
done
volume_tests '' build/release
end_steps

if $all; then
    export UBSAN_OPTIONS=print_stacktrace=1
    build asan
    beside script_tests forms-asan forms_test.py --quilt build/asan/quilt
    beside unit_tests quilt_tests-asan build/asan/quilt_tests
    for subject in reports json html options targets pe_files; do
        beside script_tests "$subject-asan" "${subject}_test.py" --quilt build/asan/quilt
    done
    volume_tests -asan build/asan
    beside script_tests fleet fleet_test.py --quilt build/release/quilt
    step fuzz_smoke

    build tsan quilt
    beside thread_tests
    beside unused_functions
    beside script_tests browser browser_test.py --quilt build/release/quilt
    beside script_tests patches house_test.py --patches build/release/quilt
    step script_tests costs costs_test.py --quilt build/release/quilt

    # One after the other, as they change back the times of what they read.
    build windows
    alone build_preset release quilt_static
    start_wine
    step unit_tests quilt_tests-windows wine build/windows/quilt_tests.exe
    for subject in reports forms json html options targets pe_files; do
        step script_tests "$subject-windows" "${subject}_test.py" --quilt build/release/quilt \
            --windows 'wine build/windows/quilt.exe'
    done
    step script_tests packages packages_test.py --quilt build/release/quilt \
        --windows 'wine build/windows/quilt.exe'
    volume_tests -windows build/release --windows 'wine build/windows/quilt.exe' \
        --windows-reader 'wine build/windows/read_volume.exe' --only Wine
    end_steps
fi

printf '%d passed, 0 failed\n' "$(total passed)"
