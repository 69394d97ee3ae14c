#!/usr/bin/python3
"""What ./dev soak does again after an interruption: run in a tree of its own, with scripts in place of the programs."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# Notes that it ran; STOP_AT names the step at which the whole run is killed, FAIL_AT one that fails.
STEP = """#!/bin/bash
step() {
    echo "$1" >>"$TRACE"
    if [ "$1" = "$STOP_AT" ]; then kill -9 -- -"$RUN"; sleep 60; fi
    [ "$1" != "$FAIL_AT" ]
}
"""
UNIT = STEP + """
step "$(basename "$(dirname "$(dirname "$0")")") $(basename "$0")" && echo "[       OK ] Suite.Endurance (1 ms)"
"""
SYSTEM = STEP + """
case "$1" in
    --gtest_list_tests) printf 'Leftovers.\\n  EnduranceOne\\n  EnduranceTwo\\nSkipped.\\n  Endurance\\n' ;;
    --gtest_filter=Skipped*) step "$(basename "$(dirname "$(dirname "$0")")") ${1#*=}" && echo "[  SKIPPED ] it" ;;
    *) step "$(basename "$(dirname "$(dirname "$0")")") ${1#*=}" && echo "[       OK ] it" ;;
esac
"""
CHAOS = STEP + """
case "$*" in
    *--kills*) name=kills ;;
    *"--hang-timeout default"*) name="chaos default" ;;
    *) name=chaos ;;
