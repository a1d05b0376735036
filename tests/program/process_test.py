"""The program's file on the host's platform, without a web server."""

import contextlib
import json
import os
import pathlib
import sqlite3
import subprocess

from driver import Recorder, Rule

SCRIPT = pathlib.Path(__file__).with_name("process_test.sh")


def test_processes(bin_dir):
    with Recorder(bin_dir) as recorder:
        subprocess.run([SCRIPT, recorder.program], env={**os.environ, **recorder.environment()},
                       check=True)


def test_long_list_where_the_heap_cannot_grow(bin_dir):
    """The allocator then takes other memory, and an allocation that succeeds leaves ENOMEM behind."""
    with Recorder(bin_dir) as recorder:
        recorder.start_service()
        with contextlib.closing(sqlite3.connect(recorder.state / "rules.db")) as database, database:
            database.executemany(
                "INSERT INTO node (name, description, guid, type, active, content) "
                "VALUES (?, '', ?, 0, 1, '')", [(2000 * "N", str(guid)) for guid in range(1000)])
        rule = json.dumps(Rule(event=536936448, channel=3).document()).encode()
        for method, text in ("GET", b'"GUID": "999"'), ("POST", b"Add Rule successful"):
            done = recorder.run_program(method, rule, prefix=["prlimit", "--data=0:unlimited"])
            assert text in done.stdout
