#!/usr/bin/python3
"""Which of a build tree's tests ./dev test runs: all of them, each by itself or with its program."""

import json
import subprocess
import sys
import unittest
from pathlib import Path

BUILD = Path(sys.argv.pop()) if len(sys.argv) > 1 else Path("build/dev")


def labels_of(test):
    """The words of its labels: "module/whole" are two."""
    found = [each["value"] for each in test.get("properties", []) if each["name"] == "LABELS"]
    return {word for labels in found for label in labels for word in label.split("/")}


def program_of(test):
    return Path(test.get("command", ["nothing is built"])[0]).name


class Labels(unittest.TestCase):
    def test_no_test_is_left_out(self):
        listing = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], capture_output=True, text=True, check=True)
        tests = json.loads(listing.stdout)["tests"]
        whole = {program_of(test) for test in tests if "whole" in labels_of(test)}
        self.assertIn("unit_module", whole)
        left_out = [test["name"] for test in tests if "whole" not in labels_of(test)
                    and not ("single" in labels_of(test) and program_of(test) in whole)]  # fmt: skip
        self.assertEqual(left_out, [])


if __name__ == "__main__":
    unittest.main()
