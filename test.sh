#!/usr/bin/env bash
# Builds quilt and runs its tests; ends with the line "N passed, N failed".
#   ./test.sh        the release build: quilt_tests, whole runs, and volume images
#   ./test.sh --all  also the format check, the sanitizer builds, the Windows build under
#                    Wine, a short run of every fuzz target, and a report and a form added
#                    to a copy of the tree
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

passed=0

heading() { printf '== %s\n' "$1"; }

# Shows what a failed step wrote and ends the run.
fail() { # log failed-count
    tail -n 500 "$1"
    printf '%d passed, %d failed\n' "$passed" "$2"
    exit 1
}

build() { # preset target...
    heading "build $1"
    alone configure_preset "$1"
    alone build_preset "$@"
}

# Runs a GoogleTest program. A run that tells no number of tests, or none passed, has failed.
unit_tests() { # name command...
    local log=$logs/$1.log count bad status=0
    heading "$1"
    timeout 300 "${@:2}" --gtest_brief=1 </dev/null >"$log" 2>&1 || status=$?
    count=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\?\..*/\1/p' "$log")
    bad=$(sed -n 's/^\[  FAILED  \] \([0-9]*\) tests\?, .*/\1/p' "$log")
    passed=$((passed + ${count:-0}))
    if [ "$status" -ne 0 ] || [ "${count:-0}" -eq 0 ]; then
        fail "$log" "${bad:-1}"
    fi
    grep -a '^\[  SKIPPED \] [0-9]* test' "$log" || true
}

# Runs a script of tests, whose last line is "N passed, N failed" and which names on lines of their
# own those that it skipped.
script_tests() { # name script argument...
    local log=$logs/$1.log status=0 words
    heading "$1"
    timeout 600 python3 "tests/$2" "${@:3}" </dev/null >"$log" 2>&1 || status=$?
    if [[ $(tail -n 1 "$log") =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
        words=("${BASH_REMATCH[@]:1}")
    else
        words=(0 1)
    fi
    passed=$((passed + words[0]))
    if [ "$status" -ne 0 ] || [ "${words[1]}" -ne 0 ] || [ "${words[0]}" -eq 0 ]; then
        fail "$log" "$((words[1] > 0 ? words[1] : 1))"
    fi
    grep -a '^skipped: ' "$log" || true
}

# Whole runs of the programs of one build.
report_tests() { # name-suffix folder argument...
    local subject
    for subject in reports forms json options targets; do
        script_tests "$subject$1" "${subject}_test.py" --quilt "$2/quilt" "${@:3}"
    done
}
volume_tests() { # name-suffix folder argument...
    script_tests "volumes$1" volumes_test.py --quilt "$2/quilt" --reader "$2/read_volume" "${@:3}"
    [ "$1" = -windows ] || script_tests "images$1" images_test.py --quilt "$2/quilt"
}

format_check() {
    local folders=() folder files
    heading 'format check'
    for folder in src tests fuzz bench; do
        [ ! -d "$folder" ] || folders+=("$folder")
    done
    mapfile -t files < <(find "${folders[@]}" -name '*.cpp' -o -name '*.h')
    clang-format --dry-run -Werror "${files[@]}" >"$logs/format.log" 2>&1 ||
        fail "$logs/format.log" 1
    passed=$((passed + 1))
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
    local database=build/tsan/large.sdb options words log=$logs/threads.log
    heading 'threads'
    build/release/make_large_database 3000000 "$database" >"$log" 2>&1 || fail "$log" 1
    for options in -apps '-apps -multiline -threads 8' '-apps -json' -stats; do
        read -ra words <<<"$options"
        for program in release tsan; do
            timeout 300 "build/$program/quilt" -sdb "$database" -quiet "${words[@]}" \
                >"build/tsan/$program.out" 2>"$log" </dev/null || fail "$log" 1
        done
        # The run header has another time and program.
        diff <(grep -av '^run time: \|^"cmdline: \|^{"kind":"run"' build/tsan/release.out) \
            <(grep -av '^run time: \|^"cmdline: \|^{"kind":"run"' build/tsan/tsan.out) >"$log" || fail "$log" 1
        passed=$((passed + 1))
    done
    script_tests lists-tsan targets_test.py --quilt build/tsan/quilt --only any_number_of_threads
}

# Runs one fuzz target on its seeds and what it makes of them. Answers by the file "status".
fuzz_target() { # name
    local place=build/fuzz/runs/$1 seeds=() more=()
    rm -rf "$place/corpus" "$place/status"
    mkdir -p "$place/corpus" "$place/artifacts"
    [ ! -d "fuzz/corpus/$1" ] || seeds+=("fuzz/corpus/$1")
    case $1 in
    listing* | match*) more=(-dict=build/fuzz/tags.dict) && seeds+=(build/fuzz/samples) ;;
    esac
    "build/fuzz/$1" -runs=20000 -max_total_time=15 -timeout=5 -malloc_limit_mb=512 -seed=1 \
        -artifact_prefix="$place/artifacts/" "${more[@]}" "$place/corpus" "${seeds[@]}" \
        </dev/null >"$logs/fuzz-$1.log" 2>&1 && echo passed >"$place/status"
}

fuzz_smoke() {
    local names name
    heading 'fuzz targets'
    mapfile -t names < <(fuzz_targets)
    rm -rf build/fuzz/samples
    mkdir build/fuzz/samples
    cp examples/*.sdb build/fuzz/samples
    fuzz_dictionary >build/fuzz/tags.dict
    export logs
    export -f fuzz_target
    printf '%s\n' "${names[@]}" | xargs -P "$(nproc)" -I '{}' bash -c 'fuzz_target "$1" || true' - '{}'
    for name in "${names[@]}"; do
        [ -e "build/fuzz/runs/$name/status" ] || fail "$logs/fuzz-$name.log" 1
        passed=$((passed + 1))
    done
}

cd "$root"
heading 'packages'
if $all; then
    alone install_packages "${all_packages[@]}"
    format_check
else
    alone install_packages "${test_packages[@]}"
fi

script_tests house house_test.py
build release
unit_tests quilt_tests build/release/quilt_tests
report_tests '' build/release
script_tests memory memory_test.py --quilt build/release/quilt
script_tests faults faults_test.py --quilt build/release/quilt
volume_tests '' build/release

if $all; then
    export UBSAN_OPTIONS=print_stacktrace=1
    build asan
    unit_tests quilt_tests-asan build/asan/quilt_tests
    report_tests -asan build/asan
    script_tests pe_files-asan pe_files_test.py --quilt build/asan/quilt
    volume_tests -asan build/asan

    build tsan quilt
    thread_tests

    heading 'unused functions'
    logged unused cmake/lint.sh unused
    script_tests costs costs_test.py --quilt build/release/quilt
    script_tests patches house_test.py --patches build/release/quilt

    build windows
    start_wine
    unit_tests quilt_tests-windows wine build/windows/quilt_tests.exe
    report_tests -windows build/release --windows 'wine build/windows/quilt.exe'
    script_tests pe_files-windows pe_files_test.py --quilt build/release/quilt \
        --windows 'wine build/windows/quilt.exe'
    volume_tests -windows build/release --windows 'wine build/windows/quilt.exe' \
        --windows-reader 'wine build/windows/read_volume.exe' --only Wine

    build fuzz
    fuzz_smoke
fi

printf '%d passed, 0 failed\n' "$passed"
