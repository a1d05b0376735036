"""The rule endpoint as a client meets it, with a web server and the configuration service."""

import base64
import concurrent.futures
import json
import re
import select
import signal
import time

import pytest

from recorder import Rule, RuleClient, ask_service, stop, wait_until

ADD = "?func=addRule"
EVENT = 536936448
UNKNOWN_GUID = "F" * 32
CAMERA = "CA3E7A000000000000000000C0DE"


def envelope(code, text):
    return f'{{ "ret_code": {code}, "ret_mesg": "{text}" }}'


ADDED = (200, envelope(0, "Add Rule successful"))
DELETED = (200, envelope(0, "Delete Rule successful"))
NO_RULES = (200, '{ "ruleList": [ ] }')


def ask(recorder, method, target="", document=None, client=None):
    """The status and the text of an answer; everything else in it must be as usual."""
    body = b"" if document is None else json.dumps(document).encode()
    answer = recorder.request(method, target, body, client)
    assert answer.headers["Content-Type"] == "application/json"
    assert answer.body.endswith(b"\n\n")
    return answer.status, answer.body[:-2].decode()


def quick_rule(event, channel, **members):
    return {"rule": {"event": [{"eventID": event, "camera": [{"chIdx": channel}]}], **members}}


def schedule(name):
    schedules = ask_service("GET", "/cfg/Schedule")["content"]
    return next(each["GUID"] for each in schedules if each["name"] == name)


def rules_of(recorder, client=None):
    """Of each rule its name, way of creation, time profile, event and the event's source, and its
    actions with their targets."""
    status, text = ask(recorder, "GET", client=client)
    assert status == 200
    return [describe(rule) for rule in json.loads(text)["ruleList"]]


def describe(rule):
    content = rule["content"]["rule"]
    event = rule["event"][0]["content"]["event_profile"]
    actions = [action["content"]["action_profile"] for action in rule["action"]]
    return (rule["name"], content["CreationMethod"], content["TimeProfile"], event["EventID"],
            event["SourceIds"]["id0"], *[action["ActionName"] for action in actions],
            *re.findall(r'"id0": "(\w+)"', json.dumps(actions)))


def test_life_of_rules(recorder):
    night = schedule("Night")
    recording = {"ActionName": "RecordControl", "chIdx": [5]}
    assert ask(recorder, "POST", ADD, quick_rule(EVENT, 3, action=[recording])) == ADDED
    assert ask(recorder, "POST", ADD, quick_rule(EVENT, 3)) == (400, envelope(
        -911, "Warning chIdx=3, eventID=536936448 already added in quick mode rule list"))
    assert ask(recorder, "POST", ADD, quick_rule(
        537264129, 191, timeprofileGUID=night, ruleName="dark")) == ADDED
    assert rules_of(recorder) == [
        ("clientRule", "quick", schedule("_ALL_DAY_"), "536936448", CAMERA + "0003",
         "RecordControl", CAMERA + "0005"),
        ("dark", "quick", night, "537264129", CAMERA + "0191")]
    assert ask(recorder, "POST", ADD, quick_rule(537264129, 4, timeprofileGUID=UNKNOWN_GUID)) == (
        400, envelope(-104, f"Error check time profile [{UNKNOWN_GUID}] fail ret=-104"))
    guids = [rule["GUID"] for rule in recorder.client.list()]
    guids.insert(1, UNKNOWN_GUID)
    assert ask(recorder, "DELETE", "", {"ruleGUID": guids}) == DELETED
    assert ask(recorder, "GET") == NO_RULES


# Clients on connections of their own. A step is bytes to send, seconds to wait, or LEAVE, after which
# the connection is closed; otherwise the web server must close it.
LEAVE = "leave"
HEAD = (b"POST /rule?func=addRule HTTP/1.1\r\nHost: recorder\r\n"
        b"Authorization: Basic CREDENTIALS\r\n")
