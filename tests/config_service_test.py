"""The configuration service over HTTP: what it accepts, refuses and stores, and its limits."""

import base64
import re
import socket
import sqlite3
import subprocess
import time

import pytest

from recorder import SERVICE_URL, Recorder, RuleClient, stop

SERVICE = ("127.0.0.1", 10141)
SUCCESS = '{"err_code": 0, "err_str": ""}'
SCHEDULES = ('{"err_code": 0, "err_str": "", "content": ['
             '{"name": "_ALL_DAY_", "GUID": "5C4ED01E000000000000000000000001"}, '
             '{"name": "Working hours", "GUID": "5C4ED01E000000000000000000000002"}, '
             '{"name": "Night", "GUID": "5C4ED01E000000000000000000000003"}]}')
EVENT_GUID = "1111111111AAAAAAAAAAAAAAAAAA0003"
ACTION_GUID = "2222222222AAAAAAAAAAAAAAAAAA000A"
RULE_GUID = "3333333333AAAAAAAAAAAAAAAAAA0003"
SHARING_GUID = "3333333333bbbbbbbbbbbbbbbbbb0003"

# The text in b64() is sent encoded.
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
    '<TimeProfile>5c4ed01e000000000000000000000003</TimeProfile>'
    '<ActionProfileNum>1</ActionProfileNum>'
    f'<ActionProfiles><actpf0>{ACTION_GUID}</actpf0></ActionProfiles></rule>)"}}')


def call(node):
    return f'{{"object": "Rule", "method": "POST", "body": {{"ruleNode": {node}}}}}'


def encoded(document):
    return re.sub(r"b64\((.*?)\)", lambda xml: base64.b64encode(xml[1].encode()).decode(), document)


WHOLE_RULE = f'{{"calls": [{call(EVENT)}, {call(ACTION)}, {call(RULE)}]}}'
LONGEST_NAME = WHOLE_RULE.replace('"e"', f'"{4096 * "n"}"')

NO_PROGRAM = '{"err_code": -1811535359, "err_str": "not a request of a program here"}'
HOST = b" HTTP/1.1\r\nHost: 127.0.0.1:10141\r\n"
GET = b"GET /cfg/Schedule" + HOST
POST = b"POST /cfg/multicalls" + HOST
JSON = b"Content-Type: application/json\r\n"
CLOSE = b"Connection: close\r\n\r\n"


def with_head(size):
    return GET + b"X: %s\r\n" % (b"x" * (size - len(GET) - 5 - len(CLOSE))) + CLOSE


def with_body(size):
    return POST + JSON + b"Content-Length: %d\r\n" % size + CLOSE + b"{}".ljust(size)


REQUESTS = {
    "list": (GET + CLOSE, "200 OK", SCHEDULES),
    "longest head": (with_head(8192), "200 OK", SCHEDULES),
    "head too long": (with_head(8300), "431 Request Header Fields Too Large",
                      '{"err_code": -1811535359, "err_str": "the header is too large"}'),
    "longest body": (with_body(65536), "200 OK",
                     '{"err_code": -1811535356, "err_str": "calls is not a list of 1 to 16 calls"}'),
    "body too long": (with_body(65537), "413 Payload Too Large",
                      '{"err_code": -1811535359, "err_str": "the body is too large"}'),
    "not HTTP": (b"SSH-2.0\r\n\r\n", "400 Bad Request",
                 '{"err_code": -1811535359, "err_str": "not HTTP: bad method"}'),
    "other path": (b"GET /cfg/Rules" + HOST + CLOSE, "404 Not Found",
                   '{"err_code": -1811535358, "err_str": "there is nothing under this path"}'),
    "other method": (b"PUT /cfg/Rule" + HOST + CLOSE, "405 Method Not Allowed",
                     '{"err_code": -1811535357, "err_str": "this path takes only GET, DELETE"}'),
    "head alone": (b"HEAD /cfg/Rule" + HOST + CLOSE, "405 Method Not Allowed", ""),
    "name of the machine": (GET.replace(b"127.0.0.1", b"localhost") + CLOSE, "403 Forbidden",
                            NO_PROGRAM),
    "page in a browser": (GET + b"Origin: null\r\n" + CLOSE, "403 Forbidden", NO_PROGRAM),
    "form in a browser": (POST + CLOSE, "403 Forbidden", NO_PROGRAM),
}

