"""Relay capacity: one client flooding a device that never answers, then leaving, does not take
the gateway's relays from other users, and its relays are released as soon as it has gone."""

import re
import time

import requests

from gateway_fixture import (DEVICE_INFO, GatewayTestCase, authorized_request, make_config,
                             read_answer, users_and_devices)

FLOOD = 120  # requests from one client; far above the bounds below


class DeviceFloodTest(GatewayTestCase):

    config = make_config(
        limits={"maxRelays": 64, "maxRelaysPerDevice": 16, "maxRelaysPerClient": 32,
                "maxConnectionsPerClient": 1000},
        **users_and_devices(("admin", "Admin12345", "quiet-cam", {"profile": "profiles/quiet.json"}),
                            ("other", "Other12345", "cam-2", {})))
    profiles = {"quiet": {"silent": ["GET " + DEVICE_INFO]}}

    def metric(self, name):
        text = requests.get(self.gateway.admin_base + "/metrics", timeout=10).text
        match = re.search(r"^%s (\d+)$" % re.escape(name), text, re.M)
        self.assertIsNotNone(match, name)
        return int(match.group(1))

    def test_a_flood_that_leaves_frees_its_relays_and_never_blocks_another_device(self):
        flood = [authorized_request(self.gateway, "GET", DEVICE_INFO) for _ in range(FLOOD)]
        # Past the device's bound a request is answered 503 at once (retryable), not in 10 s.
        start = time.monotonic()
        extra = authorized_request(self.gateway, "GET", DEVICE_INFO)
        status, _, body = read_answer(extra)
        self.assertEqual(503, status)
        self.assertIn(b"<subStatusCode>deviceBusy</subStatusCode>", body)
        self.assertLess(time.monotonic() - start, 3)
        self.assertEqual(16, self.metric("korva_relays_outstanding"))

        for sock in flood + [extra]:
            sock.close()
        start = time.monotonic()
        answer = self.gateway.get(DEVICE_INFO, "other", "Other12345")
        self.assertEqual(200, answer.status_code, answer.text)
        self.assertLess(time.monotonic() - start, 3)
        # Released as soon as the clients have gone, well before the 10 s device timeout.
        self.assertTrue(self.gateway.wait_for(
            lambda: self.metric("korva_relays_outstanding") == 0, timeout=4))
        self.assertGreater(self.metric('korva_relays_ended_early_total{reason="client_left"}'), 0)
        self.assertGreater(self.metric('korva_relays_ended_early_total{reason="device_bound"}'), 0)
