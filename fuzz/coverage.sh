#!/usr/bin/env bash
# Runs every fuzz target over its seeds, and over the folders of that name in FOLDER if one is given, and
# tells how many lines of src/ they reach: file by file, then in all.
#   fuzz/coverage.sh [FOLDER]
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/../cmake/prepare.sh"
cd "$root"
alone install_packages clang llvm libclang-rt-14-dev ninja-build cmake libssl-dev zlib1g-dev \
    libexpat1-dev libcsv-dev
alone configure_preset coverage
mapfile -t targets < <(fuzz_targets)
alone build_preset coverage "${targets[@]}"
place=build/coverage/runs
rm -rf "$place"
mkdir -p "$place"
objects=()
for target in "${targets[@]}"; do
    seeds=()
    for folder in "fuzz/corpus/$target" "${1:+$1/$target}"; do
        [ ! -d "$folder" ] || seeds+=("$folder")
    done
    LLVM_PROFILE_FILE=$place/$target.raw "build/coverage/$target" -runs=0 -timeout=60 \
        "${seeds[@]}" </dev/null >"$logs/coverage-$target.log" 2>&1
    objects+=(-object "build/coverage/$target")
done
llvm-profdata merge -o "$place/all" "$place"/*.raw
llvm-cov export -summary-only -instr-profile "$place/all" "${objects[@]}" |
    python3 fuzz/coverage_table.py
