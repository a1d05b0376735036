# Shared by the commands: building, and a scratch directory. Sourced by them; sets project_dir and
# python. The caller sets the shell options: set -euo pipefail.
# shellcheck shell=bash

project_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck disable=SC2034  # used by the scripts that source this file
python=$project_dir/scripts/lib/python
export LC_ALL=C.UTF-8

fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# Runs a command and shows what it prints only when it fails.
quietly() {
    local output
    output=$("$@" 2>&1) || fail "$output" "failed: $*"
}

as_root() {
    if [[ $EUID == 0 ]]; then "$@"; else sudo "$@"; fi
}

# build PRESET [GROUP [TARGET...]]: installs missing packages, including a GROUP that the preset needs,
# and builds build/PRESET, or only its TARGETs. With the variable RULE_WERROR=ON, as in .ci/run, a warning is
# an error.
build() {
    local note=
    [[ -e $project_dir/build/$1 ]] || note=' (the first time takes a minute)'
    "$project_dir/scripts/lib/install-packages" ${2:+"$2"}
    "$project_dir/scripts/lib/make-archives" "$1" || true  # without it, linking.txt says what is missing
    echo "building, preset $1$note"
    pushd "$project_dir" >/dev/null || return
    quietly cmake --preset "$1" ${RULE_WERROR:+"-DRULE_WERROR=$RULE_WERROR"}
    echo "$(<"build/$1/linking.txt")"
    quietly cmake --build "build/$1" ${3:+--target "${@:3}"}
    popd >/dev/null || return
}

# repeat_linking PRESET: repeats what the build said about a missing archive, without which the program of
# build/PRESET is slower.
repeat_linking() {
    grep 'there is no' "$project_dir/build/$1/linking.txt" || true
}

# Creates a scratch directory, sets scratch to it, and removes it when this shell ends, even by a signal.
make_scratch() {
    scratch=$(mktemp -d -t rule-endpoint.XXXXXX)
    trap 'rm -rf --one-file-system "$scratch"' EXIT
    trap 'exit 1' HUP INT TERM
}
