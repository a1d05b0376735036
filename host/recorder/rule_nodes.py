"""Reads the objects of a multicall, which the configuration service stores, and checks each as a whole."""

import binascii
import contextlib
import enum
import json
import re
from typing import NamedTuple
from xml.etree import ElementTree

MAX_CALLS = 16
MAX_NAME_LENGTH = 4096  # bytes
MAX_LEVELS = 32  # of content


class Code(enum.IntEnum):
    """Why the service refuses a request. Replies contain these as signed 32-bit numbers."""

    BAD_HTTP_REQUEST = 0x94062A01  # not one of a program on this machine
    UNKNOWN_PATH = 0x94062A02
    WRONG_METHOD = 0x94062A03
    BAD_DOCUMENT = 0x94062A04  # the body is not a JSON document with a list of calls
    BAD_CALL = 0x94062A05  # something in a call is missing or wrong
    GUID_IN_USE = 0x94062A06
    UNKNOWN_REFERENCE = 0x94062A07  # to a profile or schedule that does not exist
    MISSING_GUID = 0x94062A08
    DATABASE_FAILURE = 0x94062A09
    NO_SUCH_RULE = 0x94062A2A


class Refusal(Exception):
    """Ends the handling of a request; the text is for the client."""

    def __init__(self, code, text):
        super().__init__(text)
        self.code = code


class Type(enum.IntEnum):
    """The kind of an object: its member `type`."""

    RULE = 0
    EVENT_PROFILE = 3
    ACTION_PROFILE = 4


class Node(NamedTuple):
    """An object as a multicall gives it."""

    name: str
    description: str
    guid: str
    type: int  # a Type
    active: bool
    content: str  # an XML document in base64
    event_id: int | None  # of an event profile


class Content(NamedTuple):
    """What the content of an object says."""

    document: dict  # as the rule list shows it
    profiles: list  # the type and GUID of each profile of a rule
    schedule: str  # the GUID of a rule's schedule, or nothing


@contextlib.contextmanager
def within_call(position):
    """Adds the position of the call, counted from 0, to the text of a refusal."""
    try:
        yield
    except Refusal as refusal:
        raise Refusal(refusal.code, f"call {position}: {refusal}") from refusal


def read_multicall(body):
    """The nodes of a multicall, each with its content. Raises Refusal."""
    document = read_json(body)
    calls = document.get("calls") if isinstance(document, dict) else None
    if not isinstance(calls, list) or not 1 <= len(calls) <= MAX_CALLS:
        raise Refusal(Code.BAD_DOCUMENT, f"calls is not a list of 1 to {MAX_CALLS} calls")
    nodes = []
    for position, call in enumerate(calls):
        with within_call(position):
            node = read_call(call)
            nodes.append((node, read_content(node)))
    return nodes


def read_json(body):
    try:
        # Bytes that are not UTF-8 are refused later, if they are part of a text that is stored.
        return json.loads(body.decode(errors="surrogateescape"))
    except (ValueError, RecursionError) as error:
        raise Refusal(Code.BAD_DOCUMENT, f"the body is not a JSON document: {error}") from error


def read_call(call):
    if (need_text(call, "object"), need_text(call, "method")) != ("Rule", "POST"):
        raise Refusal(Code.BAD_CALL, "the only call is method POST of object Rule")
    node = need_member(need_member(call, "body", dict), "ruleNode", dict)
    name = need_text(node, "name")
    if len(name.encode()) > MAX_NAME_LENGTH:
        raise Refusal(Code.BAD_CALL, f"name is longer than {MAX_NAME_LENGTH} bytes")
    guid = need_text(node, "GUID")
    check_guid(guid, "GUID")
    type_number = need_number(node, "type")
    if type_number not in list(Type):
        raise Refusal(Code.BAD_CALL, "type is not 0, 3 or 4")
    if need_member(node, "isGroup", bool):
        raise Refusal(Code.BAD_CALL, "isGroup is true, but there are no groups of rules")
    event_id = need_number(node, "EventID") if type_number == Type.EVENT_PROFILE else None
    return Node(name, need_text(node, "description"), guid, type_number,
                need_member(node, "active", bool), need_text(node, "content"), event_id)


