"""Tests the rule endpoint with the web servers of docs/web-servers.md, set up as that page says."""

import os
import pathlib
import re
import socket
import tempfile
import urllib.parse

import pytest

import check_recorder
from driver import PROJECT, SERVICE_URL, Rule, RuleClient, free_port, is_open, wait_until

PAGE = (PROJECT / "docs/web-servers.md").read_text()
PROGRAM = "/usr/libexec/rule_operation/rule_operation.cgi"
ADD = "?func=addRule"
# The other rows of the page's last table are a method and nothing else.
REQUESTS = {
    "PUT to `/some/path` after the address": ("PUT", "/some/path"),
    "GET of `.bak` after the address": ("GET", ".bak"),
    "GET with 8,192 bytes of query": ("GET", "?" + 8191 * "x"),
    "POST of `{}` in chunks": ("POST", ADD, (b"{", b"}")),
    "POST of 4,096 bytes": ("POST", ADD, b"{}".ljust(4096)),
    "POST of 70,000 bytes": ("POST", ADD, b"{}".ljust(70000)),
    "DELETE of `{}`": ("DELETE", "", b"{}"),
}
LIGHTTPD = """\
server.modules = ( "mod_access", "mod_alias", "mod_auth", "mod_cgi", "mod_setenv" )
server.bind = "127.0.0.1"
server.port = PORT
server.document-root = "STATE/www"
server.upload-dirs = ( "STATE" )
server.errorlog = "STATE/lighttpd.log"
setenv.set-environment = ( "RULE_RECORDER_DIR" => env.RULE_RECORDER_DIR )
LINES_OF_THE_PAGE
"""
APACHE_MODULES = ("mpm_event", "authn_core", "authn_file", "authz_core", "authz_user", "auth_basic",
                  "alias", "env", "cgid")
APACHE = "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n"
                 for name in APACHE_MODULES) + """\
ServerRoot STATE
DefaultRuntimeDir STATE
PidFile STATE/apache.pid
ErrorLog STATE/apache.log
Listen 127.0.0.1:PORT
PassEnv RULE_RECORDER_DIR
LINES_OF_THE_PAGE
"""
NGINX = """\
daemon off;
pid STATE/nginx.pid;
events {}
http {
    access_log off;
    client_body_temp_path STATE/nginx_files;
    fastcgi_temp_path STATE/nginx_files;
    proxy_temp_path STATE/nginx_files;
    scgi_temp_path STATE/nginx_files;
    uwsgi_temp_path STATE/nginx_files;
    server {
        listen 127.0.0.1:PORT;
        LINES_OF_THE_PAGE
    }
}
"""
# The configuration of each web server, its commands, and the path of the endpoint.
SERVERS = {
    "lighttpd": (LIGHTTPD, ["lighttpd -D -f STATE/configuration"], "/rule"),
    "Apache": (APACHE, ["apache2 -DFOREGROUND -f STATE/configuration"], "/rule"),
    "nginx": (NGINX, ["fcgiwrap -s unix:STATE/fcgiwrap.socket",
                      "nginx -e STATE/nginx.log -c STATE/configuration"], "/rule"),
    "BusyBox": ("LINES_OF_THE_PAGE",
                ["busybox httpd -f -p 127.0.0.1:PORT -h STATE/www -c STATE/configuration"],
                "/cgi-bin/rule"),
}
# Apache does not serve as root. This other user may still read and write root's files.
OTHER_USER = ["setpriv", "--reuid=1", "--regid=1", "--clear-groups", "--pdeathsig", "TERM",
              "--inh-caps=+dac_override", "--ambient-caps=+dac_override"]


def listens(path):
    with socket.socket(socket.AF_UNIX) as probe:
        return probe.connect_ex(str(path)) == 0


