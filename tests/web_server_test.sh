#!/bin/bash
# The rule endpoint behind the web server and on the configuration service, as a client meets it:
# web_server_test.sh BIN_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/cases.sh"

clients=()

# check TITLE LOGIN METHOD TARGET BODY STATUS EXPECTED_BODY
check() {
    send_request "${@:2:4}"
    report "$1" answer_is "$6" "$7"
}

# check_list TITLE RULE...: compares the list of rules; a RULE is its name, way of creation, time
# profile, event and source of the event, and actions and their targets.
check_list() {
    local title=$1
    shift
    send_request "$admin" GET '' ''
    jq --raw-output '.ruleList[] | [.name,
        (.content.rule | .CreationMethod, .TimeProfile),
        (.event[].content.event_profile | .EventID, .SourceIds.id0),
        (.action[].content.action_profile | .ActionName, (.. | .id0? // empty))] | join(" ")' \
        "$scratch/answer_body" >"$scratch/list"
    report "$title" diff <(printf '%s\n' "$@") "$scratch/list"
}

# quick_rule EVENT CHANNEL [MEMBERS]: a request document with further MEMBERS of its rule.
quick_rule() {
    printf '{"rule": {"event": [{"eventID": %d, "camera": [{"chIdx": %d}]}]%s}}' "$1" "$2" "${3:-}"
}

# The GUID of the schedule of that name.
schedule() {
    recorder_curl --silent "http://127.0.0.1:$service_port/cfg/Schedule" |
        jq --raw-output --arg name "$1" '.content[] | select(.name == $name) | .GUID'
}

# client TITLE RECEIVED STEP...: one connection, in the background. A STEP is text to send, with
# backslash escapes, wait=SECONDS, or "leave", which closes the connection at once. Otherwise the
# server must close it, after RECEIVED: status lines and the endpoint's bodies, in one line.
client() {
    { report "$1" diff <(printf '%s' "$2") <(exchange "${@:3}") && [[ $failures == 0 ]]; } &
    clients+=($!)
}

exchange() {
    local connection step
    trap '' PIPE
    exec {connection}<>"/dev/tcp/${authority/:/\/}"
    for step in "$@"; do
        case $step in
            wait=*) sleep "${step#wait=}" ;;
            leave) return ;;
            *) printf '%b' "$step" >&"$connection" ;;
        esac
    done
    { timeout 30 cat <&"$connection" || [[ $? != 124 ]] || echo '{} still open'; } |
        tr -d '\r' | grep -E '^(HTTP/|\{)' | paste -sd ' ' | tr -d '\n'
}

wait_for_clients() {
    local pid
    for pid in "${clients[@]}"; do
        wait "$pid" || failures=$((failures + 1))
    done
    clients=()
}

# The head of a request to add a rule, up to the fields that tell of its body.
rule_head() {
    printf 'POST /rule%s HTTP/1.1\\r\\nHost: %s\\r\\nAuthorization: Basic %s\\r\\n' \
        "$add" "$authority" "$(printf '%s' "$admin" | base64)"
}

bin=$(realpath "${1:?the directory of the programs is missing}")
make_scratch
state=$scratch/state
prepare_recorder "$state" "$bin"
start_recorder "$state" "$bin"
authority=${recorder_url#http://}
authority=${authority%/rule}
admin=$recorder_user:$recorder_password
add='?func=addRule'
recording=', "action": [{"ActionName": "RecordControl", "chIdx": [5]}]'
refused=$(answer -2 'Authorized failed')
added=$(answer 0 'Add Rule successful')
deleted=$(answer 0 'Delete Rule successful')
unknown=FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF
night=$(schedule Night)
camera=CA3E7A000000000000000000C0DE
no_rules='{ "ruleList": [ ] }'

check 'no credentials' '' GET '' '' '401 Unauthorized' "$refused"
check 'wrong password' admin:wrong GET '' '' '401 Unauthorized' "$refused"
check 'unknown user' "nobody:$recorder_password" PATCH '' '' '401 Unauthorized' "$refused"
check 'path info' "$admin" PUT /some/path '' '200 OK' null
check 'unknown method' "$admin" PATCH '' '' '200 OK' "$(answer -3 'http method invalid')"
check 'no rules at first' "$admin" GET '' '' '200 OK' "$no_rules"
check 'rule with a recording' "$admin" POST "$add" "$(quick_rule 536936448 3 "$recording")" \
    '200 OK' "$added"
check 'the same again' "$admin" POST "$add" "$(quick_rule 536936448 3)" '400 Bad Request' \
    "$(answer -911 'Warning chIdx=3, eventID=536936448 already added in quick mode rule list')"
check 'rule without an action' "$admin" POST "$add" \
    "$(quick_rule 537264129 191 ", \"timeprofileGUID\": \"$night\", \"ruleName\": \"dark\"")" \
    '200 OK' "$added"
check_list 'both rules in the list' \
    "clientRule quick $(schedule _ALL_DAY_) 536936448 ${camera}0003 RecordControl ${camera}0005" \
    "dark quick $night 537264129 ${camera}0191"
check 'unknown time profile' "$admin" POST "$add" \
    "$(quick_rule 537264129 4 ", \"timeprofileGUID\": \"$unknown\"")" '400 Bad Request' \
    "$(answer -104 "Error check time profile [$unknown] fail ret=-104")"
