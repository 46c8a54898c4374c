"""smtp_sink.py DIR: a local SMTP server that saves each envelope as DIR/N.from, DIR/N.rcpt
and DIR/N.eml, refuses recipients starting with "refuse", offers AUTH without TLS (no STARTTLS),
accepts any log-on noting its user in DIR/auth, and writes its port to DIR/port."""
import os
import socket
import sys
import time

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult


class Sink:
    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address.lower().startswith("refuse"):
            return "550 5.1.1 <%s>: Recipient address rejected" % address
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        base = os.path.join(self.folder, str(self.count))
        with open(base + ".from", "w") as f:
            f.write(envelope.mail_from + "\n")
        with open(base + ".rcpt", "w") as f:
            f.write("".join(r + "\n" for r in envelope.rcpt_tos))
        with open(base + ".eml", "wb") as f:
            f.write(envelope.original_content or envelope.content)
        return "250 Message accepted"


def authenticator(folder):
    def check(server, session, envelope, mechanism, auth_data):
        user = getattr(auth_data, "login", b"") or b""
        with open(os.path.join(folder, "auth"), "a") as f:
            f.write(user.decode(errors="replace") + "\n")
        return AuthResult(success=True)
    return check


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def main():
    folder = sys.argv[1]
    controller = Controller(Sink(folder), hostname="127.0.0.1", port=free_port(),
                            authenticator=authenticator(folder), auth_require_tls=False)
    controller.start()
    with open(os.path.join(folder, "port.tmp"), "w") as f:
        f.write(str(controller.port))
    os.rename(os.path.join(folder, "port.tmp"), os.path.join(folder, "port"))
    time.sleep(600)  # bounded: the test script stops it long before


if __name__ == "__main__":
    main()
