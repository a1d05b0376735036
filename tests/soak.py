"""Long trials of the host recorder. Prints their figures and succeeds only if everything held."""

import argparse
import base64
import collections
import concurrent.futures
import contextlib
import json
import random
import re
import sqlite3
import sys
import time

import recorder as driver
from recorder import Recorder, Rule, RuleClient, wait_until

CHANNELS = (0, 1, 2, 3, 4, 5, 6, 7, 10, 191)
EVENTS = (0x20010000, 0x20060001, 0x20060002, 0x20060003, 0x200A0001, 0x200C0001)
ADD = "?func=addRule"
# Refusals of a request to add a rule: after these there is no such rule, ...
DUPLICATE_OR_CLASH = "Warning chIdx=|Error add rule multicall reply fail"
SERVICE_GONE = "Internal error get "
# ... and after this one nobody knows.
CUT_OFF = "Error ROVA POST"

KILL_CLIENTS = 4
ADDED_IN_A_ROUND = 20
LONGEST_ROUND = 0.15  # seconds from the first request to the kill

LOAD_CLIENTS = 16
MOST_RULES = 4  # of one client; with more, most GUIDs of the few channels are in use
MISTAKES = {  # what is sent, and the status and code of the answer
    "put": ("PUT", "", b"{}", (200, None)),
    "bad method": ("PATCH", "", b"{}", (200, -3)),
    "bad JSON": ("POST", ADD, b'{"rule": ', (400, -101)),
    "bad channel": ("POST", ADD, json.dumps(Rule(EVENTS[0], 9).document()).encode(), (400, -200)),
    "bad function": ("POST", "?func=none", b"{}", (400, -292)),
    "bad list": ("DELETE", "", b'{"ruleGUID": "A"}', (400, -303)),
    "stranger": ("GET", "", b"", (401, -2)),
}


class Fault(Exception):
    """What should not be so."""


def require(condition, *facts):
    if not condition:
        raise Fault(" ".join(map(str, facts)))


def random_rule(name):
    """A rule whose name ends in the number of its profiles."""
    channel, record = random.sample(CHANNELS, 2)
    record = random.choice((record, None))
    return Rule(random.choice(EVENTS), channel, alarm=0, record=record,
                name=f"{name}-{1 if record is None else 2}")


def profiles_of(content):
    return re.findall(r"<(?:evtpf|actpf)\d+>(\w+)<", base64.b64decode(content).decode())


def read_rules(path):
    """Checks the configuration service's database and returns the rules' GUIDs by name. No two rules
    name the same profile, and there are no others."""
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        for check, sound in ("integrity_check", [("ok",)]), ("foreign_key_check", []):
            found = database.execute(f"PRAGMA {check}").fetchall()
            require(found == sound, check, found)
        nodes = database.execute("SELECT name, guid, type, content FROM node").fetchall()
        references = database.execute(
            "SELECT rule.guid, profile.guid FROM rule_profile"
            " JOIN node AS rule ON rule.id = rule_profile.rule"
            " JOIN node AS profile ON profile.id = rule_profile.profile").fetchall()
    rules = {name: (guid, profiles_of(content)) for name, guid, type, content in nodes if type == 0}
    for name, (_, profiles) in rules.items():
        require(name.endswith(f"-{len(profiles)}"), "not the rule that was made:", name, profiles)
    named = [(guid, profile) for guid, profiles in rules.values() for profile in profiles]
    require(sorted(named) == sorted(references), "rules and references:", named, references)
    existing = [guid for _, guid, type, _ in nodes if type != 0]
    require(sorted(profile for _, profile in named) == sorted(existing),
            "rules and profiles:", named, existing)
    require(len(rules) + len(existing) == len(nodes), "a rule was made twice")
    return {name: guid for name, (guid, _) in rules.items()}