send_request "$admin" GET '' ''
mapfile -t guids < <(jq --raw-output '.ruleList[].GUID' "$scratch/answer_body")
check 'deletion, one of the rules unknown' "$admin" DELETE '' \
    "{\"ruleGUID\": [\"${guids[0]}\", \"$unknown\", \"${guids[1]}\"]}" '200 OK' "$deleted"
check 'no rules at the end' "$admin" GET '' '' '200 OK' "$no_rules"

head=$(rule_head)'Connection: close\r\n'
sized=$head'Content-Length: '
chunked=$head'Transfer-Encoding: chunked\r\n\r\n'
bad_request='HTTP/1.1 400 Bad Request'
no_event="$bad_request $(answer -102 'Error input Json no event object')"
client 'body cut off' '' "${sized}9\r\n\r\n{}" leave
client 'body cut off, then silence' '' "${sized}9\r\n\r\n{}"
client 'no request' ''
client 'head without an end' '' 'PUT /rule HTTP/1.1\r\n'
client 'slow body' "$no_event" "${sized}4\r\n\r\n{" wait=3 '}' wait=3 ' ' wait=3 ' '
client 'body slower than the limit' '' "${sized}2\r\n\r\n{" wait=13 '}'
client 'body when asked for' "HTTP/1.1 100 Continue $no_event" \
    "${sized}2\r\nExpect: 100-continue\r\n\r\n" wait=1 '{}'
client 'body of chunks' "$no_event" "${chunked}1\r\n{\r\n1\r\n}\r\n0\r\n\r\n"
client 'longest body, of chunks' "$no_event" \
    "${chunked}fff\r\n$(printf '%-4095s' '{}')\r\n0\r\n\r\n"
client 'body of chunks too long' "$bad_request $(answer -291 'content data is NULL')" \
    "${chunked}1000\r\n$(printf '%-4096s' '{}')\r\n0\r\n\r\n"
client 'chunks cut off' '' "${chunked}2\r\n{}\r\n"
client 'not a chunk' "$bad_request" "${chunked}x\r\n{}\r\n"
client 'chunks and a length' "$bad_request" "${sized}2\r\nTransfer-Encoding: chunked\r\n\r\n{}"
client 'negative length' "$bad_request" "${sized}-1\r\n\r\n"
client 'two lengths' "$bad_request" "${sized}2\r\nContent-Length: 3\r\n\r\n{} "
client 'body beyond all limits' 'HTTP/1.1 413 Payload Too Large' "${sized}70000\r\n\r\n"
client 'zero byte in the body' "$bad_request $(answer -101 'Error input Json format error')" \
    "${sized}3\r\n\r\n{\0}"
client 'bytes behind the body' "$no_event" "${sized}2\r\n\r\n{}{}{}"
client 'two requests at once' "$no_event $no_event" \
    "$(rule_head)Content-Length: 2\r\n\r\n{}${sized}2\r\n\r\n{}"
wait_for_clients
report 'no program left behind' wait_until "$web_pid" no_program_runs
check 'next client' "$admin" GET '' '' '200 OK' "$no_rules"

# Both programs wait for the configuration service when their clients go. The web server notices
# only the reset, and ends that program; the other one finishes.
stayed=$(quick_rule 536936448 3)
ended=$(quick_rule 536936448 4)
kill -STOP "$service_pid"
client 'gone before the answer' '' "$sized${#stayed}\r\n\r\n$stayed" wait=3 leave
client 'gone with a reset' '' "$sized${#ended}\r\nExpect: 100-continue\r\n\r\n" \
    wait=1 "$ended" wait=1 leave
wait_for_clients
kill -CONT "$service_pid"
report 'no program left behind by the gone' wait_until "$web_pid" no_program_runs
check_list 'one rule of theirs' \
    "clientRule quick $(schedule _ALL_DAY_) 536936448 ${camera}0003"

# The web server keeps some 64 KiB of an answer in memory.
for channel in 0 1 2 4 5 6 7 10 191; do
    for event in 537264129 537264130; do
        send_request "$admin" POST "$add" \
            "$(quick_rule "$event" "$channel" ", \"ruleName\": \"$(printf '%03900d' 0)\"")"
    done
done
send_request "$admin" GET '' ''
cp "$scratch/answer_body" "$scratch/long_list"
stop_process "$web_pid"
limit=$(ulimit -S -f)
trap '' XFSZ
ulimit -S -f 8  # KiB that the web server, and here also this shell, can write to a file
RULE_EXCHANGES='' start_web_server "$state" "$bin" "${authority##*:}"
ulimit -S -f "$limit"
send_request "$admin" GET '' ''
report 'long list with a full disk' cmp "$scratch/long_list" "$scratch/answer_body"

stop_process "$service_pid"
check 'configuration service stopped' "$admin" POST "$add" "$(quick_rule 536936448 3)" \
    '400 Bad Request' "$(answer -101 'Internal error get time profile guid fail ret=-101')"
stop_recorder
# A sanitizer's finding would be there, for one.
report 'nothing on standard error' diff \
    <(echo "configuration service listening on 127.0.0.1:$service_port") \
    <(cat "$state/config_service.log" "$state/rule_errors.log")

[[ $failures == 0 ]]
