#!/usr/bin/python3
"""What an author of a driver does first: "mfctl new-driver" with an installed kit alone. That the project builds, its own
test passes in both modes, and a host runs the driver in both."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD = Path()


def run(*words, **options):
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **options)


class DriverKitTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = Path(tempfile.mkdtemp(prefix="mfd-driverkit-"))
        cls.prefix = cls.directory / "prefix"
        cls.project = cls.directory / "lamp"
        done = run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        assert done.returncode == 0, done.stderr
        # Without a host, in a directory where there is none.
        done = run(cls.prefix / "bin/mfctl", "new-driver", "lamp", cwd=cls.directory)
        assert done.returncode == 0, done.stderr
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        done = run("cmake", "-S", cls.project, "-B", cls.project / "build", f"-DCMAKE_PREFIX_PATH={cls.prefix}",
                   "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Wshadow", *launcher)
        assert done.returncode == 0, done.stderr
        environment = {**os.environ, "CCACHE_BASEDIR": str(cls.directory), "CCACHE_NOHASHDIR": "1"}
        done = run("cmake", "--build", cls.project / "build", env=environment)
        assert done.returncode == 0, done.stdout + done.stderr
        cls.warnings = [line for line in (done.stdout + done.stderr).splitlines() if "warning:" in line]

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.directory)

    def test_compiler_has_nothing_to_say(self):
        self.assertEqual(self.warnings, [])

    def test_debugger_finds_its_symbols(self):
        # The module has those of the kit in any case.
        built = self.project / "build/CMakeFiles/lamp.dir/LampDriver.cpp.o"
        self.assertIn(" .debug_info ", run("readelf", "-SW", built).stdout)

    def test_its_own_test_passes_in_both_modes(self):
        done = run(self.project / "build/lamp_test")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("[  PASSED  ] 10 tests.", done.stdout)
        self.assertIn("Modes/LampDriver.SetsItsLevel/InProcess", done.stdout)
        self.assertIn("Modes/LampDriver.SetsItsLevel/OwnProcess", done.stdout)

    def test_its_tests_are_listed_by_their_names(self):
        done = run("ctest", "--test-dir", self.project / "build", "-N")
        self.assertIn("Modes/LampDriver.SetsItsLevel/OwnProcess\n", done.stdout)

    def test_host_runs_it_in_both_modes(self):
        work = self.directory / "work"
        work.mkdir()
        lines = "sendFID LAMP1.SET level=40\nsendFID LAMP2.SET level=140\nstate LAMP?.LEVEL\nquit\n"
        done = run(self.prefix / "bin/mfhost", "--drivers", self.prefix / "lib/mfdrivers",
                   "--drivers", self.project / "build", "--config", self.project / "workplace.xml",
                   "--workdir", work, "--sandbox", "--no-control", input=lines, timeout=300)
        if "--sandbox is not possible here" in done.stderr:
            self.skipTest(done.stderr.strip())
        rows = [line.split() for line in done.stdout.splitlines() if line.startswith("LAMP")]
        self.assertEqual([row[:3] for row in rows], [["LAMP1.LEVEL", "int", "40"], ["LAMP2.LEVEL", "int", "0"]],
                         done.stdout + done.stderr)
        self.assertIn('LAMP2: SET ignored, level="140" is not a whole number from 0 to 100\n', done.stderr)
        self.assertIn("Deinitializing MF driver ID: LAMP1...OK\n", done.stdout)
        self.assertIn("Deinitializing MF driver ID: LAMP2...OK\n", done.stdout)
        self.assertNotIn("stays mapped", done.stderr)

    def test_second_time_replaces_nothing(self):
        done = run(self.prefix / "bin/mfctl", "new-driver", "lamp", cwd=self.directory)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr, "mfctl: lamp/CMakeLists.txt is there already; nothing was written\n")


if __name__ == "__main__":
    BUILD = Path(sys.argv.pop(1)).resolve()
    unittest.main()
