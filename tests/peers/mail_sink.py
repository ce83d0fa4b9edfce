#!/usr/bin/python3
"""A mail server (aiosmtpd) that keeps the mails it takes. With --user and --password a client must log in.

Mail number N (from 1) leaves in --folder N.eml, as it came; N.html, the decoded HTML part; N.attached-K, the decoded
attachment K (from 1); and N.json, last: "from", "to" and "user" of the session, the headers "From", "To", "Cc",
"Subject" and "Date" as they came (as latin-1), the names of the attachments, and the defects that Python's email
library found. "strict" there has what the library's strict policy makes of it: the subject decoded, the longest line,
whether the session was secured, and the defects of parts and headers. "count" there says how many came; with --count-only that is all.

With --certificate (a file with the key too) it offers STARTTLS, with --smtps it is TLS from the start. --refuse ADDRESS
refuses that recipient; --greeting greets in so many lines more; --mute never answers a QUIT.
"""
import asyncio
import email
import email.policy
import json
import logging
import pathlib
import ssl
import warnings

from aiosmtpd import smtp

import peer

OPTIONS = peer.options(__doc__, folder=pathlib.Path(), user=None, password=None, count_only=False,
                       certificate=None, smtps=False, refuse=None, greeting=0, mute=False)


class LongLines(smtp.SMTP):
    line_length_limit = 1 << 30  # the whole body is one line
    greeted = False

    async def push(self, status):
        if not self.greeted and isinstance(status, str) and status.startswith("220 "):
            status = "".join(f"220-line {line}\r\n" for line in range(OPTIONS.greeting)) + status
        self.greeted = True
        await super().push(status)

    async def smtp_QUIT(self, arg):
        if OPTIONS.mute:
            await asyncio.sleep(3600)
        await super().smtp_QUIT(arg)


class Keeper:
    count = 0

    async def handle_RCPT(self, _server, _session, envelope, address, _options):
        if address == OPTIONS.refuse:
            return "550-5.1.1 Nobody\r\n550 5.1.1 of that name\x07"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, _server, session, envelope):
        self.count += 1
        if not OPTIONS.count_only:
            keep(str(self.count), session, envelope)
        peer.keep(OPTIONS.folder, "count", b"%d\n" % self.count)
        return "250 OK"


def keep(number, session, envelope):
    raw = envelope.original_content
    mail = email.message_from_bytes(raw)
    attached = [part for part in mail.walk() if part.get_filename() is not None]
    html = [part.get_payload(decode=True) for part in mail.walk() if part.get_content_type() == "text/html"]
    head = raw.partition(b"\r\n\r\n")[0].decode("latin-1").replace("\r\n ", " ").split("\r\n")
    headers = dict(line.split(": ", 1) for line in head if ": " in line)
    record = {"from": envelope.mail_from, "to": envelope.rcpt_tos,
              "user": session.auth_data.login.decode() if session.auth_data else None,
              "headers": {name: headers.get(name) for name in ("From", "To", "Cc", "Subject", "Date")},
              "attached": [part.get_filename() for part in attached],
              "defects": [repr(defect) for part in mail.walk() for defect in part.defects],
              "strict": strictly(raw, session)}
    peer.keep(OPTIONS.folder, number + ".eml", raw)
    peer.keep(OPTIONS.folder, number + ".html", b"".join(html))
    for index, part in enumerate(attached, 1):
        peer.keep(OPTIONS.folder, f"{number}.attached-{index}", part.get_payload(decode=True))
    peer.keep(OPTIONS.folder, number + ".json", json.dumps(record).encode("ascii"))


def strictly(raw, session):
    mail = email.message_from_bytes(raw, policy=email.policy.default)
    parts = list(mail.walk())
    holders = [holder for part in parts for holder in (part, *part.values())]
    return {"subject": mail["Subject"], "from": str(mail["From"]), "to": str(mail["To"]),
            "longest": max(map(len, raw.split(b"\r\n"))), "tls": OPTIONS.smtps or session.ssl is not None,
            "names": [part.get_filename() for part in parts if part.get_filename() is not None],
            "defects": [repr(defect) for holder in holders for defect in getattr(holder, "defects", ())],
            "id": mail["Message-ID"] is not None}


def authenticate(_server, _session, _envelope, _mechanism, data):
    good = (data.login.decode(), data.password.decode()) == (OPTIONS.user, OPTIONS.password)
    return smtp.AuthResult(success=good, handled=False, auth_data=data if good else None)


async def serve():
    keeper = Keeper()
    secured = {"auth_required": True, "authenticator": authenticate} if OPTIONS.user else {}
    tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH) if OPTIONS.certificate else None
    if tls:
        tls.load_cert_chain(OPTIONS.certificate)
    server = await asyncio.get_running_loop().create_server(
        lambda: LongLines(keeper, hostname="localhost", enable_SMTPUTF8=True, data_size_limit=None,
                          auth_require_tls=False, tls_context=None if OPTIONS.smtps else tls, loop=asyncio.get_running_loop(), **secured),
        sock=peer.listen(), ssl=tls if OPTIONS.smtps else None)
    await server.serve_forever()


# It warns of logging in without TLS, which is what the agent does.
warnings.simplefilter("ignore")
logging.disable(logging.CRITICAL)
asyncio.run(serve())
