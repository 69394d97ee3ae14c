#!/usr/bin/python3
"""The web panel's page in a real browser, beside a stand-in for the host. One browser serves all tests; each has a host of
its own, and so an origin of its own.
usage: tests/panel/page_test.py [--shard I/N] [unittest's words]
  --shard I/N  every Nth test, from the Ith on"""

import gzip
import os
import shutil
import sys
import time
import unittest
from pathlib import Path
from urllib.parse import quote

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

MISSING = [name for name in ("chromium", "chromedriver") if not shutil.which(name)]
try:
    import selenium  # noqa: F401
except ImportError:
    MISSING.append("python3-selenium")
if MISSING:
    # ctest takes this exit code for a skipped test; ./dev test shows the reason.
    print(f"skipped: {', '.join(MISSING)} missing (tools/run/packages panel installs it)")
    sys.exit(77)

from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402

from browser import Browser  # noqa: E402
from standin import StandIn, driver, iso, link, value  # noqa: E402

# How long a condition may take on a machine that does much else.
PATIENCE = 60
SHARD = slice(None)
TEXTS = """
const out = {};
const t = await import("/text.js");
out.ages = [0, 119999, 120000, 7199999, 7200000, 172800000].map(t.ageText);
out.rates = [0, 0.42, 12.4, 1234, 12345].map(t.rateText);
out.fids = ['AXIS1.MOVE to=10 note="a b"', 'AXIS1', 'AXIS1.MOVE fast', 'A.B x="'].map(t.parseFid);
out.line = t.fidText("A.B", [["x", "a b"], ["y", ""], ["z", "1"]]);
out.filters = [["axis pos", "AXIS1.POSITION"], ["AXIS*.POS*", "AXIS1.POSITION"], ["pos*", "AXIS1.POSITION"], ["-axis", "AXIS1.POSITION"],
    ["[1", "AXIS[1].X"]].map(([filter, text]) => t.filterOf(filter)(text));
out.time = [t.hostTime("2026-11-22T15:47:45.148Z"), t.hostTime("2026-11-22T15:47:45.148252Z"), t.hostTime(null)];
const {completions} = await import("/complete.js");
const known = {drivers: new Map([["AXIS1", {status: "running"}], ["LAMP", {status: "ended"}]]), functions: new Map([["AXIS1", new Map([["MOVE", new Set(["to", "fast"])], ["STOP", new Set()]])]])};
out.completions = ["ax", "AXIS1.", "AXIS1.M", "AXIS1.MOVE ", "AXIS1.MOVE to=1 ", "AXIS1.MOVE to="].map((line) => completions(line, line.length, known).items.map((item) => item.text));
const {lineDiff} = await import("/diff.js");
out.diff = lineDiff("a\\nb\\nc\\nd", "a\\nc\\nx\\nd").map(({sign, text}) => sign + text);
const {Model} = await import("/model.js");
const model = new Model();
const number = (key, version) => ({key, type: "int", value: version, text: String(version), owner: "A", start: 1, ageMs: 2000, version, stale: null});
model.begin({instance: "i"});
out.model = [model.apply({from: 3, to: 4, time: 1e9}), model.apply({from: 0, to: 4, time: 1e9, values: [number("A.X", 1), number("A.Y", 1)]}),
    model.values.get("A.X").us, model.apply({from: 5, to: 6, time: 1e9}), model.apply({from: 4, to: 7, time: 2e9, gone: ["A.X"]}),
    [...model.values.keys()], model.apply({from: 0, to: 9, time: 3e9, values: [number("A.Z", 1)]}), [...model.values.keys()]];
for (let number = 0; number < 5950; ++number)
    model.apply({from: 9, to: 9, time: 3e9, records: [{number, kind: "event", driver: "A", key: "A.E", value: ""}]});
out.records = [model.records.length, model.records[0].number];
return out;
"""


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.driver = cls.browser.driver

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()

    def setUp(self):
        self.hosts = []
        # What the browser itself complains of: a policy that is broken, an error that nothing catches.
        self.driver.get_log("browser")

    def tearDown(self):
        self.driver.get("about:blank")
        bad = [each["message"] for each in self.driver.get_log("browser")
               if each["source"] in ("javascript", "security") or "Content Security" in each["message"]]  # fmt: skip
        for host in self.hosts:
            host.stop()
        self.assertEqual(bad, [])
        for host in self.hosts:
            self.assertEqual(host.faults, [])

    # --- what the tests are written with ---

    def host(self, **settings):
        host = StandIn(**settings)
        self.hosts.append(host)
        return host

    def open(self, host, page="now", signed_in=True):
        if signed_in:
            # A file of the origin that starts nothing.
            self.driver.get(host.url + "favicon.svg")
            self.driver.execute_script("localStorage.setItem('mfhost.token', arguments[0])", host.token)
        self.driver.get(f"{host.url}#{page}")
        if signed_in:
            self.wait_for_link("live")

    def js(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def wait(self, what, condition):
        end = time.monotonic() + PATIENCE
        while True:
            found = condition()
            if found:
                return found
            if time.monotonic() > end:
                self.fail(f"not within {PATIENCE} s: {what}; the page says: {self.text()}")
            time.sleep(0.05)

    def wait_for_link(self, state):
        self.wait(f"the link is {state}", lambda: self.js("return document.body.dataset.link") == state)

    def wait_for(self, text, selector="body"):
        self.wait(f'"{text}" in {selector}', lambda: text in self.text(selector))

    def text(self, selector="body"):
        return self.js("return [...document.querySelectorAll(arguments[0])].map((each) => each.innerText).join(' | ')", selector)

    def click(self, text, within="body"):
        """A button by its text or its name."""
        found = self.js("""return [...document.querySelectorAll(arguments[0] + " button")].find((each) =>
            each.innerText === arguments[1] || each.ariaLabel === arguments[1])""", within, text)  # fmt: skip
        self.assertIsNotNone(found, f'no button "{text}" in: {self.text(within)}')
        found.click()

    def keys(self, *keys):
        self.driver.switch_to.active_element.send_keys(*keys)

    def row(self, key):
        """The cells of a value's row, as they are seen."""
        rows = self.js("""return [...document.querySelectorAll(".values .row")].map((row) => [...row.children].map((cell) => cell.innerText))""")
        return next((row for row in rows if row[1] == key), None)

    # --- signing in ---

    def test_code_in_the_address_opens_a_session_and_is_gone_from_it(self):
        host = self.host()
        self.open(host, "code=open-sesame", signed_in=False)
        self.wait_for_link("live")
        self.assertEqual(self.js("return [location.hash, localStorage.getItem('mfhost.token')]"), ["#now", "token-1"])
        self.assertEqual(host.codes, {"123456"})

    def open_by_name(self, host, page="#code=open-sesame"):
        """The machine's own name: the page cannot tell that it leads to the machine itself."""
        self.driver.get(host.url.replace("127.0.0.1", "hall.localhost") + page)

    def test_token_is_kept_under_every_name_of_the_machine(self):
        host = self.host()
        self.open_by_name(host)
        self.wait_for_link("live")
        self.driver.refresh()
        self.wait_for_link("live")
        self.click("Sign out")
        self.wait_for("Sign in", "main")
        self.assertEqual(self.js("return localStorage.getItem('mfhost.token')"), None)

    def test_where_the_host_keeps_a_cookie_no_script_sees_it(self):
        host = self.host()
        host.by_cookie = True
        # One of a host that was reached under this name as its own machine's.
        self.open_by_name(host, "favicon.svg")
        self.js("localStorage.setItem('mfhost.token', 'token-0')")
        self.open_by_name(host)
        self.wait_for_link("live")
        self.driver.refresh()
        self.wait_for_link("live")
        self.assertEqual(self.js("return [document.cookie, localStorage.getItem('mfhost.token')]"), ["", None])
        self.assertEqual([each["httpOnly"] for each in self.driver.get_cookies()], [True])

    def test_wrong_digits_are_told_and_right_ones_open_a_session(self):
        host = self.host()
        self.open(host, "values", signed_in=False)
        self.wait_for("Sign in", "main")
        self.keys("654321", Keys.ENTER)
        self.wait_for("This code does not hold.", "main .error")
        self.js("document.getElementById('code').value = ''")
        self.keys("123456", Keys.ENTER)
        self.wait_for_link("live")
        self.assertEqual(self.js("return location.hash"), "#values")

    def test_session_that_is_ended_elsewhere_leads_to_signing_in(self):
        host = self.host()
        self.open(host)
        host.bye("revoked", "Your session was ended.")
        self.wait_for("Your session was ended.", "main")
        self.assertEqual(self.js("return localStorage.getItem('mfhost.token')"), None)
        self.assertFalse(self.js("return [...document.querySelectorAll('nav')].some((each) => each.checkVisibility())"))

    # --- values ---

    def test_live_stale_and_unknown_are_three_signs(self):
        host = self.host()
        host.put_values(value("AXIS1.POSITION", 5), value("LAMP.ON", True, stale="signal 9 (Killed)", age_ms=130_000))
        self.open(host)
        self.js("localStorage.setItem('mfhost.pins.hall.xml', '[\"FAN.SPEED\"]')")
        self.open(host, "values")
        self.wait("three rows", lambda: self.row("LAMP.ON") and self.row("FAN.SPEED"))
        self.assertEqual(self.row("AXIS1.POSITION")[2:5:2], ["5", "live"])
        self.assertEqual(self.row("LAMP.ON")[2:7], ["true", "", "stale: signal 9 (Killed)", "2 min", "LAMP"])
        self.assertEqual(self.row("FAN.SPEED")[2:6], ["", "", "not known", ""])
        shapes = self.js("""return [...document.querySelectorAll(".values .row .sign")].map((each) => {
            const style = getComputedStyle(each, "::before"); return `${style.clipPath} ${style.borderTopStyle}`; })""")
        self.assertEqual(len(set(shapes)), 3, shapes)

    def test_change_is_written_into_the_cell_that_is_there(self):
        host = self.host()
        host.put_values(value("A.X", 1), value("A.Y", 2))
        self.open(host, "values")
        self.wait("a row", lambda: self.row("A.X"))
        self.js("""const cells = [...document.querySelectorAll(".values .row .cell.text")];
            window.kept = cells.find((cell) => cell.innerText === "1").firstChild;
            window.writes = 0;
            new MutationObserver((records) => { window.writes += records.length; }).observe(cells.find((cell) => cell.innerText === "2"),
                {characterData: true, childList: true, subtree: true});""")
        host.put_values(value("A.X", 7))
        self.wait("the new value", lambda: self.row("A.X")[2] == "7")
        # Ages are written each second, but nothing that is as it was.
        former = self.row("A.Y")[5]
        self.wait("another age", lambda: self.row("A.Y")[5] != former)
        self.assertEqual(self.js("return [window.kept.data, window.kept.isConnected, window.writes]"), ["7", True, 0])
        host.tell(gone=["A.X"])
        self.wait("no row", lambda: self.row("A.X") is None)

    def test_ten_thousand_values_are_few_rows_filtered_while_typing(self):
        host = self.host()
        host.put_values(*(value(f"D{number % 20}.V{number}", number) for number in range(10_000)))
        self.open(host, "values")
        self.wait_for("10000 values", ".tools")
        self.assertLess(self.js("return document.querySelectorAll('.values .row').length"), 80)
        self.keys("/")
        self.keys("v9999")
        self.wait_for("1 of 10000 values", ".tools")
        self.assertEqual(self.row("D19.V9999")[2], "9999")
        self.assertEqual(self.js("return location.hash"), "#values?filter=v9999")
        self.open(host, "values?filter=D7.*&show=live")
        self.wait_for("500 of 10000 values", ".tools")
        # By keys alone: into the table, to its end, pin, open.
        self.js("document.querySelector('.rows-scroll').focus()")
        self.keys(Keys.END, "p")
        self.wait("a pin", lambda: self.js("return localStorage.getItem('mfhost.pins.hall.xml')") == '["D7.V9987"]')
        self.keys(Keys.ENTER)
        self.wait_for("D7.V9987", "dialog h2")
        self.keys(Keys.ESCAPE)
        self.wait("no dialog", lambda: not self.text("dialog"))

    def test_table_of_values_is_laid_out_once_a_second_and_not_once_a_row(self):
        host = self.host()
        host.put_values(*(value(f"A.V{number:02}", number) for number in range(20)))
        self.open(host, "values")
        self.wait("its rows", lambda: self.row("A.V19"))
        self.driver.execute_cdp_cmd("Performance.enable", {})
        metrics = lambda: self.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]  # noqa: E731
        layouts = lambda: next(each["value"] for each in metrics() if each["name"] == "LayoutCount")  # noqa: E731
        self.js("""window.seconds = 0;
            new MutationObserver(() => { ++window.seconds; }).observe(document.querySelector(".values .row .cell.age"), {characterData: true, subtree: true});""")
        before = layouts()
        self.wait("four seconds", lambda: self.js("return window.seconds") >= 4)
        seconds, laid_out = self.js("return window.seconds"), layouts() - before
        self.assertLess(laid_out, seconds * 10)
        # With its own place in the row it is still all there.
        self.assertEqual(self.js("return [...document.querySelectorAll('.values .row .cell.age')].filter((cell) => cell.scrollWidth > cell.clientWidth).length"), 0)

    def test_curve_is_drawn_anew_where_it_would_look_otherwise_and_only_there(self):
        host = self.host()
        self.open(host)
        done = self.driver.execute_async_script("""const done = arguments[0]; (async () => {
            const {History} = await import("/history.js");
            const drawn = () => { const {data} = curve.firstChild.getContext("2d").getImageData(0, 0, curve.firstChild.width, curve.firstChild.height);
                return data.some((each) => each > 0); };
            const strokes = CanvasRenderingContext2D.prototype.stroke;
            let count = 0;
            CanvasRenderingContext2D.prototype.stroke = function () { ++count; strokes.call(this); };
            const taken = () => { const before = count; count = 0; return before; };
            // The observer of sizes speaks after a frame's layout.
            const frame = () => new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));
            const out = [];
            const curve = document.createElement("mf-spark");
            document.getElementById("banners").append(curve);
            const history = new History();
            const draw = () => curve.draw(history, {words: ({low, high}) => `${low} to ${high}`});
            draw();
            await frame();
            out.push(["nothing is known", drawn(), taken(), curve.ariaLabel]);
            history.add(1);
            history.add(5);
            draw();
            await frame();
            out.push(["two samples", drawn(), taken(), curve.ariaLabel]);
            draw();
            out.push(["the same ones", drawn(), taken()]);
            curve.style.width = "40px";
            await frame();
            out.push(["another width", drawn(), taken(), curve.firstChild.width / devicePixelRatio]);
            document.documentElement.dataset.theme = "dark";
            draw();
            out.push(["another colour", drawn(), taken()]);
            for (let number = 0; number < 60; ++number)
                history.add(7);
            draw();
            out.push(["a minute of one number", drawn(), taken(), curve.ariaLabel]);
            history.add(7);
            draw();
            out.push(["the same number", drawn(), taken()]);
            curve.remove();
            await frame();
            history.add(8);
            draw();
            out.push(["out of the document", taken()]);
            document.getElementById("banners").append(curve);
            await frame();
            out.push(["back in it", drawn(), taken(), curve.ariaLabel]);
            for (let number = 0; number < 60; ++number)
                history.add(NaN);
            draw();
            out.push(["nothing is known any more", drawn(), taken(), curve.ariaLabel]);
            CanvasRenderingContext2D.prototype.stroke = strokes;
            return out;
        })().then(done, (error) => done(String(error)));""")
        self.assertEqual(done, [
            ["nothing is known", False, 0, "no curve yet"],
            ["two samples", True, 1, "1 to 5"],
            ["the same ones", True, 0],
            ["another width", True, 1, 40],
            ["another colour", True, 1],
            ["a minute of one number", True, 1, "7 to 7"],
            ["the same number", True, 0],
            ["out of the document", 0],
            ["back in it", True, 1, "7 to 8"],
            ["nothing is known any more", False, 0, "no curve yet"],
        ])  # fmt: skip

    # --- what was ---

    HISTORY = {
        "key": "AXIS1.POSITION", "from": "2026-11-22T13:00:00.000000Z", "to": "2026-11-22T14:00:00.000000Z", "changes": 2, "thinned": False, "held": None,
        "points": [{"time": "2026-11-22T13:15:00.000000Z", "value": 5, "text": "5"}, {"time": "2026-11-22T13:45:00.000000Z", "value": 9, "text": "9"}],
        "last": [
            {"number": 8, "time": "2026-11-22T13:45:00.000000Z", "value": 9, "text": "9", "before": [
                {"number": 7, "time": "2026-11-22T13:44:59.998800Z", "kind": "fid", "driver": "host", "fid": "AXIS1.MOVE", "parameters": [["to", "9"]],
                 "receiver": "AXIS1", "origin": "panel", "who": "anna (web session 4 from 192.0.2.7)", "outcome": "written", "beforeUs": 1200},
                {"number": 6, "time": "2026-11-22T13:44:59.000000Z", "kind": "fid", "driver": "SYS", "fid": "AXIS1.WAKE", "parameters": [],
                 "receiver": "AXIS1", "origin": "driver", "outcome": "refused", "beforeUs": 1000000}]},
            {"number": 2, "time": "2026-11-22T13:15:00.000000Z", "value": 5, "text": "5", "before": []}],
        "gaps": [{"reason": "not-recorded", "from": "2026-11-22T13:00:00.000000Z", "to": "2026-11-22T13:10:00.000000Z", "text": "nothing was recorded"},
                 {"reason": "stale", "from": "2026-11-22T13:30:00.000000Z", "to": "2026-11-22T13:45:00.000000Z", "text": "signal 11"}],
        "now": None}  # fmt: skip

    def test_value_is_opened_by_its_address_with_its_last_hour(self):
        host = self.host()
        host.put_values(value("AXIS1.POSITION", 9))
        host.pasts["/state/AXIS1.POSITION/history"] = (200, self.HISTORY)
        self.open(host, "values?filter=axis&value=AXIS1.POSITION")
        self.wait_for("2 changes in the hour before", "dialog .past")
        self.assertEqual(self.text("dialog h2"), "AXIS1.POSITION")
        # What it is now came later than the card was opened.
        self.assertEqual(self.js("return ['value', 'type'].map((each) => document.getElementById(`new-${each}`).value)"), ["9", "int"])
        self.assertLessEqual(*self.js("const card = document.querySelector('dialog'); return [card.scrollWidth, card.clientWidth]"))
        chart = self.js("const svg = document.querySelector('dialog .chart'); return [svg.role, svg.ariaLabel]")
        self.assertEqual(chart[0], "img")
        self.assertRegex(chart[1], r"^between 5 and 9 from \d\d:00:00 to \d\d:00:00, with 2 gaps$")
        self.assertRegex(self.text("dialog .gaps"), r"\d\d:00:00 to \d\d:10:00: nothing was recorded\s+\d\d:30:00 to \d\d:45:00: stale: signal 11")
        self.assertEqual(self.js("return [...document.querySelectorAll('dialog .before li')].map((each) => each.innerText)"), [
            "1.2 ms before it AXIS1.MOVE to=9, sent from the web panel by anna (web session 4 from 192.0.2.7)",
            "1.0 s before it AXIS1.WAKE, sent by SYS: refused"])  # fmt: skip
        self.assertIn("nothing was sent to AXIS1", self.text("dialog tbody tr:last-child"))
        self.assertIn("It came before it; whether it is the reason, nobody has recorded.", self.text("dialog .past"))
        self.keys(Keys.ESCAPE)
        self.wait("the table's address", lambda: self.js("return location.hash") == "#values?filter=axis")
        self.assertEqual(self.text("dialog"), "")

    def test_line_of_a_value_ends_where_a_gap_begins(self):
        host = self.host()
        self.open(host)
        pieces = self.driver.execute_async_script("""const [history, done] = arguments; (async () => {
            const {piecesOf} = await import("/chart.js"); const {hostTime} = await import("/text.js");
            const minutes = (change) => piecesOf({...history, ...change}).map((piece) =>
                [piece.from, piece.to].map((us) => (us - hostTime(history.from)) / 6e7).concat(piece.value));
            const text = (time, value) => ({time: `2026-11-22T13:${time}:00.000000Z`, value, text: ""});
            const live = {value: 4, stale: null};
            return [minutes({}), minutes({held: text("00", 3), gaps: []}), minutes({points: [], gaps: [], now: live}),
                minutes({points: [], now: live}), minutes({points: [], gaps: [], now: {...live, stale: {cause: "x"}}}),
                minutes({points: [text("15", 5), text("20", null)], gaps: []}), minutes({points: [text("15", true)], gaps: []}),
                minutes({points: [text("15", "left")], gaps: []})];
            })().then(done, (error) => done(String(error)));""", self.HISTORY)  # fmt: skip
        self.assertEqual(pieces, [
            [[15, 30, 5], [45, 60, 9]],
            [[0, 15, 3], [15, 45, 5], [45, 60, 9]],
            [[0, 60, 4]],
            [], [],
            [[15, 20, 5]],
            [[15, 60, 1]],
            []])  # fmt: skip

    def test_host_that_does_not_record_says_what_is_needed(self):
        host = self.host()
        host.put_values(value("AXIS1.POSITION", 9), value("LAMP.ON", True))
        text = "the host does not record (--record-off), so nothing is known of what was"
        host.pasts["/state/LAMP.ON/history"] = (409, {"error": {"code": "refused", "text": text, "nearest": []}})
        self.open(host, "values")
        self.wait("both rows", lambda: self.row("LAMP.ON"))
        self.js("document.querySelector('.rows-scroll').focus()")
        self.keys(Keys.END, Keys.ENTER)
        self.wait_for(text, "dialog .past")
        self.assertEqual(self.js("return [location.hash, document.querySelectorAll('.chart').length]"), ["#values?value=LAMP.ON", 0])
        # The way back leads to the table, the one forth to the value again.
        self.driver.back()
        self.wait("no dialog", lambda: not self.text("dialog"))
        self.assertEqual(self.js("return location.hash"), "#values")
        self.driver.forward()
        self.wait_for(text, "dialog .past")

    def test_life_of_a_driver_is_a_list_with_times_and_causes(self):
        host = self.host()
        host.tell(drivers=[driver("A")])
        step = lambda second, what, text="", pid=42: {"time": f"2026-11-22T14:00:{second:02}.000000Z", "step": what, "pid": pid, "start": 1, "text": text}  # noqa: E731
        host.pasts["/drivers/A/runs"] = (200, {"driver": "A", "more": False, "recorded": False, "since": "2026-11-22T14:00:00.000000Z", "gaps": [], "steps": [
            step(50, "parked", "parked by anna"), step(49, "end", "parked by anna"), step(40, "start", "again"), step(32, "restart", "in 8000 ms"),
            step(32, "end", "signal 11"), step(31, "hang", "no answer"), step(2, "answer"), step(1, "start")]})  # fmt: skip
        self.open(host, "now?driver=A")
        self.wait_for("parked by anna", "dialog .runs")
        rows = self.js("return [...document.querySelectorAll('.runs li')].map((each) => [...each.children].map((part) => part.innerText).slice(1))")
        self.assertEqual(rows, [["parked", "parked by anna"], ["ended", "after 9 s, parked by anna"], ["started", "process 42, again"], ["next try", "in 8000 ms"],
                                ["ended", "after 31 s, signal 11"], ["hung", "after 30 s, no answer"], ["answered", ""], ["started", "process 42"]])  # fmt: skip
        self.assertRegex(self.text("dialog .runs .when").split(" | ")[0], r"^2026-11-2\d \d\d:\d\d:50$")
        self.assertEqual(self.js("return [...document.querySelectorAll('.runs .sign')].map((each) => each.dataset.sign)"),
                         ["parked", "off", "live", "wait", "bad", "bad", "live", "live"])  # fmt: skip
        self.assertIn("it does not record (--record-off)", self.text("dialog"))

    def test_rows_lie_below_each_other_at_every_width(self):
        host = self.host()
        host.put_values(*(value(f"A.V{number:02}", number) for number in range(30)))
        places = """const rows = [...document.querySelectorAll(".values .row")].sort((one, other) => one.ariaRowIndex - other.ariaRowIndex)
            .map((row) => row.getBoundingClientRect()); return rows.slice(1).map((box, index) => Math.round(box.top - rows[index].bottom));"""
        self.open(host, "values")
        self.wait("all rows", lambda: self.row("A.V05"))
        try:
            for width in (360, 3840, 1280):
                self.browser.size(width, 800)
                self.wait(f"rows at {width}", lambda: (gaps := self.js(places)) and set(gaps) == {0})
        finally:
            self.browser.size(1280, 800)

    # --- what is shown is never taken for live when it is not ---

    def test_silence_turns_the_page_grey_and_takes_all_actions(self):
        host = self.host()
        host.tell(values=[value("A.X", 1)], drivers=[driver("AXIS1")])
        self.open(host, "values")
        self.wait("a row", lambda: self.row("A.X") and self.row("A.X")[4] == "live")
        host.is_beating = False
        self.wait_for_link("silent")
        self.assertRegex(self.text("#silence"), r"Nothing shown here is known to hold: last heard \d\d:\d\d:\d\d\.")
        row = self.row("A.X")
        self.assertEqual([row[2], row[4]], ["1", "not heard"])
        self.assertRegex(row[5], r"^last heard \d\d:\d\d:\d\d$")
        style = self.js("""const cell = [...document.querySelectorAll(".values .row .cell.text")].find((each) => each.innerText === "1");
            return [getComputedStyle(cell).textDecorationLine, getComputedStyle(document.querySelector("main")).filter, document.title]""")
        self.assertEqual(style, ["line-through", "grayscale(1)", "not heard · Values · hall"])
        self.js("location.hash = '#now'")
        self.wait_for("was running", ".tile")
        self.js("location.hash = '#send'")
        self.wait_for("Send a function ID", "main")
        self.assertEqual(self.js("return document.querySelectorAll('[data-action]:not(:disabled)').length"), 0)
        self.assertGreater(self.js("return document.querySelectorAll('[data-action]:disabled').length"), 2)
        # Not by the keyboard either.
        self.js("document.querySelector('[role=combobox]').focus()")
        self.keys("AXIS1.STOP", Keys.ENTER)
        self.wait_for("The host is not heard.", "#notices")
        self.assertEqual(host.actions, [])
        host.is_beating = True
        self.wait_for_link("live")
        self.wait("the actions are back", lambda: self.js("return document.querySelectorAll('[data-action]:not(:disabled)').length") > 2)

    def test_silence_is_noticed_two_and_a_half_seconds_after_the_last_heartbeat(self):
        host = self.host()
        self.open(host)
        self.js("""window.heard = 0;
            const at = Object.getOwnPropertyDescriptor(MessageEvent.prototype, "data").get;
            Object.defineProperty(MessageEvent.prototype, "data", {get() { window.heard = performance.now(); return at.call(this); }});
            new MutationObserver(() => { if (document.body.dataset.link === "silent") window.silent = performance.now(); })
                .observe(document.body, {attributeFilter: ["data-link"]});""")
        self.wait("a heartbeat", lambda: self.js("return window.heard") > 0)
        host.is_beating = False
        self.wait_for_link("silent")
        # Never sooner; how much later is a matter of the machine.
        self.assertGreater(self.js("return window.silent - window.heard"), 2499)

    def test_silence_right_after_the_first_news_is_noticed_as_soon(self):
        host = self.host()
        host.is_mute = True
        # What the page waits for is read from its timers: a busy machine is late with them.
        script = self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": """window.waits = [];
            const set = window.setTimeout; window.setTimeout = (call, wait, ...rest) => { waits.push(wait); return set(call, wait, ...rest); };"""})
        try:
            self.open(host)
            # Those of the live channel are no multiples of a second.
            waits = self.js("return waits.filter((wait) => wait > 2000 && wait % 1000 !== 0)")
            self.assertLess(waits[-1], 2506, waits)
            self.wait_for_link("silent")
        finally:
            self.driver.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", script)

    def test_cut_connection_is_not_live_and_comes_back_with_everything(self):
        host = self.host()
        host.put_values(value("A.X", 1), value("A.GONE", 1))
        self.open(host, "values")
        self.wait("a row", lambda: self.row("A.GONE"))
        host.is_lost = True
        host.cut()
        self.wait_for("The host does not answer.", "#silence")
        self.assertEqual(self.row("A.X")[4], "not heard")
        host.tell(values=[value("A.X", 2)], gone=["A.GONE"])
        host.is_lost = False
        self.wait_for_link("live")
        self.wait("the new state", lambda: self.row("A.X") and self.row("A.X")[2] == "2" and self.row("A.GONE") is None)
        self.assertNotIn("restarted", self.text())

    def test_restarted_host_is_told_and_nothing_of_the_former_is_shown(self):
        host = self.host()
        host.tell(values=[value("A.X", 1)], drivers=[driver("AXIS1")])
        self.open(host, "values")
        self.wait("a row", lambda: self.row("A.X"))
        host.restart("second")
        self.wait_for_link("live")
        self.wait_for("The host was restarted at ", "#banners")
        self.assertRegex(self.text("#banners"), r"The host was restarted at \d\d:\d\d:\d\d\.")
        self.wait("no value", lambda: self.row("A.X") is None)

    def test_hole_in_what_is_told_is_filled_by_everything_anew(self):
        host = self.host()
        host.put_values(value("A.X", 1))
        self.open(host, "values")
        self.wait("a row", lambda: self.row("A.X"))
        # Stored, but told to nobody; then told as if it had been.
        host.values["A.Y"] = value("A.Y", 2)
        host.version += 5
        host.pages[0].version = host.version
        host.put_values(value("A.X", 3))
        self.wait("both values", lambda: self.row("A.Y") and self.row("A.X") and self.row("A.X")[2] == "3")
        self.wait_for_link("live")

    # --- drivers and alarms ---

    def test_tile_of_what_is_wrong_comes_first_and_says_what_to_do(self):
        host = self.host()
        host.tell(drivers=[driver("A"), driver("OFF", "parked"), driver("B", "waiting", status="ended", cause="signal 11", restarts=2, nextTryMs=60_000),
                           driver("C", "hung", queuedIn=91)])  # fmt: skip
        self.open(host)
        tiles = self.wait("four tiles", lambda: (found := self.js("return [...document.querySelectorAll('.tile h3')].map((each) => each.innerText)")) and len(found) == 4 and found)
        self.assertEqual(tiles, ["C", "B", "A", "OFF"])
        self.assertIn("It does not answer. Its log in the details may say why; a reload ends it and starts it anew.", self.text("[data-driver=C]"))
        self.assertRegex(self.text("[data-driver=B] .advice"), r"^It has ended: signal 11\. The host starts it again in \d\d s\.$")
        self.wait_for("91 of 100 / 0", "[data-driver=C]")
        self.assertEqual(self.text("[data-driver=A] .advice"), "")
        self.assertEqual(self.text(".summary"), "1 of 3 drivers runs · 1 parked · 0 values")
        host.tell(drivers=[driver("C")], driversGone=["B"])
        self.wait("two run", lambda: self.js("return [...document.querySelectorAll('.tile h3')].map((each) => each.innerText)") == ["A", "C", "OFF"])
        self.driver.find_element(By.LINK_TEXT, "A").click()
        self.wait_for("axis: no encoder", "dialog")
        self.assertEqual(self.js("return location.hash"), "#now?driver=A")

    def test_of_many_drivers_those_that_are_well_are_small_and_the_others_first(self):
        host = self.host()
        second = lambda ago: iso(host.now() - ago * 1_000_000)  # noqa: E731
        host.tell(drivers=[*(driver(f"D{number:02}") for number in range(60)), driver("HUNG", "hung"), driver("LOOP", restarts=7, since=second(12), cause="signal 11"),
                           driver("OLD", restarts=2, since=second(4000), cause="signal 11"), driver("OFF", "parked", pid=4711),
                           driver("BACK", restarts=2, since=second(12), cause="parked by anna")])  # fmt: skip
        self.open(host)
        names = "return [...document.querySelectorAll('.tile h3')].map((each) => each.innerText)"
        tiles = self.wait("all tiles", lambda: (found := self.js(names)) and len(found) == 65 and found)
        # One that somebody has parked and started is as well as it was.
        self.assertEqual((tiles[:4], tiles[-2:]), (["HUNG", "LOOP", "BACK", "D00"], ["OLD", "OFF"]))
        self.assertEqual(self.js("return ['OFF', 'D00'].map((id) => document.querySelector(`[data-driver=${id}] .quiet-text`).textContent)"), ["Axis 1.0 · no process", "Axis 1.0 · process 4711"])
        self.assertEqual(self.text("[data-driver=LOOP] .advice"), "It has ended 7 times and runs again; the last time: signal 11. Its last words may say why.")
        self.assertEqual(self.js("return [...document.querySelectorAll('.tile:not([data-calm])')].map((each) => each.dataset.driver)"), ["HUNG", "LOOP"])
        boxes = self.js("return ['HUNG', 'D00'].map((id) => document.querySelector(`[data-driver=${id}]`).getBoundingClientRect()).map((box) => [box.width, box.height])")
        self.assertGreater(boxes[0][0], 1.9 * boxes[1][0])
        self.assertGreater(boxes[0][1], 2 * boxes[1][1])
        # Large ones would fill eight screens.
        self.assertLess(*self.js("const main = document.getElementById('main'); return [main.scrollHeight, 3 * main.clientHeight]"))
        self.assertEqual(self.js("return [...document.querySelectorAll('.tile button')].filter((each) => each.checkVisibility()).map((each) => each.ariaLabel)"),
                         ["Reload HUNG", "Park HUNG", "Reload LOOP", "Park LOOP"])  # fmt: skip
        # A small one is parked in its details, by keys alone.
        self.js("document.querySelector('[data-driver=D07] a').focus()")
        self.keys(Keys.ENTER)
        self.wait_for("axis: no encoder", "dialog")
        self.js("document.querySelector('dialog [aria-label=\"Park D07\"]').focus()")
        self.keys(Keys.ENTER)
        self.wait_for("Park D07?", "dialog h2")
        self.click("Park D07", "dialog footer:has(.danger)")
        self.wait("it is parked", lambda: host.actions == [("/drivers/D07/park", {})])
        # Only its middle scrolls, however long that is.
        host.tell(alarms=[{"key": f"A{number}", "text": "x", "raised": second(9), "count": 1, "over": False, "shelvedForMs": None} for number in range(9)])
        self.wait_for("9 alarms", ".alarm-part h2")
        self.browser.size(360, 740)
        try:
            self.assertEqual(self.js("return [document.documentElement.scrollWidth, document.documentElement.scrollHeight]"), [360, 740])
        finally:
            self.browser.size(1280, 800)

    def test_what_happened_last_stands_below_the_drivers(self):
        host = self.host()
        fid = lambda name, origin, **who: {"kind": "fid", "driver": "host", "fid": name, "parameters": [], "receiver": "A", "origin": origin, "outcome": "written", **who}  # noqa: E731
        host.tell(drivers=[driver("A")])
        self.open(host)
        self.wait_for("A", ".tile")
        rows = "return [...document.querySelectorAll('.lately li')].map((row) => [...row.children].slice(1).map((cell) => cell.innerText).join(' '))"
        self.assertFalse(self.js("return document.querySelector('.lately').checkVisibility()"))
        host.tell(records=[{"kind": "value", "driver": "A", "key": "A.X", "value": 3}, fid("A.TICK", "driver"), {"kind": "log", "driver": "A", "level": 4, "output": "A", "text": "well"},
                           {"kind": "exit", "driver": "A", "status": 139, "text": "signal 11"}, fid("A.GO", "panel", who="anna (web session 4 from 192.0.2.7)")])  # fmt: skip
        first = ["host fid A.GO from panel anna (web session 4 from 192.0.2.7)", "A exit signal 11"]
        self.wait("both", lambda: self.js(rows) == first)
        host.tell(records=[{"kind": "event", "driver": "A", "key": "A.E", "value": str(number)} for number in range(7)])
        self.wait("no more than eight", lambda: self.js(rows) == [f"A event A.E {number}" for number in reversed(range(7))] + first[:1])
        self.driver.find_element(By.LINK_TEXT, "All of it").click()
        self.wait("the stream", lambda: self.js("return location.hash") == "#stream")

    def test_what_happens_on_and_on_takes_no_further_elements(self):
        host = self.host()
        self.open(host)
        self.js("""window.elements = new Set();
            new MutationObserver(() => document.querySelectorAll(".lately *").forEach((each) => window.elements.add(each)))
                .observe(document.querySelector(".lately"), {childList: true});""")
        newest = "return document.querySelector('.lately .what')?.innerText"
        for number in range(30):
            host.tell(records=[{"kind": "event", "driver": "A", "key": "A.E", "value": str(number)}])
            self.wait(f"number {number}", lambda number=number: self.js(newest) == f"A.E {number}")
        each, in_all = self.js("return [document.querySelectorAll('.lately *').length, window.elements.size]")
        self.assertEqual((each, in_all), (8 * 5, 8 * 5))

    def test_open_driver_is_shown_as_it_is_now(self):
        host = self.host()
        steps = lambda *what: (200, {"driver": "A", "more": False, "recorded": True, "since": "2026-11-22T14:00:00.000000Z", "gaps": [], "steps": [  # noqa: E731
            {"time": f"2026-11-22T14:00:0{9 - number}.000000Z", "step": each, "pid": 1, "start": 1, "text": ""} for number, each in enumerate(what)]})  # fmt: skip
        host.tell(drivers=[driver("A")])
        host.pasts["/drivers/A/runs"] = steps("start")
        self.open(host, "now?driver=A")
        words = "return [...document.querySelectorAll('dialog > .line .sign, dialog .runs .sign')].map((each) => each.innerText)"
        buttons = "return [...document.querySelectorAll('dialog .actions button')].filter((each) => each.checkVisibility()).map((each) => each.innerText)"
        self.wait("its life", lambda: self.js(words) == ["running", "started"])
        self.assertEqual(self.js(buttons), ["Reload", "Park"])
        host.pasts["/drivers/A/runs"] = steps("end", "start")
        host.tell(drivers=[driver("A", "ended", cause="signal 11")])
        self.wait("its end", lambda: self.js(words) == ["ended", "ended", "started"])
        self.assertEqual(self.js(buttons), ["Start", "Reload", "Park"])
        self.assertIn("It has ended: signal 11. It is not started again by itself", self.text("dialog .advice"))
        host.tell(driversGone=["A"])
        self.wait("nothing of it", lambda: self.js(words)[0] == "no such driver" and not self.js(buttons))

    LINKS = "return [...document.querySelectorAll('.link-row')].map((row) => [row.querySelector('h3').innerText, row.querySelector('.sign').dataset.sign, row.querySelector('.sign').innerText])"

    def test_links_have_a_place_of_their_own_and_what_is_away_comes_first(self):
        host = self.host()
        host.tell(drivers=[driver("A"), driver("EAST", type="Link"), driver("NORTH", type="Link"), driver("WEST", "starting", type="Link")],
                  values=[*link("NORTH", delay=12.3), *link("EAST", "EAST is away", error="A.MOVE: expired")])  # fmt: skip
        self.open(host)
        # What has said nothing yet is not taken for one that is away.
        self.wait("three links", lambda: self.js(self.LINKS) == [["EAST", "stale", "away: EAST is away"], ["WEST", "unknown", "not known: starting"], ["NORTH", "live", "up"]])
        self.assertEqual(self.text(".summary"), "3 of 4 drivers run · 1 of 3 links up · 15 values · 3 stale")
        north, east = self.text("[data-link-id=NORTH]"), self.text("[data-link-id=EAST]")
        self.assertRegex(north, r"for [67]\d s\s+HALL to NORTH\s+delay 12 ms\s+in 10 · out 0\.5 msg/s$")
        self.assertRegex(east, r"HALL to EAST\s+Last error, 3 min ago: A\.MOVE: expired$")
        self.assertEqual(self.js("return document.querySelector('[data-link-id=NORTH] .quiet-text').title"), "over broker.example.net port 8883")
        host.put_values(*link("NORTH", stale="signal 11 (Segmentation fault)"), *link("EAST"))
        self.wait("the other one is away", lambda: self.js(self.LINKS) == [["NORTH", "stale", "away: signal 11 (Segmentation fault)"],
                                                                           ["WEST", "unknown", "not known: starting"], ["EAST", "live", "up"]])  # fmt: skip
        shapes = self.js("return [...document.querySelectorAll('.link-row .sign')].map((each) => { const style = getComputedStyle(each, '::before'); return `${style.clipPath} ${style.borderTopStyle}`; })")
        self.assertEqual(len(set(shapes)), 3, shapes)
        self.driver.find_element(By.LINK_TEXT, "EAST").click()
        self.wait_for("axis: no encoder", "dialog")
        self.assertEqual(self.js("return location.hash"), "#now?driver=EAST")

    def test_links_are_struck_through_when_the_host_is_not_heard(self):
        host = self.host()
        host.tell(drivers=[driver("NORTH", type="Link"), driver("WEST", type="Link")], values=[*link("NORTH"), *link("WEST", "WEST is away")])
        self.open(host)
        self.wait("both links", lambda: len(self.js(self.LINKS)) == 2)
        host.is_beating = False
        self.wait_for_link("silent")
        self.assertEqual(self.js(self.LINKS), [["WEST", "unknown", "was away: WEST is away"], ["NORTH", "unknown", "was up"]])
        self.assertRegex(self.text("[data-link-id=NORTH] .when"), r"^last heard \d\d:\d\d:\d\d$")
        self.assertEqual(self.js("return [...document.querySelectorAll('.link-row :is(.sign, .figure)')].filter((each) => getComputedStyle(each).textDecorationLine !== 'line-through').length"), 0)

    def test_links_stand_on_the_wall_and_on_a_phone_and_take_no_place_where_there_are_none(self):
        host = self.host()
        host.tell(drivers=[driver("A")])
        self.open(host)
        self.wait_for("A", ".tile")
        places = "return [...document.querySelectorAll('.link-part, .wall section[aria-label^=Links]')].map((each) => each.checkVisibility())"
        self.assertEqual((self.js(places), self.text(".summary")), ([False], "1 of 1 driver runs · 0 values"))
        self.js("location.hash = '#wall'")
        self.wait("the wall", lambda: self.js("return document.querySelectorAll('.wall-drivers li').length") == 1)
        self.assertEqual(self.js(places), [False])
        host.tell(drivers=[driver("NORTH", type="Link")], values=link("NORTH", "no broker: Connection refused"))
        self.wait_for("away: no broker: Connection refused", ".wall section[aria-label^=Links]")
        self.assertEqual(self.js("return [document.querySelector('.wall section[aria-label^=Links] li').dataset.kind, document.querySelectorAll('.wall-drivers li').length]"), ["stale", 2])
        self.browser.size(360, 740)
        try:
            self.js("location.hash = '#now'")
            self.wait_for("away: no broker: Connection refused", ".link-row")
            self.assertEqual(self.js("return [document.documentElement.scrollWidth, document.querySelector('.link-row').scrollWidth <= document.querySelector('.link-row').clientWidth]"), [360, True])
        finally:
            self.browser.size(1280, 800)

    def test_drivers_are_reloaded_parked_and_started_after_a_question(self):
        host = self.host()
        host.tell(drivers=[driver("A/1"), driver("OFF", "parked")])
        self.open(host)
        self.wait_for("A/1", ".tile")
        self.click("Reload A/1")
        self.wait_for("Reload A/1?", "dialog h2")
        self.keys(Keys.ENTER)  # leaves it as it is
        self.wait("no dialog", lambda: not self.text("dialog"))
        self.assertEqual(host.actions, [])
        host.answers["/drivers/OFF/unpark"] = (409, {"error": {"code": "refused", "text": "There is no descriptor of Axis 1.0.", "nearest": []}})
        for button in ("Reload A/1", "Park A/1"):
            self.click(button, ".tile")
            self.wait_for(f"{button}?", "dialog h2")
            self.click(button, "dialog footer")
            self.wait_for(f"{button}: done.", "#notices")
        self.click("Start OFF")
        self.wait_for("Start OFF: There is no descriptor of Axis 1.0.", "#notices [data-failure]")
        self.assertEqual([path for path, _ in host.actions], ["/drivers/A%2F1/reload", "/drivers/A%2F1/park", "/drivers/OFF/unpark"])

    def test_alarms_are_shown_and_acknowledged(self):
        host = self.host()
        alarm = {"key": "load \"high\"", "text": "above 4", "raised": "2026-11-22T15:49:02.000Z", "count": 3, "over": False, "shelvedForMs": None}
        host.tell(alarms=[alarm, {**alarm, "key": "B", "over": True}, {**alarm, "key": "SHELVED", "shelvedForMs": 60000}])

        def acknowledge(body):
            host.tell(alarms=[each for each in host.alarms if each["key"] not in body["keys"]])
            return 200, {"acknowledged": body["keys"]}

        host.answers["/acknowledge"] = acknowledge
        self.open(host)
        self.wait_for("2 alarms, 1 shelved", ".alarm-part h2")
        self.assertEqual(self.js("return [...document.querySelectorAll('.alarm-part > .alarms .sign')].map((each) => each.innerText)"), ["on", "over"])
        self.wait("the title counts them", lambda: self.driver.title == "(2) Now · hall")
        self.click('Acknowledge load "high"')
        self.wait_for("1 alarm", ".alarm-part h2")
        self.wait("the title counts one", lambda: self.driver.title == "(1) Now · hall")
        host.tell(alarms=[])
        self.wait_for("No alarms", ".alarm-part")

    def test_alarm_is_shelved_and_put_back_and_says_by_whom(self):
        host = self.host(role="operate")
        alarm = {"key": "SYS", "text": "load", "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None, "shelvedBy": ""}
        host.tell(alarms=[alarm])

        def shelve(body):
            seconds = body.get("seconds", 0)
            host.tell(alarms=[{**alarm, "shelvedForMs": seconds * 1000 or None, "shelvedBy": "anna" if seconds else ""}])
            return 200, {"shelved": body["keys"]}

        host.answers["/shelve"] = shelve
        self.open(host)
        self.wait_for("1 alarm", ".alarm-part h2")
        shelf = "return document.querySelector('.alarm-part details').checkVisibility()"
        self.assertFalse(self.js(shelf))
        self.click("Shelve SYS")
        self.wait_for("Shelve SYS", "dialog h2")
        self.keys(Keys.TAB, Keys.ENTER)  # the second time
        self.wait_for("No alarms, 1 shelved", ".alarm-part h2")
        self.js("document.querySelector('.alarm-part summary').focus()")
        self.keys(Keys.ENTER)
        self.wait_for("shelved by anna, for 59 min more", ".alarm-part details")
        self.wait("the title is free of it", lambda: self.driver.title == "Now · hall")
        self.click("Put SYS back")
        self.wait_for("1 alarm", ".alarm-part h2")
        self.assertFalse(self.js(shelf))
        self.assertEqual(host.actions, [("/shelve", {"keys": ["SYS"], "seconds": 3600}), ("/shelve", {"keys": ["SYS"]})])

    def test_names_and_values_stay_texts_in_their_places_whatever_is_in_them(self):
        host = self.host()
        key, bad = "A.\u202eLIVE", "<img src=x onerror=\"window.bad = 1\">\u202e&amp;\x1b[31m" + "\U0001f600" * 62
        name = "A\u202e<b>x</b>"
        alarm = {"key": key, "text": bad, "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None}
        host.tell(alarms=[alarm], values=[value(key, bad, owner="A\u202e"), *link("LINK", bad, site=bad, error=bad)],
                  drivers=[driver(name, state="ended", cause=bad), driver("LINK", type="Link")],
                  records=[{"kind": "log", "driver": name, "level": 2, "output": bad, "text": bad}])  # fmt: skip
        self.browser.size(360, 740)
        for page in ("now", "values", "wall", "stream", f"values?value={quote(key)}", f"now?driver={quote(name)}", f"send?fid={quote(bad)}"):
            self.open(host, page)
            self.wait("the page is there", lambda: bad[:9] in self.text("main, dialog") or page.startswith("send"))
            if page == "now":
                self.wait_for(bad[:9], ".alarm-text")
                # Text of a name that turns the direction round does not take what follows with it.
                left = "return document.querySelector(arguments[0]).getBoundingClientRect().left"
                self.assertLessEqual(self.js(left, ".alarm strong"), self.js(left, ".alarm .alarm-text"))
                self.assertEqual(self.js("return getComputedStyle(document.querySelector('.alarm strong')).unicodeBidi"), "isolate")
            self.assertEqual(self.js("return [window.bad, document.querySelectorAll(':is(main, dialog) :is(img, b)').length]"), [None, 0])
            self.assertTrue(self.js("return document.documentElement.scrollWidth <= innerWidth"), f"{page} is wider than the screen")
        self.browser.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_operator_acknowledges_all_alarms_that_are_seen(self):
        host = self.host(role="operate")
        alarm = {"text": "above 4", "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None}
        host.tell(alarms=[{**alarm, "key": "A"}, {**alarm, "key": "B"}, {**alarm, "key": "SHELVED", "shelvedForMs": 60000}])
        self.open(host)
        self.wait_for("2 alarms, 1 shelved", ".alarm-part h2")
        self.click("Acknowledge all")
        self.wait("it is done", lambda: host.actions)
        self.assertEqual(host.actions, [("/acknowledge", {"keys": ["A", "B"]})])
        host.answers["/acknowledge"] = (404, {"error": {"code": "alarm-unknown", "text": "there is no alarm A", "nearest": []}})
        self.click("Acknowledge A")
        self.wait_for("Acknowledge A: there is no alarm A", "#notices [data-failure]")

    def test_who_may_only_view_sees_why_nothing_can_be_pressed(self):
        host = self.host(role="view")
        host.tell(drivers=[driver("A")])
        self.open(host)
        self.wait_for("A", ".tile")
        buttons = self.js("return [...document.querySelectorAll('.tile [data-action]')].filter((each) => !each.hidden).map((each) => [each.innerText, each.disabled, each.title])")
        self.assertEqual(buttons, [["Reload", True, "needs the role admin; yours is view"], ["Park", True, "needs the role admin; yours is view"]])
        self.assertFalse(self.js("return document.querySelector('.admin-only').checkVisibility()"))

    # --- who is at the controls ---

    def head(self):
        """What is seen of the controls, and what is read out."""
        return self.js("return [document.getElementById('controls').innerText.trim(), document.getElementById('controls-said').textContent]")

    def wait_for_head(self, *wanted):
        self.wait(f"the head says {wanted}", lambda: self.head() == list(wanted))

    def open_alarm(self, controls=None, role="operate"):
        """A page with something to press, and who is at the controls."""
        host = self.host(role=role)
        alarm = {"key": "A", "text": "x", "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None, "shelvedBy": ""}
        host.tell(alarms=[alarm], **({"controls": controls} if controls else {}))
        self.open(host)
        self.wait_for("1 alarm", ".alarm-part h2")
        return host

    def test_who_is_at_the_controls_stands_on_the_head_of_each_page(self):
        host = self.host()
        host.tell(drivers=[driver("A")])
        for page in ("now", "values", "stream", "send", "plan", "sessions"):
            self.open(host, page)
            self.wait_for_head("○ controls: nobody", "Controls: nobody")
        host.tell(controls=host.holder("anna", 7))
        self.wait_for_head("● controls: you, since 12:03", "Controls: you, since 12:03")
        host.tell(controls=host.holder("otto", 3))
        self.wait_for_head("◐ controls: otto, since 12:03", "Controls: otto, since 12:03")
        self.assertEqual(self.js("const b = document.getElementById('controls'); return [b.ariaLabel, b.title]"),
                         ["controls: otto, since 12:03", "otto, web session 3 from 192.0.2.8"])  # fmt: skip
        self.open(host, "wall")
        self.wait_for("controls: otto, since 12:03", ".wall header")
        host.tell(controls=None)
        self.wait_for("controls: nobody", ".wall header")

    def test_on_a_phone_the_controls_are_a_name(self):
        host = self.host()
        host.tell(drivers=[driver("A")], controls=host.holder("otto", 3))
        self.browser.size(360, 740)
        try:
            self.open(host)
            self.wait_for_head("◐ otto", "Controls: otto, since 12:03")
            self.assertEqual(self.js("return document.documentElement.scrollWidth"), 360)
        finally:
            self.browser.size(1280, 800)

    def test_controls_are_not_known_while_the_host_is_not_heard(self):
        host = self.open_alarm({"name": "otto", "from": "the control socket", "session": None, "since": iso(1_700_000_000_000_000)})
        self.wait("the day stands with it", lambda: "otto, since 2023-11-1" in self.head()[0])
        host.is_beating = False
        self.wait_for_head("◌ controls: not heard", "")

    def test_first_action_takes_the_controls_that_nobody_has(self):
        host = self.open_alarm()
        self.click("Acknowledge A")
        self.wait("it is done", lambda: host.actions == [("/acknowledge", {"keys": ["A"]})])
        self.wait_for_head("● controls: you, since 12:03", "Controls: you, since 12:03")
        self.click("Acknowledge A")
        self.wait("the second one is done", lambda: len(host.actions) == 2)
        self.assertEqual(host.asked_controls, [{"take": True, "unlessHeld": True}])

    def test_page_asks_before_it_acts_while_another_one_is_at_the_controls(self):
        host = self.open_alarm(StandIn.holder("otto", 3))
        self.click("Acknowledge A")
        self.wait_for("otto is at the controls since 12:03. Take over?", "dialog h2")
        self.assertEqual(self.js("return [...document.querySelectorAll('dialog footer button')].map((each) => each.innerText)"), ["Cancel", "Take over"])
        self.keys(Keys.ENTER)
        self.wait_for("Acknowledge A: Nothing was done: otto is at the controls.", "#notices")
        self.assertEqual((host.actions, host.asked_controls), ([], []))
        self.click("Acknowledge A")
        self.wait_for("Take over?", "dialog h2")
        self.click("Take over")
        self.wait("it is done", lambda: host.actions == [("/acknowledge", {"keys": ["A"]})])
        self.assertEqual(host.asked_controls, [{"take": True}])
        self.wait_for_head("● controls: you, since 12:03", "Controls: you, since 12:03")

    def test_several_actions_that_wait_are_one_question(self):
        host = self.open_alarm(StandIn.holder("otto", 3))
        self.js("for (let i = 0; i < 2; ++i) document.querySelector('[aria-label=\"Acknowledge A\"]').dispatchEvent(new Event('click'))")
        self.wait_for("Take over?", "dialog h2")
        self.assertEqual(self.js("return document.querySelectorAll('dialog').length"), 1)
        self.click("Take over")
        self.wait("both are done", lambda: len(host.actions) == 2)
        self.assertEqual(host.asked_controls, [{"take": True}])

    def test_who_was_faster_with_free_controls_is_asked_about(self):
        host = self.open_alarm()
        # The page is not told yet.
        host.controls = host.holder("otto", 3)
        self.click("Acknowledge A")
        self.wait_for("otto is at the controls since 12:03. Take over?", "dialog h2")
        self.assertEqual(host.actions, [])
        self.click("Cancel")
        self.wait_for("Nothing was done: otto is at the controls.", "#notices")

    def test_plan_is_made_without_the_controls(self):
        host = self.host(role="operate")
        host.answers["/plan"] = (200, {"plan": "p", "digest": "d", "refusal": "", "findings": [], "changes": []})
        host.tell(controls=host.holder("otto", 3))
        self.open(host, "plan")
        self.js("document.querySelector('.plan button').click()")
        self.wait("it is made", lambda: host.actions == [("/plan", {})])
        self.assertEqual(host.asked_controls, [])

    def test_controls_are_taken_over_and_given_back_from_the_head(self):
        host = self.open_alarm(StandIn.holder("otto", 3))
        self.js("document.getElementById('controls').click()")
        self.wait_for("web session 3 from 192.0.2.8", "dialog")
        self.click("Take over", "dialog")
        self.wait_for("web session 7 from 192.0.2.8", "dialog")
        self.click("Give back", "dialog")
        self.wait_for_head("○ controls: nobody", "Controls: nobody")
        self.assertEqual(host.asked_controls, [{"take": True}, {"take": False}])

    def test_who_may_only_view_sees_who_is_at_the_controls_and_is_not_asked(self):
        host = self.open_alarm(StandIn.holder("otto", 3), role="view")
        self.wait_for_head("◐ controls: otto, since 12:03", "Controls: otto, since 12:03")
        self.assertTrue(self.js("return document.querySelector('[aria-label=\"Acknowledge A\"]').disabled"))
        self.js("document.getElementById('controls').click()")
        self.wait_for("web session 3 from 192.0.2.8", "dialog")
        self.assertEqual(self.js("return [...document.querySelectorAll('dialog footer button')].filter((each) => !each.hidden).map((each) => [each.innerText, each.title])"),
                         [["Take over", "needs the role operate; yours is view"]])  # fmt: skip
        self.assertEqual(host.asked_controls, [])

    # --- sending ---

    def test_ladder_of_a_fid_fills_in_under_one_request(self):
        host = self.host()
        host.tell(drivers=[driver("AXIS1")], records=[{"kind": "fid", "driver": "PANEL", "fid": "AXIS1.MOVE", "parameters": [["to", "1"]], "receiver": "AXIS1",
                                                      "origin": "driver", "outcome": "begins"}])  # fmt: skip
        outcome = {"fid": "AXIS1.MOVE", "driver": "AXIS1"}
        steps = [(202, {**outcome, "stage": "written", "tookUs": 90})] * 3 + [(200, {**outcome, "stage": "taken", "tookUs": 1500})]
        host.answers["/fid"] = lambda _: steps
        self.open(host, "now")
        self.wait_for("AXIS1", ".tile")
        self.keys(Keys.CONTROL, "k", Keys.NULL)
        self.wait("the line has the focus", lambda: self.js("return document.activeElement.role") == "combobox")
        self.keys("ax")
        self.wait_for("AXIS1.", "[role=listbox]")
        self.keys(Keys.TAB, "m", Keys.TAB, "t", Keys.TAB, '"1 2"', Keys.ENTER)
        self.wait_for("Taken after 1.5 ms: the driver's process has taken it.", ".sent .outcome")
        self.assertEqual(self.js("return [...document.querySelectorAll('.ladder li')].map((each) => each.ariaLabel)"),
                         ["accepted: reached", "dispatched: reached", "written: reached", "taken: reached"])  # fmt: skip
        self.assertEqual(host.actions, [("/fid", {"fid": "AXIS1.MOVE", "parameters": [["to", "1 2"]], "wait": "taken"})])

    def test_what_the_driver_logs_right_after_a_fid_stands_on_its_card(self):
        host = self.host()
        log = lambda name, level, text: {"kind": "log", "driver": name, "level": level, "output": name, "text": text}  # noqa: E731
        host.tell(drivers=[driver("SYS")], records=[log("SYS", 3, "of before")])
        host.answers["/fid"] = (200, {"fid": "SYS.INTERVAL", "driver": "SYS", "stage": "taken", "tookUs": 700})
        self.open(host, "send?fid=SYS.INTERVAL ms=abc")
        self.wait("the line is filled", lambda: self.js("return document.querySelector('[role=combobox]').value") == "SYS.INTERVAL ms=abc")
        self.assertFalse(self.js("return document.querySelector('.sent-part').checkVisibility()"))
        self.click("Send")
        self.wait_for("Taken after 700 µs", ".sent .outcome")
        self.assertEqual(self.js("return [document.querySelector('.sent .tile').dataset.kind, document.querySelector('.logged').innerText]"), ["live", ""])
        refusal = 'INTERVAL ignored, ms="abc" is not a whole number from 50 to 3600000'
        host.tell(records=[log("SYS", 4, "of no matter"), log("OTHER", 3, "of another"), log("SYS", 3, refusal)])
        self.wait_for(refusal, ".logged")
        self.assertEqual(self.text(".logged").split("\n"), ["SYS has logged since:", refusal])
        self.assertEqual(self.js("return document.querySelector('.sent .tile').dataset.kind"), "stale")

    def test_fid_that_reaches_nobody_says_why_and_what_was_meant(self):
        host = self.host()
        host.tell(drivers=[driver("AXIS1")])
        host.answers["/fid"] = (409, {"error": {"code": "fid-undelivered", "text": 'There is no driver "AXSI1".', "nearest": ["AXIS1"], "reason": "no-such-driver"}})
        self.open(host, "send?fid=AXSI1.MOVE to=1")
        self.wait("the line is filled", lambda: self.js("return document.querySelector('[role=combobox]').value") == "AXSI1.MOVE to=1")
        self.click("Send")
        self.wait_for('There is no driver "AXSI1".', ".sent .outcome")
        self.assertEqual(self.js("return [...document.querySelectorAll('.ladder li')].map((each) => each.ariaLabel)"),
                         ["accepted: failed", "dispatched: not reached", "delivered: not reached"])  # fmt: skip
        self.click("Did you mean AXIS1?")
        self.assertEqual(self.js("return document.querySelector('[role=combobox]').value"), "AXIS1.MOVE to=1")
        self.keys(" fast", Keys.ENTER)
        self.wait_for('"fast" is no parameter: write name=value, with quotes round blanks.', ".error")

    def test_lost_answer_is_asked_for_again_and_done_once(self):
        host = self.host()
        host.tell(drivers=[driver("AXIS1", mode="direct")])

        def lose(_):
            host.is_lost = True
            return 200, {"fid": "AXIS1.STOP", "driver": "AXIS1", "stage": "delivered", "result": False, "tookUs": 12}

        host.answers["/fid"] = lose
        self.open(host, "send?fid=AXIS1.STOP")
        self.click("Send")
        self.wait("it came", lambda: host.actions)
        host.is_lost = False
        self.wait_for("Delivered after 12 µs, and answered false: the driver has returned.", ".sent .outcome")
        self.assertEqual(len(host.actions), 1)

    def test_action_is_not_repeated_at_another_instance(self):
        host = self.host()
        host.tell(drivers=[driver("AXIS1", mode="direct")])

        def die(_):
            host.is_lost = True
            return 200, {}

        host.answers["/fid"] = die
        self.open(host, "send?fid=AXIS1.STOP")
        self.click("Send")
        self.wait("it came", lambda: host.actions)
        host.answers["/fid"] = (200, {"fid": "AXIS1.STOP", "driver": "AXIS1", "stage": "delivered", "result": True, "tookUs": 12})
        host.restart("second")
        host.is_lost = False
        self.wait_for("The host was restarted meanwhile: whether it was done is not known.", ".sent .outcome")
        self.assertEqual(len(host.actions), 1)

    def test_values_events_and_macros_are_sent_as_they_are_typed(self):
        host = self.host(role="operate")
        host.put_values(value("A.X", 1))
        self.open(host, "send")
        self.wait_for("home", ".macros")
        self.js("document.getElementById('value-key').value = 'A.X'; document.getElementById('value-type').value = 'int'; document.getElementById('value-text').focus()")
        self.keys("1.5", Keys.ENTER)
        self.wait_for('"1.5" is no whole number.', ".sent")
        self.js("document.getElementById('value-text').value = ''")
        self.keys("15", Keys.ENTER)
        self.wait_for("Set back to 1", ".sent")
        self.click("Set back to 1")
        self.js("document.getElementById('event-id').value = 'A.E'; document.getElementById('event-text').focus()")
        self.keys("by hand", Keys.ENTER)
        self.click("Play the macro home")
        self.wait("all are done", lambda: len(host.actions) == 4)
        self.assertEqual(host.actions, [("/state", {"key": "A.X", "type": "int", "value": 15}), ("/state", {"key": "A.X", "type": "int", "value": 1}),
                                        ("/event", {"id": "A.E", "value": "by hand"}), ("/macros/home/play", {})])  # fmt: skip

    # --- plan, stream, sessions ---

    def test_plan_is_shown_applied_and_undone(self):
        host = self.host()
        changes = [{"action": "reload", "driver": "AXIS2", "reason": "its entry has changed"}]
        host.answers["/plan"] = (200, {"plan": "p7", "digest": "d", "refusal": "", "changes": changes, "findings": [
            {"severity": "warning", "file": "hall.xml", "line": 14, "text": "\"speeed\" is not read"}]})  # fmt: skip
        host.answers["/apply"] = (409, {"error": {"code": "plan-outdated", "text": "The files have changed since.", "nearest": []}})
        host.answers["/undo"] = (200, {"history": 3, "changes": [{**changes[0], "done": False, "why": "its module is missing"}]})
        self.open(host, "plan")
        self.wait_for("Go back to it", ".plan table")
        self.assertFalse(self.js("return document.querySelector('.plan .primary').checkVisibility()"))
        self.click("Make a plan")
        self.wait_for("hall.xml:14", ".result")
        self.assertIn("reloads it\tits entry has changed", self.text(".result"))
        self.click("Apply")
        self.wait_for("1 change: reload AXIS2.", "dialog")
        self.click("Apply", "dialog")
        self.wait_for("Apply: The files have changed since.", "#notices")
        self.click("View what number 2 changed")
        self.wait_for("- <b/>\n+ <c/>", "dialog pre")
        self.keys(Keys.ESCAPE)
        self.click("Go back to it, number 1")
        self.click("Go back to 1", "dialog")
        self.wait_for("reload: not done", ".result")
        self.assertEqual(host.actions, [("/plan", {}), ("/apply", {"plan": "p7"}), ("/undo", {"number": 1})])

    def test_browser_keeps_the_timings_of_the_page_itself_and_not_of_all_it_asks_for(self):
        host = self.host()
        self.open(host)
        timings = "performance.getEntriesByType('resource').length"
        self.driver.execute_async_script("""const done = arguments[0];
            (async () => { for (let number = 0; number < 60; ++number) await (await fetch("/api/v1", {headers: {Authorization: "Bearer token-1"}})).text(); })().then(done);""")
        self.assertEqual(self.js(f"return {timings}"), 50)

    def test_what_is_as_it_was_is_not_listed_anew(self):
        host = self.host()
        # (part, what it asks for, what it makes of it, another answer, what is seen of that)
        for part, path, made, change, text in (("plan", "/history", ".plan table", lambda: host.files.update({3: "<d/>"}), "View what number 3 changed"),
                                               ("send", "/macros", ".macros button", lambda: host.macros.append("dock"), "Play the macro dock")):
            with self.subTest(part):
                self.open(host, part)
                self.wait("it is there", lambda made=made: self.js("return window.kept = document.querySelector(arguments[0])", made))
                self.js("""const path = arguments[0], asked = window.fetch;
                    window.answers = 0;
                    window.fetch = async (...all) => { const answer = await asked(...all); window.answers += all[0].endsWith(path); return answer; };""", path)
                self.js("location.hash = 'now'")
                self.wait_for("No alarms")
                self.js("location.hash = arguments[0]", part)
                self.wait("another answer", lambda: self.js("return window.answers") > 0)
                # What comes of an answer comes before the page's next second.
                self.driver.execute_async_script("setTimeout(arguments[0], 200)")
                self.assertTrue(self.js("return window.kept.isConnected"))
                change()
                self.js("location.hash = 'now'")
                self.wait_for("No alarms")
                self.js("location.hash = arguments[0]", part)
                self.wait("the change", lambda text=text: self.js("return document.querySelector(`[aria-label='${arguments[0]}']`)", text))
                # The same list comes back after an answer that was none.
                self.js("window.whole = window.fetch; window.fetch = () => Promise.reject(new TypeError('nobody'))")
                self.js("location.hash = 'now'")
                self.wait_for("No alarms")
                self.js("location.hash = arguments[0]", part)
                self.wait_for("The host does not answer.", "main")
                self.js("window.fetch = window.whole; location.hash = 'now'")
                self.wait_for("No alarms")
                self.js("location.hash = arguments[0]", part)
                self.wait("the list again", lambda text=text: self.js("return document.querySelector(`[aria-label='${arguments[0]}']`)", text))

    def test_stream_keeps_the_order_and_tells_what_was_left_out(self):
        host = self.host()
        self.open(host, "stream")
        host.tell(missed=12, records=[{"kind": "event", "driver": "A", "key": "A.HOMED", "value": "now"}, {"kind": "value", "driver": "A", "key": "A.X", "value": 3},
                                      {"kind": "exit", "driver": "B", "status": 139, "text": "signal 11"}])  # fmt: skip
        rows = """return [...document.querySelectorAll(".stream .row")].sort((one, other) => one.ariaRowIndex - other.ariaRowIndex)
            .map((row) => [...row.children].slice(1).map((cell) => cell.innerText).join(" "))"""
        first = [" missed 12 records left out: they came faster than the page takes them", "A event A.HOMED now", "B exit signal 11"]
        self.wait("three rows", lambda: self.js(rows) == first)
        self.js("document.querySelector('.stream input[value=value]').click()")
        self.wait("the value as well", lambda: "A value A.X = 3" in self.js(rows))
        self.keys(Keys.ESCAPE)
        self.js("document.activeElement.blur()")
        self.keys("p")
        self.wait_for("paused at 4 records", ".tools")
        host.tell(records=[{"kind": "log", "driver": "B", "level": 2, "output": "MFD", "text": "<b>lost</b>"}])
        self.keys("p")
        self.wait("the line after the pause", lambda: self.js(rows)[-1] == "B log MFD: <b>lost</b>")
        # By the whole key, which the record has in two parts.
        self.open(host, "stream?filter=a.homed")
        host.tell(records=[{"kind": "event", "driver": "A", "key": "HOMED", "value": "by hand"}])
        self.wait("both events", lambda: self.js(rows) == ["A event A.HOMED now", "A event HOMED by hand"])
        self.open(host, "stream?filter=signal&driver=B&from=first:both:3")
        # What is missing is shown whatever is asked for; a new page was told of nothing that is missing.
        self.wait("one row", lambda: self.js(rows) == ["B exit signal 11"])

    def test_sessions_are_listed_and_ended(self):
        host = self.host()
        host.sessions = [{"id": number, "user": "anna", "uid": 1000, "pid": None, "address": "192.0.2.1", "role": "operate", "since": "2026-11-22T15:49:02.000Z", "requests": 3}
                         for number in (7, 8)]  # fmt: skip
        self.open(host, "sessions")
        self.wait_for("this page", ".sessions")
        self.click("End session 8")
        self.click("End it", "dialog")
        self.wait("it is ended", lambda: host.actions == [("/sessions/8/revoke", {})])

    # --- keys, screens ---

    def test_each_page_has_a_key_and_an_address(self):
        host = self.host()
        host.put_values(value("A.X", 1))
        self.open(host)
        seen = []
        for key in "654321":
            self.js("document.activeElement.blur()")
            self.keys(key)
            seen.append(self.js("return [location.hash, document.body.dataset.page, document.title]"))
        self.assertEqual(seen, [["#wall", "wall", "Wall · hall"], ["#plan", "plan", "Plan · hall"], ["#send", "send", "Send · hall"],
                                ["#stream", "stream", "Stream · hall"], ["#values", "values", "Values · hall"], ["#now", "now", "Now · hall"]])  # fmt: skip
        self.keys("?")
        self.wait_for("Keys and signs", "dialog h2")
        self.js("document.querySelector('dialog input').click()")
        self.keys(Keys.ESCAPE)
        self.js("document.activeElement.blur()")
        self.keys("2")
        self.assertEqual(self.js("return location.hash"), "#now")
        self.js("history.back()")
        self.wait("the page before", lambda: self.js("return document.body.dataset.page") == "values")

    def test_wall_has_drivers_and_pinned_values_and_nothing_to_press(self):
        host = self.host()
        host.tell(drivers=[driver("A"), driver("B", "hung", cause="no answer")], values=[value("A.X", 1), value("A.Y", 2, stale="parked by anna")])
        self.open(host)
        self.js("localStorage.setItem('mfhost.pins.hall.xml', '[\"A.X\", \"A.Y\"]')")
        self.open(host, "wall")
        self.wait_for("stale: parked by anna", ".wall-values")
        self.assertEqual(self.js("return [...document.querySelectorAll('.wall-drivers li')].map((each) => each.innerText.replace(/\\s+/g, ' ').trim())"),
                         ["B hung no answer", "A running"])  # fmt: skip
        self.assertEqual(self.js("return [...document.querySelectorAll('button, input')].filter((each) => each.checkVisibility()).length"), 0)

    def test_wall_has_a_hundred_drivers_on_one_screen(self):
        host = self.host()
        host.tell(drivers=[*(driver(f"D{number:02}") for number in range(99)), driver("HUNG", "hung", cause="no answer for 10 s")])
        self.browser.size(1280, 800)
        self.open(host, "wall")
        self.wait("all of them", lambda: self.js("return document.querySelectorAll('.wall-drivers li').length") == 100)
        self.assertLessEqual(*self.js("const main = document.getElementById('main'); return [main.scrollHeight, main.clientHeight]"))

    def test_every_control_is_reached_by_the_tab_key(self):
        host = self.host()
        alarm = {"key": "A", "text": "x", "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None, "shelvedBy": ""}
        host.tell(drivers=[driver("A"), driver("NORTH", type="Link")], values=[value("A.X", 1), *link("NORTH")], alarms=[alarm, {**alarm, "key": "B"}],
                  records=[{"kind": "event", "driver": "A", "key": "A.E", "value": ""}])  # fmt: skip
        host.sessions = [{"id": 8, "user": "anna", "uid": 1000, "pid": None, "address": "192.0.2.1", "role": "operate", "since": "2026-11-22T15:49:02.000Z", "requests": 3}]
        # Of one that is chosen among several only the chosen one is a stop; what lies in a table is reached in it.
        wanted = """return [...document.querySelectorAll("button, a[href], input, select, summary, [tabindex='0']")].filter((each) => each.checkVisibility()
            && !each.disabled && each.tabIndex >= 0 && !(each.type === "radio" && !each.checked)).map((each) => {
            window.ids ??= new Map(); if (!window.ids.has(each)) window.ids.set(each, window.ids.size); return window.ids.get(each); })"""
        watch = """document.activeElement.blur(); window.seen = []; window.bare = [];
            document.addEventListener("focusin", ({target}) => { seen.push(ids.get(target) ?? null);
                if (target !== document.body && getComputedStyle(target).outlineStyle === "none") bare.push(target.outerHTML); });"""
        for page in ("now", "values", "stream", "send", "plan", "wall", "sessions"):
            self.open(host, page)
            # What was told first is drawn with the next frame.
            self.driver.execute_async_script("const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() => done()))")
            stops = set(self.wait("controls", lambda: self.js(wanted)))
            self.js(watch)
            self.keys(*[Keys.TAB] * (len(stops) + 3))
            seen = set(self.js("return seen"))
            self.assertEqual(self.js("return bare"), [], f"{page}: no outline")
            self.assertEqual(stops - seen, set(), f"{page}: {self.js('return [...window.ids].filter(([, id]) => arguments[0].includes(id)).map(([each]) => each.outerHTML)', list(stops - seen))}")

    def test_page_is_small_on_the_wire(self):
        files = list((Path(__file__).resolve().parents[2] / "mfhost/web/page").iterdir())
        self.assertGreater(len(files), 20)
        self.assertLess(sum(len(gzip.compress(each.read_bytes())) for each in files), 150_000)

    def test_phone_has_one_column_and_targets_of_44_pixels(self):
        host = self.host()
        host.tell(drivers=[driver("A"), driver("B")], values=[value("A.X", 1)])
        self.browser.size(360, 740)
        try:
            for page in ("now", "values", "send"):
                self.open(host, page)
                self.wait("the page is there", lambda: self.js("return document.querySelectorAll('.row, .tile, [role=combobox]').length") > 0)
                wide, small = self.js("""return [document.documentElement.scrollWidth,
                    [...document.querySelectorAll("button, a, select, input:not([type=radio], [type=checkbox]), .choices label")].filter((each) => each.checkVisibility()
                        && !each.matches(".skip, .tile h3 a")).map((each) => [each.innerText || each.id, each.getBoundingClientRect()])
                        .filter(([, box]) => box.height < 43.9 || box.width < 43.9).map(([name, box]) => `${name} ${box.width}x${box.height}`)]""")  # fmt: skip
                self.assertEqual((page, wide, small), (page, 360, []))
            pages = self.js("return [...document.querySelectorAll('nav a')].filter((each) => each.checkVisibility()).map((each) => each.innerText.trim())")
            self.assertEqual(pages, ["Now", "Values", "Send"])
        finally:
            self.browser.size(1280, 800)

    def test_what_happens_is_legible_on_a_phone(self):
        host = self.host()
        host.tell(drivers=[driver("A")], values=[value("A.X", 1)])
        self.browser.size(360, 740)
        try:
            self.open(host, "send")
            # What has become of it is in sight where it was sent.
            host.answers["/fid"] = (200, {"fid": "A.GO", "driver": "A", "stage": "taken", "tookUs": 700})
            self.js("document.querySelector('[role=combobox]').focus()")
            self.keys("A.GO", Keys.ENTER)
            self.wait_for("Taken after", ".sent .outcome")
            box = self.js("return document.querySelector('.sent .outcome').getBoundingClientRect().toJSON()")
            self.assertGreater(box["top"], 50)
            self.assertLess(box["bottom"], 684)
            # What happened is legible on a phone.
            self.js("localStorage.setItem('mfhost.pins.hall.xml', '[\"A.X\"]')")
            host.tell(records=[{"kind": "log", "driver": "A", "level": 3, "output": "A", "text": "the line is noisy and far"}],
                      alarms=[{"key": "A", "text": "the load is above four", "raised": "2026-11-22T15:49:02.000Z", "count": 1, "over": False, "shelvedForMs": None}])  # fmt: skip
            self.js("location.hash = '#stream'")
            self.wait("the line is there in full", lambda: self.js("return [...document.querySelectorAll('.stream .row .cell.text')].some((cell) => cell.innerText.includes('noisy') && cell.scrollWidth <= cell.clientWidth)"))
            self.js("location.hash = '#wall'")
            self.wait_for("the load is above four", ".wall-alarms")
            self.assertLess(self.js("return document.querySelector('.wall-alarms').getBoundingClientRect().height"), 100)
        finally:
            self.browser.size(1280, 800)

    def test_colours_follow_the_system_until_they_are_chosen(self):
        host = self.host()
        back = "return getComputedStyle(document.body).backgroundColor"
        try:
            self.browser.media(prefers_color_scheme="dark")
            self.open(host)
            self.assertEqual(self.js(back), "rgb(13, 19, 25)")
            self.browser.media(prefers_color_scheme="light")
            self.assertEqual(self.js(back), "rgb(238, 241, 244)")
            self.keys("t", "t")
            self.assertEqual(self.js(back), "rgb(13, 19, 25)")
            self.open(host)
            self.assertEqual(self.js(back), "rgb(13, 19, 25)")
        finally:
            self.browser.media()

    def test_less_motion_is_honoured(self):
        host = self.host()
        host.tell(drivers=[driver("A")])
        try:
            for wish, lasts in (("no-preference", "0.3s"), ("reduce", "0s")):
                self.browser.media(prefers_reduced_motion=wish)
                self.open(host)
                self.wait_for("A", ".tile")
                self.assertEqual(self.js("return getComputedStyle(document.querySelector('.fill')).transitionDuration"), lasts)
        finally:
            self.browser.media()

    # --- what knows of no page ---

    def test_texts_and_the_model_are_right(self):
        host = self.host()
        self.driver.get(host.url + "favicon.svg")
        self.driver.get(host.url)
        done = self.driver.execute_async_script(f"const done = arguments[0]; (async () => {{ {TEXTS} }})().then(done, (error) => done(String(error)));")
        self.assertEqual(done, {
            "ages": ["0 s", "119 s", "2 min", "119 min", "2 h", "2 d"],
            "rates": ["0", "0.4", "12", "1.2 k", "12 k"],
            "fids": [
                {"fid": "AXIS1.MOVE", "parameters": [["to", "10"], ["note", "a b"]], "error": ""},
                {"fid": "", "parameters": [], "error": '"AXIS1" names no function: a FID is a driver\'s ID, a dot and a function.'},
                {"fid": "", "parameters": [], "error": '"fast" is no parameter: write name=value, with quotes round blanks.'},
                {"fid": "", "parameters": [], "error": 'There is a " without its second one.'}],
            "line": 'A.B x="a b" y="" z=1',
            "filters": [True, True, False, False, True],
            "time": [1795362465148000, 1795362465148252, None],
            "completions": [["AXIS1."], ["AXIS1.MOVE ", "AXIS1.STOP "], ["AXIS1.MOVE "], ["fast=", "to="], ["fast="], []],
            "diff": [" a", "-b", " c", "+x", " d"],
            "model": [False, True, 998000000, False, True, ["A.Y"], True, ["A.Z"]],
            "records": [5050, 900],
        })  # fmt: skip


def load_tests(loader, _tests, _pattern):
    """What the program runs where no test is named."""
    return unittest.TestSuite(list(loader.loadTestsFromTestCase(Page))[SHARD])


if __name__ == "__main__":
    if sys.argv[1:2] == ["--shard"]:
        first, step = (int(word) for word in sys.argv[2].split("/"))
        SHARD = slice(first, None, step)
        del sys.argv[1:3]
    os.environ.setdefault("NO_PROXY", "127.0.0.1,localhost")
    unittest.main()
