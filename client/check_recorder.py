#!/usr/bin/python3
"""Checks a recorder through the address of its rule endpoint, row by row. It needs Python 3.9 and
rule_client.py in the same directory:

    check_recorder.py --url http://192.0.2.10/rule --user admin --channel 3 --free-channel 9

A row is a function whose first line of documentation is the requirement. It gets the Recorder, and
returns if the requirement is met."""

import argparse
import base64
import collections
import concurrent.futures
import contextlib
import http.client
import json
import netrc
import os
import re
import signal
import subprocess
import sys
import time
import urllib.parse
import xml.etree.ElementTree as xml
from typing import Callable, NamedTuple

try:
    from rule_client import NoAnswer, Refused, Rule, RuleClient, find_login, read_entry
except ModuleNotFoundError:
    sys.exit("check_recorder: rule_client.py must be in the same directory")

ADD = "?func=addRule"
EVENT = 0x20010000
ALARM_EVENT = 0x20020000
# Events without an alarm input, of docs/api.md.
EVENTS = [EVENT, *range(0x20060001, 0x20060007), *range(0x2006000A, 0x2006001B, 2),
          *range(0x200A0001, 0x200A0005), 0x200A0009, *range(0x200C0001, 0x200C0004)]
CLASH = -221  # a random GUID is in use
NOT_THERE = -1811535318  # the service's code for the deletion of a GUID without a rule
ATTEMPTS = 50
ROUNDS = 200
INTERRUPTIONS = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)

# Answers as `outcome` shows them.
NULL = "200 null"
ADDED = '200 { "ret_code": 0, "ret_mesg": "Add Rule successful" }'
DELETED = '200 { "ret_code": 0, "ret_mesg": "Delete Rule successful" }'
OF_WEB_SERVER = "{} of the web server"


def refusal(code, text, status=400):
    return f'{status} {{ "ret_code": {code}, "ret_mesg": "{text}" }}'


UNAUTHORISED = refusal(-2, "Authorized failed", 401)
UNKNOWN_METHOD = refusal(-3, "http method invalid", 200)
NO_EVENT = refusal(-102, "Error input Json no event object")
NO_BODY = refusal(-291, "content data is NULL")


class Failed(Exception):
    """A requirement is not met."""

    def __init__(self, expected, actual):
        super().__init__(expected, actual)
        self.expected = printable(expected)
        self.actual = printable(actual)


class TimeIsUp(Exception):
    """A row took longer than its limit."""


class Row(NamedTuple):
    """A requirement that can be checked alone."""

    name: str
    group: str
    page: str  # the page and heading that say more
    needs: tuple  # the options without which it is skipped
    seconds: int  # its time limit
    slow: bool  # takes longer than the others together
    check: Callable

    @property
    def requirement(self):
        return self.check.__doc__


ROWS = []


def row(group, page, *needs, seconds=30, slow=False):
    """Turns a function into a row."""
    def add(check):
        name = check.__name__.replace("_", "-")
        ROWS.append(Row(name, group, f"docs/{page}", needs, seconds, slow, check))
        return check
    return add


def expect(actual, *allowed):
    if actual not in allowed:
        raise Failed(" or ".join(map(str, allowed)), str(actual))


def outcome(answer):
    """An answer as a line: the status, and the body if it is the endpoint's."""
    text = answer.body.decode(errors="backslashreplace").rstrip("\n")
    if not text:
        return f"{answer.status} without a body"
    return (f"{answer.status} {text}" if re.match("[{[]|null", text)
            else OF_WEB_SERVER.format(answer.status))


def printable(text):
    """The text as one line of ASCII of limited length, because a recorder can send anything."""
    text = "".join(char if " " <= char <= "~" else ascii(char)[1:-1] for char in text)
    return text if len(text) <= 500 else text[:500] + "..."


def document(event, channel, **members):
    """The body that creates the rule; `members` are those of Rule, and a name is sent only if given."""
    content = Rule(event, channel, **members).document()
    if "name" not in members:
        del content["rule"]["ruleName"]
    return json.dumps(content, ensure_ascii=False).encode()


def member(value, path):
    """The member at a path, or None: a recorder can omit a member or send one of any type."""
    for key in path.split("."):
        try:
            value = value[int(key) if key.isdigit() else key]
        except (IndexError, KeyError, TypeError):
            return None
    return value


