"""Every case of request_cases.txt, through the program's own `main` on a scripted platform."""

import json
import pathlib
import re
import subprocess
import threading

import pytest

from recorder import PROJECT, record_exchange
from request_cases import CASES, read_cases

STATUS = {0: "200 OK", -3: "200 OK", -2: "401 Unauthorized"}  # any other code: 400
FIXED_ARGUMENTS = " with 127.0.0.1 10141 15 0 0 0 0"
SERVICES = ["GET /cfg/Schedule" + FIXED_ARGUMENTS, "rules",
            "POST /cfg/multicalls" + FIXED_ARGUMENTS]


def find_log_places():
    """Function and line of each place in the program that logs."""
    places = set()
    for source in (PROJECT / "rule_operation").rglob("*.cpp"):
        for number, line in enumerate(source.read_text().splitlines(), 1):
            if definition := re.match(r"[a-z].*?(\w+)\(", line):
                function = definition[1]
            if re.search(r"\b(RULE_LOG|REFUSE)\(", line):
                places.add((function, number))
    return places


LOG_PLACES = find_log_places()


class Harness:
    """A process that runs requests. Bytes that are not UTF-8 are kept on both ways."""

    def __init__(self, bin_dir):
        self.process = subprocess.Popen([pathlib.Path(bin_dir, "request_harness").resolve()],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def run(self, given):
        """The outcome of a request."""
        watchdog = threading.Timer(60, self.process.kill)
        watchdog.start()
        request = json.dumps(given, ensure_ascii=False)
        self.process.stdin.write(f"{request}\n".encode(errors="surrogateescape"))
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        watchdog.cancel()
        assert line, f"the process has ended: {self.process.wait()}"
        outcome = json.loads(line.decode(errors="surrogateescape"))
        record_exchange(given["method"], given["body"].encode(errors="surrogateescape"),
                        outcome["response"].encode(errors="surrogateescape"))
        return outcome


@pytest.fixture(name="run", scope="module")
def fixture_run(bin_dir):
    harness = Harness(bin_dir)
    yield harness.run
    harness.process.stdin.close()
    assert harness.process.wait() == 0


def response_to(answer):
    if answer is None:
        return ""
    code, body = 0, answer
    if not isinstance(answer, str):
        code = answer[0]
        text = json.dumps(answer[1], ensure_ascii=False).replace("/", "\\/")
        body = f'{{ "ret_code": {code}, "ret_mesg": {text} }}'
    status = STATUS.get(code, "400 Bad Request")
    return f"Status: {status}\r\nContent-type: application/json\r\n\r\n{body}\n\n"


def is_refusal(answer):
    """Whether the program has refused the request with a text of its own."""
    return (isinstance(answer, tuple) and answer[0] not in STATUS
            and answer[1] not in ("Request failed", "Internal error"))


def exit_status(case):
    """Refused callers do not change it."""
    if case.given.get("authentication") or "input" in case.given:
        return case.given.get("tokenizer", 0)
    if case.answer is None:
        return case.given["table"]
    return 0 if isinstance(case.answer, str) else case.answer[0]


def services_called(case):
    method, answer = case.given["method"], case.answer
    if method == "GET":
        return ["rules"]
    if method == "DELETE":
        return ["parameter GUID 0"] + [f"DELETE /cfg/Rule?GUID={guid}{FIXED_ARGUMENTS}"
                                       for guid in case.deletes]
    if method != "POST":
        return []
    count = 0
    if "time profile" in answer[1]:
        count = 1
    elif answer[0] in (-601, -602, -603, -911):
        count = 2
    elif answer[0] in (0, -2, -220, -221) or answer[1].startswith("Error ROVA POST"):
        count = 3
    return ["parameter func 0"] + SERVICES[:count]


def calls_made(case, response):
    given = case.given
    calls = ["signals", "input", "camera table"]
    if case.answer is None:
        return calls
    if "path" in given:
        calls.append("tokens " + given["path"])
    if "input" not in given:
        calls.append("authentication 11")
        if not given.get("authentication"):
            calls += services_called(case)
    length = len(response.encode(errors="surrogateescape"))
    tokens = ", before " + given["path"] if "path" in given else ""
    handle = "null" if "input" in given else "input"
    return calls + [f"free {handle} after {length} bytes{tokens}"]


def take_document(calls):
    """Takes the posted document out of the calls."""
    for position, call in enumerate(calls):
        if match := re.fullmatch(r"(POST \S+) (.*)( with .*?)", call, re.DOTALL):
            calls[position] = match[1] + match[3]
            return match[2]
    return ""


def check_log(case, log):
    # The harness knows `main` by a longer name.
    messages = [re.fullmatch(r"\[(?:rule_operation_)?(\w+)\]\((\d+)\) (.*)", line, re.DOTALL)
                for line in log]
    for message in messages:
        assert (message[1], int(message[2])) in LOG_PLACES, message[0]
    messages = [f"{message[1]} {message[3]}" for message in messages]
    if not case.log and is_refusal(case.answer):
        assert messages[-1].partition(" ")[2] == case.answer[1]
    if exit_status(case) == 0:
        assert not [message for message in messages if re.match(r"\w+ (Error|Internal)", message)]
    patterns = ["(?s)" + re.escape(line).replace(r"\.\.\.", ".*") for line in case.log]
    starts = range(len(messages) - len(patterns) + 1)
    assert any(all(map(re.fullmatch, patterns, messages[start:])) for start in starts), messages


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_request(case, run):
    outcome = run(case.given)
    document = take_document(outcome["calls"])
    response = response_to(case.answer)
    assert outcome["response"] == response
    assert outcome["exit_status"] == exit_status(case)
    assert outcome["calls"] == calls_made(case, response)
    assert not document or outcome["pauses"] == 1800 * document.count('"GUID": ')
    for text in case.posts:
        assert text in document
    check_log(case, outcome["log"])


def test_an_exception_is_answered_once(run, bin_dir):
    """Wherever in the platform it comes from, and no signal ends the process."""
    usual = next(case.given for case in CASES if case.name == "last channel")
    calls = run(usual)["calls"]
    assert "free input" in calls[-1]
    for position, call in enumerate(calls[:-1]):
        outcome = run({**usual, "throwing_at": position})
        assert outcome["response"] == response_to((-4, "Internal error")), call
        assert outcome["exit_status"] == -4
        last_call = outcome["calls"][-1].partition(" after")[0]
        assert last_call == (call if position < 3 else "free input")
    with pytest.raises(AssertionError, match=f"ended: {-4 % 256}"):
        Harness(bin_dir).run({**usual, "throwing_at": len(calls) - 1})


@pytest.mark.parametrize("text, mistake", [
    ("define ADD_RULE x\n\n= a\n  b | >> 1\ntabel 1", "cases:5: tabel 1"),
    ("define ADD_RULE x\n= a | table one", "cases:2: table one"),
    ("define ADD_RULE x\n= a | POST x", "cases: a: no answer"),
    ("define ADD_RULE x\n= a | >> 1\n= a", "cases:3: = a"),
])
def test_a_mistake_in_a_case_is_reported(text, mistake):
    with pytest.raises(ValueError, match=re.escape(mistake)):
        read_cases(text, "cases")
