#!/usr/bin/python3
"""A speech engine that behaves: it loads for a while, then answers channel-status queries on its port.

How many channels it has and how many are in use it reads from --figures ("8 2") for every query, so that
whoever watches it can make it busy. It prints "port N" once it listens, and runs until it is killed.
"""
import argparse
import pathlib
import socket
import struct
import threading
import time

HEADER = struct.Struct("<4i")  # command, status, payload length, channel
CHANNEL_STATUS = 5
IN_USE = 1


def payload(figures):
    channels, used = (int(word) for word in figures.read_text().split())
    states = [(number, IN_USE if number <= used else 0) for number in range(1, channels + 1)]
    counts = struct.pack("<5i", channels, channels, used, 0, channels - used)
    return counts + b"".join(struct.pack("<2i", *entry) for entry in states)


def serve(connection, figures):
    with connection:
        try:
            request = connection.recv(HEADER.size, socket.MSG_WAITALL)
            if len(request) == HEADER.size and HEADER.unpack(request)[0] == CHANNEL_STATUS:
                body = payload(figures)
                connection.sendall(HEADER.pack(CHANNEL_STATUS, 0, len(body), 1) + body)
                connection.recv(1)  # until the agent closes
        except OSError:
            pass  # the agent only looked whether somebody listens


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=0, help="0: one that the kernel chooses")
    parser.add_argument("--figures", type=pathlib.Path, required=True)
    parser.add_argument("--load", type=float, default=0, help="seconds before the port opens")
    options = parser.parse_args()
    time.sleep(options.load)
    listener = socket.create_server(("127.0.0.1", options.port), backlog=64)
    print("port", listener.getsockname()[1], flush=True)
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=serve, args=(connection, options.figures), daemon=True).start()


main()
