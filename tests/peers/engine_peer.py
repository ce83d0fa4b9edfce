#!/usr/bin/python3
"""A speech engine that answers channel queries, in the binary framing.

It starts listening after --load seconds and then prints its port. With --figures it reads its numbers of channels and
of used channels ("8 2") from that file for each query. Each connection takes the next word of --script:

  ok          sends the whole status            announce:N  announces N bytes, sends the payload and closes
  cut:N       sends N bytes of the payload      garbage     sends text instead, also instead of a handshake
  stall:N     as cut:N, but does not close      silent      reads the query, sends nothing
  mute        accepts the connection, sends nothing
"""
import pathlib
import socket
import ssl
import struct
import time

import peer

OPTIONS = peer.options(__doc__, port=0, script="ok", figures=None, load=0.0, cert=None, key=None, client_ca=None,
                       tls12=False)
CONTEXT = None


def reply(kind, number):
    channels, used = map(int, pathlib.Path(OPTIONS.figures).read_text().split()) if OPTIONS.figures else (8, 2)
    states = [n for i in range(1, channels + 1) for n in (i, 1 if i <= used else 0)]
    payload = struct.pack(f"<{5 + 2 * channels}i", channels, channels, used, 0, channels - used, *states)
    announced = number if kind == "announce" else len(payload)
    return struct.pack("<4i", 5, 0, announced, 7) + payload[:number if kind in ("cut", "stall") else None]


def handle(connection, kind, argument):
    if kind == "garbage":
        connection.sendall(b"220 what is this\r\n" * 4)
        connection.shutdown(socket.SHUT_WR)
    elif kind != "mute":
        if CONTEXT is not None:
            connection = CONTEXT.wrap_socket(connection, server_side=True)
        peer.receive(connection, 16)
        if kind != "silent":
            connection.sendall(reply(kind, int(argument or 0)))
        if kind in ("announce", "cut"):
            return connection.close()
    return peer.hold(connection)


if OPTIONS.cert:
    CONTEXT = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    CONTEXT.load_cert_chain(OPTIONS.cert, OPTIONS.key)
    if OPTIONS.tls12:
        CONTEXT.maximum_version = ssl.TLSVersion.TLSv1_2
    if OPTIONS.client_ca:
        CONTEXT.load_verify_locations(OPTIONS.client_ca)
        CONTEXT.verify_mode = ssl.CERT_REQUIRED
time.sleep(OPTIONS.load)
peer.serve(peer.listen(OPTIONS.port), peer.in_turn(OPTIONS.script), handle)
