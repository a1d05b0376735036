"""Measures what a request costs, in turn with a floor for it, and prints a table of medians, which
docs/performance.md explains. Run by scripts/bench. Ends with 1 when a goal is missed."""

import json
import os
import pathlib
import re
import statistics
import subprocess
import sys

PROJECT = pathlib.Path(__file__).resolve().parent.parent
from driver import Recorder, ask_service

BUILD = PROJECT / "build"
LINKS = {"static": BUILD / "bench", "mixed": BUILD / "bench-mixed", "shared": BUILD / "bench-shared"}
# The programs on the platform that answers at once.
PROGRAMS = {link: directory / "bin/rule_operation.cgi" for link, directory in LINKS.items()}
HOST_PROGRAM = BUILD / "release/bin/rule_operation.cgi"
TOOLS = LINKS["static"] / "bench"
NOTHING = TOOLS / "nothing/rule_operation.cgi"
BODY = json.dumps({"rule": {"event": [{"eventID": 536936448, "camera": [{"chIdx": 3}]}],
                            "action": [{"ActionName": "RecordControl", "chIdx": [5]}]}})

recorder = Recorder(HOST_PROGRAM.parent)
missed = []


def row(what, figure, floor=None, than="", at_most=None, at_least=None):
    """Prints one figure with its unit and, if there is a floor, their ratio and the goal for it."""
    value, unit = figure
    ratio = value / floor if floor else None
    if (at_most and ratio > at_most) or (at_least and ratio < at_least):
        missed.append(what)
    goal = f"at most {at_most}" if at_most else f"at least {at_least}" if at_least else ""
    print(f"| {what} | {value:,.{1 if value < 100 else 0}f} {unit} | "
          f"{f'{ratio:.2f}' if ratio else ''} | {than} | {goal} |", flush=True)


def measure(rounds, method, *contenders, **variables):
    """Returns the median time in microseconds and the largest size in KiB of each contender."""
    body = recorder.state / "body.json"
    body.write_text(BODY)
    arguments = [TOOLS / "bench_measure", str(rounds), body]
    for index, contender in enumerate(contenders):
        arguments += (["--"] if index else []) + contender
    environment = {"REQUEST_METHOD": method, "CONTENT_LENGTH": str(len(BODY)),
                   "QUERY_STRING": "func=addRule", **recorder.environment(), **variables}
    output = subprocess.run(arguments, env=environment, check=True, stdout=subprocess.PIPE, text=True)
    lines = [line.split() for line in output.stdout.splitlines()]
    return [(float(microseconds), int(kib)) for microseconds, kib in lines]


def bare_requests():
    *costs, (floor, _) = measure(400, "PUT", *([path] for path in PROGRAMS.values()),
                                 [NOTHING, "quiet"])
    puts = dict(zip(LINKS, costs))
    for link, (put, _) in puts.items():
        row(f"PUT, {link}", (put, "us"), floor, "a C program that does nothing",
            at_most=1.30 if link == "static" else None)
    (add, _), (floor, _) = measure(200, "POST", [PROGRAMS["static"]], [NOTHING, "pauses"])
    row("add rule, static", (add, "us"), floor, "a C program with the same pauses", at_most=1.08)
    for link in ("static", "shared"):
        row(f"resident memory of a PUT, {link}", (puts[link][1], "KiB"), 1024, "1 MiB",
            at_most=1.6 if link == "static" else None)
        stripped = recorder.state / "stripped"
        subprocess.run(["strip", "-o", stripped, PROGRAMS[link]], check=True)
        row(f"size of the program, {link}", (stripped.stat().st_size / 1024, "KiB"))


def list_costs(count):
    """Returns the microseconds and KiB that reading `count` rules takes, for the program and for its floor,
    without building the list, which is the rule library's part."""
    contenders = ([PROGRAMS["static"]], [TOOLS / "bench_floor", "make"],
                  [TOOLS / "bench_floor", "parse"])
    rounds = max(3, min(40, 40000 // (count + 1)))
    program, make, parse = measure(rounds, "POST", *contenders, RULE_BENCH_RULES=str(count))
    return [(program[i] - make[i], parse[i] - make[i]) for i in (0, 1)]


def rule_lists():
    none = list_costs(0)
    for count in (4800, 48000):
        (spent, floor), (memory, memory_floor) = (
            [(now - before) / count for now, before in zip(*pair)]
            for pair in zip(list_costs(count), none))
        row(f"reading {count:,} rules, each", (spent, "us"), floor,
            "rendering and parsing that text", at_most=1.3)
    row("peak memory for each of them", (memory * 1024, "bytes"), memory_floor * 1024,
        "rendering and parsing that text")


def host_requests():
    (put, _), (floor, _) = measure(400, "PUT", [HOST_PROGRAM], [NOTHING, "quiet"])
    row("PUT, host platform with its password check", (put, "us"), floor,
        "a C program that does nothing")
    times = []
    for _ in range(60):
        times.append([time for time, _ in measure(1, "POST", [HOST_PROGRAM], [NOTHING, "pauses"])])
        for node in ask_service("GET", "/cfg/Rule")["content"]:
            if node["type"] == 0:
                ask_service("DELETE", "/cfg/Rule?GUID=" + node["GUID"])
    add, floor = (statistics.median(column) for column in zip(*times))
    row("add rule, host platform and service", (add, "us"), floor, "a C program with the same pauses")


def requests_per_second(url, connections):
    output = subprocess.run(["ab", "-q", "-k", "-l", "-m", "PUT", "-t", "3", "-n", "1000000",
                             "-c", str(connections), url], check=True, capture_output=True, text=True)
    return float(re.search(r"Requests per second: +([0-9.]+)", output.stdout).group(1))


def web_server_requests():
    urls = [recorder.start_web_server(program)[1] for program in (PROGRAMS["static"], NOTHING)]
    for connections in (1, 8):
        rates = [[requests_per_second(url, connections) for url in urls] for _ in range(5)]
        program, floor = (statistics.median(column) for column in zip(*rates))
        row(f"PUT through lighttpd, {connections} at a time", (program, "requests/s"), floor,
            "a C program that prints the answer", at_least=0.85 if connections == 8 else None)


def main():
    print(f"load before: {os.getloadavg()[0]:.2f}\n\n| what | figure | ratio | to | goal |\n"
          "|---|---|---|---|---|")
    with recorder:
        recorder.start_service()
        bare_requests()
        rule_lists()
        host_requests()
        web_server_requests()
    if missed:
        sys.exit("missed: " + ", ".join(missed))


main()
