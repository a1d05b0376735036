"""Runs the host recorder in the foreground for a client under development."""

import argparse
import os
import shlex

from driver import (BUILT_PROGRAMS, Recorder, RecorderError, end_on_signals, last_lines,
                    run_command)

ADVICE = """\
recorder at {url}, user {user}, password {password}
files in {state} (the endpoint's log: rule.log); Ctrl-C stops it

To create a quick rule (event 536936448 on channel 3 records channel 3) and list the rules:
  curl -u {user}:{password} '{url}?func=addRule' -d '{{"rule": {{"event": [{{"eventID": 536936448, \
"camera": [{{"chIdx": 3}}]}}], "action": [{{"ActionName": "RecordControl", "chIdx": [3]}}]}}}}'
  curl -u {user}:{password} {url}

For the examples of docs/api.md and for client/rule_client.py:
  export RULE_URL={url} RULE_USER={user} RULE_PASSWORD={password}
  account=$RULE_USER:$RULE_PASSWORD
"""


def port_number(text):
    if not text.isdecimal() or not 1 <= int(text) <= 65535:
        raise argparse.ArgumentTypeError(f"not a port number: {text}")
    return int(text)


def read_arguments():
    parser = argparse.ArgumentParser(prog="scripts/recorder", description=__doc__)
    parser.add_argument("--state", metavar="DIR",
                        help="keep the recorder's rules, users and logs in DIR; otherwise in a "
                        "directory that is deleted at the end. DIR/cameras.txt lists its cameras, "
                        "DIR/password holds the password.")
    parser.add_argument("--port", metavar="N", type=port_number,
                        help="serve HTTP on port N of 127.0.0.1; otherwise on any free port")
    return parser.parse_args()


def wait_for_the_end_of(recorder):
    """Neither server ends by itself."""
    os.waitid(os.P_ALL, 0, os.WEXITED | os.WNOWAIT)
    name, process, log = "configuration service", recorder.service, "config_service.log"
    if process.poll() is None:
        name, process, log = "web server", recorder.web, "web_server.log"
    raise RecorderError(f"the {name} has ended (exit status {process.wait()}):\n"
                        f"{last_lines(recorder.state / log)}")


def main():
    arguments = read_arguments()
    with Recorder(BUILT_PROGRAMS, arguments.state, arguments.port) as recorder:
        recorder.start()
        end_on_signals(0)
        print(ADVICE.format(**{**vars(recorder), "password": shlex.quote(recorder.password)}))
        page = recorder.url.removesuffix("rule") + "reference/"
        print(f"The API reference, once scripts/lib/build-reference has built it: {page}", flush=True)
        wait_for_the_end_of(recorder)


if __name__ == "__main__":
    run_command(main)
