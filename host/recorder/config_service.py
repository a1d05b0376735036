"""The configuration service of the host recorder, which docs/config-service.md describes."""

import argparse
import json
import logging
import os
import signal
import sqlite3
import sys
import urllib.parse

import waitress

from rule_database import RuleDatabase
from rule_nodes import Code, Refusal, read_multicall

ADDRESS = "127.0.0.1"
PORT = 10141

# One thread carries out all operations, so that none sees another one's unfinished changes. A reply stays in
# memory until its client has read it, and keeps no other client waiting.
SETTINGS = {
    "host": ADDRESS,
    "port": PORT,
    "threads": 1,
    "connection_limit": 64 + 2,  # two are the server's own
    "channel_timeout": 10,
    "cleanup_interval": 1,
    "max_request_header_size": 8192 + 1,
    "max_request_body_size": 65536 + 1,
    "outbuf_overflow": 2**30,
    "outbuf_high_watermark": 2**30,
}


def success(**content):
    return json.dumps({"err_code": 0, "err_str": "", **content}, ensure_ascii=False)


def error(code, text):
    return json.dumps({"err_code": code - 2**32, "err_str": text}, ensure_ascii=False)


def as_rule_node(node):
    """Returns the node in the form of a multicall's ruleNode."""
    members = {"name": node.name, "isGroup": False, "description": node.description,
               "GUID": node.guid, "type": node.type, "active": bool(node.active),
               "content": node.content}
    return members if node.event_id is None else {**members, "EventID": node.event_id}


def create_nodes(database, request):
    database.add(read_multicall(request["wsgi.input"].read()))
    return success()


def delete_rule(database, request):
    query = urllib.parse.parse_qs(request["QUERY_STRING"], keep_blank_values=True)
    if "GUID" not in query:
        raise Refusal(Code.MISSING_GUID, "the query has no parameter GUID")
    database.delete_rule(query["GUID"][0])
    return success()


OPERATIONS = {
    "/cfg/Schedule": {"GET": lambda database, _: success(content=database.schedules())},
    "/cfg/Rule": {"GET": lambda database, _: success(content=[*map(as_rule_node, database.nodes())]),
                  "DELETE": delete_rule},
    "/cfg/multicalls": {"POST": create_nodes},
    "/host/ruleList": {"GET": lambda database, _: database.rule_list()},
}


def is_from_program(request):
    """Whether a program sent the request, and not a page in a browser on this machine: a page sends its
    origin, cannot send JSON without permission, and can only reach this address by another name."""
    return (request.get("HTTP_HOST") == f"{ADDRESS}:{PORT}" and "HTTP_ORIGIN" not in request and
            (request["REQUEST_METHOD"] != "POST" or
             request.get("CONTENT_TYPE") == "application/json"))


def respond(database, request):
    """Returns the status, the additional headers and the text of the reply."""
    operations = OPERATIONS.get(request["PATH_INFO"])
    if not is_from_program(request):
        return "403 Forbidden", [], error(Code.BAD_HTTP_REQUEST, "not a request of a program here")
    if operations is None:
        return "404 Not Found", [], error(Code.UNKNOWN_PATH, "there is nothing under this path")
    operation = operations.get(request["REQUEST_METHOD"])
    if operation is None:
        allowed = ", ".join(operations)
        return ("405 Method Not Allowed", [("Allow", allowed)],
                error(Code.WRONG_METHOD, f"this path takes only {allowed}"))
    try:
        return "200 OK", [], operation(database, request)
    except Refusal as refusal:
        return "200 OK", [], error(refusal.code, str(refusal))
    except sqlite3.Error as failure:
        if database.is_stuck(failure):
            print(f"the database cannot go on: {failure}", file=sys.stderr, flush=True)
            os._exit(1)
        return "200 OK", [], error(Code.DATABASE_FAILURE, f"database: {failure}")


def make_application(database):
    def application(request, start_response):
        status, headers, text = respond(database, request)
        body = b"" if request["REQUEST_METHOD"] == "HEAD" else text.encode()
        start_response(status, [("Content-Type", "application/json"), *headers])
        return [body]

    return application


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--database", required=True, metavar="FILE")
    file = parser.parse_args().database
    os.umask(0o077)
    logging.getLogger("waitress").setLevel(logging.ERROR)  # it warns of clients that wait or leave
    try:
        database = RuleDatabase(file)
    except (sqlite3.Error, OSError, ValueError, Refusal) as failure:
        sys.exit(f"config_service: {file}: {failure}")
    try:
        server = waitress.create_server(make_application(database), **SETTINGS)
    except OSError as failure:
        sys.exit(f"config_service: port {PORT} of {ADDRESS}: {failure.strerror}")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    print(f"configuration service listening on {ADDRESS}:{PORT}", flush=True)
    server.run()


if __name__ == "__main__":
    main()
