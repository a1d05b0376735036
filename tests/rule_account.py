"""What long trials hold against each other: the answers of the endpoint, and the rules that are there."""

import contextlib
import json
import sqlite3


class Fault(Exception):
    """What should not be so."""


def require(condition, *facts):
    if not condition:
        raise Fault(" ".join(map(str, facts)))


def read_answer(status, content_type, body):
    """The document in an answer, which must be one well-formed one."""
    try:
        document = json.loads(body)
    except ValueError as failure:
        raise Fault(f"not JSON: {body}") from failure
    require(isinstance(document, dict), "not a result:", body)
    expected = {0: 200, -2: 401}.get(document.get("ret_code", 0), 400)
    require(status == expected and content_type == "application/json" and body.endswith(b"\n\n"),
            "not an answer:", status, content_type, body)
    return document


@contextlib.contextmanager
def opened(path):
    """The configuration service's database, in which SQLite's own checks find nothing."""
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        for check, sound in ("integrity_check", [("ok",)]), ("foreign_key_check", []):
            found = database.execute(f"PRAGMA {check}").fetchall()
            require(found == sound, check, found)
        yield database


def read_rules(path):
    """The GUIDs by name of the rules in the database. Each has as many profiles as the last digit of its
    name says, and each profile belongs to one of them."""
    with opened(path) as database:
        rules = database.execute("SELECT name, guid, count(profile) FROM node LEFT JOIN rule_profile"
                                 " ON rule = id WHERE type = 0 GROUP BY id").fetchall()
        profiles = database.execute("SELECT id FROM node WHERE type != 0 ORDER BY id").fetchall()
        used = database.execute("SELECT profile FROM rule_profile ORDER BY profile").fetchall()
    require(profiles == used, "profiles:", profiles, "of rules:", used)
    for name, _, count in rules:
        require(name.endswith(f"-{count}"), "not the rule that was made:", name, count)
    guids = {name: guid for name, guid, _ in rules}
    require(len(guids) == len(rules), "a rule was made twice:", rules)
    return guids
