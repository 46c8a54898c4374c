#!/usr/bin/python3
"""A throw-away CardDAV server for the tests.

  radicale_server.py WORKDIR [user:password ...] [--book user/name ...] [--port PORT]
      Writes a Radicale configuration into WORKDIR (plain-text htpasswd users, storage under
      WORKDIR/collections), starts Radicale on 127.0.0.1 and a free port (or PORT, to start a
      stopped server again where its clients look for it), makes the address books asked for,
      writes the port into WORKDIR/port and stays in the foreground until killed (SIGTERM or
      SIGINT stop Radicale too). Radicale's log is WORKDIR/radicale.log.

  radicale_server.py --mkcol URL USER PASSWORD [calendar]
      Makes the address book (or calendar) at URL as USER, and ends; its status is 0 when the
      server answered 201 Created.

  radicale_server.py --busy WORKDIR
      Not Radicale: a small HTTP server for the back-off of clients. A request to /N/... (N a
      number) is answered 429 the first N times that path is asked for, with Retry-After
      alternately in seconds ("1") and as an HTTP date (two seconds ahead); after that, a
      PROPFIND is answered 207 with an address book, anything else 200.
"""

import base64
import email.utils
import http.server
import os
import signal
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request

MKCOL_BODY = (
    '<?xml version="1.0"?><D:mkcol xmlns:D="DAV:" xmlns:C="urn:ietf:params:xml:ns:%s">'
    "<D:set><D:prop><D:resourcetype><D:collection/><C:%s/></D:resourcetype>"
    "<D:displayname>Book</D:displayname></D:prop></D:set></D:mkcol>"
)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def write_port(workdir, port):
    tmp = os.path.join(workdir, "port.tmp")
    with open(tmp, "w") as f:
        f.write(str(port))
    os.rename(tmp, os.path.join(workdir, "port"))  # readers never see half a number


def make_book(url, user, password, calendar=False):
    """The server's status; 405 when the collection is there already (a server started again)."""
    login = base64.b64encode(("%s:%s" % (user, password)).encode()).decode()
    headers = {"Authorization": "Basic " + login, "Content-Type": "application/xml; charset=utf-8"}
    kind = ("caldav", "calendar") if calendar else ("carddav", "addressbook")
    body = (MKCOL_BODY % kind).encode()
    req = urllib.request.Request(url, data=body, method="MKCOL", headers=headers)
    try:
        with urllib.request.urlopen(req, timeout=10) as answer:
            return answer.status
    except urllib.error.HTTPError as e:
        if e.code != 405:
            raise
        return e.code


def run_radicale(workdir, users, books, port=None):
    port = port or free_port()
    with open(os.path.join(workdir, "users"), "w") as f:
        for user, password in users.items():
            f.write("%s:%s\n" % (user, password))
    config = os.path.join(workdir, "config")
    with open(config, "w") as f:
        f.write(
            "[server]\nhosts = 127.0.0.1:%d\n"
            "[auth]\ntype = htpasswd\nhtpasswd_filename = %s\nhtpasswd_encryption = plain\n"
            "delay = 0\n"
            "[storage]\nfilesystem_folder = %s\n"
            "[logging]\nlevel = info\n"  # one line a request: the tests count the writes
            % (port, os.path.join(workdir, "users"), os.path.join(workdir, "collections"))
        )
    log = open(os.path.join(workdir, "radicale.log"), "ab")
    server = subprocess.Popen(
        [sys.executable, "-m", "radicale", "--config", config], stdout=log, stderr=log
    )

    def stop(*_):
        server.terminate()  # the wait below, or the start-up loop, then ends

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)

    base = "http://127.0.0.1:%d/" % port
    deadline = time.time() + 10
    while True:
        if server.poll() is not None:
            sys.exit("radicale ended at its start (see radicale.log)")
        try:
            urllib.request.urlopen(base, timeout=1).close()
            break
        except urllib.error.HTTPError:
            break  # it answers
        except OSError:
            if time.time() > deadline:
                server.terminate()
            time.sleep(0.05)
    for book in books:
        user = book.split("/")[0]
        make_book(base + book.strip("/") + "/", user, users[user])
    write_port(workdir, port)
    server.wait()
    sys.exit(0)


def run_busy(workdir):
    asked = {}

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def log_message(self, *args):
            pass

        def answer(self):
            length = int(self.headers.get("Content-Length") or 0)
            if length:
                self.rfile.read(length)
            first = self.path.strip("/").split("/")[0]
            limit = int(first) if first.isdigit() else 0
            count = asked.get(self.path, 0)
            asked[self.path] = count + 1
            if count < limit:
                self.send_response(429)
                if count % 2 == 0:
                    self.send_header("Retry-After", "1")
                else:
                    self.send_header("Retry-After", email.utils.formatdate(time.time() + 2, usegmt=True))
                body = b"Too many requests"
            elif self.command == "PROPFIND":
                self.send_response(207)
                body = (
                    '<?xml version="1.0"?><multistatus xmlns="DAV:"><response><href>%s</href>'
                    "<propstat><prop><resourcetype><collection/><addressbook "
                    'xmlns="urn:ietf:params:xml:ns:carddav"/></resourcetype></prop>'
                    "<status>HTTP/1.1 200 OK</status></propstat></response></multistatus>"
                    % self.path
                ).encode()
                self.send_header("Content-Type", "application/xml; charset=utf-8")
            else:
                self.send_response(200)
                body = b""
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        do_GET = do_PUT = do_DELETE = do_PROPFIND = do_REPORT = answer

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    write_port(workdir, server.server_address[1])
    server.serve_forever()


def main(args):
    if args and args[0] == "--busy":
        return run_busy(args[1])
    if args and args[0] == "--mkcol":
        status = make_book(*args[1:4], calendar=args[4:] == ["calendar"])
        sys.exit(0 if status == 201 else "MKCOL answered %d" % status)
    if not args:
        sys.exit(__doc__)
    workdir, users, books, port = args[0], {}, [], None
    rest = iter(args[1:])
    for arg in rest:
        if arg == "--book":
            books.append(next(rest))
        elif arg == "--port":
            port = int(next(rest))
        else:
            user, _, password = arg.partition(":")
            users[user] = password
    os.makedirs(os.path.join(workdir, "collections"), exist_ok=True)
    run_radicale(workdir, users, books, port)


if __name__ == "__main__":
    main(sys.argv[1:])
