"""Tests the command check_recorder.py: each of its rows fails for a recorder with one fault."""

import contextlib
import http.client
import os
import re
import signal
import socket
import threading
import urllib.parse
from typing import NamedTuple
from xml.etree import ElementTree

import pytest

import check_recorder
from driver import PROJECT, Rule

NIGHT = "5C4ED01E000000000000000000000003"
CLASH = '400 Bad Request\r\n\r\n{ "ret_code": -221, "ret_mesg": "Error add rule multicall reply fail" }'


class Fault(NamedTuple):
    """A change that the proxy makes: it replaces `answer` by `new` if the request matches `request` and the
    previous answer matches `after`."""

    row: str  # the only row that fails
    request: str
    answer: str
    new: str
    after: str = ""
    end: bytes = b""  # sent to the server at the end of the client's bytes


FAULTS = [
    Fault("no-credentials", "PUT(?!.*Authorization)", "401 .*", "200 OK\r\n\r\nnull"),
    Fault("wrong-password", "PUT.*Authorization", "401 .*", "200 OK\r\n\r\nnull"),
    Fault("other-origin", "PUT.*Origin", "403 .*", "200 OK\r\n\r\nnull"),
    Fault("put", "PUT", "200 OK", "202 Accepted"),
    Fault("unknown-method", "PATCH", "200 .*", "405 No\r\n\r\n"),
    Fault("head", "HEAD", "200 OK", "400 Bad Request"),
    Fault("headers", "PUT", "application/json", "text/html"),
    Fault("headers", "PUT", "null\n\n", "null\n"),
    Fault("headers", "PUT", "\r\n\r\n", "\r\nAccess-Control-Allow-Origin: *\r\n\r\n"),
    Fault("headers", "PUT", "\r\n\r\n", "\r\nStatus: 200 OK\r\n\r\n"),
    Fault("listing", "GET /rule", r"\[ ?\]", "{ }"),
    Fault("listing", "GET /rule", "\r\n\r\n", "\r\nContent-Length: 99\r\n\r\n"),
    Fault("listing", "GET /rule", "[{].*", 9999 * "["),
    Fault("func-missing", "POST /rule HTTP", r"-290, .*", '-291, "ret_mesg": "content data is NULL" }'),
    Fault("func-encoded", "POST.*%52", "-102", "-292"),
    Fault("func-unknown", "addrule", "=.addrule", "=[addRule"),
    Fault("body-empty", "addrule.*Length: 0", "-291", "-292"),
    Fault("body-longest", "Length: 4095", "-102", "-291"),
    Fault("body-too-long", "Length: 4096", "-291", "-102"),
    Fault("body-in-chunks", "chunked", "400 Bad Request", "500 Internal Server Error"),
    Fault("body-of-deletion", "DELETE.*{}", "-302", "-300"),
    Fault("body-cut-off", "", "", "", end=b"}"),
    Fault("not-json", "\r\n\r\n{$", "-101", "-102"),
    Fault("deep-json", '{"":', "400 .*", "500 Internal Server Error\r\n\r\n<html>"),
    Fault("channel-without-camera", "", "-200", "0"),
    Fault("recording-without-camera", "", "-211", "-200"),
    Fault("schedule-unknown", "", "=-104", "=-101"),
    Fault("deletion", 'DELETE.*"3', "200 .*", '400 No\r\n\r\n{ "ret_code": -306 }'),
    Fault("duplicate", "", "-911", "0"),
    Fault("entry-in-list", "GET", '"name": "clientRule",', ""),
    Fault("entry-in-list", "GET", '"EventID": "536936448"', '"EventID": 536936448'),
    Fault("entry-in-list", "GET", '"CreationMethod": "quick"', '"CreationMethod": "slow"'),
    Fault("entry-in-list", "GET", '("clientRule".*"TimeProfile": )"5C.{29}1"', r"\1null"),
    Fault("alarm-input", "GET", '00101A"', '001026"'),
    Fault("recording", "GET", '("actpf0": ".{28})00BF', r"\g<1>0191"),
    Fault("schedule-given", "GET", NIGHT, NIGHT[:-1] + "1"),
    Fault("two-clients", '"one of two"', "200 .*", "503 Service Unavailable\r\n\r\n"),
    Fault("name-with-marks", "GET", r"<\\?/name>", "&lt;/name>"),
    Fault("name-with-controls", "GET", r"\\u001f", ""),
    Fault("name-in-utf8", "GET", "\U0010ffff", "?"),
    Fault("several-events", "GET", '"537264130"', '"537264129"'),
    Fault("clock", "537264131", "[24]00 .*", CLASH),
    Fault("service-schedules", "/cfg/Schedule", '"GUID"', '"guid"'),
    Fault("service-lists-at-once", "GET /rule", '"(3{10}).{4}', r'"\g<1>0000', after="err_code"),
    Fault("service-multicall", "multicalls", '"err_code": -.*,', '"err_code": 0,'),
    Fault("service-multicall", "multicalls", '"err_code": 0', '"err_code": -1', after="already in use"),
    Fault("service-deletion", "DELETE /cfg", "-1811535318", "-1"),
    Fault("service-deletion", "multicalls", '"err_code": 0', '"err_code": -1', after="-1811535318"),
]
SLOW_FAULTS = [
    Fault("body-that-stops", "", "", ""),
    Fault("same-rule-again", "POST", "200 .*", CLASH),
    Fault("service-stands-still", "", "", ""),
]


