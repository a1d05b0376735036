#!/usr/bin/python3
"""A client of the rule endpoint; it needs only Python 3.9 or later. As a command, see --help; in a program:

    from rule_client import Rule, RuleClient
    client = RuleClient("http://127.0.0.1:8080/rule", "admin", "secret")
    client.add(Rule(event=536936448, channel=3, record=5))
"""

import argparse
import base64
import contextlib
import csv
import getpass
import http.client
import io
import json
import netrc
import os
import re
import signal
import socket
import ssl
import sys
import time
import urllib.parse
from typing import NamedTuple, Optional

VERSION = "1.1.0"
ALARM_EVENT = 0x20020000
QUICK_NAME = "clientRule"  # of a rule that was created without a name
RECORDING = "RecordControl"  # the only action
COLUMNS = ("event", "channel", "alarm", "action", "record", "name", "schedule")
DUPLICATE = -911

ANSWER_LIMIT = 64 * 1024 * 1024  # bytes; a rule takes up about 2 KiB of a list

# A rule is refused with -221 when one of its random GUIDs is in use. If half of a channel's GUIDs are
# taken, one attempt in eight succeeds, and 50 in a row fail about once in 800 times.
CLASH_LIMIT = 50


class Answer(NamedTuple):
    """The answer to a request, from the endpoint or not."""
    status: int
    headers: http.client.HTTPMessage
    body: bytes


class Refused(Exception):
    """The endpoint refused a request."""
    def __init__(self, code, text):
        super().__init__(f"{text} ({code})")
        self.code, self.text = code, text


class NoAnswer(Exception):
    """The endpoint gave no answer: the outcome of the request is not known."""
    final = False  # whether the same request would not get one either


class Rule(NamedTuple):
    """A quick rule, as a client requests it."""
    event: int
    channel: int
    alarm: Optional[int] = None  # alarm input of the camera; required by the alarm event
    record: Optional[int] = None  # channel to record
    name: str = QUICK_NAME
    schedule: str = ""  # GUID; if empty, the recorder's schedule for all day

    def document(self):
        """The request document for the rule."""
        camera = {"chIdx": self.channel}
        if self.alarm is not None:
            camera["alarm"] = [self.alarm]
        rule = {"ruleName": self.name, "event": [{"eventID": self.event, "camera": [camera]}]}
        if self.schedule:
            rule["timeprofileGUID"] = self.schedule
        if self.record is not None:
            rule["action"] = [{"ActionName": RECORDING, "chIdx": [self.record]}]
        return {"rule": rule}

    def met_by(self, other):
        """Whether `other`, a rule of a recorder, is this rule. A recorder does not say which of
        its schedules is the one for all day, so a rule without a schedule is met by any."""
        return self == (other if self.schedule else other._replace(schedule=""))

    def cells(self):
        """Its texts in the order of COLUMNS."""
        action = None if self.record is None else RECORDING
        return ["" if value is None else str(value) for value in (*self[:3], action, *self[3:])]

    def __str__(self):
        text = f"event {self.event} on channel {self.channel}"
        text += f" alarm {self.alarm}" if self.alarm is not None else ""
        text += f" records channel {self.record}" if self.record is not None else ""
        return text + f", '{self.name}'" + (f", schedule {self.schedule}" if self.schedule else "")


class ListedRule(NamedTuple):
    """An entry of a recorder's list of rules."""
    guid: str
    name: str
    quick: bool
    rule: Optional[Rule]  # None unless a Rule describes it completely


