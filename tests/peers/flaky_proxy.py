#!/usr/bin/python3
"""Forwards connections to the server on port --to and spoils its replies.

Each connection takes the next word of --script. Without a script, a share --failing of the connections takes one of
the first four words at random, and the others pass.

  reset      resets the connection at once          cut:N      passes N bytes from the server and closes
  close      closes it                              reset:N    passes N bytes and resets
  garbage    sends arbitrary bytes and closes       stall:N    passes N bytes and is silent until the client leaves
  silence    says nothing for a while               endless:N  passes N bytes, then lines without end
  pass       passes everything                      drip:S     passes a byte every S seconds

The first four never reach the server. So a message was delivered exactly when the server has it.
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
        time.sleep(0.001)  # so a reader without a limit gets megabytes, not all memory
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
            # No thread may still use the client's socket when it is reset. The client does not see this shutdown.
            client.shutdown(socket.SHUT_RD)
            there.join()
    return peer.reset(client) if kind == "reset" else None


def at_random():
    while True:
        yield random.choice(UNREACHED) if random.random() < OPTIONS.failing else "pass"


peer.serve(peer.listen(), peer.in_turn(OPTIONS.script) if OPTIONS.script else at_random(), handle)
