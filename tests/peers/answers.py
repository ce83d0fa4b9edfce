#!/usr/bin/python3
"""A peer that answers each connection as --script says: "silent", "close" (after the first bytes), "garble" (bytes
that are of no protocol), "http:STATUS BODY", or "smtp:WORD", a mail server that refuses every line with WORD in it
(nothing without a WORD).
"""
import http.client

import peer

OPTIONS = peer.options(__doc__, script="silent")
SMTP_ANSWERS = {b"EHLO": b"250-here\r\n250 AUTH GSSAPI\r\n", b"AUTH": b"235 2.7.0 Welcome\r\n",
                b"DATA": b"354 go on\r\n"}


def silent(connection, _):
    peer.hold(connection)


def close(connection, _):
    connection.recv(65536)


def garble(connection, _):
    connection.recv(65536)
    connection.sendall(b"\xff\xfe000009 no protocol of anybody's")
    peer.hold(connection)


def web(connection, answer):
    status, _, body = answer.partition(" ")
    request = connection.makefile("rb")
    request.readline()
    request.read(int(http.client.parse_headers(request)["Content-Length"]))
    connection.sendall(f"HTTP/1.1 {status} X\r\nContent-Length: {len(body)}\r\n\r\n{body}".encode())
    peer.hold(connection)


def mail(connection, refused):
    lines = connection.makefile("rb")
    connection.sendall(b"220 here\r\n")
    for line in lines:
        word = line.split(b":")[0].split()[0]
        if word == b"QUIT":
            return
        if refused and refused.encode() in line:
            connection.sendall(b"550 5.1.1 Not here\r\n")
            continue
        connection.sendall(SMTP_ANSWERS.get(word, b"250-more\r\n250 2.1.5 Ok\r\n"))
        if word == b"DATA":
            while lines.readline() != b".\r\n":
                pass
            connection.sendall(b"250 2.0.0 queued as 4F1C2\r\n")


KINDS = {"silent": silent, "close": close, "garble": garble, "http": web, "smtp": mail}
peer.serve(peer.listen(), peer.in_turn(OPTIONS.script), lambda connection, kind, rest: KINDS[kind](connection, rest))
