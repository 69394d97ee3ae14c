#!/usr/bin/python3
"""A stand-in for the host's web port: gives out the page, and speaks the API and the live channel as docs/api.yaml and
docs/panel.md have them. It refuses what the host refuses: members, parameters and codes that are not known. A test
decides what is in the workplace, what is told, and what answers come late, wrong or never."""

import base64
import hashlib
import json
import re
import socket
import struct
import threading
import time
from datetime import datetime, timezone
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from urllib.parse import parse_qs, unquote, urlsplit

PAGE = Path(__file__).resolve().parents[2] / "mfhost" / "web" / "page"
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8", ".svg": "image/svg+xml"}
POLICY = "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'; object-src 'none'"
ROLES = ["view", "operate", "admin"]
REQUEST = re.compile(r"^[A-Za-z0-9._-]{1,64}$")

# Path -> role, members of the body beside "request" and "timeoutMs" (with * those that must be there).
ACTIONS = {
    r"/fid": ("operate", {"fid*", "parameters", "wait"}),
    r"/state": ("operate", {"key*", "type*", "value*"}),
    r"/unset": ("operate", {"key*"}),
    r"/event": ("operate", {"id*", "value*"}),
    r"/acknowledge": ("operate", {"keys*"}),
    r"/shelve": ("operate", {"keys*", "seconds"}),
    r"/controls": ("operate", {"take*", "unlessHeld"}),
    r"/macros/([^/]+)/play": ("operate", set()),
    r"/drivers/([^/]+)/(reload|park|unpark)": ("admin", set()),
    r"/plan": ("operate", set()),
    r"/apply": ("admin", {"plan"}),
    r"/undo": ("admin", {"number"}),
    r"/console": ("admin", {"line*", "columns"}),
    r"/sessions/(\d+)/revoke": ("admin", set()),
}


