"""The API document, as a program reads it: a client in TypeScript is generated from it, and what the
pages show must compile against its types. Needs the packages of docs/reference."""

import json
import re
import subprocess

import yaml

from examples import read_examples
from recorder import PROJECT

TOOLS = PROJECT / "docs/reference/node_modules/.bin"
JSON_TYPE = '["content"]["application/json"]'


def documented_examples(api):
    """The type and the value of each example of a request or an answer."""
    for method, operation in api["paths"]["/rule"].items():
        if method.startswith("x-"):
            continue
        bodies = {'["requestBody"]': operation.get("requestBody", {})}
        bodies.update((f'["responses"][{status}]', response)
                      for status, response in operation["responses"].items())
        for place, body in bodies.items():
            for example in body.get("content", {}).get("application/json", {}).get("examples", {}).values():
                yield f'paths["/rule"]["{method}"]{place}{JSON_TYPE}', example["value"]


def shown_rules():
    """The requests to add a rule that docs/api.md shows."""
    for command, _ in read_examples(PROJECT / "docs/api.md"):
        for body in re.findall(r"-d '(.*)'", command):
            yield f'paths["/rule"]["post"]["requestBody"]{JSON_TYPE}', json.loads(body)


def compile_values(directory, values):
    """What the compiler has to say about values of those types."""
    lines = ['import type { paths } from "./api";']
    lines += [f"export const value{i}: {type_} = {json.dumps(value)};"
              for i, (type_, value) in enumerate(values)]
    (directory / "values.ts").write_text("\n".join(lines))
    command = [TOOLS / "tsc", "--noEmit", "--strict", directory / "values.ts"]
    return subprocess.run(command, stdout=subprocess.PIPE, text=True).stdout.splitlines()


def test_a_typed_client(tmp_path):
    subprocess.run([TOOLS / "openapi-typescript", PROJECT / "docs/openapi.yaml",
                    "--output", tmp_path / "api.ts"], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    rules = list(shown_rules())
    assert len(rules) > 2
    api = yaml.safe_load((PROJECT / "docs/openapi.yaml").read_text())
    assert compile_values(tmp_path, [*documented_examples(api), *rules]) == []
    rule_type, rule = rules[0]
    faults = compile_values(tmp_path, [(rule_type, {"rule": {}}), (rule_type, rule),
                                       (rule_type, {"rule": rule["rule"] | {"action": {}}})])
    assert [re.search(r"\((\d+),", fault)[1] for fault in faults] == ["2", "4"]