# What each of these, in the place of a part of WHOLE_RULE, is refused with: the code, and the
# beginning of the text.
NO_DOCUMENT = "the body is not a JSON document: "
NO_CALLS = "calls is not a list of 1 to 16 calls"
OTHER_CALL = "call 0: the only call is method POST of object Rule"
NO_TEXT = "call 0: name has a zero byte or is not UTF-8"
NO_MEMBER = "call 0: content: no <id0> in <SourceIds>"
NO_GUID = " is not 32 hexadecimal digits"
UNREADABLE = "call 0: content cannot be read as XML: line 1: "
REFUSED = {
    0x94062A04: [
        (WHOLE_RULE, "", NO_DOCUMENT),
        ("}}}]}", "}}}]}x", NO_DOCUMENT),
        (WHOLE_RULE, r'{"a\"": ' + 16 * "[", NO_DOCUMENT + "it is nested too deeply"),
        (WHOLE_RULE, "[" + 1000 * ",", NO_DOCUMENT + "it has too many elements"),
        (WHOLE_RULE, "{}", NO_CALLS),
        (WHOLE_RULE, '{"a": [' + 16 * "[], " + '[]], "calls":[]}', NO_CALLS),
        (WHOLE_RULE, '{"calls":[' + 16 * (call("{}") + ",") + "7]}", NO_CALLS),
    ],
    0x94062A05: [
        (WHOLE_RULE, '{"calls":[7]}', "call 0: object is missing or of another type"),
        ('"Rule"', '"Role"', OTHER_CALL),
        ("POST", "PUT", OTHER_CALL),
        ('"e"', f'"{4097 * "n"}"', "call 0: name is longer than 4096 bytes"),
        ('"e"', r'"e\u0000"', NO_TEXT),
        ('"e"', '"\udced\udca0\udc80"', NO_TEXT),
        (EVENT_GUID, EVENT_GUID + "0", "call 0: GUID" + NO_GUID),
        ('"11', '"G1', "call 0: GUID" + NO_GUID),
        ('"isGroup": false', '"isGroup": true', "call 0: isGroup is true"),
        ('"type": 4', '"type": 5', "call 1: type is not 0, 3 or 4"),
        ('"type": 4', '"type": 0', "call 1: content is not a document <rule>"),
        ('"EventID": -7', '"EventID": -8', "call 0: content: <EventID> is not the node's EventID"),
        ('"EventID": -7', '"EventID": 2147483648', "call 0: EventID does not fit in 32 bits"),
        ("</action_profile>)", "</action_profile>)!", "call 1: content is not base64"),
        ("(", "(" + 29 * "<a>", UNREADABLE + "no element found"),
        ("(", "(" + 30 * "<a>", UNREADABLE + "nested too deeply"),
        ("(", "(<a>" + 994 * "<a/>", UNREADABLE + "no element found"),
        ("(", "(<a>" + 995 * "<a/>", UNREADABLE + "too many elements"),
        ("(<event", "(event", UNREADABLE + "syntax error"),
        ("(", "(<!DOCTYPE a>", UNREADABLE + "a document type"),
        ("<ActionName>A</ActionName>", "<ActionName/>", "call 1: content: no <ActionName>"),
        ("<TargetNum>2", "<TargetNum>1",
         "call 1: content: <TargetNum> does not agree with <TargetIds>"),
        ("<id0>C</id0>", "<id0/>", NO_MEMBER),
        ("<id0>C</id0>", "<id1>C</id1>", NO_MEMBER),
        ("<SourceNum>1</SourceNum><SourceIds><id0>C</id0></SourceIds>", "",
         "call 0: content: no member in <SourceIds>"),
        ("<SourceNum>1</SourceNum>", "", "call 0: content: <SourceNum> does not agree"),
        ("<evtpf0>1", "<evtpf0>", "call 2: content: the GUID of an event profile" + NO_GUID),
        ("<actpf0>2", "<actpf0>", "call 2: content: the GUID of an action profile" + NO_GUID),
        ("<TimeProfile>5", "<TimeProfile>", "call 2: content: the GUID of the time profile" + NO_GUID),
    ],
    0x94062A06: [(call(ACTION), call(EVENT), f"call 1: GUID {EVENT_GUID} is already in use")],
    0x94062A07: [
        (f"{call(EVENT)}, {call(ACTION)}, ", "",
         f"call 0: there is no event profile {EVENT_GUID.lower()}"),
        ("f0>" + ACTION_GUID, "f0>" + EVENT_GUID, f"call 2: there is no action profile {EVENT_GUID}"),
        ("<TimeProfile>5", "<TimeProfile>6",
         "call 2: there is no schedule 6c4ed01e000000000000000000000003"),
    ],
}


