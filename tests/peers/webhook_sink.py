#!/usr/bin/python3
"""A webhook service that keeps what is posted to it.

Post number N (from 1) leaves N.body, as it came, and N.json in --folder: method, path, headers (names in lower case)
and whether the body is valid JSON ("parsed"). "count" there says how many came; with --count-only that is all.
It answers --status with the body --answer; a status of 3xx names another path of its own.
"""
import http.server
import itertools
import json
import os
import pathlib
import threading

import peer

OPTIONS = peer.options(__doc__, folder=pathlib.Path(), count_only=False, status=200, answer="1")
NUMBERS = itertools.count(1)
ONE_AT_A_TIME = threading.Lock()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("content-length", "0")))
        with ONE_AT_A_TIME:
            keep(next(NUMBERS), self, body)
        answer = os.fsencode(OPTIONS.answer)
        self.send_response(OPTIONS.status)
        if OPTIONS.status // 100 == 3:
            self.send_header("Location", "/elsewhere")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    do_GET = do_POST

    def log_message(self, *_):
        pass


def keep(number, request, body):
    if not OPTIONS.count_only:
        try:
            parsed = json.loads(body) is not None
        except ValueError:
            parsed = False
        record = {"method": request.command, "path": request.path, "parsed": parsed,
                  "headers": {name.lower(): value for name, value in request.headers.items()}}
        peer.keep(OPTIONS.folder, f"{number}.body", body)
        peer.keep(OPTIONS.folder, f"{number}.json", json.dumps(record).encode("ascii"))
    peer.keep(OPTIONS.folder, "count", b"%d\n" % number)


server = http.server.ThreadingHTTPServer(None, Handler, bind_and_activate=False)
server.socket = peer.listen()
server.serve_forever()
