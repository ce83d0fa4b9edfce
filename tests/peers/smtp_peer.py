#!/usr/bin/python3
"""A mail server that plays a script to one client. Usage: smtp_peer.py STEP...

Prints "PORT n", and when the client has gone every byte that it sent. Steps (backslash escapes as in Python):

  send:TEXT   send the text                                 dot    read up to the line that holds only a dot
  flood:TEXT  send it over and over until the client goes   shut   send nothing more: the client meets the end
  line        read up to the next newline of the client     close  close at once

After the last step it reads, in silence, until the client goes away.
"""
import signal
import socket
import sys

import peer

received = bytearray()
looked_at = 0


def read(client):
    data = client.recv(65536)
    received.extend(data)
    return len(data) > 0


def read_up_to(client, mark):
    global looked_at
    while (at := received.find(mark, looked_at)) < 0:
        if not read(client):
            return
    looked_at = at + len(mark)


def play(client, step):
    name, _, argument = step.partition(":")
    text = argument.encode().decode("unicode_escape").encode("latin-1")
    if name == "send":
        client.sendall(text)
    elif name == "flood":
        while True:
            client.sendall(text * max(1, 65536 // len(text)))
    elif name in ("line", "dot"):
        read_up_to(client, b"\n" if name == "line" else b"\r\n.\r\n")
    elif name == "shut":
        client.shutdown(socket.SHUT_WR)
    elif name == "close":
        client.close()
    else:
        raise SystemExit("unknown step: " + step)


signal.alarm(60)  # never outlives a test that went wrong
with peer.listen(label="PORT ") as listener:
    client = listener.accept()[0]
try:
    for word in sys.argv[1:]:
        play(client, word)
    while read(client):
        pass
except OSError:
    pass
sys.stdout.buffer.write(received)
