#!/usr/bin/python3
"""A client of the rule endpoint: Python 3.9 or later, nothing else is needed.

    from rule_client import Rule, RuleClient
    client = RuleClient("http://127.0.0.1:8080/rule", "admin", "secret")
    client.add(Rule(event=536936448, channel=3, record=5))
"""

import base64
import http.client
import json
import re
import time
import urllib.parse
from typing import NamedTuple, Optional

ALARM_EVENT = 0x20020000
QUICK_NAME = "clientRule"  # of a rule that was created without a name

# A rule is refused with -221 when one of its random GUIDs is in use. Where half of the GUIDs of a
# channel are taken, one attempt in eight succeeds, and 50 in a row fail once in 800 times.
CLASH_LIMIT = 50


class Answer(NamedTuple):
    """What came back for a request, whatever it was."""

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
    """The endpoint gave no answer of its own: what became of the request is not known."""


class Rule(NamedTuple):
    """A quick rule, as a client asks for it."""

    event: int
    channel: int
    alarm: Optional[int] = None  # alarm input of the camera; the alarm event needs it
    record: Optional[int] = None  # channel to record
    name: str = QUICK_NAME
    schedule: str = ""  # GUID; without one the recorder's schedule for all day

    def document(self):
        """The document that asks for the rule."""
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
        """Whether `other`, a rule of a recorder, is this rule. A recorder does not tell which of
        its schedules is the one for all day, so a rule without a schedule is met by any."""
        return self == (other if self.schedule else other._replace(schedule=""))


class ListedRule(NamedTuple):
    """An entry of a recorder's list of rules."""

    guid: str
    name: str
    quick: bool
    rule: Optional[Rule]  # None when it is no rule of one event on one camera


def read_entry(entry):
    """The rule in an entry of the list. A recorder has rules that were made in other ways: of those
    any member can be missing."""
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
    """A recorder's rule endpoint. Each request has a connection of its own."""

    # Seconds before each further attempt of what a recorder could not do at the moment.
    pauses = (1, 2, 4, 8)

    def __init__(self, url, user=None, password="", timeout=60):
        """`timeout` is in seconds; the endpoint itself can take 45."""
        self._url = urllib.parse.urlsplit(url)
        if self._url.scheme not in ("http", "https") or not self._url.hostname:
            raise ValueError(f"not the address of a recorder: {url}")
        self._timeout = timeout
        self._headers = {}
        if user is not None:
            login = base64.b64encode(f"{user}:{password}".encode()).decode()
            self._headers["Authorization"] = f"Basic {login}"

    def request(self, method, target="", body=None, headers=None):
        """One exchange: `target` follows the address, `body` is bytes. Returns the Answer, whatever
        its status. Raises OSError or http.client.HTTPException when there is none."""
        scheme = {"http": http.client.HTTPConnection, "https": http.client.HTTPSConnection}
        connection = scheme[self._url.scheme](self._url.hostname, self._url.port, self._timeout)
        try:
            connection.request(method, self._url.path + target, body,
                               {"Connection": "close", **self._headers, **(headers or {})})
            response = connection.getresponse()
            return Answer(response.status, response.headers, response.read())
        finally:
            connection.close()

    def list(self):
        """All rules of the recorder, the entries of its document as they are."""
        document = self._persist("GET")
        if not isinstance(document, dict) or not isinstance(document.get("ruleList"), list):
            raise NoAnswer("the recorder has no list of rules at the moment")
        return document["ruleList"]

    def delete(self, guids):
        """Deletes rules. A GUID without a rule is no failure; after a failure those before it in
        the list are gone, and the same list can be given again."""
        at_once = 50  # some 2 of the 4 KB that a request can hold
        for first in range(0, len(guids), at_once):
            self._persist("DELETE", "", {"ruleGUID": guids[first:first + at_once]})

    def add(self, rule):
        """Creates a rule, if it is not there yet. Returns whether this call created it."""
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
        """An exchange that can be repeated as it is."""
        for pause in self.pauses:
            try:
                return self._exchange(method, target, document)
            except (Refused, NoAnswer) as failure:
                if advice_for(failure) == "never":
                    raise
                time.sleep(pause)
        return self._exchange(method, target, document)

    def _exchange(self, method, target="", document=None):
        """Returns the document of an answer that is no refusal."""
        body = None
        if document is not None:
            body = json.dumps(document, ensure_ascii=False).encode()
        try:
            answer = self.request(method, target, body, {"Content-Type": "application/json"})
            result = json.loads(answer.body)
        except (OSError, http.client.HTTPException) as failure:
            raise NoAnswer(f"{self._url.netloc}: {failure or type(failure).__name__}") from failure
        except ValueError as failure:
            raise _foreign_answer(answer) from failure
        if isinstance(result, dict) and result.get("ret_code", 0) != 0:
            raise Refused(result["ret_code"], str(result.get("ret_mesg", "")))
        if answer.status != 200:
            raise _foreign_answer(answer)
        return result


def _foreign_answer(answer):
    """An answer that the web server, or something before it, has given by itself."""
    text = f"not an answer of a rule endpoint: status {answer.status}"
    return NoAnswer(text) if answer.status >= 500 else Refused(answer.status, text)


def advice_for(failure):
    """What to do about a failed request: "never" the same again, "at once", "later", "look" at the
    list first because the request may have succeeded, or "duplicate"."""
    if isinstance(failure, NoAnswer):
        return "look"
    # With a code of the recorder's own: it could not be asked to create the rule, or has no list.
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
