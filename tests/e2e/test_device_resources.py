"""Device resources through korva-gateway and its simulated camera: every resource answered,
streaming channels read, profile overrides, device error objects as status documents. A
streaming channel update is the simulated camera's unit test (SimCamera) and the conversion's
(ChannelRoundTrip)."""

import re
import xml.etree.ElementTree as ET

from gateway_fixture import DEVICE_INFO, GatewayTestCase, make_config, users_and_devices

DECLARATION = '<?xml version="1.0" encoding="UTF-8"?>'
SECOND = ("second", "Second12345")


def children(element):
    return [(child.tag, child.text or "") for child in element]


class DeviceResourceCase(GatewayTestCase):

    def call(self, method, path, body=None, status=200, user=("admin", "Admin12345")):
        response = self.gateway.request(method, path, body, *user)
        self.assertEqual(response.status_code, status, (path, response.text))
        return response

    def document(self, method, path, body=None, status=200, **kwargs):
        response = self.call(method, path, body, status, **kwargs)
        self.assertEqual(response.headers["Content-Type"], "application/xml")
        return ET.fromstring(response.content)

    def assert_status(self, method, path, body, status, sub_status, **kwargs):
        root = self.document(method, path, body, status, **kwargs)
        self.assertEqual(children(root)[0], ("requestURL", path))
        self.assertEqual(root.find("subStatusCode").text, sub_status, path)
        return root


class BuiltInCameraTest(DeviceResourceCase):

    config = make_config()

    def test_read_resources(self):
        root = self.document("GET", DEVICE_INFO)
        self.assertEqual([t for t, _ in children(root)], [
            "deviceName", "deviceID", "deviceDescription", "model", "serialNumber",
            "macAddress", "firmwareVersion", "firmwareReleasedDate", "bootVersion",
            "deviceType"])
        # The storage and capability documents are fixed; their bytes are checked by the
        # plug-in's unit tests.
        self.assertEqual(self.document("GET", "/KORVA/ContentMgmt/Storage/hdd").tag[-7:], "hddList")
        self.assertEqual(self.document("GET", "/KORVA/System/capabilities").tag, "DeviceCap")
        # Network configuration to admin accesses, and the order of the smart capabilities:
        # DeviceAnswers unit tests.
        self.assertEqual([children(c) for c in self.document(
            "GET", "/KORVA/System/Video/inputs/channels")],
            [[("id", "1"), ("inputPort", "1"), ("name", "Camera 01")],
             [("id", "2"), ("inputPort", "2"), ("name", "Camera 02")]])
        root = self.document("GET", "/KORVA/System/IO")
        self.assertEqual(children(root.find("IOInputPortList/IOInputPort")), [
            ("id", "1"), ("enabled", "true"), ("triggering", "low"), ("name", "Door contact")])
        channel = self.document("GET", "/KORVA/PTZCtrl/channels").find("PTZChannel")
        self.assertEqual(children(channel)[:2], [("id", "1"), ("enabled", "true")])
        self.assertEqual(channel.find("PTZRs485Para/baudRate").text, "9600")

    def test_commands_and_their_refusals(self):
        trigger = "/KORVA/System/IO/outputs/%d/trigger"
        high = "<IOPortData><outputState>high</outputState></IOPortData>"
        ptz = "/KORVA/PTZCtrl/channels/1"
        preset = "<PTZPreset><enabled>true</enabled><id>7</id></PTZPreset>"
        for method, path, body, status, sub_status in [
                ("PUT", trigger % 1, high, 200, "ok"),
                ("PUT", trigger % 2, high, 400, "invalidChannel"),
                ("PUT", trigger % 1, high.replace("high", "High"), 500, "internalError"),
                ("PUT", ptz + "/continuous", "<PTZData><pan>500</pan></PTZData>", 400,
                 "beyondARGSRangeLimit"),
                ("PUT", ptz + "/presets/7", preset, 200, "ok"),
                ("PUT", ptz + "/presets/7/goto", None, 200, "ok"),
                ("DELETE", ptz + "/presets/7", None, 200, "ok"),
                ("PUT", ptz + "/presets/7/goto", None, 403, "IDNotexist"),
                ("POST", "/KORVA/ContentMgmt/search", "not xml", 500, "internalError")]:
            self.assert_status(method, path, body, status, sub_status)
        self.call("GET", trigger % 1, status=403)

    def test_content_search_with_track_addresses(self):
        text = self.call("POST", "/KORVA/ContentMgmt/search",
                         "<CMSearchDescription><searchID>S1</searchID><trackIDList><trackID>102"
                         "</trackID></trackIDList><maxResults>2</maxResults>"
                         "</CMSearchDescription>").text
        self.assertRegex(text, r"(?s)^<CMSearchResult>.*<searchID>S1</searchID>.*"
                               r"<responseStatusStrg>MORE</responseStatusStrg>.*"
                               r"<numOfMatches>2</numOfMatches>")
        # The addresses' "&" is written unescaped, so the text is read, not parsed.
        uri = (r"<playbackURI>rtsp://192\.168\.1\.64:554/KORVA/Streaming/tracks/102"
               r"\?starttime=\d{8}T\d{6}Z&endtime=\d{8}T\d{6}Z</playbackURI>")
        self.assertEqual(len(re.findall(uri, text)), 2, text)

    def test_streaming_channel_numbers_list_capabilities_and_audio(self):
        for path, stream in [("/KORVA/Streaming/channels/1", "101"),
                             ("/Streaming/channels/1", "101"),
                             ("/KORVA/Streaming/channels/2", "201")]:
            root = self.document("GET", path)
            self.assertEqual((root.tag, root.find("id").text), ("StreamingChannel", stream))
        response = self.call("GET", "/KORVA/Streaming/channels")
        self.assertTrue(response.content.startswith(b"<StreamingChannelList>\r\n"))
        self.assertEqual([c.find("id").text for c in ET.fromstring(response.content)],
                         ["101", "102", "201", "202"])
        response = self.call("GET", "/KORVA/Streaming/channels/1/capabilities")
        self.assertNotIn(b"<?xml", response.content)
        self.assertEqual(ET.fromstring(response.content).find("Video/videoCodecType").attrib,
                         {"opt": "H.264,H.265"})
        response = self.call("GET", "/KORVA/System/Audio/channels")
        self.assertTrue(response.content.startswith(DECLARATION.encode()))
        self.assertEqual([children(c)[:2] for c in ET.fromstring(response.content)],
                         [[("id", "1"), ("enabled", "true")], [("id", "2"), ("enabled", "true")]])
        for method, path in [("POST", "/KORVA/Streaming/channels/101"),
                             ("PUT", "/KORVA/System/Audio/channels")]:
            response = self.gateway.request(method, path, "<x/>")
            self.assertEqual(response.status_code, 403, (method, path))
            self.assertEqual(response.json()["subStatusCode"], "invalidOperation")