def read_entry(entry):
    """The rule in an entry of the list. In rules that were created in other ways any member can be
    missing, and any can be of another type."""
    document = _member(entry, "content", "rule")
    guid, name = (text if isinstance(text, str) else ""
                  for text in (_member(entry, "GUID"), _member(entry, "name")))
    try:
        (event,) = entry["event"]
        profile = event["content"]["event_profile"]
        (source,) = profile["SourceIds"].values()
        actions = list(_member(document, "ActionProfiles").values())
        event_id = int(profile["EventID"])
        rule = Rule(event_id, int(source[28:32]), int(source[32:], 16) if event_id == ALARM_EVENT else None,
                    int(actions[0][28:32], 16) if actions else None, name,
                    _member(document, "TimeProfile") or "")
        # A recorder need not list what an action does.
        acts = [_member(action, "content", "action_profile") for action in _member(entry, "action")]
        if (max(len(actions), len(acts)) > 1 or make_rule(**dict(zip(COLUMNS, rule.cells()))) != rule
                or any(_member(act, "ActionName") not in ({}, RECORDING)
                       or len(_member(act, "TargetIds")) > 1 for act in acts)):
            rule = None
    except (AttributeError, KeyError, OverflowError, RecursionError, TypeError, ValueError):
        rule = None
    return ListedRule(guid, name, _member(document, "CreationMethod") == "quick", rule)


def _member(value, *names):
    for name in names:
        value = value.get(name) if isinstance(value, dict) else None
    return {} if value is None else value


def quick_rules(entries):
    """The quick rules of a list, without those that no Rule describes, in the order of their GUIDs."""
    return sorted((entry for entry in map(read_entry, entries) if entry.quick and entry.rule),
                  key=lambda entry: entry.guid)


class _Incoming(io.RawIOBase):
    """The bytes of an answer, which must arrive until a time."""
    def __init__(self, end, sock, raw):
        super().__init__()
        self._end, self._sock, self._raw, self._room = end, sock, raw, ANSWER_LIMIT

    def readable(self):
        return True

    def readinto(self, buffer):
        left = self._end - time.monotonic()
        if left <= 0:
            raise TimeoutError("timed out")
        self._sock.settimeout(left)
        count = self._raw.readinto(buffer)
        self._room -= count
        if self._room < 0:
            raise http.client.HTTPException(f"an answer of more than {ANSWER_LIMIT} bytes")
        return count


