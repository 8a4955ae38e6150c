"""HTTP behaviour of korva-gateway on loopback: framing, keep-alive, limits, timeouts, clients
that vanish mid-request or while their answer is pending, connection caps and descriptors.
Every case of the shared gateway ends with no connection left open."""

import os
import re
import resource
import socket
import subprocess
import time
import unittest

from gateway_fixture import (DEVICE_INFO, Gateway, GatewayTestCase, digest_authorization,
                             make_config, raw_connect, raw_request, read_answer, read_head,
                             sanitizer_report, users_and_devices)


def exchange(port, data, pause=0.0, timeout=10, source="127.0.0.1"):
    """Sends data on a new connection (optionally pausing, then sending nothing more) and
    returns everything received until the gateway closes."""
    with socket.create_connection(("127.0.0.1", port), timeout=timeout,
                                  source_address=(source, 0)) as sock:
        sock.sendall(data)
        time.sleep(pause)
        received = b""
        try:
            while True:
                chunk = sock.recv(65536)
                if not chunk:
                    return received
                received += chunk
        except ConnectionResetError:
            return received


def statuses(data):
    """The status of every answer in data."""
    return [int(s) for s in re.findall(rb"(?:^|\n)HTTP/1\.1 (\d{3}) ", data)]


class HttpFramingTest(GatewayTestCase):

    config = make_config(
        limits={"idleTimeoutMs": 800, "maxHeaderBytes": 8192, "maxBodyBytes": 65536,
                "maxTargetBytes": 2048},
        **users_and_devices(("admin", "Admin12345", "cam-1", {}),
                            ("slow", "Slow12345", "slow-cam",
                             {"profile": "profiles/slow.json"})))

    profiles = {"slow": {"latencyMs": 1500}}

    def tearDown(self):
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0),
                        self.gateway.state()["connections"])

    def test_refused_heads_are_answered_and_close_the_connection(self):
        smuggled = b"GET /KORVA/System/deviceInfo HTTP/1.1\r\nHost: a\r\n\r\n"

        def post(*headers):
            return b"POST /KORVA/System/IO HTTP/1.1\r\n" + b"".join(
                h + b"\r\n" for h in headers) + b"\r\n" + smuggled

        cases = [
            (post(b"Host: a", b"Transfer-Encoding: gzip"), 400),
            (post(b"Host: a", b"Transfer-Encoding: identity"), 400),
            (post(b"Host: a", b"Transfer-Encoding: chunked, gzip"), 400),
            (post(b"Host: a", b"Transfer-Encoding: xchunked"), 400),
            (post(b"Host: a", b"Transfer-Encoding: chunked", b"Transfer-Encoding: gzip"), 400),
            (post(b"Host: a", b"Transfer-Encoding: gzip, chunked"), 501),
            (post(b"Host: a", b"Transfer-Encoding: gzip", b"Content-Length: 0"), 400),
            (post(b"Host: a", b"Content-Length: 0", b"Transfer-Encoding: chunked"), 400),
            (b"POST /x HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + smuggled, 400),
            (b"GET /x HTTP/1.1\r\n\r\n", 400),
            (b"GET /x HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400),
            (b"GET /x HTTP/1.1\r\nHost: a/b\r\n\r\n", 400),
            (b"GET /x HTTP/1.1\r\nHost: [::1\r\n\r\n", 400),
            (b"GET /x HTTP/1.1\r\nHost: a:http\r\n\r\n", 400),
            (b"GET /x HTTP/1.1\r\nHost: a:123456\r\n\r\n", 400),
            (b"GET x HTTP/1.1\r\nHost: a\r\n\r\n", 400),
            (b"GET /" + b"a" * 3000 + b" HTTP/1.1\r\nHost: a\r\n\r\n", 414),
            (b"GET /" + b"a" * 9000 + b" HTTP/1.1\r\nHost: a\r\n\r\n", 414),
            (b"GET /x HTTP/1.1\r\nHost: a\r\nX-Big: " + b"a" * 9000 + b"\r\n\r\n", 431),
            (raw_request("PUT", "/KORVA/Streaming/channels/101", {}, b"<" + b"a" * 70000), 413),
            (b"NONSENSE\r\n\r\n", 400),
            (b"GET / HTTP/1.1\r\nHost: a\r\nContent-Length: x\r\n\r\n", 400),
            (b"HEAD /x HTTP/1.1\r\n\r\n", 400),
        ]
        for request, expected in cases:
            with self.subTest(request=request[:80], expected=expected):
                data = exchange(self.gateway.port, request)
                # One answer, then the connection ends: nothing after it was taken as a request.
                self.assertEqual(statuses(data), [expected], data[:400])
                self.assertIn(b"Connection: close\r\n", data)
                head, _, body = data.partition(b"\r\n\r\n")
                if request.startswith(b"HEAD"):
                    self.assertEqual(body, b"")

    def test_accepted_forms(self):
        # Absolute form reaches the plug-in as a path (its route matches: 401, not 403); an
        # empty Host, a bracketed address with port and HTTP/1.0 without Host are fine.
        cases = [(b"GET http://127.0.0.1:1/KORVA/System/deviceInfo HTTP/1.1\r\nHost: x\r\n\r\n",
                  401),
                 (b"GET HTTP://x?a=1 HTTP/1.1\r\nHost: x\r\n\r\n", 403),
                 (b"GET /KORVA/System/deviceInfo HTTP/1.1\r\nHost:\r\n\r\n", 401),
                 (b"GET /x HTTP/1.1\r\nHost: [::1]:80\r\n\r\n", 403),
                 (b"GET /x HTTP/1.0\r\n\r\n", 403)]
        for request, expected in cases:
            with self.subTest(request=request[:60]):
                data = exchange(self.gateway.port, request.replace(b"\r\n\r\n",
                                                                   b"\r\nConnection: close\r\n\r\n"))
                self.assertEqual(statuses(data), [expected], data[:300])
        data = exchange(self.gateway.port, cases[0][0].replace(b"\r\n\r\n",
                                                               b"\r\nConnection: close\r\n\r\n"))
        self.assertIn(b"<requestURL>/KORVA/System/deviceInfo</requestURL>", data)

    def test_head_on_both_ports_then_keep_alive(self):
        for port, head, then in [
                (self.gateway.port, "HEAD " + DEVICE_INFO, "GET " + DEVICE_INFO),
                (int(self.gateway.admin_base.rsplit(":", 1)[1]), "HEAD /metrics", "GET /metrics"),
                (int(self.gateway.admin_base.rsplit(":", 1)[1]), "HEAD /admin/state",
                 "GET /admin/state")]:
            with self.subTest(head=head), socket.create_connection(("127.0.0.1", port),
                                                                   timeout=10) as sock:
                host = "Host: 127.0.0.1:%d" % port
                sock.sendall(("%s HTTP/1.1\r\n%s\r\n\r\n" % (head, host)).encode())
                status, headers, rest = read_head(sock)
                self.assertIn(status, (200, 401))
                self.assertGreater(int(headers["content-length"]), 0)
                self.assertEqual(headers["connection"], "keep-alive")
                sock.sendall(("%s HTTP/1.1\r\n%s\r\n\r\n" % (then, host)).encode())
                data = rest
                while b"\r\n\r\n" not in data:
                    data += sock.recv(65536)
                self.assertTrue(data.startswith(b"HTTP/1.1 "), data[:100])  # no body came first
                if head.endswith(DEVICE_INFO):
                    # The GET's body is exactly as long as HEAD announced.
                    length = int(re.search(rb"Content-Length: (\d+)", data).group(1))
                    self.assertEqual(length, int(headers["content-length"]))
        lines = self.gateway.wait_for(lambda: re.findall(
            r'^\S+ 4 \[HTTP\] 127\.0\.0\.1 - - \[[^]]+\] "HEAD /KORVA/System/deviceInfo HTTP/1\.1" '
            r'401 \d+ \d+\.\d{3}$', self.gateway.stderr(), re.M))
        self.assertTrue(lines, self.gateway.stderr()[-2000:])

    def test_no_100_continue_for_http_1_0(self):
        for version, interim in [(b"1.0", False), (b"1.1", True)]:
            with self.subTest(version=version), raw_connect(self.gateway) as sock:
                sock.sendall(b"PUT /x HTTP/" + version + b"\r\nHost: a\r\nExpect: 100-continue"
                             b"\r\nContent-Length: 2\r\nConnection: close\r\n\r\n")
                sock.settimeout(0.5)
                try:
                    early = sock.recv(100)
                except socket.timeout:
                    early = b""
                self.assertEqual(early.startswith(b"HTTP/1.1 100 Continue"), interim, early)
                sock.settimeout(10)
                sock.sendall(b"ok")
                data = early + exchange_rest(sock)
                self.assertEqual(statuses(data.replace(b"HTTP/1.1 100 Continue\r\n\r\n", b"")),
                                 [403])

    def test_keep_alive_pipelining_and_close(self):
        with raw_connect(self.gateway) as sock:
            sock.sendall(raw_request("GET", DEVICE_INFO) + raw_request("GET", "/not/handled"))
            data = b""
            while data.count(b"HTTP/1.1 ") < 2 or not data.endswith(b"}\n"):
                chunk = sock.recv(65536)
                self.assertTrue(chunk, data)
                data += chunk
            self.assertEqual(re.findall(rb"HTTP/1.1 (\d+)", data), [b"401", b"403"])
            self.assertEqual(data.count(b"Connection: keep-alive"), 2)
        for request in [b"GET /x HTTP/1.0\r\n\r\n",
                        b"GET /x HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n"]:
            data = exchange(self.gateway.port, request)
            self.assertEqual(statuses(data), [403])
            self.assertIn(b"Connection: close\r\n", data)

    def test_idle_connection_closes_silently_and_partial_request_gets_408(self):
        start = time.monotonic()
        self.assertEqual(exchange(self.gateway.port, b""), b"")
        data = exchange(self.gateway.port, b"GET /x HTTP/1.1\r\nHo")
        self.assertEqual(statuses(data), [408], data)
        # A keep-alive connection idle after an answer just closes too.
        data = exchange(self.gateway.port, b"GET /x HTTP/1.1\r\nHost: a\r\n\r\nGET /y HT")
        self.assertEqual(statuses(data), [403, 408], data)
        data = exchange(self.gateway.port, b"GET /x HTTP/1.1\r\nHost: a\r\n\r\n")
        self.assertEqual(statuses(data), [403], data)
        self.assertLess(time.monotonic() - start, 8)

    def test_client_leaving_while_its_answer_is_pending_is_noticed_at_once(self):
        sock = raw_connect(self.gateway)
        sock.sendall(raw_request("GET", DEVICE_INFO))
        status, headers, _ = read_answer(sock)
        authorization = digest_authorization("GET", DEVICE_INFO, headers["www-authenticate"],
                                             "slow", "Slow12345")
        # Pipelined behind the slow request: kept while the answer is awaited, answered after.
        sock.sendall(raw_request("GET", DEVICE_INFO, {"Authorization": authorization}) +
                     raw_request("GET", "/not/handled"))
        data = b""
        while data.count(b"HTTP/1.1 ") < 2 or not data.endswith(b"}\n"):
            chunk = sock.recv(65536)
            self.assertTrue(chunk, data)
            data += chunk
        self.assertEqual(statuses(data), [200, 403], data[:300])
        # Leaving while the device is still at work (1.5 s) closes the connection at once.
        sock.sendall(raw_request("GET", DEVICE_INFO))
        status, headers, _ = read_answer(sock)
        authorization = digest_authorization("GET", DEVICE_INFO, headers["www-authenticate"],
                                             "slow", "Slow12345")
        sock.sendall(raw_request("GET", DEVICE_INFO, {"Authorization": authorization}))
        time.sleep(0.2)
        self.assertEqual(self.gateway.open_connections(), 1)
        left = time.monotonic()
        sock.close()
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0,
                                              timeout=1, interval=0.02))
        self.assertLess(time.monotonic() - left, 1.0)
        # The access log names the user, and the request whose client left with 499 (the
        # log is written by its own thread: the line may follow the close by a moment).
        line = re.compile(r'127\.0\.0\.1 - slow \[[^]]+\] "GET /KORVA/System/deviceInfo '
                          r'HTTP/1\.1" 499 0 ')
        self.assertTrue(self.gateway.wait_for(lambda: line.search(self.gateway.stderr()),
                                              timeout=5), self.gateway.stderr()[-2000:])
        for partial in [b"GET /KORVA/System/deviceI",
                        b"PUT /x HTTP/1.1\r\nHost: a\r\nContent-Length: 50\r\n\r\nabc"]:
            with raw_connect(self.gateway) as vanishing:
                vanishing.sendall(partial)


