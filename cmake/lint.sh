#!/usr/bin/env bash
# Static looks at src/, which take longer than ./test.sh may:
#   cmake/lint.sh          clang-tidy, then functions that nobody calls
#   cmake/lint.sh unused   the latter alone, which ./test.sh --all runs too
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/prepare.sh"
cd "$root"
alone install_packages cppcheck

if [ "${1-}" != unused ]; then
    alone install_packages clang clang-tidy "${run_packages[@]}"
    alone configure_preset debug
    mapfile -t files < <(find src -name '*.cpp' -not -path '*/windows/*')
    printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 1 \
        clang-tidy -p build/debug --quiet --warnings-as-errors='*'
fi

# What cppcheck says of other matters is left to clang-tidy, which sees the types.
log=$logs/cppcheck.log
cppcheck --enable=unusedFunction --inline-suppr --language=c++ --std=c++20 --quiet -I src src \
    >"$log" 2>&1
! grep '\[unusedFunction\]' "$log"