class RuleClient:
    """A recorder's rule endpoint. Each request uses a new connection."""
    # Seconds before each further attempt when a recorder could not serve a request.
    pauses = (1, 2, 4, 8)
    notify = staticmethod(lambda text: None)  # is given the reason of a pause

    def __init__(self, url, user=None, password="", timeout=60):
        """`timeout` is in seconds, for a whole exchange; the endpoint can take 45 to add a rule."""
        self.url = url
        self._url = urllib.parse.urlsplit(url)
        if self._url.scheme not in ("http", "https") or not self._url.hostname or not url.isascii():
            raise ValueError(f"not the address of a recorder: {url}")
        if self._url.username is not None:
            raise ValueError("user and password do not belong in the address")
        self._port = self._url.port
        self._timeout = timeout
        self._headers = {}
        if user is not None:
            login = base64.b64encode(f"{user}:{password}".encode()).decode()
            self._headers["Authorization"] = f"Basic {login}"

    def request(self, method, target="", body=None, headers=None):
        """One exchange: `target` is appended to the address, `body` is bytes. Returns the Answer,
        whatever its status. Raises OSError or http.client.HTTPException if there is none."""
        scheme = {"http": http.client.HTTPConnection, "https": http.client.HTTPSConnection}
        connection = scheme[self._url.scheme](self._url.hostname, self._port, timeout=self._timeout)
        end = time.monotonic() + self._timeout

        def start_response(sock, **options):
            response = http.client.HTTPResponse(sock, **options)
            response.fp = io.BufferedReader(_Incoming(end, sock, response.fp.detach()))
            return response

        connection.response_class = start_response
        try:
            # A server that answers before it has read the body may close the connection meanwhile.
            with contextlib.suppress(BrokenPipeError):
                connection.request(method, self._url.path + target, body,
                                   {"Connection": "close", **self._headers, **(headers or {})})
            response = connection.getresponse()
            # In pieces, because a server can name any length.
            content = b"".join(iter(lambda: response.read(65536), b""))
            if response.length:
                raise http.client.IncompleteRead(content, response.length)
            return Answer(response.status, response.headers, content)
        except ValueError as failure:  # ssl.SSLCertVerificationError is one, too
            raise failure if isinstance(failure, OSError) else http.client.HTTPException(str(failure))
        finally:
            connection.close()

    def list(self):
        """All rules of the recorder, as the unchanged entries of its document."""
        document = self._persist("GET")
        if not isinstance(document, dict) or not isinstance(document.get("ruleList"), list):
            raise NoAnswer("the recorder has no list of rules at the moment")
        return document["ruleList"]

    def delete(self, guids):
        """Deletes rules. A GUID without a rule is not a failure. After a failure the rules before it
        in the list are gone, and the same list can be given again."""
        for first in range(0, len(guids), 50):  # they take up about half of a body
            self._persist("DELETE", "", {"ruleGUID": guids[first:first + 50]})

    def add(self, rule):
        """Creates a rule, unless it exists. Returns whether this call created it."""
        return self._persist("POST", "?func=addRule", rule.document(), lambda: any(
            rule.met_by(entry.rule) for entry in quick_rules(self.list()))) is not None

    def _persist(self, method, target="", document=None, is_done=lambda: False):
        """An exchange that is repeated where this helps, unless the list shows that it is done. Returns
        its document, or None if it was done before."""
        clashes = 0
        pauses = iter(self.pauses)
        in_doubt = False  # whether an earlier attempt may have done it
        while True:
            try:
                return self._exchange(method, target, document)
            except (Refused, NoAnswer) as failure:
                advice = advice_for(failure)
                if advice in ("duplicate", "look") and is_done():
                    return {} if in_doubt or advice == "look" else None
                if advice == "at once" and clashes < CLASH_LIMIT:
                    clashes += 1
                elif advice in ("look", "later") and (pause := next(pauses, None)) is not None:
                    self.notify(f"{failure}; again in {pause} s")
                    time.sleep(pause)
                else:
                    raise
                in_doubt = in_doubt or advice in ("at once", "look")

    def _exchange(self, method, target, document):
        """Returns the document of an answer that is not a refusal."""
        body = None if document is None else json.dumps(document, ensure_ascii=False).encode()
        try:
            answer = self.request(method, target, body, {"Content-Type": "application/json"})
        except (OSError, http.client.HTTPException) as failure:
            raise _no_answer(self._url.netloc, failure) from failure
        try:
            result = json.loads(answer.body, parse_constant=int)  # which refuses Infinity and NaN
            bare = method == "GET" and answer.status == 200  # the list itself
            code, text = (0, "") if bare else (result["ret_code"], str(result["ret_mesg"]))
        except (KeyError, RecursionError, TypeError, ValueError):
            code = None
        if not isinstance(code, int):  # the web server's, or of something in front of it
            text = f"not an answer of a rule endpoint: status {answer.status}"
            raise NoAnswer(text) if answer.status >= 500 else Refused(answer.status, text)
        if code != 0:
            raise Refused(code, text)
        return result


def _no_answer(place, failure):
    """The failure of a connection. It is final if it is about the name, the certificate or the protocol."""
    reason = getattr(failure, "verify_message", "") or getattr(failure, "strerror", "") or str(failure)
    result = NoAnswer(f"{place}: {reason or type(failure).__name__}")
    lost = (http.client.IncompleteRead, http.client.RemoteDisconnected, ssl.SSLEOFError)
    result.final = (isinstance(failure, (http.client.HTTPException, socket.gaierror, ssl.SSLError))
                    and not isinstance(failure, lost))
    return result


