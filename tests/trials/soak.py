"""Long tests of the host recorder. Prints their figures and succeeds only if every check passed."""

import argparse
import collections
import concurrent.futures
import random
import sys
import time

import driver
from driver import Recorder, Rule, RuleClient, wait_until
from rule_client import NoAnswer, Refused, read_entry
from verdict import Fault, opened, read_answer, require

CHANNELS = (0, 1, 2, 3, 4, 5, 6, 7, 10, 191)
EVENTS = (0x20010000, 0x20060001, 0x20060002, 0x20060003, 0x200A0001, 0x200C0001)
KILL_CLIENTS, LOAD_CLIENTS = 4, 16
REQUESTS_IN_A_ROUND = 8  # of a client
LONGEST_ROUND = 0.15  # seconds from the first request to the kill


class Client(RuleClient):
    """A client that records which rules it has created. No other client creates rules for the same event and
    channel. While services are killed, no other client uses the same channel at all: a deletion that is
    sent again could hit a new rule with the GUID of the old one. Each answer must be well formed."""

    def __init__(self, recorder, number, pauses):
        super().__init__(recorder.url, recorder.user, recorder.password)
        self.pauses = pauses
        self.prefix = f"c{number}-"
        self.event = EVENTS[number // KILL_CLIENTS]
        self.channels = CHANNELS[number % KILL_CLIENTS::KILL_CLIENTS]
        self.rules = {}  # by channel
        self.figures = collections.Counter()

    def request(self, *arguments):
        self.figures["requests"] += 1
        answer = super().request(*arguments)
        document = read_answer(answer.status, answer.headers["Content-Type"], answer.body)
        self.figures["refusals"] += document.get("ret_code", 0) != 0
        return answer

    def run(self, requests):
        end = self.figures["requests"] + requests
        while self.figures["requests"] < end:
            free = [channel for channel in self.channels if channel not in self.rules]
            if free:
                self.add_one(random.choice(free))
            else:
                self.delete_all()

    def add_one(self, channel):
        name = f"{self.prefix}{self.figures['rules made']}"
        rule = Rule(self.event, channel, record=random.choice((None, *CHANNELS)), name=name)
        require(self.add(rule), "made before:", rule)
        self.rules[channel] = rule
        self.figures["rules made"] += 1

    def delete_all(self):
        own = [entry["GUID"] for entry in self.list() if entry["name"].startswith(self.prefix)]
        require(len(own) == len(self.rules), "rules:", own, "account:", self.rules)
        self.delete([*own, "F" * 32])
        self.rules.clear()


def kill_service(recorder):
    """Kills the service at a random moment, and starts it again."""
    time.sleep(random.uniform(0, LONGEST_ROUND))
    require(recorder.service.poll() is None, "the service has ended by itself")
    recorder.service.kill()
    recorder.service.wait()
    recorder.start_service()


def run_trial(recorder, clients, requests, kills):
    """Lets each client send requests, once or with each of so many kills, and compares the rules on the
    recorder with those that the clients have recorded."""
    for _ in range(kills or 1):
        with concurrent.futures.ThreadPoolExecutor(len(clients)) as pool:
            running = [pool.submit(client.run, requests) for client in clients]
            if kills:
                kill_service(recorder)
            for each in running:
                each.result()
        rules = [rule for client in clients for rule in client.rules.values()]
        listed = [read_entry(entry).rule._replace(schedule="") for entry in recorder.client.list()]
        require(sorted(map(str, listed)) == sorted(map(str, rules)), listed, "account:", rules)
        with opened(recorder.state / "rules.db") as database:
            (objects,) = database.execute("SELECT count(*) FROM node").fetchone()
        require(objects == sum(2 + (rule.record is not None) for rule in rules),
                objects, "rules and profiles of", rules)


def soak(bin_dir, count, requests, kills):
    """Runs a trial with `count` clients and returns its figures. The recorder must be sound afterwards."""
    with Recorder(bin_dir) as recorder:
        recorder.start()
        pauses = [0.05] * 200 if kills else []  # nothing fails without a kill
        clients = [Client(recorder, number, pauses) for number in range(count)]
        run_trial(recorder, clients, requests, kills)
        require(wait_until(lambda: not recorder.running_programs()), "a program was left behind")
        errors = (recorder.state / "rule_errors.log").read_text()
        require(not errors, errors)
        require(driver.stop(recorder.service) == 0, "the service does not end as it should")
    figures = sum((client.figures for client in clients), collections.Counter())
    return ", ".join(f"{figures[what]} {what}" for what in sorted(figures)) + ", all rules whole"


def main():
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__)
    parser.add_argument("trial", nargs="?", choices=["kill", "load", "all"], default="all")
    parser.add_argument("--kills", type=int, default=300, metavar="N",
                        help="how often the kill trial kills the configuration service (300)")
    parser.add_argument("--requests", type=int, default=5000, metavar="N",
                        help="how many requests the load trial sends (5,000)")
    arguments = parser.parse_args()
    trials = {"kill": (KILL_CLIENTS, REQUESTS_IN_A_ROUND, arguments.kills),
              "load": (LOAD_CLIENTS, -(-arguments.requests // LOAD_CLIENTS), 0)}
    for name, trial in trials.items():
        if arguments.trial in (name, "all"):
            try:
                print(f"{name}: {soak(driver.BUILT_PROGRAMS, *trial)}")
            except (Fault, NoAnswer, Refused) as fault:
                sys.exit(f"{name}: FAULT: {fault}")


if __name__ == "__main__":
    driver.run_command(main)
