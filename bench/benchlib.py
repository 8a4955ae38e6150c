"""Shared pieces of the bench scripts: starting korva-gateway and nginx on free loopback ports,
digest-authenticated raw requests, the load client, and /proc readings of a server process.

Every process started here is stopped by its own PID; nothing is looked up by name.
"""

import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
USER, PASSWORD = "admin", "Bench12345"
LISTENING = re.compile(
    r"^korva-gateway listening on http://(\S+):(\d+), admin on http://(\S+):(\d+)")
SANITIZER_REPORT = re.compile(
    r"ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:|WARNING: ThreadSanitizer")
TICK = os.sysconf("SC_CLK_TCK")
PAGE = os.sysconf("SC_PAGE_SIZE")


def build_bin(build, name):
    path = os.path.join(build, "bin", name)
    if not os.path.exists(path):
        raise SystemExit("%s not found: build it first (cmake --build --preset release "
                         "--target %s)" % (path, name))
    return path


# ---- /proc ----

def cpu_seconds(pid):
    """User + system CPU time of the process (all its threads), in seconds."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def rss_bytes(pid):
    with open("/proc/%d/statm" % pid) as f:
        return int(f.read().split()[1]) * PAGE


def open_descriptors(pid):
    return len(os.listdir("/proc/%d/fd" % pid))


def children(pid):
    """PIDs whose parent is pid."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/stat" % entry) as f:
                if int(f.read().rsplit(")", 1)[1].split()[1]) == pid:
                    found.append(int(entry))
        except (OSError, ValueError, IndexError):
            pass
    return found


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


# ---- raw HTTP with digest ----

def _answer(sock):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = sock.recv(65536)
        if not chunk:
            raise ConnectionError("closed before an answer head")
        data += chunk
    head, _, body = data.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    headers = {n.strip().lower(): v.strip() for n, _, v in (l.partition(":") for l in lines[1:])}
    length = int(headers.get("content-length", "0"))
    while len(body) < length:
        chunk = sock.recv(65536)
        if not chunk:
            raise ConnectionError("closed inside a body")
        body += chunk
    return int(lines[0].split(" ")[1]), headers, body[:length], body[length:]


def digest_header(method, uri, challenge, user, password, nc=1, cnonce="b3nch0001"):
    fields = dict(re.findall(r'(\w+)="?([^",]*)"?', challenge))
    algorithm = fields.get("algorithm", "")
    digest = hashlib.sha256 if algorithm.upper().startswith("SHA-256") else hashlib.md5

    def h(text):
        return digest(text.encode()).hexdigest()

    count = "%08x" % nc
    response = h("%s:%s:%s:%s:auth:%s" % (h("%s:%s:%s" % (user, fields["realm"], password)),
                                          fields["nonce"], count, cnonce, h(method + ":" + uri)))
    value = ('Digest username="%s", realm="%s", nonce="%s", uri="%s", qop=auth, nc=%s, '
             'cnonce="%s", response="%s"' % (user, fields["realm"], fields["nonce"], uri, count,
                                             cnonce, response))
    return value + (", algorithm=" + algorithm if algorithm else "")


def raw(method, path, headers=None, body=b"", port=None):
    """Request bytes; Host names the port (the admin port refuses a Host that does not)."""
    lines = ["%s %s HTTP/1.1" % (method, path), "Host: 127.0.0.1" + (":%d" % port if port else "")]
    lines += ["%s: %s" % item for item in (headers or {}).items()]
    if body or method in ("PUT", "POST"):
        lines.append("Content-Length: %d" % len(body))
    return ("\r\n".join(lines) + "\r\n\r\n").encode() + body


def request(port, method, path, body=b"", user=USER, password=PASSWORD, headers=None):
    """(status, headers, body) of one request, answering the digest challenge when user is set."""
    with socket.create_connection(("127.0.0.1", port), timeout=30) as sock:
        sock.sendall(raw(method, path, headers, body, port))
        status, answer_headers, answer, _ = _answer(sock)
        if status == 401 and user:
            extra = dict(headers or {})
            extra["Authorization"] = digest_header(method, path,
                                                   answer_headers["www-authenticate"], user,
                                                   password)
            sock.sendall(raw(method, path, extra, body, port))
            status, answer_headers, answer, _ = _answer(sock)
        return status, answer_headers, answer


def open_idle(port, count, user=None, password=None, path="/KORVA/System/deviceInfo"):
    """count keep-alive connections, each left idle after one answered request (authenticated
    when user is set); the sockets, to be closed by the caller."""
    socks = []
    try:
        for _ in range(count):
            sock = socket.create_connection(("127.0.0.1", port), timeout=30)
            socks.append(sock)
            sock.sendall(raw("GET", path))
            status, headers, _, _ = _answer(sock)
            if status == 401 and user:
                sock.sendall(raw("GET", path, {"Authorization": digest_header(
                    "GET", path, headers["www-authenticate"], user, password)}))
                status, _, _, _ = _answer(sock)
            if status != 200:
                raise RuntimeError("idle connection: GET %s answered %d" % (path, status))
    except BaseException:
        for sock in socks:
            sock.close()
        raise
    return socks


