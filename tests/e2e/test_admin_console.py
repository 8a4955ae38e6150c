"""The console's admin calls: /admin/requests (ring of recent requests), /admin/events
(server-sent events, bounded subscribers) and the page itself, under the admin port's
protections. The page in a browser: console_browser_test.mjs."""

import json
import socket
import time
import unittest

import requests

from gateway_fixture import (DEVICE_INFO, AlertStream, GatewayTestCase, authorized_request,
                             make_config, raw_request, read_answer, read_head)


class EventReader:
    """One /admin/events subscription on a raw socket."""

    def __init__(self, gateway, headers=None):
        host, port = gateway.admin_base[len("http://"):].rsplit(":", 1)
        self.sock = socket.create_connection((host, int(port)), timeout=10)
        self.sock.sendall(raw_request("GET", "/admin/events",
                                      dict({"Host": "%s:%s" % (host, port)}, **(headers or {}))))
        self.status, self.headers, self.buffer = read_head(self.sock)

    def next_event(self, timeout=10):
        """(type, parsed data) of the next event; comments are skipped."""
        deadline = time.monotonic() + timeout
        while True:
            while b"\n\n" not in self.buffer:
                self.sock.settimeout(max(0.01, deadline - time.monotonic()))
                chunk = self.sock.recv(65536)
                if not chunk:
                    raise ConnectionError("event stream closed")
                self.buffer += chunk
            block, _, self.buffer = self.buffer.partition(b"\n\n")
            fields = dict(line.split(": ", 1) for line in block.decode().split("\n")
                          if line and not line.startswith(":") and ": " in line)
            if "data" in fields:
                return fields.get("event", "message"), json.loads(fields["data"])

    def wait_for(self, kind, predicate=lambda data: True, timeout=10):
        deadline = time.monotonic() + timeout
        while True:
            event, data = self.next_event(max(0.01, deadline - time.monotonic()))
            if event == kind and predicate(data):
                return data

    def close(self):
        self.sock.close()


class ConsoleApiTest(GatewayTestCase):

    def subscribe(self, headers=None):
        reader = EventReader(self.gateway, headers)
        self.addCleanup(reader.close)
        return reader

    def test_answer_read_by_a_client_that_leaves_at_once_keeps_its_status(self):
        # The close may reach the gateway before the write's completion does; the access log
        # must still record the answer the client read, not a 499.
        for _ in range(100):
            sock = authorized_request(self.gateway, "GET", DEVICE_INFO)
            self.assertEqual(read_answer(sock)[0], 200)
            sock.close()
        _, listed = self.gateway.admin("GET", "/admin/requests")
        self.assertEqual({r["status"] for r in listed["requests"][-200:]}, {200, 401})

    def test_requests_streams_and_devices_are_published_and_listed(self):
        events = self.subscribe()
        self.assertEqual(events.status, 200)
        self.assertEqual(events.headers["content-type"], "text/event-stream")
        self.assertEqual(events.next_event()[0], "hello")

        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 200)
        seen = events.wait_for("request", lambda r: r["status"] == 200)
        self.assertEqual((seen["method"], seen["target"], seen["user"], seen["client"]),
                         ("GET", DEVICE_INFO, "admin", "127.0.0.1"))
        status, listed = self.gateway.admin("GET", "/admin/requests")
        self.assertEqual(status, 200)
        self.assertIn(seen, listed["requests"])
        self.assertNotIn("/admin/", json.dumps(listed))  # the admin port's own calls are not kept

        stream = AlertStream(self.gateway)
        opened = events.wait_for("stream-open")
        self.assertEqual((opened["devIndex"], opened["user"]), ("cam-1", "admin"))
        self.gateway.admin("POST", "/admin/alarms", json.dumps(
            {"EventNotificationAlert": {"devIndex": "cam-1", "eventType": "IO"}}))
        stream.next_alarm()
        [listed] = self.gateway.wait_for(
            lambda: [s for s in self.gateway.state()["streams"] if s["parts"] >= 1])
        self.assertEqual((listed["id"], listed["devIndex"], listed["client"]),
                         (opened["id"], "cam-1", "127.0.0.1"))
        stream.close()
        closed = events.wait_for("stream-close")
        self.assertEqual(closed["id"], opened["id"])
        self.assertGreaterEqual(closed["parts"], 1)

        for action, attached in [("detach", False), ("attach", True)]:
            self.gateway.admin("POST", "/admin/devices/cam-1/" + action)
            self.assertEqual(events.wait_for("device"), {"devIndex": "cam-1", "attached": attached})

    def test_bounds_of_the_ring_and_of_subscribers(self):
        with requests.Session() as session:  # unauthenticated: 401s, quick
            for _ in range(230):
                session.get(self.gateway.url(DEVICE_INFO), timeout=10)
        listed = self.gateway.admin("GET", "/admin/requests")[1]
        seqs = [r["seq"] for r in listed["requests"]]
        self.assertEqual(len(seqs), listed["capacity"])
        self.assertEqual(seqs, list(range(seqs[0], seqs[0] + len(seqs))))  # the newest, in order

        readers = [self.subscribe() for _ in range(8)]
        self.assertTrue(all(r.status == 200 for r in readers))
        refused = self.subscribe()
        self.assertEqual((refused.status, refused.headers.get("retry-after")), (503, "5"))
        readers[0].close()
        again = self.gateway.wait_for(
            lambda: next(iter([r for r in [self.subscribe()] if r.status == 200]), None))
        self.assertTrue(again)
        for reader in readers + [again]:
            reader.close()
        self.assertTrue(self.gateway.wait_for(
            lambda: self.gateway.state()["events"]["subscribers"] == 0))

    def test_cross_origin_and_foreign_host_are_refused(self):
        for headers, expected in [({"Origin": "http://attacker.example"}, 403),
                                  ({"Sec-Fetch-Site": "cross-site"}, 403),
                                  ({"Host": "attacker.example"}, 421),
                                  ({"Sec-Fetch-Site": "same-origin"}, 200)]:
            self.assertEqual(self.subscribe(headers).status, expected, headers)
            for path in ["/", "/admin/requests"]:
                status = requests.get(self.gateway.admin_base + path, headers=headers,
                                      timeout=10).status_code
                self.assertEqual(status, expected, (path, headers))

    def test_page_files_are_served_with_their_types(self):
        for path, kind in [("/", "text/html"), ("/console.js", "text/javascript"),
                           ("/console.css", "text/css")]:
            response = requests.get(self.gateway.admin_base + path, timeout=10)
            self.assertEqual(response.status_code, 200)
            self.assertTrue(response.headers["Content-Type"].startswith(kind), path)
            self.assertIn("frame-ancestors 'none'", response.headers["Content-Security-Policy"])
        self.assertEqual(requests.post(self.gateway.admin_base + "/", timeout=10).status_code, 405)


class ConsoleTokenTest(GatewayTestCase):

    TOKEN = "console-token-0123"
    config = make_config(admin={"token": TOKEN})

    def test_page_loads_without_the_token_and_its_calls_need_it(self):
        base = self.gateway.admin_base
        self.assertEqual(requests.get(base + "/", timeout=10).status_code, 200)
        self.assertEqual(requests.get(base + "/admin/requests", timeout=10).status_code, 401)
        for headers, expected in [({}, 401), ({"Authorization": "Bearer " + self.TOKEN}, 200)]:
            reader = EventReader(self.gateway, headers)
            self.addCleanup(reader.close)
            self.assertEqual(reader.status, expected)


if __name__ == "__main__":
    unittest.main()
