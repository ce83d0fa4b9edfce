#!/usr/bin/python3
"""Stands before a server and fails at random. It prints "port N" once it listens.

A connection that fails never reaches the server: it is reset at once, closed, answered with garbage, or held in
silence for a while. So whatever the server has taken was delivered, and nothing that it has not taken was.
"""
import argparse
import random
import socket
import struct
import sys
import threading
import time


def copy(source, target):
    try:
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass


def serve(client, options, chance):
    with client:
        if chance >= options.failing:
            with socket.create_connection(("127.0.0.1", options.to)) as server:
                back = threading.Thread(target=copy, args=(server, client), daemon=True)
                back.start()
                copy(client, server)
                back.join()
            return
        kind = random.choice(["reset", "close", "garbage", "silence"])
        try:
            if kind == "reset":
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            elif kind == "garbage":
                client.sendall(random.randbytes(random.randrange(1, 4096)))
                client.shutdown(socket.SHUT_WR)
                time.sleep(0.2)
            elif kind == "silence":
                time.sleep(random.uniform(0.1, 3))
        except OSError:
            pass


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--to", type=int, required=True, help="port of the server")
    parser.add_argument("--failing", type=float, default=0.3, help="share of the connections that fail")
    options = parser.parse_args()
    listener = socket.create_server(("127.0.0.1", 0), backlog=128)
    print("port", listener.getsockname()[1], flush=True)
    while True:
        client, _ = listener.accept()
        threading.Thread(target=serve, args=(client, options, random.random()), daemon=True).start()


if __name__ == "__main__":
    sys.exit(main())
