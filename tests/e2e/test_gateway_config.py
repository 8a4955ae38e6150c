"""korva-gateway refuses bad configurations, flags, plug-ins and addresses before it listens,
and its embedded default prints working credentials."""

import json
import os
import re
import socket
import subprocess
import tempfile
import unittest

from gateway_fixture import DEVICE_INFO, GATEWAY, PLUGIN, Gateway, make_config, sanitizer_report

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


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
            (Gateway('{"realm": "a\\u0000b"}'), 2, ["configuration error", "realm: the string"]),
            (Gateway(make_config(users=[{"name": "a", "password": "p", "device": "cam-9"}])),
             2, ["configuration error", "users[0].device", "unknown device"]),
            (Gateway(profiled, {"p": {"latencyMs": -5}}), 2,
             ["configuration error", "p.json", "latencyMs", "0..600000"]),
            (Gateway(args=["--log-level", "9"]), 2, ["--log-level"]),
            (Gateway(args=["--tls-listen", "127.0.0.1:99999"]), 2,
             ["--tls-listen: port \"99999\" must be a number"]),
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



class InformationCommandTest(unittest.TestCase):
    """--check-config, --version and --help answer and exit; none of them listens."""

    def run_gateway(self, *args):
        if not GATEWAY:
            self.skipTest("KORVA_GATEWAY is not set")
        done = subprocess.run([GATEWAY, *args], capture_output=True, text=True, timeout=60)
        self.assertIsNone(sanitizer_report(done.stderr))
        return done.returncode, done.stdout, done.stderr

    def test_check_config(self):
        folder = tempfile.TemporaryDirectory(prefix="korva-e2e-")
        self.addCleanup(folder.cleanup)
        bad = os.path.join(folder.name, "bad.json")
        with open(bad, "w") as f:
            json.dump(make_config(realm=5), f)
        example = os.path.join(SOURCE, "examples", "gateway.json")
        cases = [
            (["--check-config", example], 0, "configuration OK (2 devices, 2 users)"),
            (["--check-config", bad], 2, bad + ": realm: must be a string"),
            (["--check-config", example, "--admin-listen", "0.0.0.0:1"], 2,
             "--admin-listen: 0.0.0.0 is not a loopback address"),
            (["--check-config", example, "--config", example], 2, "leave out --config"),
        ]
        for args, expected, text in cases:
            with self.subTest(args=args):
                code, stdout, stderr = self.run_gateway(*args)
                self.assertEqual(code, expected, stderr)
                self.assertIn(text, stdout + stderr)
                self.assertNotIn("listening", stdout)

    def test_version_names_plugin_and_libraries(self):
        code, stdout, _ = self.run_gateway("--version", "--plugin", PLUGIN or "/x/plugin.so")
        self.assertEqual(code, 0)
        self.assertRegex(stdout, r"^korva-gateway \d+\.\d+\.\d+\n")
        self.assertIn("plug-in: " + (PLUGIN or "/x/plugin.so") + "\n", stdout)
        for library in ("OpenSSL: OpenSSL 3", "Boost: 1.", "JsonCpp: 1.", "pugixml: 1."):
            self.assertIn(library, stdout)

    def test_man_page_lists_every_flag_of_help(self):
        code, stdout, _ = self.run_gateway("--help")
        self.assertEqual(code, 0)
        with open(os.path.join(SOURCE, "packaging", "korva-gateway.1")) as f:
            page = f.read().replace("\\-", "-")
        flags = set(re.findall(r"--[a-z][a-z-]*", stdout))
        self.assertTrue({"--config", "--check-config", "--version", "--help"} <= flags, flags)
        for flag in sorted(flags):
            self.assertRegex(page, r"\.B[IR]? %s\b" % re.escape(flag))
