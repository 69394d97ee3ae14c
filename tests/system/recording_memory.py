#!/usr/bin/python3
"""The demo workplace, recorded, with FIDs that its drivers send round all the time: whether the host or a driver process has grown
between the tenth minute and the last. usage: tests/system/recording_memory.py BUILD [MINUTES [ROUNDS]]
  BUILD    the build tree with the demo
  MINUTES  for which it runs (60); what there is after a sixth of them is what the end is held against
  ROUNDS   how often a second a FID goes round all drivers, each round with two more values (40)"""

import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 60
# Of the memory that is no file's; an allocator may keep what a thread had in its worst moment.
MOST_GROWTH_KB = 1024
# The keeper's largest directory, and what it may be over it while it writes.
MOST_KEPT_KB = (1024 + 16) * 1024
FIELDS = {"RssAnon": "own", "RssShmem": "rings and queues", "Pss": "PSS", "VmRSS": "resident"}


def memory_of(pid):
    """KB by name: resident memory, what of it is no file's, what is memory that processes share; its share of all."""
    found = {}
    for name in ("status", "smaps_rollup"):
        for line in Path(f"/proc/{pid}/{name}").read_text().splitlines():
            field, _, value = line.partition(":")
            if field in FIELDS:
                found[FIELDS[field]] = int(value.split()[0])
    return found


def children_of(pid):
    return [int(child) for task in Path(f"/proc/{pid}/task").iterdir() for child in (task / "children").read_text().split()]


def kept_kb(directory):
    return sum(file.stat().st_size for file in (directory / "recording").rglob("*") if file.is_file()) // 1024


class Demo:
    """The workplace in a sandbox, with commands at its standard input."""

    def __init__(self, build, directory):
        self.directory = directory
        self.log = directory / "log"
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(
                [build / "bin/mfhost", "--drivers", build / "lib/mfdrivers", "--config", build / "workplace/demo.xml", "--trust", build / "workplace/trust",
                 "--workdir", directory, "--sandbox", "--start-wait=attached", "--control", directory / "control"],
                stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=log, text=True, bufsize=1)  # fmt: skip
        self.wait("the workplace is started", lambda: "the workplace is started" in self.log.read_text())

    def wait(self, what, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end or self.process.poll() is not None:
                raise SystemExit(f"recording_memory: not within {PATIENCE} s: {what}\n{self.log.read_text()}")
            time.sleep(0.05)

    def type(self, line):
        self.process.stdin.write(line + "\n")

    def records(self, build):
        """How many there are in rings and segments, as mfctl counts them."""
        command = [build / "bin/mfctl", "--host", self.directory / "control", "recording", "stats"]
        return subprocess.run(command, capture_output=True, text=True, timeout=600).stdout

    def processes(self):
        """The host, and the processes of its drivers."""
        found = {"host": self.process.pid}
        waiting = children_of(self.process.pid)
        while waiting:
            pid = waiting.pop()
            waiting += children_of(pid)
            words = Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
            name = Path(words[0].decode(errors="replace")).name
            found[f"{name} {pid}" if name in found else name] = pid
        return found

    def stop(self):
        try:
            with self.process.stdin:
                self.type("quit")
        except BrokenPipeError:
            pass
        try:
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return "killed"


def tell(demo, minutes):
    memory = {name: memory_of(pid) for name, pid in demo.processes().items()}
    for name, each in memory.items():
        print(f"recording_memory: after {minutes:.0f} min {name}: " + ", ".join(f"{each[field]} KB {field}" for field in FIELDS.values()))
    print(f"recording_memory: after {minutes:.0f} min {kept_kb(demo.directory)} KB kept", flush=True)
    return memory


def run(demo, minutes, rounds, faults):
    demo.type("sendFID SYS.INTERVAL ms=50")
    demo.type("sendFID LOCAL.INTERVAL ms=50")
    begin, sent, told = time.monotonic(), 0, 1
    first = memory = None
    while True:
        seconds = time.monotonic() - begin
        if seconds >= told * max(minutes, 1) * 60 / max(minutes, 6):
            memory = tell(demo, seconds / 60)
            if first is None and seconds >= minutes * 10:
                first = memory
            told += 1
        if seconds >= minutes * 60 and first is not None and first is not memory:
            break
        sent += 1
        # From the host's process into the other one, back, and back again: two drivers show the text.
        demo.type(f"sendFID LOCAL.FORWARD fid=SYS.FORWARD fid=LOCAL.MARK text=round{sent}")
        demo.type(f"sendFID SYS.MARK text=round{sent}")
        time.sleep(max(0, begin + sent / rounds - time.monotonic()))
    print(f"recording_memory: {sent} rounds, {sent / seconds:.1f} a second")
    if memory.keys() != first.keys():
        faults.append(f"the processes are {', '.join(memory)}, and were {', '.join(first)}")
    for name in memory.keys() & first.keys():
        growth = memory[name]["own"] - first[name]["own"]
        print(f"recording_memory: {name} has {growth:+} KB of its own since minute {minutes / 6:.0f}")
        if growth > MOST_GROWTH_KB:
            faults.append(f"{name} has grown from {first[name]['own']} to {memory[name]['own']} KB of its own; {MOST_GROWTH_KB} KB more are allowed")
    if kept_kb(demo.directory) > MOST_KEPT_KB:
        faults.append(f"the keeper has {kept_kb(demo.directory)} KB, and may have {MOST_KEPT_KB}")
    elif kept_kb(demo.directory) == 0:
        faults.append("nothing is kept: it has not recorded")


def main():
    build = Path(sys.argv[1]).resolve()
    minutes = float(sys.argv[2]) if len(sys.argv) > 2 else 60
    rounds = float(sys.argv[3]) if len(sys.argv) > 3 else 40
    faults = []
    with tempfile.TemporaryDirectory(prefix="mfhost-recording-") as directory:
        demo = Demo(build, Path(directory))
        try:
            run(demo, minutes, rounds, faults)
            print(demo.records(build), end="")
        except (BrokenPipeError, FileNotFoundError, ProcessLookupError) as gone:
            faults.append(f"a process has ended: {gone}\n{demo.log.read_text()}")
        finally:
            ended = demo.stop()
        if ended != 0:
            faults.append(f"the host ended with {ended}")
    for fault in faults:
        print(f"recording_memory: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
