"""Sends the cases of request_cases.txt that need no scripted platform to a whole recorder over HTTP."""

import urllib.parse

import pytest

from request_cases import CASES, METHODS
from request_test import response_to

SENDABLE = [case for case in CASES if case.given["method"] in METHODS
            and case.given.keys() <= {"method", "body", "func"}]


@pytest.mark.parametrize("case", SENDABLE, ids=lambda case: case.name)
def test_request_over_http(case, recorder):
    func = case.given.get("func", "addRule")
    target = "" if func is None else f"?func={urllib.parse.quote(func)}"
    body = case.given["body"].encode(errors="surrogateescape")
    answer = recorder.request(case.given["method"], target, body)
    head, _, expected = response_to(case.answer).partition("\r\n\r\n")
    assert f"Status: {answer.status} " in head
    assert answer.headers["Content-Type"] == "application/json"
    assert answer.body.decode(errors="surrogateescape") == expected