class Recorder:
    """The recorder under test, and what rows do with it."""

    def __init__(self, options, login):
        self.options = options
        self.login = login
        self.client = RuleClient(options.url, *login)
        self.channels = sorted({options.channel, options.free_channel, options.record} - {None})
        self.read_only = ""  # why no row may create a rule

    def ask(self, method, target="", body=None, headers=None):
        """The Answer to a request. An interruption waits for it: a rule could otherwise be created
        after what was made has been deleted."""
        before = signal.pthread_sigmask(signal.SIG_BLOCK, INTERRUPTIONS)
        try:
            return self.client.request(method, target, body, headers)
        finally:
            signal.pthread_sigmask(signal.SIG_SETMASK, before)

    def post(self, body=b"{}", target=ADD):
        return outcome(self.ask("POST", target, body))

    def start_post(self, body, length):
        """Sends a POST with a body of another length than announced, and returns its connection."""
        url = urllib.parse.urlsplit(self.options.url)
        scheme = {"http": http.client.HTTPConnection, "https": http.client.HTTPSConnection}
        connection = scheme[url.scheme](url.hostname, url.port, timeout=100)
        connection.putrequest("POST", url.path + ADD)
        connection.putheader("Content-Length", str(length))
        if self.login[0] is not None:
            login = base64.b64encode(":".join(self.login).encode()).decode()
            connection.putheader("Authorization", f"Basic {login}")
        connection.endheaders(body)
        return connection

    def add(self, *rule, **members):
        """Creates a rule, in several attempts if necessary. Returns the outcome and the number of
        clashes."""
        body = document(*rule, **members)
        for clashes in range(ATTEMPTS):
            answer = self.post(body)
            if f'"ret_code": {CLASH},' not in answer:
                break
        return answer, clashes

    def must_add(self, *rule, **members):
        expect(self.add(*rule, **members)[0], ADDED)

    def delete(self, *guids):
        return outcome(self.ask("DELETE", "", json.dumps({"ruleGUID": guids}).encode()))

    def rules(self):
        """The entries of all rules."""
        answer = self.ask("GET")
        with contextlib.suppress(RecursionError, ValueError):
            document = json.loads(answer.body)
            rules = member(document, "ruleList")
            if document is None or isinstance(rules, list):
                return rules or []
        raise Failed("the list of rules, or null", outcome(answer))

    def made(self):
        """The entries of the rules that this command has made: there were none on its channels."""
        return [entry for entry in self.rules() if self.is_ours(member(entry, "GUID"))]

    def is_ours(self, guid):
        return (re.fullmatch("3{10}[0-9A-F]{22}", str(guid)) is not None
                and int(guid[28:], 16) in self.channels)

    def only_rule(self):
        """The entry of the only rule that the row has made."""
        made = self.made()
        if len(made) != 1:
            raise Failed("one rule in the list", f"{len(made)} rules")
        return made[0]

    def expect_members(self, expected):
        """Compares members of the only rule that the row has made, by their paths."""
        entry = self.only_rule()
        expect(json.dumps({path: member(entry, path) for path in expected}), json.dumps(expected))

    def begin(self):
        """Finds out whether rows may create rules. Returns why the command must not start, or None."""
        try:
            there = [str(member(entry, "GUID")) for entry in self.rules() if self.is_in_use(entry)]
        except (Failed, http.client.HTTPException):
            self.read_only = "the list of rules cannot be read" if self.channels else ""
            return None
        if there:
            return f"there are rules on the given channels: {', '.join(there)}"
        if self.channels and self.delete(32 * "0") != DELETED:
            self.read_only = "rules cannot be deleted"
        return None

    def is_in_use(self, entry):
        """Whether a rule uses one of the channels."""
        rule = read_entry(entry).rule
        return (self.is_ours(member(entry, "GUID"))
                or rule is not None and not {rule.channel, rule.record}.isdisjoint(self.channels))

    def clean(self):
        """Deletes the rules that a row has made. Records what could not be deleted."""
        if not self.channels or self.read_only:
            return
        try:
            for _ in range(3):
                made = [entry["GUID"] for entry in self.made()]
                if not made:
                    return
                for guid in made:
                    self.delete(guid)
            left = ", ".join(made)
        except (Failed, OSError, http.client.HTTPException) as failure:
            left = f"rules on {self.channels}, because of {failure!r}"
        self.read_only = printable(f"could not be deleted: {left}")

    def show_progress(self, text=""):
        if sys.stderr.isatty():
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


