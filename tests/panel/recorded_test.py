#!/usr/bin/python3
"""Whatever is changed over the web port is recorded with the name of who has changed it: each changing operation of docs/api.yaml is
done on a real host by a named user, and looked up in the recording.
usage: tests/panel/recorded_test.py BUILD [unittest's words]"""

import json
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import yaml

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

from realhost import PATIENCE, Host  # noqa: E402

BUILD = Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/dev")
ROOT = Path(__file__).resolve().parents[2]
DRIVER = '<mainframeDriver driverID="{0}" driverType="{1}" version="1.0" workingDirectory="data/{0}" interfaceType="{2}"/>'
DRIVERS = [DRIVER.format("SYS", "SysMon", "queue")]
# Of the operations of the API; what is not told by the API's document, but changes something as well, is the session itself.
CHANGING = {"post", "put", "patch", "delete"}
ANNA, OTTO = "a" * 40, "o" * 40
# The file of tokens begins with anna's: the first session is hers.
WHO, OTHER = "anna (web session 1 from 127.0.0.1)", "otto (web session 2 from 127.0.0.1)"


def workplace(*drivers):
    return '<?xml version="1.0" encoding="UTF-8"?>\n<workplaces><workplace id="0">\n' + "\n".join(drivers) + "\n</workplace></workplaces>\n"


def changing_operations():
    """Name -> method and path of each."""
    document = yaml.safe_load((ROOT / "docs/api.yaml").read_text())
    return {operation["operationId"]: (method.upper(), path)
            for path, item in document["paths"].items() for method, operation in item.items() if method in CHANGING}  # fmt: skip


