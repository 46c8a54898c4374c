#!/usr/bin/python3
"""Throw-away CardDAV servers for the tests.

  radicale_server.py WORKDIR [user:password ...] [--book user/name ...] [--port PORT]
      Radicale on 127.0.0.1 (plain-text htpasswd users, storage and radicale.log in WORKDIR) on
      a free port, or PORT to start a stopped server again; makes the books asked for, then
      writes the port to WORKDIR/port. SIGTERM or SIGINT stop Radicale too.
  radicale_server.py --mkcol URL USER PASSWORD [calendar]
      Makes the address book (or calendar) at URL; status 0 when the server answered 201.

  Not Radicale, each on a free port written to WORKDIR/port (--race: WORKDIR/proxy-port):
  radicale_server.py --busy WORKDIR
      For clients' back-off: /N/... is answered 429 the first N times that path is asked for,
      Retry-After alternately "1" and an HTTP date 2 s ahead; then PROPFIND gets an address
      book (207), anything else 200.
  radicale_server.py --hostile WORKDIR
      The book /book/ (any log-on) whose listing names members on another origin (itself, as
      localhost) and outside the book beside its own card; each request goes to WORKDIR/book.log.
  radicale_server.py --race WORKDIR UPSTREAM_PORT USER:PASSWORD
      A proxy to 127.0.0.1:UPSTREAM_PORT that plays another client racing a write: a line
      "NAME<TAB>PATTERN<TAB>REPLACEMENT" of WORKDIR/race is used up by the next PUT to .../NAME,
      before which the server's card is stored with PATTERN (a multi-line regular expression)
      replaced, without If-Match. Each request's method, path and status go to WORKDIR/proxy.log.
"""

import base64
import email.utils
import http.client
import http.server
import os
import re
import signal
import socket
import subprocess
import sys
import threading
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


def write_port(workdir, port, name="port"):
    tmp = os.path.join(workdir, name + ".tmp")
    with open(tmp, "w") as f:
        f.write(str(port))
    os.rename(tmp, os.path.join(workdir, name))  # readers never see half a number


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


def serve(workdir, answer, port_name="port"):
    """Answers every request with answer(handler) until SIGTERM."""
    methods = "GET HEAD PUT POST DELETE OPTIONS PROPFIND PROPPATCH REPORT MKCOL MOVE COPY"
    handler = type("Handler", (http.server.BaseHTTPRequestHandler,), {
        "protocol_version": "HTTP/1.1", "log_message": lambda *_: None,
        **{"do_" + m: answer for m in methods.split()}})
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    write_port(workdir, server.server_address[1], port_name)
    server.serve_forever()


def reply(h, status, body=b"", headers=(), reason=None):
    h.send_response(status, reason)
    for name, value in headers:
        h.send_header(name, value)
    h.send_header("Content-Length", str(len(body)))
    h.end_headers()
    if h.command != "HEAD":
        h.wfile.write(body)


def multistatus(members):
    """A 207 body listing (href, properties) pairs."""
    return ('<?xml version="1.0"?><D:multistatus xmlns:D="DAV:" xmlns:C="urn:ietf:params:xml:ns:'
            'carddav">' + "".join(
                "<D:response><D:href>%s</D:href><D:propstat><D:prop>%s</D:prop><D:status>"
                "HTTP/1.1 200 OK</D:status></D:propstat></D:response>" % m for m in members)
            + "</D:multistatus>").encode()


BOOK = "<D:resourcetype><D:collection/><C:addressbook/></D:resourcetype>"


def run_busy(workdir):
    asked = {}

    def answer(h):
        h.rfile.read(int(h.headers.get("Content-Length") or 0))
        first = h.path.strip("/").split("/")[0]
        asked[h.path] = count = asked.get(h.path, 0) + 1
        if count <= (int(first) if first.isdigit() else 0):
            later = email.utils.formatdate(time.time() + 2, usegmt=True)
            reply(h, 429, b"Too many requests", [("Retry-After", "1" if count % 2 else later)])
        elif h.command == "PROPFIND":
            reply(h, 207, multistatus([(h.path, BOOK)]), [("Content-Type", "application/xml")])
        else:
            reply(h, 200)

    serve(workdir, answer)


