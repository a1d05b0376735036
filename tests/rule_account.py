"""What long trials hold against each other: the answers of the endpoint, and the rules that are there."""

import base64
import contextlib
import re
import sqlite3


class Fault(Exception):
    """What should not be so."""


def require(condition, *facts):
    if not condition:
        raise Fault(" ".join(map(str, facts)))


def profiles_of(content):
    return re.findall(r"<(?:evtpf|actpf)\d+>(\w+)<", base64.b64decode(content).decode())


def read_rules(path):
    """Checks the configuration service's database and returns the rules' GUIDs by name, which ends in
    the number of the rule's profiles. No two rules name the same profile, and there are no others."""
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        for check, sound in ("integrity_check", [("ok",)]), ("foreign_key_check", []):
            found = database.execute(f"PRAGMA {check}").fetchall()
            require(found == sound, check, found)
        nodes = database.execute("SELECT name, guid, type, content FROM node").fetchall()
        references = database.execute(
            "SELECT rule.guid, profile.guid FROM rule_profile"
            " JOIN node AS rule ON rule.id = rule_profile.rule"
            " JOIN node AS profile ON profile.id = rule_profile.profile").fetchall()
    rules = {name: (guid, profiles_of(content)) for name, guid, type, content in nodes if type == 0}
    for name, (_, profiles) in rules.items():
        require(name.endswith(f"-{len(profiles)}"), "not the rule that was made:", name, profiles)
    named = [(guid, profile) for guid, profiles in rules.values() for profile in profiles]
    require(sorted(named) == sorted(references), "rules and references:", named, references)
    existing = [guid for _, guid, type, _ in nodes if type != 0]
    require(sorted(profile for _, profile in named) == sorted(existing),
            "rules and profiles:", named, existing)
    require(len(rules) + len(existing) == len(nodes), "a rule was made twice")
    return {name: guid for name, (guid, _) in rules.items()}
