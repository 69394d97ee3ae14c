#!/usr/bin/python3
"""That the programs in docs/ compile, no link there leads nowhere, and the states of a driver are drawn as they are."""

import re
import subprocess
import unittest
import xml.dom.minidom
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").rglob("*.md"))]
# As the pages have it.
COMPILE = ["g++", "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-x", "c++", "-",
           "-I", "sdk/include", "-I", "host", "-I", "include", "-I", "MfDriverManager"]  # fmt: skip


def blocks(page, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(), re.M | re.S)


def links(page):
    """The files that a page links to."""
    # A lambda of a program looks like a link.
    text = re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.M | re.S)
    targets = re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", text)
    return [page.parent / target for target in targets if not target.startswith("http")]


class DocsTest(unittest.TestCase):
    def test_programs_compile(self):
        pages = [page for page in PAGES if blocks(page, "cpp")]
        self.assertEqual([page.name for page in pages], ["drivers.md", "embedding.md", "writing-drivers.md"])
        for page in pages:
            for program in blocks(page, "cpp"):
                done = subprocess.run(COMPILE, input=program, cwd=ROOT, capture_output=True, text=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, ""), page)

    def test_files_are_well_formed(self):
        for page in PAGES:
            for text in blocks(page, "xml"):
                xml.dom.minidom.parseString(text)

    def test_examples_of_both_kinds_of_file_obey_their_schemas(self):
        examples = blocks(ROOT / "docs" / "workplace.md", "xml")
        for example, schema in zip(examples, ("workplace", "descriptor"), strict=True):
            path = ROOT / "configuration" / "schema" / f"{schema}.xsd"
            done = subprocess.run(["xmllint", "--noout", "--schema", path, "-"], input=example,
                                  capture_output=True, text=True, check=False)  # fmt: skip
            self.assertEqual((done.returncode, done.stderr), (0, "- validates\n"))

    def test_every_attribute_of_both_kinds_of_file_is_told(self):
        page = (ROOT / "docs" / "workplace.md").read_text()
        for schema in ("workplace", "descriptor"):
            text = (ROOT / "configuration" / "schema" / f"{schema}.xsd").read_text()
            names = re.findall(r'<xs:(?:element|attribute) name="(\w+)"', text)
            self.assertGreater(len(names), 7)
            for name in names:
                self.assertIn(f"`{name}`", page)

    def test_links_lead_somewhere(self):
        for page in PAGES:
            for target in links(page):
                self.assertTrue(target.exists(), f"{page.name}: {target}")

    def test_files_that_the_code_map_names_exist(self):
        page = (ROOT / "docs" / "architecture.md").read_text()
        named = re.findall(r"`([\w.]+/(?:[\w.-]+/)*(?:[\w-]+\.\w+)?)`", page)
        self.assertGreater(len(named), 60)
        for path in named:
            self.assertTrue((ROOT / path).exists() or list(ROOT.glob(f"*/{path}")), path)

    def test_group_tables_name_the_classes_of_host_and_module(self):
        page = (ROOT / "docs" / "architecture.md").read_text()
        parts = page.split("\n## ")[1].split("\nThe host application has ")
        module, host = parts[0].split("The module is one flat folder")[1], parts[1].split("\nSo has the host framework")[0]

        def names(cell):
            # Pages and other folders are no classes.
            return set(re.findall(r"`(\w+)`", cell))

        def classes(folder):
            return {file.stem for file in folder.glob("*.cpp")} - {"main"}

        rows = {row[0]: names(row[1]) for row in re.findall(r"^\| `(\w+)/` \| (.*?) \| ", host, re.M)}
        folders = {path for path in (ROOT / "mfhost").iterdir() if path.is_dir()}
        self.assertEqual(rows.keys(), {folder.name for folder in folders})
        for folder in folders:
            self.assertEqual(classes(folder) - rows[folder.name], set(), folder.name)
            missing = {name for name in rows[folder.name] if not (folder / f"{name}.h").exists()}
            self.assertEqual(missing, set(), folder.name)
        named = set().union(*(names(row) for row in re.findall(r"^\| [\w ]+ \| (`.*?) \| ", module, re.M)))
        headers = {file.stem for file in (ROOT / "MfDriverManager").glob("*.h")} - {"MDMExport"}
        self.assertEqual(named, headers)

    def test_states_of_a_driver_are_drawn_as_they_are(self):
        folder = ROOT / "mfhost" / "drivers"
        header = (folder / "DriverStates.h").read_text()
        code = (folder / "DriverStates.cpp").read_text()

        def members(enum):
            body = re.search(rf"enum class {enum} \{{(.*?)\}};", header, re.S)[1]
            return re.findall(r"^ *(\w+),?", re.sub("//.*", "", body), re.M)

        states, events = members("EDriverState"), members("EDriverEvent")
        rows = [row.split(", ") for row in re.findall(r"^    \{(\w+(?:, \w+)+)\},$", code, re.M)]
        words = re.findall(r'"([^"]+)"', code[code.index("inWords(EDriverEvent") :])
        self.assertEqual((len(rows), {len(row) for row in rows}), (len(states), {len(events)}))
        self.assertEqual(len(words), len(events))
        real = {
            (state, word, following)
            for state, row in zip(states, rows, strict=True)
            for word, following in zip(words, row, strict=True)
            if following not in ("s_never", state)
        }
        page = ROOT / "docs" / "architecture.md"
        arrows = re.findall(r"^ *(\w+) --> (\w+): (.*)$", "".join(blocks(page, "mermaid")), re.M)
        drawn = [(state, word, following) for state, following, text in arrows for word in text.split(", ")]
        self.assertEqual(sorted(drawn), sorted(real))
        # The table beside it names each of them.
        named = re.findall(r"^\| `(\w+)` \| [a-z]", page.read_text(), re.M)
        self.assertEqual(named, states)


if __name__ == "__main__":
    unittest.main()
