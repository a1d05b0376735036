"""Lets the program meet one fault in each run: an allocation or a system call that fails, or a transfer that
stops short, each of them in turn, once and from then on. Checks the answer and the stored rules, and succeeds
only if they agree."""

import argparse
import base64
import contextlib
import itertools
import json
import re
import signal
import sqlite3
import sys
from typing import NamedTuple

import driver
from driver import BUILT_PROGRAMS, Recorder, Rule, wait_until, without_random_parts
from verdict import Fault, opened, read_answer, require

EVENT = 0x20010000
RULE = Rule(EVENT, 3, record=4, name='Dock "east" \\ / \t\u00e9, gate of the long ramp')
KEPT = [Rule(EVENT, channel, record=record, name=f"{'Long name ' * 90}{channel}")
        for channel, record in ((5, None), (6, 6), (7, None), (10, 10))]
NO_RULE = "F" * 32  # a GUID that no rule has

# The faults: those of tests/trials/fault_shim.cpp, and system calls, grouped by the value or error that they
# return. EINTR is only for calls in which a process that was stopped and continued can see it.
SHIM_KINDS = ("memory", "transfer")
ERRORS = {
    "0": "brk",
    "EIO": "openat newfstatat read pread64 close ioctl",
    "ENOMEM": "mmap openat socket getsockopt poll epoll_ctl recvfrom sendmsg",
    "EMFILE": "openat socket epoll_create1 eventfd2 timerfd_create",
    "ENOSPC": "write",
    "EPIPE": "write sendmsg",
    "ECONNRESET": "connect recvfrom",
    "EINTR": "poll epoll_wait clock_nanosleep",
}
KINDS = [*SHIM_KINDS, *(f"{call}={error}" for error, calls in ERRORS.items() for call in calls.split())]
NO_FAULT = "65535"  # the number of a fault that never strikes


class Allowed(NamedTuple):
    """An answer other than the usual one, and when the program may give it."""

    methods: str
    codes: tuple
    text: str
    only_without_input: bool = False  # only when reading the request has failed
    may_have_changed: bool = False  # whether the rules may be those after the request


CALL_FAILED = (-1001, -1002, -1003)
ALLOWED = [
    Allowed("POST GET DELETE PUT", (-4,), "Internal error", may_have_changed=True),
    Allowed("POST GET DELETE PUT", (-2,), "Authorized failed"),
    Allowed("POST", (-101,), "Error input Json format error", only_without_input=True),
    Allowed("DELETE", (-301,), "Error input Json format error", only_without_input=True),
    Allowed("POST", (-101,), "Internal error get time profile guid fail ret=-101"),
    Allowed("POST", (-601,), "Internal error get all rule list fail ret=-601"),
    Allowed("POST", CALL_FAILED, "Error ROVA POST request /cfg/multicalls add event Rule fail",
            may_have_changed=True),
    Allowed("DELETE", (-304,), r"<\d> Error ROVA Delete /cfg/Rule fail ret=-100[1-3]",
            may_have_changed=True),
    Allowed("GET", (-1201,), "Request failed"),
    Allowed("GET", (-1205,), "Request failed"),
]
# Faults after which the answer must be the usual one.
HARMLESS = re.compile(r"transfer:.*|\w+=EINTR:.*")
NO_CAMERAS = -1101 & 0xFF  # the exit status without an answer
# Faults after which the C library ends the process itself, and its exit statuses then.
LIBRARY_FAULTS = re.compile(r"memory:([1-5]\+?|6\+)|(brk=0|mmap=ENOMEM):\d+\+?")
LIBRARY_ENDS = (-signal.SIGABRT, -signal.SIGSEGV, 127)


class Request(NamedTuple):
    method: str
    body: bytes


class Usual(NamedTuple):
    """The outcome of a request when nothing fails."""

    answer: bytes
    status: int  # of the process
    before: str  # the stored rules, as `snapshot` returns them
    after: str


class Run(NamedTuple):
    """The outcome of a request that met a fault."""

    answer: bytes
    status: int
    rules: str
    reached: int  # how often the fault could have struck
    struck: list  # the system calls that failed, each with its first argument


def snapshot(path):
    """Returns the contents of the database without the random parts of GUIDs."""
    with opened(path) as database:
        nodes = database.execute("SELECT content, id, name, description, guid, type, active, event_id"
                                 " FROM node ORDER BY id").fetchall()
        references = database.execute("SELECT * FROM rule_profile").fetchall()
    decoded = [(base64.b64decode(content), *rest) for content, *rest in nodes]
    return without_random_parts(repr((decoded, references)))