def open_stream(port, user, password, path="/KORVA/Event/notification/alertStream"):
    """A socket on which an authenticated GET of the alert stream was answered with a 200 head;
    (socket, bytes already read past the head)."""
    sock = socket.create_connection(("127.0.0.1", port), timeout=30)
    sock.sendall(raw("GET", path))
    status, headers, _, rest = _answer(sock)
    if status != 401:
        raise RuntimeError("alert stream: expected a challenge, got %d" % status)
    sock.sendall(raw("GET", path, {"Authorization": digest_header(
        "GET", path, headers["www-authenticate"], user, password)}))
    data = rest
    while b"\r\n\r\n" not in data:
        chunk = sock.recv(65536)
        if not chunk:
            raise ConnectionError("alert stream closed before its head")
        data += chunk
    head, _, rest = data.partition(b"\r\n\r\n")
    if not head.startswith(b"HTTP/1.1 200"):
        raise RuntimeError("alert stream refused: %r" % head[:200])
    return sock, rest


# ---- servers ----

def gateway_config(users_devices, log_level=5):
    """A configuration with (user, password, devIndex, device members) entries."""
    return {
        "realm": "KORVA Gateway", "activated": True, "logLevel": log_level,
        "auth": {"algorithm": "MD5", "maxAttempts": 5, "lockSeconds": 180,
                 "nonceLifetimeSeconds": 300},
        "users": [{"name": u, "password": p, "device": d} for u, p, d, _ in users_devices],
        "devices": [dict(devIndex=d, **extra) for _, _, d, extra in users_devices],
        # Every benchmark client comes from 127.0.0.1: lift the per-client caps.
        "limits": {"maxConnectionsPerClient": 1000000, "maxRelaysPerClient": 100000},
    }


class Gateway:
    """One korva-gateway with a generated configuration (and profiles) in its own folder."""

    def __init__(self, build, config, profiles=None, log_level=5, extra_args=()):
        self.tmp = tempfile.mkdtemp(prefix="korva-bench-gw-")
        for name, profile in (profiles or {}).items():
            os.makedirs(os.path.join(self.tmp, "profiles"), exist_ok=True)
            with open(os.path.join(self.tmp, "profiles", name + ".json"), "w") as f:
                json.dump(profile, f)
        self.config_path = os.path.join(self.tmp, "config.json")
        with open(self.config_path, "w") as f:
            json.dump(config, f)
        self.command = [build_bin(build, "korva-gateway"), "--config", self.config_path,
                        "--listen", "127.0.0.1:0", "--admin-listen", "127.0.0.1:0",
                        "--log-level", str(log_level)]
        plugin = os.path.join(build, "bin", "libkorva_protocol.so")
        if os.path.exists(plugin):
            self.command += ["--plugin", plugin]
        self.command += list(extra_args)
        self.process = None

    def start(self, timeout=30):
        self.stdout = open(os.path.join(self.tmp, "stdout.txt"), "w+b")
        self.stderr = open(os.path.join(self.tmp, "stderr.txt"), "w+b")
        self.process = subprocess.Popen(self.command, stdout=self.stdout, stderr=self.stderr,
                                        stdin=subprocess.DEVNULL)
        self.pid = self.process.pid
        deadline = time.monotonic() + timeout
        while True:
            with open(os.path.join(self.tmp, "stdout.txt"), "rb") as f:
                first = f.readline().decode()
            if first.endswith("\n"):
                break
            if self.process.poll() is not None:
                raise RuntimeError("gateway exited with %d: %s" % (
                    self.process.returncode, self.stderr_text()[-2000:]))
            if time.monotonic() > deadline:
                raise RuntimeError("gateway printed no listening line in %ss" % timeout)
            time.sleep(0.02)
        match = LISTENING.match(first)
        if not match:
            raise RuntimeError("unexpected first line %r" % first)
        self.port, self.admin_port = int(match.group(2)), int(match.group(4))
        return self

    def stderr_text(self):
        with open(os.path.join(self.tmp, "stderr.txt"), "rb") as f:
            return f.read().decode("utf-8", "replace")

    def admin(self, method, path, body=b""):
        """(status, body bytes) of an admin API call."""
        with socket.create_connection(("127.0.0.1", self.admin_port), timeout=30) as sock:
            sock.sendall(raw(method, path, {"Connection": "close"}, body, self.admin_port))
            status, _, answer, _ = _answer(sock)
            return status, answer

    def stop(self, timeout=60):
        """SIGTERM and wait; the exit status."""
        code = None
        if self.process is not None:
            if self.process.poll() is None:
                self.process.send_signal(signal.SIGTERM)
            try:
                code = self.process.wait(timeout)
            except subprocess.TimeoutExpired:
                self.process.kill()
                code = self.process.wait()
            self.final_stderr = self.stderr_text()
        shutil.rmtree(self.tmp, ignore_errors=True)
        return code

    def sanitizer_report(self):
        """The first sanitizer report in the stopped gateway's stderr, or None."""
        match = SANITIZER_REPORT.search(getattr(self, "final_stderr", ""))
        return self.final_stderr[match.start():match.start() + 3000] if match else None


