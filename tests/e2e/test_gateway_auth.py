"""Digest authentication through korva-gateway with real clients (curl, requests)."""

import subprocess
import time
import unittest
import xml.etree.ElementTree as ET

import requests

from gateway_fixture import (PASSWORD, USER, Gateway, GatewayTestCase, make_config,
                             sanitizer_report)

DEVICE_INFO = "/KORVA/System/deviceInfo"


def curl(url, *args):
    """(HTTP status, headers text, body) of a curl call."""
    result = subprocess.run(
        ["curl", "-s", "-S", "--max-time", "30", "-D", "-", "-o", "-", url] + list(args),
        capture_output=True, timeout=60)
    text = result.stdout.decode("utf-8", "replace")
    # With --digest the output holds the 401 head and document, then the final answer.
    heads = [m for m in text.split("HTTP/1.1 ") if m]
    last = heads[-1]
    head, _, body = last.partition("\r\n\r\n")
    return int(head.split(" ", 1)[0]), head, body


def root_of(text):
    return ET.fromstring(text.encode("utf-8"))


class Md5DigestTest(GatewayTestCase):

    def test_curl_digest_reads_device_information(self):
        status, _, body = curl(self.gateway.url(DEVICE_INFO), "--digest", "-u",
                               "%s:%s" % (USER, PASSWORD))
        self.assertEqual(status, 200, body)
        self.assertEqual(root_of(body).tag, "DeviceInfo")

    def test_requests_digest_reads_device_information(self):
        response = self.gateway.get(DEVICE_INFO)
        self.assertEqual(response.status_code, 200, response.text)
        self.assertEqual(response.headers["Content-Type"], "application/xml")
        self.assertEqual(root_of(response.text).find("deviceName").text, "Camera cam-1")

    def test_a_session_reuses_its_connection_for_many_requests(self):
        with self.gateway.session() as session:
            for _ in range(20):
                response = session.get(self.gateway.url(DEVICE_INFO), timeout=30)
                self.assertEqual(response.status_code, 200)

    def test_challenge_header_and_document(self):
        response = requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertEqual(response.status_code, 401)
        challenge = response.headers["WWW-Authenticate"]
        self.assertRegex(challenge,
                         r'^Digest qop="auth", realm="KORVA Gateway", nonce="[^"]+", '
                         r'stale="FALSE"$')
        root = root_of(response.text)
        self.assertEqual(root.tag, "ResponseStatus")
        self.assertEqual([(child.tag, child.text) for child in root], [
            ("requestURL", DEVICE_INFO), ("statusCode", "401"),
            ("statusString", "Unauthorized"), ("subStatusCode", "badAuthorization")])
        again = requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertNotEqual(again.headers["WWW-Authenticate"], challenge, "nonce reused")

    def test_unknown_user_is_refused(self):
        response = self.gateway.get(DEVICE_INFO, user="nobody", password="x")
        self.assertEqual(response.status_code, 401)

    def test_path_no_handler_takes_gets_json_fallback(self):
        for method, path in [("GET", "/"), ("GET", "/KORVA/Unknown/resource"),
                             ("DELETE", "/KORVA/System/deviceInfo"),
                             ("GET", "/KORVA/Event/notification/alertStream/")]:
            response = requests.request(method, self.gateway.url(path), timeout=30)
            self.assertEqual(response.status_code, 403, path)
            self.assertEqual(response.headers["Content-Type"], "application/json")
            self.assertEqual(response.json(), {
                "errorCode": 1073741830, "errorMsg": "Invalid operation.", "statusCode": 4,
                "statusString": "Invalid Operation", "subStatusCode": "invalidOperation"})


class LockOutTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(auth={"algorithm": "MD5", "maxAttempts": 3, "lockSeconds": 2,
                                 "nonceLifetimeSeconds": 300})

    def lock_fields(self, response):
        root = root_of(response.text)
        return {child.tag: child.text for child in root}

    def test_wrong_passwords_lock_the_user_until_the_lock_time_passes(self):
        fields = []
        for _ in range(3):
            response = self.gateway.get(DEVICE_INFO, password="wrong")
            self.assertEqual(response.status_code, 401)
            fields.append(self.lock_fields(response))
        self.assertEqual(fields[0]["lockStatus"], "unlocked")
        self.assertEqual(fields[-1]["lockStatus"], "locked")
        self.assertEqual(fields[-1]["retryLoginTime"], "0")
        self.assertGreater(int(fields[-1]["unlockTime"]), 0)
        # Locked: even the right password is refused.
        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 401)
        time.sleep(2.5)
        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 200)


class Sha256DigestTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(auth={"algorithm": "SHA-256"})

    def test_challenge_names_sha256_and_curl_succeeds(self):
        response = requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertEqual(response.status_code, 401)
        self.assertIn("algorithm=SHA-256", response.headers["WWW-Authenticate"])
        status, _, body = curl(self.gateway.url(DEVICE_INFO), "--digest", "-u",
                               "%s:%s" % (USER, PASSWORD))
        self.assertEqual(status, 200, body)
        self.assertEqual(root_of(body).tag, "DeviceInfo")


class InactiveGatewayTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(activated=False)

    def test_every_handled_request_gets_403_not_activated(self):
        response = self.gateway.get(DEVICE_INFO)
        self.assertEqual(response.status_code, 403)
        root = root_of(response.text)
        self.assertEqual(root.find("subStatusCode").text, "notActivated")
        self.assertNotIn("WWW-Authenticate", response.headers)


class EmbeddedDefaultTest(unittest.TestCase):

    def test_default_configuration_prints_working_credentials(self):
        gateway = Gateway(use_config=False)
        try:
            gateway.start()
            lines = gateway.wait_for(lambda: len(gateway.read_stdout()) >= 2 and gateway.read_stdout())
            credentials = lines[1]
            password = credentials.split("password ")[1].split(",")[0]
            self.assertIn("user admin", credentials)
            self.assertIn("cam-1", credentials)
            self.assertEqual(gateway.get(DEVICE_INFO, password=password).status_code, 200)
            code, stderr = gateway.stop()
            self.assertEqual(code, 0, stderr[-2000:])
            self.assertIsNone(sanitizer_report(stderr))
        finally:
            gateway.cleanup()


if __name__ == "__main__":
    unittest.main()
