"""Kills the configuration service at random moments while rules come and go, restarts it on its
database, and checks each time that every answer holds and that nothing is half made.

kill_service.py BIN_DIR RECORDER_DIR KILLS
"""

import base64
import collections
import concurrent.futures
import json
import pathlib
import random
import re
import subprocess
import sys
import time

from rule_database import Fault, read_rules, require

CLIENTS = 4
ADDED_IN_A_ROUND = 20
LONGEST_ROUND = 0.15  # seconds from the first request to the kill
CHANNELS = (0, 1, 2, 3, 4, 5, 6, 7, 10, 191)
EVENTS = (0x20010000, 0x20060001, 0x20060002, 0x20060003, 0x200A0001, 0x200C0001)

# The answers to a request to add a rule after which there is no such rule.
NOT_ADDED = re.compile("Warning chIdx=|Error add rule multicall reply fail|Internal error get ")


class Recorder:
    """The two programs under test."""

    def __init__(self, bin_dir, state):
        self.database = state / "rules.db"
        self.program = bin_dir / "rule_operation.cgi"
        self.service_command = ["setpriv", "--pdeathsig", "KILL", bin_dir / "config_service",
                                "--database", self.database]
        login = base64.b64encode(b"admin:" + (state / "password").read_bytes()).decode()
        self.environment = {"RULE_RECORDER_DIR": state, "HTTP_AUTHORIZATION": "Basic " + login}

    def start_service(self):
        service = subprocess.Popen(self.service_command, stdout=subprocess.PIPE, text=True)
        line = service.stdout.readline()
        require(line.startswith("configuration service listening"), "does not start:", line)
        return service

    def ask(self, method, document=None):
        """Runs the rule endpoint for one request; returns its answer, which must be well formed."""
        body = b"" if document is None else json.dumps(document).encode()
        request = {"REQUEST_METHOD": method, "QUERY_STRING": "func=addRule",
                   "CONTENT_LENGTH": str(len(body))}
        done = subprocess.run([self.program], input=body, env={**self.environment, **request},
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
        answer = re.fullmatch(r"Status: (200 OK|400 Bad Request)\r\n"
                              r"Content-type: application/json\r\n\r\n(.*)\n\n",
                              done.stdout.decode())
        require(answer and not done.stderr, "not an answer:", done)
        result = json.loads(answer[2])
        require(("200" in answer[1]) == (result.get("ret_code", 0) == 0), "status:", answer)
        return result

    # Each change returns, by name, whether the rule is there after it; None when it was cut off.

    def add(self, name):
        channels = random.sample(CHANNELS, 2)
        rule = {"event": [{"eventID": random.choice(EVENTS),
                           "camera": [{"chIdx": channels[0], "alarm": [0]}]}]}
        if random.random() < 0.5:
            rule["action"] = [{"ActionName": "RecordControl", "chIdx": [channels[1]]}]
        rule["ruleName"] = f"{name}-{len(rule)}"
        answer = self.ask("POST", {"rule": rule})
        cut_off = answer["ret_mesg"].startswith("Error ROVA POST")
        added = answer["ret_code"] == 0
        require(added or cut_off or NOT_ADDED.match(answer["ret_mesg"]), "adding a rule:", answer)
        return {rule["ruleName"]: None if cut_off else added}

    def delete(self, rules):
        answer = self.ask("DELETE", {"ruleGUID": [guid for _, guid in rules]})
        deleted = len(rules)
        if answer["ret_code"] != 0:
            position = re.match(r"<(\d)> Error ROVA Delete", answer["ret_mesg"])
            require(position, "deleting rules:", answer)
            deleted = int(position[1])
        return {name: False if i < deleted else None if i == deleted else True
                for i, (name, _) in enumerate(rules)}


def compare(outcomes, rules):
    """The rules in the database must be those that the answers tell of."""
    lost = {name for name, there in outcomes.items() if there} - rules.keys()
    foreign = rules.keys() - {name for name, there in outcomes.items() if there is not False}
    require(not lost and not foreign, "rules lost:", lost, "rules that should not be:", foreign)


def run(recorder, kills, figures):
    service = recorder.start_service()
    rules = {}
    with concurrent.futures.ThreadPoolExecutor(CLIENTS) as clients:
        for kill in range(kills):
            changes = [(recorder.add, f"{kill}-{i}") for i in range(ADDED_IN_A_ROUND)]
            old = random.sample(sorted(rules.items()), len(rules) // 2)
            changes += [(recorder.delete, old[i:i + 3]) for i in range(0, len(old), 3)]
            random.shuffle(changes)
            answers = [clients.submit(*change) for change in changes]
            time.sleep(random.uniform(0, LONGEST_ROUND))
            require(service.poll() is None, "the service has ended by itself")
            service.kill()
            service.communicate()
            service = recorder.start_service()
            outcomes = dict.fromkeys(rules, True)
            for answer in answers:
                outcomes.update(answer.result())
            before, rules = rules, read_rules(recorder.database)
            compare(outcomes, rules)
            listed = recorder.ask("GET")["ruleList"]
            require({rule["name"]: rule["GUID"] for rule in listed} == rules, "list:", listed)
            figures["requests"] += len(changes) + 1
            figures["created"] += len(rules.keys() - before.keys())
            figures["deleted"] += len(before.keys() - rules.keys())
            figures["cut off"] += list(outcomes.values()).count(None)
    service.terminate()
    require(service.wait(timeout=10) == 0, "the service does not end as it should")
    figures["left"] = len(rules)


def main():
    figures = collections.Counter()
    try:
        run(Recorder(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])), int(sys.argv[3]), figures)
    except Fault as fault:
        sys.exit(f"kill: FAULT: {fault}")
    print(f"kill: {sys.argv[3]} kills,",
          ", ".join(f"{count} {what}" for what, count in figures.items()) + ", all whole")


if __name__ == "__main__":
    main()
