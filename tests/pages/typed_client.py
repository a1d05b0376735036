"""Lints the API document with the rules of redocly.yaml, and generates the types of a TypeScript client from
it. The examples of the document and the rules in docs/api.md must compile with these types, and malformed
rules must not."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

from api_document import FILE, PATH, RESPONSES
from driver import PROJECT
from examples import read_examples

FOLDER = PROJECT / "docs/reference"
TOOLS = FOLDER / "node_modules/.bin"
MEDIA = '["content"]["application/json"]'
NEW_RULE = f'paths["/rule"]["post"]["requestBody"]{MEDIA}'


def documented_examples():
    """Yields the type and the value of each example of a request or an answer."""
    contents = {f'["{method.lower()}"]["responses"][{status}]': content
                for (method, status), content in RESPONSES.items() if method}
    for method in "post", "delete":
        body = PATH[method]["requestBody"]["content"]["application/json"]
        contents[f'["{method}"]["requestBody"]'] = body
    for place, content in contents.items():
        for example in content.get("examples", {}).values():
            yield f'paths["/rule"]{place}{MEDIA}', example["value"]


def shown_rules():
    """Returns the requests in docs/api.md that add a rule."""
    return [json.loads(body) for command, _ in read_examples(FOLDER.parent / "api.md")
            for body in re.findall(r"func=addRule\" -d '(.*)'", command)]


def compile_values(directory, values):
    """Returns the compiler's messages about the values, given as pairs of type and value. The first value is
    on line 2."""
    lines = ['import type { paths } from "./api";']
    lines += [f"export const value{i}: {type_} = {json.dumps(value)};"
              for i, (type_, value) in enumerate(values)]
    (directory / "values.ts").write_text("\n".join(lines))
    done = subprocess.run([TOOLS / "tsc", "--noEmit", "--strict", "values.ts"], cwd=directory,
                          stdout=subprocess.PIPE, text=True)
    return done.stdout


def main():
    rules = shown_rules()
    wrong_rules = [{"rule": {}}, {"rule": {**rules[0]["rule"], "action": {}}}]
    with tempfile.TemporaryDirectory() as directory:
        directory = pathlib.Path(directory)
        generated = subprocess.run(
            [TOOLS / "openapi-typescript", FILE,
             "--redocly", FOLDER / "redocly.yaml", "--output", directory / "api.ts"],
            stdout=subprocess.DEVNULL)
        if generated.returncode != 0:
            sys.exit("docs/openapi.yaml does not pass")
        examples = list(documented_examples())
        faults = compile_values(directory, examples + [(NEW_RULE, rule) for rule in rules])
        if faults:
            sys.exit(faults)
        faults = compile_values(directory, [(NEW_RULE, rule) for rule in wrong_rules])
        if re.findall(r"^values\.ts\((\d+),", faults, re.MULTILINE) != ["2", "3"]:
            sys.exit(f"a malformed rule compiles:\n{faults}")
    print(f"{len(examples)} examples and {len(rules)} rules compile")


main()
