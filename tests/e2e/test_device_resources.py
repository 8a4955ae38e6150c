"""Device resources through korva-gateway and its simulated camera: device information,
storage, admin accesses, capabilities, I/O, image channel, PTZ and content search; profile
overrides of single resources; device error objects as status documents."""

import re
import xml.etree.ElementTree as ET

from gateway_fixture import GatewayTestCase, make_config

DECLARATION = '<?xml version="1.0" encoding="UTF-8"?>'
GAP = " " * 20
STORAGE = (DECLARATION + GAP +
           '<hddList version="1.0" xmlns="http://www.korva-gateway.example/ver10/XMLSchema"  '
           'size="8">' + GAP +
           '<hdd  version="2.0" xmlns="http://www.korva-gateway.example/ver20/XMLSchema">' +
           GAP.join(["", "<id>1</id>", "<hddName>hdde</hddName>", "<hddPath></hddPath>",
                     "<hddType>SATA</hddType>", "<status>ok</status>",
                     "<capacity>121942</capacity>", "<freeSpace>87296</freeSpace>",
                     "<property>RW</property>", "<property>RW</property>", "</hdd>",
                     "</hddList>"]))
DEVICE_CAP = (DECLARATION + '<DeviceCap version = "2.0"><SysCap><IOCap  version = "2.0">'
              '</IOCap></SysCap></DeviceCap>')
SMART_KEYS = [
    "isSupportROI", "isSupportFaceDetect", "isSupportIntelliTrace", "isSupportFieldDetection",
    "isSupportDefocusDetection", "isSupportAudioDetection", "isSupportSceneChangeDetection",
    "isSupportLineDetection", "isSupportRegionEntrance", "isSupportRegionExiting",
    "isSupportLoitering", "isSupportGroup", "isSupportRapidMove", "isSupportParking",
    "isSupportUnattendedBaggage", "isSupportAttendedBaggage", "isSupportPeopleDetection",
    "isSupportShipsDetection", "isSupportSmartCalibration", "isSupportStorageDetection",
    "isSupportShield", "isSupportAlgVersion", "isSupportVideoOverlap", "isSupportParkingState",
    "isSupportChannelResource", "isSupportAnalysisUnitSwitch", "isSupportHFPD",
    "isSupportImageROI", "isSupportLFPD"]
TIMED = "recordType.meta.korva-gateway.example/timing"
MANUAL = "recordType.meta.korva-gateway.example/Manual"


def children(element):
    return [(child.tag, child.text or "") for child in element]


class DeviceResourceCase(GatewayTestCase):

    def call(self, method, path, body=None, status=200, user="admin", password="Admin12345"):
        response = self.gateway.request(method, path, body, user=user, password=password)
        self.assertEqual(response.status_code, status, response.text)
        return response

    def document(self, method, path, body=None, status=200, **kwargs):
        response = self.call(method, path, body, status, **kwargs)
        self.assertEqual(response.headers["Content-Type"], "application/xml")
        return ET.fromstring(response.content)

    def assert_status(self, method, path, body, status, sub_status):
        root = self.document(method, path, body, status)
        self.assertEqual(root.tag, "ResponseStatus")
        self.assertEqual(root.find("requestURL").text, path)
        self.assertEqual(root.find("subStatusCode").text, sub_status)


