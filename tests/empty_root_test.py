"""The program, linked static, in a root directory with only its own file and the recorder's: no library,
no device, no configuration of the system."""

import os
import shutil
import subprocess

import pytest

from process_test import SCRIPT
from recorder import Recorder

CHROOT = [*([] if os.geteuid() == 0 else ["unshare", "--map-root-user"]), "/usr/sbin/chroot"]
RULE = '{"rule": {"event": [{"eventID": 536936448, "camera": [{"chIdx": 3}]}]}}'


@pytest.fixture
def recorder(bin_dir):
    with Recorder(bin_dir) as recorder:
        shutil.copy(recorder.program, recorder.state)
        yield recorder


def environment(recorder, **more):
    return {**os.environ, **recorder.environment(), "RULE_RECORDER_DIR": "/", **more}


def test_processes(recorder):
    subprocess.run([SCRIPT, "/rule_operation.cgi", *CHROOT, recorder.state],
                   env=environment(recorder), check=True)


def test_add_rule(recorder):
    recorder.start_service()
    request = environment(recorder, REQUEST_METHOD="POST", QUERY_STRING="func=addRule",
                          CONTENT_LENGTH=str(len(RULE)))
    output = subprocess.run([*CHROOT, recorder.state, "/rule_operation.cgi"], env=request,
                            input=RULE, capture_output=True, text=True, check=True).stdout
    assert '{ "ret_code": 0, "ret_mesg": "Add Rule successful" }' in output
