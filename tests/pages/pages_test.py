"""The examples in the pages of docs/, on the host recorder."""

import base64
import re

import pytest

from examples import read_examples, run_examples
from driver import PROJECT, Rule, without_random_parts


@pytest.mark.parametrize("page", ["api", "config-service"])
def test_examples(page, recorder):
    examples = read_examples(PROJECT / f"docs/{page}.md")
    assert len(examples) > 3
    for (command, expected), printed in zip(examples, run_examples(examples, recorder)):
        assert without_random_parts(printed) == without_random_parts(expected), command


def test_the_program_sends_the_multicall_of_the_page(recorder):
    def decoded(document):
        return without_random_parts(re.sub('"content": "([^"]+)"',
                                 lambda match: base64.b64decode(match[1]).decode(), document))

    recorder.client.add(Rule(event=536936448, channel=3, record=10))
    sent = re.findall(r"multicallData=\[(.*)\]", (recorder.state / "rule.log").read_text())[-1]
    examples = read_examples(PROJECT / "docs/config-service.md")
    shown = run_examples([*examples, ('printf %s "$multicall"', "")], recorder)[-1]
    assert decoded(shown) == decoded(sent)
