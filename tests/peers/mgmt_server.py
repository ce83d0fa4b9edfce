#!/usr/bin/python3
"""A management server that appends every frame it receives to --record, as a line of JSON.

A line has "event" (always "frame"), "time" (seconds since the epoch), "header", "body", "extra" (the bytes after the
counted ones, in hexadecimal) and "hex" (all of them). With --silent it answers the first frame of a connection only.
"""
import json
import time

import peer

HEADER = 16
ALARM_PAD = 8  # zero bytes that follow an alarm without being counted in its header
OPTIONS = peer.options(__doc__, record="frames", silent=False)


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


def handle(connection, *_):
    for word in [b"OPEN_OK"] if OPTIONS.silent else [b"OPEN_OK", b"DATA_RECEIVE_OK"]:
        record(connection)
        connection.sendall(b"000007 S %06d " % len(word) + word)
    peer.hold(connection)


peer.serve(peer.listen(), peer.in_turn(""), handle)
