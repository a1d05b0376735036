"""Makes each allocation of the program fail in turn, each transfer stop short and each system call fail,
once and from then on; then the same in the configuration service. Checks the answers and the stored rules,
and succeeds only if they agree."""

import argparse
import base64
import contextlib
import itertools
import json
import pathlib
import re
import signal
import sqlite3
import subprocess
import sys

import driver
from driver import BUILT_PROGRAMS, Recorder, Rule, wait_until, without_random_parts
from verdict import Fault, opened, read_answer, require

EVENT = 0x20010000
RULE = Rule(EVENT, 3, record=4, name='Dock "east" \\ / \t\u00e9, gate of the long ramp')
KEPT = [Rule(EVENT, channel, record=record, name=f"{'Long name ' * 90}{channel}")
        for channel, record in ((5, None), (6, 6), (7, None), (10, 10))]

# The faults: those of tests/trials/fault_shim.cpp, and calls of the system by what they then return, an error
# or 0. Of EINTR only what a process meets that is stopped and goes on.
SHIM_KINDS = ("memory", "transfer")
ERRORS = {
    "0": "brk",
    "EIO": "openat newfstatat fcntl ftruncate read pread64 pwrite64 fdatasync close ioctl shutdown",
    "ENOMEM": "mmap openat socket getsockopt setsockopt bind listen poll epoll_ctl recvfrom sendmsg",
    "EMFILE": "openat socket accept pipe2 epoll_create1 eventfd2 timerfd_create",
    "ENOSPC": "write pwrite64",
    "EPIPE": "write sendmsg",
    "ECONNRESET": "connect recvfrom recvmsg",
    "EINTR": "poll epoll_wait clock_nanosleep",
}
KINDS = [*SHIM_KINDS, *(f"{call}={error}" for error, calls in ERRORS.items() for call in calls.split())]
# Where nobody is accepted any more, each client waits for its time limit.
NEVER_LASTING = re.compile(r"accept=\w+|\w+=EINTR")
NO_FAULT = "65535"  # the number of a fault that never strikes
NO_RULE = "F" * 32  # a GUID that none has
DELETES_NOTHING = json.dumps({"ruleGUID": [NO_RULE]}).encode()

# After these the answer is the usual one.
HARMLESS = re.compile(r"transfer:.*|\w+=EINTR:.*")
# What a request may be answered with, by where the fault strikes, and whether the request or a part of it
# may then have been carried out. Never that a sound request or reply could not be read.
ANSWERS = {
    r"program \w+ -4 Internal error": True,
    r"(program|input) \w+ -2 Authorized failed": False,
    r"input (POST|DELETE) -[13]01 Error input Json format error": False,
    r"\w+ POST (-[16]01) Internal error get [a-z ]+ fail ret=\1": False,
    r"service POST (-[16]03) Internal error get [a-z ]+ fail ret=\1": False,
    r"\w+ POST -100[1-3] Error ROVA POST request /cfg/multicalls add event Rule fail": True,
    r"service POST -221 Error add rule multicall reply fail": False,
    r"\w+ DELETE -304 <\d> Error ROVA Delete /cfg/Rule fail ret=-100[1-3]": True,
    r"service DELETE -306 Request failed": True,
    r"(\w+ GET -1201|program GET -1205|service GET -1203) Request failed": False,
}
NO_CAMERAS = -1101 & 0xFF  # the exit status without an answer
# With what the C library itself ends a process, before `main` or when its heap cannot grow, and how.
LIBRARY_FAULTS = re.compile(r"memory:([1-5]\+?|6\+)|(brk=0|mmap=ENOMEM):\d+\+?")
LOADER_FAILED = 127
LIBRARY_ENDS = (-signal.SIGABRT, -signal.SIGSEGV, LOADER_FAILED)
SERVICE_ENDS = (-signal.SIGKILL, 1, LOADER_FAILED)  # after the answer, or when it cannot start
LISTENING = "0100007F:279D 00000000:0000 0A"  # at 127.0.0.1:10141, as the kernel tells


def snapshot(path):
    """What the database holds, without the random parts of GUIDs."""
    with opened(path) as database:
        nodes = database.execute("SELECT content, id, name, description, guid, type, active, event_id"
                                 " FROM node ORDER BY id").fetchall()
        references = database.execute("SELECT * FROM rule_profile").fetchall()
    decoded = [(base64.b64decode(content), *rest) for content, *rest in nodes]
    return without_random_parts(repr((decoded, references)))