# Credentials and origins.

@row("credentials", "refusals.md#the-codes", "user")
def no_credentials(recorder):
    """A request without credentials is refused with status 401."""
    stranger = RuleClient(recorder.options.url)
    expect(outcome(stranger.request("PUT")), UNAUTHORISED, OF_WEB_SERVER.format(401))


@row("credentials", "refusals.md#the-codes", "user")
def wrong_password(recorder):
    """A request with a wrong password is refused with status 401."""
    user, password = recorder.login
    stranger = RuleClient(recorder.options.url, user, password + "x")
    expect(outcome(stranger.request("PUT")), UNAUTHORISED, OF_WEB_SERVER.format(401))


@row("credentials", "web-servers.md#pages-of-other-origins")
def other_origin(recorder):
    """The request of a page of another origin is refused with status 403."""
    for origin in "http://other.example", "null":
        answer = recorder.ask("PUT", headers={"Origin": origin})
        expect(outcome(answer), OF_WEB_SERVER.format(403))


# Methods.

@row("methods", "web-servers.md#who-checks-the-credentials")
def put(recorder):
    """PUT with valid credentials is answered with null."""
    expect(outcome(recorder.ask("PUT")), NULL)


@row("methods", "refusals.md#the-codes")
def unknown_method(recorder):
    """A method other than the four is refused with status 200 and code -3."""
    expect(outcome(recorder.ask("PATCH")), UNKNOWN_METHOD)


@row("methods", "host-recorder.md#what-its-web-server-answers")
def head(recorder):
    """HEAD has the status of an unknown method, and no body."""
    expect(outcome(recorder.ask("HEAD")), "200 without a body")


@row("methods", "api.md#requests")
def headers(recorder):
    """An answer is JSON and two line feeds, and no page of another origin may read it."""
    answer = recorder.ask("PUT")
    actual = {"Content-Type": answer.headers["Content-Type"], "Status": answer.headers["Status"],
              "CORS": answer.headers["Access-Control-Allow-Origin"], "body": answer.body}
    expect(str(actual), str({"Content-Type": "application/json", "Status": None, "CORS": None,
                             "body": b"null\n\n"}))


@row("methods", "api.md#the-list-of-rules")
def listing(recorder):
    """GET is answered with the list of all rules, or with null."""
    recorder.rules()


# The parameter func.

@row("func", "refusals.md#the-codes")
def func_missing(recorder):
    """A POST without func is refused with code -290, before its body is examined."""
    expect(recorder.post(b"", ""), refusal(-290, "post uri can not get func parameter"))


@row("func", "refusals.md#the-codes")
def func_encoded(recorder):
    """The value of func is decoded."""
    expect(recorder.post(target="?func=add%52ule"), NO_EVENT)


@row("func", "refusals.md#the-codes")
def func_unknown(recorder):
    """Another value of func is refused with code -292."""
    expect(recorder.post(target="?func=addrule"),
           refusal(-292, "uri input func=[addrule] not supported"))


# Bodies.

@row("bodies", "api.md#requests")
def body_empty(recorder):
    """A POST without a body is refused with code -291, before the value of func is examined."""
    expect(recorder.post(b"", "?func=addrule"), NO_BODY)


@row("bodies", "api.md#requests")
def body_longest(recorder):
    """A body of 4,095 bytes is read."""
    expect(recorder.post(b"{}".ljust(4095)), NO_EVENT)


@row("bodies", "api.md#requests")
def body_too_long(recorder):
    """A body of 4,096 bytes counts as none, or the web server refuses it."""
    expect(recorder.post(b"{}".ljust(4096)), NO_BODY, OF_WEB_SERVER.format(413))


@row("bodies", "web-servers.md#what-each-of-them-answers")
def body_in_chunks(recorder):
    """A body in chunks is read, counts as none, or is refused by the web server."""
    expect(recorder.post((b"{", b"}")), NO_EVENT, NO_BODY, OF_WEB_SERVER.format(411))