@pytest.fixture(scope="module")
def service(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start_service()
        yield recorder
        assert stop(recorder.service) == 0


def receive(connection, end=None):
    """What comes up to some text, or until the service closes the connection."""
    received = b""
    while end is None or end not in received:
        part = connection.recv(65536)
        if not part:
            break
        received += part
    return received.decode()


def exchange(request):
    with socket.create_connection(SERVICE, timeout=100) as connection:
        connection.sendall(request)
        return receive(connection)


def ask(method, path, document=""):
    body = encoded(document).encode(errors="surrogateescape")
    return RuleClient(SERVICE_URL).request(
        method, path, body, {"Content-Type": "application/json"}).body.decode()


def post(document):
    return ask("POST", "/cfg/multicalls", document)


def refusal(code, text):
    """The beginning of a reply."""
    return f'{{"err_code": {code - 2**32}, "err_str": "{text}'


def listing(*nodes):
    return encoded(f'{{"err_code": 0, "err_str": "", "content": [{", ".join(nodes)}]}}')


@pytest.mark.parametrize("title", REQUESTS)
def test_request(service, title):
    request, status, expected = REQUESTS[title]
    head, _, body = exchange(request).partition("\r\n\r\n")
    assert (head.split("\r\n")[0], body) == (f"HTTP/1.1 {status}", expected)
    assert "\r\nContent-Type: application/json\r\n" in head
    assert ("\r\nAllow: GET, DELETE" in head) == status.startswith("405")


def test_what_is_not_a_whole_rule_is_refused_and_nothing_of_it_kept(service):
    for code, rows in REFUSED.items():
        for part, other, text in rows:
            assert part in WHOLE_RULE
            reply = post(WHOLE_RULE.replace(part, other, 1))
            assert reply.startswith(refusal(code, text)), other
            assert ask("GET", "/cfg/Rule") == listing()


def test_what_is_kept_and_what_a_deletion_takes_along(service):
    assert post(LONGEST_NAME) == SUCCESS
    assert post(WHOLE_RULE).startswith(refusal(0x94062A06, "call 0: "))
    stop(service.service)
    service.start_service()
    event = EVENT.replace('"e"', f'"{4096 * "n"}"')
    assert ask("GET", "/cfg/Rule?x") == listing(event, ACTION, RULE)
    sharing = RULE.replace(RULE_GUID, SHARING_GUID)
    assert post(f'{{"calls":[{call(sharing)}]}}') == SUCCESS
    for unknown in "F" + RULE_GUID[1:], EVENT_GUID, "":
        assert ask("DELETE", f"/cfg/Rule?GUID={unknown}") == refusal(
            0x94062A2A, 'there is no rule with this GUID"}')
    for query in "", f"?guid={RULE_GUID}", f"?GUID={RULE_GUID}%00":
        assert ask("DELETE", "/cfg/Rule" + query) == refusal(
            0x94062A08, 'the query has no parameter GUID"}')
    assert ask("DELETE", f"/cfg/Rule?a=b&GUID=%33{RULE_GUID[1:]}") == SUCCESS
    assert ask("GET", "/cfg/Rule") == listing(event, ACTION, sharing)
    assert ask("DELETE", f"/cfg/Rule?GUID={SHARING_GUID.upper()}&GUID=x") == SUCCESS
    assert ask("GET", "/cfg/Rule") == listing()


@pytest.mark.parametrize("statement", ["CREATE TABLE other (x)", "PRAGMA user_version = 2"])
def test_database_of_another_kind_is_left_alone(service, tmp_path, statement):
    sqlite3.connect(tmp_path / "other.db").execute(statement).connection.close()
    program = service.program.with_name("config_service")
    done = subprocess.run([program, "--database", tmp_path / "other.db"], timeout=60, text=True,
                          stderr=subprocess.PIPE)
    assert (done.returncode, done.stderr) == (
        1, f"config_service: {tmp_path / 'other.db'}: the file is not a rule database\n")


def test_other_interfaces_are_not_served(service):
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", SERVICE[1]))


def test_silent_clients_keep_others_waiting_for_a_while_only(service):
    silent = [socket.create_connection(SERVICE, timeout=100) for _ in range(64)]
    for connection in silent * 2:
        connection.sendall(GET + b"\r\n")
        assert "Night" in receive(connection, b"]}")
    start = time.monotonic()
    assert "Night" in exchange(GET + CLOSE)
    assert 9 < time.monotonic() - start < 60
    for connection in silent:
        assert receive(connection) == ""
        connection.close()


def test_failure_of_the_database_is_answered(service):
    with sqlite3.connect(service.state / "rules.db") as database:
        database.execute("DROP TABLE schedule")
    for reply in ask("GET", "/cfg/Schedule"), post(WHOLE_RULE):
        assert reply.startswith(refusal(0x94062A09, "database: no such table"))
    assert ask("GET", "/cfg/Rule") == listing()
