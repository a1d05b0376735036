"""Tests the configuration service over HTTP: what it accepts, refuses and stores, and its limits."""

import base64
import contextlib
import http.client
import re
import signal
import socket
import sqlite3
import stat
import subprocess
import time

import pytest

from driver import SERVICE_COMMAND, SERVICE_URL, Recorder, RuleClient, stop

SERVICE = ("127.0.0.1", 10141)
SUCCESS = '{"err_code": 0, "err_str": ""}'
EVENT_GUID = "1111111111AAAAAAAAAAAAAAAAAA0003"
ACTION_GUID = "2222222222AAAAAAAAAAAAAAAAAA000A"
SCHEDULE_GUID = "5c4ed01e000000000000000000000003"
RULE_GUID = "3333333333AAAAAAAAAAAAAAAAAA0003"
SHARING_GUID = "3333333333bbbbbbbbbbbbbbbbbb0003"

# The tests replace b64(TEXT) by TEXT in base64 before they send a document.
EVENT = (
    f'{{"name": "e", "isGroup": false, "description": "d", "GUID": "{EVENT_GUID}", "type": 3, '
    '"active": false, "content": "b64(<event_profile><EventID>-7</EventID><SourceNum>1</SourceNum>'
    '<SourceIds><id0>C</id0></SourceIds></event_profile>)", "EventID": -7}')
ACTION = (
    f'{{"name": "", "isGroup": false, "description": "", "GUID": "{ACTION_GUID}", "type": 4, '
    '"active": true, "content": "b64(<action_profile><ActionName>A</ActionName><TargetNum>2</TargetNum>'
    '<TargetIds><id0>C</id0><id1>D</id1></TargetIds></action_profile>)"}')
RULE = (
    f'{{"name": "r", "isGroup": false, "description": "", "GUID": "{RULE_GUID}", "type": 0, '
    '"active": true, "content": "b64(<rule><EventProfileNum>1</EventProfileNum>'
    f'<EventProfiles><evtpf0>{EVENT_GUID.lower()}</evtpf0></EventProfiles>'
    f'<TimeProfile>{SCHEDULE_GUID}</TimeProfile>'
    '<ActionProfileNum>1</ActionProfileNum>'
    f'<ActionProfiles><actpf0>{ACTION_GUID}</actpf0></ActionProfiles></rule>)"}}')


def call(node):
    return f'{{"object": "Rule", "method": "POST", "body": {{"ruleNode": {node}}}}}'


def encoded(document):
    return re.sub(r"b64\((.*?)\)", lambda xml: base64.b64encode(xml[1].encode()).decode(), document)


def refusal(code, text):
    return f'{{"err_code": {code - 2**32}, "err_str": "{text}"}}'


WHOLE_RULE = f'{{"calls": [{call(EVENT)}, {call(ACTION)}, {call(RULE)}]}}'
NO_SUCH_RULE = refusal(0x94062A2A, "there is no rule with this GUID")
NO_CALLS = "calls is not a list of 1 to 16 calls"

GET = b"GET /cfg/Rule HTTP/1.1\r\nHost: 127.0.0.1:10141\r\n"
POST = GET.replace(b"GET /cfg/Rule", b"POST /cfg/multicalls")
NO_RULES = '{"err_code": 0, "err_str": "", "content": []}'
NO_PROGRAM = refusal(0x94062A01, "not a request of a program here")
WRONG_METHOD = refusal(0x94062A03, "this path takes only GET, DELETE")


def with_header(size):
    return (GET + b"X: ").ljust(size - 4, b"x") + b"\r\n\r\n"


def with_body(size):
    return POST + b"Content-Type: application/json\r\nContent-Length: %d\r\n\r\n" % size


