"""Reads request_cases.txt, which describes its own format."""

import pathlib
import re

FILE = pathlib.Path(__file__).with_name("request_cases.txt")
METHODS = ("GET", "PUT", "POST", "DELETE")


def read_reply(value):
    result, _, reply = value.partition(" ")
    return [int(result), reply]


def read_text(value):
    return {"": None, "empty": ""}.get(value, value)


def read_camera(value):
    channel, first_byte, guid = value.split(" ", 2)
    return [int(channel), int(first_byte), read_text(guid)]


GIVEN = dict.fromkeys(["method", "length", "path", "func", "GUID", "input"], read_text)
GIVEN.update(dict.fromkeys(["table", "authentication", "tokenizer", "clock"], int))
GIVEN.update(dict.fromkeys(["schedules", "rules", "multicall"], read_reply))
GIVEN_REPEATEDLY = {"camera": read_camera, "deletion": read_reply}


class Case:
    def __init__(self, name, definitions):
        self.name = name
        self.given = {"method": "POST", "body": definitions["ADD_RULE"]}  # the input of request_harness
        self.answer = None  # the code and text of an envelope, or None and the text of a document
        self.exit_status = None
        self.posts, self.creates, self.deletes, self.log = [], [], [], []

    def read_field(self, word, value):
        if word in METHODS:
            self.given.update(method=word, body=value)
        elif word in GIVEN:
            self.given[word] = GIVEN[word](value)
        elif word in GIVEN_REPEATEDLY:
            self.given.setdefault(word, []).append(GIVEN_REPEATEDLY[word](value))
        elif word in ("posts", "creates", "deletes", "log"):
            getattr(self, word).append(read_text(value))
        elif word == "exit":
            self.exit_status = int(value)
        elif word == ">":
            self.answer = read_reply(value)
            self.exit_status = self.answer[0]
        elif word == ">>":
            self.answer, self.exit_status = [None, value], 0
        else:
            raise KeyError(word)


def split_argument(text):
    """Splits a text into the argument in parentheses at its start, or None, and the rest."""
    if not text.startswith("("):
        return None, text
    for end in range(1, len(text) + 1):
        if text.count("(", 0, end) == text.count(")", 0, end):
            return text[1:end - 1], text[end:]
    raise ValueError("a parenthesis is not closed")


def expand(text, definitions):
    def repeat(match):
        return "".join(match[1].replace("#", str(count)) for count in range(int(match[2])))

    while "$" in text:  # the last name first: its argument contains no other name
        before, _, after = text.rpartition("$")
        name = re.match("[A-Z_]*", after)[0]
        argument, rest = split_argument(after[len(name):])
        if (argument is None) == ("@" in definitions[name]):
            raise ValueError(f"${name} with an argument that it does not have, or without its own")
        text = before + definitions[name].replace("@", argument or "") + rest
    text = re.sub(r"\{([^{}]{1,60})\*(\d+)\}", repeat, text)
    text = re.sub(r"\\x(..)", lambda match: chr(0xDC00 + int(match[1], 16)), text)
    return text.replace("\\0", "\0").replace("\\n", "\n")


def read_cases():
    """Returns the cases of the file and the request that they start from. Raises ValueError with the line of
    a mistake in the file."""
    definitions, cases = {}, []
    line_number = 1
    for line in re.split(r"\n(?!  )", FILE.read_text(encoding="utf-8")):
        for field in [] if line.startswith("#") else line.replace("\n  ", "").split(" | "):
            word, _, value = field.partition(" ")
            try:
                if word == "=":
                    cases.append(Case(value, definitions))
                elif word == "define":
                    name, _, value = value.partition(" ")
                    definitions[name] = expand(value, definitions)
                elif word:
                    cases[-1].read_field(word, expand(value, definitions))
            except (LookupError, ValueError) as mistake:
                raise ValueError(f"{FILE.name}:{line_number}: {field}: {mistake}") from mistake
        line_number += 1 + line.count("\n")
    return cases, Case("usual", definitions).given


CASES, USUAL = read_cases()
