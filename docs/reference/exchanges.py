"""Compares the recorded exchanges of the tests, the API document, the tables in docs/api.md, the headings
of docs/troubleshooting.md and the sources with each other: exchanges.py FILE, where each line of FILE
is {"method", "body", "answer"}."""

import json
import pathlib
import re
import sys
from typing import NamedTuple

import jsonschema
import yaml

PROJECT = pathlib.Path(__file__).resolve().parents[2]
API = yaml.safe_load((PROJECT / "docs/openapi.yaml").read_text())
SCHEMAS = API["components"]["schemas"]
PAGE = (PROJECT / "docs/api.md").read_text()
SOURCES = "\n".join(path.read_text() for path in (PROJECT / "rule_operation").rglob("*.cpp"))

METHODS = ("GET", "PUT", "POST", "DELETE")
LONGEST_TEXT = 1023
# -4 is the only refusal of PUT, and one test throws at every call of a POST.
ANSWERED_BY_NO_TEST = {"PUT 400"}


class Refusal(NamedTuple):
    """A code in a row of the table of refusals. One that is not a number is passed on unchanged."""

    code: str
    producer: str
    text: str
    cause: str
    remedy: str = ""

    def covers(self, code, text):
        pattern = re.escape(self.text).replace("%d", r"-?\d+").replace("%X", "[0-9A-F]+")
        cut = len(text) == LONGEST_TEXT and text.startswith(self.text.split("%")[0])
        fits = cut or re.fullmatch(pattern.replace("%s", ".*"), text, re.DOTALL)
        return fits and (self.code == str(code) or not self.code.startswith("-"))

    def is_about_shape(self):
        """Whether a request was refused for its JSON alone."""
        return self.producer in ("request document", "rule deletion") and re.fullmatch(
            r"-(1[0-2]\d|30[1-3])", self.code)


def read_table():
    """The codes that are passed on come last, because they cover any code."""
    rows = re.findall(r"^\|" + r" ([^|\n]+) \|" * 5 + "$", PAGE, re.MULTILINE)
    table = [Refusal(code, producer, text, cause, remedy)
             for codes, producer, text, cause, remedy in rows
             if text != "text" and "---" not in text for code in codes.split(", ")]
    return sorted(table, key=lambda refusal: not refusal.code.startswith("-"))


TABLE = read_table()


def refusal_of(reply):
    """The row for a reply, or None when it is not a refusal."""
    if not isinstance(reply, dict) or not reply.get("ret_code"):
        return None
    code, text = reply["ret_code"], reply["ret_mesg"]
    return next((refusal for refusal in TABLE if refusal.covers(code, text)),
                Refusal(str(code), "unknown", text, "no row in the table"))


def fits(schema, value):
    """Whether the value fits a schema of the document."""
    return jsonschema.Draft202012Validator(
        {**schema, "components": API["components"]}).is_valid(value)


def read_responses():
    """Schema and examples of the documented responses, by method, or "other", and status."""
    path = API["paths"]["/rule"]
    responses = {"other 200": path["x-other-methods"]}
    for method in METHODS:
        for status, response in path[method.lower()]["responses"].items():
            name = response.get("$ref", "").split("/")[-1]
            responses[f"{method} {status}"] = API["components"]["responses"].get(name, response)
    media = {name: response.get("content", {}).get("application/json", {})
             for name, response in responses.items()}
    return {name: (each.get("schema"), [example["value"] for example in
                                        each.get("examples", {}).values()])
            for name, each in media.items()}


RESPONSES = read_responses()
DOCUMENTED = {refusal_of(example) for _, examples in RESPONSES.values()
              for example in examples} - {None}


def parse(text):
    """The value of a JSON text, in a list; an empty list for any other text."""
    try:
        return [json.loads(text)]
    except (RecursionError, ValueError):
        return []


def name_response(method, answer):
    status = re.match(r"(?:Status:|HTTP/1\.1) (\d+) |$", answer)[1] or "500"
    if status in ("401", "500"):
        return f"GET {status}"  # they are the same for all methods
    return f"{method if method in METHODS else 'other'} {status}"


def faults_of_answer(name, body, refusal):
    """What is not as documented for the response `name`."""
    schema, examples = RESPONSES[name]
    if not body or not fits(schema, body[0]):
        yield "the body is not as documented"
    elif refusal not in [None, *map(refusal_of, examples)]:
        yield "the document has no example of this refusal"


