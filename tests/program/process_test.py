"""Runs process_test.sh with the program on the host's platform."""

import os
import pathlib
import subprocess

from driver import Recorder

SCRIPT = pathlib.Path(__file__).with_name("process_test.sh")


def test_processes(bin_dir):
    with Recorder(bin_dir) as recorder:
        subprocess.run([SCRIPT, recorder.program], env={**os.environ, **recorder.environment()},
                       check=True)
