"""The configuration service over HTTP: what it answers, and its limits."""

import socket
import time

import pytest

from recorder import Recorder

SERVICE = ("127.0.0.1", 10141)
HOST = b" HTTP/1.1\r\nHost: 127.0.0.1:10141\r\n"
GET = b"GET /cfg/Schedule" + HOST
POST = b"POST /cfg/multicalls" + HOST
JSON = b"Content-Type: application/json\r\n"
CLOSE = b"Connection: close\r\n\r\n"
NO_PROGRAM = '-1811535359, "err_str": "not a request of a program here"}'


def with_head(size):
    return GET + b"X: %s\r\n" % (b"x" * (size - len(GET) - 5 - len(CLOSE))) + CLOSE


def with_body(size):
    return POST + JSON + b"Content-Length: %d\r\n" % size + CLOSE + b" " * size


REQUESTS = {
    "list": (GET + CLOSE, "200 OK", '0, "err_str": "", "content": [{"name": "_ALL_DAY_", "GUID": "5C4E'
             'D01E000000000000000000000001"}, {"name": "Working hours", "GUID": "5C4ED01E00000000000000'
             '0000000002"}, {"name": "Night", "GUID": "5C4ED01E000000000000000000000003"}]}'),
    "longest head": (with_head(8192), "200 OK", "_ALL_DAY_"),
    "head too long": (with_head(8300), "431 Request Header Fields Too Large",
                      '-1811535359, "err_str": "the header is too large"}'),
    "longest body": (with_body(65536), "200 OK", "not a JSON document"),
    "body too long": (with_body(65537), "413 Payload Too Large",
                      '-1811535359, "err_str": "the body is too large"}'),
    "not HTTP": (b"SSH-2.0\r\n\r\n", "400 Bad Request", '-1811535359, "err_str": "not HTTP: '),
    "other path": (b"GET /cfg/Rules" + HOST + CLOSE, "404 Not Found",
                   '-1811535358, "err_str": "there is nothing under this path"}'),
    "other method": (b"PUT /cfg/Rule" + HOST + CLOSE, "405 Method Not Allowed",
                     '-1811535357, "err_str": "this path takes only GET, DELETE"}'),
    "name of the machine": (GET.replace(b"127.0.0.1", b"localhost") + CLOSE, "403 Forbidden",
                            NO_PROGRAM),
    "page in a browser": (GET + b"Origin: null\r\n" + CLOSE, "403 Forbidden", NO_PROGRAM),
    "form in a browser": (POST + CLOSE, "403 Forbidden", NO_PROGRAM),
}


@pytest.fixture(scope="module")
def service(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start_service()
        yield recorder


def receive(connection, end=None):
    """What comes up to some text, or until the service closes the connection."""
    received = b""
    while end is None or end not in received:
        part = connection.recv(65536)
        if not part:
            break
        received += part
    return received.decode()


def exchange(request):
    with socket.create_connection(SERVICE, timeout=100) as connection:
        connection.sendall(request)
        return receive(connection)


@pytest.mark.parametrize("title", REQUESTS)
def test_request(service, title):
    request, status, text = REQUESTS[title]
    head, body = exchange(request).split("\r\n\r\n", 1)
    assert head.startswith(f"HTTP/1.1 {status}\r\n")
    assert "\r\nContent-Type: application/json\r\n" in head
    assert ("\r\nAllow: GET, DELETE" in head) == (title == "other method")
    assert text in body


def test_other_interfaces_are_not_served(service):
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", SERVICE[1]))


def test_silent_clients_keep_others_waiting_for_a_while_only(service):
    silent = [socket.create_connection(SERVICE, timeout=100) for _ in range(64)]
    for connection in silent * 2:
        connection.sendall(GET + b"\r\n")
        assert "Night" in receive(connection, b"]}")
    start = time.monotonic()
    assert "Night" in exchange(GET + CLOSE)
    assert 9 < time.monotonic() - start < 60
    for connection in silent:
        assert receive(connection) == ""
        connection.close()
