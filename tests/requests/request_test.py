"""Runs the cases of request_cases.txt through the program's own `main` on a scripted platform."""

import json
import os
import re
import subprocess

import pytest

from driver import PROJECT, record_exchange
from request_cases import CASES, USUAL

STATUS = {None: "200 OK", 0: "200 OK", -3: "200 OK", -2: "401 Unauthorized"}
FIXED = "127.0.0.1 10141 15 0 0 0 0"  # the arguments that every call of a service has in common
# The calls that the program makes for each method, besides those that create or delete a rule.
ASKED = {
    "GET": ["rules"],
    "POST": ["parameter func 0", f"GET {FIXED} /cfg/Schedule 0", "rules"],
    "DELETE": ["parameter GUID 0"],
}


def find_log_places():
    """Yields the function and line of each place in the program that logs."""
    for source in (PROJECT / "rule_operation").rglob("*.cpp"):
        for number, line in enumerate(source.read_text().splitlines(), 1):
            if definition := re.match(r"[a-z].*?(\w+)\(", line):
                function = definition[1]
            if re.search(r"\b(RULE_LOG|REFUSE)\(", line):
                yield function, number


LOG_PLACES = set(find_log_places())


def run(bin_dir, given, prefix=()):
    """Returns the outcome of a request. Bytes that are not UTF-8 are preserved in both directions. `prefix`
    is the beginning of the command that starts the process."""
    print(json.dumps(given))  # shown when the test fails
    request = json.dumps(given, ensure_ascii=False)
    done = subprocess.run([*prefix, f"{bin_dir}/request_harness"], input=os.fsencode(request),
                          stdout=subprocess.PIPE, timeout=60, check=True)
    outcome = json.loads(os.fsdecode(done.stdout))
    record_exchange(given["method"], os.fsencode(given["body"]),
                    os.fsencode(outcome["response"]))
    return outcome


def response_to(answer):
    if answer is None:
        return ""
    code, body = answer
    if code is not None:
        text = json.dumps(body, ensure_ascii=False).replace("/", "\\/")
        body = f'{{ "ret_code": {code}, "ret_mesg": {text} }}'
    status = STATUS.get(code, "400 Bad Request")
    return f"Status: {status}\r\nContent-type: application/json\r\n\r\n{body}\n\n"


def check_calls(case, outcome):
    """Checks the calls of the platform: they are the usual ones for the method, a refusal ends them early,
    and the last one creates the rule."""
    given, calls = case.given, outcome["calls"]
    body = len(os.fsencode(given["body"]))
    reads = [call for call in calls if call.startswith("read ")]
    if "length" not in given and "table" not in given:
        rest = range(body if body < 4096 else 0, 0, -100)  # the platform delivers pieces of 100 bytes
        assert reads == [f"read 1 {length}" for length in rest]
    if case.answer:
        handle = "null" if "input" in given else "input"
        length = len(os.fsencode(outcome["response"]))
        assert calls.pop() == f"free {handle} after {length} bytes"
    succeeds = case.exit_status == 0 and "input" not in given
    if given["method"] == "POST" and (succeeds or "multicall" in given):
        check_creation(case, calls.pop(), outcome["pauses"])
    tokens = ["tokens " + given["path"]] if "path" in given else []
    usual = ["signals", "input", "camera table", *reads, *tokens, "authentication 11"]
    usual += ASKED.get(given["method"], [])
    usual += [f"DELETE {FIXED} /cfg/Rule 1 {guid}" for guid in case.deletes]
    assert calls == (usual if succeeds else usual[:len(calls)])


def check_creation(case, call, pauses):
    assert call.startswith(f"POST {FIXED} /cfg/multicalls {{")
    assert pauses == 1800 * call.count('"GUID": ')  # microseconds
    for text in case.posts:
        assert text in call
    for text in case.creates:
        assert call == f"POST {FIXED} /cfg/multicalls {text}"


