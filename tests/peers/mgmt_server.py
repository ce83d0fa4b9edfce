#!/usr/bin/python3
"""A management server that follows a script and records every frame it gets.

It prints "port N" once it listens. Each connection follows one behaviour of the list (the last one repeats):

  normal          acknowledges the open frame and the data frame
  wrong-word      answers the open frame with a word that is no acknowledgement
  wrong-data      acknowledges the open frame, answers the data frame with a wrong word
  silent          reads, and never answers
  silent-data     acknowledges the open frame, never answers the data frame
  announce-close  announces a body of 999999 bytes and closes
  half-header     sends ten bytes of a header and closes
  percent         answers the open frame with bytes that printf would take for conversions, and closes
  slow            as normal, but sends its replies byte by byte (--interval seconds apart)
  garbage         answers with 4 KiB of arbitrary bytes (the same in every run) and closes
  close           closes as soon as it has accepted

Records are JSON lines: "accept", "frame" (header and body as read by the header's length, and in "extra" the
uncounted bytes that followed), "end" (what else arrived, and how the connection ended). Texts are latin-1 with
control characters escaped; "hex" holds the same bytes exactly. "time" is seconds since the epoch.
"""
import argparse
import json
import random
import select
import socket
import sys
import threading
import time

HEADER = 16
ALARM_PAD = 8  # zero bytes that follow an alarm frame without being counted in its header


class Gone(Exception):
    """The peer ended or reset the connection."""


class Recorder:
    def __init__(self, path):
        self._lock = threading.Lock()
        self._out = open(path, "a", encoding="ascii") if path else None

    def write(self, event, **fields):
        with self._lock:
            if self._out:
                self._out.write(json.dumps({"time": round(time.time(), 4), "event": event, **fields}) + "\n")
                self._out.flush()


class Connection:
    def __init__(self, number, sock, behaviour, interval, recorder):
        self.number = number
        self.sock = sock
        self.behaviour = behaviour
        self.interval = interval
        self.recorder = recorder

    def _receive(self, count):
        data = b""
        while len(data) < count:
            part = self.sock.recv(count - len(data))
            if not part:
                raise Gone("closed")
            data += part
        return data

    def _receive_within(self, count, seconds):
        data = b""
        end = time.monotonic() + seconds
        while len(data) < count:
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.sock], [], [], left)[0]:
                break
            part = self.sock.recv(count - len(data))
            if not part:
                break
            data += part
        return data

    def read_frame(self):
        header = self._receive(HEADER)
        length = header[9:15]
        body = self._receive(int(length)) if length.isdigit() else b""
        extra = self._receive_within(ALARM_PAD, 2.0) if body.startswith(b"ALARM+") else b""
        raw = header + body + extra
        self.recorder.write("frame", connection=self.number, header=header.decode("latin-1"),
                            body=body.decode("latin-1"), extra=extra.hex(), hex=raw.hex())

    def reply(self, body, length=None):
        size = len(body) if length is None else length
        data = b"%06d S %06d " % (self.sock.fileno(), size) + body
        if self.behaviour != "slow":
            self.sock.sendall(data)
            return
        for byte in data:
            self.sock.sendall(bytes([byte]))
            time.sleep(self.interval)

    def drain(self):
        rest = b""
        try:
            while part := self.sock.recv(4096):
                rest += part
            how = "closed"
        except OSError as error:
            how = "reset" if isinstance(error, ConnectionResetError) else str(error)
        self.recorder.write("end", connection=self.number, how=how, rest=rest.hex())

    def exchange(self, open_reply=b"OPEN_OK", data_reply=b"DATA_RECEIVE_OK"):
        self.read_frame()
        if open_reply is None:
            return
        self.reply(open_reply)
        self.read_frame()
        if data_reply is not None:
            self.reply(data_reply)

    def answer_and_close(self, raw):
        self.read_frame()
        self.sock.sendall(raw)
        # Half a close: the peer reads everything before it sees the end.
        self.sock.shutdown(socket.SHUT_WR)

    def run(self):
        try:
            BEHAVIOURS[self.behaviour](self)
            if self.behaviour != "close":
                self.drain()
        except (Gone, OSError) as error:
            self.recorder.write("end", connection=self.number, how=str(error), rest="")
        finally:
            self.sock.close()


BEHAVIOURS = {
    "normal": lambda c: c.exchange(),
    "slow": lambda c: c.exchange(),
    "wrong-word": lambda c: c.exchange(open_reply=b"OPEN_NO"),
    "wrong-data": lambda c: c.exchange(data_reply=b"DATA_RECEIVE_NO"),
    "silent": lambda c: c.exchange(open_reply=None),
    "silent-data": lambda c: c.exchange(data_reply=None),
    "announce-close": lambda c: c.answer_and_close(b"000000 S 999999 OPEN"),
    "half-header": lambda c: c.answer_and_close(b"000000 S 0"),
    "percent": lambda c: c.answer_and_close(b"%s%n%d S 9%n%s%x"),
    "garbage": lambda c: c.answer_and_close(random.Random(20230504).randbytes(4096)),
    "close": lambda c: None,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--address", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=0, help="0: one that the kernel chooses")
    parser.add_argument("--record", help="file that the JSON lines are appended to")
    parser.add_argument("--behaviour", default="normal", help="comma-separated list, one per connection")
    parser.add_argument("--interval", type=float, default=1.0, help="seconds between the bytes of slow")
    options = parser.parse_args()
    script = options.behaviour.split(",")
    if unknown := [name for name in script if name not in BEHAVIOURS]:
        parser.error("unknown behaviour: " + ", ".join(unknown))

    recorder = Recorder(options.record)
    listener = socket.create_server((options.address, options.port), backlog=128)
    print("port", listener.getsockname()[1], flush=True)
    number = 0
    while True:
        sock, _ = listener.accept()
        behaviour = script[min(number, len(script) - 1)]
        number += 1
        recorder.write("accept", connection=number, behaviour=behaviour)
        connection = Connection(number, sock, behaviour, options.interval, recorder)
        threading.Thread(target=connection.run, daemon=True).start()


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(0)
