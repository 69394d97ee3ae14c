#!/usr/bin/python3
"""What is too long for the tests of the page: accessibility at every width, dark and light; 10,000 updates a second,
for a minute as well; pictures of all pages. usage: tests/panel/check.py AXE DIRECTORY
  AXE        axe.min.js of axe-core
  DIRECTORY  for the pictures"""

import base64
import sys
import threading
import time
from pathlib import Path

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

from browser import Browser  # noqa: E402
from standin import StandIn, demo, driver, value  # noqa: E402

# What each view is called in a picture's name, and its address.
PAGES = {name: name for name in ("now", "values", "stream", "send", "plan", "wall", "sessions")}
PAGES |= {"value": "values?value=AXIS1.POSITION", "driver": "now?driver=AXIS3", "silence": "silence", "help": "help"}
WIDTHS = [(360, 740), (1280, 800), (3840, 2160)]
PINS = '["AXIS1.POSITION", "AXIS3.POSITION", "FAN.SPEED", "SYS.LOAD"]'
# How many values take part in 10,000 updates a second, and for how many seconds.
HURRIES = [(10_000, 5), (1_000, 60)]
# Longer than this the page was not to be used.
MOST_BLOCKED = 1.0
# Of one core, for the thread on which the page does all that it does.
MOST_BUSY = 0.3
RULES = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"]
AXE = """const done = arguments[arguments.length - 1];
axe.run(document, {runOnly: arguments[0]}).then((found) => done(found.violations.map((each) =>
    `${each.id}: ${each.help}: ${each.nodes.slice(0, 3).map((node) => node.html.slice(0, 160)).join(" ; ")}`)), (error) => done([String(error)]));"""


def until(condition, seconds=120):
    end = time.monotonic() + seconds
    while not condition() and time.monotonic() < end:
        time.sleep(0.05)
    return condition()


def open_page(browser, host, page):
    browser.driver.get(host.url + "favicon.svg")
    browser.driver.execute_script("localStorage.setItem('mfhost.token', arguments[0])", host.token)
    browser.driver.get(f"{host.url}#{page}")
    if not until(lambda: browser.driver.execute_script("return document.body.dataset.link") == "live"):
        raise SystemExit(f"panel-check: {page} is not live")


def fill(driver_, page):
    """What is only there once somebody has pressed something."""
    if page == "send":
        line = driver_.find_element("css selector", "[role=combobox]")
        line.send_keys("AXIS1.MOVE to=123.4 fast=true\n")
        until(lambda: driver_.find_elements("css selector", ".sent .tile[data-kind=live]"))
    elif page == "plan":
        driver_.find_element("css selector", ".plan button").click()
        until(lambda: driver_.find_elements("css selector", ".result table"))
    elif page in ("value", "driver"):
        until(lambda: driver_.find_elements("css selector", "dialog :is(.chart, .runs)"))


def picture(browser, directory, name):
    data = browser.driver.execute_cdp_cmd("Page.captureScreenshot", {})["data"]
    (directory / f"{name}.png").write_bytes(base64.b64decode(data))


def look(browser, axe, directory, faults):
    """Each page at each width, dark and light, as a picture and through axe; then without its host."""
    host = demo()
    browser.driver.get(host.url + "favicon.svg")
    browser.driver.execute_script("localStorage.setItem('mfhost.pins./etc/mfhost/hall.xml', arguments[0])", PINS)
    stop = threading.Event()

    def move():
        for step in range(10_000):
            if stop.wait(0.5):
                return
            host.put_values(value("AXIS1.POSITION", round(120 + step * 7 % 13 / 2, 1)), value("SYS.LOAD", round(0.4 + step * 5 % 11 / 10, 1)))
            host.tell(drivers=[{**host.drivers["AXIS1"], "receivedPerSecond": 30.0 + step * 7 % 23}, {**host.drivers["AXIS2"], "receivedPerSecond": 20.0 + step * 5 % 17}])

    threading.Thread(target=move, daemon=True).start()
    runs = 0
    for page, address in PAGES.items():
        open_page(browser, host, address)
        fill(browser.driver, page)
        if page == "now":
            time.sleep(12)
        if page == "help":
            browser.driver.execute_script("document.getElementById('help').click()")
        if page == "silence":
            stop.set()
            host.is_beating = False
            until(lambda: browser.driver.execute_script("return document.body.dataset.link") == "silent")
        for width, height in WIDTHS:
            browser.size(width, height)
            for scheme in ("light", "dark"):
                browser.media(prefers_color_scheme=scheme)
                time.sleep(0.2)
                picture(browser, directory, f"{page}-{width}-{scheme}")
                browser.driver.execute_script(axe)
                runs += 1
                faults += [f"{page} at {width}, {scheme}: {each}" for each in browser.driver.execute_async_script(AXE, RULES)]
        host.is_beating = True
    faults += [f"asked for what there is not: {each}" for each in host.faults]
    host.stop()
    print(f"panel-check: {runs} views through axe-core")


def hurry(browser, values, seconds, faults):
    """10,000 updates a second for a table of so many rows, and traffic beside it."""
    host = StandIn()
    host.tell(values=[value(f"D{number % 20}.V{number:04}", 0) for number in range(values)], drivers=[driver(f"D{number}") for number in range(20)])
    browser.size(1280, 800)
    open_page(browser, host, "values")
    browser.driver.execute_script("""window.longest = 0; window.frames = 0; let last = performance.now();
        const frame = () => { const now = performance.now(); window.longest = Math.max(window.longest, now - last); last = now; ++window.frames; requestAnimationFrame(frame); };
        requestAnimationFrame(frame);""")
    begin, sent, busy = time.monotonic(), 0, browser.main_thread_seconds()
    while time.monotonic() - begin < seconds:
        host.put_values(*(value(f"D{number % 20}.V{number % values:04}", sent) for number in range(sent, sent + 500)))
        sent += 500
        time.sleep(max(0, begin + sent / 10_000 - time.monotonic()))
    took = time.monotonic() - begin
    busy = (browser.main_thread_seconds() - busy) / took
    host.tell(values=[value("D0.V0000", 424242)])
    shown = until(lambda: "424242" in browser.driver.execute_script("return document.querySelector('.values mf-rows').innerText"))
    longest, frames = browser.driver.execute_script("return [window.longest, window.frames]")
    print(f"panel-check: {sent / took:.0f} updates a second of {values} values for {took:.1f} s: {frames} frames, none for {longest:.0f} ms at most; "
          f"the page's thread took {busy * 100:.0f} % of a core")  # fmt: skip
    if busy > MOST_BUSY:
        faults.append(f"10,000 updates a second of {values} values took {busy * 100:.0f} % of a core")
    if not shown:
        faults.append("the last value of 10,000 updates a second is not shown")
    if longest > MOST_BLOCKED * 1000:
        faults.append(f"the page stood still for {longest:.0f} ms")
    host.stop()


def main():
    axe, directory = Path(sys.argv[1]).read_text(), Path(sys.argv[2])
    directory.mkdir(parents=True, exist_ok=True)
    faults = []
    browser = Browser()
    try:
        look(browser, axe, directory, faults)
        browser.media()
        for values, seconds in HURRIES:
            hurry(browser, values, seconds, faults)
    finally:
        browser.close()
    print("\n".join(faults) or f"panel-check: nothing is wrong; the pictures are in {directory}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
