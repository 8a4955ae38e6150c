"""The admin API of korva-gateway: every call does what it says."""

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

    def test_unknown_device_wrong_method_and_unknown_path(self):
        for method, path, expected in [
                ("POST", "/admin/devices/nope/detach", 404),
                ("GET", "/admin/devices/cam-1/detach", 405),
                ("POST", "/admin/state", 405),
                ("POST", "/admin/devices/cam-1/explode", 404)]:
            status, body = self.gateway.admin(method, path)
            self.assertEqual(status, expected, (method, path, body))
            self.assertIn("error", body)

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
        # Alarms without a device are accepted and reach nobody.
        for body in ["not json", json.dumps({"EventNotificationAlert": {"eventType": "IO"}})]:
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
                     "korva_alarms_delivered_total", "korva_open_connections"]:
            self.assertIn(name, metrics())
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0))


class AlarmBusResetTest(GatewayTestCase):
    """Own gateway: after a reset the plug-in keeps its stale subscription until its clean-up
    timer notices, which would disturb other stream tests."""

    def test_alarm_bus_reset_forgets_subscriptions(self):
        stream = AlertStream(self.gateway)
        self.addCleanup(stream.close)
        self.assertTrue(self.gateway.state()["subscriptions"])
        self.assertEqual(self.gateway.admin("POST", "/admin/alarm-bus/reset")[0], 200)
        self.assertEqual(self.gateway.state()["subscriptions"], [])
