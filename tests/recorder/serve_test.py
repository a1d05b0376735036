"""Tests the program behind scripts/recorder as a user starts, ends and kills it."""

import contextlib
import itertools
import os
import pathlib
import re
import signal
import socket
import subprocess

import pytest

from driver import PROJECT, RuleClient, is_open, wait_until

# Serves the programs in the directory that the first argument names instead of those of the usual build.
PROGRAM = "import sys, serve; serve.BUILT_PROGRAMS = sys.argv.pop(1); serve.run_command(serve.main)"
COMMAND = [PROJECT / "scripts/lib/python", "-c", PROGRAM]


@contextlib.contextmanager
def served(bin_dir, state):
    """Starts a recorder and waits until it has printed its address. Yields its process and a client."""
    process = subprocess.Popen([*COMMAND, bin_dir, "--state", state], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    with process, contextlib.ExitStack() as cleanup:
        cleanup.callback(process.kill)
        printed = "".join(itertools.takewhile(lambda line: " account=" not in line, process.stdout))
        variables = re.search(r"RULE_URL=(\S+) RULE_USER=(\S+) RULE_PASSWORD=(\S+)\n", printed)
        yield process, RuleClient(*variables.groups())


def has_ended(client):
    return not is_open(10141) and not is_open(int(re.search(r":(\d+)/", client.url)[1]))


@pytest.mark.parametrize("number, status", [
    (signal.SIGTERM, 0), (signal.SIGINT, 0), (signal.SIGHUP, 0), (signal.SIGKILL, -9)])
def test_ends_with_all_that_it_has_started(bin_dir, tmp_path, number, status):
    with served(bin_dir, tmp_path) as (process, client):
        assert [*itertools.islice(process.stdout, 2)][1].endswith(f"built it: {client.url[:-4]}reference/\n")
        assert client.list() == []
        process.send_signal(number)
        assert (process.wait(60), process.stderr.read()) == (status, "")
        assert wait_until(lambda: has_ended(client))


@pytest.mark.parametrize("position, text", [
    (0, "the configuration service has ended (exit status -9):\n"),
    (1, "the web server has ended (exit status -9):\n")])
def test_ends_when_one_of_its_processes_has_ended(bin_dir, tmp_path, position, text):
    with served(bin_dir, tmp_path) as (process, client):
        children = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text()
        os.kill(int(children.split()[position]), signal.SIGKILL)
        assert process.wait(60) == 1 and process.stderr.read().startswith(text)
        assert wait_until(lambda: has_ended(client))


TAKEN = socket.create_server(("127.0.0.1", 0))
PORT = str(TAKEN.getsockname()[1])


@pytest.mark.parametrize("arguments, text", [
    (["--port", PORT], f"the web server does not start: port {PORT}: Address already in use\n"),
    ([], "the configuration service does not start: config_service: "),
    (["--port", "0"], "not a port number: 0"), (["--port", "65536"], "not a port number: 65536"),
    (["--port", "65535", "--state", "/proc/none"], "kept in /proc/none: /proc/none: No such file")])
def test_what_it_does_not_start_with(bin_dir, tmp_path, arguments, text):
    (tmp_path / "rules.db").write_text("" if arguments else "not a database")
    done = subprocess.run([*COMMAND, bin_dir, "--state", tmp_path, *arguments],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == (2 if "port number" in text else 1)
    assert text in done.stderr and "Traceback" not in done.stderr


def test_command_ends_on_a_signal():
    command = "import driver, signal; driver.run_command(signal.raise_signal, signal.SIGHUP)"
    assert subprocess.run([COMMAND[0], "-c", command], stderr=subprocess.PIPE).returncode == 1
