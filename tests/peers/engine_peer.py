#!/usr/bin/python3
"""A speech engine that answers channel queries, in the binary and in the text framing.

It prints its port once it listens, --load seconds after its start, and ends with its standard input. With --figures
it reads the channels that it has and uses ("8 2") from that file for each query, and runs until it is killed.
Connections follow the words of --script in turn:

  ok            the whole status                 announce:N  announces N bytes, sends the payload and closes
  status:N      with engine status N             claim:N     counts of N before the channels that there are
  empty:N       announces N, sends no payload    garbage     text in place of everything, of a handshake too
  short:N       announces and sends N bytes      reset-later resets in place of a reply
  cut:N         sends N bytes of the payload     silence     never says anything
  header:N      sends N bytes of the header      reset       resets as it comes
"""
import pathlib
import socket
import ssl
import struct
import sys
import threading
import time

import peer

OPTIONS = peer.options(__doc__, port=0, script="ok", channels=8, used=2, figures=None, load=0.0, cert=None, key=None,
                       client_ca=None)
CONTEXT = None


def figures():
    if OPTIONS.figures is None:
        return OPTIONS.channels, OPTIONS.used
    return tuple(map(int, pathlib.Path(OPTIONS.figures).read_text().split()))


def states(channels, used):
    return [n for i in range(1, channels + 1) for n in (i, 1 if i <= used else 0)]


def text_reply():
    numbers = [*figures(), *states(*figures())]
    body = b" D ASR_ACK -c " + struct.pack(f"<{len(numbers)}q", *numbers)
    return b"%06d D %10d " % (1, len(body)) + body


def binary_reply(kind, number):
    channels, used = figures()
    counts = (number,) * 5 if kind == "claim" else (channels, channels, used, 0, channels - used)
    payload = struct.pack(f"<{5 + 2 * channels}i", *counts, *states(channels, used))
    announced = number if kind in ("empty", "short", "announce") else len(payload)
    sent = {"empty": 0, "short": number, "cut": number}.get(kind, len(payload))
    whole = struct.pack("<4i", 5, number if kind == "status" else 0, announced, 7) + payload[:sent]
    return whole[:number] if kind == "header" else whole


def handle(connection, kind, argument):
    if kind == "garbage":
        connection.sendall(b"220 what is this\r\n" * 4)
        connection.shutdown(socket.SHUT_WR)
    elif kind == "reset":
        return peer.reset(connection)
    elif kind != "silence":
        if CONTEXT is not None:
            connection = CONTEXT.wrap_socket(connection, server_side=True)
        request = peer.receive(connection, 16)
        if kind == "reset-later":
            return peer.reset(connection)
        textual = request[:1].isdigit()
        if textual:
            peer.receive(connection, 8)
        connection.sendall(text_reply() if textual else binary_reply(kind, int(argument or 0)))
        if kind in ("cut", "header", "announce"):
            return connection.close()
    peer.hold(connection)


if OPTIONS.cert:
    CONTEXT = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    CONTEXT.load_cert_chain(OPTIONS.cert, OPTIONS.key)
    if OPTIONS.client_ca:
        CONTEXT.load_verify_locations(OPTIONS.client_ca)
        CONTEXT.verify_mode = ssl.CERT_REQUIRED
time.sleep(OPTIONS.load)
serving = threading.Thread(target=peer.serve, daemon=True,
                           args=(peer.listen(OPTIONS.port, ""), peer.in_turn(OPTIONS.script), handle))
serving.start()
if OPTIONS.figures:
    serving.join()
sys.stdin.read()