SIZED = HEAD + b"Connection: close\r\nContent-Length: "
CHUNKED = HEAD + b"Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n"
BAD_REQUEST = "HTTP/1.1 400 Bad Request"
NO_EVENT = [BAD_REQUEST, envelope(-102, "Error input Json no event object")]
ODD_CLIENTS = {
    "body cut off": ([SIZED + b"9\r\n\r\n{}", LEAVE], []),
    "body cut off, then silence": ([SIZED + b"9\r\n\r\n{}"], []),
    "no request": ([], []),
    "head without an end": ([b"PUT /rule HTTP/1.1\r\n"], []),
    "slow body": ([SIZED + b"4\r\n\r\n{", 4, b"}", 4, b" ", 4, b" "], NO_EVENT),
    "body when asked for": ([SIZED + b"2\r\nExpect: 100-continue\r\n\r\n", 1, b"{}"],
                            ["HTTP/1.1 100 Continue", *NO_EVENT]),
    "longest body, of chunks": ([CHUNKED + b"fff\r\n%-4095b\r\n0\r\n\r\n" % b"{}"], NO_EVENT),
    "body of chunks too long": ([CHUNKED + b"1000\r\n%-4096b\r\n0\r\n\r\n" % b"{}"],
                                [BAD_REQUEST, envelope(-291, "content data is NULL")]),
    "chunks cut off": ([CHUNKED + b"2\r\n{}\r\n"], []),
    "not a chunk": ([CHUNKED + b"x\r\n{}\r\n"], [BAD_REQUEST]),
    "chunks and a length": ([SIZED + b"2\r\nTransfer-Encoding: chunked\r\n\r\n{}"], [BAD_REQUEST]),
    "negative length": ([SIZED + b"-1\r\n\r\n"], [BAD_REQUEST]),
    "two lengths": ([SIZED + b"2\r\nContent-Length: 3\r\n\r\n{} "], [BAD_REQUEST]),
    "zero byte in the body": ([SIZED + b"3\r\n\r\n{\0}"],
                              [BAD_REQUEST, envelope(-101, "Error input Json format error")]),
    "bytes after the body": ([SIZED + b"2\r\n\r\n{}{}{}"], NO_EVENT),
    "two requests at once": ([HEAD + b"Content-Length: 2\r\n\r\n{}" + SIZED + b"2\r\n\r\n{}"],
                             NO_EVENT + NO_EVENT),
}


def send(connection, recorder, data):
    login = base64.b64encode(f"{recorder.user}:{recorder.password}".encode())
    connection.sendall(data.replace(b"CREDENTIALS", login))


def exchange(recorder, steps):
    """The status lines and the endpoint's texts that the client receives."""
    with recorder.connect() as connection:
        for step in steps:
            if step == LEAVE:
                return []
            if isinstance(step, bytes):
                send(connection, recorder, step)
            else:
                time.sleep(step)
        connection.settimeout(20)
        received = b"".join(iter(lambda: connection.recv(65536), b""))
    return re.findall(r"^(?:HTTP/|\{).*$", received.decode().replace("\r", ""), re.MULTILINE)


@pytest.fixture(scope="module")
def exchanges(running_recorder, request):
    """The exchanges of the selected odd clients, at the same time because they mostly wait."""
    titles = [item.callspec.params["title"] for item in request.session.items
              if item.function is test_odd_client]
    with concurrent.futures.ThreadPoolExecutor(len(titles)) as clients:
        return {title: clients.submit(exchange, running_recorder, ODD_CLIENTS[title][0])
                for title in titles}


@pytest.mark.parametrize("title", ODD_CLIENTS)
def test_odd_client(exchanges, recorder, title):
    assert exchanges[title].result() == ODD_CLIENTS[title][1]


def test_clients_gone_while_the_service_is_silent(recorder):
    """Both programs wait for the service when their clients go. The web server notices only the
    reset, and ends that program; the other one finishes."""
    bodies = [json.dumps(quick_rule(EVENT, channel)).encode() for channel in (3, 4)]
    with recorder.connect() as leaving, recorder.connect() as resetting:
        recorder.service.send_signal(signal.SIGSTOP)
        send(leaving, recorder, SIZED + b"%d\r\n\r\n%b" % (len(bodies[0]), bodies[0]))
        send(resetting, recorder, SIZED + b"%d\r\nExpect: 100-continue\r\n\r\n" % len(bodies[1]))
        # Closing with "100 Continue" unread is what resets the connection.
        assert select.select([resetting], [], [], 60)[0]
        send(resetting, recorder, bodies[1])
        # The web server cannot end a process that does not run the program yet.
        assert wait_until(lambda: len(recorder.running_programs()) == 2 and
                          "lighttpd" not in recorder.running_programs())
    assert wait_until(lambda: len(recorder.running_programs()) == 1)
    recorder.service.send_signal(signal.SIGCONT)
    assert wait_until(lambda: not recorder.running_programs())
    assert [rule[4] for rule in rules_of(recorder)] == [CAMERA + "0003"]


def test_long_list_with_a_full_disk(recorder):
    name = "0" * 3900
    channels, events = (0, 1, 2, 4, 5, 6, 7, 10, 191), (537264129, 537264130)
    for channel in channels:
        for event in events:
            assert recorder.client.add(Rule(event, channel, name=name))
    # All that the web server can write to a file; it keeps some 64 KiB of an answer in memory.
    full_disk = ["env", "--ignore-signal=XFSZ", "prlimit", "--fsize=8192"]
    web, url = recorder.start_web_server(recorder.program, full_disk)
    client = RuleClient(url, recorder.user, recorder.password)
    assert len(ask(recorder, "GET", client=client)[1]) > 65536
    assert sorted(rules_of(recorder, client)) == sorted(
        (name, "quick", schedule("_ALL_DAY_"), str(event), f"{CAMERA}{channel:04}")
        for channel in channels for event in events)
    # The random part of a GUID tells one request from others.
    assert len({rule["GUID"][10:28] for rule in recorder.client.list()}) > 1
    stop(web)
