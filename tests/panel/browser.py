"""One chromium without a window, for the page's tests."""

import os
import shutil
import tempfile
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

SWITCHES = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
            "--disable-component-update", "--disable-sync", "--disable-extensions", "--disable-dev-shm-usage", "--lang=en"]  # fmt: skip


class Browser:
    """The driver is .driver; close() ends it and removes what it has written. switches are further ones of its command line."""

    def __init__(self, width=1280, height=800, switches=()):
        self.profile = tempfile.mkdtemp(prefix="mfhost-panel-")
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium") or "chromium"
        for switch in [*SWITCHES, *switches, f"--user-data-dir={self.profile}", f"--window-size={width},{height}"]:
            options.add_argument(switch)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver") or "chromedriver"), options=options)
        self.driver.set_script_timeout(120)

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def media(self, **features):
        """prefers_color_scheme="dark" and the like."""
        wanted = [{"name": name.replace("_", "-"), "value": each} for name, each in features.items()]
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": wanted})

    def renderers(self):
        """Processes that draw its pages; not the one that draws its own buttons, which grows by itself."""
        for each in Path("/proc").glob("[0-9]*/cmdline"):
            try:
                words = each.read_bytes().replace(b"\0", b" ").decode(errors="replace")
            except OSError:
                continue
            if "--type=renderer" in words and "--top-chrome-webui" not in words and self.profile in words:
                yield int(each.parent.name)

    def main_thread_seconds(self):
        """What the main threads of its pages have computed so far."""
        ticks = 0
        for pid in self.renderers():
            fields = Path(f"/proc/{pid}/task/{pid}/stat").read_text().rsplit(")", 1)[1].split()
            ticks += int(fields[11]) + int(fields[12])
        return ticks / os.sysconf("SC_CLK_TCK")

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)
