#!/bin/bash
# The rule endpoint behind the web server and on the configuration service, as a client meets it:
# web_server_test.sh BIN_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

failures=0

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

# report TITLE COMMAND...: the outcome of one case.
report() {
    local title=$1
    shift
    if "$@"; then
        echo "ok      $title"
    else
        echo "FAILED  $title"
        failures=$((failures + 1))
    fi
}

answer() {
    printf '{ "ret_code": %d, "ret_mesg": "%s" }' "$1" "$2"
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

# A sanitizer's finding would be there, for one.
nothing_on_standard_error() {
    diff <(echo "configuration service listening on 127.0.0.1:$service_port") \
        <(cat "$state/config_service.log" "$state/rule_errors.log")
}

bin=$(realpath "${1:?the directory of the programs is missing}")
make_scratch
state=$scratch/state
prepare_recorder "$state" "$bin"
start_recorder "$state" "$bin"
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
check 'put' "$admin" PUT '' '' '200 OK' null
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
check 'unsupported event' "$admin" POST "$add" "$(quick_rule 1 3)" '400 Bad Request' \
    "$(answer -202 'Error input eventID=0x1 unsupported')"
check 'no camera on the channel' "$admin" POST "$add" "$(quick_rule 536936448 9)" \
    '400 Bad Request' "$(answer -200 'Error ch-9 GUID is NULL, please check camera is added')"
check 'longest body' "$admin" POST "$add" "$(printf '%-4095s' '{}')" '400 Bad Request' \
    "$(answer -102 'Error input Json no event object')"
check 'body too long' "$admin" POST "$add" "$(printf '%-4096s' '{}')" '400 Bad Request' \
    "$(answer -291 'content data is NULL')"
check 'other function' "$admin" POST '?func=add%52ules' '{}' '400 Bad Request' \
    "$(answer -292 'uri input func=[addRules] not supported')"
send_request "$admin" GET '' ''
mapfile -t guids < <(jq --raw-output '.ruleList[].GUID' "$scratch/answer_body")
check 'deletion, one of the rules unknown' "$admin" DELETE '' \
    "{\"ruleGUID\": [\"${guids[0]}\", \"$unknown\", \"${guids[1]}\"]}" '200 OK' "$deleted"
check 'no rules at the end' "$admin" GET '' '' '200 OK' "$no_rules"
stop_process "$service_pid"
check 'configuration service stopped' "$admin" POST "$add" "$(quick_rule 536936448 3)" \
    '400 Bad Request' "$(answer -101 'Internal error get time profile guid fail ret=-101')"
stop_recorder
report 'nothing on standard error' nothing_on_standard_error

[[ $failures == 0 ]]
