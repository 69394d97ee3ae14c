#!/usr/bin/python3
"""Which changes a run of planted mistakes takes, what it takes over from the run before, and what it finds in a
tiny folder."""

import argparse
import contextlib
import importlib.util
import io
import os
import subprocess
import sys
import tempfile
import textwrap
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


class FolderTest(unittest.TestCase):
    def test_without_a_folder_it_is_the_module(self):
        self.assertTrue(all(line.startswith("MfDriverManager/") for line in listed("--sample", "50", "--seed", "1")))

    def test_folder_is_listed_with_its_inner_folders_and_nothing_beside(self):
        files = {line.split(":")[0] for line in listed("--folder", "mfctl")}
        self.assertIn("mfctl/main.cpp", files)
        self.assertTrue(all(file.startswith("mfctl/") for file in files))

    def test_several_folders_are_listed_together(self):
        files = {line.split("/")[0] for line in listed("--folder", "protocol", "--folder", "mfctl")}
        self.assertEqual(files, {"protocol", "mfctl"})

    def test_file_is_one_of_the_folder(self):
        files = {line.split(":")[0] for line in listed("--folder", "mfctl", "--folder", "mfddllwrap", "--file", "mfctl/main.cpp")}
        self.assertEqual(files, {"mfctl/main.cpp"})

    def test_folder_that_is_not_there_is_refused(self):
        self.assertIn("argument --folder: there is no folder nowhere", self.refusal("nowhere"))

    def test_folder_that_no_test_program_looks_at_is_refused(self):
        self.assertIn("argument --folder: no test program is known that looks at docs; there are MfDriverManager, ",
                      self.refusal("docs"))  # fmt: skip

    def test_each_folder_of_sources_can_be_read(self):
        folders = load_mutate().FOLDERS
        for folder in folders:
            with self.subTest(folder=folder):
                self.assertTrue(listed("--folder", folder))

    def test_inner_folder_has_the_tests_that_are_named_for_it(self):
        mutate = load_mutate()
        self.assertIs(mutate.folder_of("hostlinux/queue/QueueFile.cpp"), mutate.FOLDERS["hostlinux/queue"])
        self.assertIs(mutate.folder_of("hostlinux/log/LogCore.cpp"), mutate.FOLDERS["hostlinux"])
        self.assertIsNone(mutate.folder_of("docs/testing.md"))

    def refusal(self, folder):
        done = subprocess.run([TOOLS / "mutate", "--folder", folder], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        return done.stderr


TINY = {
    "CMakeLists.txt": """
        cmake_minimum_required(VERSION 3.25)
        project(Tiny CXX)
        set(CMAKE_CXX_STANDARD 20)
        set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
        set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
        set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
        set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
        set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
        find_package(GTest REQUIRED)
        add_library(halves STATIC tiny/inner/Half.cpp)
        add_library(tiny SHARED tiny/Tiny.cpp)
        target_link_libraries(tiny PRIVATE halves)
        add_executable(answer tiny/main.cpp)
        target_link_libraries(answer PRIVATE tiny)
        add_executable(unit_tiny TinyTest.cpp)
        target_link_libraries(unit_tiny PRIVATE tiny GTest::gtest_main)
        add_executable(process_tiny AnswerTest.cpp)
        target_compile_definitions(process_tiny PRIVATE ANSWER="$<TARGET_FILE:answer>")
        target_link_libraries(process_tiny PRIVATE halves GTest::gtest_main)
        add_dependencies(process_tiny answer)
        """,
    "tiny/Tiny.cpp": """
        #include "inner/Half.h"
        int twice(int number) {
            return number + number;
        }
        int quarter(int number) {
            return half(half(number));
        }
        int nobodyAsks() {
            return 7;
        }
        """,
    "tiny/inner/Half.h": "int half(int number);",
    "tiny/inner/Half.cpp": """
        #include "Half.h"
        int half(int number) {
            return number / 2;
        }
        int nobodyHalves() {
            return 9;
        }
        """,
    "tiny/main.cpp": """
        #include <cstdio>
        int twice(int number);
        int main() {
            const int answer = twice(21);
            std::printf("answer %d", answer);
        }
        """,
    "TinyTest.cpp": """
        #include <gtest/gtest.h>
        int twice(int number);
        int quarter(int number);
        TEST(TinyTest, Twice) { EXPECT_EQ(twice(2), 4); }
        TEST(QuarterTest, Quarter) { EXPECT_EQ(quarter(12), 3); }
        """,
    "AnswerTest.cpp": """
        #include <gtest/gtest.h>
        #include <sched.h>
        #include <cstdio>
        #include <filesystem>
        TEST(AnswerTest, SaysTheAnswer) {
            FILE* pAnswer = popen(ANSWER, "r");
            char text[20] = {};
            fgets(text, sizeof text, pAnswer);
            pclose(pAnswer);
            EXPECT_STREQ(text, "answer 42");
        }
        TEST(OwnNamespaceTest, FindsItself) {
            unshare(CLONE_NEWNS);
            EXPECT_EQ(std::filesystem::path(ANSWER).parent_path() / "process_tiny",
                      std::filesystem::read_symlink("/proc/self/exe"));
        }
        """,
}


class TinyFolderTest(unittest.TestCase):
    """With a compiler: a library, a program that uses it, and tests of both."""

    @classmethod
    def setUpClass(cls):
        unshare = ["unshare", "--mount", *([] if os.geteuid() == 0 else ["--map-root-user"]), "true"]
        if subprocess.run(unshare, capture_output=True, check=False).returncode != 0:
            raise unittest.SkipTest("needs mount namespaces")
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.root = Path(temporary.name).resolve()
        for name, text in TINY.items():
            (cls.root / name).parent.mkdir(parents=True, exist_ok=True)
            (cls.root / name).write_text(textwrap.dedent(text).lstrip("\n"))
        for words in (["-S", cls.root, "-B", cls.root / "build", "-G", "Ninja"], ["--build", cls.root / "build"]):
            subprocess.run(["cmake", *map(str, words)], capture_output=True, check=True)
        cls.mutate = mutate = load_mutate()
        mutate.ROOT, mutate.PLAIN, mutate.WORK = cls.root, cls.root / "build", cls.root / "build" / "work"
        mutate.RESULTS, mutate.KNOWN = cls.root / "results", cls.root / "known"
        mutate.FOLDERS = {
            "tiny": mutate.Folder(whole=("unit_tiny",), real={"process_tiny": "*"}, main="Answer*")
        }
        mutate.commit = lambda: "a"

    def results(self, **options):
        """What became of the changes: file and change -> result; and the exit code."""
        words = dict(folder=["tiny"], file=None, again=False, sample=None, seed=None, fresh=True, quick=False, jobs=2)
        runner = self.mutate.Runner(argparse.Namespace(**words | options))
        with contextlib.redirect_stderr(io.StringIO()), contextlib.redirect_stdout(io.StringIO()):
            runner.plan()
            results = runner.work()
            self.status = runner.report(results)
        return {f"{m.file} {m.name}": result for m, result in results.items()}

    def contents(self):
        files = [path for path in self.root.rglob("*") if path.is_file() and path.suffix not in (".jsonl", ".json")]
        return {str(path): path.read_bytes() for path in files if not path.name.startswith(("survivors.", "mutate.log"))}

    def test_each_change_is_noticed_by_what_looks_at_it(self):
        results = self.results()
        self.assertEqual(results["tiny/Tiny.cpp + -> - in return number + number;"], "its unit tests")
        self.assertEqual(results["tiny/inner/Half.cpp 2 -> 3 in return number / 2;"], "other unit tests")
        self.assertEqual(results["tiny/main.cpp 21 -> 22 in const int answer = twice(21);"], "tests of the real host")
        self.assertEqual(results["tiny/Tiny.cpp 7 -> 8 in return 7;"], "")
        self.assertEqual(results["tiny/inner/Half.cpp 9 -> 8 in return 9;"], "")
        self.assertEqual(self.status, 1)

    def test_quick_run_leaves_the_real_programs_out(self):
        results = self.results(quick=True, file=["main.cpp"])
        self.assertEqual(results["tiny/main.cpp 21 -> 22 in const int answer = twice(21);"], "")

    def test_known_survivor_is_no_gap(self):
        survivors = [name for name, result in self.results(file=["Tiny.cpp"]).items() if not result]
        keys = [name.replace(" ", " nobodyAsks: ", 1) for name in survivors]
        self.mutate.KNOWN.write_text("\n".join(keys) + "\n")
        self.addCleanup(self.mutate.KNOWN.unlink)
        self.results(file=["Tiny.cpp"])
        self.assertEqual(self.status, 0)

    def test_nothing_is_changed_in_the_tree(self):
        before = self.contents()
        self.results()
        self.assertEqual(self.contents(), before)


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
        self.mutate.Tree = lambda path, programs: None
        self.mutate.commit = lambda: self.commit
        self.commit = "a"
        self.program = "1"
        self.mutate.fingerprint = lambda paths: self.program
        self.examined = []

    def run_it(self, result="its unit tests", keep=None, known=(), **options):
        """The keys of what is examined; after so many results the run is interrupted."""
        test = self

        class Sut(self.mutate.Runner):
            def precompile(self, left):
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
        words = dict(folder=["MfDriverManager"], file=None, again=False, sample=10, seed=1, fresh=False, quick=False, jobs=1) | options
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
