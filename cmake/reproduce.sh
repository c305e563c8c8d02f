#!/usr/bin/env bash
# Builds the Linux packages twice, from copies of the source in two places, and compares them: cmake/reproduce.sh
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/prepare.sh"
alone install_packages "${run_packages[@]}" dpkg-dev python3

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
for copy in first/one second/one/further; do
    mkdir -p "$place/$copy"
    tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$place/$copy" -xf -
    (
        cd "$place/$copy"
        cmake --preset release
        cmake --build --preset release -j "$(nproc)" --target quilt quilt_static
        for kind in DEB TGZ; do
            cpack -G "$kind" --config build/release/CPackConfig.cmake
        done
    ) >"$logs/reproduce.log" 2>&1 || { cat "$logs/reproduce.log" >&2 && exit 1; }
done
(cd "$place/first/one" && sha256sum ./*.deb ./*.tar.gz) | (cd "$place/second/one/further" && sha256sum -c)
