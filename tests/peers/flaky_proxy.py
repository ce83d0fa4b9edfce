#!/usr/bin/python3
"""Stands before a server and spoils what it says. It prints "port N" once it listens.

Connection after connection takes the next behaviour of --script (the last one repeats); without a script a share
of --failing of them takes one of the first four at random and the others pass.

  reset      resets the connection at once          cut:N      passes N bytes of the server's and closes
  close      closes it                              reset:N    passes N bytes and resets
  garbage    sends arbitrary bytes and closes       drip:S     passes a byte every S seconds
  silence    says nothing for a while               endless:N  passes N bytes, then lines without end
  pass       passes everything

The first four never reach the server: whatever it has taken was delivered, and nothing that it has not taken was.
"""
import argparse
import random
import socket
import struct
import sys
import threading
import time

UNREACHED = ("reset", "close", "garbage", "silence")


def reset(sock):
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def forward(source, target, done):
    """Until one side ends or it is done. A socket that another thread sits in cannot be closed: hence the looks."""
    source.settimeout(0.05)
    try:
        while not done.is_set():
            try:
                data = source.recv(65536)
            except TimeoutError:
                continue
            if not data:
                break
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass


def pass_some(server, client, count):
    while count > 0 and (data := server.recv(min(count, 65536))):
        client.sendall(data)
        count -= len(data)


def fail(client, kind):
    if kind == "reset":
        reset(client)
    elif kind == "garbage":
        client.sendall(random.randbytes(random.randrange(1, 4096)))
        client.shutdown(socket.SHUT_WR)
        time.sleep(0.2)
    elif kind == "silence":
        time.sleep(random.uniform(0.1, 3))


def spoil(server, client, kind, argument):
    if kind == "drip":
        while byte := server.recv(1):
            client.sendall(byte)
            time.sleep(float(argument))
    elif kind == "pass":
        forward(server, client, threading.Event())
    else:
        pass_some(server, client, int(argument))
        while kind == "endless":
            client.sendall(b"250-x\r\n" * 1000)
        if kind == "reset":
            reset(client)


def serve(client, behaviour, port):
    kind, _, argument = behaviour.partition(":")
    try:
        with client:
            if kind in UNREACHED and not argument:
                return fail(client, kind)
            with socket.create_connection(("127.0.0.1", port)) as server:
                done = threading.Event()
                there = threading.Thread(target=forward, args=(client, server, done), daemon=True)
                there.start()
                try:
                    spoil(server, client, kind, argument)
                finally:
                    done.set()
                    there.join()
    except OSError:
        pass


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--to", type=int, required=True, help="port of the server")
    parser.add_argument("--folder", help="not used: what every sink is given")
    parser.add_argument("--script")
    parser.add_argument("--failing", type=float, default=0.3)
    options = parser.parse_args()
    script = options.script.split(",") if options.script else []
    listener = socket.create_server(("127.0.0.1", 0), backlog=128)
    print("port", listener.getsockname()[1], flush=True)
    number = 0
    while True:
        client, _ = listener.accept()
        if script:
            behaviour = script[min(number, len(script) - 1)]
        else:
            behaviour = random.choice(UNREACHED) if random.random() < options.failing else "pass"
        number += 1
        threading.Thread(target=serve, args=(client, behaviour, options.to), daemon=True).start()


if __name__ == "__main__":
    sys.exit(main())
