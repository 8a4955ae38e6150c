"""The KORVA listener over TLS: the generated certificate works with real clients, every
protection of the plain listener holds, and clients that do not complete a TLS session cost
nothing beyond their slot for the handshake timeout."""

import hashlib
import json
import os
import re
import socket
import ssl
import stat
import subprocess
import time
import unittest
import xml.etree.ElementTree as ET

import requests
from requests.auth import HTTPDigestAuth

from gateway_fixture import (DEVICE_INFO, PASSWORD, USER, AlertStream, Gateway, GatewayTestCase,
                             make_config, sanitizer_report)

IDLE_MS = 1500
FLOOD = 200


def tls_context(cafile):
    context = ssl.create_default_context(cafile=cafile)
    context.check_hostname = True
    return context


class TlsTest(GatewayTestCase):

    config = make_config(tls={"listen": "127.0.0.1:0"},
                         limits={"idleTimeoutMs": IDLE_MS, "maxConnectionsPerClient": FLOOD + 50})

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.cert = os.path.join(cls.gateway.tmp.name, "korva-gateway-tls.crt")
        cls.https = "https://127.0.0.1:%d" % cls.gateway.tls_port

    def tls_connect(self, context=None, session=None):
        raw = socket.create_connection(("127.0.0.1", self.gateway.tls_port), timeout=10)
        return (context or tls_context(self.cert)).wrap_socket(
            raw, server_hostname="localhost", session=session)

    def metric(self, name):
        text = requests.get(self.gateway.admin_base + "/metrics", timeout=10).text
        match = re.search(r"^%s (\d+)$" % re.escape(name), text, re.M)
        return int(match.group(1))

    def test_generated_certificate_serves_curl_and_requests(self):
        lines = self.gateway.stdout_lines()
        with open(self.cert) as f:
            der = ssl.PEM_cert_to_DER_cert(f.read())
        fingerprint = ":".join("%02X" % b for b in hashlib.sha256(der).digest())
        self.assertEqual(lines[1], "https certificate %s (self-signed, made at start), SHA-256 "
                                   "fingerprint %s" % (self.cert, fingerprint))
        key = os.stat(os.path.join(self.gateway.tmp.name, "korva-gateway-tls.key"))
        self.assertEqual(stat.S_IMODE(key.st_mode), 0o600)

        curl = subprocess.run(
            ["curl", "-sS", "--digest", "-u", "%s:%s" % (USER, PASSWORD), "--cacert", self.cert,
             "-w", "\n%{http_code}", self.https + DEVICE_INFO],
            capture_output=True, text=True, timeout=30)
        self.assertEqual(curl.stdout.rsplit("\n", 1)[1], "200", curl.stderr)
        self.assertIn("<DeviceInfo", curl.stdout)
        # localhost is in the certificate too; the admin-accesses document reports the real port.
        answer = requests.get("https://localhost:%d/KORVA/Security/adminAccesses"
                              % self.gateway.tls_port, auth=HTTPDigestAuth(USER, PASSWORD),
                              verify=self.cert, timeout=30)
        self.assertEqual(answer.status_code, 200, answer.text)
        https = [p for p in ET.fromstring(answer.content) if p.findtext("protocol") == "HTTPS"]
        self.assertEqual((https[0].findtext("enabled"), https[0].findtext("portNo")),
                         ("true", str(self.gateway.tls_port)))
        with self.assertRaises(requests.exceptions.SSLError):
            requests.get(self.https + DEVICE_INFO, timeout=10)  # the system CAs do not know it

    def test_sessions_resume(self):
        request = b"GET /nothing HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"
        resumed = self.metric('korva_tls_sessions_total{session="resumed"}')
        context, session = tls_context(self.cert), None
        for attempt in range(2):
            with self.tls_connect(context, session) as sock:
                sock.sendall(request)
                while sock.recv(65536):
                    pass
                self.assertEqual(sock.session_reused, attempt == 1)
                session = sock.session
        self.assertEqual(self.metric('korva_tls_sessions_total{session="resumed"}'), resumed + 1)

    def test_alert_stream_over_tls(self):
        stream = AlertStream(self.gateway, connect=lambda gateway: self.tls_connect())
        self.addCleanup(stream.close)
        self.assertEqual((stream.status, stream.headers["content-type"]),
                         (200, "multipart/mixed; boundary=boundary"))
        alarm = {"EventNotificationAlert": {"devIndex": "cam-1", "channelID": "1",
                                            "eventType": "VMD", "eventState": "active"}}
        self.assertEqual(self.gateway.admin("POST", "/admin/alarms", json.dumps(alarm))[0], 202)
        self.assertIn("<eventType>VMD</eventType>", stream.next_alarm())

    def test_wrong_protocols_are_refused_at_once(self):
        # Plain HTTP gets a 400 saying what is wrong, then the close; other bytes the close.
        for sent, expected in [(b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"HTTP/1.1 400 "),
                               (b"\x00\x01junk", b"")]:
            with self.subTest(sent), socket.create_connection(
                    ("127.0.0.1", self.gateway.tls_port), timeout=1) as sock:
                sock.sendall(sent)
                received = b""
                while chunk := sock.recv(4096):  # raises on timeout: it must close within 1 s
                    received += chunk
                self.assertTrue(received.startswith(expected), received)
        # TLS 1.1, and TLS 1.2 without ECDHE + AEAD, are refused by the server's alert.
        for args, expected in [(["--tlsv1.1", "--tls-max", "1.1"], 35),
                               (["--tls-max", "1.2", "--ciphers", "ECDHE-ECDSA-AES128-SHA"], 35),
                               (["--tlsv1.2", "--tls-max", "1.2"], 0)]:
            with self.subTest(args):
                curl = subprocess.run(["curl", "-sS", "-o", "/dev/null", "--cacert", self.cert]
                                      + args + [self.https + "/"], capture_output=True, text=True,
                                      timeout=30)
                self.assertEqual(curl.returncode, expected, curl.stderr)
                if expected:
                    self.assertIn("alert", curl.stderr)

    def test_handshake_flood_neither_blocks_nor_lingers(self):
        timeouts = self.metric('korva_tls_handshake_failures_total{reason="timeout"}')
        flood = []
        self.addCleanup(lambda: [sock.close() for sock in flood])
        started = time.monotonic()
        for i in range(FLOOD):
            sock = socket.create_connection(("127.0.0.1", self.gateway.tls_port), timeout=5)
            if i % 2:
                sock.sendall(b"\x16\x03\x01\x02\x00\x01")  # a ClientHello that never ends
            flood.append(sock)
        self.assertLess(time.monotonic() - started, 10)
        begun = time.monotonic()
        answer = requests.get(self.https + DEVICE_INFO, auth=HTTPDigestAuth(USER, PASSWORD),
                              verify=self.cert, timeout=10)
        self.assertEqual(answer.status_code, 200)
        self.assertLess(time.monotonic() - begun, 2)
        # Every half-open handshake is closed by the timeout, none earlier than it.
        for sock in flood:
            sock.settimeout(IDLE_MS / 1000 + 10)
            self.assertEqual(sock.recv(1), b"")
        self.assertGreater(time.monotonic() - started, IDLE_MS / 1000)
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0))
        self.assertEqual(self.metric('korva_tls_handshake_failures_total{reason="timeout"}'),
                         timeouts + FLOOD)


