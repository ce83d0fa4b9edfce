#!/usr/bin/env python3
"""Runs a program whose standard output and error go to a reader that does not read.

silent_reader.py pipe|pty|socket FOLDER PROGRAM WORD...

The reader starts to read when FOLDER/read exists and appends what it receives to FOLDER/heard. It ends with the program.
"""
import os
import pty
import select
import socket
import sys
import time
import tty


def ends(kind):
    if kind == "pty":
        reader, writer = pty.openpty()
        tty.setraw(writer)
        return reader, writer
    if kind == "socket":
        return tuple(end.detach() for end in socket.socketpair())
    return os.pipe()


def fill(writer):
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, b"full\n")
    except BlockingIOError:
        os.set_blocking(writer, True)


def read(reader, folder, program):
    while os.getppid() == program:
        if not os.path.exists(folder + "/read"):
            time.sleep(0.01)
        elif select.select([reader], [], [], 0.01)[0]:
            with open(folder + "/heard", "ab") as heard:
                heard.write(os.read(reader, 65536))


kind, folder, *words = sys.argv[1:]
reader, writer = ends(kind)
fill(writer)
program = os.getpid()
if os.fork() == 0:
    os.close(writer)
    read(reader, folder, program)
    os._exit(0)
os.close(reader)
os.dup2(writer, 1)
os.dup2(writer, 2)
os.close(writer)
os.execv(words[0], words)