def exchange_rest(sock):
    data = b""
    while True:
        chunk = sock.recv(65536)
        if not chunk:
            return data
        data += chunk


class ConnectionCapsTest(GatewayTestCase):

    config = make_config(limits={"maxConnections": 5, "maxConnectionsPerClient": 3})

    def test_per_client_and_listener_caps_close_at_once_and_admin_stays_reachable(self):
        held = []
        try:
            for source in ["127.0.0.1"] * 3 + ["127.0.0.2"] * 2:
                sock = socket.create_connection(("127.0.0.1", self.gateway.port), timeout=10,
                                                source_address=(source, 0))
                held.append(sock)
            self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 5))
            request = raw_request("GET", "/x", {"Connection": "close"})
            # 127.0.0.1 holds its 3, the listener its 5: both refused without an answer.
            self.assertEqual(exchange(self.gateway.port, request, source="127.0.0.1"), b"")
            self.assertEqual(exchange(self.gateway.port, request, source="127.0.0.3"), b"")
            self.assertEqual(self.gateway.admin("GET", "/admin/state")[0], 200)
            held.pop().close()  # one of 127.0.0.2: room for 127.0.0.3 again, not for 127.0.0.1
            self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 4))
            self.assertEqual(statuses(exchange(self.gateway.port, request, source="127.0.0.3")),
                             [403])
            self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 4))
            self.assertEqual(exchange(self.gateway.port, request, source="127.0.0.1"), b"")
            metrics = self.gateway.admin("GET", "/metrics")[1]
            # The listener cap is checked first.
            self.assertIn('korva_connections_refused_total{reason="client-full"} 1', metrics)
            self.assertIn('korva_connections_refused_total{reason="listener-full"} 2', metrics)
        finally:
            for sock in held:
                sock.close()


