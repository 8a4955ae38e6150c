"""Digest authentication through korva-gateway with real clients (curl, requests), the 401
and 403 documents, the digest uri, the configured algorithm, lock-out per client address behind a
trusted proxy, and an inactive gateway. Lock-out timing and untrusted X-Forwarded-For: DigestCheck
unit tests."""

import subprocess
import xml.etree.ElementTree as ET

import requests

from gateway_fixture import (DEVICE_INFO, PASSWORD, USER, GatewayTestCase, digest_authorization,
                             make_config)


def curl_digest(url):
    """(HTTP status, body) of the final answer of curl --digest."""
    result = subprocess.run(["curl", "-s", "-S", "--max-time", "30", "-D", "-", "--digest",
                             "-u", "%s:%s" % (USER, PASSWORD), url],
                            capture_output=True, timeout=60)
    # The output holds the 401 head and document, then the final answer.
    last = result.stdout.decode("utf-8", "replace").split("HTTP/1.1 ")[-1]
    head, _, body = last.partition("\r\n\r\n")
    return int(head.split(" ", 1)[0]), body


def fields(text):
    return {child.tag: child.text for child in ET.fromstring(text.encode())}


class Md5DigestTest(GatewayTestCase):

    def test_curl_and_requests_read_device_information(self):
        status, body = curl_digest(self.gateway.url(DEVICE_INFO))
        self.assertEqual((status, ET.fromstring(body).tag), (200, "DeviceInfo"), body)
        with self.gateway.session() as session:  # one connection, several requests
            for _ in range(3):
                response = session.get(self.gateway.url(DEVICE_INFO), timeout=30)
                self.assertEqual(response.status_code, 200, response.text)
            # HEAD authenticates with a digest over "HEAD" and announces the GET's length.
            head = session.head(self.gateway.url(DEVICE_INFO), timeout=30)
            self.assertEqual((head.status_code, head.content), (200, b""))
            self.assertEqual(int(head.headers["Content-Length"]), len(response.content))
        self.assertEqual(fields(response.text)["deviceName"], "Camera cam-1")
        self.assertEqual(self.gateway.get(DEVICE_INFO, "nobody", "x").status_code, 401)

    def test_challenge_header_and_document(self):
        response = requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertEqual(response.status_code, 401)
        challenge = response.headers["WWW-Authenticate"]
        self.assertRegex(challenge, r'^Digest qop="auth", realm="KORVA Gateway", '
                                    r'nonce="[^"]+", stale="FALSE"$')
        # The document's bytes and fresh nonces: the pipeline's unit tests.
        self.assertEqual(fields(response.text)["subStatusCode"], "badAuthorization")

    def test_paths_no_handler_takes_get_the_json_fallback(self):
        for method, path in [("GET", "/"), ("DELETE", DEVICE_INFO),
                             ("GET", "/KORVA/Event/notification/alertStream/")]:
            response = requests.request(method, self.gateway.url(path), timeout=30)
            self.assertEqual(response.status_code, 403, path)
            self.assertEqual(response.headers["Content-Type"], "application/json")
            # Its bytes: the plug-in's entry test.
            self.assertEqual(response.json()["subStatusCode"], "invalidOperation")


class ProxiedClientsTest(GatewayTestCase):
    """Behind a trusted proxy (the test client on 127.0.0.1), X-Forwarded-For names the client."""

    config = make_config(auth={"algorithm": "MD5", "maxAttempts": 3, "lockSeconds": 180,
                               "nonceLifetimeSeconds": 300, "trustedProxies": ["127.0.0.0/8"]})

    def get(self, path, authorization):
        return requests.get(self.gateway.url(path), headers={"Authorization": authorization},
                            timeout=30)

    def test_digest_uri_must_designate_the_request_target(self):
        challenge = requests.get(self.gateway.url(DEVICE_INFO), timeout=30).headers[
            "WWW-Authenticate"]
        # Which uris designate the target: DigestCheck unit tests; here the answer to a mismatch.
        for path, uri in [(DEVICE_INFO + "?a=1", DEVICE_INFO)]:
            response = self.get(path, digest_authorization("GET", uri, challenge))
            self.assertEqual(response.status_code, 400, (path, uri))
            self.assertEqual(fields(response.text)["subStatusCode"], "badParameters")
        for path in (DEVICE_INFO, DEVICE_INFO + "?a=1"):
            challenge = requests.get(self.gateway.url(path), timeout=30).headers[
                "WWW-Authenticate"]
            self.assertEqual(self.get(path, digest_authorization("GET", path, challenge))
                             .status_code, 200, path)

    def test_a_lock_holds_one_client_address_only(self):
        attacker, user = {"X-Forwarded-For": "10.0.0.1"}, {"X-Forwarded-For": "10.0.0.2, 10.9.9.9"}
        answers = [self.gateway.request("GET", DEVICE_INFO, password="wrong", headers=attacker)
                   for _ in range(3)]
        self.assertEqual(fields(answers[-1].text)["lockStatus"], "locked")
        locked = self.gateway.request("GET", DEVICE_INFO, headers=attacker)
        self.assertEqual((locked.status_code, fields(locked.text)["lockStatus"]), (401, "locked"))
        self.assertEqual(self.gateway.request("GET", DEVICE_INFO, headers=user).status_code, 200)
        self.assertEqual(self.gateway.get(DEVICE_INFO).status_code, 200)  # the proxy itself


class Sha256DigestTest(GatewayTestCase):

    config = make_config(auth={"algorithm": "SHA-256"})

    def test_challenge_names_sha256_and_curl_succeeds(self):
        response = requests.get(self.gateway.url(DEVICE_INFO), timeout=30)
        self.assertIn("algorithm=SHA-256", response.headers["WWW-Authenticate"])
        md5 = digest_authorization("GET", DEVICE_INFO, response.headers["WWW-Authenticate"])
        downgraded = requests.get(self.gateway.url(DEVICE_INFO), headers={"Authorization": md5},
                                  timeout=30)
        self.assertEqual(downgraded.status_code, 401)
        self.assertIn("algorithm=SHA-256", downgraded.headers["WWW-Authenticate"])
        status, body = curl_digest(self.gateway.url(DEVICE_INFO))
        self.assertEqual((status, ET.fromstring(body).tag), (200, "DeviceInfo"), body)


class InactiveGatewayTest(GatewayTestCase):

    config = make_config(activated=False)

    def test_handled_requests_get_403_not_activated_without_a_challenge(self):
        response = self.gateway.get(DEVICE_INFO)
        self.assertEqual(response.status_code, 403)
        self.assertEqual(fields(response.text)["subStatusCode"], "notActivated")
        self.assertNotIn("WWW-Authenticate", response.headers)

