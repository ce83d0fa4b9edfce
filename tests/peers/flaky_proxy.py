#!/usr/bin/python3
"""Stands before the server on port --to and spoils what it says.

Connections follow the words of --script in turn; without one, a share of --failing of them takes one of the first
four at random and the others pass.

  reset      resets the connection at once          cut:N      passes N bytes of the server's and closes
  close      closes it                              reset:N    passes N bytes and resets
  garbage    sends arbitrary bytes and closes       stall:N    passes N bytes and is silent until the client leaves
  silence    says nothing for a while               endless:N  passes N bytes, then lines without end
  pass       passes everything                      drip:S     passes a byte every S seconds

The first four never reach the server: whatever it has taken was delivered, and nothing that it has not taken was.
"""
import random
import socket
import threading
import time

import peer

OPTIONS = peer.options(__doc__, to=0, script=None, failing=0.3)
UNREACHED = ("reset", "close", "garbage", "silence")


def forward(source, target):
    try:
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass


def fail(client, kind):
    if kind == "reset":
        peer.reset(client)
    elif kind == "garbage":
        client.sendall(random.randbytes(random.randrange(1, 4096)))
        client.shutdown(socket.SHUT_WR)
        time.sleep(0.2)
    elif kind == "silence":
        time.sleep(random.uniform(0.1, 3))


def spoil(server, client, kind, argument, client_gone):
    if kind == "pass":
        return forward(server, client)
    if kind == "drip":
        while byte := server.recv(1):
            client.sendall(byte)
            time.sleep(float(argument))
        return None
    left = int(argument)
    while left > 0 and (data := server.recv(left)):
        client.sendall(data)
        left -= len(data)
    if kind == "stall":
        client_gone()
    while kind == "endless":
        client.sendall(b"250-x\r\n" * 1000)
        time.sleep(0.001)  # a reader that keeps everything gets some megabytes
    return None


def handle(client, kind, argument):
    if kind in UNREACHED and not argument:
        return fail(client, kind)
    with socket.create_connection(("127.0.0.1", OPTIONS.to)) as server:
        there = threading.Thread(target=forward, args=(client, server), daemon=True)
        there.start()
        try:
            spoil(server, client, kind, argument, there.join)
        finally:
            # Nobody may sit in the client's socket when it is reset. This end of it does not show outside.
            client.shutdown(socket.SHUT_RD)
            there.join()
    return peer.reset(client) if kind == "reset" else None


def at_random():
    while True:
        yield random.choice(UNREACHED) if random.random() < OPTIONS.failing else "pass"


peer.serve(peer.listen(), peer.in_turn(OPTIONS.script) if OPTIONS.script else at_random(), handle)
