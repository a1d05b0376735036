"""Every case of request_cases.txt, through the program's own `main` on a scripted platform."""

import json
import re
import subprocess

import pytest

from recorder import PROJECT, record_exchange
from request_cases import CASES, read_cases

STATUS = {None: "200 OK", 0: "200 OK", -3: "200 OK", -2: "401 Unauthorized"}
FIXED = "127.0.0.1 10141 15 0 0 0 0"  # arguments of every call of a service
# The services that a POST asks in turn, with what the answers mention that each leads to.
SERVICES = {
    "time profile": f"GET {FIXED} /cfg/Schedule 0",
    "rule list": "rules",
    "multicall|successful|Authorized": f"POST {FIXED} /cfg/multicalls ",
}


def find_log_places():
    """Function and line of each place in the program that logs."""
    for source in (PROJECT / "rule_operation").rglob("*.cpp"):
        for number, line in enumerate(source.read_text().splitlines(), 1):
            if definition := re.match(r"[a-z].*?(\w+)\(", line):
                function = definition[1]
            if re.search(r"\b(RULE_LOG|REFUSE)\(", line):
                yield function, number


LOG_PLACES = set(find_log_places())


def run(bin_dir, given):
    """The outcome of a request. Bytes that are not UTF-8 are kept on both ways."""
    request = json.dumps(given, ensure_ascii=False).encode(errors="surrogateescape")
    done = subprocess.run([f"{bin_dir}/request_harness"], check=True, timeout=60,
                          input=request, stdout=subprocess.PIPE)
    outcome = json.loads(done.stdout.decode(errors="surrogateescape"))
    record_exchange(given["method"], given["body"].encode(errors="surrogateescape"),
                    outcome["response"].encode(errors="surrogateescape"))
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


def services_asked(case):
    method = case.given["method"]
    if method == "GET":
        return ["rules"]
    if method == "DELETE":
        deletions = [f"DELETE {FIXED} /cfg/Rule 1 {guid}" for guid in case.deletes]
        return ["parameter GUID 0", *deletions]
    if method != "POST":
        return []
    calls = ["parameter func 0", *SERVICES.values()]
    while len(calls) > 1 and not re.search([*SERVICES][len(calls) - 2], case.answer[1]):
        calls.pop()
    return calls


def calls_made(case, response):
    tokens = ["tokens " + case.given["path"]] if "path" in case.given else []
    length = len(response.encode(errors="surrogateescape"))
    return ["signals", "input", "camera table", *tokens, "authentication 11",
            *services_asked(case), f"free input after {length} bytes"]


def check_log(case, log):
    messages = ""
    for message in log:
        # The harness knows `main` by a longer name.
        pattern = r"(?s)\[(?:rule_operation_)?(\w+)\]\((\d+)\) (.*)"
        function, line, text = re.fullmatch(pattern, message).groups()
        assert (function, int(line)) in LOG_PLACES, message
        messages += f"\x1e{function} {text}"
    assert case.exit_status or not re.search(r"\x1e\w+ (Error|Internal)", messages)
    expected = case.log
    if case.exit_status < -100 and not expected:
        expected = [f"... {case.answer[1]}..."]
    patterns = [re.escape("\x1e" + line) for line in expected]
    pattern = "".join(patterns).replace(r"\.\.\.", "[^\x1e]*")
    assert re.search(f"{pattern}(\x1e|$)", messages), messages


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_request(case, bin_dir):
    outcome = run(bin_dir, case.given)
    response = response_to(case.answer)
    assert outcome["response"] == response
    assert outcome["exit_status"] == case.exit_status
    document = "".join(call.partition(" /cfg/multicalls ")[2] for call in outcome["calls"])
    calls = [call.replace(document, "") for call in outcome["calls"]]
    assert calls == (case.calls or calls_made(case, response))
    assert not document or outcome["pauses"] == 1800 * document.count('"GUID": ')
    for text in case.posts:
        assert text in document
    check_log(case, outcome.get("log", []))


def test_events_are_those_of_the_api_document(bin_dir):
    page = (PROJECT / "docs/api.md").read_text()
    rows = re.findall("0x([0-9A-F]{8}) = ([0-9]+)", page)
    documented = {int(number) for _, number in rows}
    assert documented == {int(number, 16) for number, _ in rows}
    for event in {number + step for number in documented for step in (-1, 0, 1)}:
        body = '{"rule":{"event":[{"eventID":%d,"camera":[{"chIdx":3,"alarm":[]}]}]}}'
        response = run(bin_dir, {"method": "POST", "body": body % event})["response"]
        assert ("successful" in response) == (event in documented), response


def test_an_exception_is_answered_once(bin_dir):
    """Wherever in the platform it comes from, and no signal ends the process."""
    usual = next(case.given for case in CASES if case.name == "last channel")
    count = len(run(bin_dir, usual)["calls"])
    for position in range(count - 1):
        outcome = run(bin_dir, {**usual, "throwing_at": position})
        assert outcome["response"] == response_to((-4, "Internal error"))
        assert outcome["exit_status"] == -4
        assert len(outcome["calls"]) == position + (1 if position < 3 else 2)
    with pytest.raises(subprocess.CalledProcessError, match=str(-4 % 256)):
        run(bin_dir, {**usual, "throwing_at": count - 1})  # releases the parameters


def test_log_formats_are_cut_at_255_bytes(bin_dir):
    log = run(bin_dir, {"method": "PUT", "body": "", "message": 300 * "x"})["log"]
    assert log == ["[f](1) ".ljust(255, "x")]


@pytest.mark.parametrize("fields, mistake", [
    ("= a | GET | >> 1\n  1\ntabel 1", "cases:4: tabel 1"),
    ("= a | table one", "cases:2: table one"),
])
def test_a_mistake_in_a_case_is_reported(fields, mistake):
    with pytest.raises(ValueError, match=mistake):
        read_cases("define ADD_RULE x\n" + fields, "cases")
