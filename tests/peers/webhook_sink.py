#!/usr/bin/python3
"""A webhook service that keeps what is posted to it. It prints "port N" once it listens.

Post number N (from 1, in order of arrival) leaves in --folder

  N.body   the body as it came
  N.json   method, path, headers (names in lower case), and in "parsed" whether the body is valid JSON

each complete as soon as it is there. With --count-only only "count", the number of posts, is kept.
Behaviours:

  normal    answers with --status
  redirect  answers 302 to another path of its own
  silent    reads the post and never answers
  reset     resets the connection as soon as it has accepted
"""
import argparse
import http.server
import json
import pathlib
import socket
import struct
import sys
import threading


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("content-length", "0")))
        self.server.keep(self, body)
        if self.server.options.behaviour == "silent":
            self.rfile.read(1)  # until the client leaves
            self.close_connection = True
            return
        redirect = self.server.options.behaviour == "redirect"
        answer = b"1"
        self.send_response(302 if redirect else self.server.options.status)
        if redirect:
            self.send_header("Location", "/elsewhere")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    do_GET = do_POST

    def log_message(self, *_):
        pass


class Sink(http.server.ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 128

    def __init__(self, options):
        super().__init__(("127.0.0.1", 0), Handler)
        self.options = options
        self.count = 0
        self.lock = threading.Lock()

    def get_request(self):
        connection, address = super().get_request()
        if self.options.behaviour == "reset":
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()
            raise OSError("reset")
        return connection, address

    def write(self, name, data):
        part = self.options.folder / (name + ".part")
        part.write_bytes(data)
        part.rename(self.options.folder / name)

    def keep(self, request, body):
        with self.lock:
            self.count += 1
            if self.options.count_only:
                self.write("count", b"%d\n" % self.count)
                return
            try:
                json.loads(body)
                parsed = True
            except ValueError:
                parsed = False
            record = {"method": request.command, "path": request.path, "parsed": parsed,
                      "headers": {name.lower(): value for name, value in request.headers.items()}}
            self.write(f"{self.count}.body", body)
            self.write(f"{self.count}.json", json.dumps(record).encode("ascii"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--folder", type=pathlib.Path, required=True)
    parser.add_argument("--behaviour", choices=["normal", "redirect", "silent", "reset"], default="normal")
    parser.add_argument("--status", type=int, default=200)
    parser.add_argument("--count-only", action="store_true")
    sink = Sink(parser.parse_args())
    print("port", sink.server_address[1], flush=True)
    sink.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
