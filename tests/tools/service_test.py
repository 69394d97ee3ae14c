#!/usr/bin/python3
"""The unit of the service: what systemd itself finds wrong with it, and how exposed it calls it."""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
UNIT = ROOT / "packaging" / "systemd" / "mfhost@.service.in"
BUILD = Path()


@unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.unit = Path(self.directory.name) / "mfhost@test.service"
        text = UNIT.read_text().replace("@bindir@", str(BUILD / "bin")).replace("@driverdir@", str(BUILD / "lib/mfdrivers"))
        self.unit.write_text(text)
        shutil.copy(UNIT.parent / "mfhost-memory@.service", self.unit.parent)

    def tearDown(self):
        self.directory.cleanup()

    def analyze(self, *words):
        return subprocess.run(["systemd-analyze", *words, str(self.unit)], capture_output=True, text=True, check=False)

    def test_systemd_finds_nothing_wrong(self):
        done = self.analyze("verify", "--man=no")
        # Of other units on this machine it may have something to say.
        about = [line for line in (done.stdout + done.stderr).splitlines() if "mfhost@" in line]
        self.assertEqual((about, done.returncode), ([], 0), done.stderr)

    def test_systemd_would_find_something_wrong(self):
        self.unit.write_text(self.unit.read_text().replace("WatchdogSec=30", "WatchdogSec=often"))
        done = self.analyze("verify", "--man=no")
        self.assertIn("Failed to parse sec value, ignoring: often", done.stdout + done.stderr)

    def test_exposure_is_two_or_less(self):
        done = self.analyze("security", "--offline=true", "--no-pager")
        found = re.search(r"Overall exposure level for mfhost@test.service: ([\d.]+)", done.stdout)
        self.assertIsNotNone(found, done.stdout + done.stderr)
        self.assertLessEqual(float(found[1]), 2.0, done.stdout)

    def test_options_are_those_of_the_host(self):
        options = set(re.findall(r" (--[a-z-]+)", re.search(r"^ExecStart=.*$", UNIT.read_text(), re.M)[0]))
        known = subprocess.run([BUILD / "bin" / "mfhost", "--help"], capture_output=True, text=True, check=True).stdout
        self.assertGreater(len(options), 5)
        for option in options:
            self.assertRegex(known, rf"(?m)^ +{option}\b")


if __name__ == "__main__":
    BUILD = Path(sys.argv.pop(1)).resolve()
    unittest.main()