def advice_for(failure):
    """When to repeat a failed request: "never", "at once", "later", after a "look" at the list because
    the request may have succeeded, or "duplicate" if the list has a rule like it."""
    if isinstance(failure, NoAnswer):
        return "never" if failure.final else "look"
    # With a code of the recorder's own: the service could not be reached, or there is no list.
    if failure.text.startswith("Error ROVA POST request"):
        return "look"
    if failure.text == "Request failed" and failure.code != -306:
        return "later"
    # With codes of the request document: the schedules could not be read.
    if re.match("Internal error get time profile guid|Error check time profile .* ret=-10[123]$",
                failure.text, re.DOTALL):
        return "later"
    known = {-4: "look", -220: "look", -221: "at once", -304: "later", -305: "later",
             -601: "later", -602: "later", -603: "later", DUPLICATE: "duplicate"}
    return known.get(failure.code, "never")


def number(text):
    """A number from 0, in decimal or, as in 0x20020000, in hexadecimal."""
    if not re.fullmatch("0[xX][0-9a-fA-F]{1,16}|[0-9]{1,20}", text):
        raise ValueError(f"not a number from 0: '{text}'")
    return int(text, 16) if text[:2] in ("0x", "0X") else int(text)


def make_rule(event, channel, alarm="", action="", record="", name="", schedule=""):
    """A rule from texts; an empty text counts as absent."""
    rule = Rule(number(event), number(channel), number(alarm) if alarm else None,
                number(record) if record else None, name or QUICK_NAME, schedule or "")
    if (rule.event == ALARM_EVENT) != (rule.alarm is not None):
        raise ValueError(f"event {ALARM_EVENT} needs an alarm input, and no other event has one")
    if action and (action != RECORDING or not record):
        raise ValueError(f"'{action}' is not an action: there is {RECORDING}, with a channel to record")
    if "\0" in f"{rule.name}{rule.schedule}".encode().decode():  # which refuses half of a surrogate pair
        raise ValueError("a zero byte in a text")
    return rule


def csv_line(texts):
    line = io.StringIO()
    csv.writer(line).writerow(texts)
    return line.getvalue()[:-2]  # without CR and LF, because of which it quotes both


def write_lines(file, rules):
    for line in map(csv_line, [COLUMNS, *(rule.cells() for rule in rules)]):
        print(printable(line) if file.isatty() else line, file=file)


def read_lines(path):
    """The rules of a CSV file, each with its line."""
    with open(path, "rb") as file:
        content = file.read()
    line = 1
    try:
        rows = csv.reader(io.StringIO(content.decode("utf-8-sig"), newline=""), strict=True)
        names = next(rows, [])
        if len(set(names)) < len(names) or not {"event", "channel"} <= set(names) <= set(COLUMNS):
            raise ValueError(f"the columns are not event, channel and any of {', '.join(COLUMNS[2:])}, "
                             "each once, with commas between them")
        line = rows.line_num + 1
        for row in rows:
            if len(row) > len(names):
                raise ValueError("more cells than columns")
            if row:
                yield f"{path}:{line}", make_rule(**dict(zip(names, row + len(names) * [""])))
            line = rows.line_num + 1
    except (ValueError, csv.Error) as failure:
        if isinstance(failure, UnicodeDecodeError):
            line += failure.object.count(b"\n", 0, failure.start)
        advice = "" if type(failure) is ValueError else "; close each quote, and save it as 'CSV UTF-8'"
        raise ValueError(f"{path}:{line}: {failure}{advice}") from failure


def by_place(lines):
    """The rules by event and channel, each with its line; a recorder takes one."""
    rules = {}
    for line, rule in lines:
        if rules.setdefault(rule[:2], (line, rule)) != (line, rule):
            raise ValueError(f"{line}: a second rule for event {rule.event} on channel {rule.channel}")
    return rules


class Step(NamedTuple):
    """One step towards the rules of a list."""
    outcome: str  # "kept", "added", "replaced" or "deleted"
    title: str
    rule: Optional[Rule] = None  # to add
    obsolete: tuple = ()  # listed rules to delete