@row("bodies", "api.md#requests")
def body_of_deletion(recorder):
    """The body of a DELETE is read."""
    expect(outcome(recorder.ask("DELETE", "", b"{}")),
           refusal(-302, "Error input Json no ruleGUID object"))


@row("bodies", "web-servers.md#web-servers", "channel")
def body_cut_off(recorder):
    """No rule is created from a body that is shorter than announced."""
    body = document(EVENT, recorder.options.channel)
    with contextlib.closing(recorder.start_post(body[:-1], len(body))) as connection:
        connection.sock.shutdown(1)  # for writing
        with contextlib.suppress(ConnectionError):
            while connection.sock.recv(4096):
                pass
    expect(len(recorder.made()), 0)


@row("bodies", "web-servers.md#web-servers", seconds=90, slow=True)
def body_that_stops(recorder):
    """A body that stops arriving ends in an error or a closed connection, and keeps nobody waiting."""
    with contextlib.closing(recorder.start_post(b"{", 2)) as connection:
        expect(outcome(recorder.ask("PUT")), NULL)
        start = b""
        with contextlib.suppress(ConnectionError):
            start = connection.sock.recv(4096)
    if start[9:10] not in (b"", b"4", b"5"):
        raise Failed("an error or a closed connection", start.decode(errors="backslashreplace"))


# Documents that are refused.

@row("documents", "refusals.md#the-codes")
def not_json(recorder):
    """A body that is not JSON is refused with code -101."""
    expect(recorder.post(b"{"), refusal(-101, "Error input Json format error"))


@row("documents", "porting.md#what-is-needed")
def deep_json(recorder):
    """A body of 1,001 levels is refused with code -101: the stack is large enough."""
    expect(recorder.post(1001 * b'{"":'), refusal(-101, "Error input Json format error"))


@row("documents", "refusals.md#the-codes", "free_channel")
def channel_without_camera(recorder):
    """A rule for a channel without a camera is refused with code -200."""
    channel = recorder.options.free_channel
    expect(recorder.post(document(EVENT, channel)),
           refusal(-200, f"Error ch-{channel} GUID is NULL, please check camera is added"))


@row("documents", "refusals.md#the-codes", "channel", "free_channel")
def recording_without_camera(recorder):
    """A recording of a channel without a camera is refused with code -211."""
    free = recorder.options.free_channel
    expect(recorder.post(document(EVENT, recorder.options.channel, record=free)),
           refusal(-211, f"Error recording act ch-{free} GUID is NULL, please check camera is added"))


@row("documents", "refusals.md#the-codes", "channel")
def schedule_unknown(recorder):
    """A rule with the GUID of no schedule is refused with code -104."""
    schedule = 32 * "0"
    expect(recorder.post(document(EVENT, recorder.options.channel, schedule=schedule)),
           refusal(-104, f"Error check time profile [{schedule}] fail ret=-104"))


# The life of a rule.

@row("rules", "api.md#the-life-of-a-rule", "channel")
def deletion(recorder):
    """A rule is in the list until its deletion, which succeeds once more without it."""
    recorder.must_add(EVENT, recorder.options.channel)
    guid = recorder.only_rule()["GUID"]
    expect(recorder.delete(guid), DELETED)
    expect(len(recorder.made()), 0)
    expect(recorder.delete(guid), DELETED)


@row("rules", "api.md#what-a-duplicate-is", "channel")
def duplicate(recorder):
    """A second rule for the same event and channel is refused with code -911, whatever its alarm input."""
    channel = recorder.options.channel
    recorder.must_add(ALARM_EVENT, channel, alarm=0)
    expect(recorder.post(document(ALARM_EVENT, channel, alarm=1, name="another")),
           refusal(-911, f"Warning chIdx={channel}, eventID={ALARM_EVENT} "
                         "already added in quick mode rule list"))


@row("rules", "api.md#the-list-of-rules", "channel")
def entry_in_list(recorder):
    """The entry of a rule has the members that the page promises."""
    channel = recorder.options.channel
    recorder.must_add(EVENT, channel)
    recorder.expect_members({"name": "clientRule", "content.rule.CreationMethod": "quick",
                             "event.0.content.event_profile.EventID": str(EVENT)})
    entry = recorder.only_rule()
    source = member(entry, "event.0.content.event_profile.SourceIds.id0")
    expect(str(source)[28:], f"{channel:04}")
    expect(isinstance(member(entry, "content.rule.TimeProfile"), str), True)


