#!/usr/bin/python3
"""The demo site of ./dev run: two workplaces and a broker, cut, healed and ended."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SITE = ROOT / "tools" / "run" / "site"
PATIENCE = 120
BUILD = Path()


def may_have_namespaces():
    words = ["unshare", "--mount", "--net", "--pid", "--fork", "--mount-proc"]
    if os.geteuid() != 0:
        words[1:1] = ["--user", "--map-root-user"]
    return subprocess.run([*words, "ip", "link", "add", "name", "one", "type", "veth", "peer", "name", "two"],
                          capture_output=True, check=False).returncode == 0  # fmt: skip


@unittest.skipUnless(os.access("/usr/sbin/mosquitto", os.X_OK), "mosquitto is not installed")
class SiteTest(unittest.TestCase):
    def setUp(self):
        if not may_have_namespaces():
            self.skipTest("this machine lets nobody have namespaces with a veth pair")
        # Where the site keeps all that it writes.
        temporary = tempfile.TemporaryDirectory(prefix="s-")
        self.addCleanup(temporary.cleanup)
        self.place = Path(temporary.name)
        self.environment = {**os.environ, "TMPDIR": temporary.name}
        self.log = self.place.parent / f"{self.place.name}.log"
        self.addCleanup(self.log.unlink, missing_ok=True)
        self.site = None
        self.addCleanup(self.kill)

    def start(self):
        with open(self.log, "wb") as log:
            self.site = subprocess.Popen([SITE, BUILD], stdin=subprocess.PIPE, stdout=log, stderr=log,
                                         env=self.environment)  # fmt: skip
        self.until(lambda: self.site.poll() is not None or "You may type" in self.log.read_text(), "it does not start")
        self.assertIsNone(self.site.poll(), self.log.read_text())

    def kill(self):
        if self.site and self.site.poll() is None:
            self.site.kill()
            self.site.wait()
        if self.site:
            self.site.stdin.close()

    def tell(self, *words):
        return subprocess.run([SITE, BUILD, *words], capture_output=True, text=True, env=self.environment,
                              stdin=subprocess.DEVNULL, timeout=PATIENCE, check=False)  # fmt: skip

    def directory(self):
        (directory,) = self.place.glob("mfd-site-*")
        return directory

    def ask(self, name, *words):
        done = subprocess.run([BUILD / "bin" / "mfctl", "--host", self.directory() / f"{name}.sock", *words, "--json"],
                              capture_output=True, text=True, timeout=PATIENCE, check=False)  # fmt: skip
        return json.loads(done.stdout)

    def mark(self, name):
        """The value SYS.MARK of the other workplace, and why it is stale."""
        other = {"north": "SOUTH", "south": "NORTH"}[name]
        values = self.ask(name, "state", f"{other}.SYS.MARK")["values"]
        return (values[0]["text"], (values[0]["stale"] or {}).get("cause")) if values else (None, None)

    def link(self, name):
        (link,) = self.ask(name, "links")["links"]
        return link

    def assert_the_panel_can_read(self, name, is_up):
        """What its page takes for a link, and the values that it reads of one, are what the driver reports."""
        page = (ROOT / "mfhost/web/page/links.js").read_text()
        other = {"north": "SOUTH", "south": "NORTH"}[name]
        types = {each["id"]: each["type"] for each in self.ask(name, "drivers")["drivers"]}
        self.assertEqual([each for each in types if types[each] == re.search('const driverType = "(.*)";', page)[1]], [other])
        values = {each["key"].removeprefix(f"{other}."): each for each in self.ask(name, "state", f"{other}.LINK*")["values"]}
        read = set(re.findall('"(.*?)"', re.search(r"const names = \[(.*)\];", page)[1]))
        # Of a link that has logged no warning yet there is no error.
        self.assertEqual(set(values) | {"LINK_ERROR"}, read)
        self.assertEqual(values["LINK"]["text"] == "up", is_up)
        figures = {each for each in values if values[each]["stale"]}
        self.assertEqual(figures, set() if is_up else {"LINK_DELAY", "LINK_IN", "LINK_OUT"})

    def until(self, condition, text):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, f"{text}:\n{self.log.read_text()}")
            time.sleep(0.1)

    def processes(self):
        """Those of the site, wherever they run: each has its directory among its words or in its environment."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                words = (process / "cmdline").read_bytes() + (process / "environ").read_bytes()
            except OSError:
                continue
            if str(self.place).encode() in words:
                found.append(process.name)
        return found

    def assert_nothing_is_left(self):
        self.assertEqual(list(self.place.iterdir()), [])
        self.until(lambda: not self.processes(), "processes are left")
        self.assertNotIn(str(self.place), Path("/proc/self/mountinfo").read_text())

    def test_line_is_cut_and_healed_and_nothing_is_left(self):
        self.start()
        self.assertRegex(self.log.read_text(), r"NORTH  http\S+\n.*\n  SOUTH  http")
        for name, other in (("north", "SOUTH"), ("south", "NORTH")):
            self.ask(name, "send", f"{other}.SYS.MARK", f"text=of-{name}")
            self.until(lambda name=name: self.mark(name) == (f"of-{name}", None), f"{name} has no live value")
            self.assertTrue(self.link(name)["up"])
            self.until(lambda name=name: None not in (self.link(name)["delayMs"], self.link(name)["outPerSecond"]), f"{name} has no figures")
            self.assert_the_panel_can_read(name, is_up=True)

        done = self.tell("cut", "north")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "the line of NORTH is cut\n", ""))
        causes = {"north": r"SOUTH is (not heard|away)|no broker: .*", "south": r"NORTH is (not heard|away)"}
        for name, cause in causes.items():
            self.until(lambda name=name: self.mark(name)[1], f"{name} shows the value as live")
            value, why = self.mark(name)
            self.assertEqual(value, f"of-{name}")
            self.assertRegex(why, f"^({cause})$")
            self.until(lambda name=name: not self.link(name)["up"], f"{name}'s link is up")
            self.assert_the_panel_can_read(name, is_up=False)
        self.assertIn("NORTH, its line cut:\n", self.tell("status").stdout)

        # A button of the panel, and what it shows.
        self.assertEqual(self.ask("north", "state", "LINE.NORTH")["values"][0]["text"], "cut")
        self.ask("north", "macro", "heal")
        self.until(lambda: self.ask("north", "state", "LINE.NORTH")["values"][0]["text"] == "whole", "it is not healed")
        self.assertIn("NORTH, its line whole:\n", self.tell("status").stdout)
        # Typed in its own terminal.
        self.site.stdin.write(b"heal\n")
        self.site.stdin.flush()
        for name in causes:
            self.until(lambda name=name: self.mark(name) == (f"of-{name}", None), f"{name} has no live value again")
        self.assertIn("the line of NORTH is whole\n", self.log.read_text())

        self.assertNotEqual(self.processes(), [])
        self.site.send_signal(signal.SIGINT)
        self.assertEqual(self.site.wait(PATIENCE), 0, self.log.read_text())
        self.assertIn("The demo site has ended.\n", self.log.read_text())
        self.assertNotIn("is killed", self.log.read_text())
        self.assert_nothing_is_left()

    def test_fid_that_a_half_open_line_holds_up_is_not_done_late(self):
        self.start()
        self.hold_up("half", "south", "north")

    def test_fid_that_a_mute_line_holds_up_is_not_done_late(self):
        self.start()
        self.hold_up("mute", "north", "south")

    def hold_up(self, command, sender, receiver):
        """A FID is sent over NORTH's line just when that lets nothing more through."""
        other = receiver.upper()
        self.ask(sender, "send", f"{other}.SYS.MARK", "text=first")
        self.until(lambda: self.mark(sender) == ("first", None), "the first FID is not done")
        self.assertEqual(self.tell(command, "north").stdout, f"the line of NORTH is {command}\n")
        # The sender cannot know yet.
        self.ask(sender, "send", f"{other}.SYS.MARK", "text=late")
        self.until(lambda: not self.link(receiver)["up"], "the receiver does not notice")
        self.until(lambda: self.mark(sender)[1], "the sender shows the value as live")
        self.assertEqual(self.tell("heal", "north").stdout, "the line of NORTH is whole\n")
        self.until(lambda: self.mark(sender)[1] is None, "the sender has no live value again")
        # A FID that comes after it: what was held up has come by then, or never will.
        self.until(lambda: self.link(receiver)["up"], "the receiver is not up")
        self.ask(sender, "send", f"{other}.SYS.REPORT")
        self.assertEqual(self.mark(sender), ("first", None))
        (own,) = self.ask(receiver, "state", "SYS.MARK")["values"]
        self.assertEqual(own["text"], "first")
        told = [line["text"] for line in self.ask(sender, "log", other)["lines"] if "SYS.MARK: " in line["text"]]
        self.assertEqual(len(told), 1, told)
        self.assertRegex(told[0], "SYS.MARK: (expired|not known): ")

    def test_wrong_words_are_told_and_the_end_of_input_ends_it(self):
        done = self.tell("cut")
        self.assertEqual((done.returncode, done.stderr),
                         (1, "site: no demo site runs; ./dev run --demo site starts one\n"))  # fmt: skip
        self.start()
        done = self.tell("cut", "west")
        self.assertEqual((done.returncode, done.stderr), (1, "site: there are the lines of north and south\n"))
        done = self.tell("bend")
        self.assertEqual((done.returncode, done.stderr), (
            1, 'site: there is no command "bend"; there are cut, half, mute, heal, status, panel and quit\n'))  # fmt: skip
        self.site.stdin.close()
        self.assertEqual(self.site.wait(PATIENCE), 0, self.log.read_text())
        self.assert_nothing_is_left()

    def test_killed_site_leaves_no_process_and_the_next_one_removes_its_files(self):
        self.start()
        self.site.kill()
        self.site.wait()
        self.until(lambda: not self.processes(), "processes are left")
        self.site.stdin.close()
        former = self.directory()
        self.start()
        self.assertNotEqual(self.directory(), former)
        self.assertEqual(self.tell("quit").returncode, 0)
        self.assertEqual(self.site.wait(PATIENCE), 0, self.log.read_text())
        self.assert_nothing_is_left()


if __name__ == "__main__":
    BUILD = Path(sys.argv.pop(1)).resolve()
    unittest.main()
