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

MAX_ANSWER_SIZE = 128 * 1024 * 1024  # bytes; a rule takes up about 2 KiB of a list
# A rule is refused with -221 when one of its random GUIDs is in use. If half of a channel's GUIDs are
# taken, one attempt in eight succeeds, and 50 in a row fail about once in 800 times.
MAX_CLASHES = 50


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
        alarm = {} if self.alarm is None else {"alarm": [self.alarm]}
        rule = {"ruleName": self.name,
                "event": [{"eventID": self.event, "camera": [{"chIdx": self.channel, **alarm}]}]}
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
        """The rule as texts, in the order of COLUMNS."""
        action = None if self.record is None else RECORDING
        return ["" if value is None else str(value) for value in (*self[:3], action, *self[3:])]

    def __str__(self):
        alarm = "" if self.alarm is None else f" alarm {self.alarm}"
        record = "" if self.record is None else f" records channel {self.record}"
        schedule = self.schedule and f", schedule {self.schedule}"
        return f"event {self.event} on channel {self.channel}{alarm}{record}, '{self.name}'{schedule}"


class ListedRule(NamedTuple):
    """An entry of a recorder's list of rules."""
    guid: str
    name: str
    quick: bool
    rule: Optional[Rule]  # None unless a Rule describes it completely


