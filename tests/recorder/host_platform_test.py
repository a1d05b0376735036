"""Tests the platform of the development machine: how the program handles requests, the recorder's files, and
a service that answers with given bytes."""

import base64
import contextlib
import datetime
import json
import os
import re
import socket
import sqlite3
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from driver import Recorder, RecorderError, Rule, stop
from recorder_files import hash_password

SERVICE = ("127.0.0.1", 10141)
MIB = 1024 * 1024


@pytest.fixture
def recorder(bin_dir):
    with Recorder(bin_dir) as recorder:
        yield recorder


def log_messages(recorder):
    """Returns the messages that follow the torn line in the log. Each must be on a line of the usual form."""
    torn, *lines = (recorder.state / "rule.log").read_text().split("\n")
    assert torn == "torn"
    return [re.fullmatch(r"\S{19}\.\d{6}Z \[\d+\] (.*)", line)[1] for line in lines[:-1]]


def ask(recorder, method, body=b"", query="func=addRule", *variables):
    """Sends a request to the program. Returns the body of its answer and the messages that it has logged."""
    (recorder.state / "rule.log").write_text("torn")
    done = recorder.run_program(method, body, query, ["env", *variables])
    # Without cameras the program ends at once and releases nothing, which a sanitizer may report.
    assert not done.stderr or not done.stdout
    return done.stdout.decode().partition("\r\n\r\n")[2].rstrip("\n"), log_messages(recorder)


def accept(server, program):
    """Accepts the connection of a program; returns None if the program ends without one."""
    server.settimeout(0.1)
    while not program.done():
        with contextlib.suppress(TimeoutError):
            return server.accept()[0]


def exchange(recorder, reply, method="GET", body=b""):
    """Lets a service send `reply`. Returns what `ask` returns, and the request that the service received."""
    with socket.create_server(SERVICE) as server, ThreadPoolExecutor() as pool:
        asked = pool.submit(ask, recorder, method, body)
        connection = accept(server, asked)
        server.close()
        with connection, contextlib.suppress(ConnectionError):
            request = connection.recv(65536)
            connection.sendall(reply)
        return *asked.result(), request.decode()


def new_rule(channel=10, **members):
    return json.dumps(Rule(0x20010000, channel, **members).document()).encode()


def refusal(code, text="Request failed"):
    return f'{{ "ret_code": {code}, "ret_mesg": "{text}" }}'


def failed_call(result, reason):
    """The result of `ask` when the call for the list of rules fails."""
    return refusal(-1201), [f"Configuration service: GET 127.0.0.1:10141/host/ruleList: {reason}",
                            f"Rule list: the call failed with {result}"]


PLAIN = b"HTTP/1.1 200 OK\r\n\r\n"


def long_header(size):
    """Returns a header of `size` bytes after its first line, which the limit does not include."""
    return PLAIN[:-2] + b"X: %b\r\n\r\n" % ((size - 7) * b"x")


# Replies to the call for the list of rules, each with the result of the call and the reason of the failure.
FAILED_CALLS = {
    "header too long": (long_header(16385), -1004, "the reply is too large"),
    "body too long": (PLAIN + bytes(128 * MIB + 1), -1004, "the reply is too large"),
    "announced too long": (b"HTTP/1.1 200 OK\r\nContent-Length: 134217729\r\n\r\n", -1004,
                           "the reply is too large"),
    "status 100": (PLAIN.replace(b"200", b"100"), -100, "the service answered with status 100"),
    "status 99": (PLAIN.replace(b"200", b"099"), -1003, "the status of the reply is not valid"),
    "closed at once": (b"", -1003, "end of stream"),
}


@pytest.mark.parametrize("reply, result, reason", FAILED_CALLS.values(), ids=FAILED_CALLS)
def test_call_that_fails(reply, result, reason, recorder):
    assert exchange(recorder, reply)[:2] == failed_call(result, reason)