@row("rules", "api.md#the-list-of-rules", "channel")
def alarm_input(recorder):
    """The source of an alarm event ends with the channel in decimal and the alarm input in hexadecimal."""
    recorder.must_add(ALARM_EVENT, recorder.options.channel, alarm=26)
    source = member(recorder.only_rule(), "event.0.content.event_profile.SourceIds.id0")
    expect(str(source)[28:], f"{recorder.options.channel:04}1A")


@row("rules", "api.md#the-list-of-rules", "channel", "record")
def recording(recorder):
    """The action profile of a rule that records ends with the recorded channel in hexadecimal."""
    recorder.must_add(EVENT, recorder.options.channel, record=recorder.options.record)
    profile = member(recorder.only_rule(), "content.rule.ActionProfiles.actpf0")
    expect(str(profile)[28:], f"{recorder.options.record:04X}")


@row("rules", "api.md#the-list-of-rules", "channel", "schedule")
def schedule_given(recorder):
    """A rule has the schedule that its request names."""
    schedule = recorder.options.schedule
    recorder.must_add(EVENT, recorder.options.channel, schedule=schedule)
    recorder.expect_members({"content.rule.TimeProfile": schedule})


@row("rules", "api.md#two-clients-at-the-same-time", "channel")
def two_clients(recorder):
    """Two clients can create rules at the same moment."""
    def add(event):
        return recorder.add(event, recorder.options.channel, name="one of two")[0]

    for _ in range(3):
        with concurrent.futures.ThreadPoolExecutor(2) as clients:
            expect(list(clients.map(add, EVENTS[:2])), [ADDED, ADDED])
        expect(len(recorder.made()), 2)
        recorder.clean()


# Names come back byte for byte.

def check_name(recorder, name):
    recorder.must_add(EVENT, recorder.options.channel, name=name)
    recorder.expect_members({"name": name})


@row("names", "api.md#requests", "channel")
def name_with_marks(recorder):
    """A name can have quotes, a backslash, and marks of XML, URIs and formats."""
    check_name(recorder, "\"'\\/ </name>&lt;]]> %41%s%n ")


@row("names", "api.md#requests", "channel")
def name_with_controls(recorder):
    """A name can have each control character but U+0000."""
    check_name(recorder, "".join(map(chr, range(1, 32))) + "\x7f\x9f")


@row("names", "api.md#requests", "channel")
def name_in_utf8(recorder):
    """A name can have characters of two, three and four bytes in UTF-8."""
    check_name(recorder, "\u0080\u07ff\u0800\ud7ff\ue000\ufffd\uffff\U00010000\U0010ffff")


# Many rules.

def clash_bound(rules):
    """The number of clashes that a sound recorder exceeds only once in a million runs when it creates so
    many rules of different events on one channel."""
    chances = [1.0] + 1000 * [0.0]  # by the number of clashes
    for existing in range(rules):
        success = (1 - existing / 100) ** 2
        before = 0.0
        for clashes, chance in enumerate(chances):
            before = chances[clashes] = success * chance + (1 - success) * before
    total = 0.0
    for clashes, chance in enumerate(chances):
        total += chance
        if total > 1 - 1e-6:
            break
    return clashes


@row("many", "api.md#what-a-duplicate-is", "channel")
def several_events(recorder):
    """One channel can have rules for several events."""
    for event in EVENTS[:3]:
        recorder.must_add(event, recorder.options.channel)
    listed = sorted(str(member(entry, "event.0.content.event_profile.EventID"))
                    for entry in recorder.made())
    expect(listed, [str(event) for event in EVENTS[:3]])


@row("many", "api.md#guids-that-are-in-use", "channel", seconds=120)
def clock(recorder):
    """Rules are refused with -221 no more often than random GUIDs explain: the clock advances."""
    bound = clash_bound(len(EVENTS))
    clashes = 0
    for done, event in enumerate(EVENTS):
        recorder.show_progress(f"clock {done}/{len(EVENTS)}")
        answer, more = recorder.add(event, recorder.options.channel)
        clashes += more
        if clashes > bound:
            raise Failed(f"at most {bound} refusals for {len(EVENTS)} rules", f"{clashes} or more")
        expect(answer, ADDED)