def ask_process(recorder, method, document=None):
    """The answer of a process of the program, which must be well formed."""
    body = b"" if document is None else json.dumps(document).encode()
    done = recorder.run_program(method, body)
    answer = re.fullmatch(r"Status: (200 OK|400 Bad Request)\r\n"
                          r"Content-type: application/json\r\n\r\n(.*)\n\n", done.stdout.decode())
    require(answer and not done.stderr, "not an answer:", done)
    result = json.loads(answer[2])
    require(("200" in answer[1]) == (result.get("ret_code", 0) == 0), "status:", answer)
    return result


# Each change returns, by name, whether the rule is there after it; None when nobody knows.

def add(ask, name, refusals=f"{DUPLICATE_OR_CLASH}|{SERVICE_GONE}|{CUT_OFF}"):
    rule = random_rule(name)
    answer = ask("POST", rule.document())
    added = answer["ret_code"] == 0
    require(added or re.match(refusals, answer["ret_mesg"]), "adding a rule:", answer)
    return {rule.name: None if answer["ret_mesg"].startswith(CUT_OFF) else added}


def delete(ask, rules):
    answer = ask("DELETE", {"ruleGUID": [guid for _, guid in rules]})
    deleted = len(rules)
    if answer["ret_code"] != 0:
        position = re.match(r"<(\d)> Error ROVA Delete", answer["ret_mesg"])
        require(position, "deleting rules:", answer)
        deleted = int(position[1])
    return {name: False if i < deleted else None if i == deleted else True
            for i, (name, _) in enumerate(rules)}


def compare(outcomes, rules):
    """The rules that are there must be those that the answers tell of."""
    lost = {name for name, there in outcomes.items() if there} - rules.keys()
    foreign = rules.keys() - {name for name, there in outcomes.items() if there is not False}
    require(not lost and not foreign, "rules lost:", lost, "rules that should not be:", foreign)


def listed(document):
    return {rule["name"]: rule["GUID"] for rule in document["ruleList"]}


