"""Streaming channel resources through korva-gateway and its simulated camera: one channel
(read and update), the channel list, the capability document and the audio channel list."""

import xml.etree.ElementTree as ET

from gateway_fixture import GatewayTestCase

CAPABILITIES = [
    ("videoCodecType", {"opt": "H.264,H.265"}),
    ("videoResolutionWidth", {"opt": "1920,1280,704"}),
    ("videoResolutionHeight", {"opt": "1280,720,576"}),
    ("videoQualityControlType", {"opt": "CBR,VBR"}),
    ("constantBitRate", {"min": "512", "max": "8192"}),
    ("fixedQuality", {"opt": "1,20,40,60,80,100"}),
    ("maxFrameRate", {"opt": "3000,2500,2200,2000,1800,1600,1500,1200,1000,800,600,5000,400,"
                             "200,100,50,25,12,6"}),
    ("keyFrameInterval", {"min": "1", "max": "400"}),
]


class StreamingTest(GatewayTestCase):

    def document(self, method, path, body=None, status=200):
        response = self.gateway.request(method, path, body)
        self.assertEqual(response.status_code, status, response.text)
        self.assertEqual(response.headers["Content-Type"], "application/xml")
        return response, ET.fromstring(response.content)

    def channel(self, path):
        return self.document("GET", path)[1]

    def test_channel_number_reads_its_first_stream(self):
        for path, stream in [("/KORVA/Streaming/channels/1", "101"),
                             ("/Streaming/channels/1", "101"),
                             ("/KORVA/Streaming/channels/2", "201"),
                             ("/KORVA/Streaming/channels/101", "101")]:
            root = self.channel(path)
            self.assertEqual(root.tag, "StreamingChannel", path)
            self.assertEqual(root.find("id").text, stream, path)
            self.assertEqual(root.find("Transport/ControlProtocolList/ControlProtocol/"
                                       "streamingTransport").text, "RTSP", path)
            self.assertIsNotNone(root.find("Video/maxFrameRate"), path)

    def test_put_of_a_changed_document_shows_in_the_next_get(self):
        path = "/KORVA/Streaming/channels/102"
        root = self.channel(path)
        root.find("channelName").text = "Lobby sub stream"
        root.find("Video/maxFrameRate").text = "1500"
        root.find("Video/keyFrameInterval").text = "25"
        _, status = self.document("PUT", path, ET.tostring(root, encoding="unicode"))
        self.assertEqual(status.tag, "ResponseStatus")
        self.assertEqual(status.find("requestURL").text, path)
        self.assertEqual(status.find("statusCode").text, "1")
        self.assertEqual(status.find("subStatusCode").text, "ok")

        changed = self.channel(path)
        self.assertEqual(changed.find("channelName").text, "Lobby sub stream")
        self.assertEqual(changed.find("Video/maxFrameRate").text, "1500")
        self.assertEqual(changed.find("Video/keyFrameInterval").text, "25")
        self.assertNotEqual(self.channel("/KORVA/Streaming/channels/101").find("channelName").text,
                            "Lobby sub stream")

    def test_put_with_an_invalid_body_answers_internal_error(self):
        path = "/KORVA/Streaming/channels/201"
        before = self.gateway.get(path).content
        for body in ["<StreamingChannel><id>201</id></StreamingChannel>", "not xml", ""]:
            _, status = self.document("PUT", path, body, status=500)
            self.assertEqual(status.find("statusCode").text, "3", body)
            self.assertEqual(status.find("subStatusCode").text, "internalError", body)
        self.assertEqual(self.gateway.get(path).content, before)

    def test_list_holds_the_first_two_streams_of_each_channel(self):
        response, root = self.document("GET", "/KORVA/Streaming/channels")
        self.assertTrue(response.content.startswith(b"<StreamingChannelList>\r\n"))
        self.assertEqual(root.tag, "StreamingChannelList")
        ids = [channel.find("id").text for channel in root.findall("StreamingChannel")]
        self.assertEqual(ids, ["101", "102", "201", "202"])

    def test_capabilities_are_the_fixed_document(self):
        for path in ["/KORVA/Streaming/channels/1/capabilities",
                     "/KORVA/Streaming/channels/102/capabilities"]:
            response, root = self.document("GET", path)
            self.assertEqual(root.tag, "StreamingChannel")
            video = root.find("Video")
            self.assertEqual([(child.tag, child.attrib) for child in video], CAPABILITIES)
            self.assertNotIn(b"<?xml", response.content)

    def test_audio_channels_stand_beside_the_video_inputs(self):
        inputs = self.channel("/KORVA/System/Video/inputs/channels")
        count = len(inputs.findall("VideoInputChannel"))
        self.assertGreater(count, 0)
        response, root = self.document("GET", "/KORVA/System/Audio/channels")
        self.assertTrue(response.content.startswith(b'<?xml version="1.0" encoding="UTF-8"?>'))
        self.assertEqual(root.tag, "AudioChannelList")
        self.assertEqual([(c.find("id").text, c.find("enabled").text)
                          for c in root.findall("AudioChannel")],
                         [(str(k), "true") for k in range(1, count + 1)])

    def test_methods_the_routes_do_not_take(self):
        for method, path in [("POST", "/KORVA/Streaming/channels/101"),
                             ("DELETE", "/KORVA/Streaming/channels/101"),
                             ("PUT", "/KORVA/Streaming/channels"),
                             ("PUT", "/KORVA/System/Audio/channels")]:
            response = self.gateway.request(method, path, "<x/>")
            self.assertEqual(response.status_code, 403, (method, path))
            self.assertEqual(response.json()["subStatusCode"], "invalidOperation")


if __name__ == "__main__":
    import unittest
    unittest.main()
