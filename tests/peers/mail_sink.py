#!/usr/bin/python3
"""A mail server (aiosmtpd) that keeps the mails it takes. It prints "port N" once it listens.

Mail number N (from 1, in order of arrival) leaves in --folder

  N.eml         the mail as it came
  N.html        the decoded HTML part, as Python's email library reads it
  N.attached-K  the decoded attachment K (from 1)
  N.json        envelope ("from", "to", "user" who logged in), the headers "From", "To", "Cc", "Subject" and
                "Date" as they came (as latin-1), the attachments' names and the defects that the library found

N.json last, so that the rest is complete once it is there. With --count-only only "count" is kept.
With --user and --password a client must log in, by PLAIN or LOGIN, before it may send.
"""
import argparse
import asyncio
import email
import email.policy
import json
import logging
import pathlib
import sys
import warnings

from aiosmtpd import smtp

HEADERS = ("From", "To", "Cc", "Subject", "Date")


class LongLines(smtp.SMTP):
    line_length_limit = 1 << 30  # the whole body is one line


class Keeper:
    def __init__(self, options):
        self.options = options
        self.count = 0

    def write(self, name, data):
        part = self.options.folder / (name + ".part")
        part.write_bytes(data)
        part.rename(self.options.folder / name)

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        if self.options.count_only:
            self.write("count", b"%d\n" % self.count)
        else:
            self.keep(str(self.count), session, envelope)
        return "250 OK"

    def keep(self, number, session, envelope):
        raw = envelope.original_content
        mail = email.message_from_bytes(raw, policy=email.policy.compat32)
        html = [part for part in mail.walk() if part.get_content_type() == "text/html"]
        attached = [part for part in mail.walk() if part.get_filename() is not None]
        self.write(number + ".eml", raw)
        self.write(number + ".html", b"".join(part.get_payload(decode=True) for part in html))
        for index, part in enumerate(attached, 1):
            self.write(f"{number}.attached-{index}", part.get_payload(decode=True))
        user = session.auth_data.login.decode() if session.auth_data else None
        head = raw.partition(b"\r\n\r\n")[0].decode("latin-1").replace("\r\n ", " ").split("\r\n")
        headers = dict(line.split(": ", 1) for line in head if ": " in line)
        record = {"from": envelope.mail_from, "to": envelope.rcpt_tos, "user": user,
                  "headers": {name: headers.get(name) for name in HEADERS},
                  "attached": [part.get_filename() for part in attached],
                  "defects": [repr(defect) for part in mail.walk() for defect in part.defects]}
        self.write(number + ".json", json.dumps(record).encode("ascii"))


async def serve(options):
    keeper = Keeper(options)

    def authenticate(_server, _session, _envelope, _mechanism, data):
        good = data.login.decode() == options.user and data.password.decode() == options.password
        return smtp.AuthResult(success=good, handled=False, auth_data=data if good else None)

    def protocol():
        secured = {"auth_required": True, "authenticator": authenticate} if options.user else {}
        return LongLines(keeper, hostname="localhost", enable_SMTPUTF8=True, data_size_limit=None,
                         auth_require_tls=False, loop=asyncio.get_running_loop(), **secured)

    server = await asyncio.get_running_loop().create_server(protocol, "127.0.0.1", 0, backlog=128)
    print("port", server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--folder", type=pathlib.Path, required=True)
    parser.add_argument("--user")
    parser.add_argument("--password")
    parser.add_argument("--count-only", action="store_true")
    options = parser.parse_args()
    # It warns of logging in without TLS, which is what the agent does.
    warnings.simplefilter("ignore")
    logging.disable(logging.CRITICAL)
    asyncio.run(serve(options))


if __name__ == "__main__":
    sys.exit(main())
