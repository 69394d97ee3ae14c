#!/usr/bin/python3
"""As many pages as a real host takes, for some time: what its memory comes to, whether each of them is told the last value, and
whether there is room for what they ask. Then what one page weighs on the wire, and how long it takes to show 1,000 values.
usage: tests/panel/many.py BUILD [SECONDS]
  BUILD    the build tree with the host
  SECONDS  for which the pages are open (20)"""

import base64
import json
import os
import selectors
import socket
import struct
import sys
import time

# Nothing is left beside the sources.
sys.dont_write_bytecode = True

from browser import Browser  # noqa: E402
from realhost import PATIENCE, judged  # noqa: E402

PAGES = 32
VALUES = 1000
EACH_SECOND = 100
# So much more it may have at the end than with all pages at the beginning; it goes up and down by 3 MB. What each page was sent
# in 20 s is some 10 MB.
MOST_GROWTH_KB = 6144
MOST_WEIGHT_KB = 150
MOST_TO_PICTURE_MS = 1000
# The host looks each 50 ms.
MOST_CHUNKS_A_SECOND = 20


class OpenPage:
    """What a page knows of the values, without its pictures."""

    def __init__(self, host, token):
        self.values, self.input, self.bye, self.chunks = {}, b"", "", 0
        address, port = host.place.rsplit(":", 1)
        self.sock = socket.create_connection((address, int(port)), PATIENCE)
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall(f"GET /api/v1/live HTTP/1.1\r\nHost: {host.place}\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                          f"Sec-WebSocket-Key: {key}\r\n\r\n".encode())  # fmt: skip
        while b"\r\n\r\n" not in self.input:
            self.input += self.sock.recv(4096)
        head, _, self.input = self.input.partition(b"\r\n\r\n")
        if b" 101 " not in head:
            raise SystemExit(f"many: no page is had: {head}")
        text = json.dumps({"authorize": token, "page": "values"}).encode()
        self.sock.sendall(bytes([0x81, 0x80 | len(text), 0, 0, 0, 0]) + text)

    def read(self):
        """Takes what is there; False at the end."""
        piece = self.sock.recv(1 << 20)
        self.input += piece
        while len(self.input) >= 2:
            size, at = self.input[1], 2
            if size == 126:
                size, at = struct.unpack_from("!H", self.input, 2)[0] if len(self.input) >= 4 else 1 << 30, 4
            elif size == 127:
                size, at = struct.unpack_from("!Q", self.input, 2)[0] if len(self.input) >= 10 else 1 << 30, 10
            if len(self.input) < at + size:
                break
            frame, self.input, kind = self.input[at : at + size], self.input[at + size :], self.input[0] & 15
            if kind == 9:
                self.sock.sendall(bytes([0x8A, 0x80 | len(frame), 0, 0, 0, 0]) + frame)
            elif kind == 1:
                self.take(json.loads(frame))
        return bool(piece)

    def take(self, message):
        if message["kind"] == "bye":
            self.bye = message["text"]
        self.chunks += message["kind"] == "chunk"
        for each in message.get("values", []):
            self.values[each["key"]] = each["value"]


def crowd(host, seconds, faults):
    token = host.sign_in()
    for number in range(VALUES):
        host.set(f"SHOW.V{number:04}", 0)
    alone = host.private_kb()
    selector = selectors.DefaultSelector()
    pages = [OpenPage(host, token) for _ in range(PAGES)]
    for page in pages:
        selector.register(page.sock, selectors.EVENT_READ, page)

    def read(until):
        while True:
            for key, _ in selector.select(max(0, until - time.monotonic())):
                if not key.data.read():
                    selector.unregister(key.fileobj)
                    faults.append(f"many: a page was let go: {key.data.bye}")
            if time.monotonic() >= until:
                return

    begin = time.monotonic()
    read(begin + 3)
    opened, told, sent = host.private_kb(), begin, 0
    most = opened
    while time.monotonic() - begin < seconds:
        sent += 1
        host.set(f"SHOW.V{sent % VALUES:04}", sent)
        read(begin + 3 + sent / EACH_SECOND)
        if time.monotonic() - told >= 60:
            told = time.monotonic()
            print(f"many: after {(told - begin) / 60:.0f} min the host has {host.private_kb()} KB of its own", flush=True)
        if sent % 100 == 0:
            most = max(most, host.private_kb())
    status, answer = host.ask("POST", "/api/v1/event", {"id": "SHOW.DONE", "value": "x"}, token)
    if status != 200:
        faults.append(f"many: beside {PAGES} pages an action is answered with {status}: {answer}")
    last = f"SHOW.V{sent % VALUES:04}"
    end = time.monotonic() + PATIENCE
    while any(page.values.get(last) != sent for page in pages) and time.monotonic() < end:
        read(time.monotonic() + 0.1)
    behind = sum(page.values.get(last) != sent or len(page.values) < VALUES for page in pages)
    if behind:
        faults.append(f"many: {behind} of {PAGES} pages do not have the last value")
    most_chunks = max(page.chunks for page in pages) / (time.monotonic() - begin)
    if most_chunks > MOST_CHUNKS_A_SECOND:
        faults.append(f"many: a page was told something {most_chunks:.1f} times a second")
    closing = host.private_kb()
    for page in pages:
        page.sock.close()
    print(f"many: {PAGES} pages for {time.monotonic() - begin:.0f} s, {sent} values set: the host has {alone} KB of its own without a page, "
          f"{opened} KB with all of them, {closing} KB at the end, {most} KB at most; a page was told something {most_chunks:.1f} times a second")  # fmt: skip
    if closing - opened > MOST_GROWTH_KB:
        faults.append(f"many: the host's memory has grown by {closing - opened} KB while the pages were open")


def look(host, faults):
    """One page in a browser that has nothing of it yet."""
    browser = Browser()
    try:
        browser.driver.get(host.url + "favicon.svg")
        browser.driver.execute_script("localStorage.setItem('mfhost.token', arguments[0])", host.sign_in())
        browser.driver.execute_cdp_cmd("Network.enable", {})
        browser.driver.execute_cdp_cmd("Network.setCacheDisabled", {"cacheDisabled": True})
        took = min(first_picture(browser, host) for _ in range(5))
        weight, files = browser.driver.execute_script("""const all = [...performance.getEntriesByType("navigation"), ...performance.getEntriesByType("resource")]
            .filter((each) => !each.name.includes("/api/")); return [all.reduce((sum, each) => sum + each.transferSize, 0), all.length];""")
        print(f"many: a page is {weight / 1024:.0f} KB on the wire in {files} files; {VALUES} values are in sight {took:.0f} ms after it was asked for (best of 5)")
        if weight > MOST_WEIGHT_KB * 1024:
            faults.append(f"many: the page weighs {weight} bytes on the wire")
        if took > MOST_TO_PICTURE_MS:
            faults.append(f"many: {VALUES} values are in sight only {took:.0f} ms after the page was asked for")
    finally:
        browser.close()


def first_picture(browser, host):
    """Milliseconds from asking for the page to the frame with its rows; the page itself looks, each frame."""
    browser.driver.get("about:blank")
    browser.driver.get(f"{host.url}#values?filter=SHOW")
    return browser.driver.execute_async_script("""const [wanted, done] = arguments;
        const look = () => document.querySelector(".values")?.innerText.includes(wanted) && document.querySelectorAll(".values .row").length > 1
            ? requestAnimationFrame(() => done(performance.now())) : requestAnimationFrame(look);
        look();""", f"{VALUES} of")


def main():
    build, seconds = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 20

    def all_of_it(host, faults):
        crowd(host, seconds, faults)
        look(host, faults)

    return judged("many", build, all_of_it)


if __name__ == "__main__":
    sys.exit(main())
