#!/usr/bin/env python3
"""A lamp in Python: what a driver in another language looks like."""

import os
import sys

import mfdqueue


class Lamp(mfdqueue.Driver):
    """Takes ON, OFF and LEVEL percent=0..100; shows LIT and LEVEL, and triggers SWITCHED."""

    def __init__(self, driver_id):
        super().__init__(driver_id)
        self.level = 0

    def completed(self):
        self.report()

    def fid(self, name, parameters):
        if name == "ON":
            self.become(100)
        elif name == "OFF":
            self.become(0)
        elif name == "LEVEL":
            text = dict(parameters).get("percent", "")
            if not text.isascii() or not text.isdigit() or int(text) > 100:
                mfdqueue.log(f'LEVEL ignored, percent="{text}" is not a whole number from 0 to 100', mfdqueue.WARNING)
                return
            self.become(int(text))
        else:
            mfdqueue.log(f'unknown FID "{name}"; known are LEVEL, OFF, ON', mfdqueue.WARNING)

    def become(self, level):
        if (level > 0) != (self.level > 0):
            self.event("SWITCHED", "on" if level else "off")
        self.level = level
        self.report()

    def report(self):
        self.set("LIT", self.level > 0)
        self.set("LEVEL", self.level)

    def show_state(self):
        print(f"a lamp at {self.level} percent, process {os.getpid()}")

    def stop(self):
        mfdqueue.log(f"goes out at {self.level} percent")


if __name__ == "__main__":
    sys.exit(Lamp.main())
