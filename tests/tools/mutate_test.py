#!/usr/bin/env python3
"""Which changes a run of planted mistakes takes, and what it takes over from the run before."""

import argparse
import contextlib
import importlib.util
import io
import subprocess
import sys
import tempfile
import unittest
from importlib.machinery import SourceFileLoader
from pathlib import Path

sys.dont_write_bytecode = True
TOOLS = Path(__file__).resolve().parents[2] / "tools" / "run"
sys.path.insert(0, str(TOOLS))


def load_mutate():
    loader = SourceFileLoader("mutate", str(TOOLS / "mutate"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", loader))
    loader.exec_module(module)
    return module


def listed(*words):
    done = subprocess.run([TOOLS / "mutate", "--list", *words], capture_output=True, text=True, check=True)
    return done.stdout.splitlines()


class SampleTest(unittest.TestCase):
    def test_same_seed_chooses_the_same_changes(self):
        self.assertEqual(listed("--sample", "20", "--seed", "7"), listed("--sample", "20", "--seed", "7"))

    def test_another_seed_chooses_others(self):
        self.assertNotEqual(listed("--sample", "20", "--seed", "7"), listed("--sample", "20", "--seed", "8"))

    def test_sample_is_so_many_of_all_changes(self):
        sample = listed("--sample", "20", "--seed", "7")
        self.assertEqual(len(sample), 20)
        self.assertLessEqual(set(sample), set(listed()))

    def test_sample_of_more_than_there_are_takes_all(self):
        self.assertEqual(listed("--file", "MDMModuleInfo.cpp", "--sample", "100000"), listed("--file", "MDMModuleInfo.cpp"))

    def test_seed_that_was_not_given_is_said(self):
        done = subprocess.run([TOOLS / "mutate", "--list", "--sample", "5"], capture_output=True, text=True, check=True)
        seed = done.stderr.split()[-1]
        self.assertRegex(done.stderr, r"^mutate: 5 of \d+ changes, chosen by --seed \d+\n$")
        self.assertEqual(done.stdout.splitlines(), listed("--sample", "5", "--seed", seed))

    def test_seed_without_a_sample_is_refused(self):
        done = subprocess.run([TOOLS / "mutate", "--list", "--seed", "5"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn("argument --seed: it chooses for --sample N, which is missing", done.stderr)


class Interrupted(Exception):
    pass


class TakenOverTest(unittest.TestCase):
    """Without a compiler: what a run examines is noted, and its results are given."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.mutate = load_mutate()
        self.mutate.PLAIN = Path(temporary.name)
        self.mutate.RESULTS = self.mutate.PLAIN / "results"
        self.mutate.WORK = self.mutate.PLAIN / "work"
        self.mutate.Tree = lambda path: None
        self.mutate.commit = lambda: self.commit
        self.commit = "a"
        self.program = "1"
        self.mutate.fingerprint = lambda paths: self.program
        self.examined = []

    def run_it(self, result="its unit tests", keep=None, known=(), **options):
        """The keys of what is examined; after so many results the run is interrupted."""
        test = self

        class Sut(self.mutate.Runner):
            def measure(self, planned):
                pass

            def examine(self, worker, mutation):
                test.examined.append(mutation.key)
                return result

            def keep_result(self, mutation, result):
                if keep is not None and len(test.kept) == keep:
                    raise Interrupted
                super().keep_result(mutation, result)
                test.kept.append(mutation.key)

        self.examined, self.kept, self.said = [], [], io.StringIO()
        words = dict(file=None, again=False, sample=10, seed=1, fresh=False, quick=False, jobs=1) | options
        sut = Sut(argparse.Namespace(**words))
        sut.known = set(known)
        with contextlib.redirect_stderr(self.said), contextlib.redirect_stdout(io.StringIO()):
            sut.plan()
            sut.report(sut.work())
        return list(self.examined)

    def interrupt(self, keep, **options):
        with self.assertRaises(Interrupted):
            self.run_it(keep=keep, **options)
        return list(self.kept)

    def test_interrupted_run_goes_on_where_it_was(self):
        kept = self.interrupt(4)
        self.assertEqual(len(kept), 4)
        examined = self.run_it()
        self.assertEqual(len(examined), 6)
        self.assertFalse(set(kept) & set(examined))
        self.assertIn("mutate: 4 of 10 changes, in ", self.said.getvalue())
        self.assertEqual(self.run_it(), [])

    def test_larger_run_takes_over_what_a_smaller_one_has_found(self):
        self.run_it(sample=10)
        self.assertEqual(len(self.run_it(file=["MDMModuleInfo.cpp"], sample=None)),
                         len(listed("--file", "MDMModuleInfo.cpp")) - self.of_file("MDMModuleInfo.cpp"))  # fmt: skip

    def of_file(self, name):
        return sum(f"/{name}:" in line for line in listed("--sample", "10", "--seed", "1"))

    def test_another_commit_begins_anew(self):
        self.run_it()
        self.commit = "b"
        self.assertEqual(len(self.run_it()), 10)
        self.assertIn("mutate: begins anew: another commit than in the run before", self.said.getvalue())

    def test_another_program_begins_anew(self):
        self.run_it()
        self.program = "2"
        self.assertEqual(len(self.run_it()), 10)

    def test_fresh_begins_anew(self):
        self.run_it()
        self.assertEqual(len(self.run_it(fresh=True)), 10)

    def test_survivor_of_a_quick_run_is_examined_by_a_whole_one(self):
        self.run_it(result="", quick=True)
        self.assertEqual(self.run_it(result="", quick=True), [])
        self.assertEqual(len(self.run_it(result="")), 10)
        self.assertEqual(self.run_it(result=""), [])

    def test_what_a_quick_run_has_seen_noticed_is_taken_over_by_a_whole_one(self):
        self.run_it(quick=True)
        self.assertEqual(self.run_it(), [])

    def test_survivor_whose_reason_was_taken_back_is_examined_again(self):
        keys = self.run_it(result="")
        self.run_it(result="", fresh=True, known=keys)
        self.assertEqual(self.run_it(result="", known=keys), [])
        self.assertEqual(len(self.run_it(result="", known=keys[1:])), 1)

    def test_again_examines_the_survivors_though_they_are_kept(self):
        survivors = self.run_it(result="")
        self.assertEqual(sorted(self.run_it(again=True, sample=None)), sorted(survivors))


if __name__ == "__main__":
    unittest.main()