# Requests, each with the status and the body of the reply. The body is None where the web server library
# answers with a text of its own.
REQUESTS = {
    "longest header": (with_header(8192), 200, NO_RULES),
    "header too long": (with_header(8193), 431, None),
    "longest body": (with_body(65536) + b"{}".ljust(65536), 200, refusal(0x94062A04, NO_CALLS)),
    "body too long": (with_body(65537), 413, None),
    "not HTTP": (GET + b"Content-Length: x\r\n\r\n", 400, None),
    "other path": (GET.replace(b"Rule", b"Rules") + b"\r\n", 404,
                   refusal(0x94062A02, "there is nothing under this path")),
    "other method": (GET.replace(b"GET", b"PUT") + b"\r\n", 405, WRONG_METHOD),
    "head alone": (GET.replace(b"GET", b"HEAD") + b"\r\n", 405, ""),
    "name of the machine": (GET.replace(b"127.0.0.1", b"localhost") + b"\r\n", 403, NO_PROGRAM),
    "page in a browser": (GET + b"Origin: null\r\n\r\n", 403, NO_PROGRAM),
    "form in a browser": (POST + b"\r\n", 403, NO_PROGRAM),
}

# Parts of WHOLE_RULE, what replaces them, and the text with which the result is refused.
NO_DOCUMENT = "the body is not a JSON document: "
NO_TEXT = "call 0: name has a zero byte or is not UTF-8"
NO_GUID = " is not 32 hexadecimal digits"
UNREADABLE = "call 0: content cannot be read as XML: "
REFUSED = [
    (WHOLE_RULE, 60000 * "[", NO_DOCUMENT + "maximum recursion depth exceeded while decoding a JSON "
     "array from a unicode string"),
    (WHOLE_RULE, "[", NO_DOCUMENT + "Expecting value"),
    (WHOLE_RULE, "[]", NO_CALLS),
    (WHOLE_RULE, '{"calls": [' + 16 * "7, " + "7]}", NO_CALLS),
    (WHOLE_RULE, '{"calls": [' + 15 * "7, " + "7]}", "call 0: object is missing or of another type"),
    ("POST", "PUT", "call 0: the only call is method POST of object Rule"),
    ('"e"', f'"{4097 * "n"}"', "call 0: name is longer than 4096 bytes"),
    ('"e"', r'"e\u0000"', NO_TEXT),
    ('"e"', '"\udced\udca0\udc80"', NO_TEXT),
    (EVENT_GUID, EVENT_GUID + "0", "call 0: GUID" + NO_GUID),
    ('"type": 4', '"type": 5', "call 1: type is not 0, 3 or 4"),
    ('"type": 4', '"type": 0', "call 1: content is not a document <rule>"),
    ('"EventID": -7', '"EventID": -8', "call 0: content: <EventID> is not the node's EventID"),
    ('"EventID": -7', '"EventID": 2147483648', "call 0: EventID does not fit in 32 bits"),
    ("</action_profile>)", "</action_profile>)!", "call 1: content is not base64"),
    ("</event_profile>", "", UNREADABLE + "no element found"),
    ("</event_profile>", 32 * "<a>" + 32 * "</a>" + "</event_profile>", UNREADABLE + "nested too deeply"),
    ('"d"', '7', "call 0: description is missing or of another type"),
    ('"isGroup": false', '"isGroup": true', "call 0: isGroup is true, but there are no groups of rules"),
    ("</rule>", "<a>" + 40000 * '"' + "</a></rule>", "call 2: the object is too large for the rule list"),
    ("(", "(<?xml version='1.0' encoding='a'?>", UNREADABLE + "unknown encoding: a"),
    ("(", "(<!DOCTYPE a>", UNREADABLE + "a document type is not allowed"),
    ("<ActionName>A</ActionName>", "<ActionName/>", "call 1: content: no <ActionName>"),
    ("<TargetNum>2", "<TargetNum>1", "call 1: content: <TargetNum> does not agree with <TargetIds>"),
    ("<id0>C</id0>", "<id1>C</id1>", "call 0: content: no <id0> in <SourceIds>"),
    ("<evtpf0>1", "<evtpf0>", "call 2: content: the GUID of an event profile" + NO_GUID),
    ("<actpf0>2", "<actpf0>", "call 2: content: the GUID of an action profile" + NO_GUID),
    ("<TimeProfile>5", "<TimeProfile>", "call 2: content: the GUID of the time profile" + NO_GUID),
    (call(EVENT) + ", ", "", f"call 1: there is no event profile {EVENT_GUID.lower()}"),
    ("f0>" + ACTION_GUID, "f0>" + EVENT_GUID, f"call 2: there is no action profile {EVENT_GUID}"),
    ("<TimeProfile>5", "<TimeProfile>6", f"call 2: there is no schedule 6{SCHEDULE_GUID[1:]}"),
]


