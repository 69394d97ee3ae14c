#!/usr/bin/python3
"""That the man pages format without a warning, that every command and option of the programs stands in them and in the
completions, that the files named by the schemas' attributes do, and that the completions complete."""

import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MAN = ROOT / "docs" / "man"
PAGES = sorted(MAN.glob("*.[0-9]"))
BASH = ROOT / "mfctl" / "completion" / "mfctl.bash"
ZSH = ROOT / "mfctl" / "completion" / "_mfctl"
BUILD = Path()


def output(*words):
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=True).stdout


def help_of(program, *command):
    return output(BUILD / "bin" / program, *command, "--help")


def options(text):
    """The options that a help lists, not those that its sentences name."""
    heads = [re.split(r"\s{2,}", line.strip())[0] for line in text.splitlines() if re.match(r"\s+-", line)]
    return set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", " ".join(heads)))


def commands(*above):
    """The names of the commands, or of those below one."""
    listed = help_of("mfctl", *above).partition("Subcommands:")[2]
    return re.findall(r"^  ([\w-]+) ", listed, re.M)


def all_commands():
    """The words of each command, those below others as well."""
    found = [[command] for command in commands()]
    return found + [[*above, command] for above in found for command in commands(*above)]


def page(name):
    """The page's source, without the escapes of its hyphens and without fonts."""
    text = (MAN / name).read_text().replace("\\-", "-")
    return re.sub(r"\\f[A-Z]", "", text)


def has(text, word):
    return re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", text) is not None


class CannedHost:
    """Answers every request with the same drivers, states and macros."""

    ANSWER = {
        "drivers": [{"id": "SYS", "type": "SysMon"}, {"id": "LAMP"}],
        "values": [{"key": "SYS.LOAD"}],
        "macros": [{"name": "evening"}],
        "words": ["SYS.", "SYS.MARK"],
    }

    def __init__(self, path):
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(str(path))
        self.listener.listen()
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        body = json.dumps(self.ANSWER).encode()
        while True:
            connection, _ = self.listener.accept()
            with connection:
                connection.recv(65536)
                head = f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n"
                connection.sendall(head.encode() + body)


class ManualTest(unittest.TestCase):
    def test_pages_format_without_a_warning(self):
        self.assertEqual(
            [path.name for path in PAGES],
            ["mfctl.1", "mfddllwrap.1", "mfhost-descriptor.5", "mfhost-workplace.5", "mfhost.1"])
        for path in PAGES:
            done = subprocess.run(["groff", "-ww", "-man", "-Tutf8", "-z", path], capture_output=True, text=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""), path.name)

    def test_every_option_of_the_host_has_its_place(self):
        found = options(help_of("mfhost"))
        self.assertGreater(len(found), 20)
        for option in found:
            self.assertTrue(has(page("mfhost.1"), option), option)

    def test_every_command_and_option_of_the_control_has_its_place(self):
        texts = {"mfctl.1": page("mfctl.1"), "bash": BASH.read_text(), "zsh": ZSH.read_text()}
        found = all_commands()
        self.assertGreater(len(found), 35)
        for command in found:
            for name, text in texts.items():
                self.assertTrue(has(text, command[-1]), f"{command} in {name}")
            for option in options(help_of("mfctl", *command)) - {"-h"}:
                for name, text in texts.items():
                    self.assertTrue(has(text, option), f"{command} {option} in {name}")

    def test_bash_offers_the_commands_and_the_options_of_each(self):
        self.assertEqual(sorted(self.complete("")), sorted(commands()))
        self.assertEqual(sorted(self.complete("recording", "")), sorted(commands("recording")))
        for command in all_commands():
            offered = set(self.complete(*command, "-"))
            self.assertEqual(offered, options(help_of("mfctl", *command)) - {"-h"}, command)

    def test_every_attribute_has_its_place(self):
        for schema, name in (("workplace.xsd", "mfhost-workplace.5"), ("descriptor.xsd", "mfhost-descriptor.5")):
            text = (ROOT / "configuration" / "schema" / schema).read_text()
            for word in re.findall(r'<xs:(?:attribute|element) name="(\w+)"', text):
                self.assertTrue(has(page(name), word), f"{word} in {name}")

    def test_bash_asks_the_host_for_what_it_knows(self):
        with tempfile.TemporaryDirectory() as directory:
            path = Path(directory) / "s"
            CannedHost(path)
            host = ["--host", str(path)]
            self.assertEqual(self.complete(*host, "driver", ""), ["SYS", "LAMP"])
            self.assertEqual(self.complete(*host, "send", "S"), ["SYS.", "SYS.MARK"])
            self.assertEqual(self.complete(*host, "state", ""), ["SYS.LOAD"])
            self.assertEqual(self.complete(*host, "macro", "e"), ["evening"])
            self.assertEqual(self.complete(*host, "send", "SYS.MARK", "x"), [])

    def test_bash_is_quiet_without_a_host(self):
        self.assertEqual(self.complete("--host", "/nowhere/s", "driver", ""), [])

    def test_zsh_takes_its_completion(self):
        done = subprocess.run(["zsh", "-n", ZSH], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def complete(self, *words):
        """What bash offers for the last of the words."""
        line = ["mfctl", *words]
        script = (
            f'source "{BASH}"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _mfctl; '
            'if [ ${#COMPREPLY[@]} -gt 0 ]; then printf "%s\\n" "${COMPREPLY[@]}"; fi')
        with tempfile.TemporaryDirectory() as directory:
            # However busy the machine is: the moment that the completion waits for a host has no end here.
            patient = Path(directory) / "timeout"
            patient.write_text('#!/bin/sh\nshift\nexec "$@"\n')
            patient.chmod(0o755)
            environment = {**os.environ, "PATH": f"{directory}:{BUILD / 'bin'}:{os.environ['PATH']}"}
            done = subprocess.run(
                ["bash", "-c", script, "bash", *line], env=environment, capture_output=True, text=True, check=False)
        self.assertEqual(done.stderr, "")
        return done.stdout.splitlines()


if __name__ == "__main__":
    BUILD = Path(sys.argv.pop(1)).resolve()
    unittest.main()
