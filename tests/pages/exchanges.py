"""Compares the API document with the exchanges that the tests have recorded and with the tables of the pages,
and the pages with the sources: exchanges.py FILE, where each line of FILE is {"method", "body", "answer"}."""

import json
import pathlib
import re
import sys
from typing import NamedTuple

import jsonschema

from api_document import API, METHODS, PATH, RESPONSES

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SCHEMAS = API["components"]["schemas"]
PAGE = (PROJECT / "docs/api.md").read_text()
REFUSALS = (PROJECT / "docs/refusals.md").read_text()
LONGEST_TEXT = 1023


def read_sources(*folders):
    """Returns all sources as one text, in which string literals of several parts are joined."""
    text = " ".join(path.read_text() for folder in folders
                    for path in (PROJECT / folder).rglob("*") if path.is_file())
    return re.sub(r"\s+", " ", text).replace('" "', "")


class Refusal(NamedTuple):
    """A row of the table of refusals, for one of its codes. Where `code` is no number, the program passes on
    the result of a library."""

    code: str
    text: str
    summary: str

    def covers(self, reply):
        if self.code.startswith("-") and self.code != str(reply["ret_code"]):
            return False
        pattern = re.sub("%[dXs]", ".*", re.escape(self.text))
        return re.fullmatch(pattern, reply["ret_mesg"], re.DOTALL)


def read_table():
    rows = re.findall(r"^\| ([^|\n]+) \| [\w -]+ \| (.+) \| (.+) \| (.+) \|$", REFUSALS, re.MULTILINE)
    return {Refusal(code, text, f"{cause}: {remedy}")
            for codes, text, cause, remedy in rows if codes != "code" for code in codes.split(", ")}


TABLE = read_table()
NEVER_SEEN = {row for row in TABLE if "does not occur" in row.summary}


def read_examples():
    """Yields the method and status of each example of a refusal, the example, and its row or None."""
    for name, content in RESPONSES.items():
        for example in content.get("examples", {}).values():
            if example["value"].get("ret_code"):
                rows = (row for row in TABLE if row.summary == example["summary"]
                        and row.covers(example["value"]))
                yield name, example, next(rows, None)


EXAMPLES = list(read_examples())


def fits(content, value):
    """Whether the value fits the schema that the document has for this content."""
    schema = {**content.get("schema", {"not": {}}), "components": API["components"]}
    return jsonschema.Draft202012Validator(schema).is_valid(value)


def check_exchanges(exchanges):
    """Yields exchanges that are not as documented, and documented refusals that are in no exchange."""
    unseen = {row for _, _, row in EXAMPLES if row}
    for method, body, answer in map(dict.values, exchanges):
        if not answer:  # the program left it to the web server
            continue
        head, _, text = answer.partition("\r\n\r\n")
        name = (method if method in METHODS else None, head.split()[1])
        reply = json.loads(text)
        if not fits(RESPONSES.get(name, {}), reply):
            yield f"the answer is not as documented: {method} {body} {answer}"
        elif reply and reply.get("ret_code"):
            rows = {row for place, _, row in EXAMPLES if place == name and row and row.covers(reply)}
            unseen -= rows
            if not rows and len(reply["ret_mesg"]) < LONGEST_TEXT:
                yield f"without an example in the document: {name} {reply}"
        if re.search("Error input Json (?!format)", text):
            documented = PATH[method.lower()]["requestBody"]["content"]["application/json"]
            if fits(documented, json.loads(body)):
                yield f"a request as documented is refused for its shape: {body} {reply}"
    yield from (f"documented, but produced by no test: {row}" for row in unseen)


