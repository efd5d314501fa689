#!/usr/bin/python3
"""An SMTP server on loopback for the mail tests (aiosmtpd).

Prints "PORT <n>" once it listens on a port the system picked. Each message
it takes is written whole to DIR/<n>.eml (first line the envelope sender,
second the recipients, then the data as received), through a temporary file,
so that a file that exists is complete. With --auth USER:PASSWORD the server
offers AUTH LOGIN and refuses mail from clients that did not log in.
"""
import argparse
import asyncio
import os
import socket
import sys

from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword


class Store:
    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        path = os.path.join(self.folder, f"{self.count}.eml")
        with open(path + ".tmp", "wb") as out:
            out.write(envelope.mail_from.encode() + b"\n")
            out.write(",".join(envelope.rcpt_tos).encode() + b"\n")
            out.write(envelope.original_content)
        os.rename(path + ".tmp", path)
        return "250 Message accepted"


def authenticator(user, password):
    def check(server, session, envelope, mechanism, auth_data):
        ok = (isinstance(auth_data, LoginPassword) and auth_data.login == user.encode()
              and auth_data.password == password.encode())
        # Not handled: the server then answers 535 itself.
        return AuthResult(success=ok, handled=False)
    return check


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dir", required=True)
    parser.add_argument("--auth")
    args = parser.parse_args()
    store = Store(args.dir)
    options = {}
    if args.auth:
        user, password = args.auth.split(":", 1)
        options = dict(authenticator=authenticator(user, password), auth_required=True,
                       auth_require_tls=False)
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    loop = asyncio.get_running_loop()
    server = await loop.create_server(lambda: SMTP(store, hostname="peer.test", **options), sock=listener)
    print(f"PORT {listener.getsockname()[1]}", flush=True)
    async with server:
        await server.serve_forever()


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except KeyboardInterrupt:
        sys.exit(0)