class Proxy:
    """Passes requests and answers on, and changes the answers as its fault says."""

    def __init__(self):
        self.fault = Fault("", "", "", "")
        self.before = ""  # the last answer
        self.on_request = lambda request: None

    @contextlib.contextmanager
    def listen(self, port):
        """Listens in front of a port of this machine. Yields the port to connect to."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            threading.Thread(target=self._accept, args=(listener, port), daemon=True).start()
            yield listener.getsockname()[1]
            listener.shutdown(socket.SHUT_RDWR)

    def _accept(self, listener, port):
        with contextlib.suppress(OSError):
            while True:
                client = listener.accept()[0]
                threading.Thread(target=self._serve, args=(client, port), daemon=True).start()

    def _serve(self, client, port):
        with client, socket.create_connection(("127.0.0.1", port)) as server:
            with contextlib.suppress(OSError, http.client.HTTPException):
                client.sendall(self._answer(client, server).encode())
            with contextlib.suppress(OSError):
                client.shutdown(socket.SHUT_RDWR)  # closing would wait for the other thread

    def _answer(self, client, server):
        is_head = client.recv(4, socket.MSG_PEEK) == b"HEAD"
        request = bytearray()
        threading.Thread(target=self._pass_on, args=(client, server, request), daemon=True).start()
        response = http.client.HTTPResponse(server, method="HEAD" if is_head else None)
        response.begin()
        answer = f"HTTP/1.1 {response.status} {response.reason}\r\n" + "".join(
            f"{name}: {value}\r\n" for name, value in response.getheaders()
            if name not in ("Transfer-Encoding", "Content-Length"))
        return self._change(request.decode(), answer + "\r\n" + response.read().decode())

    def _pass_on(self, client, server, request):
        with contextlib.suppress(OSError):
            while data := client.recv(65536):
                request += data
                # The service answers only requests with its own address.
                address = b"Host: 127.0.0.1:%d" % server.getpeername()[1]
                server.sendall(re.sub(rb"Host: [^\r]+", address, data))
            server.sendall(self.fault.end)
            server.shutdown(socket.SHUT_WR)

    def _change(self, request, answer):
        fault = self.fault
        self.on_request(request)
        fits = (re.search(fault.request, request, re.DOTALL)
                and re.search(fault.after, self.before, re.DOTALL))
        self.before = answer
        return re.sub(fault.answer, fault.new, answer, flags=re.DOTALL) if fits else answer


@pytest.fixture
def proxy(recorder, monkeypatch):
    """The proxy in front of the web server and the service. Its `check(ARGUMENT...)` runs the command on both
    and returns the exit status."""
    monkeypatch.setattr(check_recorder, "EVENTS", check_recorder.EVENTS[:4])
    proxy = Proxy()
    port = urllib.parse.urlsplit(recorder.url).port
    with proxy.listen(port) as web, proxy.listen(10141) as service:
        proxy.check = lambda *arguments: check_recorder.main([
            "--url", f"http://127.0.0.1:{web}/rule", "--user", f"{recorder.user}:{recorder.password}",
            "--channel", "10", "--free-channel", "9", "--record", "191", "--schedule", NIGHT,
            "--service", f"http://127.0.0.1:{service}",
            "--stop-service", f"kill -STOP {recorder.service.pid}",
            "--start-service", f"kill -CONT {recorder.service.pid}", *arguments])
        yield proxy


def failed_rows(output):
    return re.findall(r"^failed +(\S+)", output, re.MULTILINE)


def test_every_row_has_a_fault_and_a_heading():
    assert {each.name for each in check_recorder.ROWS} == {fault.row for fault in FAULTS + SLOW_FAULTS}
    for page, heading in (each.page.split("#") for each in check_recorder.ROWS):
        headings = re.findall("^#+ (.*)", (PROJECT / page).read_text(), re.MULTILINE)
        assert heading in [title.lower().replace(" ", "-") for title in headings]


def test_sound_recorder(proxy, recorder, tmp_path):
    assert proxy.check("--quick", "--junit", str(tmp_path / "results")) == 0
    cases = ElementTree.parse(tmp_path / "results").findall("testcase")
    assert [case.get("name") for case in cases if not len(case)] == [
        each.name for each in check_recorder.ROWS if not each.slow]
    assert not recorder.client.list()


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.row)
def test_fault(proxy, recorder, capsys, fault):
    proxy.fault = fault
    assert proxy.check("--quick") == 1
    assert failed_rows(capsys.readouterr().out) == [fault.row]
    assert not recorder.client.list()


@pytest.mark.parametrize("fault", SLOW_FAULTS, ids=lambda fault: fault.row)
def test_fault_in_a_slow_row(proxy, recorder, capsys, monkeypatch, fault):
    """With a shorter time limit, the rows without a fault of their own fail because they take too long."""
    monkeypatch.setattr(check_recorder, "ROWS",
                        [each._replace(seconds=0.5) for each in check_recorder.ROWS])
    proxy.fault = fault
    assert proxy.check(fault.row) == 1
    assert failed_rows(capsys.readouterr().out) == [fault.row]
    assert not recorder.client.list()


def test_interrupted(proxy, recorder):
    def interrupt(request):
        if "eventID" in request:
            os.kill(os.getpid(), signal.SIGTERM)

    proxy.on_request = interrupt
    assert proxy.check("several-events") == 130
    assert not recorder.client.list()


def test_what_cannot_be_deleted_is_named(proxy, capsys):
    guid = f"{10 * '3'}{18 * '0'}000A"
    proxy.fault = Fault("", "GET", r"\[ ?\]", f'[ {{ "GUID": "{guid}" }} ]', after="Delete Rule")
    assert proxy.check("duplicate", "alarm-input") == 1
    output = capsys.readouterr()
    assert f"could not be deleted: {guid}" in output.err
    assert "1 passed, 0 failed, 1 skipped" in output.out


@pytest.mark.parametrize("rule", [Rule(536936448, 10), Rule(536936448, 3, record=191)])
def test_channel_in_use(proxy, recorder, rule):
    recorder.client.add(rule)
    assert proxy.check("duplicate") == 2
    assert len(recorder.client.list()) == 1


def test_missing_options(recorder, capsys, monkeypatch):
    monkeypatch.setenv("RULE_URL", recorder.url)
    assert check_recorder.main(["no-credentials", "recording-without-camera"]) == 0
    assert re.findall("\\((.*)\\)", capsys.readouterr().out) == [
        "needs --user", "needs --channel, --free-channel"]
