"""HTTP behaviour of korva-gateway on loopback: keep-alive, limits, timeouts, and clients that
vanish mid-request, mid-answer or mid-stream. Every case ends with no connection left open."""

import re
import socket
import time
import unittest

from gateway_fixture import (AlertStream, GatewayTestCase, authorized_request, make_config,
                             raw_connect, raw_request, read_answer, read_head)

DEVICE_INFO = "/KORVA/System/deviceInfo"


class HttpLimitsTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(
            users=[{"name": "admin", "password": "Admin12345", "device": "cam-1"},
                   {"name": "slow", "password": "Slow12345", "device": "slow-cam"}],
            devices=[{"devIndex": "cam-1"},
                     {"devIndex": "slow-cam", "profile": "profiles/slow.json"}],
            limits={"idleTimeoutMs": 800, "maxHeaderBytes": 8192, "maxBodyBytes": 65536})

    @classmethod
    def profiles(cls):
        return {"slow": {"latencyMs": 400}}

    def tearDown(self):
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0),
                        self.gateway.state()["connections"])

    def test_keep_alive_serves_several_requests_on_one_connection(self):
        with raw_connect(self.gateway) as sock:
            for _ in range(5):
                sock.sendall(raw_request("GET", "/not/handled"))
                status, headers, body = read_answer(sock)
                self.assertEqual(status, 403)
                self.assertEqual(headers["connection"], "keep-alive")
                self.assertIn(b"invalidOperation", body)

    def test_pipelined_requests_are_answered_in_order(self):
        with raw_connect(self.gateway) as sock:
            sock.sendall(raw_request("GET", DEVICE_INFO) + raw_request("GET", "/not/handled"))
            data = b""
            while data.count(b"HTTP/1.1 ") < 2 or not data.endswith(b"}\n"):
                chunk = sock.recv(65536)
                self.assertTrue(chunk, data)
                data += chunk
            self.assertEqual(re.findall(rb"HTTP/1.1 (\d+)", data), [b"401", b"403"])

    def test_http10_and_connection_close_end_the_connection(self):
        for request in [b"GET /x HTTP/1.0\r\n\r\n",
                        b"GET /x HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n"]:
            with raw_connect(self.gateway) as sock:
                sock.sendall(request)
                status, headers, _ = read_answer(sock)
                self.assertEqual((status, headers["connection"]), (403, "close"))
                self.assertEqual(sock.recv(10), b"")

    def test_limits_and_malformed_requests(self):
        big_header = raw_request("GET", "/x", {"X-Big": "a" * 9000})
        big_body = raw_request("PUT", "/KORVA/Streaming/channels/101", {},
                               b"<" + b"a" * 70000 + b">")
        cases = [(big_header, 431), (big_body, 413), (b"NONSENSE\r\n\r\n", 400),
                 (b"GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n", 400)]
        for request, expected in cases:
            with self.subTest(expected=expected), raw_connect(self.gateway) as sock:
                sock.sendall(request)
                status, headers, _ = read_answer(sock)
                self.assertEqual(status, expected)
                self.assertEqual(headers["connection"], "close")

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

    def test_clients_vanishing_mid_request(self):
        for partial in [b"GET /KORVA/System/deviceI", b"PUT /x HTTP/1.1\r\nContent-Length: 50\r\n\r\nabc"]:
            with raw_connect(self.gateway) as sock:
                sock.sendall(partial)
        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 200)

    def test_clients_vanishing_while_their_answer_is_pending(self):
        for _ in range(5):
            sock = raw_connect(self.gateway)
            authorized_request(self.gateway, sock, "GET", DEVICE_INFO)
            sock.close()  # the slow device answers 400 ms later, to nobody
        # Vanishing with a reset (SO_LINGER 0) while the answer is on its way.
        sock = raw_connect(self.gateway)
        authorized_request(self.gateway, sock, "GET", DEVICE_INFO)
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\x01\x00\x00\x00\x00\x00\x00\x00")
        sock.close()
        time.sleep(0.6)
        self.assertEqual(self.gateway.get(DEVICE_INFO, "slow", "Slow12345").status_code, 200)

    def test_alert_stream_client_vanishing(self):
        stream = AlertStream(self.gateway)
        self.assertEqual(stream.status, 200)
        self.assertEqual(stream.headers["connection"], "close")
        self.assertNotIn("content-length", stream.headers)
        stream.close()
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0))
        # The device's next stream is accepted again (its slot is freed by the broken link).
        second = AlertStream(self.gateway)
        self.assertEqual(second.status, 200)
        second.close()


if __name__ == "__main__":
    unittest.main()
