"""Makes each allocation of the program fail in turn, each transfer stop short and each system call fail,
once and from then on; then the same in the configuration service. Checks the answers and the stored rules,
and succeeds only if they agree."""

import argparse
import base64
import collections
import contextlib
import itertools
import json
import re
import signal
import sqlite3
import subprocess
import sys

import recorder as driver
from examples import comparable
from recorder import Recorder, RecorderError, Rule, wait_until
from rule_account import Fault, read_rules, require
from soak import positive

EVENT = 0x20010000
# The names of rules end in the number of their profiles.
RULE = Rule(EVENT, 3, record=4, name='Dock "east" \\ / \t\u00e9, gate of the long ramp-2')
KEPT = [Rule(EVENT, channel, record=record, name=f"{'Long name ' * 90}{channel}-{profiles}")
        for channel, record, profiles in ((5, None, 1), (6, 6, 2), (7, None, 1), (10, 10, 2))]

SHIM_KINDS = ("memory", "transfer")  # of tests/fault_shim.cpp
MANY = 1_000_000
# The errors of system calls; a number is what the call then returns. Of EINTR only what a process meets
# that is stopped and goes on.
ERRORS = {
    "brk": "0", "mmap": "ENOMEM",
    "openat": "EMFILE ENOMEM EIO", "newfstatat": "EIO", "fcntl": "EIO", "ftruncate": "EIO",
    "read": "EIO", "pread64": "EIO", "write": "ENOSPC EPIPE", "pwrite64": "EIO ENOSPC",
    "fsync": "EIO", "fdatasync": "EIO", "unlink": "EIO", "close": "EIO",
    "socket": "EMFILE ENOMEM", "bind": "EADDRINUSE", "listen": "EADDRINUSE",
    "accept": "EMFILE ECONNABORTED", "connect": "ECONNREFUSED EADDRNOTAVAIL",
    "getsockopt": "ENOMEM", "setsockopt": "ENOMEM", "ioctl": "EIO", "shutdown": "ENOTCONN",
    "recvfrom": "ECONNRESET ENOMEM", "recvmsg": "ECONNRESET ENOMEM", "sendmsg": "EPIPE ENOMEM",
    "poll": "EINTR ENOMEM", "epoll_create1": "EMFILE", "epoll_ctl": "ENOMEM", "epoll_wait": "EINTR",
    "eventfd2": "EMFILE", "timerfd_create": "EMFILE", "clock_nanosleep": "EINTR",
}
KINDS = [*SHIM_KINDS,
         *(f"{call}={error}" for call, errors in ERRORS.items() for error in errors.split())]

# What a fault, by where it strikes, and a request may be answered with, and whether the request or a part of
# it may then have been carried out. Never that a sound request or reply could not be read.
ANSWERS = [
    (r"program \w+ -4 Internal error", True),
    (r"(program|input) \w+ -2 Authorized failed", False),
    (r"input (POST|DELETE) -[13]01 Error input Json format error", False),
    (r"\w+ POST -101 Internal error get time profile guid fail ret=-101", False),
    (r"\w+ POST -601 Internal error get all rule list fail ret=-601", False),
    (r"\w+ POST -100[1-3] Error ROVA POST request /cfg/multicalls add event Rule fail", True),
    (r"\w+ DELETE -304 <\d> Error ROVA Delete /cfg/Rule fail ret=-100[1-3]", True),
    (r"\w+ GET -1201 Request failed", False),
    (r"program GET -1205 Request failed", False),
    (r"service POST -103 Internal error get time profile guid fail ret=-103", False),
    (r"service POST -603 Internal error get all rule list fail ret=-603", False),
    (r"service POST -221 Error add rule multicall reply fail", False),
    (r"service DELETE -306 Request failed", True),
    (r"service GET -1203 Request failed", False),
]
NO_CAMERAS = -1101 & 0xFF  # the exit status without an answer
# With what the C library itself ends a process, before `main` or when its heap cannot grow, and how.
LIBRARY_FAULTS = re.compile(r"memory:([1-5]\+?|6\+)|(brk=0|mmap=ENOMEM):\d+\+?")
LOADER_FAILED = 127
LIBRARY_ENDS = (-signal.SIGABRT, -signal.SIGSEGV, LOADER_FAILED)
# An end by the signal, too, when it comes before the service is ready for it.
SERVICE_ENDS = (0, 1, LOADER_FAILED, -signal.SIGTERM)


def snapshot(path):
    """What the database holds, which must be whole rules, without the random parts of GUIDs."""
    read_rules(path)
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        nodes = database.execute("SELECT content, name, guid, type, active, event_id FROM node"
                                 " ORDER BY id").fetchall()
    return comparable(repr([(base64.b64decode(content), *rest) for content, *rest in nodes]))