class BuiltInCameraTest(DeviceResourceCase):

    @classmethod
    def config(cls):
        return make_config(network={"httpPort": 8000, "httpsPort": 8443, "rtspPort": 10554,
                                    "httpsEnabled": False, "portMapping": False})

    def test_device_information_with_fixed_description_and_model(self):
        root = self.document("GET", "/KORVA/System/deviceInfo")
        self.assertEqual(root.tag, "DeviceInfo")
        tags = [tag for tag, _ in children(root)]
        self.assertEqual(tags, ["deviceName", "deviceID", "deviceDescription", "model",
                                "serialNumber", "macAddress", "firmwareVersion",
                                "firmwareReleasedDate", "bootVersion", "deviceType"])
        self.assertEqual(root.find("deviceName").text, "Camera cam-1")
        self.assertEqual(root.find("model").text, "QM-VT4407")
        self.assertEqual(root.find("deviceDescription").text, "IPCamera")

    def test_video_inputs(self):
        root = self.document("GET", "/KORVA/System/Video/inputs/channels")
        self.assertEqual([children(c) for c in root.findall("VideoInputChannel")],
                         [[("id", "1"), ("inputPort", "1"), ("name", "Camera 01")],
                          [("id", "2"), ("inputPort", "2"), ("name", "Camera 02")]])

    def test_storage_and_device_capabilities_are_fixed_documents(self):
        self.assertEqual(self.call("GET", "/KORVA/ContentMgmt/Storage/hdd").text, STORAGE)
        self.assertEqual(self.call("GET", "/KORVA/System/capabilities").text, DEVICE_CAP)

    def test_admin_accesses_come_from_the_network_configuration(self):
        root = self.document("GET", "/KORVA/Security/adminAccesses")
        self.assertEqual([children(p) for p in root.findall("AdminAccessProtocol")], [
            [("id", "1"), ("enabled", "true"), ("protocol", "HTTP"), ("portNo", "8000")],
            [("id", "2"), ("enabled", "true"), ("protocol", "RTSP"), ("portNo", "10554")],
            [("id", "3"), ("enabled", "false"), ("protocol", "HTTPS"), ("portNo", "8443")]])

    def test_smart_capabilities_in_fixed_order(self):
        for path in ("/KORVA/Smart/capabilities", "/KORVA/Smart/capabilities/SmartCap"):
            root = self.document("GET", path)
            tags = [tag for tag, _ in children(root)]
            self.assertTrue(tags, path)
            self.assertEqual(tags, [key for key in SMART_KEYS if key in tags], path)
            self.assertTrue(all(text in ("true", "false") for _, text in children(root)))

    def test_io_ports_and_output_trigger(self):
        root = self.document("GET", "/KORVA/System/IO")
        self.assertEqual(children(root.find("IOInputPortList/IOInputPort")),
                         [("id", "1"), ("enabled", "true"), ("triggering", "low"),
                          ("name", "Door contact")])
        self.assertEqual(children(root.find("IOOutputPortList/IOOutputPort")),
                         [("id", "1"), ("enabled", "true"), ("name", "Siren")])
        body = "<IOPortData><outputState>high</outputState></IOPortData>"
        self.assert_status("PUT", "/KORVA/System/IO/outputs/1/trigger", body, 200, "ok")
        self.assert_status("PUT", "/KORVA/System/IO/outputs/2/trigger", body, 400,
                           "invalidChannel")
        self.assert_status("PUT", "/KORVA/System/IO/outputs/1/trigger",
                           "<IOPortData><outputState>High</outputState></IOPortData>", 500,
                           "internalError")
        self.call("GET", "/KORVA/System/IO/outputs/1/trigger", status=403)

    def test_image_channel(self):
        root = self.document("GET", "/KORVA/Image/channels/1/capabilities")
        self.assertEqual((root.tag, list(root)), ("ImageChannel", []))
        self.assert_status("GET", "/KORVA/Image/channels/9/capabilities", None, 400,
                           "invalidChannel")

    def test_ptz_channels_and_commands(self):
        channel = self.document("GET", "/KORVA/PTZCtrl/channels").find("PTZChannel")
        self.assertEqual(children(channel)[:4], [("id", "1"), ("enabled", "true"),
                                                 ("serialNumber", "1"), ("videoInputID", "1")])
        self.assertEqual(channel.find("PTZRs485Para/baudRate").text, "9600")
        base = "/KORVA/PTZCtrl/channels/1"
        self.assert_status("PUT", base + "/continuous",
                           "<PTZData><pan>30</pan><tilt>-10</tilt></PTZData>", 200, "ok")
        self.assert_status("PUT", base + "/continuous", "<PTZData><pan>500</pan></PTZData>",
                           400, "beyondARGSRangeLimit")
        self.assert_status("PUT", base + "/continuous", "<Move/>", 500, "internalError")
        preset = "<PTZPreset><enabled>true</enabled><id>7</id><presetName>Door</presetName>" \
                 "</PTZPreset>"
        self.assert_status("PUT", base + "/presets/7", preset, 200, "ok")
        self.assert_status("PUT", base + "/presets/7/goto", None, 200, "ok")
        self.assert_status("DELETE", base + "/presets/7", None, 200, "ok")
        self.assert_status("PUT", base + "/presets/7/goto", None, 403, "IDNotexist")
        self.assert_status("PUT", base + "/homeposition/goto", None, 200, "ok")

    def search(self, description, status=200):
        response = self.call("POST", "/KORVA/ContentMgmt/search", description, status)
        return response.text

    def test_content_search_with_track_addresses(self):
        text = self.search(
            "<CMSearchDescription><searchID>S1</searchID><trackIDList><trackID>102</trackID>"
            "</trackIDList><maxResults>2</maxResults></CMSearchDescription>")
        self.assertTrue(text.startswith("<CMSearchResult>"), text)
        self.assertIn("<searchID>S1</searchID>", text)
        self.assertIn("<numOfMatches>2</numOfMatches>", text)
        self.assertIn("<responseStatusStrg>MORE</responseStatusStrg>", text)
        self.assertNotIn("&amp;", text)
        uris = re.findall(r"<playbackURI>([^<]*)</playbackURI>", text)
        self.assertEqual(len(uris), 2, text)
        for uri in uris:
            self.assertRegex(uri, r"^rtsp://192\.168\.1\.64:554/KORVA/Streaming/tracks/102"
                                  r"\?starttime=\d{8}T\d{6}Z&endtime=\d{8}T\d{6}Z$")
        self.assertEqual(text.count("<metadataDescriptor>%s</metadataDescriptor>" % TIMED), 2)

    def test_content_search_without_metadata_gets_the_manual_default(self):
        text = self.search("<CMSearchDescription><maxResults>1</maxResults><metadataList/>"
                           "</CMSearchDescription>")
        self.assertIn("<metadataDescriptor>%s</metadataDescriptor>" % MANUAL, text)
        self.assertIn("/KORVA/Streaming/tracks/101?", text)

    def test_content_search_errors(self):
        self.assert_status("POST", "/KORVA/ContentMgmt/search",
                           "<CMSearchDescription><trackIDList><trackID>901</trackID>"
                           "</trackIDList></CMSearchDescription>", 400, "invalidChannel")
        self.assert_status("POST", "/KORVA/ContentMgmt/search", "not xml", 500, "internalError")


