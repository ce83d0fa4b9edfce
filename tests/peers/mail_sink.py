#!/usr/bin/python3
"""A mail server (aiosmtpd) that keeps the mails it takes. With --user and --password a client must log in.

Mail number N (from 1) leaves in --folder N.eml, as it came; N.html, the decoded HTML part; N.attached-K, the decoded
attachment K (from 1); and N.json, last: "from", "to" and "user" of the session, the headers "From", "To", "Cc",
"Subject" and "Date" as they came (as latin-1), the names of the attachments, and the defects that Python's email
library found. "count" there says how many came; with --count-only that is all.
"""
import asyncio
import email
import json
import logging
import pathlib
import warnings

from aiosmtpd import smtp

import peer

OPTIONS = peer.options(__doc__, folder=pathlib.Path(), user=None, password=None, count_only=False)


class LongLines(smtp.SMTP):
    line_length_limit = 1 << 30  # the whole body is one line


class Keeper:
    count = 0

    async def handle_DATA(self, _server, session, envelope):
        self.count += 1
        if not OPTIONS.count_only:
            keep(str(self.count), session, envelope)
        peer.keep(OPTIONS.folder, "count", b"%d\n" % self.count)
        return "250 OK"


def keep(number, session, envelope):
    raw = envelope.original_content
    mail = email.message_from_bytes(raw)
    html = [part for part in mail.walk() if part.get_content_type() == "text/html"]
    attached = [part for part in mail.walk() if part.get_filename() is not None]
    peer.keep(OPTIONS.folder, number + ".eml", raw)
    peer.keep(OPTIONS.folder, number + ".html", b"".join(part.get_payload(decode=True) for part in html))
    for index, part in enumerate(attached, 1):
        peer.keep(OPTIONS.folder, f"{number}.attached-{index}", part.get_payload(decode=True))
    head = raw.partition(b"\r\n\r\n")[0].decode("latin-1").replace("\r\n ", " ").split("\r\n")
    headers = dict(line.split(": ", 1) for line in head if ": " in line)
    record = {"from": envelope.mail_from, "to": envelope.rcpt_tos,
              "user": session.auth_data.login.decode() if session.auth_data else None,
              "headers": {name: headers.get(name) for name in ("From", "To", "Cc", "Subject", "Date")},
              "attached": [part.get_filename() for part in attached],
              "defects": [repr(defect) for part in mail.walk() for defect in part.defects]}
    peer.keep(OPTIONS.folder, number + ".json", json.dumps(record).encode("ascii"))


def authenticate(_server, _session, _envelope, _mechanism, data):
    good = (data.login.decode(), data.password.decode()) == (OPTIONS.user, OPTIONS.password)
    return smtp.AuthResult(success=good, handled=False, auth_data=data if good else None)


async def serve():
    keeper = Keeper()
    secured = {"auth_required": True, "authenticator": authenticate} if OPTIONS.user else {}
    server = await asyncio.get_running_loop().create_server(
        lambda: LongLines(keeper, hostname="localhost", enable_SMTPUTF8=True, data_size_limit=None,
                          auth_require_tls=False, loop=asyncio.get_running_loop(), **secured), sock=peer.listen())
    await server.serve_forever()


# It warns of logging in without TLS, which is what the agent does.
warnings.simplefilter("ignore")
logging.disable(logging.CRITICAL)
asyncio.run(serve())