def check_log(case, log):
    messages = []
    for message in log:
        message = message.replace("rule_operation_main", "main")
        parts = re.fullmatch(r"(?s)\[(\w+)\]\((\d+)\) (.*)", message)
        function, line, text = parts.groups()
        assert (function, int(line)) in LOG_PLACES
        assert case.exit_status or not text.startswith(("Error", "Internal"))
        messages.append(f"{function} {text}")
    if case.log:
        functions = {line.split()[0] for line in case.log}
        messages = [message for message in messages if message.split()[0] in functions]
        assert len(messages) == len(case.log) and all(
            re.fullmatch(re.escape(line).replace(r"\.\.\.", ".*"), message, re.DOTALL)
            for line, message in zip(case.log, messages)), messages
    elif case.exit_status < -100:
        assert any(f" {case.answer[1]}" in message for message in messages), messages


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_request(case, bin_dir):
    outcome = run(bin_dir, case.given)
    assert outcome["response"] == response_to(case.answer)
    assert outcome["exit_status"] == case.exit_status
    check_calls(case, outcome)
    check_log(case, outcome.get("log", []))


def test_events_are_those_of_the_api_document(bin_dir):
    page = (PROJECT / "docs/api.md").read_text()
    rows = re.findall("0x([0-9A-F]{8}) = ([0-9]+)", page)
    documented = {int(number) for _, number in rows}
    assert documented == {int(number, 16) for number, _ in rows}
    for event in {number + step for number in documented for step in (0, 1)}:
        body = USUAL["body"].replace("536936448", str(event))
        response = run(bin_dir, {"method": "POST", "body": body})["response"]
        assert ("-202" in response) == (event not in documented), event


def test_an_exception_is_answered_once(bin_dir):
    """Each call of the platform throws in turn, and the client gets exactly one answer."""
    count = len(run(bin_dir, USUAL)["calls"])
    for position in range(1, count):
        outcome = run(bin_dir, {**USUAL, "throwing_at": position})
        assert outcome["response"] == response_to((-4, "Internal error"))
        assert outcome["exit_status"] == -4
        assert len(outcome["calls"]) == position + (position > 3)


def test_a_process_that_cannot_go_on_has_answered_once(bin_dir):
    """Calls that terminate the process, and an exception from the last call, which follows the response."""
    usual = run(bin_dir, USUAL)
    count = len(usual["calls"])
    for faults, response in (
            ({"terminating_at": 1}, response_to((-4, "Internal error"))),
            ({"terminating_at": count - 1}, response_to((-4, "Internal error"))),
            ({"throwing_at": 5, "terminating_at": 6}, response_to((-4, "Internal error"))),
            ({"throwing_at": count}, usual["response"])):
        request = json.dumps({**USUAL, **faults}).encode()
        done = subprocess.run([f"{bin_dir}/request_harness"], input=request,
                              stdout=subprocess.PIPE, timeout=60)
        assert (done.stdout.decode(), done.returncode) == (response, -4 % 256)


def test_a_lack_of_memory_is_answered_or_harmless(bin_dir):
    usual = run(bin_dir, USUAL)
    for number in range(1, usual["allocations"] + 1):
        outcome = run(bin_dir, {**USUAL, "allocation": number})
        assert outcome["response"] in (usual["response"], response_to((-4, "Internal error")))
        *calls, _ = outcome["calls"]
        assert calls == usual["calls"][:len(calls)]


@pytest.mark.parametrize("method, answer", [("GET", '"GUID": "999"'), ("POST", "Add Rule successful")])
def test_long_list_where_the_heap_cannot_grow(method, answer, bin_dir):
    """The allocator then maps other memory, so an allocation succeeds but leaves ENOMEM in errno."""
    rules = [{"GUID": f"{guid}", "name": 2000 * "N"} for guid in range(1000)]
    given = {**USUAL, "method": method, "rules": [0, json.dumps({"ruleList": rules})]}
    assert answer in run(bin_dir, given, ["prlimit", "--data=0:unlimited"])["response"]


def test_log_formats_are_cut_at_255_bytes(bin_dir):
    log = run(bin_dir, {"method": "PUT", "body": "", "message": 300 * "x"})["log"]
    assert log == ["[f](1) ".ljust(255, "x")]
