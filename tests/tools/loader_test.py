#!/usr/bin/python3
"""Where the programs and libraries of a build tree look for libraries."""

import re
import subprocess
import sys
import unittest
from pathlib import Path

BUILD = Path(sys.argv.pop()) if len(sys.argv) > 1 else Path("build/dev")


def search_paths(path):
    """The directories that the loader searches for what the file needs, as the file names them."""
    listing = subprocess.run(["readelf", "-d", path], capture_output=True, text=True, check=True).stdout
    found = re.search(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", listing)
    return found.group(1).split(":") if found else []


class Loader(unittest.TestCase):
    def test_nothing_is_looked_for_in_the_working_directory(self):
        files = [*(BUILD / "bin").iterdir(), *(BUILD / "lib").rglob("*.so")]
        self.assertIn(BUILD / "bin" / "mfhost", files)
        self.assertIn(BUILD / "lib" / "libsal.so", files)
        for path in files:
            for directory in search_paths(path):
                self.assertRegex(directory, r"^\$ORIGIN(/|$)", f"{path} searches {directory or 'the working directory'}")


if __name__ == "__main__":
    unittest.main()
