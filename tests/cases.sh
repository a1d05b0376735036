# What the shell tests share: the helpers of the commands, and how a case is reported.
# Sourced by them; sets failures.
# shellcheck shell=bash

source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

failures=0

# report TITLE COMMAND...: the outcome of one case.
report() {
    if "${@:2}"; then
        echo "ok      $1"
    else
        echo "FAILED  $1"
        failures=$((failures + 1))
    fi
}

# answer CODE TEXT: the envelope.
answer() {
    printf '{ "ret_code": %d, "ret_mesg": "%s" }' "$1" "$2"
}
