"""The rule endpoint with the web servers of docs/web-servers.md, set up as that page says."""

import json
import os
import re

import pytest

from recorder import PROJECT, Rule, RuleClient, free_port, is_open, stop, wait_until

PROGRAM = "/usr/libexec/rule_operation/rule_operation.cgi"
PAGE = (PROJECT / "docs/web-servers.md").read_text()
ADD = "?func=addRule"
# Reads and writes root's files nevertheless.
AS_OTHER_USER = ["setpriv", "--reuid=1", "--regid=1", "--clear-groups", "--pdeathsig", "TERM",
                 "--inh-caps=+dac_override", "--ambient-caps=+dac_override"]
REQUESTS = {
    "PUT": ("PUT",),
    "PUT to `/some/path` after the address": ("PUT", "/some/path"),
    "GET of `.bak` after the address": ("GET", ".bak"),
    "PUT without credentials": ("PUT",),
    "PATCH": ("PATCH",),
    "FOO": ("FOO",),
    "get": ("get",),
    "POST of `{}`": ("POST", ADD, b"{}"),
    "POST of `{}` in chunks": ("POST", ADD, (b"{", b"}")),
    "POST of 4,095 bytes": ("POST", ADD, b"{}".ljust(4095)),
    "POST of 4,096 bytes": ("POST", ADD, b"{}".ljust(4096)),
    "POST of 70,000 bytes": ("POST", ADD, b"{}".ljust(70000)),
    "DELETE of `{}`": ("DELETE", "", b"{}"),
}
APACHE = """\
ServerRoot {state}
PidFile {state}/apache.pid
ScriptSock {state}/cgid.socket
ErrorLog {state}/apache.log
Listen 127.0.0.1:{port}
ServerName recorder
PassEnv RULE_RECORDER_DIR
"""
APACHE_MODULE = "LoadModule {0}_module /usr/lib/apache2/modules/mod_{0}.so\n"
NGINX = """\
daemon off;
pid {state}/nginx.pid;
events {{}}
http {{
    access_log off;
    {directories}
    server {{
        listen 127.0.0.1:{port};
"""
# Platforms of devices take the name from REMOTE_USER, which the host's does not.
BUSYBOX_PROGRAM = """\
#!/bin/sh
[ -z "$REMOTE_USER" ] || export HTTP_AUTHORIZATION='{login}'
exec '{program}'
"""


def lines_of_the_page(language, replacements):
    (lines,) = re.findall(rf"^```{language}\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)
    for old, new in replacements.items():
        assert old in lines
        lines = lines.replace(old, str(new))
    return lines


def write_file(path, text):
    path.write_text(text)
    return path


# Each returns the commands that start the web server, and the path of the endpoint.


def apache(recorder, port):
    text = "".join(map(APACHE_MODULE.format, ("mpm_event", "authz_core", "alias", "env", "cgid")))
    text += APACHE.format(state=recorder.state, port=port)
    text += lines_of_the_page("apache", {PROGRAM: recorder.program})
    return [["apache2", "-DFOREGROUND", "-f", write_file(recorder.state / "apache", text)]], "/rule"


def nginx(recorder, port):
    socket = f"unix:{recorder.state}/fcgiwrap.socket"
    directories = " ".join(f"{name}_temp_path {recorder.state}/nginx;" for name in
                           ("client_body", "fastcgi", "proxy", "scgi", "uwsgi"))
    text = NGINX.format(state=recorder.state, port=port, directories=directories)
    text += lines_of_the_page("nginx", {PROGRAM: recorder.program,
                                        "unix:/run/fcgiwrap.socket": socket}) + "}}\n"
    return [["fcgiwrap", "-s", socket],
            ["nginx", "-e", recorder.state / "nginx.log",
             "-c", write_file(recorder.state / "nginx", text)]], "/rule"


def busybox(recorder, port):
    text = lines_of_the_page("busybox", {"PASSWORD": recorder.password})
    files = recorder.state / "busybox"
    (files / "cgi-bin").mkdir(parents=True, exist_ok=True)
    login = recorder.environment()["HTTP_AUTHORIZATION"]
    write_file(files / "cgi-bin/rule", BUSYBOX_PROGRAM.format(
        login=login, program=recorder.program)).chmod(0o755)
    return [["busybox", "httpd", "-f", "-p", f"127.0.0.1:{port}", "-h", files,
             "-c", write_file(recorder.state / "httpd.conf", text)]], "/cgi-bin/rule"


@pytest.fixture(params=["lighttpd", apache, nginx, busybox],
                ids=["lighttpd", "Apache", "nginx", "BusyBox"])
def client(request, recorder):
    """A client of the endpoint with that web server."""
    if request.param == "lighttpd":
        yield recorder.client
        return
    port = free_port(None)
    commands, path = request.param(recorder, port)
    # Apache does not serve as root.
    other_user = AS_OTHER_USER if os.geteuid() == 0 else []
    environment = {"RULE_RECORDER_DIR": recorder.state, "PATH": os.environ["PATH"] + ":/usr/sbin"}
    processes = [recorder.start_process(*other_user, *command, env=environment) for command in commands]
    assert wait_until(lambda: is_open(port))
    yield RuleClient(f"http://127.0.0.1:{port}{path}", recorder.user, recorder.password)
    for process in processes:
        stop(process)


def outcome(answer):
    try:
        return str(json.loads(answer.body)["ret_code"])
    except (KeyError, TypeError, ValueError):
        return str(answer.status)


def test_web_server(client, recorder, request):
    rows = [line.strip("| ").split(" | ") for line in PAGE.splitlines() if line.startswith("| ")]
    column = rows[0].index(request.node.callspec.id)
    assert {row[0] for row in rows[1:]} == set(REQUESTS)
    stranger = RuleClient(client.url)
    log = write_file(recorder.state / "rule.log", "")
    for row in rows[1:]:
        asking = stranger if "without" in row[0] else client
        assert (row[0], outcome(asking.request(*REQUESTS[row[0]]))) == (row[0], row[column])
    assert client.add(Rule(event=536936448, channel=3))
    assert client.list() == recorder.client.list()
    assert "PathInfo = /some/path\n" in log.read_text()
