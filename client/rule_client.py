#!/usr/bin/python3
"""A client of the rule endpoint; it needs only Python 3.9 or later. As a command:

    export RULE_URL=http://127.0.0.1:8080/rule RULE_USER=admin RULE_PASSWORD=secret
    rule_client.py apply rules.csv

and from another program:

    from rule_client import Rule, RuleClient
    client = RuleClient("http://127.0.0.1:8080/rule", "admin", "secret")
    client.add(Rule(event=536936448, channel=3, record=5))
"""

import argparse
import base64
import collections
import contextlib
import csv
import getpass
import http.client
import json
import netrc
import os
import re
import sys
import time
import urllib.parse
from typing import NamedTuple, Optional

ALARM_EVENT = 0x20020000
QUICK_NAME = "clientRule"  # of a rule that was created without a name

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
        self.code = code
        self.text = text


class NoAnswer(Exception):
    """The endpoint gave no answer: the outcome of the request is not known."""


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
            rule["action"] = [{"ActionName": "RecordControl", "chIdx": [self.record]}]
        return {"rule": rule}

    def met_by(self, other):
        """Whether `other`, a rule of a recorder, is this rule. A recorder does not say which of
        its schedules is the one for all day, so a rule without a schedule is met by any."""
        return self == (other if self.schedule else other._replace(schedule=""))


class ListedRule(NamedTuple):
    """An entry of a recorder's list of rules."""

    guid: str
    name: str
    quick: bool
    rule: Optional[Rule]  # None unless it is a rule of one event on one camera


def read_entry(entry):
    """The rule in an entry of the list. In rules that were created in other ways any member can be
    missing."""
    document = _member(entry, "content", "rule")
    try:
        (event,) = entry["event"]
        profile = event["content"]["event_profile"]
        (source,) = profile["SourceIds"].values()
        recorded = list(_member(document, "ActionProfiles").values())
        event_id = int(profile["EventID"])
        rule = Rule(
            event=event_id,
            channel=int(source[28:32]),
            alarm=int(source[32:], 16) if event_id == ALARM_EVENT else None,
            record=int(recorded[0][28:32], 16) if recorded else None,
            name=entry["name"],
            schedule=_member(document, "TimeProfile") or "",
        )
    except (AttributeError, KeyError, TypeError, ValueError):
        rule = None
    return ListedRule(str(_member(entry, "GUID") or ""), str(_member(entry, "name") or ""),
                      _member(document, "CreationMethod") == "quick", rule)


def _member(value, *names):
    for name in names:
        value = value.get(name) if isinstance(value, dict) else None
    return {} if value is None else value


