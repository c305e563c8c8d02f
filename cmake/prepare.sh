# Sourced by run.sh and test.sh: the Debian packages that each needs, and the build.
# Nothing here writes to standard output.

run_packages=(g++ cmake ninja-build libssl-dev zlib1g-dev libewf-dev)
test_packages=("${run_packages[@]}" googletest python3 python3-jsonschema sleuthkit libhivex-bin ntfs-3g jq sqlite3
    mount fdisk gdisk ewf-tools xxd)
all_packages=("${test_packages[@]}" clang libclang-rt-14-dev clang-format
    g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 libxml2-utils
    gcc-mingw-w64-i686-posix icoutils dosfstools e2fsprogs exfatprogs patch
    libexpat1-dev libcsv-dev cppcheck chromium-driver poppler-utils
    mandoc zsh fish python3-distributed mmdebstrap dpkg-dev xz-utils nix-bin)

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
mkdir -p "$logs"
# The one for which packages are installed, whatever else comes first in PATH.
python=/usr/bin/python3
[ -x "$python" ] || python=python3

# Runs a command with its output in a log file, which is shown on failure alone.
logged() { # log-name command...
    local log=$logs/$1.log
    shift
    if ! "$@" </dev/null >"$log" 2>&1; then
        cat "$log" >&2
        printf '%s: failed: %s\n' "${0##*/}" "$*" >&2
        return 1
    fi
}

# Two runs of a pipeline, say, must not install or build at the same time.
alone() { # command...
    (
        flock 9
        "$@" 9>&-
    ) 9>"$root/build/.lock"
}

# Answers the packages that are not installed, one a line.
missing_packages() { # package...
    local package
    for package; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            printf '%s\n' "$package"
    done
}

# Installs what is missing. A system without dpkg is taken as prepared by its owner.
install_packages() { # package...
    command -v dpkg-query >/dev/null || return 0
    local missing as_root=()
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            printf '%s: as root, please install first: apt-get install %s\n' \
                "${0##*/}" "${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    logged packages "${as_root[@]}" apt-get update &&
        logged packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y --no-install-recommends "${missing[@]}"
}

# The names of the fuzz targets, one a line.
fuzz_targets() {
    (cd "$root/fuzz" && printf '%s\n' *_fuzzer.cpp | sed 's/\.cpp$//')
}

# The tag words, as a fuzz target takes a dictionary.
fuzz_dictionary() {
    sed -n 's/^SDB_TAG(0x\(..\)\(..\),.*/"\\x\2\\x\1"/p' "$root/src/sdb/tag_list.inc"
}

configure_preset() { # preset
    (cd "$root" && logged "configure-$1" cmake --preset "$1")
}

# Builds the targets named, or all of them.
build_preset() { # preset target...
    local preset=$1
    shift
    logged "build-$preset" cmake --build "$root/build/$preset" -j "$(nproc)" ${1:+--target "$@"}
}