class Trial:
    """A request, with its answer and the database after it when nothing fails."""

    def __init__(self, bench, method, answered, *documents):
        """Each of `documents` requests more than the one before it; the last one is the request. The
        text `answered` is in its answer."""
        self.method = method
        self.states = [snapshot(bench.database)]
        for document in documents:
            self.body = document if isinstance(document, bytes) else json.dumps(document).encode()
            self.answer = bench.recorder.run_program(method, self.body)
            self.states.append(snapshot(bench.database))
            bench.restore()
        require(answered.encode() in self.answer.stdout, "without a fault:", self.answer)

    def states_after(self, done, place):
        """The states of the database that agree with the answer to a fault in `place`. Requires one
        answer: the usual one, one of ANSWERS, or none without cameras."""
        if (done.stdout, done.returncode) == (self.answer.stdout, self.answer.returncode):
            return self.states[-1:]
        if (done.stdout, done.returncode) == (b"", NO_CAMERAS) and place == "program":
            return self.states[:1]
        answer = re.fullmatch(rb"Status: (400 Bad Request|401 Unauthorized)\r\n"
                              rb"Content-type: application/json\r\n\r\n"
                              rb'(\{ "ret_code": (-\d+), "ret_mesg": ".*" \})\n\n', done.stdout)
        require(answer, "not an answer:", done)
        code, text = int(answer[3]), json.loads(answer[2])["ret_mesg"]
        require((b"401" in answer[1]) == (code == -2), "status:", done)
        require(done.returncode == (0 if code == -2 else code & 0xFF), "exit status:", done)
        carried_out = [may_be for pattern, may_be in ANSWERS
                       if re.fullmatch(pattern, f"{place} {self.method} {code} {text}")]
        require(carried_out, "answered with", code, text)
        position = re.match(r"<(\d)>", text)
        if position:  # in a list of which the GUID in the middle has no rule
            return self.states[(int(position[1]) + 1) // 2:int(position[1]) // 2 + 2]
        return self.states if carried_out[0] else self.states[:1]


class Bench:
    """A recorder with its trials, for one fault at a time in its program or its service."""

    def __init__(self, target, recorder, shim_dir):
        self.target = target
        self.recorder = recorder
        self.program = recorder.program
        self.shim_program = shim_dir / recorder.program.name
        self.database = recorder.state / "rules.db"
        self.mark = recorder.state / "fault"  # exists once the fault has struck
        self.library_ends = 0  # processes that the C library has ended
        recorder.start_service()
        for rule in KEPT:
            recorder.run_program("POST", json.dumps(rule.document()).encode())
        self.kept = sqlite3.connect(":memory:")
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            database.backup(self.kept)
        self.trials = {name: Trial(self, *request) for name, request in self.requests().items()}
        if target == "service":
            driver.stop(recorder.service)

    def requests(self):
        rules = read_rules(self.database)
        guids = [rules[rule.name] for rule in KEPT]
        bad_name = json.dumps(RULE.document()).encode().replace(b"Dock", b"\xed\xa0\x80")
        requests = {"add": ("POST", '"ret_code": 0', RULE.document()),
                    "list": ("GET", KEPT[-1].name, b""),
                    "delete": ("DELETE", '"ret_code": 0', {"ruleGUID": guids[:1]},
                               {"ruleGUID": [guids[0], "F" * 32, guids[1]]}),
                    "refused by the service": ("POST", '"ret_code": -221', bad_name)}
        if self.target == "program":
            requests.update({"put": ("PUT", "null", b""),
                             "duplicate": ("POST", '"ret_code": -911', KEPT[0].document()),
                             "not JSON": ("POST", '"ret_code": -101', b'{"rule": [1, "\\u00e9", {')})
        return requests

    def restore(self):
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            self.kept.backup(database)

    def faults(self):
        """Each trial with each kind of fault that it can meet, once and from there on, and how many
        there are at most."""
        for name, trial in self.trials.items():
            self.ask(trial, "all=0", "65535")  # is never reached, but traces every call
            calls = re.findall(r"^\d+ +(\w+)\(", self.trace(), re.MULTILINE)
            self.restore()
            for kind, lasting in itertools.product(KINDS, ("", "+")):
                count = MANY if kind in SHIM_KINDS else calls.count(kind.split("=")[0])
                if count and not (lasting and kind.endswith("=EINTR")):
                    yield name, kind, lasting, count

    def run(self, name, kind, number):
        """Runs a trial with a fault. Returns whether it has struck, and what did not hold."""
        done, status = self.ask(self.trials[name], kind, number)
        struck = [self.mark.name] * self.mark.exists() if kind in SHIM_KINDS else \
            re.findall(r".*\(INJECTED\)", self.trace())
        try:
            self.judge(self.trials[name], f"{kind}:{number}", struck, done, status)
            return bool(struck), None
        except Fault as violation:
            return bool(struck), str(violation)
        finally:
            self.restore()

    def ask(self, trial, kind, number):
        """What the program has done, and the exit status of the process that the fault was for."""
        self.mark.unlink(missing_ok=True)
        (self.recorder.state / "rule.log").unlink(missing_ok=True)
        prefix = self.prefix(kind, number)
        self.recorder.program = self.shim_program if kind in SHIM_KINDS else self.program
        try:
            if self.target == "program":
                done = self.recorder.run_program(trial.method, trial.body, prefix=prefix)
                driver.ask_service("GET", "/cfg/Schedule")  # answered after what it was sent before
                return done, done.returncode
            with contextlib.suppress(RecorderError):  # the exit status shows it
                self.recorder.start_service(prefix)
        finally:
            self.recorder.program = self.program
        done = self.recorder.run_program(trial.method, trial.body)
        if kind in SHIM_KINDS:
            return done, driver.stop(self.recorder.service)
        self.recorder.service.kill()  # it may not hear of another signal when its calls fail
        status = self.recorder.service.wait()
        return done, 0 if status == -signal.SIGKILL else status

    def prefix(self, kind, number):
        """The beginning of a command that then meets the fault."""
        if kind in SHIM_KINDS:
            return ["env", f"RULE_FAULT={kind}:{number}", f"RULE_FAULT_MARK={self.mark}"]
        call, error = kind.split("=")
        outcome = "retval" if error.isdigit() else "error"
        return ["strace", "-D", "-f", "--seccomp-bpf", "-o", self.mark, "-e", f"trace={call}",
                "-e", f"inject={call}:{outcome}={error}:when={number}"]

    def trace(self):
        """The system calls of the process that the fault was for, once it has ended."""
        wait_until(lambda: self.mark.read_text().endswith(" +++\n"))
        return self.mark.read_text()

    def judge(self, trial, fault, struck, done, status):
        """`struck` names what the fault has struck, `status` is that process's exit status."""
        state = snapshot(self.database)
        is_ended = status in LIBRARY_ENDS and LIBRARY_FAULTS.fullmatch(fault) is not None
        self.library_ends += is_ended
        allowed = trial.states
        if self.target == "service":
            require(is_ended or status in SERVICE_ENDS, "the service ended with", status)
        has_answer = not is_ended and not any(" write(1, " in call for call in struck)
        if self.target == "service" or has_answer:
            is_cut = any(" read(0, " in call for call in struck)  # the request's body
            place = "input" if is_cut else self.target if struck else "nothing"
            allowed = trial.states_after(done, place)
        if fault.startswith("fdatasync="):  # the kill is the crash after a failed write
            allowed = trial.states
        require(state in allowed, "not the rules of the answer:", done.stdout,
                trial.states.index(state) if state in trial.states else state)


def torture(bench, every):
    """Runs every fault, or every `every`th one. Prints what did not hold; returns how often."""
    runs, violations = collections.Counter(), collections.Counter()
    first = 1
    for name, kind, lasting, count in bench.faults():
        for number in range(first, count + 1, every):
            has_struck, violation = bench.run(name, kind, f"{number}{lasting}")
            runs[kind] += has_struck
            if violation:
                violations[kind] += 1
                print(f"{violation}\n  scripts/torture {bench.target} --only"
                      f" '{name}:{kind}:{number}{lasting}'", flush=True)
            if not has_struck:
                break
        first = 1 + (first - 1 - count) % every
    for kind, count in runs.items():
        print(f"  {kind}: {count} runs, {violations[kind]} violations")
    print(f"{bench.target}: {runs.total()} runs, {violations.total()} violations; the C library ended"
          f" {bench.library_ends} processes")
    return violations.total()


def main():
    parser = argparse.ArgumentParser(prog="scripts/torture", description=__doc__)
    parser.add_argument("target", nargs="?", choices=["program", "service", "all"], default="all")
    parser.add_argument("--every", type=positive, default=1, metavar="N",
                        help="run only every Nth fault of each kind")
    parser.add_argument("--only", metavar="REQUEST:KIND:NUMBER", help="run only this fault")
    arguments = parser.parse_args()
    bin_dir = driver.build_programs("faulty_rule_operation.cgi", "faulty_config_service")
    failures = 0
    for target in ("program", "service"):
        if arguments.target in (target, "all"):
            with Recorder(bin_dir) as recorder:
                bench = Bench(target, recorder, bin_dir.parent / "tests/faulty")
                if arguments.only:
                    has_struck, violation = bench.run(*arguments.only.split(":"))
                    print("struck," if has_struck else "not struck,", violation or "no violation")
                    failures += violation is not None
                else:
                    failures += torture(bench, arguments.every)
    sys.exit(failures > 0)


if __name__ == "__main__":
    driver.run_command(main)