class RuleClient:
    """A recorder's rule endpoint. Each request uses a new connection."""

    # Seconds before each further attempt when a recorder could not serve a request.
    pauses = (1, 2, 4, 8)

    def __init__(self, url, user=None, password="", timeout=60):
        """`timeout` is in seconds; the endpoint can take 45 to add a rule."""
        self.url = url
        self._url = urllib.parse.urlsplit(url)
        if self._url.scheme not in ("http", "https") or not self._url.hostname:
            raise ValueError(f"not the address of a recorder: {url}")
        if self._url.username is not None:
            raise ValueError("user and password do not belong in the address")
        self._timeout = timeout
        self._headers = {}
        if user is not None:
            login = base64.b64encode(f"{user}:{password}".encode()).decode()
            self._headers["Authorization"] = f"Basic {login}"

    def request(self, method, target="", body=None, headers=None):
        """One exchange: `target` is appended to the address, `body` is bytes. Returns the Answer,
        whatever its status. Raises OSError or http.client.HTTPException if there is none."""
        scheme = {"http": http.client.HTTPConnection, "https": http.client.HTTPSConnection}
        connection = scheme[self._url.scheme](self._url.hostname, self._url.port,
                                              timeout=self._timeout)
        try:
            # A server that answers before it has read the body may close the connection meanwhile.
            with contextlib.suppress(BrokenPipeError):
                connection.request(method, self._url.path + target, body,
                                   {"Connection": "close", **self._headers, **(headers or {})})
            response = connection.getresponse()
            return Answer(response.status, response.headers, response.read())
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
        at_once = 50  # takes up about half of a body
        for first in range(0, len(guids), at_once):
            self._persist("DELETE", "", {"ruleGUID": guids[first:first + at_once]})

    def add(self, rule):
        """Creates a rule, unless it exists. Returns whether this call created it."""
        clashes = 0
        pauses = iter(self.pauses)
        in_doubt = False  # whether an earlier attempt may have created it
        while True:
            try:
                self._exchange("POST", "?func=addRule", rule.document())
                return True
            except (Refused, NoAnswer) as failure:
                advice = advice_for(failure)
                if advice in ("duplicate", "look") and self._holds(rule):
                    return in_doubt or advice == "look"
                if advice == "at once" and clashes < CLASH_LIMIT:
                    clashes += 1
                elif advice in ("look", "later") and (pause := next(pauses, None)) is not None:
                    time.sleep(pause)
                else:
                    raise
                in_doubt = in_doubt or advice in ("at once", "look")

    def _holds(self, rule):
        return any(entry.quick and entry.rule is not None and rule.met_by(entry.rule)
                   for entry in map(read_entry, self.list()))

    def _persist(self, method, target="", document=None):
        """An exchange that can be repeated unchanged."""
        for pause in self.pauses:
            try:
                return self._exchange(method, target, document)
            except (Refused, NoAnswer) as failure:
                if advice_for(failure) == "never":
                    raise
                time.sleep(pause)
        return self._exchange(method, target, document)

    def _exchange(self, method, target="", document=None):
        """Returns the document of an answer that is not a refusal."""
        body = None
        if document is not None:
            body = json.dumps(document, ensure_ascii=False).encode()
        try:
            answer = self.request(method, target, body, {"Content-Type": "application/json"})
        except (OSError, http.client.HTTPException) as failure:
            raise NoAnswer(f"{self._url.netloc}: {failure or type(failure).__name__}") from failure
        try:
            result = json.loads(answer.body)
            bare = method == "GET" and answer.status == 200  # the list itself
            code, text = (0, "") if bare else (result["ret_code"], str(result["ret_mesg"]))
        except (KeyError, RecursionError, TypeError, ValueError):
            code = None
        if not isinstance(code, int):
            raise _foreign_answer(answer)
        if code != 0:
            raise Refused(code, text)
        return result


def _foreign_answer(answer):
    """The failure for an answer of the web server, or of something in front of it."""
    text = f"not an answer of a rule endpoint: status {answer.status}"
    return NoAnswer(text) if answer.status >= 500 else Refused(answer.status, text)


def advice_for(failure):
    """When to repeat a failed request: "never", "at once", "later", after a "look" at the list because
    the request may have succeeded, or "duplicate" if the list has a rule like it."""
    if isinstance(failure, NoAnswer):
        return "look"
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
             -601: "later", -602: "later", -603: "later", -911: "duplicate"}
    return known.get(failure.code, "never")


# The command.

APPLY_HELP = """Makes a recorder's rules match a CSV file in UTF-8. The first line of the file names its
columns: event and channel, and optionally alarm, record, name and schedule. A rule that exists is kept.
One for the same event and channel that differs is replaced. The command can be interrupted and run
again."""


class BadInput(Exception):
    """The user's input cannot be used."""


class Step(NamedTuple):
    """One step towards the rules of a file."""

    outcome: str  # "kept", "added", "replaced" or "deleted"
    title: str
    rule: Optional[Rule] = None  # to exist afterwards
    obsolete: tuple = ()  # listed rules to delete first


def number(text):
    """A number from 0, in decimal or, as in 0x20020000, in hexadecimal."""
    if not re.fullmatch("0[xX][0-9a-fA-F]+|[0-9]+", text):
        raise ValueError(f"not a number from 0: '{text}'")
    return int(text, 16) if text[:2] in ("0x", "0X") else int(text)


def make_rule(event, channel, alarm=None, record=None, name=None, schedule=None):
    """A rule from texts; an empty text counts as absent."""
    rule = Rule(number(event), number(channel), number(alarm) if alarm else None,
                number(record) if record else None, name or QUICK_NAME, schedule or "")
    if (rule.event == ALARM_EVENT) != (rule.alarm is not None):
        raise ValueError(f"event {ALARM_EVENT} needs an alarm input, and no other event has one")
    return rule


