"""korva-gateway refuses bad configurations, flags, plug-ins and addresses before it listens,
and its embedded default prints working credentials."""

import os
import socket
import tempfile
import unittest

from gateway_fixture import DEVICE_INFO, Gateway, make_config, sanitizer_report


class StartupTest(unittest.TestCase):

    def outcome(self, gateway):
        """(exit status, stderr, stdout lines) of a gateway that stops by itself."""
        try:
            code = gateway.launch().process.wait(60)
            return code, gateway.stderr(), gateway.stdout_lines()
        finally:
            gateway.cleanup()

    def test_refusals_name_the_problem_and_exit_before_listening(self):
        # The full table of checks is in the unit tests; these show the message reaching the
        # user with the file's name, and the exit status of each kind of failure.
        profiled = make_config(devices=[{"devIndex": "cam-1", "profile": "profiles/p.json"}])
        busy = socket.socket()
        self.addCleanup(busy.close)
        busy.bind(("127.0.0.1", 0))
        busy.listen()
        busy_address = "127.0.0.1:%d" % busy.getsockname()[1]
        folder = tempfile.TemporaryDirectory(prefix="korva-e2e-")
        self.addCleanup(folder.cleanup)
        fifo = os.path.join(folder.name, "fifo.json")
        os.mkfifo(fifo)
        cases = [
            # Refused at once, without reading: the gateway must not block on these.
            (Gateway(use_config=False, args=["--config", fifo]), 2,
             [fifo + ": (document): is not a regular file (a FIFO)"]),
            (Gateway(use_config=False, args=["--config", "/dev/zero"]), 2,
             ["/dev/zero: (document): is not a regular file (a device)"]),
            (Gateway('{"realm": "a\\u0000b"}'), 2, ["configuration error", "realm: the string"]),
            (Gateway("{ listen"), 2, ["configuration error", "not valid JSON"]),
            (Gateway(make_config(users=[{"name": "a", "password": "p", "device": "cam-9"}])),
             2, ["configuration error", "users[0].device", "unknown device"]),
            (Gateway(profiled, {"p": {"latencyMs": -5}}), 2,
             ["configuration error", "p.json", "latencyMs", "0..600000"]),
            (Gateway(args=["--log-level", "9"]), 2, ["--log-level"]),
            (Gateway(args=["--bogus"]), 2, ["unknown argument"]),
            (Gateway(args=["--tls-listen", "127.0.0.1:99999"]), 2,
             ["--tls-listen: port \"99999\" must be a number"]),
            (Gateway(args=["--admin-listen", "0.0.0.0:0"]), 2,
             ["--admin-listen: 0.0.0.0 is not a loopback address: set admin.token"]),
            (Gateway(args=["--plugin", "/nonexistent/lib.so"]), 1,
             ["cannot load the protocol plug-in /nonexistent/lib.so"]),
            (Gateway(args=["--admin-listen", busy_address]), 1,
             ["cannot listen on " + busy_address]),
        ]
        for gateway, expected, texts in cases:
            config_path = gateway.config_path
            with self.subTest(texts[-1]):
                code, stderr, stdout = self.outcome(gateway)
                self.assertEqual(code, expected, stderr)
                self.assertEqual(stdout, [], "nothing may be listening")
                if "configuration error" in texts and "p.json" not in texts:
                    self.assertIn(config_path, stderr)
                for text in texts:
                    self.assertIn(text, stderr)
                self.assertIsNone(sanitizer_report(stderr))

    def test_embedded_default_prints_working_credentials(self):
        gateway = Gateway(use_config=False)
        try:
            gateway.start()
            lines = gateway.wait_for(lambda: len(gateway.stdout_lines()) >= 2
                                     and gateway.stdout_lines())
            self.assertIn("user admin", lines[1])
            self.assertIn("cam-1", lines[1])
            password = lines[1].split("password ")[1].split(",")[0]
            self.assertEqual(gateway.get(DEVICE_INFO, password=password).status_code, 200)
            code, stderr = gateway.stop()
            self.assertEqual(code, 0, stderr[-2000:])
            self.assertIsNone(sanitizer_report(stderr))
        finally:
            gateway.cleanup()

