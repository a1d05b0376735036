"""The requirements of the long trials for each answer and for the database."""

import contextlib
import json
import sqlite3


class Fault(Exception):
    """A requirement that was not met."""


def require(condition, *facts):
    if not condition:
        raise Fault(" ".join(map(str, facts)))


def read_answer(status, content_type, body):
    """Returns the document in an answer, which must be well formed."""
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
    """Opens the configuration service's database. SQLite's own checks must find nothing in it."""
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        for check, sound in ("integrity_check", [("ok",)]), ("foreign_key_check", []):
            found = database.execute(f"PRAGMA {check}").fetchall()
            require(found == sound, check, found)
        yield database
