#!/usr/bin/python3
"""A host with 1,000 values and one page in a browser that goes from part to part: whether what is resident of either, or what the
page has written itself, has grown between the tenth and the last minute. A browser's memory grows by itself while a page draws, so a page
that hears of nothing and draws as often is open beside it, in a browser of its own: what that one gains is not our page's. usage: tests/panel/hour.py BUILD [MINUTES]
  BUILD    the build tree with the host
  MINUTES  for which the page is open (60); what there is after a sixth of them is what the end is held against"""

import sys
import time
from pathlib import Path
from urllib.parse import quote

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

from browser import Browser  # noqa: E402
from many import VALUES  # noqa: E402
from realhost import judged, own_kb, resident_kb  # noqa: E402

EACH_SECOND = 20
PARTS = ["values", "stream", "send", "plan", "wall", "now"]
# Seconds that each part is looked at.
LOOK = 10
MOST_GROWTH = 1.05
# Else a process that the browser keeps ready for a page to come, and pages that were left, are counted as the page's.
SWITCHES = ["--disable-features=SpareRendererForSitePerProcess,BackForwardCache"]
# As many parts, texts and new texts a second as our page has rows in sight and is told values.
REFERENCE = """<!doctype html><title>reference</title><style>p { display: inline-block; width: 12em; border: 1px solid }</style><main></main><script>
    const parts = Array.from({length: 6}, () => {
        const part = document.createElement("div");
        for (let number = 0; number < 60; ++number)
            part.append(document.createElement("p"));
        for (const each of part.children)
            each.append(document.createTextNode("0"));
        return part;
    });
    const main = document.querySelector("main");
    let told = 0;
    window.show = (part) => main.replaceChildren(parts[part]);
    show(0);
    setInterval(() => { main.firstChild.children[++told % 60].firstChild.data = String(told); }, 50);
</script>"""


def page_kb(browser):
    """What is resident of it, what of that it has written itself, and its objects, after all that can be thrown away is: the least of
    several times."""
    resident, own, objects = [], [], []
    for _ in range(5):
        browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
        # The browser keeps what it does not need for as long as there is memory: up to a quarter more one time than another.
        browser.driver.execute_cdp_cmd("Memory.simulatePressureNotification", {"level": "critical"})
        time.sleep(2)
        resident.append(sum(resident_kb(pid) for pid in browser.renderers()))
        # What processes of the browser share is counted in each of them, and would hide what one of them gains.
        own.append(sum(own_kb(pid) for pid in browser.renderers()))
        metrics = {each["name"]: each["value"] for each in browser.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]}
        objects.append(metrics["JSHeapUsedSize"] / 1024)
    return min(resident), min(own), min(objects), metrics["Nodes"]


def say(minutes, host, browser, reference):
    page, own, objects, nodes = page_kb(browser)
    others, others_own = page_kb(reference)[:2]
    memory = {"host": resident_kb(host.process.pid), "page": page, "page's own": own, "page's objects": objects, "reference": others,
              "reference's own": others_own}  # fmt: skip
    print(f"hour: after {minutes:.0f} min the host has {memory['host']} KB resident ({host.private_kb()} KB its own), the page {page} KB "
          f"({own} KB its own, {objects:.0f} KB of objects, {nodes:.0f} nodes), the reference page {others} KB ({others_own} KB its own)", flush=True)  # fmt: skip
    return memory


def judge(first, last, faults):
    """What is resident may grow by so much, and what the page has written itself without what the reference page has gained."""
    for name in ("host", "page", "page's own", "page's objects"):
        others = last["reference's own"] - first["reference's own"] if name == "page's own" else 0
        growth = (last[name] - others) / first[name]
        beyond = f", without the {others} KB that the reference page has gained: {growth * 100 - 100:+.1f} %" if name == "page's own" else ""
        print(f"hour: the {name}: {last[name] / first[name] * 100 - 100:+.1f} % of what there was after a sixth of the time{beyond}")
        if growth > MOST_GROWTH:
            faults.append(f"hour: the {name}: grown from {first[name]:.0f} to {last[name]:.0f} KB{beyond}")


def run(host, browser, reference, minutes, faults):
    driver = browser.driver
    driver.get(host.url + "favicon.svg")
    driver.execute_script("localStorage.setItem('mfhost.token', arguments[0])", host.sign_in())
    for number in range(VALUES):
        host.set(f"SHOW.V{number:04}", 0)
    driver.get(f"{host.url}#now")
    reference.driver.get(f"data:text/html,{quote(REFERENCE)}")
    for each in (browser, reference):
        each.driver.execute_cdp_cmd("Performance.enable", {})
    begin, sent, shown, told = time.monotonic(), 0, 0, 1
    first = None
    while True:
        seconds = time.monotonic() - begin
        if seconds >= shown * LOOK:
            part = shown % len(PARTS)
            driver.execute_script("location.hash = arguments[0]", PARTS[part])
            reference.driver.execute_script("show(arguments[0])", part)
            shown += 1
        if seconds >= told * minutes * 10:
            # The same part each time.
            driver.execute_script("location.hash = 'now'")
            memory = say(seconds / 60, host, browser, reference)
            first = first or memory
            told += 1
        if seconds >= minutes * 60:
            break
        sent += 1
        host.set(f"SHOW.V{sent % VALUES:04}", sent)
        time.sleep(max(0, begin + sent / EACH_SECOND - time.monotonic()))
    if driver.execute_script("return document.body.dataset.link") != "live":
        faults.append("hour: the page is not live at the end")
    judge(first, memory, faults)


def main():
    build, minutes = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 60
    browser, reference = Browser(switches=SWITCHES), Browser(switches=SWITCHES)
    try:
        return judged("hour", build, lambda host, faults: run(host, browser, reference, minutes, faults))
    finally:
        browser.close()
        reference.close()


if __name__ == "__main__":
    sys.exit(main())
