"""The built-in simulated camera and device profiles, seen through the plug-in over HTTP."""

import re
import subprocess
import time
import xml.etree.ElementTree as ET

from gateway_fixture import PASSWORD, USER, GatewayTestCase, make_config


def xml(response):
    return ET.fromstring(response.content)


def sub_status(response):
    return xml(response).find("subStatusCode").text


SEARCH = """<CMSearchDescription>
  <searchID>s-1</searchID>
  <trackIDList><trackID>%d</trackID></trackIDList>
  <maxResults>%d</maxResults>
  <searchResultPostion>0</searchResultPostion>
</CMSearchDescription>"""


class BuiltInCameraTest(GatewayTestCase):

    def test_streaming_channel_put_changes_state_and_bad_values_are_refused(self):
        path = "/KORVA/Streaming/channels/102"
        document = self.gateway.get(path).text
        changed = document.replace("<channelName>Camera 01</channelName>",
                                   "<channelName>Lobby</channelName>")
        self.assertNotEqual(changed, document)
        response = self.gateway.request("PUT", path, changed.encode())
        self.assertEqual(response.status_code, 200, response.text)
        self.assertEqual(sub_status(response), "ok")
        self.assertEqual(xml(self.gateway.get(path)).find("channelName").text, "Lobby")

        for old, new in [("<maxFrameRate>2500</maxFrameRate>", "<maxFrameRate>2400</maxFrameRate>"),
                         ("<videoResolutionWidth>704</videoResolutionWidth>",
                          "<videoResolutionWidth>1000</videoResolutionWidth>")]:
            refused = self.gateway.request("PUT", path, document.replace(old, new).encode())
            self.assertEqual(refused.status_code, 400, refused.text)
            self.assertEqual(xml(refused).find("statusString").text, "Content Error")
            self.assertEqual(sub_status(refused), "beyondARGSRangeLimit")
        self.assertEqual(xml(self.gateway.get(path)).find("Video/maxFrameRate").text, "2500")

    def test_curl_digest_put_of_a_channel_document(self):
        path = "/KORVA/Streaming/channels/201"
        document = self.gateway.get(path).content
        result = subprocess.run(
            ["curl", "-s", "--max-time", "20", "--digest", "-u", "%s:%s" % (USER, PASSWORD),
             "-X", "PUT", "--data-binary", "@-", "-H", "Content-Type: application/xml",
             self.gateway.url(path)], input=document, capture_output=True, timeout=30)
        self.assertIn(b"<subStatusCode>ok</subStatusCode>", result.stdout)

    def test_ptz_presets(self):
        base = "/KORVA/PTZCtrl/channels/1/presets/"
        preset = b"<PTZPreset><enabled>true</enabled><id>7</id><presetName>Gate</presetName></PTZPreset>"
        self.assertEqual(self.gateway.request("PUT", base + "7", preset).status_code, 200)
        self.assertEqual(self.gateway.request("PUT", base + "7/goto").status_code, 200)
        self.assertEqual(self.gateway.request("DELETE", base + "7").status_code, 200)
        for method, path in [("PUT", base + "7/goto"), ("DELETE", base + "7")]:
            response = self.gateway.request(method, path)
            self.assertEqual((response.status_code, sub_status(response)), (403, "IDNotexist"))
        other = self.gateway.request("PUT", "/KORVA/PTZCtrl/channels/2/homeposition/goto")
        self.assertEqual(sub_status(other), "invalidChannel")

    def test_content_search_gives_korva_track_addresses(self):
        response = self.gateway.request("POST", "/KORVA/ContentMgmt/search",
                                        (SEARCH % (201, 5)).encode())
        self.assertEqual(response.status_code, 200, response.text)
        # The plug-in writes the addresses' "&" unescaped, so the text is read, not parsed.
        text = response.text
        self.assertIn("<numOfMatches>5</numOfMatches>", text)
        self.assertIn("<responseStatusStrg>MORE</responseStatusStrg>", text)
        uris = re.findall(r"<playbackURI>([^<]*)</playbackURI>", text)
        self.assertEqual(len(uris), 5)
        for uri in uris:
            self.assertRegex(uri, r"^rtsp://192\.168\.1\.64:554/KORVA/Streaming/tracks/201"
                                  r"\?starttime=\d{8}T\d{6}Z&endtime=\d{8}T\d{6}Z$")
        unknown = self.gateway.request("POST", "/KORVA/ContentMgmt/search",
                                       (SEARCH % (901, 5)).encode())
        self.assertEqual(sub_status(unknown), "invalidChannel")


class ProfiledDeviceTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(devices=[{"devIndex": "cam-1", "profile": "profiles/odd.json"}])

    @classmethod
    def profiles(cls):
        return {"odd": {
            "latencyMs": 300,
            "resources": {"GET /KORVA/System/deviceInfo": {"DeviceInfo": {
                "deviceName": "Lobby", "deviceID": "x", "serialNumber": "s", "macAddress": "m",
                "firmwareVersion": "f", "deviceType": "IPCamera"}}},
            "raw": {"GET /KORVA/System/IO": "this is not JSON"},
        }}

    def test_profile_answers_replace_the_camera_after_the_latency(self):
        start = time.monotonic()
        response = self.gateway.get("/KORVA/System/deviceInfo")
        self.assertGreaterEqual(time.monotonic() - start, 0.3)
        self.assertEqual(xml(response).find("deviceName").text, "Lobby")
        raw = self.gateway.get("/KORVA/System/IO")
        self.assertEqual((raw.status_code, sub_status(raw)), (500, "internalError"))
        # Requests the profile does not name still reach the built-in camera.
        self.assertEqual(self.gateway.get("/KORVA/PTZCtrl/channels").status_code, 200)