def need_member(value, name, kind):
    member = value.get(name) if isinstance(value, dict) else None
    if type(member) is not kind:  # True is an instance of int
        raise Refusal(Code.BAD_CALL, f"{name} is missing or of another type")
    return member


def need_text(value, name):
    text = need_member(value, name, str)
    if re.search("[\0\ud800-\udfff]", text):
        raise Refusal(Code.BAD_CALL, f"{name} has a zero byte or is not UTF-8")
    return text


def need_number(value, name):
    number = need_member(value, name, int)
    if not -2**31 <= number < 2**31:
        raise Refusal(Code.BAD_CALL, f"{name} does not fit in 32 bits")
    return number


def check_guid(text, what):
    if not re.fullmatch("[0-9A-Fa-f]{32}", text):
        raise Refusal(Code.BAD_CALL, f"{what} is not 32 hexadecimal digits")


def read_content(node):
    """The content of a node. Raises Refusal when it is not a whole document of the node's type."""
    name = Type(node.type).name.lower()
    root = read_xml(node.content)
    if root.tag != name:
        raise Refusal(Code.BAD_CALL, f"content is not a document <{name}>")
    members = to_json(root)
    document = {name: members}
    members = members or {}
    if node.type == Type.RULE:
        return Content(document, *read_references(members))
    if node.type == Type.EVENT_PROFILE:
        if members.get("EventID") != str(node.event_id):
            raise Refusal(Code.BAD_CALL, "content: <EventID> is not the node's EventID")
        read_list(members, "SourceNum", "SourceIds", "id")
    else:
        if not members.get("ActionName"):
            raise Refusal(Code.BAD_CALL, "content: no <ActionName>")
        read_list(members, "TargetNum", "TargetIds", "id")
    return Content(document, [], "")


class Builder(ElementTree.TreeBuilder):
    def doctype(self, *_):
        raise Refusal(Code.BAD_CALL, "content cannot be read as XML: a document type is not allowed")


def read_xml(content):
    try:
        document = binascii.a2b_base64(content, strict_mode=True)
    except ValueError as error:
        raise Refusal(Code.BAD_CALL, "content is not base64") from error
    try:
        return ElementTree.XML(document, ElementTree.XMLParser(target=Builder()))
    except (ElementTree.ParseError, LookupError, ValueError) as error:  # the last two for its encoding
        raise Refusal(Code.BAD_CALL, f"content cannot be read as XML: {error}") from error


def to_json(element, levels=MAX_LEVELS):
    """Returns the text of an element, or a dict of its children. Of children of one name the first counts."""
    if levels == 0:
        raise Refusal(Code.BAD_CALL, "content cannot be read as XML: nested too deeply")
    members = {}
    for child in element:
        members.setdefault(child.tag, to_json(child, levels - 1))
    return members or element.text or ""


def read_references(members):
    """Returns the profiles and the schedule that a rule names."""
    events = read_list(members, "EventProfileNum", "EventProfiles", "evtpf")
    actions = read_list(members, "ActionProfileNum", "ActionProfiles", "actpf", is_needed=False)
    schedule = members.get("TimeProfile", "")
    for guids, owner in ((events, "an event profile"), (actions, "an action profile"),
                         ([schedule] if schedule else [], "the time profile")):
        for guid in guids:
            check_guid(guid, f"content: the GUID of {owner}")
    return ([*((Type.EVENT_PROFILE, guid) for guid in events),
             *((Type.ACTION_PROFILE, guid) for guid in actions)], schedule)


def read_list(members, count, container, prefix, is_needed=True):
    """Returns the texts of the elements in `container`. The element `count` must contain their number."""
    elements = members.get(container) or {}
    if not isinstance(elements, dict) or members.get(count, "0") != str(len(elements)):
        raise Refusal(Code.BAD_CALL, f"content: <{count}> does not agree with <{container}>")
    for position, (name, text) in enumerate(elements.items()):
        if name != f"{prefix}{position}" or not text or not isinstance(text, str):
            raise Refusal(Code.BAD_CALL, f"content: no <{prefix}{position}> in <{container}>")
    if is_needed and not elements:
        raise Refusal(Code.BAD_CALL, f"content: no member in <{container}>")
    return list(elements.values())
