"""A real host with a web port, for what looks at its panel without the stand-in."""

import http.client
import json
import socket
import subprocess
import tempfile
import time
from pathlib import Path
from urllib.parse import urlsplit

PATIENCE = 60
WORKPLACE = """<?xml version="1.0" encoding="UTF-8"?>
<workplaces><workplace id="0">
<mainframeDriver driverID="LOCAL" driverType="SysMon" version="1.0" workingDirectory="data/LOCAL" interfaceType="direct"/>
</workplace></workplaces>
"""


def own_kb(pid):
    """What the process has written and shares with no other. What it only reads of a file becomes its own when the last other process that
    read it ends."""
    lines = Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    return sum(int(line.split()[1]) for line in lines if line.startswith("Private_Dirty"))


def resident_kb(pid):
    """All that is in memory for it, shared or not."""
    return int(Path(f"/proc/{pid}/status").read_text().split("VmRSS:")[1].split()[0])


class SocketConnection(http.client.HTTPConnection):
    """To the host's control socket."""

    def __init__(self, path):
        super().__init__("localhost", timeout=PATIENCE)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class Host:
    """A real one in a sandbox of its own; words are further ones of its command line."""

    def __init__(self, build, directory, workplace=WORKPLACE, words=()):
        self.build, self.socket = Path(build), f"{directory}/control"
        (directory / "workplace.xml").write_text(workplace)
        self.log = directory / "log"
        with open(self.log, "w") as log:
            self.process = subprocess.Popen([self.build / "bin/mfhost", "--drivers", self.build / "lib/mfdrivers", "--config", directory / "workplace.xml",
                                             "--workdir", directory, "--sandbox", "--control", self.socket, "--web", "0", "--no-console", *words],
                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log)  # fmt: skip
        mark = "the web panel is at "
        self.wait("it is started", lambda: "the workplace is started" in self.log.read_text())
        self.url = self.log.read_text().split(mark)[1].split(";")[0]
        self.place = urlsplit(self.url).netloc
        self.control = SocketConnection(self.socket)

    def wait(self, what, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end or self.process.poll() is not None:
                raise SystemExit(f"host: not within {PATIENCE} s: {what}\n{self.log.read_text()}")
            time.sleep(0.05)

    def set(self, key, number):
        body = json.dumps({"key": key, "type": "int", "value": number})
        self.control.request("POST", "/api/v1/state", body, {"Content-Type": "application/json"})
        answer = self.control.getresponse()
        text = answer.read()
        if answer.status != 200:
            raise SystemExit(f"host: {key} cannot be set: {text}")

    def ask(self, method, path, body=None, token=None):
        connection = http.client.HTTPConnection(self.place, timeout=PATIENCE)
        fields = {"Content-Type": "application/json"} if body else {}
        connection.request(method, path, json.dumps(body) if body else None, fields | ({"Authorization": f"Bearer {token}"} if token else {}))
        try:
            answer = connection.getresponse()
            return answer.status, json.loads(answer.read())
        finally:
            connection.close()

    def sign_in(self):
        printed = subprocess.run([self.build / "bin/mfctl", "--host", self.socket, "panel"], capture_output=True, text=True, timeout=PATIENCE, check=True).stdout
        return self.ask("POST", "/api/v1/session", {"code": printed.split("#code=")[1].split()[0]})[1]["token"]

    def private_kb(self):
        return own_kb(self.process.pid)

    def stop(self):
        self.process.terminate()
        try:
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return "killed"


def judged(name, build, look):
    """The exit code after look(host, faults), with what it found printed; the host has to end well, too."""
    faults = []
    with tempfile.TemporaryDirectory(prefix=f"mfhost-{name}-") as directory:
        host = Host(build, Path(directory))
        try:
            look(host, faults)
        finally:
            ended = host.stop()
        if ended != 0:
            faults.append(f"{name}: the host ended with {ended}")
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0