def plan(rules, entries, delete_others):
    """The steps from a recorder with these list entries to one with `rules`."""
    listed = {}
    for entry in quick_rules(entries):
        listed.setdefault(entry.rule[:2], []).append(entry)
    steps = []
    for place, (line, rule) in rules.items():
        there = listed.pop(place, [])
        fitting = next((entry for entry in there if rule.met_by(entry.rule)), None)
        obsolete = tuple(entry for entry in there if entry is not fitting)
        outcome = "replaced" if obsolete else "kept" if fitting else "added"
        steps.append(Step(outcome, f"{line}: {rule}", None if fitting else rule, obsolete))
    return [Step("deleted", f"{entry.guid}: {entry.rule}", None, (entry,))
            for same in listed.values() for entry in same if delete_others] + steps


class Applier:
    """Takes steps on a recorder, or only asks whether it would accept the new rules. While others take the
    places of rules, the deleted ones are in a file, which is left behind for the next run by an end then."""
    def __init__(self, client, asks=False):
        self._client, self._asks = client, asks
        state = os.environ.get("XDG_STATE_HOME") or os.path.expanduser("~/.local/state")
        self._journal = os.path.join(state, "rule_client", urllib.parse.quote(client.url, safe="") + ".csv")

    def missing(self):
        """The rules that are in the file."""
        return [rule for _, rule in read_lines(self._journal)] if os.path.exists(self._journal) else []

    def _keep(self, rules):
        os.makedirs(os.path.dirname(self._journal), mode=0o700, exist_ok=True)
        with open(self._journal + ".new", "w", newline="", encoding="utf-8") as file:
            write_lines(file, rules)
        os.replace(self._journal + ".new", self._journal)

    def put_back(self):
        """Adds the rules of the file again unless others have taken their places. Returns a text for each."""
        rules = [] if self._asks else self.missing()
        listed = [entry.rule for entry in quick_rules(self._client.list())] if rules else []
        texts = []
        for rule in rules:
            if all(other in rules for other in listed if other[:2] == rule[:2]):
                try:
                    if self._client.add(rule):
                        texts.append(f"put back {rule}")
                except Refused as refusal:
                    texts.append(f"lost, because it is refused ({refusal}): {csv_line(rule.cells())}")
        if rules:
            self._keep(())
        return texts

    def _take(self, step):
        """A recorder looks for a duplicate last: if it refuses a rule for that, it accepts everything else.
        It looks for the schedule before: one that does not exist keeps a question from creating a rule."""
        guids = [entry.guid for entry in step.obsolete]
        doomed = self._asks and step.rule and not guids
        try:
            if step.rule:
                self._client.add(step.rule._replace(schedule="?") if doomed else step.rule)
            if not self._asks:
                self._client.delete(guids)
        except Refused as refusal:
            expected = refusal.code == -104 and "[?]" in refusal.text if doomed else (
                refusal.code == DUPLICATE and guids)
            if not expected:
                raise
            if not self._asks:
                self._keep([entry.rule for entry in step.obsolete])
                self._client.delete(guids)
                self._client.add(step.rule)
                self._keep(())

    def take(self, rules, steps):
        """Yields each step towards `rules` once taken, with the text of its refusal or None. Then looks at
        the list again, because of other clients: what is gone is added, what is there twice deleted once."""
        added = {}
        for step in steps:
            text = None
            try:
                self._take(step)
                if step.rule and not self._asks:
                    added[step.rule[:2]] = rules[step.rule[:2]]
            except Refused as refusal:
                then = self.put_back() or ["the rule that was there stays"] * bool(step.obsolete)
                text = "; ".join([f"{step.title}: {refusal}", *then])
            yield step, text
        if added:
            mended = [step for step in plan(added, self._client.list(), False)
                      if not (step.rule and step.obsolete)]
            yield from (result for result in self.take(rules, mended) if result[1])


# The command.

