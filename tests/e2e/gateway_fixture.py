"""Runs korva-gateway (KORVA_GATEWAY, with the plug-in KORVA_PLUGIN) for end-to-end tests.

GatewayTestCase starts one gateway per class from its `config` and `profiles` on free ports, and
fails the class when it does not exit 0 on SIGTERM or a sanitizer reported anything.
"""

import hashlib
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
USER, PASSWORD = "admin", "Admin12345"
DEVICE_INFO = "/KORVA/System/deviceInfo"
LISTENING = re.compile(
    r"^korva-gateway listening on http://(\S+):(\d+), admin on http://(\S+):(\d+)"
    r"(?:, https on https://(\S+):(\d+))?$")
SANITIZER_REPORT = re.compile(
    r"ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:|WARNING: ThreadSanitizer")


def make_config(users=None, devices=None, **members):
    """A configuration document; members override or add top-level members."""
    config = {
        "realm": "KORVA Gateway", "activated": True, "logLevel": 4,
        "auth": {"algorithm": "MD5", "maxAttempts": 5, "lockSeconds": 180,
                 "nonceLifetimeSeconds": 300},
        "users": users or [{"name": USER, "password": PASSWORD, "device": "cam-1"}],
        "devices": devices or [{"devIndex": "cam-1"}],
    }
    config.update(members)
    return config


def users_and_devices(*pairs):
    """users= and devices= for (user, password, devIndex, device members) tuples."""
    return {"users": [{"name": u, "password": p, "device": d} for u, p, d, _ in pairs],
            "devices": [dict(devIndex=d, **extra) for _, _, d, extra in pairs]}


def sanitizer_report(stderr):
    match = SANITIZER_REPORT.search(stderr)
    return stderr[max(0, match.start() - 200):match.start() + 4000] if match else None


