"""What scripts/bench runs: every figure is a ratio measured in one run, A B A B, medians.

bench.py BENCH_BUILD HOST_BIN RESULTS
"""
import http.client
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../host/recorder"))
from plot import write_plot
from recorder import Recorder

BENCH, HOST_BIN, RESULTS = sys.argv[1:]
PROGRAM = f"{BENCH}/bin/rule_operation.cgi"  # on the platform that answers at once
HOST_PROGRAM = f"{HOST_BIN}/rule_operation.cgi"
FLOOR = f"{BENCH}/bench/bench_floor"
COMPARISON = os.path.join(os.path.dirname(os.path.abspath(__file__)), "comparison_cgi.py")
BODY = json.dumps({"rule": {"event": [{"eventID": 536936448, "camera": [{"chIdx": 3}]}],
                            "action": [{"ActionName": "RecordControl", "chIdx": [5]}]}})
BODY_FILE = f"{RESULTS}/body.json"
RULE_COUNTS = [0, 480, 4800, 48000]

rows = []
recorder = Recorder(HOST_BIN)


def row(what, value, unit, floor=None, goal=None, than=""):
    """Keeps one figure; with a floor also its ratio to it."""
    ratio = value / floor if floor else None
    rows.append({"what": what, "value": value, "unit": unit, "floor": floor, "than": than,
                 "ratio": ratio, "goal": goal})


def environment(method, **more):
    return {"PATH": os.environ["PATH"], "REQUEST_METHOD": method, "CONTENT_LENGTH": str(len(BODY)),
            "QUERY_STRING": "func=addRule", **recorder.environment(), **more}


def measure(rounds, env, *contenders):
    """Median microseconds and largest KiB of each."""
    arguments = [f"{BENCH}/bench/bench_measure", str(rounds), BODY_FILE]
    for index, contender in enumerate(contenders):
        arguments += (["--"] if index else []) + contender
    output = subprocess.run(arguments, env=env, check=True, capture_output=True, text=True).stdout
    return [(float(line.split()[0]), int(line.split()[3])) for line in output.splitlines()]


def bare_requests():
    (add, _), (floor, _) = measure(200, environment("POST"), [PROGRAM], [FLOOR, "pauses"])
    row("add rule, bare process", add, "us", floor, 1.15, "floor with 54 pauses")
    (put, _), (floor, _) = measure(400, environment("PUT"), [PROGRAM], [FLOOR])
    row("PUT, bare process", put, "us", floor, 1.10, "floor")


