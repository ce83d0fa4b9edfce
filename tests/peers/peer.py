"""Shared by the scripted peers: options, connections that follow a script, and files that appear complete."""
import argparse
import itertools
import socket
import struct
import threading


def options(about, **defaults):
    """Parses the command line: one option per name, with the type of its default (None: text, False: flag)."""
    parser = argparse.ArgumentParser(description=about, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name, default in defaults.items():
        word = "--" + name.replace("_", "-")
        if default is False:
            parser.add_argument(word, action="store_true")
        else:
            parser.add_argument(word, type=str if default is None else type(default), default=default)
    return parser.parse_args()


def listen(port=0):
    """Listens on a port (0: the kernel chooses one) and prints it."""
    listener = socket.create_server(("127.0.0.1", port), backlog=128)
    # Connections inherit this: a reply in several pieces must not wait for the client's delayed acknowledgement.
    listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    print(f"port {listener.getsockname()[1]}", flush=True)
    return listener


def in_turn(script):
    """The comma-separated words of a script; the last one repeats."""
    words = script.split(",")
    return itertools.chain(words, itertools.repeat(words[-1]))


def serve(listener, behaviours, handle):
    """Handles each connection in a thread of its own, by the next behaviour."""
    def run(connection, behaviour):
        with connection:
            try:
                handle(connection, *behaviour.partition(":")[::2])
            except (OSError, EOFError):
                pass  # the other end has gone
    for behaviour in behaviours:
        threading.Thread(target=run, args=(listener.accept()[0], behaviour), daemon=True).start()


def receive(connection, length):
    data = b""
    while len(data) < length:
        part = connection.recv(length - len(data))
        if not part:
            raise EOFError
        data += part
    return data


def hold(connection):
    """Keeps the connection until the other end closes it."""
    while connection.recv(65536):
        pass


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def keep(folder, name, data):
    part = folder / (name + ".part")
    part.write_bytes(data)
    part.rename(folder / name)