def iso(us):
    return datetime.fromtimestamp(us // 1000000, timezone.utc).strftime("%Y-%m-%dT%H:%M:%S") + f".{us % 1000000 // 1000:03}Z"


def value(key, given, owner=None, stale=None, age_ms=0, version=1):
    """A value as GET /state gives it."""
    kind = {bool: "bool", int: "int", float: "float", str: "string"}[type(given)]
    text = str(given).lower() if kind == "bool" else str(given)
    return {"key": key, "type": kind, "value": given, "text": text, "owner": owner or key.split(".")[0], "start": 1, "ageMs": age_ms,
            "version": version, "stale": {"cause": stale, "forMs": 1000} if stale else None}  # fmt: skip


def driver(name, state="running", mode="queue", **others):
    """A driver as GET /drivers gives it."""
    return {"id": name, "type": "Axis", "version": "1.0", "mode": mode, "state": state, "status": state, "alive": state == "running",
            "pid": 4711 if mode == "queue" and state == "running" else None, "byHand": False, "start": 1, "since": iso(int(time.time() * 1e6) - 90_000_000),
            "cause": "", "restarts": 0, "nextTryMs": None, "receivedPerSecond": 2.0, "sentPerSecond": 0.5, "queuedIn": 0 if mode == "queue" else None,
            "queuedOut": 0 if mode == "queue" else None, "valuesLost": 0, **others}  # fmt: skip


def link(name, told="up", stale=None, site="HALL", delay=1.5, error=None):
    """What a link driver reports of itself."""
    gone = stale or (None if told == "up" else told)
    parts = [value(f"{name}.LINK", told, stale=stale, age_ms=61_000), value(f"{name}.LINK_SITE", site, stale=stale), value(f"{name}.LINK_TO", name, stale=stale),
             value(f"{name}.LINK_BROKER", "broker.example.net port 8883", stale=stale), value(f"{name}.LINK_DELAY", delay, stale=gone),
             value(f"{name}.LINK_IN", 10.0, stale=gone), value(f"{name}.LINK_OUT", 0.5, stale=gone)]  # fmt: skip
    return parts + ([value(f"{name}.LINK_ERROR", error, age_ms=180_000)] if error else [])


class Connection:
    """One open page."""

    def __init__(self, sock):
        self.sock = sock
        self.lock = threading.Lock()
        self.version = 0

    def send(self, message):
        data = json.dumps(message, separators=(",", ":")).encode()
        head = bytes([0x81]) + (bytes([len(data)]) if len(data) < 126 else struct.pack("!BH", 126, len(data)) if len(data) < 65536
                                else struct.pack("!BQ", 127, len(data)))  # fmt: skip
        with self.lock:
            try:
                self.sock.sendall(head + data)
            except OSError:
                pass

    def close(self):
        try:
            self.sock.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


class StandIn:
    def __init__(self, role="admin", workplace="hall.xml"):
        self.role, self.workplace, self.instance = role, workplace, "first"
        self.token = "token-1"
        self.by_cookie = False  # the page never sees the token, as elsewhere than on the host's machine
        self.codes = {"open-sesame", "123456"}
        self.values, self.drivers, self.alarms, self.records = {}, {}, [], []
        # Who is at the controls, and what was asked of them: no test of another action need count it.
        self.controls, self.asked_controls = None, []
        self.files = {1: "<a/>\n<b/>", 2: "<a/>\n<c/>"}
        self.macros = ["home"]
        self.sessions = []
        # What GET answers, by the path behind /api/v1, beside what there is always.
        self.pasts = {}
        # What an action answers: (status, body), or a function of the body that gives it. By path.
        self.answers = {}
        self.actions = []  # (path, body) of each action that was done
        self.faults = []  # what the page has asked for that the host would refuse as malformed
        self.pages = []
        self.is_beating = True  # else it stands still, as a process that is stopped
        self.is_mute = False  # sends no heartbeats
        self.is_lost = False  # answers are not sent: the connection ends
        self.started = iso(int(time.time() * 1e6))
        self.known = {}  # request -> answer
        self.version = 1
        self.number = 0
        self.lock = threading.RLock()
        stand_in = self

        class Handler(BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def log_message(self, *_):
                pass

            def handle_one_request(self):
                try:
                    super().handle_one_request()
                except OSError:
                    self.close_connection = True

            def do_GET(self):
                stand_in.get(self)

            def do_POST(self):
                stand_in.post(self)

            def do_DELETE(self):
                stand_in.post(self)

        class Server(ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):
                pass

        self.server = Server(("127.0.0.1", 0), Handler)
        self.port = self.server.server_address[1]
        self.url = f"http://127.0.0.1:{self.port}/"
        threading.Thread(target=self.server.serve_forever, args=(0.05,), daemon=True).start()
        self.stopped = threading.Event()
        threading.Thread(target=self.beat, daemon=True).start()

    # --- what a test does ---

    def now(self):
        return int(time.time() * 1e6)

    def put_values(self, *values):
        self.tell(values=list(values))

    def tell(self, **chunk):
        """Takes it over, and tells the open pages."""
        with self.lock:
            for each in chunk.get("values", []):
                self.values[each["key"]] = each
            for key in chunk.get("gone", []):
                self.values.pop(key, None)
            for each in chunk.get("drivers", []):
                self.drivers[each["id"]] = each
            for name in chunk.get("driversGone", []):
                self.drivers.pop(name, None)
            if "controls" in chunk:
                self.controls = chunk["controls"]
            if "alarms" in chunk:
                self.alarms = chunk["alarms"]
            for each in chunk.get("records", []):
                self.number += 1
                each.setdefault("number", self.number)
                each.setdefault("time", iso(self.now()))
                self.records.append(each)
            self.version += 1
            for page in self.pages:
                self.send_chunk(page, page.version, chunk)

    def send_chunk(self, page, since, chunk):
        page.send({"kind": "chunk", "from": since, "to": self.version, "time": self.now(), **chunk})
        page.version = self.version

    def restart(self, instance):
        """As if the host were another one now."""
        with self.lock:
            self.instance, self.known, self.values, self.drivers, self.alarms, self.controls = instance, {}, {}, {}, [], None
            self.started = iso(self.now())
            self.cut()

    def cut(self):
        with self.lock:
            for page in self.pages:
                page.close()
            self.pages = []

    def bye(self, code, text):
        with self.lock:
            for page in self.pages:
                page.send({"kind": "bye", "code": code, "text": text})
            self.cut()

    def stop(self):
        self.is_beating = True
        self.stopped.set()
        self.cut()
        self.server.shutdown()
        self.server.server_close()

    # --- the live channel ---

    def beat(self):
        while not self.stopped.wait(1):
            with self.lock:
                if self.is_beating and not self.is_mute:
                    for page in self.pages:
                        page.send({"kind": "heartbeat", "time": self.now(), "version": self.version})

    def live(self, handler):
        key = handler.headers.get("Sec-WebSocket-Key", "") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"
        handler.wfile.write(b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: "
                            + base64.b64encode(hashlib.sha1(key.encode()).digest()) + b"\r\n\r\n")  # fmt: skip
        page = Connection(handler.connection)
        handler.close_connection = True
        first = self.read_message(handler.rfile)
        if first is None:
            return
        message = json.loads(first)
        unknown = set(message) - {"authorize", "page"}
        if unknown or (not self.is_allowed(handler) if self.by_cookie else message.get("authorize") != self.token):
            self.faults.append(f"live: {message}")
            page.send({"kind": "bye", "code": "revoked", "text": "This session is not open."})
            page.close()
            return
        with self.lock:
            page.send({"kind": "hello", "instance": self.instance, "workplace": self.workplace, "role": self.role, "user": "anna", "session": "7",
                       "time": self.now(), "version": self.version, "heartbeat": 1000})  # fmt: skip
            chunk = {"controls": self.controls, "values": list(self.values.values()), "drivers": list(self.drivers.values()), "alarms": self.alarms, "records": self.records}
            self.send_chunk(page, 0, {name: each for name, each in chunk.items() if each})
            self.pages.append(page)
        while self.read_message(handler.rfile) is not None:
            pass
        with self.lock:
            if page in self.pages:
                self.pages.remove(page)

    @staticmethod
    def read_message(stream):
        """A text message of the page; None at the end."""
        while True:
            head = stream.read(2)
            if len(head) < 2:
                return None
            length = head[1] & 127
            if length == 126:
                (length,) = struct.unpack("!H", stream.read(2))
            elif length == 127:
                (length,) = struct.unpack("!Q", stream.read(8))
            mask = stream.read(4)
            data = bytes(byte ^ mask[index % 4] for index, byte in enumerate(stream.read(length)))
            if head[0] & 15 == 8:
                return None
            if head[0] & 15 == 1:
                return data

    # --- requests ---

    def answer(self, handler, status, body, content_type="application/json", fields=()):
        if self.is_lost:
            # Browsers ask again by themselves where nothing at all has come.
            handler.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 1000\r\n\r\n{")
            handler.close_connection = True
            return
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        handler.send_response(status)
        for name, text in (("Content-Type", content_type), ("Content-Length", str(len(data))), *fields):
            handler.send_header(name, text)
        handler.end_headers()
        handler.wfile.write(data)

    def refuse(self, handler, status, code, text, **others):
        self.answer(handler, status, {"error": {"code": code, "text": text, "nearest": [], **others}})

    def get(self, handler):
        parts = urlsplit(handler.path)
        if not parts.path.startswith("/api/"):
            self.file(handler, parts.path)
            return
        self.hold()
        if parts.path == "/api/v1/live":
            self.live(handler)
            return
        if not self.is_allowed(handler):
            return
        if parse_qs(parts.query, keep_blank_values=True):
            self.faults.append(handler.path)
            self.refuse(handler, 400, "request-invalid", "parameters are not known")
            return
        path = parts.path.removeprefix("/api/v1")
        host = {"version": "1", "api": 1, "instance": self.instance, "workplace": self.workplace, "started": self.started, "pid": 1,
                "role": self.role, "user": "anna"}  # fmt: skip
        known = {
            "": host,
            "/controls": {"controls": self.controls},
            "/macros": {"macros": [{"name": name} for name in self.macros]},
            "/sessions": {"sessions": self.sessions},
            "/queues": {"queues": [self.queue(name, end) for name, each in self.drivers.items() if each["mode"] == "queue" for end in ("INQ", "OUTQ")]},
            "/history": {"history": [{"number": number, "when": iso(1_700_000_000_000_000 + number * 60_000_000), "who": "anna", "digest": "d", "outcome": "applied"}
                                     for number in self.files]},
        }  # fmt: skip
        file = re.fullmatch(r"/history/(\d+)", path)
        card = re.fullmatch(r"/drivers/([^/]+)", path)
        past = re.fullmatch(r"/(?:state/[^/]+/history|drivers/[^/]+/runs)", path)
        if past:
            self.answer(handler, *self.pasts.get(unquote(path), (409, {"error": {"code": "refused", "text": "the host does not record", "nearest": []}})))
        elif file and int(file[1]) in self.files:
            self.answer(handler, 200, {**known["/history"]["history"][0], "number": int(file[1]), "file": self.files[int(file[1])]})
        elif card and unquote(card[1]) in self.drivers:
            self.answer(handler, 200, {**self.drivers[unquote(card[1])], "module": "/lib/axis.so", "descriptor": "/lib/axis.xml", "directory": "data",
                                       "networkAdapter": "", "queues": [], "lastWords": ["axis: no encoder"],
                                       "log": [{"time": iso(self.now()), "level": 3, "output": "MFD", "driver": unquote(card[1]), "text": "slow"}]})  # fmt: skip
        elif path in known:
            self.answer(handler, 200, known[path])
        else:
            self.faults.append(handler.path)
            self.refuse(handler, 404, "not-found", "no such resource")

    @staticmethod
    def queue(name, end):
        return {"name": f"{name}_{end}", "driver": name, "capacity": 100, "depth": 0, "highWater": 0, "messages": 0, "bytes": 0, "received": 0, "waits": 0,
                "waitingForMs": 0, "lockedForMs": 0, "holders": 2, "receiver": True, "receiverPid": None, "broken": False}  # fmt: skip

    def file(self, handler, path):
        file = PAGE / (path.lstrip("/") or "index.html")
        if file.parent != PAGE or not file.is_file():
            # That one the browser asks for by itself, where a test opens a file that is no page.
            if path != "/favicon.ico":
                self.faults.append(path)
            self.refuse(handler, 404, "not-found", "no such file")
            return
        self.answer(handler, 200, file.read_bytes(), TYPES[file.suffix], [("Content-Security-Policy", POLICY), ("X-Content-Type-Options", "nosniff")])

    def is_allowed(self, handler):
        cookie, bearer = handler.headers.get("Cookie", ""), handler.headers.get("Authorization", "")
        if f"mfhost-hall={self.token}" in cookie.split("; ") if self.by_cookie else bearer == f"Bearer {self.token}":
            return True
        self.refuse(handler, 401, "session-needed", "a session is needed; mfctl panel opens one")
        return False

    def hold(self):
        """A host that is stopped takes connections, and answers nothing."""
        while not self.is_beating and not self.stopped.wait(0.05):
            pass

    def post(self, handler):
        self.hold()
        path = handler.path.removeprefix("/api/v1")
        length = int(handler.headers.get("Content-Length") or 0)
        body = json.loads(handler.rfile.read(length) or b"{}")
        if path == "/session":
            self.session(handler, body)
            return
        if not self.is_allowed(handler):
            return
        found = next(((role, members) for pattern, (role, members) in ACTIONS.items() if re.fullmatch(pattern, path)), None)
        fault = self.fault(handler, path, body, found)
        if fault:
            self.faults.append(f"{path} {body}: {fault}")
            self.refuse(handler, 400, "request-invalid", fault)
            return
        if ROLES.index(self.role) < ROLES.index(found[0]):
            self.refuse(handler, 403, "not-allowed", f"this needs the role {found[0]}")
            return
        self.answer(handler, *self.act(path, body))

    @staticmethod
    def fault(handler, path, body, found):
        if not found:
            return "no such resource"
        if handler.headers.get("Content-Type") != "application/json":
            return "the body is not of the type application/json"
        known = {name.rstrip("*") for name in found[1]} | {"request", "timeoutMs"}
        if set(body) - known:
            return f"members that are not known: {sorted(set(body) - known)}"
        missing = {name[:-1] for name in found[1] if name.endswith("*")} - set(body)
        if missing:
            return f"missing: {sorted(missing)}"
        if not REQUEST.match(body.get("request", "")) or not 0 <= body.get("timeoutMs", 5000) <= 60000:
            return "request or timeoutMs is wrong"
        types = {"string": str, "int": int, "float": (int, float), "bool": bool}
        if path == "/state" and not isinstance(body["value"], types[body["type"]]):
            return "the value is not of its type"
        return ""

    def act(self, path, body):
        """Done once under each request; an answer with 202 is followed by the next one."""
        with self.lock:
            request, content = body["request"], {name: each for name, each in body.items() if name != "timeoutMs"}
            if request in self.known:
                former, answers = self.known[request]
                if former != (path, content):
                    return 409, {"error": {"code": "request-differs", "text": "another action", "nearest": []}}
            elif path == "/controls":
                return self.change_controls(body)
            else:
                self.actions.append((path, {name: each for name, each in content.items() if name != "request"}))
                given = self.answers.get(path, (200, {}))
                given = given(body) if callable(given) else given
                answers = list(given) if isinstance(given, list) else [given]
                self.known[request] = ((path, content), answers)
            return answers.pop(0) if len(answers) > 1 else answers[0]

    @staticmethod
    def holder(name, session=None):
        """Who is at the controls, since three minutes past noon of today where the test runs."""
        noon = datetime.now().replace(hour=12, minute=3, second=0, microsecond=0)
        return {"name": name, "from": f"web session {session} from 192.0.2.8" if session else "the control socket", "session": session,
                "since": iso(int(noon.timestamp() * 1e6))}  # fmt: skip

    def change_controls(self, body):
        """The page is of session 7."""
        self.asked_controls.append({name: body[name] for name in ("take", "unlessHeld") if name in body})
        is_own = self.controls and self.controls["session"] == 7
        if self.controls and not is_own and (body.get("unlessHeld") or not body["take"]):
            return 409, {"error": {"code": "refused", "text": f"{self.controls['name']} has the controls", "nearest": []}}
        if body["take"] != bool(is_own):
            self.tell(controls=self.holder("anna", 7) if body["take"] else None)
        return 200, {"controls": self.controls}

    def session(self, handler, body):
        if handler.command == "DELETE":
            self.token = "token-ended"
            self.answer(handler, 200, {})
        elif set(body) != {"code"}:
            self.faults.append(f"/session {body}")
            self.refuse(handler, 400, "request-invalid", "only code is known")
        elif body["code"] not in self.codes:
            self.refuse(handler, 403, "not-allowed", "This code does not hold.")
        else:
            self.codes.discard(body["code"])
            answer = {"role": self.role, "user": "anna", "workplace": self.workplace}
            cookie = [("Set-Cookie", f"mfhost-hall={self.token}; Path=/; Max-Age=60; HttpOnly; SameSite=Strict")]
            self.answer(handler, 200, answer if self.by_cookie else {"token": self.token, **answer}, fields=cookie if self.by_cookie else [])


def demo_hour(stand_in):
    """An axis that goes to and fro, stood still once, and was not recorded at first."""
    begin = stand_in.now() - 3_600_000_000

    def exact(second):
        us = begin + second * 1_000_000
        return iso(us)[:-1] + f"{us % 1000:03}Z"

    points = [{"time": exact(second), "value": 100 + second * 7 % 61 / 2, "text": str(100 + second * 7 % 61 / 2)}
              for second in range(900, 3600, 45) if not 2000 < second < 2400]  # fmt: skip
    fid = {"number": 7, "time": exact(3590), "kind": "fid", "driver": "host", "fid": "AXIS1.MOVE", "parameters": [["to", "123.4"], ["fast", "true"]],
           "receiver": "AXIS1", "origin": "panel", "who": "anna (web session 7 from 192.0.2.20)", "outcome": "written", "beforeUs": 1210}  # fmt: skip
    last = [{"number": 9, **point, "before": [fid] if number % 2 == 0 else []} for number, point in enumerate(reversed(points[-8:]))]
    return {"key": "AXIS1.POSITION", "from": exact(0), "to": exact(3600), "changes": 70, "thinned": False, "held": None, "points": points, "last": last,
            "now": None, "gaps": [{"reason": "not-recorded", "from": exact(0), "to": exact(900), "text": "nothing was recorded"},
                                  {"reason": "stale", "from": exact(1990), "to": exact(2400), "text": "signal 11 (Segmentation fault)"}]}  # fmt: skip


def demo_life(stand_in):
    """A driver that ends again and again."""
    steps = []
    for second, step, text in ((2, "restart", "in 8000 ms"), (2, "end", "signal 11 (Segmentation fault)"), (60, "answer", ""), (61, "start", "again"),
                               (63, "restart", "in 2000 ms"), (63, "end", "signal 11 (Segmentation fault)"), (600, "answer", ""), (601, "start", ""),
                               (640, "parked", "parked by anna"), (641, "end", "parked by anna"), (9000, "hang", "no answer for 10 s"), (9100, "start", "")):  # fmt: skip
        us = stand_in.now() - second * 1_000_000
        steps.append({"time": iso(us)[:-1] + f"{us % 1000:03}Z", "step": step, "pid": 4711, "start": 1, "text": text})
    return {"driver": "AXIS3", "more": False, "steps": steps, "gaps": [], "recorded": True, "since": steps[-1]["time"]}


def demo():
    """A workplace with a bit of everything, for pictures and for trying the page by hand."""
    stand_in = StandIn(workplace="/etc/mfhost/hall.xml")
    drivers = [driver("PANEL", mode="direct"), driver("AXIS1", receivedPerSecond=41.2, sentPerSecond=12.0), driver("AXIS2", receivedPerSecond=38.0, sentPerSecond=11.4),
               driver("AXIS3", "waiting", cause="signal 11 (Segmentation fault)", restarts=3, nextTryMs=8000, status="ended"),
               driver("LAMP", "hung", restarts=1, cause="does not answer", queuedIn=91, receivedPerSecond=0.0), driver("SYS", receivedPerSecond=1.0),
               driver("OSC", "parked", mode="direct"), driver("DOOR", "starting"),
               driver("NORTH", type="Link", mode="direct"), driver("WEST", type="Link", mode="direct")]  # fmt: skip
    values = []
    for axis in ("AXIS1", "AXIS2", "AXIS3"):
        stale = "signal 11 (Segmentation fault)" if axis == "AXIS3" else None
        values += [value(f"{axis}.POSITION", 123.4, stale=stale, age_ms=400), value(f"{axis}.SPEED", 12, stale=stale, age_ms=1400),
                   value(f"{axis}.HOMED", True, stale=stale, age_ms=7_300_000), value(f"{axis}.LABEL", "left of the gate", stale=stale, age_ms=300_000_000)]  # fmt: skip
    values += [value("SYS.LOAD", 0.42, age_ms=900), value("SYS.MEMORY", 61, age_ms=900), value("SYS.HOSTNAME", "hall-1", age_ms=90_000),
               value("LAMP.BRIGHTNESS", 40, stale="does not answer", age_ms=45_000), value("PANEL.STAGE", "setup", age_ms=500_000)]  # fmt: skip
    values += link("NORTH") + link("WEST", "WEST is away", error="STAGE.MOVE: not known: WEST went before the answer came")
    stand_in.tell(values=values, drivers=drivers, alarms=[
        {"key": "LAMP.DRIVER", "text": "hangs: no answer for 10 s", "raised": iso(stand_in.now() - 45_000_000), "count": 1, "over": False, "shelvedForMs": None, "shelvedBy": ""},
        {"key": "SYS", "text": "load 19.05 is above 4", "raised": iso(stand_in.now() - 600_000_000), "count": 3, "over": True, "shelvedForMs": None, "shelvedBy": ""}])  # fmt: skip
    stand_in.tell(records=[
        {"kind": "fid", "driver": "PANEL", "fid": "AXIS1.MOVE", "parameters": [["to", "123.4"], ["fast", "true"]], "receiver": "AXIS1", "origin": "driver", "outcome": "begins"},
        {"kind": "event", "driver": "AXIS1", "key": "AXIS1.HOMED", "value": "at the switch"},
        {"kind": "command", "driver": "host", "origin": "api", "who": "anna", "line": "reloadDriver AXIS2"},
        {"kind": "command-end", "driver": "host", "of": 3, "ok": True, "took_us": 128311},
        {"kind": "fid", "driver": "host", "fid": "LAMPE.ON", "parameters": [], "origin": "console", "outcome": "no such driver"},
        {"kind": "log", "driver": "LAMP", "level": 3, "output": "MFD", "text": "the line is noisy"},
        {"kind": "exit", "driver": "AXIS3", "status": 139, "text": "signal 11 (Segmentation fault)"},
        {"kind": "stale", "driver": "AXIS3", "values": 4, "text": "signal 11 (Segmentation fault)"},
        {"kind": "restart", "driver": "AXIS3", "text": "is started again in 8 s"},
        {"kind": "hang", "driver": "LAMP", "text": "no answer for 10 s"},
        {"kind": "fid-end", "driver": "AXIS2", "of": 1, "outcome": "late", "took_us": 2210}])  # fmt: skip
    stand_in.answers["/fid"] = lambda body: [
        (202, {"fid": body["fid"], "driver": "AXIS1", "stage": "dispatched", "tookUs": 80}),
        (200, {"fid": body["fid"], "driver": "AXIS1", "stage": "taken", "tookUs": 740})]  # fmt: skip
    stand_in.answers["/plan"] = (200, {"plan": "p1", "digest": "1f0c", "refusal": "", "findings": [
        {"severity": "warning", "file": "/etc/mfhost/hall.xml", "line": 14, "text": "\"speeed\" is not read"}], "changes": [
        {"action": "reload", "driver": "AXIS2", "reason": "its entry has changed"}, {"action": "load", "driver": "FAN", "reason": "it is new"}]})  # fmt: skip
    stand_in.pasts = {"/state/AXIS1.POSITION/history": (200, demo_hour(stand_in)), "/drivers/AXIS3/runs": (200, demo_life(stand_in))}
    stand_in.sessions = [
        {"id": 7, "user": "anna", "uid": 1000, "pid": None, "address": "127.0.0.1", "role": "admin", "since": iso(stand_in.now()), "requests": 12},
        {"id": 8, "user": "anna", "uid": 1000, "pid": None, "address": "192.0.2.20", "role": "operate", "since": iso(stand_in.now()), "requests": 340}]  # fmt: skip
    return stand_in


if __name__ == "__main__":
    host = demo()
    print(f"{host.url}#code=open-sesame", flush=True)
    while True:
        time.sleep(1)
        host.put_values(value("AXIS1.POSITION", 120 + time.time() % 10), value("SYS.LOAD", 0.4 + time.time() % 7 / 10))