def read_rules(path):
    """The rules of a CSV file, by event and channel, each with its line."""
    rules = {}
    with open(path, newline="", encoding="utf-8-sig") as file:
        rows = csv.DictReader(file, strict=True, restval="")
        names = rows.fieldnames or []
        if not {"event", "channel"} <= set(names) <= set(Rule._fields):
            raise BadInput(f"{path}:1: the columns are not event, channel and any of "
                           f"{', '.join(Rule._fields[2:])}, with commas between them")
        for row in rows:
            line = f"{path}:{rows.line_num}"
            if None in row:
                raise BadInput(f"{line}: more cells than columns")
            try:
                rule = make_rule(**row)
            except ValueError as failure:
                raise BadInput(f"{line}: {failure}") from failure
            if (rule.event, rule.channel) in rules:
                raise BadInput(f"{line}: a second rule for event {rule.event} on channel "
                               f"{rule.channel}; a recorder takes one")
            rules[rule.event, rule.channel] = (line, rule)
    return rules


def plan(rules, entries, delete_others):
    """The steps from a recorder with these list entries to one with `rules`."""
    listed = collections.defaultdict(list)
    for entry in map(read_entry, entries):
        if entry.quick and entry.rule is not None:
            listed[entry.rule.event, entry.rule.channel].append(entry)
    steps = []
    for key, (line, rule) in rules.items():
        there = sorted(listed.pop(key, []))
        fitting = next((entry for entry in there if rule.met_by(entry.rule)), None)
        obsolete = tuple(entry for entry in there if entry is not fitting)
        outcome = "replaced" if obsolete else "kept" if fitting else "added"
        steps.append(Step(outcome, f"{line}: {describe(rule)}", rule, obsolete))
    others = [entry for same in listed.values() for entry in same] if delete_others else []
    return [Step("deleted", f"{entry.guid}: {describe(entry.rule)}", None, (entry,))
            for entry in others] + steps


def take(client, step):
    """Takes a step. A replaced rule is restored when the new one is refused."""
    client.delete([entry.guid for entry in step.obsolete])
    if step.rule is None or step.outcome == "kept":
        return
    try:
        client.add(step.rule)
    except Refused:
        for entry in step.obsolete[:1]:
            client.add(entry.rule)
        raise


def apply_steps(client, steps):
    """Takes the steps and prints how many had which outcome. Returns the exit status."""
    outcomes = collections.Counter()
    failure = None
    try:
        for step in steps:
            show_progress(sum(outcomes.values()), len(steps))
            try:
                take(client, step)
                outcomes[step.outcome] += 1
            except Refused as refusal:
                outcomes["refused"] += 1
                show_progress()
                print(printable(f"{step.title}: {refusal}"), file=sys.stderr)
    except (KeyboardInterrupt, NoAnswer) as reason:
        failure = reason
    show_progress()
    print_outcomes(outcomes)
    if failure is not None:
        left = len(steps) - sum(outcomes.values())
        print(f"{str(failure) or 'interrupted'}; {left} left, run it again", file=sys.stderr)
        return 130 if isinstance(failure, KeyboardInterrupt) else 1
    return 1 if outcomes["refused"] else 0


def print_outcomes(outcomes):
    print(", ".join(f"{outcome} {outcomes[outcome]}"
                    for outcome in ("kept", "added", "replaced", "deleted", "refused")))


