"""The rule endpoint with the web servers of docs/web-servers.md, set up as that page says."""

import os
import re
import socket

import pytest

from driver import PROJECT, Rule, RuleClient, free_port, is_open, wait_until

PAGE = (PROJECT / "docs/web-servers.md").read_text()
PROGRAM = "/usr/libexec/rule_operation/rule_operation.cgi"
ADD = "?func=addRule"
# The others have nothing but a method.
REQUESTS = {
    "PUT to `/some/path` after the address": ("PUT", "/some/path"),
    "GET of `.bak` after the address": ("GET", ".bak"),
    "GET with 8,192 bytes of query": ("GET", "?" + 8191 * "x"),
    "PUT without credentials": ("PUT",),
    "POST of `{}`": ("POST", ADD, b"{}"),
    "POST of `{}` in chunks": ("POST", ADD, (b"{", b"}")),
    "POST of 4,095 bytes": ("POST", ADD, b"{}".ljust(4095)),
    "POST of 4,096 bytes": ("POST", ADD, b"{}".ljust(4096)),
    "POST of 70,000 bytes": ("POST", ADD, b"{}".ljust(70000)),
    "DELETE of `{}`": ("DELETE", "", b"{}"),
}
APACHE_MODULES = ("mpm_event", "authz_core", "alias", "env", "cgid")
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
# The configuration, the commands and the path of the endpoint.
SERVERS = {
    "Apache": (APACHE, ["apache2 -DFOREGROUND -f STATE/configuration"], "/rule"),
    "nginx": (NGINX, ["env -u HTTP_AUTHORIZATION fcgiwrap -s unix:STATE/fcgiwrap.socket",
                      "nginx -e STATE/nginx.log -c STATE/configuration"], "/rule"),
    "BusyBox": ("LINES_OF_THE_PAGE",
                ["busybox httpd -f -p 127.0.0.1:PORT -h STATE/www -c STATE/configuration"],
                "/cgi-bin/rule"),
}
# Apache does not serve as root. This user reads and writes root's files nevertheless.
OTHER_USER = ["setpriv", "--reuid=1", "--regid=1", "--clear-groups", "--pdeathsig", "TERM",
              "--inh-caps=+dac_override", "--ambient-caps=+dac_override"]


def listens(path):
    with socket.socket(socket.AF_UNIX) as probe:
        return probe.connect_ex(str(path)) == 0


def start_web_server(name, recorder):
    """Starts the web server until the recorder's end; returns the address of the endpoint."""
    port = free_port(None)
    lines = re.search(rf"^```{name.lower()}\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)[1]
    values = {"LINES_OF_THE_PAGE": lines, "STATE": recorder.state, "PORT": port,
              "PASSWORD": recorder.password, PROGRAM: recorder.program,
              "/run/fcgiwrap.socket": recorder.state / "fcgiwrap.socket"}

    def own(text):
        for placeholder, value in values.items():
            text = text.replace(placeholder, str(value))
        return text

    configuration, commands, path = SERVERS[name]
    (recorder.state / "configuration").write_text(own(configuration))
    # BusyBox does not pass credentials on, but its environment; fcgiwrap would pass both. The host's
    # platform finds them there, those of devices take the name from REMOTE_USER.
    environment = {**recorder.environment(), "PATH": os.environ["PATH"] + ":/usr/sbin"}
    if name == "BusyBox":
        (recorder.state / "www/cgi-bin").mkdir()
        (recorder.state / "www/cgi-bin/rule").symlink_to(recorder.program)
    for command in commands:
        recorder.start_process(*(OTHER_USER if os.geteuid() == 0 else []), *own(command).split(),
                               env=environment)
    # nginx does not wait for fcgiwrap.
    assert wait_until(lambda: is_open(port) and
                      (name != "nginx" or listens(recorder.state / "fcgiwrap.socket")))
    return f"http://127.0.0.1:{port}{path}"


def outcome(answer):
    code = re.match(rb'\{ "ret_code": (-?\d+)', answer.body)
    return code[1].decode() if code else str(answer.status)


@pytest.mark.parametrize("name", ["lighttpd", *SERVERS])
def test_web_server(name, recorder):
    url = start_web_server(name, recorder) if name in SERVERS else recorder.url
    client = RuleClient(url, recorder.user, recorder.password)
    rows = [line.strip("| ").split(" | ") for line in PAGE.splitlines() if line.startswith("| ")]
    column = rows[0].index(name)
    log = recorder.state / "rule.log"
    log.write_text("")
    for row in rows[1:]:
        asking = RuleClient(url) if "without" in row[0] else client
        assert (row[0], outcome(asking.request(*REQUESTS.get(row[0], row[:1])))) == (row[0], row[column])
    assert client.add(Rule(event=536936448, channel=3))
    assert client.list() == recorder.client.list()
    assert "PathInfo = /some/path\n" in log.read_text()
