"""The program, linked static, in a root directory with only its own file and the recorder's: no library,
no device, no configuration of the system."""

import json
import os
import shutil
import subprocess

from process_test import SCRIPT
from driver import Recorder, Rule

AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]


def test_program_in_an_empty_root(bin_dir):
    with Recorder(bin_dir) as recorder:
        shutil.copy(recorder.program, recorder.state)
        confined = ["env", "RULE_RECORDER_DIR=/", *AS_ROOT, "/usr/sbin/chroot", recorder.state]
        subprocess.run([SCRIPT, "/rule_operation.cgi", *confined],
                       env={**os.environ, **recorder.environment()}, check=True)
        recorder.start_service()
        recorder.program = "/rule_operation.cgi"
        rule = json.dumps(Rule(event=536936448, channel=3).document()).encode()
        assert b'"Add Rule successful"' in recorder.run_program("POST", rule, prefix=confined).stdout