class Request:
    """A request, with its answer and the database before and after it when nothing fails."""

    def __init__(self, bench, method, body, answered):
        self.method, self.body = method, body
        before = snapshot(bench.database)
        self.answer = bench.recorder.run_program(method, body)
        self.states = [before, snapshot(bench.database)]
        bench.restore()
        require(answered in self.answer.stdout, "without a fault:", self.answer)

    def states_after(self, done, place):
        """The states of the database that agree with the answer to a fault in `place`. Requires one
        answer: the usual one, one of ANSWERS, or none without cameras."""
        if (done.stdout, done.returncode) == (self.answer.stdout, self.answer.returncode):
            return self.states[-1:]
        if (done.stdout, done.returncode, place) == (b"", NO_CAMERAS, "program"):
            return self.states[:1]
        parts = re.fullmatch(rb"Status: (400 Bad Request|401 Unauthorized)\r\n"
                             rb"Content-type: (.*)\r\n\r\n(.*)", done.stdout, re.DOTALL)
        require(parts, "not an answer:", done)
        answer = read_answer(int(parts[1][:3]), parts[2].decode(), parts[3])
        code, text = answer["ret_code"], answer["ret_mesg"]
        require(done.returncode == (0 if code == -2 else code & 0xFF), "exit status:", done)
        carried_out = [may_be for pattern, may_be in ANSWERS.items()
                       if re.fullmatch(pattern, f"{place} {self.method} {code} {text}")]
        require(carried_out, "answered with", answer)
        position = re.match(r"<(\d)>", text)
        if position:  # in a list of which only the first GUID has a rule
            return self.states[int(position[1]):]
        return self.states if carried_out[0] else self.states[:1]


