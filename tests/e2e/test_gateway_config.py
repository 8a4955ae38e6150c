"""korva-gateway refuses bad configurations and flags with a clear message and a non-zero exit;
flags override the file."""

import json
import os
import socket
import unittest

from gateway_fixture import Gateway, make_config, sanitizer_report


def bad_configs():
    """(description, config, profiles, texts the message must hold). The full table of checks
    is in the unit tests; these show that the message reaches the user with the file's name."""
    return [
        ("not JSON", "{ listen", {}, ["not valid JSON"]),
        ("unknown algorithm", make_config(auth={"algorithm": "SHA-1"}), {},
         ["auth.algorithm", "unknown algorithm"]),
        ("duplicate user", make_config(users=[{"name": "a", "password": "p", "device": "cam-1"},
                                              {"name": "a", "password": "q", "device": "cam-1"}]),
         {}, ["users[1].name", "duplicate user"]),
        ("user bound to an unknown device",
         make_config(users=[{"name": "a", "password": "p", "device": "cam-9"}]), {},
         ["users[0].device", "unknown device"]),
        ("unreadable profile",
         make_config(devices=[{"devIndex": "cam-1", "profile": "profiles/missing.json"}]), {},
         ["devices[0].profile", "cannot read"]),
        ("bad profile member",
         make_config(devices=[{"devIndex": "cam-1", "profile": "profiles/p.json"}]),
         {"p": {"latencyMs": -5}}, ["p.json", "latencyMs", "0..600000"]),
        ("bad listen address", make_config(listen="nowhere:80"), {},
         ["listen", "not an IP address"]),
    ]


class BadConfigurationTest(unittest.TestCase):

    def run_gateway(self, gateway):
        try:
            gateway.launch()
            code = gateway.wait_exit(60)
            return code, gateway.stderr(), gateway.read_stdout()
        finally:
            gateway.cleanup()

    def test_each_bad_configuration_stops_with_a_message_naming_file_and_field(self):
        for description, config, profiles, texts in bad_configs():
            with self.subTest(description):
                gateway = Gateway(config, profiles)
                config_path = os.path.join(gateway.tmp.name, "config.json")
                code, stderr, stdout = self.run_gateway(gateway)
                self.assertNotEqual(code, 0)
                self.assertEqual(stdout, [], "nothing may be listening")
                self.assertIn("configuration error", stderr)
                if "p.json" not in texts:
                    self.assertIn(config_path, stderr)
                for text in texts:
                    self.assertIn(text, stderr)
                self.assertIsNone(sanitizer_report(stderr))

    def test_bad_flags(self):
        for args, text in [(["--bogus"], "unknown argument"),
                           (["--log-level", "9"], "--log-level"),
                           (["--log-level"], "needs a value")]:
            with self.subTest(args):
                code, stderr, _ = self.run_gateway(Gateway(args=args))
                self.assertEqual(code, 2)
                self.assertIn(text, stderr)

    def test_missing_plugin_and_busy_port_fail_to_start(self):
        code, stderr, _ = self.run_gateway(Gateway(args=["--plugin", "/nonexistent/lib.so"]))
        self.assertEqual(code, 1)
        self.assertIn("cannot load the protocol plug-in /nonexistent/lib.so", stderr)
        with socket.socket() as busy:
            busy.bind(("127.0.0.1", 0))
            busy.listen()
            port = busy.getsockname()[1]
            code, stderr, _ = self.run_gateway(
                Gateway(args=["--admin-listen", "127.0.0.1:%d" % port]))
        self.assertEqual(code, 1)
        self.assertIn("cannot listen on 127.0.0.1:%d" % port, stderr)


class FlagsOverrideTest(unittest.TestCase):

    def test_listen_flags_override_the_file(self):
        # The file names a port nobody may bind; the fixture's flags ask for free ports.
        gateway = Gateway(make_config(listen="127.0.0.1:1", adminListen="127.0.0.1:1",
                                      plugin="/nonexistent/lib.so"))
        try:
            gateway.start()
            self.assertNotEqual(gateway.port, 1)
            code, stderr = gateway.stop()
            self.assertEqual(code, 0, stderr[-2000:])
        finally:
            gateway.cleanup()


if __name__ == "__main__":
    unittest.main()
