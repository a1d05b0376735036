#!/bin/bash
# Runs the examples of docs/api.md one after the other and compares what they print:
# api_examples_test.sh BIN_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/cases.sh"

# Derived GUIDs have a random part.
without_random_parts() {
    sed -E 's/(1{10}|2{10}|3{10})[0-9A-F]{18}/\1.../g'
}

# prints COMMAND REPLY: in this shell, because later examples use the variables of earlier ones.
prints() {
    eval "$1" >"$scratch/reply" &&
        diff <(without_random_parts <<<"$2") <(printf '%s\n' "$(without_random_parts <"$scratch/reply")")
}

bin=$(realpath "${1:?the directory of the programs is missing}")
make_scratch
prepare_recorder "$scratch/state" "$bin"
start_recorder "$scratch/state" "$bin"
# The examples' names for the recorder; and curl without the user's settings.
export rule=$recorder_url account=$recorder_user:$recorder_password
export CURL_HOME=$scratch no_proxy='*'
# Each example is a line with a command and the lines that it prints.
mapfile -d '' -t examples < <(awk '/^```/ { inside = /console$/; next }
    inside { if (sub(/^\$ /, "")) printf "%c", 0; print }' "$project_dir/docs/api.md")
for example in "${examples[@]:1}"; do
    command=${example%%$'\n'*}
    reply=${example#*$'\n'}
    report "$command" prints "$command" "${reply%$'\n'}"
done
stop_recorder
[[ ${#examples[@]} -gt 5 && $failures == 0 ]]