@row("many", "config-service.md#deletion", "channel", seconds=300, slow=True)
def same_rule_again(recorder):
    """A rule is created and deleted again and again: its profiles are deleted with it."""
    options = recorder.options
    body = document(EVENT, options.channel, record=options.record)
    for done in range(ROUNDS):
        recorder.show_progress(f"same-rule-again {done}/{ROUNDS}")
        expect(f"{recorder.post(body)} in round {done}", f"{ADDED} in round {done}")
        expect(recorder.delete(recorder.only_rule()["GUID"]), DELETED)


# The configuration service itself.

def ask_service(recorder, method, path, body=None):
    """The document of a reply of the service."""
    service = RuleClient(recorder.options.service)
    answer = service.request(method, path, body, {"Content-Type": "application/json"})
    reply = json.loads(answer.body)
    if not isinstance(reply, dict):
        raise Failed("a JSON object", outcome(answer))
    return reply


def multicall(recorder, event_guid, rule_guid):
    """Sends a multicall like those of the endpoint. Returns the code of the reply."""
    channel = recorder.options.channel
    source, schedule = recorder.learned
    event = (f"<event_profile><EventID>{EVENT}</EventID><SourceNum>1</SourceNum>"
             f"<SourceIds><id0>{source}</id0></SourceIds></event_profile>")
    rule = (f"<rule><active>1</active><EventProfileNum>1</EventProfileNum>"
            f"<EventProfiles><evtpf0>{event_guid}</evtpf0></EventProfiles>"
            "<TriggerByAllEvents>0</TriggerByAllEvents><SimultaneousTime>10</SimultaneousTime>"
            f"<TimeProfile>{schedule}</TimeProfile><ActionTime>10</ActionTime>"
            "<MaskedTime>10</MaskedTime><CreationMethod>quick</CreationMethod></rule>")

    def call(name, guid, kind, content, **more):
        content = f'<?xml version="1.0" encoding="UTF-8"?>{content}'.encode()
        node = {"name": name, "isGroup": False, "description": "", "GUID": guid, "type": kind,
                "active": True, "content": base64.b64encode(content).decode(), **more}
        return {"object": "Rule", "method": "POST", "body": {"ruleNode": node}}

    calls = [call(f"clientEvent{channel:04}", event_guid, 3, event, EventID=EVENT),
             call("clientRule", rule_guid, 0, rule)]
    reply = ask_service(recorder, "POST", "/cfg/multicalls", json.dumps({"calls": calls}).encode())
    return reply.get("err_code", 0)


def delete_in_service(recorder, guid):
    return ask_service(recorder, "DELETE", f"/cfg/Rule?GUID={guid}").get("err_code", 0)


def new_guid(recorder, kind):
    """A GUID with a random part that the endpoint does not use: that of an object takes one of 100 values."""
    return f"{10 * str(kind)}{os.urandom(9).hex().upper()}{recorder.options.channel:04X}"


@row("service", "config-service.md#schedules", "service")
def service_schedules(recorder):
    """The service lists schedules with their names and GUIDs."""
    reply = ask_service(recorder, "GET", "/cfg/Schedule")
    expect(reply.get("err_code", 0), 0)
    schedules = [(member(each, "name"), member(each, "GUID")) for each in reply["content"]]
    expect(all(isinstance(text, str) for each in schedules for text in each), True)


def learn(recorder):
    """Learns from a rule of the endpoint what the service wants in others."""
    recorder.must_add(EVENT, recorder.options.channel, name="to learn from")
    entry = recorder.only_rule()
    recorder.learned = (member(entry, "event.0.content.event_profile.SourceIds.id0"),
                        member(entry, "content.rule.TimeProfile"))
    recorder.clean()


@row("service", "config-service.md#creation", "channel", "service")
def service_lists_at_once(recorder):
    """A rule is in the list as soon as the service has confirmed it."""
    learn(recorder)
    for _ in range(3):
        rule = new_guid(recorder, 3)
        expect(multicall(recorder, new_guid(recorder, 1), rule), 0)
        expect(recorder.only_rule()["GUID"], rule)
        recorder.clean()


