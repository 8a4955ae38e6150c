"""The admin API of korva-gateway: every call does what it says."""

import json
import time
import xml.etree.ElementTree as ET

import requests

from gateway_fixture import AlertStream, GatewayTestCase, make_config

DEVICE_INFO = "/KORVA/System/deviceInfo"


class AdminApiTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(
            users=[{"name": "admin", "password": "Admin12345", "device": "cam-1"},
                   {"name": "second", "password": "Second12345", "device": "cam-2"}],
            devices=[{"devIndex": "cam-1"}, {"devIndex": "cam-2", "attached": False}])

    def devices(self):
        return {d["devIndex"]: d["attached"] for d in self.gateway.state()["devices"]}

    def test_state_lists_devices_as_configured(self):
        self.assertEqual(self.devices(), {"cam-1": True, "cam-2": False})

    def test_detach_and_attach(self):
        status, body = self.gateway.admin("POST", "/admin/devices/cam-1/detach")
        self.assertEqual((status, body), (200, {"attached": False, "devIndex": "cam-1"}))
        try:
            self.assertFalse(self.devices()["cam-1"])
            response = self.gateway.get(DEVICE_INFO)
            self.assertEqual(response.status_code, 500)
            self.assertEqual(ET.fromstring(response.content).find("subStatusCode").text,
                             "internalError")
        finally:
            status, body = self.gateway.admin("POST", "/admin/devices/cam-1/attach")
        self.assertEqual((status, body), (200, {"attached": True, "devIndex": "cam-1"}))
        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 200)

    def test_a_device_configured_detached_can_be_attached(self):
        self.assertEqual(self.gateway.get(DEVICE_INFO, "second", "Second12345").status_code, 500)
        self.assertEqual(self.gateway.admin("POST", "/admin/devices/cam-2/attach")[0], 200)
        try:
            response = self.gateway.get(DEVICE_INFO, "second", "Second12345")
            self.assertEqual(response.status_code, 200)
            self.assertEqual(ET.fromstring(response.content).find("deviceName").text,
                             "Camera cam-2")
        finally:
            self.gateway.admin("POST", "/admin/devices/cam-2/detach")

    def test_unknown_device_wrong_method_and_unknown_path(self):
        for method, path, expected in [
                ("POST", "/admin/devices/nope/detach", 404),
                ("POST", "/admin/devices/nope/attach", 404),
                ("GET", "/admin/devices/cam-1/detach", 405),
                ("GET", "/admin/alarms", 405),
                ("POST", "/admin/state", 405),
                ("GET", "/admin/nothing", 404),
                ("POST", "/admin/devices/cam-1/explode", 404)]:
            status, body = self.gateway.admin(method, path)
            self.assertEqual(status, expected, (method, path, body))
            self.assertIn("error", body)

    def test_alarm_reaches_the_stream_of_its_device_and_state_shows_the_subscription(self):
        stream = AlertStream(self.gateway)
        try:
            self.assertEqual(stream.status, 200)
            self.assertEqual(stream.headers["content-type"], "multipart/mixed; boundary=boundary")
            state = self.gateway.state()
            self.assertEqual([s["devices"] for s in state["subscriptions"]], [["cam-1"]])
            self.assertIn("streaming", [c["phase"] for c in state["connections"]["list"]])
            alarm = {"EventNotificationAlert": {"devIndex": "cam-1", "channelID": "1",
                                                "eventType": "VMD", "eventState": "active"}}
            status, body = self.gateway.admin("POST", "/admin/alarms", json.dumps(alarm))
            self.assertEqual((status, body["devIndex"]), (202, "cam-1"))
            part = ET.fromstring(stream.next_alarm())
            self.assertEqual(part.find("eventType").text, "VMD")
            # An alarm of another device does not reach this stream; the next one does.
            other = {"EventNotificationAlert": {"devIndex": "cam-2", "eventType": "IO"}}
            self.gateway.admin("POST", "/admin/alarms", json.dumps(other))
            alarm["EventNotificationAlert"]["eventType"] = "audioexception"
            self.gateway.admin("POST", "/admin/alarms", json.dumps(alarm))
            self.assertEqual(ET.fromstring(stream.next_alarm()).find("eventType").text,
                             "audioexception")
        finally:
            stream.close()

    def test_alarm_without_device_is_accepted(self):
        for body in ["not json", json.dumps({"EventNotificationAlert": {"eventType": "IO"}})]:
            status, answer = self.gateway.admin("POST", "/admin/alarms", body)
            self.assertEqual((status, answer["devIndex"]), (202, None))

    def test_metrics_count_answers_by_status(self):
        def count(status):
            text = requests.get(self.gateway.admin_base + "/metrics", timeout=30).text
            for line in text.splitlines():
                if line.startswith('korva_http_requests_total{status="%d"}' % status):
                    return int(line.split()[-1])
            return 0
        before = count(401)
        requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertEqual(count(401), before + 1)
        text = requests.get(self.gateway.admin_base + "/metrics", timeout=30).text
        for name in ["korva_relay_latency_seconds_bucket", "korva_open_streams",
                     "korva_alarms_delivered_total", "korva_open_connections"]:
            self.assertIn(name, text)

    def test_state_counts_open_connections(self):
        with self.gateway.session() as session:
            session.get(self.gateway.url(DEVICE_INFO), timeout=30)
            self.assertGreaterEqual(self.gateway.open_connections(), 1)
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0))


class AlarmBusResetTest(GatewayTestCase):
    """Separate gateway: after a reset the plug-in keeps its stale subscription until its
    clean-up timer notices, which would disturb the other stream tests."""

    def test_alarm_bus_reset_forgets_subscriptions(self):
        stream = AlertStream(self.gateway)
        try:
            self.assertTrue(self.gateway.state()["subscriptions"])
            status, _ = self.gateway.admin("POST", "/admin/alarm-bus/reset")
            self.assertEqual(status, 200)
            self.assertEqual(self.gateway.state()["subscriptions"], [])
        finally:
            stream.close()
