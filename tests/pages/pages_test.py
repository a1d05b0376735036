"""Runs the examples in the pages of docs/ on the host recorder, and looks up the tests that they name."""

import base64
import re

import pytest

from examples import read_examples, run_examples
from driver import PROJECT, Rule, without_random_parts


@pytest.mark.parametrize("page", ["api", "client", "config-service"])
def test_examples(page, recorder):
    examples = read_examples(PROJECT / f"docs/{page}.md")
    assert len(examples) > 3
    for (command, expected), printed in zip(examples, run_examples(examples, recorder), strict=True):
        assert without_random_parts(printed) == without_random_parts(expected), command


def test_all_but_random_parts_is_compared():
    assert without_random_parts(f"a 3333333333{18 * 'F'}0003 b\n") == "a 3333333333...0003 b"


@pytest.mark.parametrize("page, rows", [("security", 9), ("host-recorder", 9)])
def test_tests_that_a_page_names_exist(page, rows):
    page = (PROJECT / f"docs/{page}.md").read_text()
    limits = page.partition("\n## Limits\n")[2].partition("\n## ")[0]
    shown_by = " ".join(re.findall(r"^\| .* \| (.*) \|$", limits, re.MULTILINE))
    tests = "\n".join(path.read_text() for path in (PROJECT / "tests").rglob("*_test.py"))
    tests += (PROJECT / "tests/requests/request_cases.txt").read_text()
    names = set(re.findall("`([^`]+)`", shown_by)) | set(re.findall(r"`(test_\w+)`", page))
    assert len(names) >= rows
    for name in names:
        written = rf'^def {name}\(|^= {re.escape(name)}( \||$)|^ +"{name}": '
        assert re.search(written, tests, re.MULTILINE) or (PROJECT / name).exists(), name


def test_the_program_sends_the_multicall_of_the_page(recorder):
    def decoded(document):
        return without_random_parts(re.sub('"content": "([^"]+)"',
                                 lambda match: base64.b64decode(match[1]).decode(), document))

    recorder.client.add(Rule(event=536936448, channel=3, record=10))
    sent = re.findall(r"multicallData=\[(.*)\]", (recorder.state / "rule.log").read_text())[-1]
    examples = read_examples(PROJECT / "docs/config-service.md")
    shown = run_examples([*examples, ('printf %s "$multicall"', "")], recorder)[-1]
    assert decoded(shown) == decoded(sent)