def kill_trial(recorder, kills):
    """Kills the service at random moments while rules come and go, and starts it again."""
    def ask(*request):
        return ask_process(recorder, *request)

    figures = collections.Counter()
    recorder.start_service()
    rules = {}
    with concurrent.futures.ThreadPoolExecutor(KILL_CLIENTS) as clients:
        for kill in range(kills):
            changes = [(add, ask, f"{kill}-{i}") for i in range(ADDED_IN_A_ROUND)]
            old = random.sample(sorted(rules.items()), len(rules) // 2)
            changes += [(delete, ask, old[i:i + 3]) for i in range(0, len(old), 3)]
            random.shuffle(changes)
            answers = [clients.submit(*change) for change in changes]
            time.sleep(random.uniform(0, LONGEST_ROUND))
            require(recorder.service.poll() is None, "the service has ended by itself")
            recorder.service.kill()
            recorder.service.wait()
            recorder.start_service()
            outcomes = dict.fromkeys(rules, True)
            for answer in answers:
                outcomes.update(answer.result())
            before, rules = rules, read_rules(recorder.state / "rules.db")
            compare(outcomes, rules)
            require(listed(ask("GET")) == rules, "the list is not the database's")
            figures["requests"] += len(changes) + 1
            figures["created"] += len(rules.keys() - before.keys())
            figures["deleted"] += len(before.keys() - rules.keys())
            figures["cut off"] += list(outcomes.values()).count(None)
    require(driver.stop(recorder.service) == 0, "the service does not end as it should")
    return ", ".join(f"{count} {what}" for what, count in figures.items()) + \
        f", {len(rules)} rules left, all whole"


class LoadClient:
    """One of the clients that share the web server. It makes mistakes, and rules of its own, of which
    it keeps account."""

    def __init__(self, recorder, number):
        self.recorder = recorder
        self.prefix = f"c{number}-"
        self.rules = {}  # GUIDs by name, or None before the list has told it
        self.outcomes = collections.Counter()

    def run(self, requests):
        for number in range(requests):
            known = [rule for rule in self.rules.items() if rule[1]]
            if random.random() < 0.3:
                self.make_mistake(random.choice(sorted(MISTAKES)))
            elif random.random() < 0.2 or not known and len(self.rules) >= MOST_RULES:
                self.look(self.ask("GET"))
            elif len(self.rules) < MOST_RULES:
                self.take(add(self.ask, f"{self.prefix}{number}", DUPLICATE_OR_CLASH))
            else:
                self.take(delete(self.ask, [("none", "F" * 32), *known]))
        return self

    def take(self, outcomes):
        require(None not in outcomes.values(), "cut off:", outcomes)
        for name, there in outcomes.items():
            self.rules.pop(name, None)
            if there:
                self.rules[name] = None

    def look(self, document):
        own = {name: guid for name, guid in listed(document).items() if name.startswith(self.prefix)}
        compare(dict.fromkeys(self.rules, True), own)
        self.rules = own

    def ask(self, method, document=None):
        body = b"" if document is None else json.dumps(document).encode()
        status, result = self.exchange(method, method, ADD if method == "POST" else "", body)
        require(status == (400 if result.get("ret_code", 0) else 200), "status:", status, result)
        return result

    def make_mistake(self, title):
        *request, expected = MISTAKES[title]
        client = RuleClient(self.recorder.url) if title == "stranger" else None
        status, result = self.exchange(title, *request, client)
        code = None if result is None else result["ret_code"]
        require((status, code) == expected, title, status, result)

    def exchange(self, title, method, target, body, client=None):
        answer = self.recorder.request(method, target, body, client)
        require(answer.headers["Content-Type"] == "application/json" and
                answer.body.endswith(b"\n\n"), "not an answer:", answer)
        result = json.loads(answer.body)
        code = "" if result is None else result.get("ret_code", "list")
        self.outcomes[f"{title} {answer.status} {code}"] += 1
        return answer.status, result


def load_trial(recorder, requests):
    """Sends requests, wrong ones among them, through the web server on many connections."""
    recorder.start()
    start = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(LOAD_CLIENTS) as pool:
        running = [pool.submit(LoadClient(recorder, number).run, -(-requests // LOAD_CLIENTS))
                   for number in range(LOAD_CLIENTS)]
        clients = [client.result() for client in running]
    seconds = time.monotonic() - start
    rules = read_rules(recorder.state / "rules.db")
    compare(dict.fromkeys((name for client in clients for name in client.rules), True), rules)
    require(wait_until(lambda: recorder.running_programs() == 0), "a program was left behind")
    errors = (recorder.state / "rule_errors.log").read_text()
    require(not errors, errors)
    outcomes = sum((client.outcomes for client in clients), collections.Counter())
    return "\n".join([f"{outcomes.total()} requests in {seconds:.0f} s, {len(rules)} rules left",
                      *(f"  {count} {what}" for what, count in sorted(outcomes.items()))])


def positive(text):
    if not text.isdecimal() or int(text) == 0:
        raise argparse.ArgumentTypeError(f"not a number from 1: {text}")
    return int(text)


def main():
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__)
    parser.add_argument("trial", nargs="?", choices=["kill", "load", "all"], default="all")
    parser.add_argument("--kills", type=positive, default=300, metavar="N",
                        help="how often the kill trial kills the configuration service (300)")
    parser.add_argument("--requests", type=positive, default=5000, metavar="N",
                        help="how many requests the load trial sends (5,000)")
    arguments = parser.parse_args()
    bin_dir = driver.build_programs()
    trials = {"kill": (kill_trial, arguments.kills), "load": (load_trial, arguments.requests)}
    for name, (trial, count) in trials.items():
        if arguments.trial in (name, "all"):
            with Recorder(bin_dir) as recorder:
                try:
                    print(f"{name}: {trial(recorder, count)}")
                except Fault as fault:
                    sys.exit(f"{name}: FAULT: {fault}")


if __name__ == "__main__":
    driver.run_command(main)
