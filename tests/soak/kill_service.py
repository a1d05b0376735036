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
import threading
import time

from rule_database import Fault, read_rules, require

WRITERS = 4
RULES_OF_A_WRITER = 12  # more, and most GUIDs of the few channels are in use
LONGEST_ROUND = 0.3  # seconds from the writers' start to the kill
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


class Writer:
    """Makes and deletes rules of its own and knows which of them there are."""

    def __init__(self, number, recorder):
        self.prefix = f"w{number}-"
        self.recorder = recorder
        self.figures = collections.Counter()
        self.rules = {}  # GUIDs, None before it is known, by name
        self.uncertain = {}  # by name of a rule whose making or deletion was cut off: was it there

    def work(self, stop):
        while not stop.is_set():
            known = [name for name, guid in self.rules.items() if guid]
            if known and random.random() < len(self.rules) / RULES_OF_A_WRITER:
                self.delete(random.sample(known, min(len(known), random.randint(1, 3))))
            elif len(self.rules) < RULES_OF_A_WRITER:
                self.add()
            else:
                self.list()

    def add(self):
        self.figures["requests"] += 1
        channels = random.sample(CHANNELS, 2)
        rule = {"event": [{"eventID": random.choice(EVENTS),
                           "camera": [{"chIdx": channels[0], "alarm": [0]}]}]}
        if random.random() < 0.5:
            rule["action"] = [{"ActionName": "RecordControl", "chIdx": [channels[1]]}]
        rule["ruleName"] = f"{self.prefix}{self.figures['requests']}-{len(rule)}"
        answer = self.recorder.ask("POST", {"rule": rule})
        if answer["ret_code"] == 0:
            self.rules[rule["ruleName"]] = None
            self.figures["created"] += 1
        elif answer["ret_mesg"].startswith("Error ROVA POST"):
            self.uncertain[rule["ruleName"]] = False
            self.figures["cut off"] += 1
        else:
            require(NOT_ADDED.match(answer["ret_mesg"]), "adding a rule:", answer)

    def delete(self, names):
        self.figures["requests"] += 1
        guids = [self.rules[name] for name in names]
        answer = self.recorder.ask("DELETE", {"ruleGUID": guids})
        deleted = len(names)
        if answer["ret_code"] != 0:
            position = re.match(r"<(\d)> Error ROVA Delete", answer["ret_mesg"])
            require(position, "deleting rules:", answer)
            deleted = int(position[1])
            self.uncertain[names[deleted]] = True
            self.figures["cut off"] += 1
        for name in names[:deleted + 1]:
            del self.rules[name]
        self.figures["deleted"] += deleted

    def list(self):
        self.figures["requests"] += 1
        answer = self.recorder.ask("GET")
        if "ruleList" in answer:
            self.compare({rule["name"]: rule["GUID"] for rule in answer["ruleList"]})

    def compare(self, recorded):
        """The rules of all writers on the recorder must be those that this one knows of."""
        own = {name: guid for name, guid in recorded.items() if name.startswith(self.prefix)}
        lost = self.rules.keys() - own.keys()
        foreign = own.keys() - self.rules.keys() - self.uncertain.keys()
        require(not lost and not foreign, "rules lost:", lost, "rules that should not be:", foreign)
        self.figures["done"] += sum((name in own) != was for name, was in self.uncertain.items())
        self.uncertain.clear()
        self.rules = own


def run(recorder, writers, kills):
    service = recorder.start_service()
    stop = threading.Event()
    with concurrent.futures.ThreadPoolExecutor(len(writers)) as pool:
        for _ in range(kills):
            stop.clear()
            work = [pool.submit(writer.work, stop) for writer in writers]
            time.sleep(random.uniform(0, LONGEST_ROUND))
            require(service.poll() is None, "the service has ended by itself")
            service.kill()
            service.communicate()
            service = recorder.start_service()
            stop.set()
            for each in work:
                each.result()
            rules = read_rules(recorder.database)
            for writer in writers:
                writer.compare(rules)
    service.terminate()
    require(service.wait(timeout=10) == 0, "the service does not end as it should")


def main():
    recorder = Recorder(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
    writers = [Writer(number, recorder) for number in range(WRITERS)]
    try:
        run(recorder, writers, int(sys.argv[3]))
    except Fault as fault:
        sys.exit(f"kill: FAULT: {fault}")
    figures = sum((writer.figures for writer in writers), collections.Counter())
    left = sum(len(writer.rules) for writer in writers)
    print(f"kill: {sys.argv[3]} kills, {figures['requests']} requests, {figures['created']} rules"
          f" created, {figures['deleted']} deleted, {figures['cut off']} requests cut off"
          f" ({figures['done']} of them had been carried out), {left} rules left, all whole")


if __name__ == "__main__":
    main()
