#!/usr/bin/python3
"""Holds what /metrics answers against docs/metrics.md, and alerts and dashboard against both.

usage: metrics_test.py BUILD [unittest's words]   asks tests/tools/ApiAnswers, which needs no host
"""

import json
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import yaml

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs" / "metrics.md").read_text()
ALERTS = ROOT / "packaging" / "prometheus" / "alerts.yml"
DASHBOARD = ROOT / "packaging" / "grafana" / "dashboard.json"

build = Path()

needs_promtool = unittest.skipUnless(shutil.which("promtool"), "there is no promtool (Debian's package prometheus)")


def documented():
    """Name -> (type, labels, help), in the order of the table."""
    rows = re.findall(r"^\| `(mf_\w+)` \| (\w+) \| (.*?) ?\| (.*) \|$", PAGE, re.M)
    return {name: (kind, re.findall(r"`(\w+)`", labels), text) for name, kind, labels, text in rows}


def answered():
    answer = subprocess.run([build / "bin" / "api_answers", "--request", "GET", "http://localhost/metrics"],
                            capture_output=True, check=True, text=True, timeout=60)  # fmt: skip
    text, _, status = answer.stdout.rpartition("\n")
    assert status == "200", answer.stdout
    return text


def promtool(*words, text=None):
    """Exit code and all that was said."""
    done = subprocess.run(["promtool", *map(str, words)], input=text, capture_output=True, check=False, text=True,
                          timeout=120)  # fmt: skip
    return done.returncode, done.stdout + done.stderr


def expressions():
    """(where, expression) of each alert and of each panel of the dashboard."""
    for group in yaml.safe_load(ALERTS.read_text())["groups"]:
        for rule in group["rules"]:
            yield rule["alert"], rule["expr"]
    dashboard = json.loads(DASHBOARD.read_text())
    for panel in dashboard["panels"]:
        for target in panel.get("targets", []):
            yield panel["title"], target["expr"]
    for variable in dashboard["templating"]["list"]:
        if variable["type"] == "query":
            yield variable["name"], re.sub(r"^label_values\((.*), \w+\)$", r"\1", variable["query"])


class MetricsTest(unittest.TestCase):
    def test_page_has_the_families_that_are_answered(self):
        text = answered()
        kinds = dict(re.findall(r"^# TYPE (\w+) (\w+)$", text, re.M))
        helps = dict(re.findall(r"^# HELP (\w+) (.*)$", text, re.M))
        found = {}
        for name, kind in kinds.items():
            parts = "(?:_bucket|_sum|_count)" if kind == "histogram" else ""
            samples = re.findall(rf"^{name}{parts}(?:{{(.*)}})? \S+$", text, re.M)
            self.assertTrue(samples, name)
            labels = {tuple(label for label in re.findall(r'(\w+)="', sample) if label != "le") for sample in samples}
            self.assertEqual(1, len(labels), f"{name} has one set of labels")
            found[name] = (kind, list(labels.pop()), helps[name])
        self.assertGreater(len(found), 20)
        self.assertEqual(list(documented().items()), list(found.items()))

    def test_each_line_is_a_sample_or_names_its_family(self):
        family = None
        for line in answered().splitlines():
            header = re.fullmatch(r"# (HELP|TYPE) (mf_\w+) .*", line)
            if header:
                family = header[2]
            else:
                self.assertRegex(line, rf'^{family}(_bucket|_sum|_count)?(\{{(\w+="[^"\\]*",?)+\}})? [-+0-9.e]+$')

    def test_words_of_labels_are_in_the_page(self):
        text = answered()
        for label in ("state", "cause", "direction", "outcome", "reader", "code"):
            row = re.search(rf"^\| `{label}` \| (.*) \|$", PAGE, re.M)
            self.assertTrue(row, label)
            if label != "code":
                for word in set(re.findall(rf'\b{label}="([^"]*)"', text)):
                    self.assertIn(f"`{word}`", row[1])

    def test_alerts_and_dashboard_name_metrics_that_exist(self):
        known = documented()
        used = set()
        for where, expression in expressions():
            with self.subTest(where):
                names = set(re.findall(r"\b(mf_\w+|up)\b", expression))
                self.assertTrue(names)
                self.assertLessEqual(names, set(known) | {"up"})
                used |= names
                # A selector, and what is summed over, names labels that there are.
                for name, selector in re.findall(r"\b(mf_\w+)\{([^}]*)\}", expression):
                    labels = set(re.findall(r"(\w+)\s*(?:=~|!~|!=|=)", selector))
                    self.assertLessEqual(labels, {"instance", "job", *known[name][1]})
        self.assertGreater(len(used), 15)

    def test_dashboard_is_whole(self):
        dashboard = json.loads(DASHBOARD.read_text())
        panels = dashboard["panels"]
        self.assertEqual(len(panels), len({panel["id"] for panel in panels}))
        self.assertEqual(len(panels), len({panel["title"] for panel in panels}))
        taken = set()
        for panel in panels:
            with self.subTest(panel["title"]):
                self.assertEqual({"type": "prometheus", "uid": "${datasource}"}, panel["datasource"])
                self.assertTrue(panel["targets"])
                place = panel["gridPos"]
                self.assertLessEqual(place["x"] + place["w"], 24)
                cells = {(x, y) for x in range(place["x"], place["x"] + place["w"])
                         for y in range(place["y"], place["y"] + place["h"])}  # fmt: skip
                self.assertFalse(cells & taken, "it lies over another one")
                taken |= cells

    def test_alerts_stand_in_the_page(self):
        alerts = [rule["alert"] for group in yaml.safe_load(ALERTS.read_text())["groups"] for rule in group["rules"]]
        self.assertEqual(re.findall(r"^\| `(Mf\w+)` \|", PAGE, re.M), alerts)
        tested = (ROOT / "tests" / "tools" / "alerts_test.yml").read_text()
        for alert in alerts:
            self.assertRegex(tested, rf"alertname: {alert}\b")

    @needs_promtool
    def test_promtool_finds_nothing_in_the_metrics(self):
        self.assertEqual((0, ""), promtool("check", "metrics", text=answered()))

    @needs_promtool
    def test_alerts_are_raised_when_they_should_be(self):
        code, said = promtool("check", "rules", ALERTS)
        self.assertEqual(0, code, said)
        code, said = promtool("test", "rules", ROOT / "tests" / "tools" / "alerts_test.yml")
        self.assertEqual(0, code, said)

    @needs_promtool
    def test_expressions_of_the_dashboard_can_be_read(self):
        rules = [{"record": f"r{number}",
                  "expr": expression.replace("$__rate_interval", "1m").replace("$", "")}
                 for number, (_, expression) in enumerate(expressions())]  # fmt: skip
        with tempfile.NamedTemporaryFile("w", suffix=".yml") as file:
            yaml.safe_dump({"groups": [{"name": "dashboard", "rules": rules}]}, file)
            file.flush()
            code, said = promtool("check", "rules", file.name)
        self.assertEqual(0, code, said)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = Path(sys.argv.pop(1))
    unittest.main()