class Recorded(unittest.TestCase):
    def setUp(self):
        room = tempfile.TemporaryDirectory(prefix="mfhost-recorded-")
        self.addCleanup(room.cleanup)
        self.directory = Path(room.name)
        tokens = self.directory / "tokens"
        tokens.touch(0o600)
        tokens.write_text(f"admin {ANNA} anna\noperate {OTTO} otto\n")
        self.host = Host(BUILD, self.directory, workplace(*DRIVERS), ["--web-tokens", tokens])
        self.addCleanup(self.host.stop)
        self.operations = changing_operations()
        self.done = set()
        # Who, and the command or the FID that the recording is to have.
        self.wanted = []

    def ask(self, method, path, body=None, token=ANNA):
        """The answer, which has to be a good one."""
        end = time.monotonic() + PATIENCE
        while True:
            status, answer = self.host.ask(method, path, body, token)
            # A session has so many actions a second; nothing was done.
            if status != 429 or time.monotonic() > end:
                break
            time.sleep(0.1)
        self.assertEqual(status, 200, (method, path, body, answer))
        return answer

    def act(self, name, recorded, body=None, token=ANNA, who=WHO, **places):
        method, path = self.operations[name]
        answer = self.ask(method, path.format(**places), (body or {}) | {"timeoutMs": 60000}, token)
        self.done.add(name)
        self.wanted.append((who, recorded))
        return answer

    def wait(self, what, condition):
        self.host.wait(what, condition)

    def drivers(self):
        return {each["id"]: each["status"] for each in self.ask("GET", "/api/v1/drivers")["drivers"]}

    def values(self):
        return {each["key"]: each["value"] for each in self.ask("GET", "/api/v1/state")["values"]}

    def test_each_changing_operation_is_recorded_with_who_did_it(self):
        self.fids_values_and_alarms()
        self.controls()
        self.macros()
        self.workplace()
        self.sessions()
        self.drivers_and_the_host()
        self.assertEqual(self.done, set(self.operations), "docs/api.yaml has other operations that change something")
        self.assertEqual(self.host.process.wait(PATIENCE), 0, self.host.log.read_text())
        recorded = self.recorded()
        self.assertEqual([each for each in self.wanted if each not in recorded], [])
        # What changes who may do what and which drivers run is a line of the log as well.
        log = self.host.log.read_text()
        for line in (f"HALL: the alarm is shelved for 600 s by {WHO}", f"HALL: the alarm is put back in sight by {WHO}", f"HALL: the alarm is acknowledged by {WHO}",
                     f"{WHO} takes the controls over from {OTHER}", f"apply, asked for by {WHO}", f"undo, asked for by {WHO}", f"reload of SYS, asked for by {WHO}",
                     f"reload of SYS under a debugger, asked for by {WHO}", f"stop of SYS, asked for by {WHO}", f"start of SYS, asked for by {WHO}",
                     f"code for the web panel with the role admin, asked for by {WHO}", f"code for the web panel with the role view, asked for by {WHO}",
                     "signs out of the web panel", f"asked for by {WHO}", f"shutdown by {WHO}"):  # fmt: skip
            self.assertIn(line, log)

    def recorded(self):
        """Who has asked for which command or FID from the panel, of those that were done."""
        shown = subprocess.run([BUILD / "bin/mfctl", "recording", "show", "--json", "--directory", self.directory / "recording", "--kind", "command", "--kind", "fid"],
                               capture_output=True, text=True, timeout=PATIENCE, check=True)  # fmt: skip
        records = [json.loads(line) for line in shown.stdout.splitlines()]
        done = {each.get("of") for each in records if each["kind"] == "command-end" and each["ok"]}
        return {(each["who"], each["line"] if each["kind"] == "command" else each["fid"]) for each in records
                if each.get("origin") == "panel" and (each["kind"] == "fid" or each["number"] in done)}  # fmt: skip

    def fids_values_and_alarms(self):
        self.act("fid", "PANEL.ALARM", {"fid": "PANEL.ALARM", "parameters": {"source": "HALL", "text": "it is dark"}, "wait": "delivered"})
        self.act("shelve", "shelve HALL 600", {"keys": ["HALL"], "seconds": 600})
        self.act("shelve", "shelve HALL 0", {"keys": ["HALL"]})
        self.act("acknowledge", "acknowledge HALL", {"keys": ["HALL"]})
        self.act("setState", "setStateValue SYS.LABEL", {"key": "SYS.LABEL", "type": "string", "value": "left"})
        self.act("unset", "unsetStateValue SYS.LABEL", {"key": "SYS.LABEL"})
        self.act("event", "triggerEvent SYS.DONE", {"id": "SYS.DONE", "value": "x"})
        self.act("console", "setStateValue SYS.LABEL string right", {"line": "setStateValue SYS.LABEL string right"})

    def controls(self):
        self.act("changeControls", "take the controls", {"take": True}, OTTO, OTHER)
        self.act("changeControls", f"take the controls over from {OTHER}", {"take": True})
        self.act("changeControls", "give the controls back", {"take": False})

    def macros(self):
        self.act("fid", "PANEL.MACRO.RECORD", {"fid": "PANEL.MACRO.RECORD", "parameters": {"name": "home"}, "wait": "delivered"})
        self.act("fid", "SYS.MARK", {"fid": "SYS.MARK", "parameters": {"text": "hello"}, "wait": "taken"})
        self.act("fid", "PANEL.MACRO.STOP", {"fid": "PANEL.MACRO.STOP", "wait": "delivered"})
        self.wait("there is a macro", lambda: self.values().get("PANEL.MACRO.NAMES") == "home")
        self.act("play", "macro home", macro="home")

    def workplace(self):
        (self.directory / "workplace.xml").write_text(workplace(*DRIVERS, DRIVER.format("LAMP", "SysMon", "direct")))
        plan = self.act("plan", "plan")
        self.act("check", "check")
        self.act("apply", "apply", {"plan": plan["plan"]})
        self.assertIn("LAMP", self.drivers())
        self.act("undo", "undo")

    def sessions(self):
        # One by digits, which signs out by itself, and one by a long code, which is ended.
        digits = self.act("pair", "code for the web panel with the role view", {"role": "view"})["code"]
        token = self.ask("POST", "/api/v1/session", {"code": digits}, None)["token"]
        number = self.newest_session()
        self.wanted.append((f"anna (web session {number} from 127.0.0.1)", "open the web panel"))
        self.ask("DELETE", "/api/v1/session", None, token)
        self.wanted.append((f"anna (web session {number} from 127.0.0.1)", "sign out of the web panel"))
        code = self.act("panel", "code for the web panel with the role admin")["code"]
        self.ask("POST", "/api/v1/session", {"code": code}, None)
        number = self.newest_session()
        self.act("revoke", f"end of the web panel's session {number}", session=number)

    def newest_session(self):
        return max(each["id"] for each in self.ask("GET", "/api/v1/sessions")["sessions"] if each["pid"] is None)

    def drivers_and_the_host(self):
        self.act("recordWire", "wire of SYS for 60 s", {"seconds": 60}, driver="SYS")
        self.act("reload", "reload of SYS", driver="SYS")
        self.act("park", "stop of SYS", driver="SYS")
        self.act("unpark", "start of SYS", driver="SYS")
        self.act("debug", "reload of SYS under a debugger", driver="SYS")
        self.act("shutdown", "shutdown")


if __name__ == "__main__":
    if subprocess.run(["unshare", "-Urmn", "true"], capture_output=True, check=False).returncode != 0:
        # ctest takes this exit code for a skipped test; ./dev test shows the reason.
        print("skipped: no private namespaces can be had here")
        sys.exit(77)
    unittest.main()
