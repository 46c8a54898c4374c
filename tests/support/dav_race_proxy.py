#!/usr/bin/python3
"""An HTTP proxy in front of a CardDAV server that plays another client racing a write.

  dav_race_proxy.py WORKDIR UPSTREAM_PORT USER:PASSWORD
      Listens on 127.0.0.1 and a free port (written into WORKDIR/proxy-port) and passes every
      request to 127.0.0.1:UPSTREAM_PORT as it is. Before passing on a PUT, it reads
      WORKDIR/race: lines "NAME<TAB>PATTERN<TAB>REPLACEMENT". When the PUT's path ends in /NAME,
      that line is used up: the card is fetched from the server (as USER), PATTERN (a Python regular
      expression, multi-line) replaced by REPLACEMENT in it, and the result stored without
      If-Match, as another client's save between the writer's read and its write; then the PUT
      goes on (and, when it carried If-Match, meets a 412). Each request's method, path and
      status are appended to WORKDIR/proxy.log.
"""

import base64
import http.client
import http.server
import os
import re
import sys
import threading

work, upstream = sys.argv[1], int(sys.argv[2])
auth = "Basic " + base64.b64encode(sys.argv[3].encode()).decode()
lock = threading.Lock()
HOP = {"host", "connection", "keep-alive", "transfer-encoding", "content-length", "proxy-connection"}


def call(method, path, headers, body):
    conn = http.client.HTTPConnection("127.0.0.1", upstream, timeout=60)
    conn.request(method, path, body=body, headers=headers)
    resp = conn.getresponse()
    data = resp.read()
    conn.close()
    return resp.status, resp.reason, resp.getheaders(), data


def race(path):
    race_file = os.path.join(work, "race")
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
            with open(os.path.join(work, "proxy.log"), "a") as log:
                log.write("RACE %s %d\n" % (path, status))
            del lines[i]
            with open(race_file, "w") as f:
                f.write("".join(l + "\n" for l in lines))
            return


class Proxy(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def forward(self):
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length) if length else None
        headers = {k: v for k, v in self.headers.items() if k.lower() not in HOP}
        if self.command == "PUT":
            race(self.path)
        status, reason, resp_headers, data = call(self.command, self.path, headers, body)
        with lock, open(os.path.join(work, "proxy.log"), "a") as log:
            log.write("%s %s %d %s\n" % (self.command, self.path, status, headers.get("If-Match", "")))
        self.send_response(status, reason)
        for k, v in resp_headers:
            if k.lower() not in HOP:
                self.send_header(k, v)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(data)

    do_GET = do_PUT = do_DELETE = do_PROPFIND = do_REPORT = do_OPTIONS = forward
    do_HEAD = do_POST = do_MKCOL = do_PROPPATCH = do_MOVE = do_COPY = forward


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Proxy)
with open(os.path.join(work, "proxy-port.tmp"), "w") as f:
    f.write(str(server.server_address[1]))
os.replace(os.path.join(work, "proxy-port.tmp"), os.path.join(work, "proxy-port"))
server.serve_forever()
