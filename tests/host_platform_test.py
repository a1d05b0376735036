"""The platform of the development machine: how the program handles a request, the recorder's files and a
service that answers with given bytes."""

import base64
import concurrent.futures
import contextlib
import http.server
import json
import os
import re
import socket
import subprocess
import threading
import time
import urllib.parse

import pytest

from recorder import Recorder, Rule, wait_until
from recorder_files import hash_password

SERVICE = ("127.0.0.1", 10141)
HOLD, DRIP = "hold", "drip"  # until the client closes the connection; silent, or byte by byte


class Service(http.server.ThreadingHTTPServer):
    """Replaces the configuration service, as a context manager. It answers each request with the bytes
    that `replies` has for its target, and then closes the connection at once, or as HOLD or DRIP after
    the bytes says."""

    def __init__(self, replies):
        super().__init__(SERVICE, ServiceRequest)
        self.replies = replies
        self.requests = []

    def __enter__(self):
        threading.Thread(target=self.serve_forever, args=[0.01]).start()
        return self

    def __exit__(self, *_):
        self.shutdown()
        self.socket.close()


class ServiceRequest(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        body = self.rfile.read(int(self.headers["Content-Length"] or 0))
        self.server.requests.append(f"{self.requestline}\n{self.headers}{body.decode()}")
        reply, *end = self.server.replies.get(self.path, [b""])
        with contextlib.suppress(ConnectionError):
            self.wfile.write(reply)
            while end == [DRIP]:
                self.wfile.write(b"x")
                time.sleep(0.2)
            if end:
                self.rfile.read(1)

    do_POST = do_DELETE = do_GET

    def log_message(self, *_):
        pass


@pytest.fixture
def recorder(bin_dir):
    with Recorder(bin_dir) as recorder:
        yield recorder


def log_messages(recorder):
    """The messages in the log after the torn line, each on a line of the usual form."""
    torn, *lines = (recorder.state / "rule.log").read_text().split("\n")
    assert torn == "torn"
    start = r"2\d{3}-[01]\d-[0-3]\dT[0-2]\d:[0-5]\d:[0-5]\d\.\d{6}Z \[\d+\] "
    return [re.fullmatch(f"{start}(.*)", line)[1] for line in lines[:-1]]


def ask(recorder, method, body=b"", query="func=addRule", *variables):
    """The body of the program's answer, and what it has logged."""
    (recorder.state / "rule.log").write_text("torn")
    done = recorder.run_program(method, body, query, ["env", *variables])
    # Without cameras the program ends at once, with all that it holds.
    assert not done.stderr or not done.stdout
    return done.stdout.decode().partition("\r\n\r\n")[2].rstrip("\n"), log_messages(recorder)


def refusal(code, text="Request failed"):
    return f'{{ "ret_code": {code}, "ret_mesg": "{text}" }}'


OK = b"HTTP/1.1 200 OK\r\n"
ENVELOPE = b'{"err_code":0}'


def sized(size):
    return OK + b"Content-Length: %d\r\n\r\n" % size


WHOLE = sized(14) + ENVELOPE
HEADER = b"X: %b\r\n" % (1000 * b"x")
TOO_LARGE = "the reply is too large"
TIME_LIMIT = "the time limit was reached"
# The result of a call, why it failed, and the reply, by the GUID for which a deletion makes the call.
EXCHANGES = {
    "long head, connection kept": (0, "", OK + 16 * HEADER + WHOLE[len(OK):], HOLD),
    "longest": (0, "", sized(65536) + ENVELOPE.ljust(65536)),
    "too long": (-1004, TOO_LARGE, sized(65537), HOLD),
    "too long, sent": (-1004, TOO_LARGE, OK + b"\r\n" + ENVELOPE.ljust(65537)),
    "endless head": (-1004, TOO_LARGE, OK + 17 * HEADER, HOLD),
    "100 Continue first": (-100, "the service answered with status 100",
                           b"HTTP/1.1 100 Continue\r\n\r\n" + WHOLE),
    "500 with an envelope": (-500, "the service answered with status 500",
                             WHOLE.replace(b"200 OK", b"500 Oops")),
    "status 99": (-1003, "the status of the reply is not valid", WHOLE.replace(b"200", b"099")),
    "never answers": (-1002, TIME_LIMIT, b"", HOLD),
    "a byte now and then": (-1002, TIME_LIMIT, OK, DRIP),
    "body a byte now and then": (-1002, TIME_LIMIT, OK + b"\r\n", DRIP),
    "closed at once": (-1003, "end of stream", b""),
    "closed in the body": (-1003, "partial message", sized(15) + ENVELOPE),
    "a full backlog": (-1002, TIME_LIMIT),
    "no service": (-1001, "Connection refused"),
}


def target_of(guid):
    return "/cfg/Rule?GUID=" + urllib.parse.quote(guid, safe="")


def test_every_exchange_ends_in_time_with_its_own_result(recorder):
    def delete(guid):
        return pool.submit(recorder.run_program, "DELETE", b'{"ruleGUID": ["%b"]}' % guid.encode())

    replies = {target_of(guid): reply for guid, (_, _, *reply) in EXCHANGES.items() if reply}
    # Not within a line, which each of the programs might end.
    (recorder.state / "rule.log").write_text("torn\n")
    with concurrent.futures.ThreadPoolExecutor(len(EXCHANGES)) as pool:
        with Service(replies) as service:
            running = {guid: delete(guid) for guid in EXCHANGES if target_of(guid) in replies}
            assert wait_until(lambda: len(service.requests) == len(replies))
        running["no service"] = delete("no service")
        running["no service"].result()
        with socket.create_server(SERVICE, backlog=0), socket.create_connection(SERVICE):
            running["a full backlog"] = delete("a full backlog")
            answers = {guid: each.result().stdout.decode() for guid, each in running.items()}
    messages = log_messages(recorder)
    for guid, (result, reason, *_) in EXCHANGES.items():
        failure = rf"<0> Error ROVA Delete \/cfg\/Rule fail ret={result}"
        expected = refusal(-304, failure) if result else refusal(0, "Delete Rule successful")
        message = f"Configuration service: DELETE 127.0.0.1:10141{target_of(guid)}: {reason}"
        assert expected in answers[guid], guid
        assert (message in messages) == (result != 0), messages


def test_what_the_service_is_sent(recorder):
    schedules = b'{"err_code": 0, "content": [{"name": "_ALL_DAY_", "GUID": ""}]}'
    replies = {"/cfg/Schedule": schedules, "/cfg/Rule": LIST % b"", "/cfg/multicalls": ENVELOPE,
               "/cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%C3%A4-._~": ENVELOPE}
    with Service({target: [OK + b"\r\n" + reply] for target, reply in replies.items()}) as service:
        ask(recorder, "DELETE", '{"ruleGUID": ["a b&c=d/%ä-._~"]}'.encode())
        answer, messages = ask(recorder, "POST", json.dumps(Rule(0x20010000, 10).document()).encode())
    assert answer == refusal(0, "Add Rule successful")
    (multicall,) = re.findall(r"multicallData=\[(.*)\]", "\n".join(messages))
    common = " HTTP/1.1\nHost: 127.0.0.1:10141\nConnection: close\n"
    assert service.requests == [
        f"DELETE /cfg/Rule?GUID=a%20b%26c%3Dd%2F%25%C3%A4-._~{common}\n",
        f"GET /cfg/Schedule{common}\n", f"GET /cfg/Rule{common}\n",
        f"POST /cfg/multicalls{common}Content-Type: application/json\n"
        f"Content-Length: {len(multicall)}\n\n{multicall}"]


LIST = b'{"err_code":-1,"err_code":0,"content":[%b]}'
LONGEST_LIST = 32 * 1024 * 1024


def node(type, guid, content, name='"ä'):
    content = base64.b64encode(content.encode()).decode()
    document = {"type": type, "GUID": guid, "name": name, "content": content}
    return json.dumps(document, ensure_ascii=False).encode(errors="surrogateescape")


def naming(times):
    """A list with a rule that names an event of 1 MiB that many times."""
    rule = f"<r><EventProfiles>{times * '<evtpf>E</evtpf>'}</EventProfiles></r>"
    return LIST % (node(3, "E", "<e/>", 1024 * 1024 * "n") + b"," + node(0, "R", rule))


def test_schedules_have_the_limit_of_other_replies(recorder):
    schedules = b'{"err_code": 0, "content": []}'.ljust(65537)
    with Service({"/cfg/Schedule": [OK + b"\r\n" + schedules]}):
        answer, _ = ask(recorder, "POST", json.dumps(Rule(0x20010000, 10).document()).encode())
    assert answer == refusal(-101, "Internal error get time profile guid fail ret=-101")


# The body of the service's reply, the code of the refusal, or 0, and its reason.
RULE_LISTS = {
    "too long": ((LIST % b"").ljust(LONGEST_LIST + 1), -1201, "the call failed with -1004"),
    "longest": ((LIST % b"").ljust(LONGEST_LIST), 0, ""),
    "no envelope": (b"[]", -1202, "the reply has no err_code"),
    "no content": (b'{"err_code":0}', -1202, "the reply has no content"),
    "refusal": (b'{"err_code":-7,"content":[]}', -1203, "the service answered with err_code -7"),
    "bad text": (LIST % node(0, "\udced\udca0\udc80", "<r/>"), -1202, "a GUID is not UTF-8"),
    "most elements": (LIST % (b"0" + 249996 * b","), -1202,
                      "* Line 1, Column 42   Syntax error: value, object or array expected. "),
    "too many elements": (LIST % (b"0" + 249998 * b","), -1202, "it has too many elements"),
    "too many elements of content": (LIST % node(0, "R", f"<r>{250000 * '<a/>'}</r>"), -1204,
                                     "the rules have too many elements"),
    "most profiles": (naming(63), 0, ""),
    "too many profiles": (naming(64), -1204, "the rules name too many profiles"),
}


@pytest.mark.parametrize("title", RULE_LISTS)
def test_reply_with_a_rule_list(title, recorder):
    reply, code, reason = RULE_LISTS[title]
    with Service({"/cfg/Rule": [OK + b"\r\n" + reply]}):
        answer, messages = ask(recorder, "GET")
    if code == 0:
        assert answer.startswith('{ "ruleList": [ ')
    else:
        assert (answer, messages[-1]) == (refusal(code), "Rule list: " + reason)


def test_rule_list_has_each_rule_with_its_profiles(recorder):
    rule = ("<rule><a>1</a><a>2</a><EventProfiles><evtpf0>E</evtpf0><evtpf1>A</evtpf1><x>E</x>"
            "</EventProfiles><ActionProfiles><actpf0>A</actpf0></ActionProfiles></rule>")
    event = "<event_profile><EventID>7</EventID></event_profile>"
    nodes = [node(0, "R1", rule), node(3, "E", event), node(4, "A", "<b/>"),
             node(3, "E", "<second/>"), node(0, "R2", "<rule>")]
    with Service({"/cfg/Rule": [OK + b"\r\n" + LIST % b",".join(nodes)]}):
        answer, messages = ask(recorder, "GET")
    assert answer == (
        r'{ "ruleList": [ { "GUID": "R1", "name": "\"ä", "content": { "rule": { "a": "1", '
        r'"EventProfiles": { "evtpf0": "E", "evtpf1": "A", "x": "E" }, '
        r'"ActionProfiles": { "actpf0": "A" } } }, '
        r'"event": [ { "GUID": "E", "name": "\"ä", '
        r'"content": { "event_profile": { "EventID": "7" } } } ], '
        r'"action": [ { "GUID": "A", "name": "\"ä", "content": { "b": "" } } ] }, '
        r'{ "GUID": "R2", "name": "\"ä", "event": [ ], "action": [ ] } ] }')
    assert messages == ["Rule list: content of [R2]: line 1: no element found"]


HASH = hash_password("se:cret")
MD5_HASH = "$1$salt$QY4RdHjFS4y8IOuN25V2L1"  # of the same password
LONGEST_USER = 63 * "u"
USERS = (f"#ann:{HASH}\n\nann:{HASH}\nbob:{MD5_HASH}\noff:*\n:{HASH}\nnohash\n"
         f"{LONGEST_USER}:{HASH}\n{LONGEST_USER}u:{HASH}")
STRANGER = refusal(-2, "Authorized failed")
UNUSABLE = "no usable Basic credentials in the request"


def basic(text):
    return b"Basic " + base64.b64encode(text.encode())


# The users file, the header, and why the client is refused, if it is.
CLIENTS = [
    (USERS, basic("ann:se:cret"), None),
    (USERS, basic("bob:se:cret").replace(b"Basic", b"bASIC "), None),
    (USERS, basic(f"{LONGEST_USER}:se:cret"), None),
    (USERS, basic(f"{LONGEST_USER}u:se:cret"), f"user [{LONGEST_USER}u] refused"),
    (USERS, basic("#ann:se:cret"), "user [#ann] refused"),
    (USERS, basic("ann:Se:cret"), "user [ann] refused"),
    (USERS, basic("ann:"), "user [ann] refused"),
    (USERS, basic("off:*"), "user [off] refused"),
    (USERS, basic("zoe:se:cret"), "user [zoe] refused"),
    (USERS, basic(":se:cret"), "user [] refused"),
    (USERS, basic("ann"), UNUSABLE),
    (USERS, basic("ann:se:cret\0x"), UNUSABLE),
    (USERS, basic("ann:se:cret") + b" ", UNUSABLE),
    (USERS, b"Basic", UNUSABLE),
    (USERS, basic("ann:se:cret").replace(b"Basic", b"Bearer"), UNUSABLE),
    ("off:*\n", basic("ann:se:cret"), "no usable entry in the users file"),
    ("", basic("ann:se:cret"), "no usable entry in the users file"),
]


def test_only_known_credentials_pass(recorder):
    for users, header, reason in CLIENTS:
        (recorder.state / "users").write_text(users)
        outcome = ask(recorder, "PUT", b"", "", b"HTTP_AUTHORIZATION=" + header)
        assert outcome == (("null", []) if reason is None else
                           (STRANGER, [f"Authentication: {reason}"])), header


# A list, with what is wrong in it.
CAMERA_LISTS = [
    ("0\n192\n", "cameras.txt:2: the channel is not in 0 to 191"),
    ("-1", "cameras.txt:1: the channel is not in 0 to 191"),
    ("99999999999", "cameras.txt:1: the channel is not in 0 to 191"),
    ("7\n\n7\n", "cameras.txt:3: channel 7 is there twice"),
    ("Roof 191", "cameras.txt:1: no channel number at the start of the line"),
    ("5x", "cameras.txt:1: no channel number at the start of the line"),
]


def without_cameras(recorder):
    """The result of loading the cameras and the reason, after which the program ends."""
    answer, (reason, result) = ask(recorder, "PUT")
    assert answer == "" and "Error get_cmsvr_conf_array fail ret=" in result
    return int(result.rpartition("=")[2]), reason.removeprefix("Camera configuration: ")


def test_camera_list_has_a_channel_a_line(recorder):
    cameras = recorder.state / "cameras.txt"
    cameras.write_text("# a list\n\n10 Yard 5\r\n \t0\n191\tRoof")
    for channel in 0, 1, 5, 9, 10, 11, 190, 191:
        answer, _ = ask(recorder, "POST", json.dumps(Rule(0x20010000, channel).document()).encode())
        assert (f"Error ch-{channel} GUID is NULL" in answer) == (channel not in (0, 10, 191)), answer
    for text, reason in CAMERA_LISTS:
        cameras.write_text(text)
        assert without_cameras(recorder) == (-1102, reason)
    cameras.write_text(2**20 * "\n")
    assert ask(recorder, "PUT") == ("null", [])
    cameras.write_text((2**20 + 1) * "\n")
    assert without_cameras(recorder) == (-1101, f"{cameras}: not a regular file of at most 1 MiB")
    cameras.unlink()
    assert without_cameras(recorder) == (-1101, f"{cameras}: No such file or directory")
    os.mkfifo(cameras)
    assert without_cameras(recorder) == (-1101, f"{cameras}: not a regular file of at most 1 MiB")


@pytest.mark.parametrize("text, logged", [
    (b"a\nb\r\t\x1b\x7f\\", r"a\nb\r\t\x1b\x7f\\"),
    ("ä\u0080\u009f\u00a0€".encode(), "ä\\xc2\\x80\\xc2\\x9f\u00a0€"),
    (b"\x9bx\xc3", r"\x9bx\xc3"),
    (20000 * b"x", 20000 * "x"),
], ids=["controls", "characters", "bytes", "length"])
def test_no_message_can_forge_or_lose_a_log_line(text, logged, recorder):
    answer, (message,) = ask(recorder, "PUT", b"", "", b"PATH_INFO=" + text)
    assert answer == "null" and message.partition("PathInfo = ")[2] == logged


def test_log_at_its_limit_becomes_the_one_before(recorder):
    log, before = recorder.state / "rule.log", recorder.state / "rule.log.1"
    log.write_text("")
    os.truncate(log, 8 * 2**20 - 1)
    recorder.run_program("PUT", prefix=["env", "PATH_INFO=/"])
    assert not before.exists()
    recorder.run_program("PUT", prefix=["env", "PATH_INFO=/", "HTTP_AUTHORIZATION="])
    assert before.stat().st_size > 8 * 2**20 and log.read_text().count("\n") == 2


def test_what_cannot_be_written_ends_no_process(recorder):
    done = recorder.run_program("PUT", prefix=["prlimit", "--fsize=0", "env", "PATH_INFO=/"])
    assert done.returncode == 0 and b"null" in done.stdout
    reader, writer = os.pipe()
    os.close(reader)
    subprocess.run([recorder.program], env={**recorder.environment(), "REQUEST_METHOD": "PUT"},
                   stdout=writer, check=True)
    os.close(writer)


@pytest.mark.parametrize("variable", [["-u", "RULE_RECORDER_DIR"], ["RULE_RECORDER_DIR="]],
                         ids=["unset", "empty"])
def test_without_a_directory_the_log_is_standard_error(variable, recorder):
    done = recorder.run_program("PUT", prefix=["env", *variable])
    assert b"Camera configuration: RULE_RECORDER_DIR is not set\n" in done.stderr
