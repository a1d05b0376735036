#!/bin/bash
# The program's file started as a web server starts it, without any service:
#   process_test.sh PROGRAM [EMULATOR...]
# EMULATOR... is the beginning of the command that starts a program of another processor. The platform
# must have cameras on channels 0 and 191 and none on channel 9. The host recorder's takes its files
# and its user from RULE_RECORDER_DIR and HTTP_AUTHORIZATION.
set -euo pipefail

export LC_ALL=C  # lengths are bytes
failures=0
# The variables of every process; without them the caller is unknown.
variables=(REMOTE_USER=admin "HTTP_AUTHORIZATION=${HTTP_AUTHORIZATION:-}"
           "RULE_RECORDER_DIR=${RULE_RECORDER_DIR:-}")

# check TITLE EXIT_STATUS STATUS EXPECTED_BODY BODY [VARIABLE=VALUE...]: BODY is the standard input,
# which stays open after it. The response must be equal byte for byte.
check() {
    printf 'Status: %s\r\nContent-type: application/json\r\n\r\n%s\n\n' "$3" "$4" >"$scratch/expected"
    mkfifo "$scratch/input"
    exec {input}<>"$scratch/input"
    printf '%s' "$5" >&"$input"
    if answers "$2" "${@:6}"; then
        echo "ok      $1"
    else
        echo "FAILED  $1"
        failures=$((failures + 1))
    fi
    exec {input}>&-
    rm "$scratch/input"
}

# answers EXIT_STATUS [VARIABLE=VALUE...]
answers() {
    local exit_status=0
    timeout 20 env -i "${variables[@]}" "${@:2}" "${command[@]}" \
        <"$scratch/input" >"$scratch/response" || exit_status=$?
    diff <(echo "exit status $1"; cat "$scratch/expected") \
        <(echo "exit status $exit_status"; cat "$scratch/response")
}

# answer CODE TEXT: the envelope.
answer() {
    printf '{ "ret_code": %d, "ret_mesg": "%s" }' "$1" "$2"
}

# refuse TITLE EXIT_STATUS CODE TEXT BODY [VARIABLE=VALUE...]: a check whose status is 400.
refuse() {
    check "$1" "$2" '400 Bad Request' "$(answer "$3" "$4")" "${@:5}"
}

# post TITLE EXIT_STATUS CODE TEXT BODY: the same for a request to add a rule.
post() {
    refuse "$@" REQUEST_METHOD=POST QUERY_STRING='a=b&&f%75nc=add%52ule&func=x' CONTENT_LENGTH=${#5}
}

# on_channel CHANNEL [MEMBERS]: a request document with further MEMBERS of its rule.
on_channel() {
    printf '{"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":%s}]}]%s}}' "$1" "${2:-}"
}

program=$(realpath "${1:?the program is missing}")
command=("${@:2}" "$program")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 1' HUP INT TERM
no_camera='GUID is NULL, please check camera is added'
recording=', "action": [{"ActionName": "RecordControl", "chIdx": [9]}]'

check 'put with a path and a body' 0 '200 OK' null 'abc' REQUEST_METHOD=PUT PATH_INFO=/a//b/ \
    CONTENT_LENGTH=3
check 'stranger' 0 '401 Unauthorized' "$(answer -2 'Authorized failed')" '' REQUEST_METHOD=PUT \
    REMOTE_USER= HTTP_AUTHORIZATION=
check 'no method' 253 '200 OK' "$(answer -3 'http method empty')" ''
check 'unknown method' 253 '200 OK' "$(answer -3 'http method invalid')" '' REQUEST_METHOD=put
refuse 'no function' 222 -290 'post uri can not get func parameter' '{}' REQUEST_METHOD=POST \
    QUERY_STRING=Func=addRule CONTENT_LENGTH=2
refuse 'function without a value' 220 -292 'uri input func=[] not supported' '{}' \
    REQUEST_METHOD=POST QUERY_STRING=func CONTENT_LENGTH=2
refuse 'other function' 220 -292 'uri input func=[a b\/c&=%zz] not supported' '{}' \
    REQUEST_METHOD=POST QUERY_STRING='func=a+b%2fc%26=%zz' CONTENT_LENGTH=2
refuse 'length over the limit' 221 -291 'content data is NULL' '{}' REQUEST_METHOD=POST \
    QUERY_STRING=func=addRule CONTENT_LENGTH=4096
post 'no body' 221 -291 'content data is NULL' ''
post 'bytes over 127' 155 -101 'Error input Json format error' $'\xff\xfe\x80'
post 'longest body' 154 -102 'Error input Json no event object' "$(printf '%-4095s' '{}')"
post 'channel without a camera' 56 -200 "Error ch-9 $no_camera" "$(on_channel 9)"
post 'recording channel without a camera' 45 -211 "Error recording act ch-9 $no_camera" \
    "$(on_channel 191 "$recording")"
post 'no service behind a whole rule' 155 -101 \
    'Internal error get time profile guid fail ret=-101' "$(on_channel 0)"

[[ $failures == 0 ]]
