#!/usr/bin/python3
"""What ./dev gdb starts, in a tree of its own: with ctest as it is, and a script in place of gdb."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# Tells how it was started.
GDB = """#!/usr/bin/python3
import json, os, sys
print(json.dumps({"words": sys.argv[1:], "directory": os.getcwd(), "rounds": os.environ.get("MFD_ROUNDS"),
                  "text": os.environ.get("TEXT")}))
"""
DEV = """
add_test([=[queue.Ring.Wraps]=] "@PROGRAM@" "--gtest_filter=Ring.Wraps")
set_tests_properties([=[queue.Ring.Wraps]=] PROPERTIES WORKING_DIRECTORY "@DIRECTORY@"
    ENVIRONMENT "MFD_ROUNDS=7;TEXT=a=b c" LABELS queue)
add_test([=[queue.Ring.WrapsTwice]=] "@PROGRAM@" "--gtest_filter=Ring.WrapsTwice")
add_test([=[queue.Ring.Wraps+]=] "@PROGRAM@" "--gtest_filter=Ring.Wraps+")
"""
TSAN = """
add_test([=[tsan.queue]=] "/usr/bin/setarch" "-R" "@PROGRAM@" "word")
"""


class GdbTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.tree = Path(temporary.name).resolve() / "tree"
        shutil.copytree(ROOT / "tools" / "run", self.tree / "tools" / "run")
        shutil.copy(ROOT / "dev", self.tree / "dev")
        self.directory = self.tree / "where it runs"
        self.directory.mkdir()
        self.program = self.tree / "unit_queue"
        self.write("unit_queue", "")
        for preset, text in (("dev", DEV), ("tsan", TSAN)):
            text = text.replace("@PROGRAM@", str(self.program)).replace("@DIRECTORY@", str(self.directory))
            self.write(f"build/{preset}/CTestTestfile.cmake", text)
        # Nothing is installed, configured or built.
        self.stand_ins = self.tree / "stand_ins"
        self.built = self.tree / "built"
        self.write("stand_ins/cmake", f'#!/bin/sh\necho "$*" >>{self.built}\n')
        self.write("stand_ins/ccache", "#!/bin/sh\nexit 0\n")
        self.write("stand_ins/dpkg-query", "#!/bin/sh\nprintf '%s installed, ' \"$@\"\n")
        self.write("stand_ins/gdb", GDB)

    def write(self, path, text):
        path = self.tree / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def call(self, *words):
        environment = dict(os.environ, PATH=f"{self.stand_ins}:{os.environ['PATH']}", MFD_JOBS="1")
        environment.pop("MFD_ROUNDS", None)
        return subprocess.run([self.tree / "dev", "gdb", *words], env=environment, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, timeout=100, check=False)  # fmt: skip

    def started(self, *words):
        done = self.call(*words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return json.loads(done.stdout.splitlines()[-1])

    def test_program_is_started_as_ctest_would(self):
        self.assertEqual(self.started("queue.Ring.Wraps"),
                         {"words": ["--args", str(self.program), "--gtest_filter=Ring.Wraps"],
                          "directory": str(self.directory), "rounds": "7", "text": "a=b c"})  # fmt: skip

    def test_name_is_no_pattern(self):
        self.assertEqual(self.started("queue.Ring.Wraps+")["words"][-1], "--gtest_filter=Ring.Wraps+")

    def test_further_words_are_options_of_gdb(self):
        self.assertEqual(self.started("queue.Ring.WrapsTwice", "-batch", "-ex", "run")["words"],
                         ["-batch", "-ex", "run", "--args", str(self.program), "--gtest_filter=Ring.WrapsTwice"])

    def test_sanitized_test_is_that_of_its_own_tree_without_setarch(self):
        self.assertEqual(self.started("tsan.queue")["words"], ["--args", str(self.program), "word"])
        self.assertIn("--build --preset tsan ", self.built.read_text())

    def test_tree_is_built_before(self):
        self.started("queue.Ring.Wraps")
        self.assertEqual([line for line in self.built.read_text().splitlines() if line.startswith("--build")],
                         ["--build --preset dev -j 1"])

    def test_unknown_name_is_refused_with_those_that_contain_it(self):
        done = self.call("ring.wraps")
        self.assertEqual((done.returncode, done.stderr), (1, 'gdb: there is no test "ring.wraps"; there are\n'
                         "  queue.Ring.Wraps\n  queue.Ring.Wraps+\n  queue.Ring.WrapsTwice\n"))  # fmt: skip
        done = self.call("nothing like it")
        self.assertEqual((done.returncode, done.stderr), (1, 'gdb: there is no test "nothing like it"; ctest -N lists them\n'))

    def test_missing_name_is_refused_before_anything_is_built(self):
        done = self.call()
        self.assertEqual((done.returncode, done.stderr), (1, "gdb: which test? usage: ./dev gdb TEST [GDB OPTION...]\n"))
        self.assertFalse(self.built.exists())


class PresetsTest(unittest.TestCase):
    def test_ctest_knows_the_trees_that_have_tests(self):
        done = subprocess.run(["ctest", "--list-presets"], cwd=ROOT, capture_output=True, text=True, check=True)
        self.assertEqual([line.split('"')[1] for line in done.stdout.splitlines() if '"' in line], ["dev", "asan", "tsan"])


if __name__ == "__main__":
    unittest.main()
