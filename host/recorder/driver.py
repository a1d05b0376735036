"""Runs a host recorder on this machine and sends requests to it: to its configuration service, through
its web server, and to the program as a separate process. Commands and tests use this module for that."""

import base64
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
import urllib.parse

from recorder_files import (PROJECT, USER, RecorderError, lock_machine, make_scratch_directory,
                            prepare)

from rule_client import Rule, RuleClient

SERVICE_URL = "http://127.0.0.1:10141"
SERVICE_COMMAND = (PROJECT / "scripts/lib/python", PROJECT / "host/recorder/config_service.py")
BUILT_PROGRAMS = PROJECT / "build/dev/bin"


class Recorder:
    """A recorder, as a context manager: inside it the recorder's files exist, no other recorder
    runs on this machine, and every process that is started ends with it at the latest."""

    def __init__(self, bin_dir, state=None, port=None):
        """The recorder uses the programs of `bin_dir`. Its files are in the directory `state`, or in one that
        is deleted at the end, and its web server is on `port`, or on any free one."""
        self.program = pathlib.Path(bin_dir).resolve() / "rule_operation.cgi"
        self.state = pathlib.Path(state).absolute() if state else None
        self.port = port
        self.user = USER
        self.service = self.web = None  # the processes
        self._cleanup = contextlib.ExitStack()

    def __enter__(self):
        with contextlib.ExitStack() as cleanup:
            cleanup.callback(os.close, lock_machine())
            cleanup.callback(os.umask, os.umask(0o077))
            if not self.state:
                self.state = make_scratch_directory()
                cleanup.callback(shutil.rmtree, self.state, ignore_errors=True)
            self.password = prepare(self.state)
            self._cleanup = cleanup.pop_all()
        return self

    def __exit__(self, *_):
        self._cleanup.close()

    def start(self):
        """Starts the configuration service and the web server."""
        self.start_service()
        self.web, self.url = self.start_web_server(self.program)
        self.client = RuleClient(self.url, self.user, self.password)

    def start_service(self, prefix=()):
        """Starts the configuration service on the recorder's database. `prefix` is the beginning of
        the command that starts it."""
        log = self.state / "config_service.log"
        with log.open("ab") as output:
            start = output.tell()
            self.service = self.start_process(
                *prefix, *SERVICE_COMMAND, "--database", self.state / "rules.db",
                stdout=output, stderr=output)
        self._wait_for(self.service, lambda: b" listening" in log.read_bytes()[start:],
                       "the configuration service does not start:", log, start)

    def start_web_server(self, program, prefix=()):
        """Starts a web server for the CGI program, whose file must be called rule_operation.cgi. `prefix` is
        the beginning of the command that starts the web server. Returns the process and the program's URL
        once a client can connect."""
        port = free_port(self.port)
        environment = {"PATH": os.environ["PATH"] + ":/usr/sbin", "RULE_WEB_PORT": str(port),
                       "RULE_RECORDER_DIR": self.state, "RULE_PROGRAM": program}
        log = self.state / "web_server.log"
        with log.open("ab") as output:
            start = output.tell()
            web = self.start_process(*prefix, "lighttpd", "-D", "-f",
                              PROJECT / "host/web_server/lighttpd.conf",
                              env=environment, stderr=output)
        self._wait_for(web, lambda: is_open(port), "the web server does not start:", log, start)
        return web, f"http://127.0.0.1:{port}/rule"

    def start_process(self, *command, **options):
        """Starts a process that ends with the recorder, and also when this process is killed. The new process
        asks for a signal at the death of its parent, and then checks that the parent is still this process,
        which may have been killed before."""
        waits_for_parent = ["setpriv", "--pdeathsig", "TERM",
                            "sh", "-c", 'test "$PPID" = "$0" && exec "$@"', str(os.getpid())]
        process = subprocess.Popen([*waits_for_parent, *command], stdin=subprocess.DEVNULL,
                                   start_new_session=True, **options)
        self._cleanup.callback(stop, process)
        return process

    @staticmethod
    def _wait_for(process, has_started, failure, log, start):
        started = wait_until(lambda: process.poll() is not None or has_started())
        if not started or process.poll() is not None:
            raise RecorderError(f"{failure} {last_lines(log, start)}")

    def request(self, method, target="", body=b"", client=None):
        """Sends a request over HTTP, as the recorder's own user unless another client is given;
        returns the client's Answer. `target` is appended to the path of the rule endpoint."""
        answer = (client or self.client).request(method, target, body)
        headers = "".join(f"{name}: {value}\r\n" for name, value in answer.headers.items())
        head = f"HTTP/1.1 {answer.status} \r\n{headers}\r\n".encode()
        record_exchange(method, body, head + answer.body)
        return answer

    def run_program(self, method, body=b"", query="func=addRule", prefix=()):
        """Runs the program for a request without any web server; returns what subprocess.run does.
        `prefix` is the beginning of the command that starts the process."""
        return subprocess.run(
            [*prefix, self.program], input=body, capture_output=True, timeout=60,
            env={**self.environment(), "REQUEST_METHOD": method, "QUERY_STRING": query,
                 "CONTENT_LENGTH": str(len(body))})

    def environment(self):
        """The variables from which the program knows the recorder and the caller."""
        login = base64.b64encode(f"{self.user}:{self.password}".encode()).decode()
        return {"RULE_RECORDER_DIR": str(self.state), "HTTP_AUTHORIZATION": f"Basic {login}"}

    def connect(self):
        """A connection to the web server, for clients that send what they like."""
        address = urllib.parse.urlsplit(self.url)
        return socket.create_connection((address.hostname, address.port), timeout=60)

    def running_programs(self):
        """Names of the web server's child processes; one that was just forked still bears the web server's
        name."""
        processes = pathlib.Path("/proc")
        children = (processes / f"{self.web.pid}/task/{self.web.pid}/children").read_text().split()
        names = []
        for child in children:
            with contextlib.suppress(OSError):  # it has just ended
                names.append((processes / child / "comm").read_text().strip())
        return names