class Gateway:
    """One korva-gateway process."""

    def __init__(self, config=None, profiles=None, args=(), use_config=True):
        if not GATEWAY:
            raise unittest.SkipTest("KORVA_GATEWAY is not set")
        self.tmp = tempfile.TemporaryDirectory(prefix="korva-e2e-")
        self.config_path = os.path.join(self.tmp.name, "config.json")
        self.command = [GATEWAY]
        if use_config:
            for name, profile in (profiles or {}).items():
                self._write("profiles/%s.json" % name, profile)
            self._write("config.json", config if config is not None else make_config())
            self.command += ["--config", self.config_path]
        self.command += ["--listen", "127.0.0.1:0", "--admin-listen", "127.0.0.1:0"]
        self.command += (["--plugin", PLUGIN] if PLUGIN else []) + list(args)
        self.process = None

    def _write(self, name, content):
        path = os.path.join(self.tmp.name, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as f:
            f.write(content if isinstance(content, str) else json.dumps(content))

    def _read(self, name):
        with open(os.path.join(self.tmp.name, name + ".txt"), "rb") as f:
            return f.read().decode("utf-8", "replace")

    def launch(self):
        with open(os.path.join(self.tmp.name, "stdout.txt"), "wb") as out, \
                open(os.path.join(self.tmp.name, "stderr.txt"), "wb") as err:
            self.process = subprocess.Popen(self.command, stdout=out, stderr=err,
                                            stdin=subprocess.DEVNULL)
        return self

    def start(self, timeout=30):
        self.launch()
        deadline = time.monotonic() + timeout
        while not self.stdout_lines():
            assert self.process.poll() is None, "gateway exited with %d: %s" % (
                self.process.returncode, self.stderr())
            assert time.monotonic() < deadline, "no listening line within %ss" % timeout
            time.sleep(0.02)
        match = LISTENING.match(self.stdout_lines()[0])
        assert match, "unexpected first line: %r" % self.stdout_lines()[0]
        self.base, self.admin_base = "http://%s:%s" % match.group(1, 2), \
            "http://%s:%s" % match.group(3, 4)
        self.port = int(match.group(2))
        self.tls_port = int(match.group(6)) if match.group(6) else None
        return self

    def stop(self, timeout=60):
        """SIGTERM, then (exit status, stderr)."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout), self.stderr()

    def cleanup(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.tmp.cleanup()

    def stdout_lines(self):
        return self._read("stdout").split("\n")[:-1]

    def stderr(self):
        return self._read("stderr")

    def url(self, path):
        return self.base + path

    def session(self, user=USER, password=PASSWORD):
        s = requests.Session()
        s.auth = HTTPDigestAuth(user, password)
        return s

    def request(self, method, path, body=None, user=USER, password=PASSWORD, **kwargs):
        with self.session(user, password) as session:
            return session.request(method, self.url(path), data=body, timeout=30, **kwargs)

    def get(self, path, user=USER, password=PASSWORD):
        return self.request("GET", path, None, user, password)

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

    def open_connections(self):
        return self.state()["connections"]["open"]

    def wait_for(self, predicate, timeout=15, interval=0.05):
        """Polls predicate() until it is true; its last value."""
        deadline = time.monotonic() + timeout
        value = predicate()
        while not value and time.monotonic() < deadline:
            time.sleep(interval)
            value = predicate()
        return value


class GatewayTestCase(unittest.TestCase):
    """One gateway per class; `config` None means make_config()."""

    config = None
    profiles = None

    @classmethod
    def setUpClass(cls):
        cls.gateway = Gateway(cls.config, cls.profiles)
        try:
            cls.gateway.start()
        except BaseException:
            cls.gateway.cleanup()
            raise

    @classmethod
    def tearDownClass(cls):
        try:
            code, stderr = cls.gateway.stop()
        finally:
            cls.gateway.cleanup()
        report = sanitizer_report(stderr)
        assert not report, "sanitizer report:\n" + report
        assert code == 0, "gateway exited with %d:\n%s" % (code, stderr[-4000:])


# ---- raw HTTP, for what requests hides: limits, vanishing clients, streams ----

def digest_authorization(method, uri, challenge, user=USER, password=PASSWORD):
    """The Authorization value answering an MD5 'Digest ...' challenge with qop auth."""
    fields = dict(re.findall(r'(\w+)="?([^",]*)"?', challenge))

    def h(text):
        return hashlib.md5(text.encode()).hexdigest()

    ha1 = h("%s:%s:%s" % (user, fields["realm"], password))
    response = h("%s:%s:00000001:0a4f113b:auth:%s" % (ha1, fields["nonce"],
                                                      h("%s:%s" % (method, uri))))
    return ('Digest username="%s", realm="%s", nonce="%s", uri="%s", qop=auth, nc=00000001, '
            'cnonce="0a4f113b", response="%s"' % (user, fields["realm"], fields["nonce"], uri,
                                                   response))


def raw_connect(gateway, timeout=10):
    return socket.create_connection(("127.0.0.1", gateway.port), timeout=timeout)


def receive(sock, data, done):
    """data extended by what arrives on sock until done(data)."""
    while not done(data):
        chunk = sock.recv(65536)
        if not chunk:
            raise ConnectionError("closed early after %r" % data[:200])
        data += chunk
    return data


def read_head(sock):
    """Reads up to the end of an answer head; (status, lower-cased headers, rest bytes)."""
    data = receive(sock, b"", lambda d: b"\r\n\r\n" in d)
    head, _, rest = data.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    headers = {n.strip().lower(): v.strip() for n, _, v in (l.partition(":") for l in lines[1:])}
    return int(lines[0].split(" ")[1]), headers, rest


def read_answer(sock):
    """One complete answer with Content-Length: (status, headers, body bytes)."""
    status, headers, rest = read_head(sock)
    length = int(headers.get("content-length", "0"))
    return status, headers, receive(sock, rest, lambda d: len(d) >= length)[:length]


def raw_request(method, path, headers=None, body=b""):
    headers = dict(headers or {})
    lines = ["%s %s HTTP/1.1" % (method, path), "Host: %s" % headers.pop("Host", "127.0.0.1")]
    lines += ["%s: %s" % item for item in headers.items()]
    if body:
        lines.append("Content-Length: %d" % len(body))
    return ("\r\n".join(lines) + "\r\n\r\n").encode() + body


def authorized_request(gateway, method, path, user=USER, password=PASSWORD, connect=raw_connect):
    """A raw socket (from connect(gateway)) on which an authenticated request was sent after one
    401 round; the final answer is left unread."""
    sock = connect(gateway)
    sock.sendall(raw_request(method, path))
    status, headers, _ = read_answer(sock)
    assert status == 401, status
    authorization = digest_authorization(method, path, headers["www-authenticate"], user,
                                         password)
    sock.sendall(raw_request(method, path, {"Authorization": authorization}))
    return sock


class AlertStream:
    """An open alert stream on a raw socket, read part by part."""

    PATH = "/KORVA/Event/notification/alertStream"
    PART_HEAD = re.compile(
        rb'--boundary\r\nContent-Type: application/xml; charset="UTF-8"\r\n'
        rb'Content-Length: (0|[1-9][0-9]*)\r\n\r\n')

    def __init__(self, gateway, user=USER, password=PASSWORD, connect=raw_connect):
        self.sock = authorized_request(gateway, "GET", self.PATH, user, password, connect)
        self.status, self.headers, self.buffer = read_head(self.sock)

    def _fill(self, n):
        self.buffer = receive(self.sock, self.buffer, lambda d: len(d) >= n)

    def raw_part(self):
        """The next part exactly as sent: (head bytes, document bytes); nothing may come
        between parts."""
        while not self.PART_HEAD.match(self.buffer):
            assert len(self.buffer) < 200, "not a part head: %r" % self.buffer[:200]
            self._fill(len(self.buffer) + 1)
        match = self.PART_HEAD.match(self.buffer)
        end = match.end() + int(match.group(1))
        self._fill(end)
        part, self.buffer = self.buffer[:end], self.buffer[end:]
        return part[:match.end()], part[match.end():]

    def next_part(self):
        return self.raw_part()[1].decode("utf-8")

    def next_alarm(self):
        """The next part that is not a heartbeat."""
        while True:
            part = self.next_part()
            if "<eventType>heartBeat</eventType>" not in part:
                return part

    def close(self):
        self.sock.close()
