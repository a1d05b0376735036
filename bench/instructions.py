"""Counts all instructions of a process for each of a few fixed requests, and compares the counts with those
in instructions.json, or records them there: instructions.py --instructions | --record"""
import json
import pathlib
import re
import subprocess
import sys

MODE = sys.argv[1]
FOLDER = pathlib.Path(__file__).resolve().parent
PROGRAM = FOLDER.parent / "build/bench/bin/rule_operation.cgi"
RECORD = FOLDER / "instructions.json"
TOLERANCE = 0.03
ADD = '{"rule":{"event":[{"eventID":536936448,"camera":[{"chIdx":3}]}],' \
      '"action":[{"ActionName":"RecordControl","chIdx":[5]}]}}'
REQUESTS = {
    "put": ("PUT", "", 0),
    "post refused": ("POST", "{}", 0),
    "add rule": ("POST", ADD, 0),
    "add rule beside 480 rules": ("POST", ADD, 480),
    "delete three rules": ("DELETE", '{"ruleGUID":["A","B","C"]}', 0),
}


def count(method, body, rules):
    env = {"REQUEST_METHOD": method, "CONTENT_LENGTH": str(len(body)),
           "RULE_BENCH_RULES": str(rules)}
    output = subprocess.run(
        ["/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", PROGRAM],
        env=env, input=body, capture_output=True, text=True, check=False).stderr
    return int(re.search(r"Collected : (\d+)", output).group(1))


counts = {name: count(*request) for name, request in REQUESTS.items()}
if MODE == "--record":
    RECORD.write_text(json.dumps(counts, indent=2) + "\n")
    sys.exit()
recorded = json.loads(RECORD.read_text())
failed = False
for name, value in counts.items():
    change = value / recorded[name] - 1
    verdict = "" if abs(change) <= TOLERANCE else "  MORE THAN 3 % OFF: see docs/performance.md"
    failed = failed or verdict != ""
    print(f"{name:<28} {value:>12,} instructions, {change:+.2%}{verdict}")
sys.exit(failed)
