#!/usr/bin/env python3
"""Runs the tool against nginx with basic authentication, plain and over TLS, and counts the requests
in its access log.

usage: nginx_test.py PATH_OF_KALMORA_SWEEP
"""
import contextlib
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
  log_format sweep '$server_name $remote_user $request $status';
  access_log {root}/access.log sweep;
  client_body_temp_path {root}/body;
  proxy_temp_path {root}/proxy;
  fastcgi_temp_path {root}/fastcgi;
  uwsgi_temp_path {root}/uwsgi;
  scgi_temp_path {root}/scgi;
  auth_basic "records";
  auth_basic_user_file {root}/users;
  root {root}/www;
  {servers}
}}
"""
PLAIN = """
  server {{
    server_name plain;
    listen 127.0.0.1:{port};
    location /away {{ auth_basic off; return 302 http://localhost:{port}/settle; }}
  }}
"""
ENCRYPTED = """
  server {{
    server_name {name};
    listen 127.0.0.1:{port} ssl;
    ssl_certificate {root}/{name}.pem;
    ssl_certificate_key {root}/key.pem;
  }}
"""
# The servers with certificates: who signed each, whom it names, and for how many days it is valid.
CERTIFICATES = {
    "sound": ("authority", "IP:127.0.0.1", 1),
    "unknown": ("stranger", "IP:127.0.0.1", 1),
    "misnamed": ("authority", "DNS:elsewhere.example", 1),
    "expired": ("authority", "IP:127.0.0.1", -1),
}
# Lets libcurl trust the authority of this test: opens its certificate instead of the system's list.
TRUST = """
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
static FILE *open_other(const char *name, const char *mode) {
  FILE *(*real)(const char *, const char *) = (FILE * (*)(const char *, const char *)) dlsym(RTLD_NEXT, "fopen64");
  return real(strstr(name, "ca-certificates.crt") ? getenv("TRUSTED") : name, mode);
}
FILE *fopen(const char *name, const char *mode) { return open_other(name, mode); }
FILE *fopen64(const char *name, const char *mode) { return open_other(name, mode); }
"""


def openssl(*arguments):
    return subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True,
                          text=True).stdout.strip()


def make_certificates(root):
    new_key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    for authority in ("authority", "stranger"):
        openssl("req", "-x509", *new_key, "-keyout", root / f"{authority}.key", "-out",
                root / f"{authority}.pem", "-subj", f"/CN={authority}", "-days", 1)
    openssl("req", "-new", *new_key, "-keyout", root / "key.pem", "-out", root / "request.pem",
            "-subj", "/CN=server")
    for name, (authority, subject, days) in CERTIFICATES.items():
        (root / "subject").write_text(f"subjectAltName={subject}\n")
        openssl("x509", "-req", "-in", root / "request.pem", "-CA", root / f"{authority}.pem",
                "-CAkey", root / f"{authority}.key", "-CAcreateserial", "-days", days,
                "-extfile", root / "subject", "-out", root / f"{name}.pem")


def make_trust(root):
    """The library for LD_PRELOAD."""
    library = root / "trust.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", library], input=TRUST, text=True,
                   check=True)
    return library


def free_ports(count):
    with contextlib.ExitStack() as probes:
        sockets = [probes.enter_context(socket.socket()) for _ in range(count)]
        for probe in sockets:
            probe.bind(("127.0.0.1", 0))
        return [probe.getsockname()[1] for probe in sockets]


class Nginx:
    """nginx on free loopback ports, one for each server; knows one user and serves one page."""

    def __init__(self, root):
        self.root = root
        (root / "users").write_text(f"halix:{openssl('passwd', '-apr1', 'secret')}\n")
        (root / "www").mkdir()
        (root / "www" / "settle").write_text("settled\n")
        make_certificates(root)
        self.ports, self.process = {}, None
        # Debian has it where the path of an ordinary user does not lead.
        self.program = shutil.which("nginx", path=f"{os.environ['PATH']}:/usr/sbin")

    def configuration(self):
        servers = [PLAIN.format(port=self.ports["plain"])] + [
            ENCRYPTED.format(name=name, port=self.ports[name], root=self.root) for name in CERTIFICATES]
        return CONFIGURATION.format(root=self.root, servers="".join(servers))

    def start(self):
        for _ in range(10):  # another process may take the port between the probe and the start
            self.ports = dict(zip(("plain", *CERTIFICATES), free_ports(1 + len(CERTIFICATES))))
            (self.root / "nginx.conf").write_text(self.configuration())
            self.process = subprocess.Popen([self.program, "-c", str(self.root / "nginx.conf")],
                                            stdin=subprocess.DEVNULL)
            if self.accepts():
                return
            self.process.kill()
            self.process.wait()
        sys.exit("nginx did not start")

    def accepts(self):
        while self.process.poll() is None:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.ports["plain"])) == 0:
                    return True
        return False

    def stop(self):
        self.process.send_signal(signal.SIGQUIT)  # finishes and writes its log before it ends
        self.process.wait()

    def requests(self):
        return sorted((self.root / "access.log").read_text().splitlines())



def dead_process_id():
    child = subprocess.Popen(["true"])
    child.wait()
    return child.pid


def write_records(directory, ports):
    alive, dead = os.getpid(), dead_process_id()
    base = f"http://127.0.0.1:{ports['plain']}"
    records = {
        "halix_server1.dat": f"{base}/settle?1 halix secret {alive}\n",
        "halix_server2.dat": f"{base}/settle?2 halix wrong {alive}\n",
        "halix_server3.dat": f"{base}/settle?3 halix secret {dead}\n",
        "halix_server4.dat": f"{base}/settle?4 halix secret\n",
        "halix_server5.dat": f"{base}/missing?5 halix secret {alive}\n",
        "halix_server6.dat": f"{base}/away?6 halix secret {alive}\n",
        "other7.dat": f"{base}/settle?7 halix secret {alive}\n",
    }
    for name in CERTIFICATES:
        url = f"https://127.0.0.1:{ports[name]}/settle"
        records[f"halix_server_{name}.dat"] = f"{url} halix secret {alive}\n"
    for name, content in records.items():
        (directory / name).write_text(content)


def environment(root, proxy):
    """One that would lead the credentials elsewhere, and other credentials to the servers."""
    (root / "home" / ".netrc").write_text("default login other password other\n")
    proxies = {name: proxy for name in ("http_proxy", "https_proxy", "all_proxy")}
    return proxies | {"HOME": str(root / "home"), "ZUL_USER_HOMEDIR": str(root / "home"),
                      "LD_PRELOAD": str(make_trust(root)), "TRUSTED": str(root / "authority.pem")}


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"FAILED: {what}\n  found  {found}\n  wanted {wanted}")
    print(f"ok: {what}")


def test(tool, root):
    records = root / "home" / RESOURCE_DIRECTORY
    records.mkdir(parents=True)
    server = Nginx(root)
    server.start()
    try:
        write_records(records, server.ports)
        run = subprocess.run([tool], stdin=subprocess.DEVNULL, capture_output=True, timeout=60,
                             env=environment(root, f"http://127.0.0.1:{server.ports['plain']}"))
    finally:
        server.stop()
    expect("exit status 0 and no output", (run.returncode, run.stdout, run.stderr), (0, b"", b""))
    # A server that refuses or does not know the page is still asked once, one that leads elsewhere
    # is not followed, and one without a sound certificate gets nothing.
    expect("one request for each settled record", server.requests(), [
        "plain halix GET /away?6 HTTP/1.1 302",
        "plain halix GET /missing?5 HTTP/1.1 404",
        "plain halix GET /settle?1 HTTP/1.1 200",
        "plain halix GET /settle?2 HTTP/1.1 401",
        "sound halix GET /settle HTTP/1.1 200",
    ])
    expect("files left", sorted(path.name for path in records.iterdir()),
           ["halix_server3.dat", "other7.dat"])
    print("3 passed, 0 failed")


def main():
    # Neither nginx nor the dynamic linker takes a path with a blank, as the build's may have.
    with tempfile.TemporaryDirectory(dir="/var/tmp", prefix="qal-nginx-") as root:
        test(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(root))


if __name__ == "__main__":
    main()
