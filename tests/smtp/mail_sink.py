#!/usr/bin/python3
"""A real mail server for one mail: prints "PORT n", then what it understood of the mail, line by line."""
import asyncio
import email
import email.policy
import email.utils
import signal
import warnings

from aiosmtpd.smtp import SMTP, AuthResult


class Sink:
    def __init__(self, done):
        self.done = done

    async def handle_DATA(self, server, session, envelope):
        mail = email.message_from_bytes(envelope.content, policy=email.policy.default)
        print("login", session.auth_data.login.decode(), session.auth_data.password.decode())
        print("envelope", envelope.mail_from, *envelope.rcpt_tos)
        print("headers", *mail.keys())
        print("date", email.utils.parsedate_to_datetime(mail["Date"]) is not None)
        for key in ("From", "To", "Cc", "Subject"):
            print(key, mail[key])
        for part in mail.iter_parts():
            payload = part.get_payload(decode=True)
            print(part.get_content_type(), part.get_filename(), payload.hex())
        print("defects", len(mail.defects), flush=True)
        return "250 taken"

    async def handle_QUIT(self, server, session, envelope):
        self.done.set()
        return "221 bye"


async def main():
    done = asyncio.Event()

    def make():
        return SMTP(Sink(done), enable_SMTPUTF8=True, auth_require_tls=False, auth_required=True,
                    authenticator=lambda *_: AuthResult(success=True, auth_data=_[-1]))

    server = await asyncio.get_running_loop().create_server(make, "127.0.0.1", 0)
    print("PORT", server.sockets[0].getsockname()[1], flush=True)
    await done.wait()


signal.alarm(60)
warnings.simplefilter("ignore")  # no TLS in this test
asyncio.run(main())
