"""Runs korva-gateway for end-to-end tests.

Gateway(config, profiles) writes the configuration (and device profiles) into a temporary
directory, starts the gateway on free ports, reads the listening line and gives the base URLs,
digest-authenticated sessions and an admin helper. stop() sends SIGTERM and returns the exit
status and stderr; GatewayTestCase runs one gateway per test class and fails the class when the
gateway does not exit 0 or a sanitizer reported anything.

Environment: KORVA_GATEWAY (the executable) and KORVA_PLUGIN (the plug-in library).
"""

import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import time
import unittest

import requests
from requests.auth import HTTPDigestAuth

GATEWAY = os.environ.get("KORVA_GATEWAY", "")
PLUGIN = os.environ.get("KORVA_PLUGIN", "")

USER = "admin"
PASSWORD = "Admin12345"
LISTENING = re.compile(
    r"^korva-gateway listening on http://(\S+):(\d+), admin on http://(\S+):(\d+)$")
SANITIZER_REPORT = re.compile(
    r"ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:|WARNING: ThreadSanitizer")


def make_config(users=None, devices=None, **members):
    """A configuration document; members override or add top-level members."""
    config = {
        "realm": "KORVA Gateway",
        "activated": True,
        "logLevel": 4,
        "auth": {"algorithm": "MD5", "maxAttempts": 5, "lockSeconds": 180,
                 "nonceLifetimeSeconds": 300},
        "users": users if users is not None else [
            {"name": USER, "password": PASSWORD, "device": "cam-1"}],
        "devices": devices if devices is not None else [{"devIndex": "cam-1"}],
    }
    config.update(members)
    return config


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Gateway:
    """One korva-gateway process."""

    def __init__(self, config=None, profiles=None, args=None, use_config=True):
        self.config = config if config is not None else make_config()
        self.profiles = profiles or {}
        self.args = list(args or [])
        self.use_config = use_config
        self.tmp = tempfile.TemporaryDirectory(prefix="korva-e2e-")
        self.process = None
        self.stdout_path = os.path.join(self.tmp.name, "stdout.txt")
        self.stderr_path = os.path.join(self.tmp.name, "stderr.txt")
        self.lines = []
        self.base = self.admin_base = None

    # ---- life cycle ----

    def write_files(self):
        for name, profile in self.profiles.items():
            path = os.path.join(self.tmp.name, "profiles", name + ".json")
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w") as f:
                f.write(profile if isinstance(profile, str) else json.dumps(profile))
        path = os.path.join(self.tmp.name, "config.json")
        with open(path, "w") as f:
            f.write(self.config if isinstance(self.config, str) else json.dumps(self.config))
        return path

    def command(self):
        if not GATEWAY:
            raise unittest.SkipTest("KORVA_GATEWAY is not set")
        command = [GATEWAY]
        if self.use_config:
            command += ["--config", self.write_files()]
        command += ["--listen", "127.0.0.1:0", "--admin-listen", "127.0.0.1:0"]
        if PLUGIN:
            command += ["--plugin", PLUGIN]
        return command + self.args

    def launch(self):
        """Starts the process without waiting for it."""
        command = self.command()
        with open(self.stdout_path, "wb") as out, open(self.stderr_path, "wb") as err:
            self.process = subprocess.Popen(command, stdout=out, stderr=err,
                                            stdin=subprocess.DEVNULL)
        return self

    def start(self, timeout=30):
        self.launch()
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            lines = self.read_stdout()
            if lines:
                match = LISTENING.match(lines[0])
                if not match:
                    raise AssertionError("unexpected first line: %r" % lines[0])
                self.base = "http://%s:%s" % (match.group(1), match.group(2))
                self.admin_base = "http://%s:%s" % (match.group(3), match.group(4))
                self.port = int(match.group(2))
                self.admin_port = int(match.group(4))
                return self
            if self.process.poll() is not None:
                raise AssertionError("gateway exited with %d: %s"
                                     % (self.process.returncode, self.stderr()))
            time.sleep(0.02)
        raise AssertionError("no listening line within %ss" % timeout)

    def wait_exit(self, timeout=60):
        """The exit status of a process that stops by itself (bad configuration)."""
        return self.process.wait(timeout)

    def stop(self, timeout=60):
        """SIGTERM, then the exit status and stderr."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            code = self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError("gateway did not stop within %ss after SIGTERM" % timeout)
        return code, self.stderr()

    def cleanup(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.tmp.cleanup()

    def read_stdout(self):
        with open(self.stdout_path, "rb") as f:
            text = f.read().decode("utf-8", "replace")
        return [line for line in text.split("\n")[:-1]]

    def stderr(self):
        with open(self.stderr_path, "rb") as f:
            return f.read().decode("utf-8", "replace")

    # ---- clients ----

    def url(self, path):
        return self.base + path

    def session(self, user=USER, password=PASSWORD):
        s = requests.Session()
        s.auth = HTTPDigestAuth(user, password)
        return s

    def get(self, path, user=USER, password=PASSWORD, **kwargs):
        kwargs.setdefault("timeout", 30)
        with self.session(user, password) as session:
            return session.get(self.url(path), **kwargs)

    def request(self, method, path, body=None, user=USER, password=PASSWORD, **kwargs):
        kwargs.setdefault("timeout", 30)
        with self.session(user, password) as session:
            return session.request(method, self.url(path), data=body, **kwargs)

    def admin(self, method, path, body=None):
        """(status, parsed JSON or text) of an admin API call."""
        response = requests.request(method, self.admin_base + path, data=body, timeout=30)
        try:
            return response.status_code, response.json()
        except ValueError:
            return response.status_code, response.text

    def state(self):
        status, state = self.admin("GET", "/admin/state")
        assert status == 200, state
        return state

    def wait_for(self, predicate, timeout=15, interval=0.05):
        """Polls predicate() until it is true; its last value."""
        deadline = time.monotonic() + timeout
        value = predicate()
        while not value and time.monotonic() < deadline:
            time.sleep(interval)
            value = predicate()
        return value

    def open_connections(self):
        return self.state()["connections"]["open"]


def sanitizer_report(stderr):
    match = SANITIZER_REPORT.search(stderr)
    if not match:
        return None
    start = max(0, match.start() - 200)
    return stderr[start:start + 4000]


class GatewayTestCase(unittest.TestCase):
    """One gateway per class, from config() and profiles(); stopped cleanly at the end."""

    gateway = None

    @classmethod
    def config(cls):
        return make_config()

    @classmethod
    def profiles(cls):
        return {}

    @classmethod
    def setUpClass(cls):
        cls.gateway = Gateway(cls.config(), cls.profiles())
        try:
            cls.gateway.start()
        except BaseException:
            cls.gateway.cleanup()
            raise

    @classmethod
    def tearDownClass(cls):
        gateway = cls.gateway
        try:
            code, stderr = gateway.stop()
        finally:
            gateway.cleanup()
        report = sanitizer_report(stderr)
        if report:
            raise AssertionError("sanitizer report:\n" + report)
        if code != 0:
            raise AssertionError("gateway exited with %d:\n%s" % (code, stderr[-4000:]))


# ---- raw HTTP helpers (for what requests hides: limits, vanishing clients, streams) ----

def digest_authorization(method, uri, challenge, user=USER, password=PASSWORD, nc=1,
                         cnonce="0a4f113b"):
    """The Authorization value answering a 'Digest ...' challenge (MD5 or SHA-256, qop auth)."""
    import hashlib
    fields = dict(re.findall(r'(\w+)="?([^",]*)"?', challenge))
    algorithm = fields.get("algorithm", "MD5")
    digest = hashlib.sha256 if algorithm.upper().startswith("SHA-256") else hashlib.md5

    def h(text):
        return digest(text.encode()).hexdigest()

    ha1 = h("%s:%s:%s" % (user, fields["realm"], password))
    ha2 = h("%s:%s" % (method, uri))
    count = "%08x" % nc
    response = h("%s:%s:%s:%s:auth:%s" % (ha1, fields["nonce"], count, cnonce, ha2))
    value = ('Digest username="%s", realm="%s", nonce="%s", uri="%s", qop=auth, nc=%s, '
             'cnonce="%s", response="%s"' % (user, fields["realm"], fields["nonce"], uri, count,
                                              cnonce, response))
    if "algorithm" in fields:
        value += ", algorithm=%s" % algorithm
    return value


def raw_connect(gateway, timeout=10):
    s = socket.create_connection(("127.0.0.1", gateway.port), timeout=timeout)
    return s


def read_head(sock, limit=65536):
    """Reads up to the end of an answer head; (status, headers dict lower-cased, rest bytes)."""
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = sock.recv(4096)
        if not chunk:
            raise ConnectionError("closed before the head ended: %r" % data[:200])
        data += chunk
        if len(data) > limit:
            raise AssertionError("head too long")
    head, _, rest = data.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    status = int(lines[0].split(" ")[1])
    headers = {}
    for line in lines[1:]:
        name, _, value = line.partition(":")
        headers[name.strip().lower()] = value.strip()
    return status, headers, rest


def read_answer(sock):
    """One complete answer with Content-Length: (status, headers, body bytes)."""
    status, headers, rest = read_head(sock)
    length = int(headers.get("content-length", "0"))
    while len(rest) < length:
        chunk = sock.recv(65536)
        if not chunk:
            raise ConnectionError("closed inside the body")
        rest += chunk
    return status, headers, rest[:length]


def raw_request(method, path, headers=None, body=b""):
    lines = ["%s %s HTTP/1.1" % (method, path), "Host: 127.0.0.1"]
    for name, value in (headers or {}).items():
        lines.append("%s: %s" % (name, value))
    if body:
        lines.append("Content-Length: %d" % len(body))
    return ("\r\n".join(lines) + "\r\n\r\n").encode() + body


def authorized_request(gateway, sock, method, path, body=b""):
    """Sends an authenticated request on a raw socket (one 401 round first); the final answer
    is left unread."""
    sock.sendall(raw_request(method, path, body=body))
    status, headers, _ = read_answer(sock)
    assert status == 401, status
    authorization = digest_authorization(method, path, headers["www-authenticate"])
    sock.sendall(raw_request(method, path, {"Authorization": authorization}, body))


class AlertStream:
    """An open alert stream on a raw socket; parts() reads multipart parts."""

    PATH = "/KORVA/Event/notification/alertStream"

    def __init__(self, gateway, timeout=15):
        self.sock = raw_connect(gateway, timeout)
        authorized_request(gateway, self.sock, "GET", self.PATH)
        self.status, self.headers, self.buffer = read_head(self.sock)

    def _fill(self, n):
        while len(self.buffer) < n:
            chunk = self.sock.recv(65536)
            if not chunk:
                raise ConnectionError("stream closed")
            self.buffer += chunk

    def next_part(self):
        """The next part's document text (raises socket.timeout when none comes)."""
        while b"\r\n\r\n" not in self.buffer:
            self._fill(len(self.buffer) + 1)
        head, _, rest = self.buffer.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        assert lines[0] == "--boundary", lines
        length = int([l for l in lines if l.startswith("Content-Length: ")][0].split(": ")[1])
        self.buffer = rest
        self._fill(length)
        document, self.buffer = self.buffer[:length], self.buffer[length:]
        return document.decode("utf-8")

    def next_alarm(self):
        """The next part that is not a heartbeat."""
        while True:
            part = self.next_part()
            if "<eventType>heartBeat</eventType>" not in part:
                return part

    def close(self):
        self.sock.close()