class TlsFilesTest(unittest.TestCase):
    """Given certificate files are used as they are; unusable ones stop the start (exit 2)."""

    def make_pair(self, folder, name):
        cert, key = os.path.join(folder, name + ".crt"), os.path.join(folder, name + ".key")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=localhost",
                        "-addext", "subjectAltName=DNS:localhost", "-days", "2",
                        "-keyout", key, "-out", cert], check=True, capture_output=True)
        return cert, key

    def test_given_files(self):
        gateway = Gateway()
        self.addCleanup(gateway.cleanup)
        folder = gateway.tmp.name
        cert, key = self.make_pair(folder, "a")
        _, other_key = self.make_pair(folder, "b")
        cases = [
            ({"certificateFile": "a.crt", "privateKeyFile": "a.key"}, 0, cert),
            ({"certificateFile": "missing.crt", "privateKeyFile": "a.key"}, 2,
             "tls.certificateFile: cannot read certificate file %s/missing.crt" % folder),
            ({"certificateFile": "a.crt", "privateKeyFile": "b.key"}, 2,
             "tls.privateKeyFile: private key file %s" % other_key),
            ({"certificateFile": "a.key", "privateKeyFile": "a.key"}, 2,
             "tls.certificateFile: certificate file %s cannot be used" % key),
        ]
        for tls, code, text in cases:
            with self.subTest(tls):
                gateway._write("config.json", make_config(tls=dict(listen="127.0.0.1:0", **tls)))
                if code == 0:
                    gateway.start()
                    self.assertIn(text, gateway.stdout_lines()[1])
                    answer = requests.get("https://localhost:%d%s" % (gateway.tls_port, DEVICE_INFO),
                                          auth=HTTPDigestAuth(USER, PASSWORD), verify=cert,
                                          timeout=30)
                    self.assertEqual(answer.status_code, 200)
                    status, stderr = gateway.stop()
                else:
                    status = gateway.launch().process.wait(60)
                    stderr = gateway.stderr()
                    self.assertEqual(gateway.stdout_lines(), [])
                    self.assertIn(gateway.config_path + ": " + text, stderr)
                self.assertEqual(status, code, stderr[-2000:])
                self.assertIsNone(sanitizer_report(stderr))


if __name__ == "__main__":
    unittest.main()
