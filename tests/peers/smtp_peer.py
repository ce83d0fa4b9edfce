#!/usr/bin/python3
"""A mail server that plays a script to one client.

Usage: smtp_peer.py STEP...
Prints "PORT n" at once. When the client has gone, prints every byte that it sent, and ends.

Steps (backslash escapes as in Python):
  send:TEXT     send the text
  line          read up to the next newline of the client
  dot           read up to the line that holds only a dot
  flood:TEXT    send the text over and over until the client goes away
  shut          send nothing more: the client meets the end of input
  close         close at once
After the last step it reads, in silence, until the client goes away.
"""
import signal
import socket
import sys

received = bytearray()
looked_at = 0


def read(sock):
    try:
        data = sock.recv(65536)
    except OSError:
        data = b""
    received.extend(data)
    return len(data) > 0


def read_up_to(sock, mark):
    global looked_at
    while True:
        at = received.find(mark, looked_at)
        if at >= 0:
            looked_at = at + len(mark)
            return
        if not read(sock):
            return


def flood(sock, text):
    block = text * max(1, 65536 // len(text))
    try:
        while True:
            sock.sendall(block)
    except OSError:
        pass


def play(sock, step):
    name, _, argument = step.partition(":")
    text = argument.encode().decode("unicode_escape").encode("latin-1")
    if name == "send":
        sock.sendall(text)
    elif name == "line":
        read_up_to(sock, b"\n")
    elif name == "dot":
        read_up_to(sock, b"\r\n.\r\n")
    elif name == "flood":
        flood(sock, text)
    elif name == "shut":
        sock.shutdown(socket.SHUT_WR)
    elif name == "close":
        sock.close()
    else:
        raise SystemExit("unknown step: " + step)


def main():
    signal.alarm(60)  # never outlives a test that went wrong
    listener = socket.create_server(("127.0.0.1", 0))
    print("PORT", listener.getsockname()[1], flush=True)
    sock, _ = listener.accept()
    listener.close()
    try:
        for step in sys.argv[1:]:
            play(sock, step)
        while read(sock):
            pass
    except OSError:
        pass
    sys.stdout.buffer.write(received)


main()