def show_line(text=""):
    """Shows a line on a terminal in place of the one before."""
    if sys.stderr.isatty():
        print(f"\r\033[K{printable(text)}", end="", file=sys.stderr, flush=True)


def say(*texts):
    for text in texts:
        show_line()
        print(printable(text), file=sys.stderr)


def printable(text):
    """The text without control characters, because any server or client can choose a text."""
    return "".join(char if char.isprintable() else "?" for char in text)


def print_table(entries):
    """The rules, one per line; only GUID and name of those that are not quick rules of one event."""
    form = "{:<32} {:>10} {:>7} {:>5} {:>6} {:<32} {}"
    print(form.format("GUID", "EVENT", "CHANNEL", "ALARM", "RECORD", "SCHEDULE", "NAME"))
    for entry in map(read_entry, entries):
        rule = entry.rule if entry.quick and entry.rule else Rule("", "", name=entry.name)
        event, channel, alarm, _, record, name, schedule = rule.cells()
        print(printable(form.format(entry.guid, event, channel, alarm, record, schedule, name)).rstrip())


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(
        description="Lists, adds and deletes the rules of a recorder.",
        epilog="Without --user, the variables RULE_USER and RULE_PASSWORD or the file ~/.netrc hold the"
        " credentials. A password on a command line can be seen by every user of the machine.")
    parser.add_argument("--version", action="version", version=f"rule_client {VERSION}")
    parser.add_argument("--url", default=os.environ.get("RULE_URL"),
                        help="the address of the rule endpoint; otherwise the variable RULE_URL")
    parser.add_argument("--user", metavar="NAME[:PASSWORD]", help="the credentials")
    commands = parser.add_subparsers(dest="command", required=True)

    def command(example, text):
        return commands.add_parser(example.split()[0], help=text.partition(".")[0], description=text,
                                   epilog=f"Example: rule_client.py {example}").add_argument

    option = command("list --json", "Show all rules.")
    option("--json", action="store_true", help="the recorder's document, unchanged")
    option = command("add 0x20010000 3 --record 5", "Create a rule, unless it exists.")
    option("event", help="event ID, as in 536936448 or 0x20010000")
    option("channel", help="channel of the camera")
    option("--alarm", help="alarm input of the camera, for the alarm event")
    option("--record", metavar="CHANNEL", help="channel to record")
    option("--name", help=f"name of the rule; otherwise {QUICK_NAME}")
    option("--schedule", metavar="GUID", help="otherwise the schedule for all day")
    option = command("delete 33333333333A7F09C2B14E6D58F00003", "Delete rules.")
    option("guid", nargs="+")
    option = command("export rules.csv", "Write the quick rules to a file as apply reads it. Rules that it "
                     "cannot hold are named and left out.")
    option("file", help="- is the standard output")
    option = command("apply rules.csv --dry-run", "Make a recorder's rules match a list. The first line of "
                     "the CSV file, in UTF-8, names its columns: event and channel, and optionally alarm, "
                     "action, record, name and schedule. A rule that exists is kept. One for the same event "
                     "and channel that differs is replaced, if the recorder accepts the new one. The command "
                     "can be interrupted and run again.")
    option("file")
    option("--dry-run", action="store_true", help="only show what would be done")
    option("--delete-others", action="store_true", help="delete the quick rules that are not in the file")
    option("--force", action="store_true", help="even if there are no rules in the file")
    options = parser.parse_args(arguments)
    if not options.url:
        parser.error("the address is missing: --url or the variable RULE_URL")
    return options


def find_login(options):
    """User and password, from the first place that has them."""
    user, _, password = (options.user or os.environ.get("RULE_USER", "")).partition(":")
    password = password or os.environ.get("RULE_PASSWORD", "")
    if not password:
        with contextlib.suppress(FileNotFoundError):
            entry = netrc.netrc().authenticators(urllib.parse.urlsplit(options.url).hostname)
            if entry and user in ("", entry[0]):
                user, _, password = entry
    if user and not password and sys.stdin.isatty():
        password = getpass.getpass(f"Password of {user}: ")
    return user or None, password


