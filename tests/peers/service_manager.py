#!/usr/bin/python3
"""A service manager: listens on the datagram socket "notify" and appends each message to "told", in square brackets."""
import socket

with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as listener, open("told", "ab", buffering=0) as told:
    listener.bind("notify")
    print("port 0", flush=True)
    while True:
        told.write(b"[%s]" % listener.recv(4096))