def test_exchange_ends_in_time(recorder):
    """One program waits for a connection, and another one gets a byte now and then."""
    (recorder.state / "rule.log").write_text("torn\n")
    with socket.create_server(SERVICE, backlog=0) as server, ThreadPoolExecutor() as pool:
        start = time.monotonic()
        running = [pool.submit(recorder.run_program, "GET")]
        connection = accept(server, running[0])
        connection.sendall(PLAIN)
        with connection, socket.create_connection(SERVICE):  # the only one that can wait
            running.append(pool.submit(recorder.run_program, "GET"))
            with contextlib.suppress(ConnectionError):
                while True:
                    connection.sendall(b"x")
                    time.sleep(0.2)
            answers = [each.result().stdout.decode() for each in running]
    answer, messages = failed_call(-1002, "the time limit was reached")
    assert all(answer in each for each in answers) and 15 <= time.monotonic() - start < 25
    assert sorted(log_messages(recorder)) == sorted(2 * messages)
    assert ask(recorder, "GET") == failed_call(-1001, "Connection refused")


def test_other_replies_have_a_lower_limit(recorder):
    schedules = b'{"err_code": 0, "content": []}'
    for size, code in (65536, -601), (65537, -101):
        answer, *_ = exchange(recorder, PLAIN + schedules.ljust(size), "POST", new_rule())
        assert f'"ret_code": {code},' in answer


def test_deletion_names_any_text(recorder):
    answer, _, request = exchange(recorder, PLAIN + b'{"err_code":0}', "DELETE",
                                  '{"ruleGUID": ["a b&c=d/%ä-._~"]}'.encode())
    assert answer == refusal(0, "Delete Rule successful")
    assert request.startswith("DELETE /cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%C3%A4-._~ HTTP/1.1\r\n")


NO_RULES = b'{"ruleList": []}'


@pytest.mark.parametrize("reply, messages", [
    (NO_RULES.ljust(128 * MIB), []),
    (b'{"ruleList": {}}', ['Rule list: the service answered [{"ruleList": {}}]']),
    (b"", ["Rule list: the service answered []"]),
], ids=["longest", "another document", "nothing"])
def test_reply_with_a_rule_list(reply, messages, recorder):
    answer, logged, _ = exchange(recorder, long_header(16384) + reply)
    assert (answer.encode(), logged) == (refusal(-1203).encode() if messages else reply, messages)


def test_largest_rule_list(recorder):
    """The list has rules for 192 channels with 25 events each, and all names have the greatest length."""
    recorder.start_service()
    name = "\x01" * 662  # each takes six bytes in a body of 4,095
    assert b'"ret_code": 0' in recorder.run_program("POST", new_rule(name=name)).stdout
    stop(recorder.service)
    with contextlib.closing(sqlite3.connect(recorder.state / "rules.db")) as database, database:
        database.execute("UPDATE node SET entry = replace(entry, ?, ?)",
                         (r"\u0001" * 662, r"\u0001" * 4096))
        database.execute("WITH number(n) AS (VALUES (1) UNION ALL SELECT n + 1 FROM number"
                         " WHERE n < 4799) INSERT INTO node SELECT NULL, name, description,"
                         " printf('%032x', n), type, active, content, event_id, entry"
                         " FROM node, number WHERE type = 0")
    recorder.start_service()
    listed = recorder.run_program("GET").stdout
    assert listed.count(b'"event_profile"') == 4800 and len(listed) > 118 * 10**6
    assert b'"ret_code": 0' in recorder.run_program("POST", new_rule(0)).stdout


HASH = hash_password("se:cret")
LONG_NAME = 64 * "u"
USERS = f"#a:{HASH}\n\na:{HASH}\n:{HASH}\nnohash\n{LONG_NAME}:{HASH}"
UNUSABLE = "no usable Basic credentials in the request"


def basic(text):
    return b"Basic " + base64.b64encode(text.encode())


# The users file, the header, and the reason in the log, or None if the client is accepted.
@pytest.mark.parametrize("users, header, reason", [
    (USERS, basic("a:se:cret").replace(b"Basic", b"bASIC "), None),
    (USERS, basic(f"{LONG_NAME}:se:cret"), f"user [{LONG_NAME}] refused"),
    (USERS, basic("#a:se:cret"), "user [#a] refused"),
    (USERS, basic("a:Se:cret"), "user [a] refused"),
    (USERS, basic("zoe:se:cret"), "user [zoe] refused"),
    (USERS, basic(":se:cret"), "user [] refused"),
    (USERS, basic("a"), UNUSABLE),
    (USERS, basic("a:se:cret\0x"), UNUSABLE),
    (USERS, basic("a:se:cret") + b" ", UNUSABLE),
    (USERS, basic("a:se:cret").replace(b"Basic", b"Bearer"), UNUSABLE),
    ("off:*\n", basic("off:*"), "no usable entry in the users file"),
])
def test_only_known_credentials_pass(users, header, reason, recorder):
    (recorder.state / "users").write_text(users)
    answer, messages = ask(recorder, "PUT", b"", "", b"HTTP_AUTHORIZATION=" + header)
    assert answer == (refusal(-2, "Authorized failed") if reason else "null")
    assert messages == ([f"Authentication: {reason}"] if reason else [])


