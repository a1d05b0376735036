#!/bin/bash
# Starts the program as a web server does, without a configuration service:
#   process_test.sh PROGRAM [EMULATOR...]
# EMULATOR... is the beginning of the command that starts a program of another processor. The platform
# must have cameras on channels 0 and 191 and none on channel 9. The host recorder's platform finds its
# files and its user in RULE_RECORDER_DIR and HTTP_AUTHORIZATION.
set -euo pipefail

export LC_ALL=C  # ${#text} counts bytes
failed=0
# The variables of every process, by which the platform knows the caller.
variables=(REMOTE_USER=admin "HTTP_AUTHORIZATION=${HTTP_AUTHORIZATION:-}"
           "RULE_RECORDER_DIR=${RULE_RECORDER_DIR:-}")

# check TITLE EXIT_STATUS STATUS EXPECTED_BODY BODY [VARIABLE=VALUE...]: sends BODY on the standard input,
# which stays open, and compares the response byte for byte.
check() {
    local input exit_status=0
    printf 'Status: %s\r\nContent-type: application/json\r\n\r\n%s\n\n' "$3" "$4" >"$scratch/expected"
    echo "exit status $2" >>"$scratch/expected"
    exec {input}<>"$scratch/input"
    printf '%s' "$5" >&"$input"
    timeout 60 env -i "${variables[@]}" "${@:6}" "${command[@]}" \
        <"$scratch/input" 2>"$scratch/log" | cat >"$scratch/response" || exit_status=$?
    exec {input}>&-
    echo "exit status $exit_status" >>"$scratch/response"
    echo "$1"
    diff "$scratch/expected" "$scratch/response" || { failed=1 && cat "$scratch/log"; }
}

# post TITLE EXIT_STATUS CODE TEXT BODY QUERY: checks a POST that is refused.
post() {
    check "$1" "$2" '400 Bad Request' "{ \"ret_code\": $3, \"ret_mesg\": \"$4\" }" "$5" \
        REQUEST_METHOD=POST QUERY_STRING="$6" CONTENT_LENGTH=${#5}
}

# on_channel CHANNEL [MEMBERS]: prints a request document whose rule has MEMBERS besides the event.
on_channel() {
    printf '{"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":%s}]}]%s}}' "$1" "${2:-}"
}

program=$(realpath "${1:?the program is missing}")
command=("${@:2}" "$program")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 1' HUP INT TERM
mkfifo "$scratch/input"
add_rule='a=b&&f%75nc=add%52ul%65&func=x'
recording=', "action": [{"ActionName": "RecordControl", "chIdx": [9]}]'

check 'put with a path and a body' 0 '200 OK' null 'abc' \
    REQUEST_METHOD=PUT PATH_INFO=/a//b/ CONTENT_LENGTH=3
check 'stranger' 0 '401 Unauthorized' '{ "ret_code": -2, "ret_mesg": "Authorized failed" }' '' \
    REQUEST_METHOD=PUT REMOTE_USER= HTTP_AUTHORIZATION=
check 'no method' 253 '200 OK' '{ "ret_code": -3, "ret_mesg": "http method empty" }' ''
post 'no function' 222 -290 'post uri can not get func parameter' '{}' Func=addRule
post 'other function' 220 -292 'uri input func=[a b\/c&=%zz] not supported' \
    '{}' 'func=a+b%2fc%26=%zz'
post 'longest body' 154 -102 'Error input Json no event object' \
    "$(printf '%-4095s' '{}')" "$add_rule"
post 'recording channel without a camera' 45 -211 \
    'Error recording act ch-9 GUID is NULL, please check camera is added' \
    "$(on_channel 191 "$recording")" "$add_rule"
post 'no service behind a whole rule' 155 -101 \
    'Internal error get time profile guid fail ret=-101' \
    "$(on_channel 0)" "$add_rule"
command=(prlimit --fsize=0 "${command[@]}")
check 'no room for the log' 0 '200 OK' null '' REQUEST_METHOD=PUT PATH_INFO=/logged

exit "$failed"