@row("service", "config-service.md#creation", "channel", "service")
def service_multicall(recorder):
    """A multicall is executed as a whole or not at all."""
    learn(recorder)
    first, second = new_guid(recorder, 1), new_guid(recorder, 1)
    rule, other_rule = new_guid(recorder, 3), new_guid(recorder, 3)
    expect(multicall(recorder, first, rule), 0)
    refused = multicall(recorder, second, rule)
    if refused == 0:
        raise Failed("a refusal, because the GUID of the rule is in use", "code 0")
    # Nothing of the refused multicall has been stored if the GUID of its event profile is still free.
    expect(multicall(recorder, second, other_rule), 0)


@row("service", "config-service.md#deletion", "channel", "service")
def service_deletion(recorder):
    """The service deletes the profiles with their rule, and then refuses the rule's GUID."""
    learn(recorder)
    event, rule = new_guid(recorder, 1), new_guid(recorder, 3)
    for _ in range(2):  # the second time, the GUIDs must be free again
        expect(multicall(recorder, event, rule), 0)
        expect(delete_in_service(recorder, rule), 0)
        expect(delete_in_service(recorder, rule), NOT_THERE)


@row("service", "config-service.md#requests-and-replies", "channel", "stop_service", "start_service",
     seconds=90, slow=True)
def service_stands_still(recorder):
    """While the service stands still, a rule is refused within 20 seconds."""
    def run(command):
        expect(f"status {subprocess.run(command, shell=True).returncode}", "status 0")

    client = RuleClient(recorder.options.url, *recorder.login, timeout=20)
    # Of a schedule that does not exist, so that no rule is created when the service goes on.
    body = document(EVENT, recorder.options.channel, schedule="none")
    run(recorder.options.stop_service)
    try:
        answer = outcome(client.request("POST", ADD, body))
    finally:
        run(recorder.options.start_service)
    expect(re.sub("-10[23]", "-101", answer),
           refusal(-101, "Error check time profile [none] fail ret=-101"))


# The command.

class Result(NamedTuple):
    row: Row
    verdict: str  # "passed", "failed" or "skipped"
    seconds: float = 0
    reason: str = ""  # of skipping
    failure: Failed = None


def why_skipped(each, recorder, quick):
    missing = [f"--{need.replace('_', '-')}" for need in each.needs
               if (recorder.login[0] if need == "user" else getattr(recorder.options, need)) is None]
    if missing:
        return f"needs {', '.join(missing)}"
    if quick and each.slow:
        return "takes long"
    return recorder.read_only if {"channel", "free_channel"}.intersection(each.needs) else ""


def run_row(each, recorder):
    """Checks a row, and deletes what it has made."""
    reason = why_skipped(each, recorder, recorder.options.quick)
    if reason:
        return Result(each, "skipped", reason=reason)
    start = time.monotonic()
    recorder.show_progress(each.name)
    failure = None
    try:
        with time_limit(each.seconds):
            each.check(recorder)
    except Failed as difference:
        failure = difference
    except TimeIsUp:
        failure = Failed(f"an end within {each.seconds} seconds", "none")
    except Exception as error:  # a recorder can send anything
        failure = Failed("an answer of the right form", f"{type(error).__name__}: {error}")
    seconds = time.monotonic() - start
    recorder.clean()
    recorder.show_progress()
    return Result(each, "failed" if failure else "passed", seconds, failure=failure)


@contextlib.contextmanager
def time_limit(seconds):
    def end(*_):
        raise TimeIsUp

    signal.signal(signal.SIGALRM, end)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)


def show(result):
    reason = f" ({result.reason})" if result.reason else ""
    print(f"{result.verdict:<7}  {result.row.name:<24}  {result.row.requirement}{reason}")
    if result.failure:
        print(f"{'':9}expected  {result.failure.expected}\n{'':9}actual    {result.failure.actual}\n"
              f"{'':9}{result.row.page}")
    sys.stdout.flush()


