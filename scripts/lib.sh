# What more than one of the commands needs: building, and the host recorder: starting it, sending it
# requests, stopping it.
# Sourced by them; sets project_dir. Shell options are the caller's: set -euo pipefail.
# shellcheck shell=bash

project_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

readonly service_port=10141
readonly lock_file=/tmp/rule-recorder.lock  # one recorder at a time on a machine
lock_fd=
service_pid=
web_pid=

fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# Runs a command and shows what it prints only when it fails.
quietly() {
    local output
    output=$("$@" 2>&1) || fail "$output" "failed: $*"
}

# build PRESET [GROUP]: installs what is missing, with a GROUP of packages that the preset needs, and
# builds build/PRESET.
build() {
    "$project_dir/scripts/install-packages" "${@:2}"
    echo "building, preset $1"
    pushd "$project_dir" >/dev/null || return
    quietly cmake --preset "$1"
    quietly cmake --build --preset "$1"
    popd >/dev/null || return
}

# Makes a scratch directory and sets scratch to it. When this shell ends, by a signal too, the
# directory is removed and what start_recorder started is stopped.
make_scratch() {
    scratch=$(mktemp -d -t rule-recorder.XXXXXX)
    trap 'stop_recorder; rm -rf "$scratch"' EXIT
    trap 'exit 1' HUP INT TERM
}

# Waits until no other recorder runs and keeps others waiting until this shell ends.
lock_recorder() {
    [[ -z $lock_fd ]] || return 0
    # Opened for reading only, because the file may be another user's.
    [[ -e $lock_file ]] || (umask 0; set -o noclobber; : >"$lock_file") 2>/dev/null || true
    exec {lock_fd}<"$lock_file"
    ! flock --nonblock "$lock_fd" || return 0
    echo "waiting for another recorder on port $service_port to end" >&2
    # In the background, because a signal ends only a wait at once.
    setpriv --pdeathsig TERM flock "$lock_fd" &
    wait $!
}

# prepare_recorder STATE: makes the recorder's files that are not there yet in directory STATE. Sets
# recorder_user and recorder_password.
prepare_recorder() {
    local state=$1 cameras=$1/cameras.txt
    umask 077
    mkdir -p "$state/www"
    ln -sfn "$project_dir/build/reference" "$state/www/reference"
    [[ -e $cameras ]] || cp "$project_dir/host/recorder/cameras.txt" "$cameras"
    [[ -e $state/password ]] || random_hex 12 >"$state/password"
    recorder_user='admin'
    recorder_password=$(<"$state/password")
    printf '%s:%s\n' "$recorder_user" "$(hash_password "$recorder_password")" >"$state/users"
}

# random_hex COUNT: that many random bytes in hexadecimal.
random_hex() {
    od -An -v -tx1 -N "$1" /dev/urandom | tr -d ' \n'
}

# hash_password PASSWORD: as crypt(3) makes it, of few rounds because every request pays for them.
hash_password() {
    perl -e 'chomp(my ($password, $salt) = <STDIN>);
             print crypt($password, "\$5\$rounds=1000\$$salt\$");' <<<"$1"$'\n'"$(random_hex 8)"
}

# start_recorder STATE BIN [PORT]: starts the configuration service and the web server, the latter
# on PORT or any free port, and returns when both answer. Sets recorder_url, service_pid, web_pid.
# The caller has called make_scratch.
start_recorder() {
    local state=$1 bin=$2 port=${3:-}
    lock_recorder
    start_service "$state" "$bin"
    for _ in {1..5}; do
        ! start_web_server "$state" "$bin" "${port:-$((20000 + RANDOM % 10000))}" || return 0
        # Another port helps only when this one was taken, and lighttpd then ends.
        if [[ -n $port ]] || kill -0 "$web_pid" 2>/dev/null; then break; fi
    done
    fail "the web server does not start: $(tail -n 3 "$state/web_server.log")"
}

start_service() {
    local log=$1/config_service.log
    : >"$log"
    run_in_background "$2/config_service" --database "$1/rules.db" >>"$log" 2>&1
    service_pid=$!
    wait_until "$service_pid" grep -qs '^configuration service listening' "$log" ||
        fail "the configuration service does not start: $(tail -n 3 "$log")"
}

start_web_server() {
    recorder_url=http://127.0.0.1:$3/rule
    RULE_RECORDER_DIR=$1 RULE_PROGRAM=$2/rule_operation.cgi RULE_WEB_PORT=$3 \
        PATH=$PATH:/usr/sbin run_in_background \
        lighttpd -D -f "$project_dir/host/web_server/lighttpd.conf" 2>>"$1/web_server.log"
    web_pid=$!
    wait_until "$web_pid" endpoint_answers
}

# Starts a command that ends with this shell at the latest; its process id is in $!.
run_in_background() {
    setpriv --pdeathsig TERM "$@" </dev/null {lock_fd}<&- &
}

# wait_until PID COMMAND...: waits at most 10 s until COMMAND succeeds while process PID runs.
wait_until() {
    local pid=$1
    shift
    for _ in {1..100}; do
        kill -0 "$pid" 2>/dev/null || return 1
        ! "$@" || return 0
        sleep 0.1
    done
    return 1
}

# Only the rule endpoint refuses a caller in these words.
endpoint_answers() {
    send_request '' GET '' '' 2>/dev/null && grep -qs '"Authorized failed"' "$scratch/answer_body"
}

# curl for requests to the recorder, free of the user's settings.
recorder_curl() {
    curl --disable --noproxy '*' --max-time 60 "$@"
}

# send_request LOGIN METHOD TARGET BODY: one request to recorder_url followed by TARGET; LOGIN is
# user:password, or empty for none. The answer is then in $scratch/answer_head and answer_body.
send_request() {
    local login=()
    [[ -z $1 ]] || login=(--user "$1")
    recorder_curl --silent --show-error "${login[@]}" --request "$2" --data-binary "$4" \
        --dump-header "$scratch/answer_head" --output "$scratch/answer_body" "$recorder_url$3" ||
        return
    [[ -z ${RULE_EXCHANGES:-} ]] || record_exchange "$2" "$4"
}

# record_exchange METHOD BODY: adds a request and its answer to the file RULE_EXCHANGES, as one line
# of JSON.
record_exchange() {
    jq --null-input --compact-output --arg method "$1" --arg body "$2" \
        --rawfile head "$scratch/answer_head" --rawfile answer "$scratch/answer_body" \
        '{$method, $body, answer: ($head + $answer)}' >>"$RULE_EXCHANGES"
}

# Status line and content type of the last answer.
show_answer_head() {
    tr -d '\r' <"$scratch/answer_head" | grep -E '^HTTP/|^Content-type:'
}

# answer_is STATUS BODY: whether the last answer is this one to the byte. Prints a difference.
answer_is() {
    diff <(printf 'HTTP/1.1 %s\nContent-type: application/json\n%s\n\n' "$1" "$2") \
        <(show_answer_head; cat "$scratch/answer_body")
}

# Whether the web server has no program running.
no_program_runs() {
    [[ -z $(<"/proc/$web_pid/task/$web_pid/children") ]]
}

stop_recorder() {
    stop_process "$web_pid"
    stop_process "$service_pid"
    web_pid=
    service_pid=
}

# stop_process PID: ends a child of this shell; does nothing when it is gone or PID is empty.
stop_process() {
    if [[ -z $1 ]] || ! kill "$1" 2>/dev/null; then return 0; fi
    for _ in {1..50}; do
        kill -0 "$1" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$1" 2>/dev/null || true
}
