#!/usr/bin/python3
"""A management server that appends every frame it gets to --record, as a line of JSON.

A line has "event" (always "frame"), "time" (seconds since the epoch), "header", "body", "extra" (what followed
uncounted, in hexadecimal) and "hex" (all of it). Connections follow the words of --behaviour in turn:
"""
import json
import random
import socket
import time

import peer

HEADER = 16
ALARM_PAD = 8  # zero bytes that follow an alarm without being counted in its header


def reply(word):
    return b"000007 S %06d " % len(word) + word


OPEN, DATA = reply(b"OPEN_OK"), reply(b"DATA_RECEIVE_OK")
CLOSE = None
# What follows each frame. Behind the last it is silent, unless it closes.
BEHAVIOURS = {
    "normal": [OPEN, DATA],
    "wrong-word": [reply(b"OPEN_NO")],
    "wrong-data": [OPEN, reply(b"DATA_RECEIVE_NO")],
    "silent-data": [OPEN],
    "announce-close": [b"000000 S 999999 OPEN", CLOSE],
    "half-header": [b"000000 S 0", CLOSE],
    "percent": [b"%s%n%d S 9%n%s%x", CLOSE],
    "garbage": [random.Random(20230504).randbytes(4096), CLOSE],
    "close": [CLOSE],
}
OPTIONS = peer.options(__doc__ + " ".join(BEHAVIOURS), port=0, record="/dev/null", behaviour="normal")


def record(connection):
    header = peer.receive(connection, HEADER)
    body = peer.receive(connection, int(header[9:15]))
    connection.settimeout(2)
    extra = peer.receive(connection, ALARM_PAD) if body.startswith(b"ALARM+") else b""
    connection.settimeout(None)
    frame = {"time": round(time.time(), 4), "event": "frame", "header": header.decode("latin-1"),
             "body": body.decode("latin-1"), "extra": extra.hex(), "hex": (header + body + extra).hex()}
    with open(OPTIONS.record, "a", encoding="ascii") as out:
        out.write(json.dumps(frame) + "\n")


def handle(connection, behaviour, _):
    for answer in BEHAVIOURS[behaviour]:
        if answer is CLOSE:
            # Half of it: the other end reads everything before it sees the end.
            connection.shutdown(socket.SHUT_WR)
            break
        record(connection)
        connection.sendall(answer)
    peer.hold(connection)


peer.serve(peer.listen(OPTIONS.port), peer.in_turn(OPTIONS.behaviour), handle)
