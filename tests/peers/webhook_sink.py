#!/usr/bin/python3
"""A webhook service that keeps what is posted to it.

Post number N (from 1) leaves N.body, as it came, and N.json in --folder: method, path, headers (names in lower case)
and whether the body is valid JSON ("parsed"). "count" there says how many came; with --count-only that is all.
It answers --status with the body --answer; a status of 3xx names another path of its own.
"""
import http.server
import json
import os
import pathlib
import threading

import peer

OPTIONS = peer.options(__doc__, folder=pathlib.Path(), count_only=False, status=200, answer="1")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        self.server.keep(self, self.rfile.read(int(self.headers.get("content-length", "0"))))
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


class Sink(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self):
        super().__init__(None, Handler, bind_and_activate=False)
        self.socket.close()
        self.socket = peer.listen()
        self.count = 0
        self.lock = threading.Lock()

    def keep(self, request, body):
        with self.lock:
            self.count += 1
            if not OPTIONS.count_only:
                try:
                    parsed = json.loads(body) is not None
                except ValueError:
                    parsed = False
                record = {"method": request.command, "path": request.path, "parsed": parsed,
                          "headers": {name.lower(): value for name, value in request.headers.items()}}
                peer.keep(OPTIONS.folder, f"{self.count}.body", body)
                peer.keep(OPTIONS.folder, f"{self.count}.json", json.dumps(record).encode("ascii"))
            peer.keep(OPTIONS.folder, "count", b"%d\n" % self.count)


Sink().serve_forever()