def run_hostile(workdir):
    card = "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:own\r\nFN:Own Card\r\nN:Card;Own;;;\r\nEND:VCARD\r\n"

    def answer(h):
        body = h.rfile.read(int(h.headers.get("Content-Length") or 0)).decode()
        with open(os.path.join(workdir, "book.log"), "a") as f:
            f.write(h.command + " " + h.path + "\n")
        hostile = ["http://localhost:%d/steal/a.vcf" % h.server.server_address[1],
                   "/elsewhere/b.vcf", "/book/%2e%2e/elsewhere/c.vcf"]
        etag = '<D:getetag>"1"</D:getetag>'
        xml = [("Content-Type", "application/xml"), ("ETag", '"1"')]
        if not h.headers.get("Authorization"):
            reply(h, 401, headers=xml + [("WWW-Authenticate", 'Basic realm="book"')])
        elif not h.path.startswith("/book/"):
            reply(h, 404, headers=xml)
        elif h.command == "PROPFIND" and h.headers.get("Depth") == "0":
            reply(h, 207, multistatus([("/book/", BOOK)]), xml)
        elif h.command == "PROPFIND":
            members = [(m, etag + "<D:resourcetype/>") for m in ["/book/own.vcf"] + hostile]
            reply(h, 207, multistatus(
                [("/book/", "<D:resourcetype><D:collection/></D:resourcetype>")] + members), xml)
        elif h.command == "REPORT":
            reply(h, 207, multistatus((m, etag + "<C:address-data>%s</C:address-data>" % card)
                                      for m in hostile + ["/book/own.vcf"] if m in body), xml)
        elif h.command in ("PUT", "DELETE"):
            reply(h, 204, headers=xml)
        else:
            reply(h, 200, card.encode(), [("Content-Type", "text/vcard"), ("ETag", '"1"')])

    serve(workdir, answer)


def run_race(workdir, upstream, login):
    auth = "Basic " + base64.b64encode(login.encode()).decode()
    lock = threading.Lock()
    hop = {"host", "connection", "keep-alive", "transfer-encoding", "content-length",
           "proxy-connection"}

    def call(method, path, headers, body):
        conn = http.client.HTTPConnection("127.0.0.1", upstream, timeout=60)
        conn.request(method, path, body=body, headers=headers)
        with conn.getresponse() as resp:
            return resp.status, resp.reason, resp.getheaders(), resp.read()

    def race(path):
        race_file = os.path.join(workdir, "race")
        with lock:
            try:
                lines = open(race_file).read().splitlines()
            except FileNotFoundError:
                return
            for i, line in enumerate(lines):
                name, pattern, replacement = line.split("\t")
                if not path.endswith("/" + name):
                    continue
                headers = {"Authorization": auth}
                status, _, _, card = call("GET", path, headers, None)
                if status == 200:
                    changed = re.sub(pattern, replacement, card.decode(), flags=re.M)
                    headers["Content-Type"] = "text/vcard; charset=utf-8"
                    status, _, _, _ = call("PUT", path, headers, changed.encode())
                with open(os.path.join(workdir, "proxy.log"), "a") as log:
                    log.write("RACE %s %d\n" % (path, status))
                del lines[i]
                with open(race_file, "w") as f:
                    f.write("".join(l + "\n" for l in lines))
                return

    def answer(h):
        length = int(h.headers.get("Content-Length") or 0)
        body = h.rfile.read(length) if length else None
        headers = {k: v for k, v in h.headers.items() if k.lower() not in hop}
        if h.command == "PUT":
            race(h.path)
        status, reason, resp_headers, data = call(h.command, h.path, headers, body)
        with lock, open(os.path.join(workdir, "proxy.log"), "a") as log:
            log.write("%s %s %d %s\n" % (h.command, h.path, status, headers.get("If-Match", "")))
        reply(h, status, data, [(k, v) for k, v in resp_headers if k.lower() not in hop], reason)

    serve(workdir, answer, "proxy-port")


def main(args):
    if args and args[0] in ("--busy", "--hostile"):
        return (run_busy if args[0] == "--busy" else run_hostile)(args[1])
    if args and args[0] == "--race":
        return run_race(args[1], int(args[2]), args[3])
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