def lines_of_the_page(name, trusting):
    """Returns the lines of the page for a platform that trusts the web server, or for one that does not."""
    lines, *more = re.findall(rf"^```{name.lower()}\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)
    if not trusting or not more:
        return lines
    is_inside = more[0].startswith(" ")
    return lines.removesuffix("}\n") + more[0] + "}\n" if is_inside else lines + more[0]


def trusting_program(recorder):
    return recorder.program.parent / "whole_device" / recorder.program.name


def start_web_server(name, trusting, program, recorder):
    """Starts the web server, which ends with the recorder. Returns the address of the endpoint."""
    port = free_port(None)
    state = pathlib.Path(tempfile.mkdtemp(dir=recorder.state))
    (state / "www/cgi-bin").mkdir(parents=True)
    (state / "www/cgi-bin/rule").symlink_to(program)
    (state / "rule_endpoint.conf").write_text(
        f'var.rule_program = "{program}"\n' +
        (PROJECT / "host/web_server/rule_endpoint.conf").read_text())
    values = {"LINES_OF_THE_PAGE": lines_of_the_page(name, trusting), "STATE": state,
              "PORT": port, "PASSWORD": recorder.password, PROGRAM: program,
              "/usr/share/rule_operation/lighttpd.conf": state / "rule_endpoint.conf",
              "/etc/rule_operation/users": recorder.state / "users",
              "/run/fcgiwrap.socket": state / "fcgiwrap.socket",
              r"recorder\.example": rf"127\.0\.0\.1:{port}", "recorder.example": f"127.0.0.1:{port}"}

    def own(text):
        for placeholder, value in values.items():
            text = text.replace(placeholder, str(value))
        return text

    configuration, commands, path = SERVERS[name]
    (state / "configuration").write_text(own(configuration))
    for command in commands:
        recorder.start_process(
            *(OTHER_USER if os.geteuid() == 0 and name != "lighttpd" else []), *own(command).split(),
            env={"RULE_RECORDER_DIR": recorder.state if program == recorder.program else state,
                 "PATH": os.environ["PATH"] + ":/usr/sbin"})
    # nginx listens whether or not fcgiwrap does.
    assert wait_until(lambda: is_open(port) and
                      (name != "nginx" or listens(state / "fcgiwrap.socket")))
    return f"http://127.0.0.1:{port}{path}"


def outcome(answer):
    code = re.match(rb'\{ "ret_code": (-?\d+)', answer.body)
    return code[1].decode() if code else str(answer.status)


def check_every_row(url, recorder, trusting, *options):
    """Runs client/check_recorder.py with all of its options; returns its exit status."""
    if not trusting:
        options += ("--service", SERVICE_URL, "--stop-service", f"kill -STOP {recorder.service.pid}",
                    "--start-service", f"kill -CONT {recorder.service.pid}")
    return check_recorder.main([
        "--url", url, "--user", f"{recorder.user}:{recorder.password}", "--channel", "0",
        "--free-channel", "9", "--record", "191", "--schedule",
        f"{'5EDC' if trusting else '5C4ED01E':0<31}2", *options])


@pytest.mark.parametrize("name, trusting", [
    (name, trusting) for name in SERVERS for trusting in (False, True) if trusting or name != "BusyBox"])
def test_web_server(name, trusting, recorder, capsys):
    """The host's platform checks credentials itself; the platform of the whole device trusts the web server.
    The host recorder itself is lighttpd with the host's platform."""
    is_own = name == "lighttpd" and not trusting
    program = trusting_program(recorder) if trusting else recorder.program
    url = recorder.url if is_own else start_web_server(name, trusting, program, recorder)
    client = RuleClient(url, recorder.user, recorder.password)
    origin = {"Origin": "http://" + urllib.parse.urlsplit(url).netloc}
    table = PAGE.partition("## What each of them answers")[2]
    rows = [line.strip("| ").split(" | ") for line in table.splitlines() if line.startswith("| ")]
    column = rows[0].index(name)
    log = recorder.state / "rule.log"
    log.write_text("")
    for row in rows[1:]:
        title, expected = row[0], row[column]
        answer = client.request(*REQUESTS.get(title, title.split()[:1]),
                                headers=origin if "origin" in title else None)
        assert (title, outcome(answer)) == (title, expected)
    if not trusting:
        assert "PathInfo = /some/path\n" in log.read_text()
    status = check_every_row(url, recorder, trusting, "--quick")
    failed = re.findall(r"^failed +(\S+)", capsys.readouterr().out, re.MULTILINE)
    if name == "BusyBox":
        assert failed == ["other-origin", "body-of-deletion"]
        assert client.add(Rule(event=536936448, channel=3))
        assert len(client.list()) == 1
    else:
        assert (failed, status) == ([], 0)


@pytest.mark.slow
def test_every_row(recorder):
    assert check_every_row(recorder.url, recorder, False) == 0


@pytest.mark.parametrize("name", ["lighttpd", "Apache", "nginx"])
def test_unchecked_name_is_not_passed_on(name, recorder):
    url = start_web_server(name, False, trusting_program(recorder), recorder)
    client = RuleClient(url, recorder.user, recorder.password)
    assert outcome(client.request("PUT")) == "-2"