def write_junit(path, results):
    counts = collections.Counter(result.verdict for result in results)
    suite = xml.Element("testsuite", name="check_recorder", tests=str(len(results)),
                        failures=str(counts["failed"]), skipped=str(counts["skipped"]))
    for result in results:
        case = xml.SubElement(suite, "testcase", classname=result.row.group, name=result.row.name,
                              time=f"{result.seconds:.3f}")
        if result.failure:
            xml.SubElement(case, "failure", message=result.row.requirement).text = (
                f"expected {result.failure.expected}\nactual {result.failure.actual}\n{result.row.page}")
        elif result.reason:
            xml.SubElement(case, "skipped", message=result.reason)
    xml.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(
        description="Checks a recorder through its rule endpoint. Rows that lack an option are skipped.",
        epilog="Without --user, the variables RULE_USER and RULE_PASSWORD or the file ~/.netrc hold the"
        " credentials. The exit status is 0 only if no row failed and nothing was left behind.")
    parser.add_argument("--url", default=os.environ.get("RULE_URL"),
                        help="the address of the rule endpoint; otherwise the variable RULE_URL")
    parser.add_argument("--user", metavar="NAME[:PASSWORD]", help="the credentials")
    parser.add_argument("--channel", type=int, help="with a camera and without rules, for those of the rows")
    parser.add_argument("--free-channel", type=int, metavar="CHANNEL", help="without a camera")
    parser.add_argument("--record", type=int, metavar="CHANNEL", help="with a camera, to be recorded")
    parser.add_argument("--schedule", metavar="GUID", help="of a schedule of the recorder")
    parser.add_argument("--service", metavar="URL", help="the address of the configuration service")
    parser.add_argument("--stop-service", metavar="COMMAND", help="makes the service stand still")
    parser.add_argument("--start-service", metavar="COMMAND", help="undoes that")
    parser.add_argument("--quick", action="store_true", help="leave out the rows that take long")
    parser.add_argument("--list", action="store_true", help="only show the rows")
    parser.add_argument("--junit", metavar="FILE", help="also write the results to an XML file")
    parser.add_argument("row", nargs="*", help="the name of a row or of a group; otherwise all")
    options = parser.parse_args(arguments)
    unknown = set(options.row) - {name for each in ROWS for name in (each.name, each.group)}
    if unknown:
        parser.error(f"no such row: {', '.join(sorted(unknown))}")
    if not options.url and not options.list:
        parser.error("the address is missing: --url or the variable RULE_URL")
    if options.free_channel is not None and options.free_channel in (options.channel, options.record):
        parser.error("the free channel cannot be one with a camera")
    return options


def on_interruption(handler):
    for number in INTERRUPTIONS:
        signal.signal(number, handler)


def check(rows, recorder):
    """Checks the rows and shows the results. Returns them, and whether that was interrupted."""
    results = []
    interrupted = False
    on_interruption(signal.default_int_handler)
    try:
        for each in rows:
            results.append(run_row(each, recorder))
            show(results[-1])
    except KeyboardInterrupt:
        interrupted = True
        on_interruption(signal.SIG_IGN)
        recorder.clean()
        on_interruption(signal.default_int_handler)
        recorder.show_progress()
        print("check_recorder: interrupted", file=sys.stderr)
    return results, interrupted


def run(options, rows):
    """Does what the options say. Returns the exit status."""
    recorder = Recorder(options, find_login(options))
    obstacle = recorder.begin()
    if obstacle:
        print(f"check_recorder: {printable(obstacle)}", file=sys.stderr)
        return 2
    results, interrupted = check(rows, recorder)
    counts = collections.Counter(result.verdict for result in results)
    print(", ".join(f"{counts[verdict]} {verdict}" for verdict in ("passed", "failed", "skipped")))
    if options.junit:
        write_junit(options.junit, results)
    if recorder.read_only:
        print(f"check_recorder: {recorder.read_only}", file=sys.stderr)
    return 130 if interrupted else 1 if counts["failed"] or recorder.read_only else 0


def main(arguments=None):
    options = parse_arguments(arguments)
    rows = [each for each in ROWS
            if not options.row or each.name in options.row or each.group in options.row]
    if options.list:
        for each in rows:
            needs = " ".join(f"--{need.replace('_', '-')}" for need in each.needs)
            print(f"{each.group:<12} {each.name:<24}  {each.requirement} {needs and f'({needs})'}".rstrip())
        return 0
    try:
        return run(options, rows)
    except (OSError, ValueError, NoAnswer, Refused, http.client.HTTPException,
            netrc.NetrcParseError) as failure:
        print(f"check_recorder: {printable(str(failure))}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
