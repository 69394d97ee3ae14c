#!/usr/bin/env python3
"""The lines between the two workplaces of the demo site and their broker, as a driver of one of them."""

import os
import socket
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
import mfdqueue  # noqa: E402  # it lies beside the hosts' other drivers

COMMANDS = {"CUT": "cut", "HALF": "half", "HEAL": "heal", "MUTE": "mute"}


def ask(command):
    """What the site answers; OSError where it does not."""
    with socket.socket(socket.AF_UNIX) as line:
        line.settimeout(10)
        line.connect(os.environ["MFD_SITE_CONTROL"])
        line.sendall(command.encode() + b"\n")
        return line.makefile().read()


class Line(mfdqueue.Driver):
    """Takes CUT, HALF, HEAL and MUTE site=north or south; shows NORTH and SOUTH: whole, half, mute or cut."""

    interval = 1.0

    def completed(self):
        self.tick()

    def fid(self, name, parameters):
        if name not in COMMANDS:
            mfdqueue.log(f'unknown FID "{name}"; known are CUT, HALF, HEAL, MUTE', mfdqueue.WARNING)
            return
        site = dict(parameters).get("site", "north")
        outcome, _, text = ask(f"{COMMANDS[name]} {site}").partition("\n")
        if outcome != "done":
            mfdqueue.log(f"{name} is not done: {text.strip()}", mfdqueue.WARNING)
        self.tick()

    def tick(self):
        for line in ask("lines").splitlines()[1:]:
            site, _, state = line.partition(" ")
            self.set(site, state)


if __name__ == "__main__":
    sys.exit(Line.main())
