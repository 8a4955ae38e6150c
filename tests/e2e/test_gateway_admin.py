"""The admin API of korva-gateway: every call does what it says."""

import http.client
import json
import xml.etree.ElementTree as ET

import requests

from gateway_fixture import (DEVICE_INFO, AlertStream, GatewayTestCase, make_config,
                             users_and_devices)

ALARM = {"EventNotificationAlert": {"devIndex": "cam-1", "channelID": "1", "eventType": "VMD",
                                    "eventState": "active"}}


class AdminApiTest(GatewayTestCase):

    config = make_config(**users_and_devices(("admin", "Admin12345", "cam-1", {}),
                                             ("second", "Second12345", "cam-2",
                                              {"attached": False})))

    def devices(self):
        return {d["devIndex"]: d["attached"] for d in self.gateway.state()["devices"]}

    def test_detach_and_attach(self):
        self.assertEqual(self.devices(), {"cam-1": True, "cam-2": False})
        for device, user, password in [("cam-1", "admin", "Admin12345"),
                                       ("cam-2", "second", "Second12345")]:
            status, body = self.gateway.admin("POST", "/admin/devices/%s/detach" % device)
            self.assertEqual((status, body), (200, {"attached": False, "devIndex": device}))
            self.assertFalse(self.devices()[device])
            response = self.gateway.get(DEVICE_INFO, user, password)
            self.assertEqual(response.status_code, 500)
            self.assertIn("<subStatusCode>internalError</subStatusCode>", response.text)
            status, body = self.gateway.admin("POST", "/admin/devices/%s/attach" % device)
            self.assertEqual((status, body), (200, {"attached": True, "devIndex": device}))
            response = self.gateway.get(DEVICE_INFO, user, password)
            self.assertEqual(ET.fromstring(response.content).find("deviceName").text,
                             "Camera " + device)

    def test_refusals_and_bad_bodies(self):
        """Each refusal has a JSON error; the gateway lives on and nothing changes."""
        port = int(self.gateway.admin_base.rsplit(":", 1)[1])
        own = "127.0.0.1:%d" % port
        deep = "[" * 1001
        json_type = {"Content-Type": "application/json"}
        detach = "/admin/devices/cam-1/detach"
        for method, path, headers, body, expected in [
                # A body that is not JSON for any reason goes to every subscription.
                ("POST", "/admin/alarms", json_type, deep, 202),
                ("POST", "/admin/alarms", {}, '{"EventNotificationAlert":' + deep, 202),
                ("POST", "/admin/alarms", {}, "not json", 202),
                # Other paths take no body but an empty one or a JSON object.
                ("POST", detach, json_type, deep, 400),
                ("POST", detach, {}, "not json", 400),
                ("POST", "/admin/alarm-bus/reset", {}, "[1]", 400),
                # DNS rebinding and cross-origin pages.
                ("GET", "/admin/state", {"Host": "evil.example:%d" % port}, None, 421),
                ("GET", "/admin/state", {"Host": "localhost:%d" % (port ^ 1)}, None, 421),
                ("POST", detach, {"Origin": "http://evil.example", "Content-Type": "text/plain"},
                 "{}", 403),
                ("POST", detach, {"Origin": "null"}, None, 403),
                ("POST", detach, {"Sec-Fetch-Site": "cross-site"}, None, 403),
                ("POST", detach, {"Content-Type": "application/x-www-form-urlencoded"}, "a=1", 400),
                ("POST", "/admin/devices/nope/detach", {}, None, 404),
                ("GET", detach, {}, None, 405),
                ("POST", "/admin/state", {}, None, 405),
                ("POST", "/admin/devices/cam-1/explode", {}, None, 404)]:
            with self.subTest(method=method, path=path, headers=headers, body=(body or "")[:30]):
                status, answer, _ = raw_admin(own, method, path, headers, body)
                self.assertEqual(status, expected, answer)
                self.assertIn('"error"' if expected != 202 else '"devIndex":null', answer)
        self.assertEqual(self.devices()["cam-1"], True)
        # Same-origin pages, localhost and HEAD are served.
        for headers in [{"Origin": "http://" + own, "Sec-Fetch-Site": "same-origin"},
                        {"Host": "localhost:%d" % port}]:
            self.assertEqual(raw_admin(own, "GET", "/admin/state", headers)[0], 200, headers)
        status, answer, response = raw_admin(own, "HEAD", "/metrics")
        self.assertEqual((status, answer), (200, ""))
        self.assertEqual(raw_admin(own, "PUT", "/metrics")[2].getheader("Allow"), "GET, HEAD")

    def test_alarm_reaches_only_the_stream_of_its_device(self):
        stream = AlertStream(self.gateway)
        self.addCleanup(stream.close)
        state = self.gateway.state()
        self.assertEqual([s["devices"] for s in state["subscriptions"]], [["cam-1"]])
        self.assertIn("streaming", [c["phase"] for c in state["connections"]["list"]])
        status, body = self.gateway.admin("POST", "/admin/alarms", json.dumps(ALARM))
        self.assertEqual((status, body["devIndex"]), (202, "cam-1"))
        self.assertEqual(ET.fromstring(stream.next_alarm()).find("eventType").text, "VMD")
        for device, event in [("cam-2", "IO"), ("cam-1", "audioexception")]:
            alarm = dict(ALARM["EventNotificationAlert"], devIndex=device, eventType=event)
            self.gateway.admin("POST", "/admin/alarms",
                               json.dumps({"EventNotificationAlert": alarm}))
        self.assertEqual(ET.fromstring(stream.next_alarm()).find("eventType").text,
                         "audioexception")
        # An alarm without a device is accepted and reaches nobody.
        body = json.dumps({"EventNotificationAlert": {"eventType": "IO"}})
        status, answer = self.gateway.admin("POST", "/admin/alarms", body)
        self.assertEqual((status, answer["devIndex"]), (202, None))

    def test_metrics_count_answers_by_status_and_state_counts_connections(self):
        def metrics():
            return requests.get(self.gateway.admin_base + "/metrics", timeout=30).text

        def count(status):
            prefix = 'korva_http_requests_total{status="%d"}' % status
            return sum(int(l.split()[-1]) for l in metrics().splitlines() if l.startswith(prefix))
        before = count(401)
        with self.gateway.session() as session:
            session.get(self.gateway.url(DEVICE_INFO), timeout=30)
            self.assertGreaterEqual(self.gateway.open_connections(), 1)
        self.assertEqual(count(401), before + 1)
        for name in ["korva_relay_latency_seconds_bucket", "korva_open_streams",
                     "korva_stream_parts_delivered_total", "korva_alarms_delivered_total",
                     "korva_open_connections",
                     "korva_alarms_refused_total 0"]:
            self.assertIn(name, metrics())
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0))


def raw_admin(address, method, path, headers=None, body=None):
    """(status, body text, response) of one admin request with exactly these headers."""
    connection = http.client.HTTPConnection(address, timeout=30)
    try:
        connection.request(method, path, body, headers or {})
        response = connection.getresponse()
        return response.status, response.read().decode(), response
    finally:
        connection.close()


class AdminTokenTest(GatewayTestCase):

    TOKEN = "0123456789abcdef-token"
    config = make_config(admin={"token": TOKEN})

    def test_every_call_needs_the_bearer_token(self):
        address = self.gateway.admin_base[len("http://"):]
        for authorization, expected in [(None, 401), ("Bearer wrong", 401),
                                        ("Bearer " + self.TOKEN[:-1], 401),
                                        ("Basic " + self.TOKEN, 401),
                                        ("Bearer " + self.TOKEN, 200),
                                        ("bearer " + self.TOKEN, 200)]:
            for path in ["/metrics", "/admin/state"]:
                headers = {"Authorization": authorization} if authorization else {}
                status, _, response = raw_admin(address, "GET", path, headers)
                self.assertEqual(status, expected, (authorization, path))
                if expected == 401:
                    self.assertTrue(response.getheader("WWW-Authenticate").startswith("Bearer"))