NGINX_CONF = """worker_processes 1;
daemon off;
master_process on;
pid {tmp}/nginx.pid;
error_log {tmp}/error.log warn;
events {{ worker_connections 4096; }}
http {{
    access_log off;
    keepalive_requests 100000000;
    keepalive_timeout 300s;
    client_body_temp_path {tmp}/client_body;
    proxy_temp_path {tmp}/proxy;
    fastcgi_temp_path {tmp}/fastcgi;
    uwsgi_temp_path {tmp}/uwsgi;
    scgi_temp_path {tmp}/scgi;
    default_type application/xml;
    server {{
        listen 127.0.0.1:{port};
        root {tmp}/www;
    }}
}}
"""


class Nginx:
    """nginx from the distribution: one worker, no access log, static files given as
    {path: bytes}, its own prefix and configuration in a temporary folder."""

    def __init__(self, files, binary="/usr/sbin/nginx"):
        if not os.path.exists(binary):
            raise SystemExit("nginx not found at %s (scripts/install-deps.sh installs it)" % binary)
        self.binary = binary
        self.tmp = tempfile.mkdtemp(prefix="korva-bench-nginx-")
        os.chmod(self.tmp, 0o755)  # the worker may run as an unprivileged user
        for path, content in files.items():
            target = os.path.join(self.tmp, "www", path.lstrip("/"))
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "wb") as f:
                f.write(content)
        for folder, _, names in os.walk(os.path.join(self.tmp, "www")):
            os.chmod(folder, 0o755)
            for name in names:
                os.chmod(os.path.join(folder, name), 0o644)
        self.port = free_port()
        self.conf = os.path.join(self.tmp, "nginx.conf")
        with open(self.conf, "w") as f:
            f.write(NGINX_CONF.format(tmp=self.tmp, port=self.port))
        self.process = None

    def start(self, timeout=15):
        self.process = subprocess.Popen(
            [self.binary, "-p", self.tmp, "-c", self.conf, "-e", os.path.join(self.tmp,
                                                                              "error.log")],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        deadline = time.monotonic() + timeout
        while True:
            try:
                with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                    break
            except OSError:
                if self.process.poll() is not None or time.monotonic() > deadline:
                    raise RuntimeError("nginx did not start: %s" % self.error_log())
                time.sleep(0.05)
        return self

    def error_log(self):
        try:
            with open(os.path.join(self.tmp, "error.log")) as f:
                return f.read()[-2000:]
        except OSError:
            return ""

    def cpu_seconds(self):
        """CPU of the master and its workers."""
        total = cpu_seconds(self.pid)
        for child in children(self.pid):
            try:
                total += cpu_seconds(child)
            except OSError:
                pass
        return total

    def rss_bytes(self):
        """RSS of the master and its workers."""
        total = rss_bytes(self.pid)
        for child in children(self.pid):
            try:
                total += rss_bytes(child)
            except OSError:
                pass
        return total

    def stop(self, timeout=30):
        if self.process is not None and self.process.poll() is None:
            self.process.send_signal(signal.SIGQUIT)  # graceful: workers finish, then exit
            try:
                self.process.wait(timeout)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        shutil.rmtree(self.tmp, ignore_errors=True)


# ---- the load client ----

def run_load(build, port, path, seconds, connections, threads=None, method="GET",
             body_file=None, user=None, password=None, warmup=0.0, max_requests=None,
             rate=None, devices=None, content_type=None):
    """One korva-load run; its JSON report as a dict."""
    command = [build_bin(build, "korva-load"), "--port", str(port), "--path", path, "--method",
               method, "--connections", str(connections), "--duration", str(seconds),
               "--warmup", str(warmup), "--json"]
    if threads:
        command += ["--threads", str(threads)]
    if body_file:
        command += ["--body-file", body_file]
    if user:
        command += ["--user", user, "--password", password]
    if max_requests:
        command += ["--max-requests", str(max_requests)]
    if rate:
        command += ["--rate", str(rate)]
    if devices:
        command += ["--devices", str(devices)]
    if content_type:
        command += ["--content-type", content_type]
    out = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
                         timeout=seconds + 120)
    if out.returncode != 0:
        raise RuntimeError("korva-load failed: %s" % out.stderr.decode())
    return json.loads(out.stdout.decode().strip().splitlines()[-1])