class Bench:
    """A recorder with its requests, for one fault at a time in its program or its service."""

    def __init__(self, target, recorder, faulty_dir):
        self.target = target
        self.recorder = recorder
        self.shipped, self.faulty = recorder.program, faulty_dir / recorder.program.name
        self.database = recorder.state / "rules.db"
        self.mark = recorder.state / "fault"  # what tells how often the fault could have struck
        self.library_ends = 0  # processes that the C library has ended
        self.is_blocked = False  # whether the service refuses all that follows a single failure
        recorder.start_service()
        for rule in KEPT:
            recorder.run_program("POST", json.dumps(rule.document()).encode())
        self.kept = sqlite3.connect(":memory:")
        with opened(self.database) as database:
            database.backup(self.kept)
        self.requests = {name: Request(self, *request) for name, request in self.describe().items()}
        if target == "service":
            driver.stop(recorder.service)

    def describe(self):
        guid, = self.kept.execute("SELECT guid FROM node WHERE type = 0").fetchone()
        delete = json.dumps({"ruleGUID": [guid, NO_RULE]}).encode()
        add = json.dumps(RULE.document()).encode()
        bad_name = add.replace(b"Dock", b"\xed\xa0\x80")
        return {"add": ("POST", add, b'"ret_code": 0'),
                "list": ("GET", b"", KEPT[-1].name.encode()),
                "delete": ("DELETE", delete, b'"ret_code": 0'),
                "put": ("PUT", b"", b"null"),
                "refused": ("POST", bad_name, b'"ret_code": -221')}

    def restore(self):
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            self.kept.backup(database)

    def faults(self):
        """All faults: of each request, each kind and each number that is reached, once and from there
        on. What the service does before a request is the same for each, so only the first has it."""
        for name, kind in itertools.product(self.requests, KINDS):
            *_, before = self.ask(self.requests[name], kind, NO_FAULT)
            self.restore()
            for number in range(1 if name == "add" else before + 1, self.count(kind) + 1):
                yield name, kind, f"{number}"
                if not NEVER_LASTING.fullmatch(kind):
                    yield name, kind, f"{number}+"

    def ask(self, request, kind, number):
        """What the program has done, the exit status of the process that the fault was for, and how
        often it could have struck before the request."""
        self.mark.write_bytes(bytes(8))
        (self.recorder.state / "rule.log").unlink(missing_ok=True)
        self.recorder.program = self.faulty if kind in SHIM_KINDS else self.shipped
        prefix = self.prefix(kind, number)
        if self.target == "program":
            before = 0
            done = self.recorder.run_program(request.method, request.body, prefix=prefix)
            driver.ask_service("GET", "/cfg/Schedule")  # answered after what it was sent before
            status = done.returncode
        else:
            service = self.start_service(prefix)
            before = self.count(kind)
            done = self.recorder.run_program(request.method, request.body)
            is_over = number.isdecimal() and self.count(kind) >= int(number)
            self.is_blocked = is_over and not wait_until(
                lambda: service.poll() is not None or
                b'"ret_code": 0' in self.recorder.run_program("DELETE", DELETES_NOTHING).stdout)
            service.kill()  # it may not hear of another signal when its calls fail
            status = service.wait()
        wait_until(lambda: kind in SHIM_KINDS or self.mark.read_bytes().endswith(b" +++\n"))
        return done, status, before

    def start_service(self, prefix):
        """Starts the service, which may fail, and whose log may not tell that it listens."""
        service = self.recorder.start_process(
            *prefix, self.recorder.program.with_name("config_service"), "--database", self.database,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        sockets = pathlib.Path("/proc/net/tcp")
        wait_until(lambda: service.poll() is not None or LISTENING in sockets.read_text())
        return service

    def prefix(self, kind, number):
        """The beginning of a command that then meets the fault."""
        if kind in SHIM_KINDS:
            return ["env", f"RULE_FAULT={kind}:{number}", f"RULE_FAULT_COUNT={self.mark}"]
        call, error = kind.split("=")
        outcome = "retval" if error.isdigit() else "error"
        return ["strace", "-D", "-f", "--seccomp-bpf", "-o", self.mark, "-e", f"trace={call}",
                "-e", f"inject={call}:{outcome}={error}:when={number}"]

    def count(self, kind):
        """How often the fault could have struck until now."""
        mark = self.mark.read_bytes()
        if kind in SHIM_KINDS:
            return int.from_bytes(mark, sys.byteorder)
        return len(re.findall(rb"^\d+ +\w+\(", mark, re.MULTILINE))

    def judge(self, request, fault, done, status):
        """Requires that answer, database and the exit status of the process with the fault agree."""
        state = snapshot(self.database)
        struck = re.findall(rb" (\w+\(\d),.*\(INJECTED\)", self.mark.read_bytes())
        is_ended = status in LIBRARY_ENDS and LIBRARY_FAULTS.fullmatch(fault) is not None
        self.library_ends += is_ended
        allowed = request.states
        if self.target == "service":
            require(is_ended or status in SERVICE_ENDS, "the service ended with", status)
            require(not self.is_blocked, "the service writes no more")
        if self.target == "service" or not (is_ended or b"write(1" in struck):
            place = "input" if b"read(0" in struck else self.target
            allowed = request.states_after(done, "" if HARMLESS.fullmatch(fault) else place)
        if fault.startswith("fdatasync="):  # the kill is the crash after a failed write
            allowed = request.states
        require(state in allowed, "not the rules of the answer:", done.stdout, state)


def torture(bench, faults):
    """Prints what does not hold after a fault; returns how often."""
    runs = violations = 0
    for name, kind, number in faults:
        done, status, _ = bench.ask(bench.requests[name], kind, number)
        runs += bench.count(kind) >= int(number.rstrip("+"))
        try:
            bench.judge(bench.requests[name], f"{kind}:{number}", done, status)
        except Fault as violation:
            violations += 1
            print(f"{violation}\n  scripts/torture {bench.target} --only '{name}:{kind}:{number}'",
                  flush=True)
        bench.restore()
    print(f"{bench.target}: {runs} runs, {violations} violations; the C library ended"
          f" {bench.library_ends} processes")
    return violations


def main():
    parser = argparse.ArgumentParser(prog="scripts/torture", description=__doc__)
    parser.add_argument("target", nargs="?", choices=["program", "service", "all"], default="all")
    parser.add_argument("--every", type=int, default=1, metavar="N", help="run only every Nth fault")
    parser.add_argument("--only", metavar="REQUEST:KIND:NUMBER", help="run only this fault")
    arguments = parser.parse_args()
    violations = 0
    for target in ("program", "service"):
        if arguments.target in (target, "all"):
            with Recorder(BUILT_PROGRAMS) as recorder:
                bench = Bench(target, recorder, BUILT_PROGRAMS.parent / "tests/faulty")
                faults = [arguments.only.split(":")] if arguments.only else \
                    itertools.islice(bench.faults(), 0, None, max(arguments.every, 1))
                violations += torture(bench, faults)
    sys.exit(violations > 0)


if __name__ == "__main__":
    driver.run_command(main)
