"""The client of examples/client: when it sends a request again, and what its command does."""

import json
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "examples/client"))
from rule_client import (ALARM_EVENT, CLASH_LIMIT, Answer, NoAnswer, Refused, Rule, RuleClient,
                         read_entry)

RULE = Rule(ALARM_EVENT, 3, alarm=16, record=10)
NIGHT = "5C4ED01E000000000000000000000003"


def entry(rule, method="quick"):
    """The rule as a recorder lists it."""
    source = f"CA3E7A000000000000000000C0DE{rule.channel:04}"
    source += "" if rule.alarm is None else f"{rule.alarm:X}"
    document = {"CreationMethod": method, "TimeProfile": rule.schedule}
    if rule.record is not None:
        document["ActionProfiles"] = {"actpf0": f"22222222223A7F09C2B14E6D58F0{rule.record:04X}"}
    event = {"EventID": str(rule.event), "SourceIds": {"id0": source}}
    return {"GUID": "33333333333A7F09C2B14E6D58F00003", "name": rule.name,
            "content": {"rule": document}, "event": [{"content": {"event_profile": event}}]}


def answer(code, text=""):
    return Answer(400 if code else 200, {}, json.dumps({"ret_code": code, "ret_mesg": text}).encode())


def listing(*rules):
    return Answer(200, {}, json.dumps({"ruleList": [entry(rule) for rule in rules]}).encode())


class ScriptedClient(RuleClient):
    """Is given each answer beforehand; an exception stands for a lost one."""

    pauses = (0, 0)

    def __init__(self, *answers):
        super().__init__("http://recorder/rule")
        self.answers = list(answers)

    def request(self, method, target="", body=None, headers=None):
        following = self.answers.pop(0)
        if isinstance(following, Exception):
            raise following
        assert (method == "GET") == (b"ruleList" in following.body)
        return following


ADDED = answer(0, "Add Rule successful")
CLASH = answer(-221, "Error add rule multicall reply fail")
DUPLICATE = answer(-911, "Warning chIdx=3, eventID=537001984 already added in quick mode rule list")
UNREADABLE = answer(-220, "Error add rule multicall reply Json format error")
NOT_ASKED = answer(-1001, "Error ROVA POST request /cfg/multicalls add event Rule fail")
NO_LIST = answer(-603, "Internal error get all rule list fail ret=-603")
NO_SCHEDULES = answer(-102, "Internal error get time profile guid fail ret=-102")
NOT_CHECKED = answer(-103, "Error check time profile [a\nb] fail ret=-103")
NO_SCHEDULE = answer(-104, "Error check time profile [AAAA] fail ret=-104")
NO_EVENT = answer(-102, "Error input Json no event object")
PAGE = Answer(502, {}, b"<html>")
TOO_LONG = Answer(413, {}, b"<html>")
LOST = ConnectionResetError()
NIGHTLY = RULE._replace(schedule=NIGHT)


@pytest.mark.parametrize("rule, answers, outcome", [
    (RULE, [ADDED], True),
    (RULE, [CLASH] * CLASH_LIMIT + [ADDED], True),
    (RULE, [CLASH] * (CLASH_LIMIT + 1), Refused),
    (RULE, [CLASH, DUPLICATE, listing(RULE)], True),
    (RULE, [LOST, listing(RULE)], True),
    (RULE, [LOST, listing(), ADDED], True),
    (RULE, [LOST, listing(), LOST, listing(), LOST, listing()], NoAnswer),
    (RULE, [PAGE, listing(RULE)], True),
    (RULE, [UNREADABLE, listing(RULE)], True),
    (RULE, [NOT_ASKED, listing(), ADDED], True),
    (RULE, [NO_LIST, NO_SCHEDULES, ADDED], True),
    (NIGHTLY, [NOT_CHECKED, ADDED], True),
    (NIGHTLY, [NO_SCHEDULE], Refused),
    (RULE, [NO_EVENT], Refused),
    (RULE, [TOO_LONG], Refused),
    (RULE, [DUPLICATE, listing(RULE)], False),
    (RULE, [DUPLICATE, listing(NIGHTLY)], False),
    (NIGHTLY, [DUPLICATE, listing(RULE, NIGHTLY)], False),
    (NIGHTLY, [DUPLICATE, listing(RULE)], Refused),
    (RULE, [DUPLICATE, listing(RULE._replace(alarm=10))], Refused),
    (RULE, [DUPLICATE, listing(RULE._replace(record=None))], Refused),
    (RULE, [DUPLICATE, listing(RULE._replace(record=3))], Refused),
    (RULE, [DUPLICATE, listing(RULE._replace(name="other"))], Refused),
])
def test_adding(rule, answers, outcome):
    client = ScriptedClient(*answers)
    if isinstance(outcome, bool):
        assert client.add(rule) is outcome
    else:
        pytest.raises(outcome, client.add, rule)
    assert not client.answers


def test_deletion_is_repeated():
    refused = answer(-306, "Request failed")
    deleted = answer(0, "Delete Rule successful")
    ScriptedClient(LOST, answer(-304, "<0> Error"), deleted).delete(["A"])
    pytest.raises(Refused, ScriptedClient(refused).delete, ["A"])


@pytest.mark.parametrize("other", [
    {}, {"event": [], "content": None}, entry(RULE, "manual"), entry(RULE) | {"event": [{}]},
    entry(RULE) | {"event": entry(RULE)["event"] * 2}])
def test_rules_made_otherwise_are_not_taken_for_quick_ones(other):
    listed = read_entry(other)
    assert not listed.quick or listed.rule is None
