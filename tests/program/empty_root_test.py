"""Runs the static program in a root directory that contains only its own file and the recorder's files: no
library, no device and no configuration of the system."""

import json
import os
import shutil
import subprocess

import pytest

from process_test import SCRIPT
from driver import Recorder, Rule

AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]
CHROOT = [*AS_ROOT, "/usr/sbin/chroot"]


def test_program_in_an_empty_root(bin_dir):
    trial = subprocess.run([*CHROOT, "/", "true"], stderr=subprocess.PIPE, text=True, check=False)
    if trial.returncode != 0:
        pytest.skip(f"no other root directory is allowed here: {trial.stderr.strip()}")
    with Recorder(bin_dir) as recorder:
        shutil.copy(recorder.program, recorder.state)
        confined = ["env", "RULE_RECORDER_DIR=/", *CHROOT, recorder.state]
        subprocess.run([SCRIPT, "/rule_operation.cgi", *confined],
                       env={**os.environ, **recorder.environment()}, check=True)
        recorder.start_service()
        recorder.program = "/rule_operation.cgi"
        rule = json.dumps(Rule(event=536936448, channel=3).document()).encode()
        assert b'"Add Rule successful"' in recorder.run_program("POST", rule, prefix=confined).stdout
