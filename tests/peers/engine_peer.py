#!/usr/bin/python3
"""A speech engine by script, for tests and demonstrations.

Listens on a loopback port (of the kernel's choice unless --port names one), prints that port on a line of
its own and answers channel queries, in the binary and in the text framing, until its standard input ends.
Each connection takes the next behaviour of --script (comma-separated); the last one serves all that follow.

behaviours:
  ok            the whole status of --channels and --used
  status:N      the same with engine status N in the header
  empty         a header that announces no payload
  short:N       announces and sends only the first N bytes of the payload
  cut:N         announces the whole payload, sends N bytes of it and closes
  header:N      sends N bytes of the header and closes
  announce:N    announces N bytes, sends the payload and closes
  claim:N       counts of N in front of the channels that there are
  garbage       text in place of everything, before a handshake too
  reset         resets the connection as it comes
  reset-later   resets the connection in place of a reply
  silence       takes the connection and never says anything (no handshake either)
  mute          shakes hands, takes the query and never answers
  stall:N       sends N bytes of the reply and stops, leaving the connection open
"""
import argparse
import socket
import ssl
import struct
import sys
import threading


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--script", default="ok")
    parser.add_argument("--channels", type=int, default=8)
    parser.add_argument("--used", type=int, default=2)
    parser.add_argument("--cert", help="serve TLS with this certificate")
    parser.add_argument("--key")
    parser.add_argument("--client-ca", help="demand a client certificate signed by this authority")
    parser.add_argument("--log", action="store_true", help="print a line per query to standard error")
    return parser.parse_args()


def states(options):
    return [(i, 1 if i < options.used else 0) for i in range(options.channels)]


def binary_payload(options, claim=None):
    counts = (options.channels, options.channels, options.used, 0, options.channels - options.used)
    if claim is not None:
        counts = (claim,) * 5
    return struct.pack("<5i", *counts) + b"".join(struct.pack("<2i", *pair) for pair in states(options))


def text_reply(options):
    numbers = [options.channels, options.used] + [n for pair in states(options) for n in pair]
    body = b" D ASR_ACK -c " + struct.pack("<%dq" % len(numbers), *numbers)
    return b"%06d D %10d " % (1, len(body)) + body


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def receive(connection, length):
    data = b""
    while len(data) < length:
        piece = connection.recv(length - len(data))
        if not piece:
            raise ConnectionError("the agent closed")
        data += piece
    return data


def header(status, length, channel=7):
    return struct.pack("<4i", 5, status, length, channel)


def hold(connection):
    """Keeps the connection until the other end closes it."""
    try:
        while connection.recv(4096):
            pass
    except OSError:
        pass


def reply(connection, kind, number, options):
    payload = binary_payload(options, number if kind == "claim" else None)
    whole = header(number if kind == "status" else 0, len(payload)) + payload
    if kind == "empty":
        whole = header(0, number if number < 0 else 0)
    elif kind == "short":
        whole = header(0, number) + payload[:number]
    elif kind == "cut":
        whole = whole[: 16 + number]
    elif kind in ("header", "stall"):
        whole = whole[:number]
    elif kind == "announce":
        whole = header(0, number) + payload
    connection.sendall(whole)
    if kind in ("ok", "status", "short", "empty", "claim", "stall"):
        hold(connection)


def query(connection, kind, number, options):
    request = receive(connection, 16)
    if request[:1].isdigit():
        receive(connection, 8)
        connection.sendall(text_reply(options))
        hold(connection)
        return
    if options.log:
        print("query", struct.unpack("<4i", request), kind, file=sys.stderr, flush=True)
    if kind == "mute":
        hold(connection)
    elif kind == "reset-later":
        reset(connection)
    else:
        reply(connection, kind, number, options)


def serve(connection, behaviour, options, context):
    kind, _, number = behaviour.partition(":")
    try:
        if kind == "garbage":
            connection.sendall(b"220 what is this\r\n" * 4)
            connection.shutdown(socket.SHUT_WR)
            hold(connection)
        elif kind == "reset":
            reset(connection)
        elif kind == "silence":
            hold(connection)
        else:
            if context is not None:
                connection = context.wrap_socket(connection, server_side=True)
            query(connection, kind, int(number or 0), options)
    except OSError:
        pass
    finally:
        connection.close()


def accept_forever(listener, options, context):
    behaviours = options.script.split(",")
    while True:
        connection, _ = listener.accept()
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        behaviour = behaviours.pop(0) if len(behaviours) > 1 else behaviours[0]
        threading.Thread(target=serve, args=(connection, behaviour, options, context), daemon=True).start()


def main():
    options = arguments()
    context = None
    if options.cert:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(options.cert, options.key)
        if options.client_ca:
            context.load_verify_locations(options.client_ca)
            context.verify_mode = ssl.CERT_REQUIRED
    listener = socket.create_server(("127.0.0.1", options.port), backlog=128)
    print(listener.getsockname()[1], flush=True)
    threading.Thread(target=accept_forever, args=(listener, options, context), daemon=True).start()
    sys.stdin.read()


main()