@pytest.fixture(scope="module")
def service(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start_service()
        yield recorder
        assert stop(recorder.service) == 0


def exchange(request):
    with socket.create_connection(SERVICE, timeout=100) as connection:
        connection.sendall(request)
        connection.shutdown(socket.SHUT_WR)
        return connection.makefile(newline="").read()


def ask(method, path, document=""):
    body = encoded(document).encode(errors="surrogateescape")
    answer = RuleClient(SERVICE_URL).request(method, path, body, {"Content-Type": "application/json"})
    assert answer.status == 200
    return answer.body.decode()


def post(document):
    return ask("POST", "/cfg/multicalls", document)


def listing(*nodes):
    return encoded(f'{{"err_code": 0, "err_str": "", "content": [{", ".join(nodes)}]}}')


@pytest.mark.parametrize("request_bytes, status, body", REQUESTS.values(), ids=REQUESTS)
def test_request(service, request_bytes, status, body):
    head, _, sent = exchange(request_bytes).partition("\r\n\r\n")
    assert re.match(f"HTTP/1.[01] {status} ", head)
    if body is not None:
        assert sent == body and "\r\nContent-Type: application/json\r\n" in head
    assert ("\r\nAllow: GET, DELETE\r\n" in head) == (status == 405)


def test_what_is_not_a_whole_rule_is_refused_and_nothing_of_it_kept(service):
    for part, other, text in REFUSED:
        reply = post(WHOLE_RULE.replace(part, other, 1))
        reason = re.fullmatch(r'{"err_code": -\d+, "err_str": "(.*?)(: line 1.*)?"}', reply)
        assert reason and reason[1] == text, reply
        assert ask("GET", "/cfg/Rule") == NO_RULES


def test_what_is_kept_and_what_a_deletion_takes_along(service):
    # The longest name, with characters that JSON escapes, and the deepest document.
    event = EVENT.replace('"e"', '"' + 4094 * "[" + r'\"\\"')
    event = event.replace("<S", 31 * "<a>" + 31 * "</a>" + "<S", 1)
    assert post(WHOLE_RULE.replace(EVENT, event)) == SUCCESS
    assert post(WHOLE_RULE) == refusal(0x94062A06, f"call 0: GUID {EVENT_GUID} is already in use")
    service.service.kill()
    service.service.wait()
    service.start_service()
    assert (service.state / "rules.db-wal").stat().st_size == 0
    assert ask("GET", "/cfg/Rule?x") == listing(event, ACTION, RULE)
    sharing = RULE.replace(RULE_GUID, SHARING_GUID).replace(SCHEDULE_GUID, "")
    assert post(f'{{"calls": [{call(sharing)}]}}') == SUCCESS
    for query, reply in ((f"GUID={EVENT_GUID}", NO_SUCH_RULE), (f"GUID={RULE_GUID}%00", NO_SUCH_RULE),
                         ("GUID", NO_SUCH_RULE),
                         ("guid=", refusal(0x94062A08, "the query has no parameter GUID")),
                         (f"a=b&GUID=%33{RULE_GUID[1:]}", SUCCESS)):
        assert ask("DELETE", "/cfg/Rule?" + query) == reply
    assert ask("GET", "/cfg/Rule") == listing(event, ACTION, sharing)
    assert ask("DELETE", f"/cfg/Rule?GUID={SHARING_GUID.upper()}&GUID=x") == SUCCESS
    assert ask("GET", "/cfg/Rule") == NO_RULES


# The list of rules with one rule, whose name has characters of several bytes.
LIST = ('{"ruleList": [{"GUID": "%s", "name": "ä€\\u0001", "content": {"rule": {"EventProfileNum": "1", '
        '"EventProfiles": {"evtpf0": "%s"}, "TimeProfile": "%s", "ActionProfileNum": "1", '
        '"ActionProfiles": {"actpf0": "%s"}}}, "event": [{"GUID": "%s", "name": "e", "content": '
        '{"event_profile": {"EventID": "-7", "SourceNum": "1", "SourceIds": {"id0": "C"}, "a": ""}}}], '
        '"action": [{"GUID": "%s", "name": "", "content": {"action_profile": {"ActionName": "A", '
        '"TargetNum": "2", "TargetIds": {"id0": "C", "id1": "D"}}}}]}]}' %
        (RULE_GUID, EVENT_GUID.lower(), SCHEDULE_GUID, ACTION_GUID, EVENT_GUID, ACTION_GUID))


def test_database_of_the_version_before(service):
    """A database of 1.0.0 has no column `entry`, so the conversion must compute it. Of two elements with the
    same name the first counts."""
    named = WHOLE_RULE.replace('"r"', '"ä€\\u0001"').replace("</event_p", "<a/><a>7</a></event_p")
    assert post(named) == SUCCESS and ask("GET", "/host/ruleList") == LIST
    service.service.send_signal(signal.SIGSTOP)
    assert stop(service.service) == 0
    file, copy = service.state / "rules.db", service.state / "rules.db.before-1.1"
    with contextlib.closing(sqlite3.connect(file)) as database:
        database.executescript("ALTER TABLE node DROP COLUMN entry; PRAGMA user_version = 1")
        before = list(database.iterdump())
    service.start_service()
    assert ask("GET", "/host/ruleList") == LIST
    assert stat.S_IMODE(copy.stat().st_mode) == 0o600
    with contextlib.closing(sqlite3.connect(copy)) as database:
        assert list(database.iterdump()) == before
    assert ask("DELETE", f"/cfg/Rule?GUID={RULE_GUID}") == SUCCESS
    assert ask("GET", "/host/ruleList") == '{"ruleList": []}'


def test_what_prevents_a_start(service, tmp_path):
    other = tmp_path / "other.db"
    sqlite3.connect(other).execute("CREATE TABLE other (x)").connection.close()
    for file, reason in (
            (other, f"{other}: the file is not a rule database"),
            (tmp_path, f"{tmp_path}: unable to open database file"),
            (tmp_path / "new.db", "port 10141 of 127.0.0.1: Address already in use")):
        done = subprocess.run([*SERVICE_COMMAND, "--database", file], timeout=60, text=True,
                              stderr=subprocess.PIPE, umask=0)
        assert (done.returncode, done.stderr) == (1, f"config_service: {reason}\n")
    assert stat.S_IMODE((tmp_path / "new.db").stat().st_mode) == 0o600


def test_other_interfaces_are_not_served(service):
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", SERVICE[1]))


def test_silent_clients_keep_others_waiting_for_a_while_only(service):
    silent = [http.client.HTTPConnection(*SERVICE, timeout=100) for _ in range(64)]
    for connection in silent:
        connection.request("PUT", "/cfg/Rule")
        assert connection.getresponse().read()
    start = time.monotonic()
    for connection in silent:
        connection.request("GET", "/cfg/Rule")
        answer = connection.getresponse()
        assert answer.read().decode() == NO_RULES and "Allow" not in answer.headers
    assert exchange(GET + b"\r\n").endswith(NO_RULES)
    assert 10 <= time.monotonic() - start < 20
    for connection in silent:
        assert connection.sock.recv(1) == b""


def test_full_disk_is_answered(service):
    stop(service.service)
    # The limit lets no file grow beyond the size of the index of the write-ahead log.
    service.start_service(["prlimit", "--fsize=32768"])
    assert post(WHOLE_RULE.replace('"d"', f'"{32768 * "d"}"')) == refusal(
        0x94062A09, "database: disk I/O error")
    assert ask("GET", "/cfg/Rule") == NO_RULES
