#!/usr/bin/python3
"""What a long run keeps of its results, and when it throws them away."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
TOOLS = Path(__file__).resolve().parents[2] / "tools" / "run"
sys.path.insert(0, str(TOOLS))

from kept import Kept, fingerprint  # noqa: E402


class WithDirectory(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = Path(temporary.name)
        self.path = self.root / "kept"


class KeptTest(WithDirectory):
    def test_results_are_taken_over_by_a_run_of_the_same_state(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="noticed")
        self.assertEqual(Kept(self.path, {"commit": "a"}).get("A.cpp", "first"), {"result": "noticed"})

    def test_there_is_nothing_of_another_group_or_name(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="noticed")
        sut = Kept(self.path, {"commit": "a"})
        self.assertIsNone(sut.get("A.cpp", "second"))
        self.assertIsNone(sut.get("B.cpp", "first"))

    def test_each_group_is_a_file_of_its_own(self):
        sut = Kept(self.path, {"commit": "a"})
        sut.put("A.cpp", "first", result="1")
        sut.put("B.cpp", "first", result="2")
        self.assertEqual(sorted(p.name for p in self.path.glob("*.jsonl")), ["A.cpp.jsonl", "B.cpp.jsonl"])

    def test_another_commit_begins_anew_and_says_so(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="noticed")
        sut = Kept(self.path, {"commit": "b"})
        self.assertEqual(sut.anew, "another commit than in the run before")
        self.assertIsNone(sut.get("A.cpp", "first"))
        self.assertIsNone(Kept(self.path, {"commit": "b"}).get("A.cpp", "first"))

    def test_another_program_begins_anew(self):
        Kept(self.path, {"commit": "a", "program": "1"}).put("A.cpp", "first", result="noticed")
        self.assertIsNone(Kept(self.path, {"commit": "a", "program": "2"}).get("A.cpp", "first"))

    def test_what_one_run_did_not_look_at_still_counts_in_the_next(self):
        Kept(self.path, {"commit": "a", "asan": "1"}).put("A.cpp", "first", result="noticed")
        self.assertIsNotNone(Kept(self.path, {"commit": "a"}).get("A.cpp", "first"))
        self.assertIsNone(Kept(self.path, {"commit": "a", "asan": "2"}).get("A.cpp", "first"))

    def test_fresh_begins_anew(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="noticed")
        self.assertIsNone(Kept(self.path, {"commit": "a"}, fresh=True).get("A.cpp", "first"))

    def test_first_run_throws_nothing_away(self):
        self.assertEqual(Kept(self.path, {"commit": "a"}, fresh=True).anew, "")

    def test_later_result_of_a_name_counts(self):
        sut = Kept(self.path, {"commit": "a"})
        sut.put("A.cpp", "first", result="1")
        sut.put("A.cpp", "first", result="2")
        self.assertEqual(Kept(self.path, {"commit": "a"}).get("A.cpp", "first"), {"result": "2"})

    def test_torn_line_costs_that_result_alone(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="1")
        with open(self.path / "A.cpp.jsonl", "a", encoding="utf-8") as file:
            file.write('{"name": "torn", "resu')
        sut = Kept(self.path, {"commit": "a"})
        self.assertIsNone(sut.get("A.cpp", "torn"))
        sut.put("A.cpp", "third", result="3")
        again = Kept(self.path, {"commit": "a"})
        self.assertEqual([again.get("A.cpp", name) for name in ("first", "third")], [{"result": "1"}, {"result": "3"}])

    def test_results_without_their_state_are_not_taken_over(self):
        Kept(self.path, {"commit": "a"}).put("A.cpp", "first", result="1")
        (self.path / "state.json").write_text("{")
        self.assertIsNone(Kept(self.path, {"commit": "a"}).get("A.cpp", "first"))

    def test_fingerprint_tells_contents_names_and_missing_files_apart(self):
        one, two = self.root / "one", self.root / "two"
        one.write_text("a")
        texts = {fingerprint([one]), fingerprint([two]), fingerprint([one, two])}
        two.write_text("a")
        texts |= {fingerprint([two]), fingerprint([one, two])}
        one.write_text("b")
        texts |= {fingerprint([one])}
        self.assertEqual(len(texts), 6)
        self.assertEqual(fingerprint([one, two]), fingerprint([two, one]))


class StepsTest(WithDirectory):
    def setUp(self):
        super().setUp()
        self.program = self.root / "program"
        self.program.write_text("1")
        self.trace = self.root / "trace"

    def call(self, *words):
        return subprocess.run([TOOLS / "kept.py", self.path, *words], capture_output=True, text=True, check=False)

    def run_step(self, name, status=0):
        return self.call("run", name, str(self.program), "sh", "-c", f"echo {name} >>{self.trace}; exit {status}")

    def traced(self):
        return self.trace.read_text().split() if self.trace.exists() else []

    def test_step_that_has_passed_is_not_run_again(self):
        self.call("begin", "rounds=5")
        self.assertEqual(self.run_step("first").returncode, 0)
        self.assertEqual(self.call("begin", "rounds=5").stdout,
                         "1 steps are taken over from the run before (--fresh begins anew): first\n")
        done = self.run_step("first")
        self.assertEqual((done.returncode, done.stdout), (0, "first: taken over from the run before\n"))
        self.assertEqual(self.traced(), ["first"])

    def test_step_that_has_failed_is_run_again(self):
        self.call("begin", "rounds=5")
        self.assertEqual(self.run_step("first", 3).returncode, 3)
        self.assertEqual(self.call("begin", "rounds=5").stdout, "")
        self.assertEqual(self.run_step("first").returncode, 0)
        self.assertEqual(self.traced(), ["first", "first"])

    def test_step_of_another_program_is_run_again(self):
        self.call("begin", "rounds=5")
        self.run_step("first")
        self.program.write_text("2")
        self.run_step("first")
        self.assertEqual(self.traced(), ["first", "first"])

    def test_step_that_was_noted_is_there(self):
        self.call("begin", "rounds=5")
        self.assertEqual(self.call("has", "first", str(self.program)).returncode, 1)
        self.call("add", "first", str(self.program))
        self.assertEqual(self.call("has", "first", str(self.program)).returncode, 0)

    def test_another_amount_and_fresh_begin_anew(self):
        self.call("begin", "rounds=5")
        self.run_step("first")
        self.assertEqual(self.call("begin", "rounds=6").stdout, "begins anew: another rounds than in the run before\n")
        self.run_step("first")
        self.assertEqual(self.call("begin", "--fresh", "rounds=6").stdout, "begins anew: --fresh\n")
        self.run_step("first")
        self.assertEqual(self.traced(), ["first", "first", "first"])

    def test_steps_side_by_side_are_all_noted(self):
        self.call("begin", "rounds=5")
        names = [f"step{number}" for number in range(20)]
        running = [subprocess.Popen([TOOLS / "kept.py", self.path, "run", name, str(self.program), "true"])
                   for name in names]  # fmt: skip
        self.assertEqual([process.wait() for process in running], [0] * len(names))
        self.assertTrue(self.call("begin", "rounds=5").stdout.startswith("20 steps are taken over"))


if __name__ == "__main__":
    unittest.main()