def check_document():
    """Yields where the document and the page's tables differ."""
    yield from (f"not as in docs/refusals.md: {example}" for _, example, row in EXAMPLES if not row)
    yield from (f"without an example in the document: {row}"
                for row in TABLE - NEVER_SEEN - {row for _, _, row in EXAMPLES})
    usual, alarm = (SCHEMAS[name]["properties"]["eventID"] for name in ("CameraEvent", "AlarmEvent"))
    events = set(map(str, [*usual["enum"], alarm["const"]]))
    in_table = set(re.findall(r"0x[0-9A-F]{8} = (\d+)", PAGE))
    yield from (f"only in one of docs/openapi.yaml and docs/api.md: event {event}"
                for event in events ^ in_table)
    source = (PROJECT / "rule_operation/documents/event_profile.cpp").read_text()
    yield from (f"not in docs/api.md: event {event}"
                for event in re.findall(r"\b0x[0-9A-F]{8}\b", source) if f"{event} = " not in PAGE)


def check_version():
    """Yields the files that name another version than the build."""
    build = (PROJECT / "CMakeLists.txt").read_text()
    version = re.search(r"VERSION (\d+\.\d+\.\d+) ", build)[1]
    released = re.search(r"^## (\S+)", (PROJECT / "CHANGELOG.md").read_text(), re.MULTILINE)[1]
    client = re.search(r'^VERSION = "(.+)"', (PROJECT / "client/rule_client.py").read_text(), re.MULTILINE)[1]
    for file, named in (("docs/openapi.yaml", API["info"]["version"]), ("CHANGELOG.md", released),
                        ("client/rule_client.py", client)):
        if named != version:
            yield f"{file}: version {named}, but {version} in CMakeLists.txt"


def check_lists():
    """Yields what the program has but a page or a header does not list: codes in the order of the checks or
    in the header of the function that returns them, actions and URI parameters."""
    order = REFUSALS.partition("## The order of the checks")[2].partition("\n## ")[0]
    in_order = set(re.findall(r"-\d+", order))
    in_table = {row.code for row in TABLE if row.code.startswith("-")}
    yield from (f"only in one list of docs/refusals.md: code {code}" for code in in_order ^ in_table)
    for path in (PROJECT / "rule_operation").rglob("*.cpp"):
        text = path.read_text()
        if path.with_suffix(".h").exists():
            listed = path.with_suffix(".h").read_text()
            yield from (f"{path.with_suffix('.h')}: without code {code}"
                        for code in re.findall(r"(?:REFUSE\(err,|return) (-\d+)", text)
                        if not re.search(rf"{code}\b", listed))
        for name in re.findall(r'_CGI_Find_Parameter\(input, "(\w+)"', text):
            if f"`{name}`" not in PAGE and f"`{name}=" not in PAGE:
                yield f"not in docs/api.md: URI parameter {name}"
        for action in re.findall(r'ActionName == "(\w+)"', text):
            if f"`{action}`" not in PAGE or action not in str(SCHEMAS["Action"]):
                yield f"not in docs/api.md and docs/openapi.yaml: action {action}"


def check_sources():
    """Yields the refusals of the sources that are in no row, and documented texts that no source contains."""
    program = read_sources("rule_operation")
    texts = set(re.findall(r'(?:REFUSE\(err, [-\w]+, |\berr = )"(.*?)"', program))
    yield from (f"not in docs/refusals.md: {text}" for text in texts - {row.text for row in TABLE})
    yield from (f"not in the sources: {row}" for row in NEVER_SEEN
                if f'REFUSE(err, {row.code}, "{row.text}"' not in program)
    sources = read_sources("rule_operation", "host", "scripts")
    messages = re.findall(r"^## `([^`…]+)",
                          (PROJECT / "docs/troubleshooting.md").read_text(), re.MULTILINE)
    yield from (f"docs/troubleshooting.md: no such message: {message}" for message in messages
                if message.strip() not in sources)


def main(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        exchanges = [json.loads(line) for line in file]
    faults = [*check_exchanges(exchanges), *check_document(), *check_version(), *check_lists(),
              *check_sources()]
    print(*faults, f"{len(exchanges)} exchanges compared with the API document", sep="\n")
    sys.exit(bool(faults))


main(*sys.argv[1:])