def faults_of_request(method, body, over_http, refusal):
    """A request that fits the document is not refused for its shape. One that a client sends and that
    succeeds fits the document."""
    if method in ("POST", "DELETE"):
        content = API["paths"]["/rule"][method.lower()]["requestBody"]["content"]
        document = parse(body)
        documented = document and fits(content["application/json"]["schema"], document[0])
        if documented and refusal and refusal.is_about_shape():
            yield "a request as documented is refused for its shape"
        if not documented and over_http and not refusal:
            yield "a request that is not as documented succeeds"


def check_exchanges(exchanges):
    """Yields what is wrong in them, and what the document has that is in none of them."""
    seen, produced = set(), set()
    for exchange in exchanges:
        method, body, answer = (exchange[name] for name in ("method", "body", "answer"))
        name = name_response(method, answer)
        seen.add(name)
        faults = []
        if name not in RESPONSES:
            faults = ["an undocumented status"]
        elif answer:  # without one the web server answers
            document = parse(answer.partition("\r\n\r\n")[2])
            refusal = refusal_of(*document or [None])
            produced.add(refusal)
            faults = [*faults_of_answer(name, document, refusal),
                      *faults_of_request(method, body, answer.startswith("HTTP/"), refusal)]
        yield from (f"{fault}: {method} {body} {answer}" for fault in faults)
    yield from (f"documented, but produced by no test: {each}" for each in DOCUMENTED - produced)
    needed = {name for name in RESPONSES if not name.endswith((" 401", " 500"))}
    yield from (f"answered by no test: {each}" for each in needed - seen - ANSWERED_BY_NO_TEST)


def check_document():
    """Yields where the document, the page's tables and the sources differ."""
    occurring = {refusal for refusal in TABLE if not refusal.cause.endswith("does not occur")}
    yield from (f"only in one of docs/openapi.yaml and docs/api.md: {each}"
                for each in DOCUMENTED ^ occurring)
    events = set(map(str, SCHEMAS["Event"]["properties"]["eventID"]["enum"]))
    in_table = set(re.findall(r"0x[0-9A-F]{8} = (\d+)", PAGE))
    yield from (f"only in one of docs/openapi.yaml and docs/api.md: event {each}"
                for each in events ^ in_table)
    for name in ("AddRuleRefusal", "DeleteRulesRefusal"):
        schema = SCHEMAS[name].get("anyOf", [SCHEMAS[name]])[0]
        codes = set(map(str, schema["properties"]["ret_code"]["enum"]))
        yield from (f"without example: {code} of {name}"
                    for code in codes - {refusal.code for refusal in DOCUMENTED})


def check_summaries(part):
    """Yields refusals in a part of the document whose summary differs from the table."""
    if isinstance(part, dict):
        refusal = refusal_of(part.get("value"))
        if refusal and part.get("summary") != f"{refusal.cause}: {refusal.remedy}":
            yield f"the summary differs from the table: {part}"
        for each in part.values():
            yield from check_summaries(each)


def check_sources():
    """Yields refusals of the sources without a row, and rows of a guard that the sources lack.
    Whether they lack another row shows where no test produces it."""
    found = re.findall(r'REFUSE\(\s*err,\s*(-?\w+),\s*"((?:[^"]|"\s*")*)"', SOURCES)
    found += [(code, text) for text, code in
              re.findall(r'err = "([^"]+)";\s*return (-?\w+);', SOURCES)]
    in_sources = {(code, re.sub(r'"\s*"', "", text)) for code, text in found}
    in_table = {(refusal.code, refusal.text) for refusal in TABLE}
    texts = {refusal.text for refusal in TABLE}
    yield from (f"in the sources, but not in docs/api.md: {code} {text}" for code, text in in_sources
                if (code, text) not in in_table and (code.startswith("-") or text not in texts))
    yield from (f"in docs/api.md, but not in the sources: {refusal.text}" for refusal in TABLE
                if refusal.cause.endswith("does not occur") and
                (refusal.code, refusal.text) not in in_sources)


def check_messages():
    """Yields messages in the headings of docs/troubleshooting.md that no source contains, up to their
    first value."""
    page = (PROJECT / "docs/troubleshooting.md").read_text()
    sources = "\n".join(path.read_text() for folder in ("rule_operation", "host", "scripts")
                        for path in (PROJECT / folder).rglob("*") if path.is_file())
    yield from (f"docs/troubleshooting.md: no such message: {message}"
                for message in re.findall(r"^## `([^`]+)", page, re.MULTILINE)
                if message.split("…")[0].strip() not in sources)


def main(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        exchanges = [json.loads(line) for line in file]
    faults = [*check_exchanges(exchanges), *check_document(), *check_summaries(API),
              *check_sources(), *check_messages()]
    print(*faults, f"{len(exchanges)} exchanges compared with the API document", sep="\n")
    sys.exit(bool(faults))


main(*sys.argv[1:])