DEVICE_ERROR = {"statusCode": 6, "statusString": "Content Error", "errorCode": 0x60000001,
                "errorMsg": "Incorrect parameter."}


class ProfileOverrideTest(DeviceResourceCase):

    config = make_config(**users_and_devices(
        ("admin", "Admin12345", "cam-1", {"profile": "profiles/cam-1.json"}),
        SECOND + ("cam-2", {"profile": "profiles/cam-2.json"})))
    profiles = {
        "cam-1": {
            "resources": {
                "GET " + DEVICE_INFO: {"DeviceInfo": {
                    "deviceName": "Lobby", "deviceID": "77", "serialNumber": "SN77",
                    "macAddress": "02:00:00:00:00:77", "firmwareVersion": "V9",
                    "deviceType": "IPDome", "model": "ignored"}},
                "GET /KORVA/System/IO": {"IOPortList": {"IOInputPortList": [
                    {"IOInputPort": {"id": "1", "enable": True}}]}},
                "GET /KORVA/System/Video/inputs/channels": DEVICE_ERROR,
            },
            "raw": {"GET /KORVA/PTZCtrl/channels": "this is not JSON"},
        },
        "cam-2": {"resources": {"GET " + DEVICE_INFO: DEVICE_ERROR}},
    }

    def test_overridden_resources(self):
        self.assertEqual(children(self.document("GET", DEVICE_INFO)), [
            ("deviceName", "Lobby"), ("deviceID", "77"), ("deviceDescription", "IPCamera"),
            ("model", "QM-VT4407"), ("serialNumber", "SN77"),
            ("macAddress", "02:00:00:00:00:77"), ("firmwareVersion", "V9"),
            ("deviceType", "IPDome")])
        # A port id given as text, and bytes that are not JSON.
        self.assert_status("GET", "/KORVA/System/IO", None, 500, "internalError")
        self.assert_status("GET", "/KORVA/PTZCtrl/channels", None, 500, "internalError")
        # Resources the profile does not name still reach the built-in camera.
        self.assertEqual(self.document("GET", "/KORVA/System/capabilities").tag, "DeviceCap")

    def test_device_error_objects_become_status_documents(self):
        self.assert_status("GET", "/KORVA/System/Video/inputs/channels", None, 400,
                           "badParameters")
        # The storage and access resources relay the device-information read, so its error
        # wins over their own documents.
        for path in ("/KORVA/ContentMgmt/Storage/hdd", "/KORVA/Security/adminAccesses"):
            root = self.document("GET", path, status=400, user=SECOND)
            self.assertEqual(root.find("subStatusCode").text, "badParameters")
        self.document("GET", "/KORVA/ContentMgmt/Storage/hdd")
