#!/bin/bash
# Runs the examples of docs/api.md one after the other and compares what they print:
# api_examples_test.sh BIN_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

document=$project_dir/docs/api.md
count=0
failures=0

# Derived GUIDs have a random part.
without_random_parts() {
    sed -E 's/(1{10}|2{10}|3{10})[0-9A-F]{18}/\1.../g'
}

# run_example COMMAND REPLY: in this shell, because later examples use the variables of earlier ones.
run_example() {
    count=$((count + 1))
    if ! eval "$1" >"$scratch/reply" 2>"$scratch/errors" ||
        ! diff <(without_random_parts <<<"$2") \
            <(printf '%s\n' "$(without_random_parts <"$scratch/reply")"); then
        printf 'FAILED  %s\n%s\n' "$1" "$(<"$scratch/errors")"
        failures=$((failures + 1))
    fi
}

# run_examples: reads the examples, each a line with a command and the lines that it prints.
run_examples() {
    local line command='' reply=''
    while IFS= read -r line <&"$examples"; do
        if [[ $line != '$ '* ]]; then
            reply+=${reply:+$'\n'}$line
            continue
        fi
        [[ -z $command ]] || run_example "$command" "$reply"
        command=${line#'$ '}
        reply=
    done
    run_example "$command" "$reply"
}

bin=$(realpath "${1:?the directory of the programs is missing}")
make_scratch
prepare_recorder "$scratch/state" "$bin"
start_recorder "$scratch/state" "$bin"
# The examples' names for the recorder; and curl without the user's settings.
export rule=$recorder_url account=$recorder_user:$recorder_password
export CURL_HOME=$scratch no_proxy='*'
exec {examples}< <(awk '/^```/ { inside = /console$/; next } inside' "$document")
run_examples
stop_recorder
echo "$count examples, $failures failed"
[[ $count -gt 5 && $failures == 0 ]]
