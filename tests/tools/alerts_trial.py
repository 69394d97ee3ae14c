#!/usr/bin/python3
"""Lets Debian's prometheus watch a real host while one driver is killed, one stopped, one crashes again and again, one is
parked, and at last the host is killed; prints which alerts come and go when, and says whether they were the right ones.

usage: alerts_trial.py BUILD [HURRY]   all times of the alerts are divided by HURRY (6): then it takes some five minutes
"""

import http.client
import json
import os
import re
import shutil
import signal
import socket
import socketserver
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DRIVERS = ["KILLED", "HUNG", "LOOP", "PARKED", "WELL"]
# What has to come, for whom.
EXPECTED = {("MfDriverCrashLoop", "LOOP"), ("MfDriverEnded", "LOOP"), ("MfValuesStale", "LOOP"),
            ("MfDriverHung", "HUNG"), ("MfHostGone", "")}  # fmt: skip


class Door(socketserver.ThreadingTCPServer):
    """A port of this machine in front of the control socket, which prometheus cannot ask."""

    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, control):
        self.control = str(control)
        super().__init__(("127.0.0.1", 0), DoorHandler)
        threading.Thread(target=self.serve_forever, daemon=True).start()


class DoorHandler(socketserver.BaseRequestHandler):
    def handle(self):
        with socket.socket(socket.AF_UNIX) as host:
            try:
                host.connect(self.server.control)
            except OSError:
                return
            back = threading.Thread(target=self.pass_on, args=(host, self.request), daemon=True)
            back.start()
            self.pass_on(self.request, host)
            back.join()

    @staticmethod
    def pass_on(source, target):
        try:
            while data := source.recv(65536):
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)
        except OSError:
            pass


