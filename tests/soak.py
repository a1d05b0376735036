"""Long tests of the host recorder. Prints their figures and succeeds only if every check passed."""

import argparse
import collections
import concurrent.futures
import json
import random
import re
import sys
import time

import recorder as driver
from recorder import Recorder, Rule, RuleClient, wait_until
from rule_account import Fault, read_rules, require

CHANNELS = (0, 1, 2, 3, 4, 5, 6, 7, 10, 191)
EVENTS = (0x20010000, 0x20060001, 0x20060002, 0x20060003, 0x200A0001, 0x200C0001)
MOST_RULES = 4  # of one client; with more, most GUIDs of the few channels are in use
# Refusals that can happen to a sound rule.
DUPLICATE_OR_CLASH = "Warning chIdx=|Error add rule multicall reply fail"
MISTAKES = [  # and the code of the answer
    ("POST", b'{"rule": ', -101),
    ("POST", json.dumps(Rule(EVENTS[0], 9).document()).encode(), -200),
    ("DELETE", b'{"ruleGUID": "A"}', -303),
]

KILL_CLIENTS = 4
REQUESTS_IN_A_ROUND = 8  # of a client
LONGEST_ROUND = 0.15  # seconds from the first request to the kill
LOAD_CLIENTS = 16


def random_rule(name):
    """A rule whose name ends in the number of its profiles."""
    channel, record = random.sample(CHANNELS, 2)
    record = random.choice((record, None))
    return Rule(random.choice(EVENTS), channel, alarm=0, record=record,
                name=f"{name}-{1 if record is None else 2}")


def ask(recorder, method, body=b"", client=None):
    """The result in an answer, which must be well formed."""
    answer = recorder.request(method, "?func=addRule" if method == "POST" else "", body, client)
    result = json.loads(answer.body)
    status = {0: 200, -2: 401}.get(result.get("ret_code", 0), 400)
    require(answer.status == status and answer.body.endswith(b"\n\n") and
            answer.headers["Content-Type"] == "application/json", "not an answer:", answer)
    return result


def listed(document):
    return {rule["name"]: rule["GUID"] for rule in document["ruleList"]}


class Client:
    """One of the clients of a recorder, with rules of its own, of which it keeps account."""

    def __init__(self, recorder, number, service_is_killed):
        self.recorder = recorder
        self.stranger = RuleClient(recorder.url)
        self.prefix = f"c{number}-"
        self.service_is_killed = service_is_killed
        self.rules = {}  # GUIDs by name, or None before the list has told it
        self.unknown = set()  # the names of rules that may be there
        self.figures = collections.Counter()

    def run(self, requests):
        for _ in range(requests):
            self.figures["requests"] += 1
            if random.random() < 0.2:
                self.make_mistake()
            elif random.random() < 0.2:
                self.look()
            elif len(self.rules) < MOST_RULES:
                self.add()
            else:
                self.delete([rule for rule in self.rules.items() if rule[1]])

    def make_mistake(self):
        method, body, code = random.choice(MISTAKES)
        client, code = random.choice([(None, code), (self.stranger, -2)])
        result = ask(self.recorder, method, body, client)
        require(result["ret_code"] == code, "a mistake:", result)

    def look(self):
        document = ask(self.recorder, "GET")
        if "ruleList" in document:
            self.settle(listed(document))
        else:
            self.require_failure("Request failed", document)

    def add(self):
        rule = random_rule(f"{self.prefix}{self.figures['requests']}")
        result = ask(self.recorder, "POST", json.dumps(rule.document()).encode())
        if result["ret_code"] == 0:
            self.rules[rule.name] = None
            self.figures["rules made"] += 1
        elif not re.match(DUPLICATE_OR_CLASH, result["ret_mesg"]):
            failure = self.require_failure("Internal error get |Error ROVA POST", result)
            if failure[0].startswith("Error"):
                self.unknown.add(rule.name)
                self.figures["cut off"] += 1

    def delete(self, rules):
        guids = [*(guid for _, guid in rules), "F" * 32]
        result = ask(self.recorder, "DELETE", json.dumps({"ruleGUID": guids}).encode())
        deleted = len(rules)
        if result["ret_code"] != 0:
            deleted = int(self.require_failure(r"<(\d)> Error ROVA Delete", result)[1])
            self.unknown.update(name for name, _ in rules[deleted:deleted + 1])
            self.figures["cut off"] += 1
        for name, _ in rules[:deleted + 1]:
            del self.rules[name]
        self.figures["rules deleted"] += deleted

    def require_failure(self, pattern, result):
        """The match of the refusal that tells of a service that was killed."""
        match = re.match(pattern, result["ret_mesg"])
        require(self.service_is_killed and match, "refused:", result)
        return match

    def settle(self, rules):
        """The client's own among the rules that are there must be those that its answers tell of."""
        own = {name: guid for name, guid in rules.items() if name.startswith(self.prefix)}
        lost, foreign = self.rules.keys() - own.keys(), own.keys() - self.rules.keys() - self.unknown
        require(not lost and not foreign, "rules lost:", lost, "rules that should not be:", foreign)
        self.rules = own
        self.unknown.clear()


def run_clients(recorder, clients, requests, meanwhile=lambda: None):
    """Lets each client send requests, and holds the rules that are then there against its account."""
    with concurrent.futures.ThreadPoolExecutor(len(clients)) as pool:
        running = [pool.submit(client.run, requests) for client in clients]
        meanwhile()
        for each in running:
            each.result()
    rules = read_rules(recorder.state / "rules.db")
    require(listed(ask(recorder, "GET")) == rules, "the list is not the database's")
    for client in clients:
        client.settle(rules)
    require(len(rules) == sum(len(client.rules) for client in clients), "rules of nobody:", rules)


def kill_trial(recorder, kills):
    """Kills the service at random moments while rules come and go, and starts it again."""
    def kill_service():
        time.sleep(random.uniform(0, LONGEST_ROUND))
        require(recorder.service.poll() is None, "the service has ended by itself")
        recorder.service.kill()
        recorder.service.wait()
        recorder.start_service()

    clients = [Client(recorder, number, True) for number in range(KILL_CLIENTS)]
    for _ in range(kills):
        run_clients(recorder, clients, REQUESTS_IN_A_ROUND, kill_service)
    return clients


def load_trial(recorder, requests):
    """Sends requests on many connections at once."""
    clients = [Client(recorder, number, False) for number in range(LOAD_CLIENTS)]
    run_clients(recorder, clients, -(-requests // LOAD_CLIENTS))
    return clients


def run_trial(trial, count, bin_dir):
    """The figures of a trial, after which the recorder must be as it was before."""
    with Recorder(bin_dir) as recorder:
        recorder.start()
        clients = trial(recorder, count)
        require(wait_until(lambda: not recorder.running_programs()), "a program was left behind")
        errors = (recorder.state / "rule_errors.log").read_text()
        require(not errors, errors)
        require(driver.stop(recorder.service) == 0, "the service does not end as it should")
    figures = sum((client.figures for client in clients), collections.Counter())
    return ", ".join(f"{figures[what]} {what}" for what in sorted(figures)) + ", all rules whole"


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
            try:
                print(f"{name}: {run_trial(trial, count, bin_dir)}")
            except Fault as fault:
                sys.exit(f"{name}: FAULT: {fault}")


if __name__ == "__main__":
    driver.run_command(main)