class Bench:
    """A recorder with some rules, for one request and one fault at a time."""

    def __init__(self, recorder, faulty_dir):
        self.recorder = recorder
        self.shipped, self.faulty = recorder.program, faulty_dir / recorder.program.name
        self.database = recorder.state / "rules.db"
        self.mark = recorder.state / "fault"  # the file in which the faults are counted or traced
        recorder.start_service()
        for rule in KEPT:
            recorder.run_program("POST", json.dumps(rule.document()).encode())
        self.kept = sqlite3.connect(":memory:")
        with opened(self.database) as database:
            database.backup(self.kept)

    def first_guid(self):
        return self.kept.execute("SELECT guid FROM node WHERE type = 0").fetchone()[0]

    def run(self, request, kind=SHIM_KINDS[0], number=NO_FAULT):
        """Sends the request with a fault, and then restores the rules."""
        self.mark.write_bytes(bytes(8))
        (self.recorder.state / "rule.log").unlink(missing_ok=True)
        self.recorder.program = self.faulty if kind in SHIM_KINDS else self.shipped
        done = self.recorder.run_program(*request, prefix=self.prefix(kind, number))
        driver.ask_service("GET", "/cfg/Schedule")  # the service answers this after all earlier requests
        wait_until(lambda: kind in SHIM_KINDS or self.mark.read_bytes().endswith(b" +++\n"))
        mark = self.mark.read_bytes()
        if kind in SHIM_KINDS:
            reached, struck = int.from_bytes(mark, sys.byteorder), []
        else:
            reached = len(re.findall(rb"^\d+ +\w+\(", mark, re.MULTILINE))
            struck = re.findall(rb" (\w+\(\d),.*\(INJECTED\)", mark)
        rules = snapshot(self.database)
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            self.kept.backup(database)
        return Run(done.stdout, done.returncode, rules, reached, struck)

    def prefix(self, kind, number):
        """Returns the beginning of a command whose process meets the fault."""
        if kind in SHIM_KINDS:
            return ["env", f"RULE_FAULT={kind}:{number}", f"RULE_FAULT_COUNT={self.mark}"]
        call, error = kind.split("=")
        outcome = "retval" if error.isdigit() else "error"
        return ["strace", "-D", "-f", "--seccomp-bpf", "-o", self.mark, "-e", f"trace={call}",
                "-e", f"inject={call}:{outcome}={error}:when={number}"]


def describe_requests(guid):
    """Returns the requests by name, each with a part of the answer when nothing fails."""
    add = json.dumps(RULE.document()).encode()
    return {
        "add": (Request("POST", add), b'"ret_code": 0'),
        "list": (Request("GET", b""), KEPT[-1].name.encode()),
        "delete": (Request("DELETE", json.dumps({"ruleGUID": [guid, NO_RULE]}).encode()),
                   b'"ret_code": 0'),
        "put": (Request("PUT", b""), b"null"),
        "refused": (Request("POST", add.replace(b"Dock", b"\xed\xa0\x80")), b'"ret_code": -221'),
    }


def find_faults(bench, requests):
    """Yields all faults: for each request, each kind and each number that is reached, once and from then
    on."""
    for name, kind in itertools.product(requests, KINDS):
        for number in range(1, bench.run(requests[name], kind).reached + 1):
            yield name, kind, f"{number}"
            if not kind.endswith("=EINTR"):  # no process is interrupted for ever
                yield name, kind, f"{number}+"


def judge(request, usual, fault, run):
    """Requires that the answer, the rules and the exit status agree."""
    if run.status in LIBRARY_ENDS and LIBRARY_FAULTS.fullmatch(fault) or b"write(1" in run.struck:
        allowed = [usual.before, usual.after]  # there may be no answer
    elif (run.answer, run.status) == (usual.answer, usual.status):
        allowed = [usual.after]
    else:
        require(not HARMLESS.fullmatch(fault), "not the usual answer:", run)
        allowed = rules_after(request, usual, run)
    require(run.rules in allowed, "not the rules of the answer:", run)


def rules_after(request, usual, run):
    """Returns the stored rules that agree with an unusual answer. The answer must be one of ALLOWED, or
    empty if the cameras could not be loaded."""
    if (run.answer, run.status) == (b"", NO_CAMERAS):
        return [usual.before]
    parts = re.fullmatch(rb"Status: (400 Bad Request|401 Unauthorized)\r\n"
                         rb"Content-type: (.*)\r\n\r\n(.*)", run.answer, re.DOTALL)
    require(parts, "not an answer:", run)
    answer = read_answer(int(parts[1][:3]), parts[2].decode(), parts[3])
    code, text = answer["ret_code"], answer["ret_mesg"]
    require(run.status == (0 if code == -2 else code & 0xFF), "exit status:", run)
    for row in ALLOWED:
        if (request.method in row.methods.split() and code in row.codes and
                re.fullmatch(row.text, text) and
                (b"read(0" in run.struck or not row.only_without_input)):
            break
    else:
        raise Fault(f"answered with {answer}")
    if text.startswith("<1>"):  # the first of two GUIDs, the only one with a rule, was deleted
        return [usual.after]
    return [usual.before, usual.after] if row.may_have_changed else [usual.before]


def torture(bench, select):
    """Prints each violation with the command that repeats it; returns the number of violations."""
    requests, usual = {}, {}
    for name, (request, answered) in describe_requests(bench.first_guid()).items():
        run = bench.run(request)
        require(answered in run.answer, "without a fault:", run)
        requests[name] = request
        usual[name] = Usual(run.answer, run.status, snapshot(bench.database), run.rules)
    runs = violations = ended = 0
    for name, kind, number in select(find_faults(bench, requests)):
        run = bench.run(requests[name], kind, number)
        runs += run.reached >= int(number.rstrip("+"))
        ended += run.status in LIBRARY_ENDS
        try:
            judge(requests[name], usual[name], f"{kind}:{number}", run)
        except Fault as violation:
            violations += 1
            print(f"{violation}\n  scripts/torture --only '{name}:{kind}:{number}'", flush=True)
    print(f"{runs} runs, {violations} violations; the C library ended {ended} processes")
    return violations


def main():
    parser = argparse.ArgumentParser(prog="scripts/torture", description=__doc__)
    parser.add_argument("--every", type=int, default=1, metavar="N", help="run only every Nth fault")
    parser.add_argument("--only", metavar="REQUEST:KIND:NUMBER", help="run only this fault")
    arguments = parser.parse_args()

    def select(faults):
        if arguments.only:
            return [arguments.only.split(":")]
        return itertools.islice(faults, 0, None, max(arguments.every, 1))

    with Recorder(BUILT_PROGRAMS) as recorder:
        bench = Bench(recorder, BUILT_PROGRAMS.parent / "tests/faulty")
        sys.exit(torture(bench, select) > 0)


if __name__ == "__main__":
    driver.run_command(main)