def delete(client, guids):
    """Deletes rules and prints how many were there. Returns the exit status."""
    def find():
        return {entry.guid for entry in map(read_entry, client.list())}.intersection(guids)

    before = find()
    say(*(f"there is no rule {guid}" for guid in guids if guid not in before))
    try:
        client.delete(sorted(before))
    finally:
        deleted = len(before - find())
        print(f"deleted {deleted} of {len(guids)}")
    return 0 if deleted == len(guids) else 1


def export(entries, path):
    """Writes the rules as apply reads them."""
    first = {entry.rule[:2]: entry for entry in reversed(quick_rules(entries))}
    rules = {entry.guid: entry.rule for entry in first.values()}
    say(*(f"left out: {entry.guid} '{entry.name}'" for entry in map(read_entry, entries)
          if entry.guid not in rules))
    with (contextlib.nullcontext(sys.stdout) if path == "-" else
          open(path, "w", newline="", encoding="utf-8")) as file:
        write_lines(file, rules.values())


def apply(client, options):
    """Returns the exit status."""
    rules = by_place(read_lines(options.file))
    if options.delete_others and not rules and not options.force:
        raise ValueError(f"{options.file} has no rules, so all would be deleted; --force does that")
    applier = Applier(client, options.dry_run)
    say(*(f"after an interrupted run: {text}" for text in applier.put_back()))
    steps = plan(rules, client.list(), options.delete_others)
    outcomes = dict.fromkeys(("kept", "added", "replaced", "deleted", "refused"), 0)
    failure = None
    try:
        for step, refusal in applier.take(rules, steps):
            outcome = "refused" if refusal else step.outcome
            outcomes[outcome] += 1
            if options.dry_run:
                print(printable(f"{outcome:<8} {refusal or step.title}"))
            elif refusal:
                say(refusal)
            show_line(f"{sum(outcomes.values())} of {len(steps)}")
    except (KeyboardInterrupt, NoAnswer) as reason:
        failure = reason
        with contextlib.suppress(NoAnswer, Refused):
            say(*applier.put_back())
    show_line()
    print(", ".join(f"{outcome} {count}" for outcome, count in outcomes.items()))
    if failure:
        say(*(f"deleted until the next run: {csv_line(rule.cells())}" for rule in applier.missing()),
            f"{str(failure) or 'interrupted'}; {len(steps) - sum(outcomes.values())} left, run it again")
    return 130 if isinstance(failure, KeyboardInterrupt) else 1 if failure or outcomes["refused"] else 0


def main():
    options = parse_arguments(sys.argv[1:])
    for name in {"SIGHUP", "SIGTERM"} & set(dir(signal)):
        signal.signal(getattr(signal, name), signal.default_int_handler)
    sys.stdout.reconfigure(encoding="utf-8", newline="")
    try:
        client = RuleClient(options.url, *find_login(options))
        client.notify = show_line
        status = 0
        if options.command == "apply":
            status = apply(client, options)
        elif options.command == "delete":
            status = delete(client, list(dict.fromkeys(options.guid)))
        elif options.command == "export":
            export(client.list(), options.file)
        elif options.command == "add":
            created = client.add(make_rule(**{name: getattr(options, name, "") for name in COLUMNS}))
            print("added" if created else "kept: the rule is there")
        elif options.json:
            print(json.dumps(client.list(), indent=2))
        else:
            print_table(client.list())
        sys.stdout.flush()
        return status
    except BrokenPipeError:  # the reader of the output has closed it, as `head` does
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except (Refused, NoAnswer, RecursionError, OSError, ValueError, netrc.NetrcParseError) as failure:
        say(f"rule_client: {failure}")
        return 1 if isinstance(failure, (Refused, NoAnswer, RecursionError)) else 2
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