def read_entry(entry):
    """The rule in an entry of the list, in which any member can be missing or of another type."""
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
                    int(actions[0][28:32], 16) if actions else None, name, document.get("TimeProfile") or "")
        # A recorder need not list what an action does.
        acts = [_member(action, "content", "action_profile") for action in _member(entry, "action")]
        if (not guid or max(len(actions), len(acts)) > 1
                or make_rule(**dict(zip(COLUMNS, rule.cells()))) != rule
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
    """The bytes of an answer, all of which must arrive before a given time."""
    def __init__(self, end, sock, raw):
        self._end, self._sock, self._raw, self._room = end, sock, raw, MAX_ANSWER_SIZE

    def readable(self):
        return True

    def readinto(self, buffer):
        if (left := self._end - time.monotonic()) <= 0:
            raise TimeoutError("timed out")
        self._sock.settimeout(left)
        count = self._raw.readinto(buffer)
        self._room -= count
        if self._room < 0:
            raise http.client.HTTPException(f"an answer of more than {MAX_ANSWER_SIZE} bytes")
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
        if (self._url.scheme not in ("http", "https") or not self._url.hostname or not url.isascii()
                or self._url.username is not None or self._url.port == 0):  # a ValueError if not a number
            raise ValueError("not the address of a recorder: http or https, a host, and no user or password")
        self._timeout = timeout
        login = base64.b64encode(f"{user}:{password}".encode()).decode()
        self._headers = {} if user is None else {"Authorization": f"Basic {login}"}

    def request(self, method, target="", body=None, headers=None):
        """One exchange: `target` is appended to the address, `body` is bytes. Returns the Answer,
        whatever its status. Raises OSError or http.client.HTTPException if there is none."""
        kind = getattr(http.client, f"{self._url.scheme.upper()}Connection")
        connection = kind(self._url.hostname, self._url.port, timeout=self._timeout)
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
            # Read in pieces, because a server can announce any length.
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
        rules = _member(self._persist("GET"), "ruleList")
        if not isinstance(rules, list):
            raise NoAnswer("the recorder has no list of rules at the moment")
        return rules

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
        """Repeats an exchange where this helps. Returns its document, or None if `is_done` from the start."""
        clashes, pauses, in_doubt = 0, iter(self.pauses), False  # in doubt: an attempt may have done it
        while True:
            try:
                return self._exchange(method, target, document)
            except (Refused, NoAnswer) as failure:
                advice = advice_for(failure)
                if advice in ("duplicate", "look") and is_done():
                    return {} if in_doubt or advice == "look" else None
                if advice == "at once" and clashes < MAX_CLASHES:
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
    """The failure of a connection. A wrong name, certificate or protocol is final."""
    reason = getattr(failure, "verify_message", "") or getattr(failure, "strerror", "") or str(failure)
    result = NoAnswer(f"{place}: {reason or type(failure).__name__}")
    cut = (http.client.IncompleteRead, http.client.RemoteDisconnected, ssl.SSLEOFError)
    foreign = (http.client.HTTPException, socket.gaierror, ssl.SSLError)
    result.final = isinstance(failure, foreign) and not isinstance(failure, cut)
    return result


def advice_for(failure):
    """When to repeat a failed request: "never", "at once", "later", after a "look" at the list because
    the request may have succeeded, or "duplicate" if the list has a rule like it."""
    if isinstance(failure, NoAnswer):
        return "never" if failure.final else "look"
    # The codes of these can be the recorder's own, or those of others.
    if failure.text.startswith("Error ROVA POST request"):
        return "look"
    unread = "Request failed$|Internal error get time profile guid|Error check time profile .* ret=-10[123]$"
    if failure.code != -306 and re.match(unread, failure.text, re.DOTALL):
        return "later"
    return {-4: "look", -220: "look", -221: "at once", -304: "later", -305: "later",
             -601: "later", -602: "later", -603: "later", DUPLICATE: "duplicate"}.get(failure.code, "never")


def make_rule(event, channel, alarm="", action="", record="", name="", schedule=""):
    """A rule from texts. An empty one counts as absent; numbers can be hexadecimal, as in 0x20020000."""
    numbers = [event, channel, alarm or None, record or None]
    for i, text in enumerate(numbers):
        if text is not None:
            if not re.fullmatch("0[xX][0-9a-fA-F]{1,16}|[0-9]{1,20}", text):
                raise ValueError(f"not a number from 0: '{text}'")
            numbers[i] = int(text, 16 if text[:2] in ("0x", "0X") else 10)
    rule = Rule(*numbers, name or QUICK_NAME, schedule or "")
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
    return line.getvalue()[:-2]  # without the line end; as it is CR and LF, both are quoted in a cell


def write_lines(path, rules):
    with contextlib.nullcontext(sys.stdout) if path == "-" else open(
            path, "w", newline="", encoding="utf-8") as file:
        for line in map(csv_line, [COLUMNS, *(rule.cells() for rule in rules)]):
            print(printable(line) if file.isatty() else line, file=file)


def read_lines(path):
    """The rules of a CSV file, each with its line."""
    with open(path, "rb") as file:
        content = file.read()
    line = 1
    try:
        rows = csv.DictReader(io.StringIO(content.decode("utf-8-sig"), newline=""), strict=True, restval="")
        names = rows.fieldnames or []
        if len(set(names)) < len(names) or not {"event", "channel"} <= set(names) <= set(COLUMNS):
            raise ValueError(f"not event, channel and any of {', '.join(COLUMNS[2:])}, once, with commas")
        line = 2
        for row in rows:
            line = rows.line_num
            if None in row:
                raise ValueError("more cells than columns")
            yield f"{path}:{line}", make_rule(**row)
            line += 1
    except (ValueError, csv.Error) as failure:
        if isinstance(failure, UnicodeDecodeError):
            line += failure.object.count(b"\n", 0, failure.start)
        advice = "" if type(failure) is ValueError else "; close each quote, and save it as 'CSV UTF-8'"
        raise ValueError(f"{path}:{line}: {failure}{advice}") from failure


class Step(NamedTuple):
    """One step towards the rules of a list."""
    outcome: str  # "kept", "added", "replaced" or "deleted"
    title: str
    rule: Optional[Rule] = None  # to add
    obsolete: tuple = ()  # listed rules to delete


def plan(lines, entries, delete_others):
    """The steps from a recorder with these list entries to one with the rules of `lines`."""
    listed = {}
    for entry in quick_rules(entries):
        listed.setdefault(entry.rule[:2], []).append(entry)
    steps, places = [], set()
    for line, rule in lines:
        if rule[:2] in places:
            raise ValueError(f"{line}: a second rule for event {rule.event} on channel {rule.channel}")
        places.add(rule[:2])
        there = listed.pop(rule[:2], [])
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
        state = os.path.expanduser(os.environ.get("XDG_STATE_HOME") or "~/.local/state")
        self._journal = os.path.join(state, "rule_client", urllib.parse.quote(client.url, safe="") + ".csv")

    def missing(self):
        return [rule for _, rule in read_lines(self._journal)] if os.path.exists(self._journal) else []

    def _keep(self, rules):
        os.makedirs(os.path.dirname(self._journal), mode=0o700, exist_ok=True)
        write_lines(f"{self._journal}.{os.getpid()}", rules)
        os.replace(f"{self._journal}.{os.getpid()}", self._journal)

    def put_back(self):
        """Adds the rules of the file again unless others have taken their places. Returns a text for each."""
        rules, texts = [] if self._asks else self.missing(), []
        listed = [entry.rule for entry in quick_rules(self._client.list())] if rules else []
        for rule in rules:
            free = all(other in rules for other in listed if other[:2] == rule[:2])
            try:
                if free and self._client.add(rule):
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
        rule, code, mark = step.rule, DUPLICATE if guids else None, ""
        if rule and self._asks and not guids:
            rule, code, mark = rule._replace(schedule="?"), -104, "[?]"
        try:
            if rule:
                self._client.add(rule)
            if not self._asks:
                self._client.delete(guids)
        except Refused as refusal:
            if refusal.code != code or mark not in refusal.text:
                raise
            if not self._asks:
                self._keep([entry.rule for entry in step.obsolete])
                self._client.delete(guids)
                self._client.add(rule)
                self._keep(())

    def take(self, lines, steps):
        """Yields each step towards `lines` once taken, with the text of its refusal or None. Then looks at
        the list again, because of other clients: what is gone is added, what is there twice deleted once."""
        added = set()
        for step in steps:
            text = None
            try:
                self._take(step)
                added.add(step.rule)
            except Refused as refusal:
                then = self.put_back() or ["the rule that was there stays"] * bool(step.obsolete)
                text = "; ".join([f"{step.title}: {refusal}", *then])
            yield step, text
        lines = [line for line in lines if line[1] in added and not self._asks]
        again = plan(lines, self._client.list(), False) if lines else []
        if mended := [step for step in again if not (step.rule and step.obsolete)]:
            yield from (result for result in self.take(lines, mended) if result[1])


def say(*texts, end="\n"):
    """Prints texts. One with an empty end is for a terminal only, until the next text takes its place."""
    clear = "\r\033[K" if sys.stderr.isatty() else ""
    for text in texts if end or clear else ():
        print(clear + printable(text), end=end, file=sys.stderr, flush=True)


def printable(text):
    """The text without control characters, because any server or client can choose a text."""
    return "".join(char if char.isprintable() else "?" for char in text)


def run_list(client, options):
    """One rule per line; only GUID and name of those that are not quick rules of one event."""
    entries = client.list()
    if options.json:
        print(json.dumps(entries, indent=2))
        return
    form = "{:<32} {:>10} {:>7} {:>5} {:>6} {:<32} {}"
    print(form.format("GUID", "EVENT", "CHANNEL", "ALARM", "RECORD", "SCHEDULE", "NAME"))
    for entry in map(read_entry, entries):
        rule = entry.rule if entry.quick and entry.rule else Rule("", "", name=entry.name)
        event, channel, alarm, _, record, name, schedule = rule.cells()
        print(printable(form.format(entry.guid, event, channel, alarm, record, schedule, name)).rstrip())


def run_add(client, options):
    created = client.add(make_rule(**{name: getattr(options, name, "") for name in COLUMNS}))
    print("added" if created else "kept: the rule is there")


def run_delete(client, options):
    guids = set(options.guid)
    before = guids.intersection(read_entry(entry).guid for entry in client.list())
    say(*(f"there is no rule {guid}" for guid in sorted(guids - before)))
    try:
        client.delete(sorted(before))
    finally:
        deleted = before.difference(read_entry(entry).guid for entry in client.list())
        print(f"deleted {len(deleted)} of {len(guids)}")
    return int(deleted != guids)


def run_export(client, options):
    entries = client.list()
    first = {entry.rule[:2]: entry for entry in reversed(quick_rules(entries))}
    rules = {entry.guid: entry.rule for entry in first.values()}
    say(*(f"left out: {entry.guid} '{entry.name}'" for entry in map(read_entry, entries)
          if entry.guid not in rules))
    write_lines(options.file, sorted(rules.values()))


def run_apply(client, options):
    lines = list(read_lines(options.file))
    if options.delete_others and not lines and not options.force:
        raise ValueError(f"{options.file} has no rules, so all would be deleted; --force does that")
    applier = Applier(client, options.dry_run)
    say(*(f"after an interrupted run: {text}" for text in applier.put_back()))
    steps = plan(lines, client.list(), options.delete_others)
    outcomes = dict.fromkeys(("kept", "added", "replaced", "deleted", "refused"), 0)
    try:
        for step, refusal in applier.take(lines, steps):
            outcome = "refused" if refusal else step.outcome
            outcomes[outcome] += 1
            if options.dry_run:
                print(printable(f"{outcome:<8} {refusal or step.title}"))
            elif refusal:
                say(refusal)
            say(f"{sum(outcomes.values())} of {len(steps)}", end="")
    except (KeyboardInterrupt, NoAnswer):
        with contextlib.suppress(NoAnswer, Refused):
            say(*applier.put_back())
        say(*(f"deleted until the next run: {csv_line(rule.cells())}" for rule in applier.missing()),
            f"interrupted; {len(steps) - sum(outcomes.values())} left, run it again")
        raise
    finally:
        say("", end="")
        print(", ".join(f"{outcome} {count}" for outcome, count in outcomes.items()))
    return int(outcomes["refused"] > 0)


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(
        description="Lists, adds and deletes the rules of a recorder.", epilog="Without --user, RULE_USER "
        "and RULE_PASSWORD or ~/.netrc hold the credentials. Others on the machine can see a command line.")
    parser.add_argument("--version", action="version", version=f"rule_client {VERSION}")
    url = os.environ.get("RULE_URL")
    parser.add_argument("--url", default=url, required=not url, help="the address; otherwise RULE_URL")
    parser.add_argument("--user", metavar="NAME[:PASSWORD]", help="the credentials")
    commands = parser.add_subparsers(dest="command", required=True)

    def command(run, example, text):
        command = commands.add_parser(example.split()[0], help=text.partition(".")[0], description=text,
                                      epilog=f"Example: rule_client.py {example}")
        command.set_defaults(run=run)
        return command.add_argument

    option = command(run_list, "list --json", "Show all rules.")
    option("--json", action="store_true", help="the recorder's document, unchanged")
    option = command(run_add, "add 0x20010000 3 --record 5", "Create a rule, unless it exists.")
    option("event", help="event ID, as in 536936448 or 0x20010000")
    option("channel", help="channel of the camera")
    option("--alarm", help="alarm input of the camera, for the alarm event")
    option("--record", metavar="CHANNEL", help="channel to record")
    option("--name", help=f"name of the rule; otherwise {QUICK_NAME}")
    option("--schedule", metavar="GUID", help="otherwise the schedule for all day")
    option = command(run_delete, "delete 33333333333A7F09C2B14E6D58F00003", "Delete rules.")
    option("guid", nargs="+")
    option = command(run_export, "export rules.csv", "Write the quick rules to a file as apply reads it, and "
                     "name those that it cannot hold.")
    option("file", help="- is the standard output")
    option = command(run_apply, "apply rules.csv --dry-run", "Make a recorder's rules match a CSV file in "
                     "UTF-8. Its first line names its columns: event, channel, and any of alarm, action, "
                     "record, name, schedule. A rule that differs is replaced if the new one is accepted.")
    option("file")
    option("--dry-run", action="store_true", help="only show what would be done")
    option("--delete-others", action="store_true", help="delete the quick rules that are not in the file")
    option("--force", action="store_true", help="even if there are no rules in the file")
    return parser.parse_args(arguments)


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


def main():
    options = parse_arguments(sys.argv[1:])
    for name in {"SIGHUP", "SIGTERM"} & set(dir(signal)):
        signal.signal(getattr(signal, name), signal.default_int_handler)
    sys.stdout.reconfigure(encoding="utf-8", newline="")
    try:
        client = RuleClient(options.url, *find_login(options))
        client.notify = lambda text: say(text, end="")
        status = options.run(client, options) or 0
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
