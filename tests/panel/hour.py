#!/usr/bin/python3
"""A host with 1,000 values and one page in a browser that goes from part to part: whether either has grown between the tenth and the
last minute. usage: tests/panel/hour.py BUILD [MINUTES]
  BUILD    the build tree with the host
  MINUTES  for which the page is open (60); what there is after a sixth of them is what the end is held against"""

import sys
import time
from pathlib import Path

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

from browser import Browser  # noqa: E402
from many import VALUES  # noqa: E402
from realhost import judged, own_kb  # noqa: E402

EACH_SECOND = 20
PARTS = ["values", "stream", "send", "plan", "wall", "now"]
# Seconds that each part is looked at.
LOOK = 10
MOST_GROWTH = 1.05


def resident_kb(pid):
    status = Path(f"/proc/{pid}/status").read_text()
    return int(status.split("VmRSS:")[1].split()[0])


def page_kb(browser):
    """What it draws with, and its objects, after all that can be thrown away is."""
    own = []
    for _ in range(5):
        browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
        # The browser keeps what it does not need for as long as there is memory: up to a quarter more one time than another.
        browser.driver.execute_cdp_cmd("Memory.simulatePressureNotification", {"level": "critical"})
        time.sleep(2)
        # What processes of the browser share is counted in each of them, and would hide what one of them gains.
        own.append(sum(own_kb(pid) for pid in browser.renderers()))
    metrics = {each["name"]: each["value"] for each in browser.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]}
    return min(own), metrics["JSHeapUsedSize"] / 1024, metrics["Nodes"]


def say(minutes, host, browser):
    page, heap, nodes = page_kb(browser)
    memory = {"host": resident_kb(host.process.pid), "page": page}
    print(f"hour: after {minutes:.0f} min the host has {memory['host']} KB resident ({host.private_kb()} KB its own), the page {page} KB its own "
          f"({heap:.0f} KB of objects, {nodes:.0f} nodes)", flush=True)  # fmt: skip
    return memory


def run(host, browser, minutes, faults):
    driver = browser.driver
    driver.get(host.url + "favicon.svg")
    driver.execute_script("localStorage.setItem('mfhost.token', arguments[0])", host.sign_in())
    driver.execute_cdp_cmd("Performance.enable", {})
    for number in range(VALUES):
        host.set(f"SHOW.V{number:04}", 0)
    driver.get(f"{host.url}#now")
    begin, sent, shown, told = time.monotonic(), 0, 0, 1
    first = None
    while True:
        seconds = time.monotonic() - begin
        if seconds >= shown * LOOK:
            driver.execute_script("location.hash = arguments[0]", PARTS[shown % len(PARTS)])
            shown += 1
        if seconds >= told * minutes * 10:
            # The same part each time.
            driver.execute_script("location.hash = 'now'")
            memory = say(seconds / 60, host, browser)
            first = first or memory
            told += 1
        if seconds >= minutes * 60:
            break
        sent += 1
        host.set(f"SHOW.V{sent % VALUES:04}", sent)
        time.sleep(max(0, begin + sent / EACH_SECOND - time.monotonic()))
    if driver.execute_script("return document.body.dataset.link") != "live":
        faults.append("hour: the page is not live at the end")
    for name, kb in memory.items():
        growth = kb / first[name]
        print(f"hour: the {name} has {growth * 100 - 100:+.1f} % of what it had after a sixth of the time")
        if growth > MOST_GROWTH:
            faults.append(f"hour: the {name} has grown from {first[name]} to {kb} KB")


def main():
    build, minutes = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 60
    browser = Browser()
    try:
        return judged("hour", build, lambda host, faults: run(host, browser, minutes, faults))
    finally:
        browser.close()


if __name__ == "__main__":
    sys.exit(main())