class Trial:
    def __init__(self, build, hurry, directory):
        self.build = build.resolve()
        self.hurry = hurry
        self.directory = directory
        self.control = directory / "mfhost.sock"
        self.begin = time.monotonic()
        self.firing = set()
        self.seen = set()
        self.processes = []
        self.prometheus = None

    def say(self, text):
        print(f"{time.monotonic() - self.begin:6.1f} s  {text}", flush=True)

    def start_host(self):
        entries = "".join(f'<mainframeDriver driverID="{each}" driverType="Faulty" version="1.0" '
                          f'workingDirectory="data/{each}" interfaceType="queue"/>' for each in DRIVERS)  # fmt: skip
        workplace = self.directory / "workplace.xml"
        workplace.write_text(f'<workplaces><workplace id="0">{entries}</workplace></workplaces>')
        sandbox = self.directory / "sandbox"
        sandbox.mkdir()
        log = (self.directory / "host.log").open("w")
        self.host = subprocess.Popen(
            [self.build / "bin" / "mfhost", "--drivers", self.build / "lib" / "mfdkit", "--drivers",
             self.build / "lib" / "mfdrivers", "--config", workplace, "--sandbox", sandbox, "--control", self.control,
             "--no-console", "--workdir", self.directory, "--restart-limit", "6", "--hang-timeout", "5"],
            stdin=subprocess.DEVNULL, stdout=log, stderr=log)  # fmt: skip
        self.processes.append(self.host)

    def start_prometheus(self, port):
        hurried = re.sub(r"\b(\d+)(m|s)\b(?=[\]\n])",
                         lambda found: f"{int(found[1]) * (60 if found[2] == 'm' else 1) * 1000 // self.hurry}ms",
                         (ROOT / "packaging" / "prometheus" / "alerts.yml").read_text())  # fmt: skip
        (self.directory / "alerts.yml").write_text(hurried)
        (self.directory / "prometheus.yml").write_text(
            "global: { scrape_interval: 1s, evaluation_interval: 1s }\n"
            "rule_files: [alerts.yml]\n"
            f'scrape_configs: [{{ job_name: mfhost, static_configs: [{{ targets: ["127.0.0.1:{port}"], '
            "labels: { instance: site } }] }]\n")  # fmt: skip
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.prometheus = f"127.0.0.1:{probe.getsockname()[1]}"
        log = (self.directory / "prometheus.log").open("w")
        self.processes.append(subprocess.Popen(
            ["prometheus", f"--config.file={self.directory}/prometheus.yml", f"--web.listen-address={self.prometheus}",
             f"--storage.tsdb.path={self.directory}/data"], stdout=log, stderr=log))  # fmt: skip

    def ask(self, path):
        with urllib.request.urlopen(f"http://{self.prometheus}{path}", timeout=20) as answer:
            return json.load(answer)["data"]

    def look(self):
        """Tells which alerts have come and gone since the last look."""
        if not self.prometheus:
            return
        firing = {(each["labels"]["alertname"], each["labels"].get("driver", ""))
                  for each in self.ask("/api/v1/alerts")["alerts"] if each["state"] == "firing"}  # fmt: skip
        for alert, driver in sorted(firing - self.firing):
            self.say(f"{alert} {driver} comes")
        for alert, driver in sorted(self.firing - firing):
            self.say(f"{alert} {driver} goes")
        self.firing = firing
        self.seen |= firing

    def call(self, method, path, body=None):
        connection = http.client.HTTPConnection("localhost", timeout=20)
        connection.sock = socket.socket(socket.AF_UNIX)
        connection.sock.connect(str(self.control))
        connection.request(method, path, body and json.dumps(body), {"Content-Type": "application/json"})
        answer = connection.getresponse().read()
        connection.close()
        return json.loads(answer)

    def driver(self, driver_id):
        return self.call("GET", f"/api/v1/drivers/{driver_id}")

    def wait(self, what, condition, seconds):
        """Looks at the alerts until the condition holds."""
        end = time.monotonic() + seconds
        while True:
            try:
                if condition():
                    return
                self.look()
            except (OSError, http.client.HTTPException) as error:
                if time.monotonic() > end:
                    raise RuntimeError(f"waited for {what}: {error}") from error
            if time.monotonic() > end:
                raise RuntimeError(f"waited in vain for {what}")
            time.sleep(0.5)

    def crash_again(self):
        driver = self.driver("LOOP")
        if driver["alive"]:
            os.kill(driver["pid"], signal.SIGSEGV)
        return driver["state"] == "ended"

    def run(self):
        self.start_host()
        self.wait("the start", lambda: self.control.exists() and
                  self.call("GET", "/api/v1/health")["command"] is None, 120)  # fmt: skip
        door = Door(self.control)
        self.start_prometheus(door.server_address[1])
        self.wait("the first scrape", lambda: len(self.ask("/api/v1/query?query=mf_driver_up")["result"]) == 6, 60)
        self.say("all run")
        self.call("POST", "/api/v1/drivers/PARKED/park", {})
        self.say("PARKED is parked")
        os.kill(self.driver("KILLED")["pid"], signal.SIGKILL)
        self.say("KILLED is killed")
        os.kill(self.driver("HUNG")["pid"], signal.SIGSTOP)
        self.call("POST", "/api/v1/fid", {"fid": "HUNG.PING", "parameters": {"value": "1"}, "timeoutMs": 100})
        self.say("HUNG is stopped")
        self.say("LOOP crashes from now on, as soon as it runs")
        self.wait("the last restart of LOOP", self.crash_again, 300)
        self.say("LOOP is not started again")
        before_end = {each for each in EXPECTED if each[0] != "MfHostGone"}
        self.wait("the alerts", lambda: before_end <= self.seen, 1500 / self.hurry + 60)
        for driver_id in ("KILLED", "HUNG", "WELL"):
            assert self.driver(driver_id)["state"] == "running", driver_id
        restarts = {(each["metric"]["driver"], each["metric"]["cause"]): int(each["value"][1])
                    for each in self.ask("/api/v1/query?query=mf_driver_restarts_total")["result"]}  # fmt: skip
        self.say("restarts: " + ", ".join(f"{driver} {count} after {cause}"
                                          for (driver, cause), count in sorted(restarts.items()) if count))  # fmt: skip
        parked = self.ask('/api/v1/query?query={driver="PARKED",__name__=~"mf_driver_(up|state)"}')["result"]
        self.say("PARKED has " + ", ".join(f"{each['metric']['__name__']} {each['metric'].get('state', '')}" for each in parked))
        self.host.kill()
        self.say("the host is killed")
        self.wait("MfHostGone", lambda: ("MfHostGone", "") in self.seen, 120)
        assert self.seen == EXPECTED, f"raised: {sorted(self.seen)}, expected: {sorted(EXPECTED)}"
        assert restarts["KILLED", "signal"] == 1 and restarts["HUNG", "hang"] == 1, restarts
        assert restarts["LOOP", "signal"] == 6, restarts
        assert [each["metric"].get("state") for each in parked] == ["parked"], parked
        self.say("these were the right ones")

    def stop(self):
        for process in self.processes:
            process.kill()
            process.wait()


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    if not shutil.which("prometheus"):
        sys.exit("alerts_trial: there is no prometheus (Debian's package of that name)")
    with tempfile.TemporaryDirectory(prefix="mf-alerts-") as directory:
        trial = Trial(Path(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 6, Path(directory))
        try:
            trial.run()
        except BaseException:
            print((Path(directory) / "host.log").read_text()[-4000:], file=sys.stderr)
            raise
        finally:
            trial.stop()


if __name__ == "__main__":
    main()
