"""The Debian package: built with cpack from this build folder, unpacked with dpkg-deb -x, its
binary serves an authenticated request with the packaged configuration, and its systemd unit
passes systemd-analyze."""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from gateway_fixture import DEVICE_INFO, Gateway, sanitizer_report

BUILD_DIR = os.environ.get("KORVA_BUILD_DIR", "")
CPACK = os.environ.get("KORVA_CPACK", "cpack")
UNIT = "usr/lib/systemd/system/korva-gateway.service"


def run(*command, **kwargs):
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **kwargs)


class PackageTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        if not BUILD_DIR:
            raise unittest.SkipTest("KORVA_BUILD_DIR is not set")
        cls.tmp = tempfile.TemporaryDirectory(prefix="korva-package-")
        out = os.path.join(cls.tmp.name, "out")
        built = run(CPACK, "-G", "DEB", "-B", out, cwd=BUILD_DIR)
        assert built.returncode == 0, built.stdout + built.stderr
        debs = glob.glob(os.path.join(out, "*.deb"))
        assert len(debs) == 1, debs
        cls.deb = debs[0]
        cls.root = os.path.join(cls.tmp.name, "root")
        unpacked = run("dpkg-deb", "-x", cls.deb, cls.root)
        assert unpacked.returncode == 0, unpacked.stderr
        cls.binary = os.path.join(cls.root, "usr/bin/korva-gateway")
        cls.config = os.path.join(cls.root, "etc/korva-gateway/gateway.json")

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def test_control_names_version_dependencies_and_conffiles(self):
        info = run("dpkg-deb", "-I", self.deb).stdout
        version = re.search(r"^ Version: (\S+)$", info, re.M).group(1)
        self.assertEqual(os.path.basename(self.deb), "korva-gateway_%s_amd64.deb" % version)
        depends = re.search(r"^ Depends: (.*)$", info, re.M).group(1)
        for library in ("libc6", "libstdc++6", "libssl3", "libjsoncpp25", "libpugixml1v5"):
            self.assertIn(library, depends)
        conffiles = run("dpkg-deb", "-e", self.deb, os.path.join(self.tmp.name, "control"))
        self.assertEqual(conffiles.returncode, 0, conffiles.stderr)
        with open(os.path.join(self.tmp.name, "control", "conffiles")) as f:
            self.assertIn("/etc/korva-gateway/gateway.json", f.read().split())
        shown = run(self.binary, "--version")
        self.assertEqual(shown.stdout.splitlines()[0], "korva-gateway " + version)
        # The unpacked binary finds the unpacked plug-in through the install layout.
        self.assertIn("plug-in: " + os.path.join(self.root, "usr/lib/korva-gateway/"),
                      shown.stdout)
        for page in ("usr/share/man/man1/korva-gateway.1.gz",
                     "usr/share/korva-gateway/examples/gateway.json"):
            self.assertTrue(os.path.isfile(os.path.join(self.root, page)), page)

    def test_packaged_configuration_serves_an_authenticated_request(self):
        checked = run(self.binary, "--check-config", self.config)
        self.assertEqual(checked.returncode, 0, checked.stderr)
        gateway = Gateway(use_config=False)
        gateway.command = [self.binary, "--config", self.config,
                           "--listen", "127.0.0.1:0", "--admin-listen", "127.0.0.1:0"]
        try:
            gateway.start()
            self.assertEqual(gateway.get(DEVICE_INFO).status_code, 200)
            code, stderr = gateway.stop()
            self.assertEqual(code, 0, stderr[-2000:])
            self.assertIsNone(sanitizer_report(stderr))
        finally:
            gateway.cleanup()

    def test_unit_passes_systemd_analyze(self):
        if not shutil.which("systemd-analyze"):
            self.skipTest("systemd-analyze is not installed")
        # Verified with the unpacked binary in its commands, since nothing is installed.
        with open(os.path.join(self.root, UNIT)) as f:
            unit = f.read().replace("/usr/bin/korva-gateway", self.binary)
        for line in ("DynamicUser=yes", "ProtectSystem=strict", "NoNewPrivileges=yes",
                     "CapabilityBoundingSet=\n", "Restart=on-failure"):
            self.assertIn(line, unit)
        path = os.path.join(self.tmp.name, "korva-gateway.service")
        with open(path, "w") as f:
            f.write(unit)
        verified = run("systemd-analyze", "verify", "--man=no", path)
        self.assertEqual((verified.returncode, verified.stdout + verified.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