def show_progress(done=0, total=0):
    """Draws a bar on a terminal; without arguments removes it."""
    if sys.stderr.isatty():
        bar = "#" * (40 * done // total) if total else ""
        text = f"[{bar:<40}] {done}/{total}" if total else ""
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def describe(rule):
    text = f"event {rule.event} on channel {rule.channel}"
    text += f" alarm {rule.alarm}" if rule.alarm is not None else ""
    text += f" records channel {rule.record}" if rule.record is not None else ""
    return text + f", '{rule.name}'" + (f", schedule {rule.schedule}" if rule.schedule else "")


def printable(text):
    """The text without control characters, because any client can choose a rule's name."""
    return "".join(char if char.isprintable() else "?" for char in text)


def print_table(entries):
    """The rules, one per line; only GUID and name of those that are not quick rules of one event."""
    form = "{:<32} {:>10} {:>7} {:>5} {:>6} {:<32} {}"
    print(form.format("GUID", "EVENT", "CHANNEL", "ALARM", "RECORD", "SCHEDULE", "NAME"))
    for entry in map(read_entry, entries):
        rule = entry.rule if entry.quick and entry.rule else Rule("", "", name=entry.name)
        cells = (entry.guid, rule.event, rule.channel, rule.alarm, rule.record, rule.schedule,
                 rule.name)
        print(printable(form.format(*("" if cell is None else cell for cell in cells))).rstrip())


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(
        description="Lists, adds and deletes the rules of a recorder.",
        epilog="Without --user, the variables RULE_USER and RULE_PASSWORD or the file ~/.netrc hold the"
        " credentials. A password on a command line can be seen by every user of the machine.")
    parser.add_argument("--url", default=os.environ.get("RULE_URL"),
                        help="the address of the rule endpoint; otherwise the variable RULE_URL")
    parser.add_argument("--user", metavar="NAME[:PASSWORD]", help="the credentials")
    commands = parser.add_subparsers(dest="command", required=True)
    listing = commands.add_parser("list", help="show all rules")
    listing.add_argument("--json", action="store_true", help="the recorder's document, unchanged")
    adding = commands.add_parser("add", help="create a rule, unless it exists")
    adding.add_argument("event", help="event ID, as in 536936448 or 0x20010000")
    adding.add_argument("channel", help="channel of the camera")
    adding.add_argument("--alarm", help="alarm input of the camera, for the alarm event")
    adding.add_argument("--record", metavar="CHANNEL", help="channel to record")
    adding.add_argument("--name", help=f"name of the rule; otherwise {QUICK_NAME}")
    adding.add_argument("--schedule", metavar="GUID", help="otherwise the schedule for all day")
    deleting = commands.add_parser("delete", help="delete rules")
    deleting.add_argument("guid", nargs="+")
    applying = commands.add_parser("apply", help="make a recorder's rules match a list",
                                   description=APPLY_HELP)
    applying.add_argument("file")
    applying.add_argument("--dry-run", action="store_true", help="only show what would be done")
    applying.add_argument("--delete-others", action="store_true",
                          help="delete the quick rules that are not in the file")
    options = parser.parse_args(arguments)
    if not options.url:
        parser.error("the address is missing: --url or the variable RULE_URL")
    return options


def find_login(options):
    """User and password, from the first place that has them."""
    user, _, password = (options.user or os.environ.get("RULE_USER", "")).partition(":")
    password = password or os.environ.get("RULE_PASSWORD", "")
    if not password:
        try:
            entry = netrc.netrc().authenticators(urllib.parse.urlsplit(options.url).hostname)
        except FileNotFoundError:
            entry = None
        if entry and user in ("", entry[0]):
            user, password = entry[0], entry[2]
    if user and not password and sys.stdin.isatty():
        password = getpass.getpass(f"Password of {user}: ")
    return user or None, password


def run(options):
    """Does what the options say. Returns the exit status."""
    client = RuleClient(options.url, *find_login(options))
    if options.command == "list":
        entries = client.list()
        if options.json:
            print(json.dumps(entries, indent=2))
        else:
            print_table(entries)
    elif options.command == "add":
        created = client.add(make_rule(options.event, options.channel, options.alarm,
                                       options.record, options.name, options.schedule))
        print("added" if created else "kept: the rule is there")
    elif options.command == "delete":
        client.delete(options.guid)
    else:
        try:
            rules = read_rules(options.file)
        except (UnicodeDecodeError, csv.Error) as failure:
            raise BadInput(f"{options.file}: {failure}") from failure
        steps = plan(rules, client.list(), options.delete_others)
        if not options.dry_run:
            return apply_steps(client, steps)
        for step in steps:
            print(printable(f"{step.outcome:<8} {step.title}"))
        print_outcomes(collections.Counter(step.outcome for step in steps))
    return 0


def main():
    options = parse_arguments(sys.argv[1:])
    try:
        status = run(options)
        sys.stdout.flush()
        return status
    except BrokenPipeError:  # the reader of the output has closed it, as `head` does
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except (Refused, NoAnswer, BadInput, OSError, ValueError, netrc.NetrcParseError) as failure:
        print(printable(f"rule_client: {failure}"), file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
