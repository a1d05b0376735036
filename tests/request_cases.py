"""Reads request_cases.txt, which describes its own format."""

import pathlib
import re

FILE = pathlib.Path(__file__).with_name("request_cases.txt")
METHODS = ("GET", "PUT", "POST", "DELETE")
SUCCESS = {"POST": "Add Rule successful", "DELETE": "Delete Rule successful"}


class Case:
    def __init__(self, name, definitions):
        self.name = name
        self.given = {"method": "POST", "body": definitions["ADD_RULE"]}  # what the harness reads
        self.answer = None  # code and text of an envelope, or the text of a document
        self.posts, self.deletes, self.log = [], [], []


def read_answer(value):
    result, _, reply = value.partition(" ")
    return [int(result), reply]


def read_camera(value):
    channel, first_byte, guid = value.split(" ", 2)
    return [int(channel), int(first_byte), guid]


def read_envelope(case, value):
    code, _, text = value.partition(" ")
    unwritten = {"0": SUCCESS.get(case.given["method"]), "-2": "Authorized failed"}
    case.answer = (int(code), text or unwritten[code])


GIVEN = dict.fromkeys(["method", "length", "path", "func", "GUID"], str)
GIVEN.update(dict.fromkeys(["table", "authentication", "tokenizer", "clock", "errno"], int))
GIVEN.update(dict.fromkeys(["schedules", "rules", "multicall"], read_answer))
GIVEN_REPEATEDLY = {"camera": read_camera, "deletion": read_answer}


def read_field(case, word, value):
    if word in METHODS:
        case.given.update(method=word, body=value)
    elif word in GIVEN:
        case.given[word] = GIVEN[word](value)
    elif word in GIVEN_REPEATEDLY:
        case.given.setdefault(word, []).append(GIVEN_REPEATEDLY[word](value))
    elif word == "without":
        case.given[value] = None
    elif word in ("posts", "deletes", "log"):
        getattr(case, word).append(value)
    elif word == ">":
        read_envelope(case, value)
    elif word == ">>":
        case.answer = value
    else:
        raise KeyError(word)


def expand(text, definitions):
    def define(match):
        expanded = definitions[match[1]]
        for position, argument in enumerate((match[2] or "").split("; "), 1):
            expanded = expanded.replace(f"@{position}", argument)
        return expanded

    def repeat(match):
        return "".join(match[1].replace("#", str(count)) for count in range(int(match[2])))

    for name in reversed(definitions):
        text = re.sub(rf"\b({name})\b(?:\((.*)\))?", define, text)
    text = re.sub(r"\{([^{}]{1,60})\*(\d+)\}", repeat, text)
    text = re.sub(r"\\x(..)", lambda match: chr(0xDC00 + int(match[1], 16)), text)
    return text.replace("\\0", "\0").replace("\\n", "\n")


def read_cases(text, file_name=FILE.name):
    """The cases of a text. A mistake is a ValueError that says where it is."""
    definitions, cases = {}, {}
    line_number = 0
    for line in re.split(r"\n(?!  )", text):
        first_line, line_number = line_number + 1, line_number + 1 + line.count("\n")
        fields = [] if line.startswith("#") else line.replace("\n  ", "").split(" | ")
        for field in filter(None, fields):
            word, _, value = field.partition(" ")
            try:
                if word == "=":
                    if value in cases:
                        raise KeyError(value)
                    case = cases[value] = Case(value, definitions)
                elif word == "define":
                    name, _, value = value.partition(" ")
                    definitions[name] = expand(value, definitions)
                else:
                    read_field(case, word, expand(value, definitions))
            except (LookupError, ValueError, NameError) as mistake:
                raise ValueError(f"{file_name}:{first_line}: {field}: {mistake}") from mistake
    for case in cases.values():
        if case.answer is None and "table" not in case.given:
            raise ValueError(f"{file_name}: {case.name}: no answer")
    return list(cases.values())


CASES = read_cases(FILE.read_text(encoding="utf-8"))