def without_cameras(recorder):
    """Starts the program, which must fail to load the cameras. Returns the reason and the result of that."""
    answer, (reason, result) = ask(recorder, "PUT")
    assert answer == ""
    return reason.removeprefix("Camera configuration: "), int(result.rpartition("ret=")[2])


def test_camera_list_has_a_channel_a_line(recorder):
    cameras = recorder.state / "cameras.txt"
    cameras.write_text("# a list\n\n10 Yard 5\r\n \t0\n191\tRoof".rjust(MIB, "\n"))
    for channel in 0, 1, 5, 10, 191:
        answer, _ = ask(recorder, "POST", new_rule(channel))
        assert (f"Error ch-{channel} GUID is NULL" in answer) == (channel in (1, 5)), answer
    for text, reason in (
            ("0\n192\n", "cameras.txt:2: the channel is not in 0 to 191"),
            ("-1", "cameras.txt:1: the channel is not in 0 to 191"),
            ("7\n\n7\n", "cameras.txt:3: channel 7 is there twice"),
            ("5x", "cameras.txt:1: no channel number at the start of the line")):
        cameras.write_text(text)
        assert without_cameras(recorder) == (reason, -1102)
    no_file = (f"{cameras}: not a regular file of at most 1 MiB", -1101)
    cameras.write_text((MIB + 1) * "\n")
    assert without_cameras(recorder) == no_file
    cameras.unlink()
    assert without_cameras(recorder) == (f"{cameras}: No such file or directory", -1101)
    os.mkfifo(cameras)
    assert without_cameras(recorder) == no_file


def test_no_message_can_forge_or_lose_a_log_line(recorder):
    text = 20000 * b"x" + b"a\nb\r\t\x1b\x7f\\" + "ä\u0080\u009f\u00a0€".encode() + b"\x9bx\xc3"
    start = datetime.datetime.now(datetime.timezone.utc)
    answer, (message,) = ask(recorder, "PUT", b"", "", b"PATH_INFO=" + text)
    logged = 20000 * "x" + r"a\nb\r\t\x1b\x7f\\" + "ä\\xc2\\x80\\xc2\\x9f\u00a0€" + r"\x9bx\xc3"
    assert answer == "null" and message.partition("PathInfo = ")[2] == logged
    log = recorder.state / "rule.log"
    logged = datetime.datetime.fromisoformat(log.read_text().split("\n")[1][:26] + "+00:00")
    assert start <= logged <= datetime.datetime.now(datetime.timezone.utc)


@pytest.mark.parametrize("surplus", [0, 1])
def test_longest_log_message(surplus, recorder):
    _, (first,) = ask(recorder, "PUT", b"", "", "PATH_INFO=/")
    text = "/" + (32768 - len(first) + surplus) * "x"
    _, (message,) = ask(recorder, "PUT", b"", "", "PATH_INFO=" + text)
    whole = first + text[1:]
    assert message == (whole[:-1] + "... (32769 bytes)" if surplus else whole)


def test_what_cannot_be_written_ends_no_process(recorder):
    done = recorder.run_program("PUT", prefix=["prlimit", "--fsize=0", "env", "PATH_INFO=/"])
    assert done.returncode == 0 and b"null" in done.stdout
    reader, writer = os.pipe()
    os.close(reader)
    subprocess.run([recorder.program], env={**recorder.environment(), "REQUEST_METHOD": "PUT"},
                   stdout=writer, check=True)
    os.close(writer)


def test_without_a_directory_the_log_is_standard_error(recorder):
    for variable in ["-u", "RULE_RECORDER_DIR"], ["RULE_RECORDER_DIR="]:
        done = recorder.run_program("PUT", prefix=["env", *variable])
        assert b"Camera configuration: RULE_RECORDER_DIR is not set\n" in done.stderr


def test_web_server_that_does_not_start(recorder):
    with pytest.raises(RecorderError, match="^the web server does not start: 2\n3\n4$"):
        recorder.start_web_server(recorder.program, ["sh", "-c", "seq 4 >&2"])