def run_command(main, *arguments):
    """Runs a command's `main` and cleans up when it ends, even by a signal."""
    end_on_signals(1)
    try:
        main(*arguments)
    except RecorderError as error:
        sys.exit(str(error))


def without_random_parts(text):
    """Returns the text without the random parts of GUIDs and without line feeds at the end."""
    return re.sub(r"(1{10}|2{10}|3{10})[0-9A-F]{18}", r"\1...", text).rstrip("\n")


def last_lines(log, start=0):
    return "\n".join(log.read_bytes()[start:].decode(errors="replace").splitlines()[-3:])


def end_on_signals(exit_status):
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit(exit_status))


def ask_service(method, path):
    """Sends a request to the configuration service; returns the document of its reply."""
    return json.loads(RuleClient(SERVICE_URL).request(method, path).body)


def record_exchange(method, body, answer):
    """Adds a request and its answer, both as bytes, to the file that the environment variable
    RULE_EXCHANGES names, if any, for the check of the API document."""
    path = os.environ.get("RULE_EXCHANGES")
    if path:
        exchange = {"method": method, "body": body.decode(errors="replace"),
                    "answer": answer.decode(errors="replace")}
        with open(path, "a", encoding="utf-8") as file:
            file.write(json.dumps(exchange) + "\n")


def wait_until(condition, seconds=60):
    """Waits until `condition()` is true, or for that many seconds; returns its last value."""
    end = time.monotonic() + seconds
    while not (value := condition()) and time.monotonic() < end:
        time.sleep(0.002)
    return value


def stop(process):
    """Terminates a process, or kills it if that fails. Returns its exit status."""
    process.send_signal(signal.SIGCONT)
    process.terminate()
    try:
        return process.wait(timeout=10)
    except subprocess.TimeoutExpired:
        process.kill()
        return process.wait()


def free_port(wanted):
    """Returns the port `wanted` of 127.0.0.1, or any if it is None. Nothing listens on the port."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", wanted or 0))
        except OSError as error:
            raise RecorderError("the web server does not start: "
                                f"port {wanted}: {error.strerror}") from error
        return probe.getsockname()[1]


def is_open(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0
