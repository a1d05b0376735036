#!/usr/bin/env python3
"""The comparison: the endpoint's way of adding a rule, as a short script would go it."""
import base64
import http.client
import json
import os
import random
import sys

XML = '<?xml version="1.0" encoding="UTF-8"?>'


def call(method, path, body=None):
    connection = http.client.HTTPConnection("127.0.0.1", 10141, timeout=15)
    connection.request(method, path, body, {"Content-Type": "application/json"})
    reply = json.loads(connection.getresponse().read())
    connection.close()
    if reply["err_code"] != 0:
        raise RuntimeError(reply["err_str"])
    return reply.get("content", [])


def guid(prefix, channel):
    return f"{prefix * 10}{random.getrandbits(72):018X}{channel:04X}"


def node(name, node_guid, node_type, xml, **more):
    content = base64.b64encode((XML + xml).encode()).decode()
    return {"object": "Rule", "method": "POST", "body": {"ruleNode": {
        "name": name, "isGroup": False, "description": "", "GUID": node_guid, "type": node_type,
        "active": True, "content": content, **more}}}


def add_rule(request, camera):
    event = request["rule"]["event"][0]
    channel = event["camera"][0]["chIdx"]
    recording = request["rule"]["action"][0]["chIdx"][0]
    profile = next(s["GUID"] for s in call("GET", "/cfg/Schedule") if s["name"] == "_ALL_DAY_")
    for stored in call("GET", "/cfg/Rule"):
        text = base64.b64decode(stored["content"]).decode()
        if f"<EventID>{event['eventID']}</EventID>" in text and camera(channel) in text:
            return -911, "already added"
    event_guid, action_guid = guid("1", channel), guid("2", recording)
    call("POST", "/cfg/multicalls", json.dumps({"calls": [
        node(f"clientEvent{channel:04}", event_guid, 3,
             f"<event_profile><EventID>{event['eventID']}</EventID><SourceNum>1</SourceNum>"
             f"<SourceIds><id0>{camera(channel)}</id0></SourceIds></event_profile>",
             EventID=event["eventID"]),
        node(f"clientAction{recording:04}", action_guid, 4,
             "<action_profile><ActionName>RecordControl</ActionName><TargetNum>1</TargetNum>"
             f"<TargetIds><id0>{camera(recording)}</id0></TargetIds></action_profile>"),
        node("clientRule", guid("3", channel), 0,
             f"<rule><EventProfileNum>1</EventProfileNum><EventProfiles><evtpf0>{event_guid}"
             f"</evtpf0></EventProfiles><TimeProfile>{profile}</TimeProfile><ActionProfileNum>1"
             f"</ActionProfileNum><ActionProfiles><actpf0>{action_guid}</actpf0></ActionProfiles>"
             "<CreationMethod>quick</CreationMethod></rule>")]}))
    return 0, "Add Rule successful"


def main():
    with open(os.environ["RULE_RECORDER_DIR"] + "/cameras.txt", encoding="utf-8") as file:
        channels = {int(line.split()[0]) for line in file if line[:1].isdigit()}

    def camera(channel):
        return f"CA3E7A000000000000000000C0DE{channel:04}" if channel in channels else ""

    code, text = 0, None
    if os.environ["REQUEST_METHOD"] == "POST":
        body = sys.stdin.read(int(os.environ["CONTENT_LENGTH"]))
        code, text = add_rule(json.loads(body), camera)
    answer = json.dumps({"ret_code": code, "ret_mesg": text} if text else None)
    print(f"Status: 200 OK\r\nContent-type: application/json\r\n\r\n{answer}\n")


main()
