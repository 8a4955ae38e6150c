"""The alert stream of korva-gateway over real sockets: the multipart head, alarm parts framed
to the byte, dropped clients, streams ended by a detach or a bus reset (their connections close),
forged boundaries in alarm texts. Heartbeats and the per-device limit are the plug-in's unit tests'
(HeartBeat, AlertStream); heartbeats on the wire are counted by test_stress. Each test uses its
own device, so streams left over by one test never count for another."""

import json
import re
import time
import xml.etree.ElementTree as ET

import requests

from gateway_fixture import AlertStream, GatewayTestCase, make_config, raw_connect, read_answer

PASSWORD = "Stream12345"
DEVICES = ["cam-%d" % i for i in range(1, 8)]


def alarm(device, **members):
    return json.dumps({"EventNotificationAlert": dict(
        devIndex=device, channelID="1", eventType="VMD", eventState="active", **members)})


class AlertStreamTest(GatewayTestCase):

    config = make_config(
        users=[{"name": "user-" + d, "password": PASSWORD, "device": d} for d in DEVICES],
        devices=[{"devIndex": d} for d in DEVICES])

    def open(self, device):
        stream = AlertStream(self.gateway, "user-" + device, PASSWORD)
        self.addCleanup(stream.close)
        return stream

    def post_alarm(self, body):
        status, answer = self.gateway.admin("POST", "/admin/alarms", body)
        self.assertEqual(status, 202, answer)

    def subscribed_devices(self):
        return [d for s in self.gateway.state()["subscriptions"] for d in s["devices"]]

    def test_head_and_one_alarm_part_framed_exactly(self):
        stream = self.open("cam-1")
        self.assertEqual(stream.status, 200)
        self.assertEqual(stream.headers["content-type"], "multipart/mixed; boundary=boundary")
        self.assertNotIn("content-length", stream.headers)
        self.assertNotIn("transfer-encoding", stream.headers)
        self.post_alarm(alarm("cam-1", inputIOPortID=3, channelName="Lobby"))
        # raw_part reads from the first byte after the head: nothing precedes the first part.
        head, document = stream.raw_part()
        while b"<eventType>heartBeat</eventType>" in document:
            head, document = stream.raw_part()
        self.assertEqual(head, b'--boundary\r\nContent-Type: application/xml; charset="UTF-8"\r\n'
                               b'Content-Length: %d\r\n\r\n' % len(document))
        root = ET.fromstring(document)
        self.assertEqual((root.tag, [(c.tag, c.text) for c in root][2:4]),
                         ("EventNotificationAlert", [("eventState", "active"),
                                                     ("inputIOPortID", "3")]))
        self.assertEqual([c.tag for c in root], ["channelID", "eventType", "eventState",
                                                 "inputIOPortID", "channelName"])

    def test_dropped_clients_leave_and_the_last_takes_the_device_along(self):
        first, second = self.open("cam-6"), self.open("cam-6")
        self.assertIn("cam-6", self.subscribed_devices())
        first.close()
        # Writes to the closed connection fail (the first may still reach the socket buffer).
        for i in range(3):
            self.post_alarm(alarm("cam-6", channelName="after-close-%d" % i))
        # Parts of one stream may be written by different workers, so their order may differ.
        received = {ET.fromstring(second.next_alarm()).find("channelName").text for _ in range(3)}
        self.assertEqual(received, {"after-close-%d" % i for i in range(3)})
        self.assertIn("cam-6", self.subscribed_devices())
        second.close()

        def gone():
            self.post_alarm(alarm("cam-6"))
            return "cam-6" not in self.subscribed_devices()
        self.assertTrue(self.gateway.wait_for(gone, timeout=15, interval=0.2))

    def test_detach_and_bus_reset_close_the_connections_of_ended_streams(self):
        detached, control = [self.open("cam-4"), self.open("cam-4")], self.open("cam-5")
        self.assertEqual(self.gateway.admin("POST", "/admin/devices/cam-4/detach")[0], 200)
        self.addCleanup(self.gateway.admin, "POST", "/admin/devices/cam-4/attach")
        for stream in detached:
            self.assertEqual(self.read_to_end(stream, timeout=5), b"")
        self.assertTrue(self.gateway.wait_for(lambda: self.open_streams() == (1, 1)))
        self.post_alarm(alarm("cam-5", channelName="still-open"))
        root = ET.fromstring(control.next_alarm())
        self.assertEqual(root.find("channelName").text, "still-open")
        # A bus that forgot the subscription ends every stream at the next clean-up run.
        self.assertEqual(self.gateway.admin("POST", "/admin/alarm-bus/reset")[0], 200)
        self.read_to_end(control, timeout=15)
        self.assertTrue(self.gateway.wait_for(lambda: self.open_streams() == (0, 0)))

    def test_forged_boundary_and_invalid_utf8_never_reach_a_document(self):
        stream = self.open("cam-7")
        forged = "x\r\n--boundary\r\nContent-Type: application/xml\r\n\r\n<a/>"
        self.post_alarm(alarm("cam-7", channelName=forged))
        document = stream.next_alarm()
        self.assertNotIn("\n--boundary", document)
        self.assertIn("x&#13;&#10;--boundary&#13;&#10;", document)
        self.assertEqual(ET.fromstring(document).find("channelName").text, forged)
        # Invalid UTF-8 in a request target is replaced where the target is echoed.
        sock = raw_connect(self.gateway)
        self.addCleanup(sock.close)
        sock.sendall(b"GET /KORVA/System/deviceInfo?x=\xff\xfe HTTP/1.1\r\nHost: h\r\n\r\n")
        status, _, body = read_answer(sock)
        self.assertEqual(status, 401)
        self.assertEqual(ET.fromstring(body.decode("utf-8")).find("requestURL").text,
                         "/KORVA/System/deviceInfo?x=\ufffd\ufffd")

    def open_streams(self):
        """Open streams as (/metrics, /admin/state) say."""
        metrics = requests.get(self.gateway.admin_base + "/metrics", timeout=10).text
        count = int(re.search(r"^korva_open_streams (\d+)$", metrics, re.M).group(1))
        return count, self.gateway.state()["connections"]["streams"]

    @staticmethod
    def read_to_end(stream, timeout):
        """What arrives until the gateway closes the connection; fails on a timeout."""
        stream.sock.settimeout(timeout)
        data = b""
        while True:
            chunk = stream.sock.recv(65536)
            if not chunk:
                return data
            data += chunk
