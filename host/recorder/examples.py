"""Runs the examples in the pages of docs/: examples.py [BIN_DIR [PAGE]]
Starts a recorder, shows each command of docs/api.md, or of PAGE, with its output, and fails if that
differs from the page. In a block marked `console` a command begins with "$ " and continues after "> ",
and the lines that follow are its output."""

import os
import pathlib
import re
import subprocess
import sys

from driver import (BUILT_PROGRAMS, PROJECT, SERVICE_URL, Recorder, run_command,
                    without_random_parts)


def read_examples(page):
    """The commands of a page, each with what it prints."""
    blocks = re.findall(r"^```console\n(.*?)^```", page.read_text(), re.DOTALL | re.MULTILINE)
    examples = re.findall(r"^\$ (.*(?:\n> .*)*)\n((?:(?!\$ ).*\n)*)", "".join(blocks), re.MULTILINE)
    return [(command.replace("\n> ", "\n"), printed) for command, printed in examples]


def run_examples(examples, recorder):
    """What the commands print, in one shell because later ones use the variables of earlier ones.
    The first block of a page says which variables describe the recorder."""
    (recorder.state / ".curlrc").write_text("silent\nshow-error\n")  # instead of the user's
    script = "".join(f"{command}\nprintf '\\0'\n" for command, _ in examples)
    environment = {**os.environ, "RULE_URL": recorder.url, "RULE_USER": recorder.user,
                   "RULE_PASSWORD": recorder.password,
                   "account": f"{recorder.user}:{recorder.password}", "service": SERVICE_URL,
                   "CURL_HOME": str(recorder.state), "XDG_STATE_HOME": str(recorder.state),
                   "no_proxy": "*"}
    done = subprocess.run(["bash", "-c", script], env=environment, cwd=PROJECT,
                          stdout=subprocess.PIPE, text=True)
    return done.stdout.split("\0")[:-1]


def main(bin_dir=BUILT_PROGRAMS, page=PROJECT / "docs/api.md"):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        examples = read_examples(pathlib.Path(page))
        for (command, expected), printed in zip(examples, run_examples(examples, recorder),
                                                strict=True):
            print(f"$ {command}\n{printed.rstrip()}\n")
            if without_random_parts(printed) != without_random_parts(expected):
                sys.exit(f"not as in {page}, which says:\n{expected}")
        if len(examples) < 3:
            sys.exit(f"{page} has no examples")
    print(f"{len(examples)} examples, each answered as in {page}. The recorder has been stopped.")


if __name__ == "__main__":
    run_command(main, *sys.argv[1:])
