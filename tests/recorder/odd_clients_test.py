"""Tests the host recorder's web server with clients that leave or fall silent, and with a full disk."""

import base64
import json
import select
import signal

from driver import Rule, RuleClient, stop, wait_until
from rule_client import read_entry

HEAD = """\
POST /rule?func=addRule HTTP/1.1\r
Host: recorder\r
Authorization: Basic {login}\r
Content-Length: {length}\r
{more}\r
"""


def send_head(connection, recorder, length, more=""):
    login = base64.b64encode(f"{recorder.user}:{recorder.password}".encode()).decode()
    connection.sendall(HEAD.format(login=login, length=length, more=more).encode())


def test_body_that_does_not_arrive_starts_no_program(recorder):
    with recorder.connect() as connection:
        send_head(connection, recorder, length=9)
        connection.sendall(b"{}")
        # The web server answers this request without a program, and only after the bytes before it.
        assert recorder.client.request("GET", ".bak").status == 404
        assert not recorder.running_programs()


def test_clients_gone_while_the_service_is_silent(recorder):
    """Both programs are waiting for the service when their clients go. The web server notices only the
    connection that is reset, and ends its program; the other program finishes."""
    bodies = [json.dumps(Rule(536936448, channel).document()).encode() for channel in (3, 4)]
    with recorder.connect() as leaving, recorder.connect() as resetting:
        recorder.service.send_signal(signal.SIGSTOP)
        send_head(leaving, recorder, len(bodies[0]))
        leaving.sendall(bodies[0])
        send_head(resetting, recorder, len(bodies[1]), "Expect: 100-continue\r\n")
        # Closing a connection resets it if a byte is unread, such as those of "100 Continue".
        assert select.select([resetting], [], [], 60)[0]
        resetting.sendall(bodies[1])
        # The web server can end a process only once it runs the program.
        assert wait_until(lambda: len(recorder.running_programs()) == 2 and
                          "lighttpd" not in recorder.running_programs())
    assert wait_until(lambda: len(recorder.running_programs()) == 1)
    recorder.service.send_signal(signal.SIGCONT)
    assert wait_until(lambda: not recorder.running_programs())
    assert [read_entry(listed).rule.channel for listed in recorder.client.list()] == [3]


def test_long_list_with_a_full_disk(recorder):
    for channel in 0, 1, 2, 4, 5, 6, 7, 10, 191:
        for event in 537264129, 537264130:
            recorder.client.add(Rule(event, channel, record=channel, name=3800 * "0"))
    # The web server can write 8 KiB to a file, and keeps some 64 KiB of an answer in memory.
    full_disk = ["env", "--ignore-signal=XFSZ", "prlimit", "--fsize=8192"]
    web, url = recorder.start_web_server(recorder.program, full_disk)
    client = RuleClient(url, recorder.user, recorder.password)
    answer = recorder.request("GET", client=client)
    assert len(answer.body) > 65536
    assert json.loads(answer.body)["ruleList"] == recorder.client.list()
    stop(web)
