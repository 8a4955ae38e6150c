"""HTTP behaviour of korva-gateway on loopback: keep-alive, limits, timeouts, and clients that
vanish mid-request, mid-answer or mid-stream. Every case ends with no connection left open."""

import re
import socket
import time

from gateway_fixture import (DEVICE_INFO, GatewayTestCase, authorized_request,
                             make_config, raw_connect, raw_request, read_answer,
                             users_and_devices)


class HttpLimitsTest(GatewayTestCase):

    config = make_config(
        limits={"idleTimeoutMs": 800, "maxHeaderBytes": 8192, "maxBodyBytes": 65536},
        **users_and_devices(("admin", "Admin12345", "cam-1", {}),
                            ("slow", "Slow12345", "slow-cam",
                             {"profile": "profiles/slow.json"})))

    profiles = {"slow": {"latencyMs": 400}}

    def tearDown(self):
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0),
                        self.gateway.state()["connections"])

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
            with raw_connect(self.gateway) as sock:
                sock.sendall(request)
                status, headers, _ = read_answer(sock)
                self.assertEqual((status, headers["connection"]), (403, "close"))
                self.assertEqual(sock.recv(10), b"")

    def test_limits_and_malformed_requests(self):
        cases = [(raw_request("GET", "/x", {"X-Big": "a" * 9000}), 431),
                 (raw_request("PUT", "/KORVA/Streaming/channels/101", {}, b"<" + b"a" * 70000),
                  413),
                 (b"NONSENSE\r\n\r\n", 400),
                 (b"GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n", 400)]
        for request, expected in cases:
            with self.subTest(expected=expected), raw_connect(self.gateway) as sock:
                sock.sendall(request)
                status, headers, _ = read_answer(sock)
                self.assertEqual((status, headers["connection"]), (expected, "close"))

    def test_idle_and_trickling_clients_are_closed_after_the_timeout(self):
        with raw_connect(self.gateway) as idle, raw_connect(self.gateway) as slow:
            start = time.monotonic()
            for byte in b"GET /x HTTP/1.1\r\n":
                try:
                    slow.sendall(bytes([byte]))
                except OSError:
                    break
                time.sleep(0.1)
            self.assertEqual(idle.recv(10), b"")
            self.assertLess(time.monotonic() - start, 5)
            slow.settimeout(5)
            self.assertEqual(slow.recv(10), b"")

    def test_clients_vanishing_mid_request_and_while_their_answer_is_pending(self):
        for partial in [b"GET /KORVA/System/deviceI",
                        b"PUT /x HTTP/1.1\r\nContent-Length: 50\r\n\r\nabc"]:
            with raw_connect(self.gateway) as sock:
                sock.sendall(partial)
        for linger in [False] * 4 + [True]:
            # The slow device answers 400 ms later, to nobody; the last one vanishes with a
            # reset (SO_LINGER 0).
            sock = authorized_request(self.gateway, "GET", DEVICE_INFO, "slow", "Slow12345")
            if linger:
                sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\x01" + b"\x00" * 7)
            sock.close()
        time.sleep(0.6)
        self.assertEqual(self.gateway.get(DEVICE_INFO, "slow", "Slow12345").status_code, 200)
