#!/usr/bin/python3
"""A throw-away PostgreSQL 15 cluster for the tests.

  postgres_server.py WORKDIR
      Makes a cluster in WORKDIR/data (superuser "dossync", trusted local logins) and starts it
      on a socket in WORKDIR/socket, without TCP; writes its maintenance database's URI to
      WORKDIR/uri-base, its log to WORKDIR/postgres.log, and stays in the foreground until
      SIGTERM or SIGINT. Run as root, the cluster belongs to "nobody", who must reach WORKDIR.
"""

import os
import pwd
import signal
import socket
import subprocess
import sys
import time

BIN = "/usr/lib/postgresql/15/bin"


def free_port():
    # The port only names the socket file here, but a free TCP port keeps it unique anyway.
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def main(args):
    if len(args) != 1:
        sys.exit(__doc__)
    workdir = os.path.abspath(args[0])
    data, sockets = os.path.join(workdir, "data"), os.path.join(workdir, "socket")
    os.makedirs(sockets, exist_ok=True)
    log_path = os.path.join(workdir, "postgres.log")
    log = open(log_path, "ab")
    env, drop = dict(os.environ), None
    env.pop("PGDATA", None)
    if os.getuid() == 0:  # commands run as the cluster's owner
        user = pwd.getpwnam("nobody")
        env.update(HOME="/nonexistent", USER="nobody", LOGNAME="nobody")
        for path in (workdir, sockets, log_path):
            os.chown(path, user.pw_uid, user.pw_gid)

        def drop():
            os.setgid(user.pw_gid)
            os.setuid(user.pw_uid)
    as_owner = dict(stdout=log, stderr=log, preexec_fn=drop, env=env, cwd=workdir)
    if not os.path.exists(os.path.join(data, "PG_VERSION")):
        subprocess.run([BIN + "/initdb", "-D", data, "-U", "dossync", "--auth=trust", "-E",
                        "UTF8", "--locale=C.UTF-8", "--no-sync"], check=True, **as_owner)
    port = free_port()
    server = subprocess.Popen(
        [BIN + "/postgres", "-D", data, "-k", sockets, "-p", str(port),
         "-c", "listen_addresses=", "-c", "fsync=off", "-c", "full_page_writes=off",
         "-c", "synchronous_commit=off", "-c", "max_connections=50"], **as_owner)

    def stop(*_):
        if server.poll() is None:
            server.send_signal(signal.SIGINT)  # fast shutdown: clients are cut off

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)

    deadline = time.time() + 30
    while subprocess.run([BIN + "/pg_isready", "-q", "-h", sockets, "-p", str(port)]).returncode:
        if server.poll() is not None:
            sys.exit("postgres ended at its start (see postgres.log)")
        if time.time() > deadline:
            stop()
            server.wait()
            sys.exit("postgres did not start within 30 s (see postgres.log)")
        time.sleep(0.05)
    tmp = os.path.join(workdir, "uri-base.tmp")
    with open(tmp, "w") as f:
        f.write("postgresql://dossync@/postgres?host=%s&port=%d" % (sockets, port))
    os.rename(tmp, os.path.join(workdir, "uri-base"))  # readers never see half a URI
    server.wait()
    sys.exit(0)


if __name__ == "__main__":
    main(sys.argv[1:])
