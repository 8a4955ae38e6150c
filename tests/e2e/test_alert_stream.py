"""The alert stream of korva-gateway over real sockets: the multipart head, alarm parts framed
to the byte, heartbeats of quiet streams, the per-device limit, dropped clients and detached
devices. Each test uses its own device, so streams left over by one test never count for
another."""

import json
import re
import socket
import time
import unittest
import xml.etree.ElementTree as ET

from gateway_fixture import (AlertStream, GatewayTestCase, digest_authorization, make_config,
                             raw_connect, raw_request, read_answer, read_head)

PASSWORD = "Stream12345"
DEVICES = ["cam-%d" % i for i in range(1, 7)]
PART_HEAD = re.compile(
    rb'--boundary\r\nContent-Type: application/xml; charset="UTF-8"\r\n'
    rb'Content-Length: (0|[1-9][0-9]*)\r\n\r\n')


def user_of(device):
    return "user-" + device


def alarm(device, **members):
    body = {"devIndex": device, "channelID": "1", "eventType": "VMD", "eventState": "active"}
    body.update(members)
    return json.dumps({"EventNotificationAlert": body})


def request_stream(gateway, device):
    """A raw socket on which the user bound to device has sent an authenticated stream request
    (after one 401 round); the answer is left unread."""
    sock = raw_connect(gateway)
    sock.sendall(raw_request("GET", AlertStream.PATH))
    status, headers, _ = read_answer(sock)
    assert status == 401, status
    authorization = digest_authorization("GET", AlertStream.PATH, headers["www-authenticate"],
                                         user=user_of(device), password=PASSWORD)
    sock.sendall(raw_request("GET", AlertStream.PATH, {"Authorization": authorization}))
    return sock


class UserStream(AlertStream):
    """An alert stream opened by the user bound to device."""

    def __init__(self, gateway, device):  # pylint: disable=super-init-not-called
        self.sock = request_stream(gateway, device)
        self.status, self.headers, self.buffer = read_head(self.sock)

    def raw_part(self):
        """The next part exactly as sent: (head bytes, document bytes)."""
        while True:
            match = PART_HEAD.match(self.buffer)
            if match:
                break
            if len(self.buffer) >= 200:
                raise AssertionError("not a part head: %r" % self.buffer[:200])
            self._fill(len(self.buffer) + 1)
        length = int(match.group(1))
        self._fill(match.end() + length)
        head, document = self.buffer[:match.end()], self.buffer[match.end():match.end() + length]
        self.buffer = self.buffer[match.end() + length:]
        return head, document


class AlertStreamTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(
            users=[{"name": user_of(d), "password": PASSWORD, "device": d} for d in DEVICES],
            devices=[{"devIndex": d} for d in DEVICES])

    def open(self, device):
        stream = UserStream(self.gateway, device)
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
        self.assertEqual(root.tag, "EventNotificationAlert")
        self.assertEqual([child.tag for child in root],
                         ["channelID", "eventType", "eventState", "inputIOPortID", "channelName"])
        self.assertEqual(root.find("inputIOPortID").text, "3")
        self.assertIsNone(root.find("devIndex"))

    def test_quiet_stream_gets_numbered_heartbeats(self):
        stream = self.open("cam-2")
        opened = time.monotonic()
        stream.sock.settimeout(10)
        counts, times = [], []
        for _ in range(2):
            root = ET.fromstring(stream.next_part())
            times.append(time.monotonic())
            self.assertEqual(root.find("eventType").text, "heartBeat")
            self.assertEqual(root.find("eventDescription").text, "Heart Beat")
            self.assertIsNotNone(root.find("dataTime"))
            counts.append(root.find("activePostCount").text)
        self.assertEqual(counts, ["1", "2"])
        for gap in (times[0] - opened, times[1] - times[0]):
            self.assertGreaterEqual(gap, 4.5)
            self.assertLess(gap, 7.5)

    def test_third_stream_of_a_device_is_refused(self):
        first = self.open("cam-3")
        second = self.open("cam-3")
        self.assertEqual((first.status, second.status), (200, 200))
        sock = request_stream(self.gateway, "cam-3")
        self.addCleanup(sock.close)
        status, _, body = read_answer(sock)
        self.assertEqual(status, 403)
        self.assertEqual(ET.fromstring(body).find("subStatusCode").text,
                         "noMoreTasksCanBeAdded")

    def test_dropped_clients_leave_and_the_last_takes_the_device_along(self):
        first = self.open("cam-6")
        second = self.open("cam-6")
        self.assertIn("cam-6", self.subscribed_devices())
        first.close()
        # Writes to the closed connection fail (the first may still reach the socket buffer).
        for i in range(3):
            self.post_alarm(alarm("cam-6", channelName="after-close-%d" % i))
        # Parts of one stream may be written by different workers, so they can arrive in
        # another order than the alarms were raised.
        received = {ET.fromstring(second.next_alarm()).find("channelName").text for _ in range(3)}
        self.assertEqual(received, {"after-close-%d" % i for i in range(3)})
        self.assertIn("cam-6", self.subscribed_devices())

        second.close()

        def gone():
            self.post_alarm(alarm("cam-6"))
            return "cam-6" not in self.subscribed_devices()
        self.assertTrue(self.gateway.wait_for(gone, timeout=15, interval=0.2))

    def test_detach_ends_the_streams_of_that_device_only(self):
        detached = self.open("cam-4")
        control = self.open("cam-5")
        status, _ = self.gateway.admin("POST", "/admin/devices/cam-4/detach")
        self.assertEqual(status, 200)
        self.addCleanup(self.gateway.admin, "POST", "/admin/devices/cam-4/attach")
        control.sock.settimeout(10)
        root = ET.fromstring(control.next_part())  # its first heartbeat, about 5 s after opening
        self.assertEqual(root.find("activePostCount").text, "1")
        # The detached stream would have had its heartbeat at the same run.
        detached.sock.settimeout(1.5)
        try:
            data = detached.sock.recv(4096)
        except socket.timeout:
            data = b""
        self.assertEqual(detached.buffer + data, b"")


if __name__ == "__main__":
    unittest.main()
