#!/usr/bin/env bash
# Builds quilt if need be and runs it: ./run.sh [quilt arguments]
# Without arguments it lists the applications of the sample database.
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/cmake/prepare.sh"

quilt=$root/build/release/quilt

prepare() {
    if [ ! -x "$quilt" ]; then
        echo "run.sh: preparing quilt, this takes a minute or two (logs in build/logs)" >&2
    fi
    install_packages "${run_packages[@]}"
    if [ ! "$root/build/release/build.ninja" -nt "$root/CMakePresets.json" ]; then
        configure_preset release
    fi
    build_preset release quilt
}
alone prepare

if [ $# -eq 0 ]; then
    set -- -sdb "$root/examples/sample.sdb" -apps
fi
exec "$quilt" "$@"