esac
step "$(basename "$(dirname "$(dirname "$0")")") $name" && echo "Chaos of a minute"
"""
FUZZ = STEP + 'step "fuzz $2"\n'
PACKAGE = STEP + 'step packages && echo "package test: passed, 1 s"\n'
MEMORY = STEP + 'step "memory $2" && echo "recording_memory: host has +0 KB of its own since minute 0"\n'
UNITS = ["unit_module", "unit_queue", "unit_queue_internals", "unit_stream", "unit_web", "process_traffic", "unit_sdk", "unit_mfhost"]


class SoakTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.tree = Path(temporary.name) / "tree"
        shutil.copytree(ROOT / "tools" / "run", self.tree / "tools" / "run")
        shutil.copy(ROOT / "dev", self.tree / "dev")
        self.write("fuzz/run", FUZZ)
        self.write("tools/run/package", PACKAGE)
        self.write("tests/system/recording_memory.py", MEMORY)
        self.write("build/dev/bin/mfhost", "")
        for preset in ("dev", "asan", "tsan"):
            for name in UNITS:
                self.write(f"build/{preset}/bin/{name}", UNIT)
            self.write(f"build/{preset}/bin/system_tests", SYSTEM)
            self.write(f"build/{preset}/bin/chaos", CHAOS)
        for name in ("WorkplaceFile", "DescriptorFile", "DriverMessages", "HostMessages", "CommandLine", "HttpRequests",
                     "Api", "Link"):
            self.write(f"build/fuzz/bin/Fuzz{name}", "")
        # Nothing is installed, configured or built.
        self.stand_ins = Path(temporary.name) / "stand_ins"
        for name in ("cmake", "ccache"):
            self.write(self.stand_ins / name, "#!/bin/sh\nexit 0\n")
        self.write(self.stand_ins / "dpkg-query", "#!/bin/sh\nprintf '%s installed, ' \"$@\"\n")
        self.trace = Path(temporary.name) / "trace"

    def write(self, path, text):
        path = self.tree / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def soak(self, *words, stop_at="", fail_at=""):
        """Exit code, output and the steps that ran."""
        self.trace.write_text("")
        environment = dict(os.environ, PATH=f"{self.stand_ins}:{os.environ['PATH']}", TRACE=str(self.trace), STOP_AT=stop_at,
                           FAIL_AT=fail_at, MFD_CHAOS_MINUTES="1", MFD_JOBS="1", GIT_CEILING_DIRECTORIES=str(self.tree.parent))
        # The number of the process group, which is the shell's own.
        command = ["bash", "-c", 'RUN=$$ exec "$0" "$@"', str(self.tree / "dev"), "soak", *words]
        process = subprocess.Popen(command, env=environment, cwd=self.tree, start_new_session=True, text=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output = process.communicate(timeout=100)[0]
        return process.returncode, output, self.trace.read_text().splitlines()

    def all_steps(self):
        steps = [f"{preset} {name}" for preset in ("dev", "asan", "tsan") for name in UNITS]
        steps += [f"{preset} {test}" for preset in ("dev", "asan", "tsan")
                  for test in ("Leftovers.EnduranceOne", "Leftovers.EnduranceTwo", "Skipped.Endurance")]
        steps += ["fuzz WorkplaceFile", "fuzz DescriptorFile", "fuzz DriverMessages", "fuzz HostMessages", "fuzz CommandLine",
                  "fuzz HttpRequests", "fuzz Stream", "fuzz Api", "fuzz Link"]
        return steps + ["dev kills", "asan chaos", "tsan chaos", "dev chaos default", "dev chaos", "memory 1", "packages"]

    def test_whole_run_runs_every_step_once(self):
        status, output, steps = self.soak("1")
        self.assertEqual((status, steps), (0, self.all_steps()), output)
        self.assertIn("soak: build/dev: system_tests: 2 of 3 tests of whole hosts passed\n", output)
        self.assertIn("soak: memory: recording_memory: host has +0 KB of its own since minute 0\n", output)
        self.assertIn("soak: packages: package test: passed, 1 s\n", output)

    def test_interrupted_run_goes_on_where_it_was(self):
        for stop_at in ("asan Leftovers.EnduranceTwo", "fuzz DriverMessages"):
            with self.subTest(stop_at):
                status, _, before = self.soak("--fresh", "1", stop_at=stop_at)
                self.assertEqual((status, before[-1]), (-signal.SIGKILL, stop_at))
                status, output, after = self.soak("1")
                skipped = [step for step in before if "Skipped" in step]
                self.assertEqual((status, after),
                                 (0, [step for step in self.all_steps() if step not in before[:-1] or step in skipped]), output)
                self.assertIn(f"soak: {len(before) - 1 - len(skipped)} steps are taken over from the run before", output)
                self.assertIn("soak: build/asan: unit_module: 1 endurance tests passed\n", output)
                self.assertIn("soak: build/dev: system_tests: 2 of 3 tests of whole hosts passed\n", output)

    def test_run_after_a_whole_one_begins_anew(self):
        self.soak("1")
        self.assertEqual(self.soak("1")[2], self.all_steps())

    def test_failed_step_alone_is_run_again(self):
        status, output, _ = self.soak("1", fail_at="tsan unit_queue")
        self.assertEqual(status, 1, output)
        status, output, steps = self.soak("1")
        self.assertEqual((status, [step for step in steps if "Skipped" not in step]), (0, ["tsan unit_queue"]), output)

    def test_changed_sources_amounts_and_fresh_begin_anew(self):
        self.soak("1", stop_at="tsan unit_queue")
        self.write("MfDriverManager/A.cpp", "int changed;\n")
        self.assertEqual(self.soak("1", stop_at="tsan unit_queue")[2][0], "dev unit_module")
        self.assertEqual(self.soak("2", stop_at="tsan unit_queue")[2][0], "dev unit_module")
        self.assertEqual(self.soak("2", "--fresh", stop_at="tsan unit_queue")[2][0], "dev unit_module")
        self.assertEqual(self.soak("2", stop_at="tsan unit_queue")[2][0], "tsan unit_queue")

    def test_changed_program_is_run_again(self):
        self.soak("1", stop_at="tsan unit_queue")
        self.write("build/asan/bin/unit_queue", UNIT + "\n")
        self.assertEqual(self.soak("1", stop_at="tsan unit_queue")[2], ["asan unit_queue", "tsan unit_queue"])

    def test_part_alone_is_taken_over_by_the_whole_run(self):
        chaos = ["dev kills", "asan chaos", "tsan chaos", "dev chaos default", "dev chaos"]
        status, output, steps = self.soak("--only", "chaos", "1")
        self.assertEqual((status, steps), (0, chaos), output)
        status, output, steps = self.soak("1")
        self.assertEqual((status, steps), (0, [step for step in self.all_steps() if step not in chaos]), output)
        self.assertIn("soak: 5 steps are taken over from the run before", output)

    def test_failed_part_says_so(self):
        status, output, _ = self.soak("--only", "packages", "1", fail_at="packages")
        self.assertEqual((status, "soak: packages: FAILED" in output), (1, True), output)
        status, output, _ = self.soak("--only", "memory", "1", fail_at="memory 1")
        self.assertEqual((status, "soak: memory FAILED (see above)" in output), (1, True), output)

    def test_part_that_is_none_is_refused(self):
        status, output, steps = self.soak("--only", "module", "1")
        self.assertEqual((status, output, steps),
                         (1, 'soak: "module" is no part; there are units hosts fuzz chaos memory packages\n', []))

    def test_number_that_is_none_is_refused(self):
        status, output, steps = self.soak("many")
        self.assertEqual((status, output, steps), (1, 'soak: "many" is no number of rounds\n', []))


if __name__ == "__main__":
    unittest.main()