def rule_lists():
    points = []
    for count in RULE_COUNTS:
        env = environment("POST", RULE_BENCH_RULES=str(count))
        rounds = max(3, min(40, 40000 // (count + 1)))
        contenders = ([PROGRAM], [FLOOR, "make"], [FLOOR, "parse"])
        (add, size), (make, make_size), (parse, parse_size) = measure(rounds, env, *contenders)
        # Making the list is the rule library's part; both carry it.
        points.append({"rules": count, "program_us": add - make, "floor_us": parse - make,
                       "program_kib": size - make_size, "floor_kib": parse_size - make_size})
    none = points[0]
    for point in points[1:]:
        count = point["rules"]
        spent = point["program_us"] - none["program_us"]
        floor = point["floor_us"] - none["floor_us"]
        row(f"reading {count} rules, each", spent / count, "us", floor / count, 1.3,
            "rendering and parsing that text")
        row(f"reading {count} rules, peak memory each",
            (point["program_kib"] - none["program_kib"]) * 1024 / count, "bytes",
            (point["floor_kib"] - none["floor_kib"]) * 1024 / count, None,
            "rendering and parsing that text")
    write_plot(f"{RESULTS}/rules.svg", points)
    return points


def service(method, path):
    connection = http.client.HTTPConnection("127.0.0.1", 10141)
    connection.request(method, path)
    reply = json.loads(connection.getresponse().read())
    connection.close()
    return reply.get("content", [])


def delete_rules():
    for node in service("GET", "/cfg/Rule"):
        if node["type"] == 0:
            service("DELETE", "/cfg/Rule?GUID=" + node["GUID"])


def timed(arguments, env):
    with open(BODY_FILE, encoding="utf-8") as body:
        start = time.perf_counter()
        output = subprocess.run(arguments, env=env, stdin=body, check=True, capture_output=True)
        took = (time.perf_counter() - start) * 1e6
    return took, output.stdout


def host_requests():
    (put, _), (floor, _) = measure(400, environment("PUT"), [HOST_PROGRAM], [FLOOR])
    row("PUT, host platform with password check", put, "us", floor, None, "floor")
    contenders = {"program": [HOST_PROGRAM], "script": [sys.executable, COMPARISON],
                  "floor": [FLOOR, "pauses"]}
    times = {name: [] for name in contenders}
    for _ in range(40):
        for name, arguments in contenders.items():
            took, output = timed(arguments, environment("POST"))
            if name != "floor" and b'"Add Rule successful"' not in output:
                sys.exit(f"{name} did not add its rule: {output}")
            times[name].append(took)
            delete_rules()
    medians = {name: statistics.median(values) for name, values in times.items()}
    row("add rule, host platform and service", medians["program"], "us", medians["floor"], None,
        "floor with 54 pauses")
    row("add rule, comparison script", medians["script"], "us", medians["program"], None,
        "the program, same service")


def requests_per_second(url, connections, script):
    with open(f"{RESULTS}/request.lua", "w", encoding="utf-8") as file:
        file.write(script)
    output = subprocess.run(["wrk", "-t1", f"-c{connections}", "-d2s", "-s", file.name, url],
                            check=True, capture_output=True, text=True).stdout
    return float(re.search(r"Requests/sec: +([0-9.]+)", output).group(1))


def web_server_requests():
    _, nothing_url = recorder.start_web_server(f"{BENCH}/bench/nothing")
    authorization = recorder.environment()["HTTP_AUTHORIZATION"]
    login = f'wrk.headers["Authorization"] = "{authorization}"\n'
    kinds = {"PUT": login + 'wrk.method = "PUT"\n',
             "add rule refused as a duplicate":
                 login + f"wrk.method = \"POST\"\nwrk.body = '{BODY}'\n"}
    timed([HOST_PROGRAM], environment("POST"))
    for kind, script in kinds.items():
        for connections in (1, 8):
            rates = {recorder.url: [], nothing_url: []}
            for _ in range(3):
                for url, values in rates.items():
                    values.append(requests_per_second(url + "?func=addRule", connections, script))
            row(f"{kind}, through lighttpd, {connections} connections",
                statistics.median(rates[recorder.url]), "1/s", statistics.median(rates[nothing_url]),
                None, "a CGI program that does nothing")
    delete_rules()


def output_of(*arguments, **options):
    return subprocess.run(arguments, check=True, capture_output=True, text=True, **options)


def start_up():
    """What each program loads, and what it costs before main."""
    for name, program in {"instant platform": PROGRAM, "host platform": HOST_PROGRAM}.items():
        env = environment("PUT", LD_DEBUG="statistics")
        with open(BODY_FILE, encoding="utf-8") as body:
            statistics_text = output_of(program, env=env, stdin=body).stderr
        relocations = int(re.search(r"number of relocations: (\d+)", statistics_text).group(1))
        row(f"relocations at start, {name}", relocations, "")
        pid = os.posix_spawn(program, [program], environment("PUT"), file_actions=[
            (os.POSIX_SPAWN_OPEN, 0, BODY_FILE, os.O_RDONLY, 0),
            (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
        row(f"page faults, {name}", os.wait4(pid, 0)[2].ru_minflt, "")
    libraries = {}
    for line in output_of("ldd", HOST_PROGRAM).stdout.splitlines():
        path = re.search(r"=> (/\S+)", line)
        if path:
            table = output_of("readelf", "--relocs", "--wide", path.group(1)).stdout
            libraries[os.path.basename(path.group(1))] = len(re.findall(r" R_\w+", table))
    return libraries


def size_and_calls():
    stripped = f"{RESULTS}/stripped"
    shutil.copy(PROGRAM, stripped)
    output_of("strip", stripped)
    row("size of the program, stripped", os.path.getsize(stripped), "bytes")
    with open(BODY_FILE, encoding="utf-8") as body:
        memory = output_of(f"{BENCH}/bench/bench_private_memory", PROGRAM, env=environment("POST"),
                           stdin=body).stdout
    row("private memory at exit", int(memory), "KiB")
    calls = f"{RESULTS}/calls.txt"
    with open(BODY_FILE, encoding="utf-8") as body:
        output_of("strace", "-c", "-o", calls, PROGRAM, env=environment("PUT"), stdin=body)
    with open(calls, encoding="utf-8") as file:
        lines = re.findall(r"^ +[\d.]+ +[\d.]+ +\d+ +(\d+) +(?:\d+ +)?(\w+)$", file.read(), re.M)
    counts = {name: int(count) for count, name in lines if name != "total"}
    row("system calls of a PUT", sum(counts.values()), "")
    return counts


def print_table():
    for each in rows:
        value = f"{each['value']:.1f}" if isinstance(each["value"], float) else each["value"]
        line = f"{each['what']:<52} {value:>10} {each['unit']:<6}"
        if each["ratio"]:
            line += f" {each['ratio']:6.2f} x {each['than']}"
        if each["goal"]:
            line += f" (goal {each['goal']:.2f}{'' if each['ratio'] <= each['goal'] else ': MISSED'})"
        print(line)


def main():
    with open(BODY_FILE, "w", encoding="utf-8") as file:
        file.write(BODY)
    bare_requests()
    points = rule_lists()
    host_requests()
    web_server_requests()
    libraries = start_up()
    calls = size_and_calls()
    print_table()
    print("relocations of the shared libraries of the host program:", libraries)
    print("system calls of a PUT:", calls)
    with open(f"{RESULTS}/bench.json", "w", encoding="utf-8") as file:
        json.dump({"rows": rows, "rule_lists": points, "relocations_of_libraries": libraries,
                   "system_calls_of_a_put": calls}, file, indent=2)


with recorder:
    recorder.start()
    main()