class ProfileOverrideTest(DeviceResourceCase):

    @classmethod
    def config(cls):
        return make_config(
            users=[{"name": "admin", "password": "Admin12345", "device": "cam-1"},
                   {"name": "second", "password": "Second12345", "device": "cam-2"}],
            devices=[{"devIndex": "cam-1", "profile": "profiles/cam-1.json"},
                     {"devIndex": "cam-2", "profile": "profiles/cam-2.json"}])

    @classmethod
    def profiles(cls):
        device_error = {"statusCode": 6, "statusString": "Content Error",
                        "errorCode": 0x60000001, "errorMsg": "Incorrect parameter."}
        return {
            "cam-1": {
                "resources": {
                    "GET /KORVA/System/deviceInfo": {"DeviceInfo": {
                        "deviceName": "Lobby", "deviceID": "77", "serialNumber": "SN77",
                        "macAddress": "02:00:00:00:00:77", "firmwareVersion": "V9",
                        "deviceType": "IPDome", "model": "ignored"}},
                    "GET /KORVA/System/IO": {"IOPortList": {"IOInputPortList": [
                        {"IOInputPort": {"id": "1", "enable": True}}]}},
                    "GET /KORVA/Smart/capabilities": {"SmartCap": {
                        "isSupportLFPD": True, "isSupportROI": False, "vendorFlag": True}},
                    "GET /KORVA/System/Video/inputs/channels": device_error,
                },
                "raw": {"GET /KORVA/PTZCtrl/channels": "this is not JSON"},
            },
            "cam-2": {"resources": {"GET /KORVA/System/deviceInfo": device_error}},
        }

    def test_overridden_device_information(self):
        root = self.document("GET", "/KORVA/System/deviceInfo")
        self.assertEqual(children(root), [
            ("deviceName", "Lobby"), ("deviceID", "77"), ("deviceDescription", "IPCamera"),
            ("model", "QM-VT4407"), ("serialNumber", "SN77"),
            ("macAddress", "02:00:00:00:00:77"), ("firmwareVersion", "V9"),
            ("deviceType", "IPDome")])

    def test_overridden_smart_capabilities_keep_the_fixed_order(self):
        root = self.document("GET", "/KORVA/Smart/capabilities")
        self.assertEqual(children(root), [("isSupportROI", "false"), ("isSupportLFPD", "true")])
        self.assertEqual(self.call("GET", "/KORVA/System/capabilities").text, DEVICE_CAP)

    def test_unusable_answers_become_internal_errors(self):
        # A port id given as text, and bytes that are not JSON.
        self.assert_status("GET", "/KORVA/System/IO", None, 500, "internalError")
        self.assert_status("GET", "/KORVA/PTZCtrl/channels", None, 500, "internalError")

    def test_device_error_objects_become_status_documents(self):
        self.assert_status("GET", "/KORVA/System/Video/inputs/channels", None, 400,
                           "badParameters")
        # The storage and access resources relay the device-information read, so its error
        # wins over their own documents.
        for path in ("/KORVA/ContentMgmt/Storage/hdd", "/KORVA/Security/adminAccesses"):
            root = self.document("GET", path, status=400, user="second",
                                 password="Second12345")
            self.assertEqual(root.find("subStatusCode").text, "badParameters")
        self.assertEqual(self.call("GET", "/KORVA/ContentMgmt/Storage/hdd").text, STORAGE)