class LimitedGateway(Gateway):
    """A gateway started under RLIMIT_NOFILE = limit."""

    def __init__(self, limit, config):
        super().__init__(config)
        self.limit = limit

    def launch(self):
        with open(os.path.join(self.tmp.name, "stdout.txt"), "wb") as out, \
                open(os.path.join(self.tmp.name, "stderr.txt"), "wb") as err:
            self.process = subprocess.Popen(
                self.command, stdout=out, stderr=err, stdin=subprocess.DEVNULL,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE,
                                                      (self.limit, self.limit)))
        return self


class LowDescriptorLimitTest(unittest.TestCase):
    """Under an open-file limit of 256 the KORVA listener is capped below it (160 connections)
    and the admin listener answers while 300 clients hold or try to hold connections."""

    LIMIT = 256

    def test_connections_are_capped_below_the_descriptor_limit(self):
        gateway = LimitedGateway(self.LIMIT, make_config(limits={"maxConnectionsPerClient": 1000}))
        held = []
        try:
            gateway.start()
            budget = self.LIMIT - 64 - 32
            self.assertIn("maxConnections 20000 lowered to %d" % budget, gateway.stderr())
            deadline = time.monotonic() + 60
            for i in range(300):
                held.append(socket.create_connection(("127.0.0.1", gateway.port), timeout=10))
                self.assertLess(time.monotonic(), deadline)
            self.assertTrue(gateway.wait_for(lambda: gateway.open_connections() == budget),
                            gateway.open_connections())
            self.assertEqual(gateway.admin("GET", "/metrics")[0], 200)
            self.assertEqual(exchange(gateway.port, raw_request("GET", "/x")), b"")
            for sock in held:
                sock.close()
            held = []
            self.assertTrue(gateway.wait_for(lambda: gateway.open_connections() == 0))
            data = exchange(gateway.port, raw_request("GET", "/x", {"Connection": "close"}))
            self.assertEqual(statuses(data), [403])
        finally:
            for sock in held:
                sock.close()
            code, stderr = gateway.stop()
            gateway.cleanup()
        self.assertIsNone(sanitizer_report(stderr))
        self.assertEqual(code, 0, stderr[-3000:])


if __name__ == "__main__":
    unittest.main()
