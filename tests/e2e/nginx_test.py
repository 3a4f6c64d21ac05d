#!/usr/bin/env python3
"""Runs the tool against nginx with basic authentication and counts the requests in its access log.

usage: nginx_test.py PATH_OF_KALMORA_SWEEP
"""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

RESOURCE_DIRECTORY = "Library/Application Support/kalmora102"
CONFIGURATION = """
daemon off;
master_process off;
worker_processes 1;
pid {root}/nginx.pid;
error_log {root}/error.log;
events {{ worker_connections 64; }}
http {{
  log_format sweep '$remote_user $request $status';
  access_log {root}/access.log sweep;
  client_body_temp_path {root}/body;
  proxy_temp_path {root}/proxy;
  fastcgi_temp_path {root}/fastcgi;
  uwsgi_temp_path {root}/uwsgi;
  scgi_temp_path {root}/scgi;
  server {{
    listen 127.0.0.1:{port};
    auth_basic "records";
    auth_basic_user_file {root}/users;
    root {root}/www;
  }}
}}
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Nginx:
    """nginx on a free loopback port; knows one user and serves one page."""

    def __init__(self, root):
        self.root = root
        digest = subprocess.run(["openssl", "passwd", "-apr1", "secret"], check=True,
                                capture_output=True, text=True).stdout.strip()
        (root / "users").write_text(f"halix:{digest}\n")
        (root / "www").mkdir()
        (root / "www" / "settle").write_text("settled\n")
        self.process = None

    def start(self):
        for _ in range(10):  # another process may take the port between the probe and the start
            self.port = free_port()
            (self.root / "nginx.conf").write_text(
                CONFIGURATION.format(root=self.root, port=self.port))
            self.process = subprocess.Popen(["nginx", "-c", str(self.root / "nginx.conf")],
                                            stdin=subprocess.DEVNULL)
            if self.accepts():
                return
            self.process.kill()
            self.process.wait()
        sys.exit("nginx did not start")

    def accepts(self):
        while self.process.poll() is None:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return True
        return False

    def stop(self):
        self.process.send_signal(signal.SIGQUIT)  # finishes and writes its log before it ends
        self.process.wait()

    def requests(self):
        return (self.root / "access.log").read_text().splitlines()


def dead_process_id():
    child = subprocess.Popen(["true"])
    child.wait()
    return child.pid


def write_records(directory, base):
    alive, dead = os.getpid(), dead_process_id()
    records = {
        "halix_server1.dat": f"{base}/settle?1 halix secret {alive}\n",
        "halix_server2.dat": f"{base}/settle?2 halix wrong {alive}\n",
        "halix_server3.dat": f"{base}/settle?3 halix secret {dead}\n",
        "halix_server4.dat": f"{base}/settle?4 halix secret\n",
        "halix_server5.dat": f"{base}/missing?5 halix secret {alive}\n",
        "other6.dat": f"{base}/settle?6 halix secret {alive}\n",
    }
    for name, content in records.items():
        (directory / name).write_text(content)


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"FAILED: {what}\n  found  {found}\n  wanted {wanted}")
    print(f"ok: {what}")


def main():
    tool = pathlib.Path(sys.argv[1]).resolve()
    root = pathlib.Path(tempfile.mkdtemp(dir=tool.parent, prefix="nginx-"))
    records = root / "home" / RESOURCE_DIRECTORY
    records.mkdir(parents=True)
    server = Nginx(root)
    server.start()
    try:
        write_records(records, f"http://127.0.0.1:{server.port}")
        run = subprocess.run([tool], env={"ZUL_USER_HOMEDIR": str(root / "home")},
                             stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
    finally:
        server.stop()
    expect("exit status 0 and no output", (run.returncode, run.stdout, run.stderr), (0, b"", b""))
    # A server that refuses or does not know the page is still asked once.
    expect("one request for each settled record", sorted(server.requests()), sorted([
        "halix GET /settle?1 HTTP/1.1 200",
        "halix GET /settle?2 HTTP/1.1 401",
        "halix GET /missing?5 HTTP/1.1 404",
    ]))
    expect("files left", sorted(path.name for path in records.iterdir()),
           ["halix_server3.dat", "other6.dat"])
    shutil.rmtree(root)
    print("3 passed, 0 failed")


if __name__ == "__main__":
    main()
