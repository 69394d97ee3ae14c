"""A driver of an MF workplace in Python: the two queues between its process and the host, through libmfdqueue.

A driver derives from Driver, and its file ends with

    if __name__ == "__main__":
        sys.exit(Lamp.main())

The host starts it with the driver ID as its one argument. All operations to override come on the main thread, one after
another; what reports and sends may be called on any thread. See docs/foreign-drivers.md."""

import contextlib
import ctypes
import io
import os
import signal
import sys
import time
import traceback
from pathlib import Path

CRITICAL, ERROR, WARNING, INFO, TRACE = 1, 2, 3, 4, 5

_MESSAGE = 1024
_FIELDS = 511
_DONE, _ENDED, _REFUSED, _UNKNOWN = 0, -1, -2, -3
_TEXT, _INT, _FLOAT, _BOOL = 1, 2, 3, 4
# How long the main thread waits before it looks whether a signal has come.
_LOOK = 0.1


class Error(Exception):
    """What the library refuses, in its words."""


class _Field(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int32), ("integer", ctypes.c_int32), ("number", ctypes.c_float),
                ("length", ctypes.c_uint32), ("text", ctypes.c_void_p)]


def _load():
    """The library named by MFDQUEUE_LIBRARY, else the one of the directory above this file's, else the loader's."""
    beside = Path(__file__).resolve().parent.parent / "libmfdqueue.so.0"
    name = os.environ.get("MFDQUEUE_LIBRARY") or (str(beside) if beside.exists() else "libmfdqueue.so.0")
    library = ctypes.CDLL(name)
    for function, result, arguments in (
        ("open", ctypes.c_void_p, [ctypes.c_char_p]),
        ("receive", ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int]),
        ("send", ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int]),
        ("close", None, [ctypes.c_void_p]),
        ("error", ctypes.c_char_p, []),
        ("log", None, [ctypes.c_int, ctypes.c_char_p]),
        ("encode", ctypes.c_int, [ctypes.c_char_p, ctypes.POINTER(_Field), ctypes.c_size_t, ctypes.c_char_p, ctypes.c_size_t]),
        ("decode", ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p, ctypes.POINTER(_Field),
                                  ctypes.c_size_t, ctypes.c_char_p]),
    ):
        found = getattr(library, "mfdqueue_" + function)
        found.restype, found.argtypes = result, arguments
    return library


_library = _load()


def _error():
    return _library.mfdqueue_error().decode(errors="replace")


def _bytes(text):
    return str(text).encode("utf-8", "surrogateescape")


def log(text, level=INFO):
    """One line of the process's log. Any thread."""
    _library.mfdqueue_log(level, _bytes(text).replace(b"\0", b""))


def encode(code, *values):
    """The bytes of a message. A str is a text, a bool, an int and a float what they are; parameters are two texts each.
    Raises Error for what is no message."""
    fields = (_Field * max(len(values), 1))()
    kept = []
    for field, value in zip(fields, values):
        if isinstance(value, bool):
            field.kind, field.integer = _BOOL, value
        elif isinstance(value, int):
            if not -2**31 <= value < 2**31:
                raise Error(f"{value} is no number from -2147483648 to 2147483647")
            field.kind, field.integer = _INT, value
        elif isinstance(value, float):
            field.kind, field.number = _FLOAT, value
        else:
            text = ctypes.create_string_buffer(_bytes(value))
            kept.append(text)
            field.kind, field.length, field.text = _TEXT, len(text) - 1, ctypes.addressof(text)
    buffer = ctypes.create_string_buffer(_MESSAGE)
    length = _library.mfdqueue_encode(code.encode(), fields, len(values), buffer, _MESSAGE)
    if length < 0:
        raise Error(_error())
    return buffer.raw[:length]


def decode(message):
    """(code, [values]) of a message's bytes; the code is None where it is unknown."""
    code = ctypes.create_string_buffer(7)
    fields = (_Field * _FIELDS)()
    texts = ctypes.create_string_buffer(_MESSAGE)
    count = _library.mfdqueue_decode(message, len(message), code, fields, _FIELDS, texts)
    if count == _UNKNOWN:
        return None, []
    if count < 0:
        raise Error(_error())
    values = []
    for field in fields[:count]:
        if field.kind == _TEXT:
            values.append(ctypes.string_at(field.text, field.length).decode("utf-8", "surrogateescape"))
        elif field.kind == _FLOAT:
            values.append(field.number)
        else:
            values.append(bool(field.integer) if field.kind == _BOOL else field.integer)
    return code.value.decode(), values


class Driver:
    """A driver. Override what it does; main() makes the one object and runs it."""

    #: Seconds between two calls of tick(); None for none.
    interval = None

    def __init__(self, driver_id):
        self.driver_id = driver_id
        #: What the host has said: workplace, driver_id, working_directory, ip_address, network_adapter,
        #: virtual_panel_address, nvram_directory.
        self.configuration = {}
        self._queue = None
        self._signal = 0

    # To override; an exception is one line of the log, and the driver goes on.

    def completed(self):
        """Everything is there: the driver reports its states and begins its work."""

    def fid(self, name, parameters):
        """A FID for this driver, the function part alone; parameters are pairs of texts in their order."""
        log(f'unknown FID "{name}"', WARNING)

    def subscribe(self, name):
        """The host subscribes a function."""

    def create_fid_list(self):
        """The host wants the list of functions made."""

    def show_state(self):
        """The operator wants to read on standard output how the driver is."""

    def tick(self):
        """Each interval, from completed() on."""

    def stop(self):
        """The last call: nothing is reported any more when it returns."""

    # What a driver says. False when the host does not take it; Error when it is no message.

    def set(self, name, value):
        """A state: "LIT" of LAMP1 is shown as LAMP1.LIT. The type is the value's: bool, int, float, else text."""
        kinds = {bool: "SETVAB", int: "SETVAI", float: "SETVAF"}
        return self._send(kinds.get(type(value), "SETVAL"), name, value)

    def unset(self, name):
        return self._send("UNSVAL", name)

    def event(self, name, value=""):
        return self._send("TRIGGR", name, value)

    def command(self, name, arguments=""):
        return self._send("SYSCMD", name, arguments)

    def send(self, fid, parameters=()):
        """A FID for another driver ("PANEL.ALARM"), with pairs of texts."""
        return self._send("DSPFID", fid, *(str(text) for pair in parameters for text in pair))

    def _send(self, code, *values):
        message = encode(code, *values)
        if self._queue is None:
            return False
        return _library.mfdqueue_send(self._queue, message, len(message), -1) == _DONE

    # The process.

    @classmethod
    def main(cls):
        """Runs the driver that the command line names; what the process ends with."""
        if len(sys.argv) != 2 or not sys.argv[1] or sys.argv[1].startswith("-"):
            print(f"usage: {os.path.basename(sys.argv[0])} DRIVERID", file=sys.stderr)
            return 2
        return cls(sys.argv[1]).run()

    def run(self):
        """Serves the queues until the driver is to stop: 0 in order, 1 without queues or with broken ones."""
        self._queue = _library.mfdqueue_open(_bytes(self.driver_id))
        if self._queue is None:
            # The log has said it, unless there was none.
            print(f"{self.driver_id}: {_error()}", file=sys.stderr)
            return 1
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, self._on_signal)
        log(f"Runs {os.path.abspath(sys.argv[0])}")
        try:
            return self._serve()
        finally:
            self._call("stop", self.stop)
            queue, self._queue = self._queue, None
            _library.mfdqueue_close(queue)

    def _on_signal(self, number, _):
        if self._signal:
            os._exit(128 + number)
        self._signal = number

    def _serve(self):
        buffer = ctypes.create_string_buffer(_MESSAGE)
        next_tick = None
        while True:
            if self._signal:
                log(f"{signal.strsignal(self._signal)}: stops the driver")
                return 0
            now = time.monotonic()
            if next_tick is not None and now >= next_tick:
                self._call("tick", self.tick)
                next_tick = max(next_tick + self.interval, now)
                continue
            wait = _LOOK if next_tick is None else min(_LOOK, next_tick - now)
            length = _library.mfdqueue_receive(self._queue, buffer, _MESSAGE, max(int(wait * 1000), 1))
            if length == _ENDED:
                log("The host has let go of the queues: stops the driver")
                return 0
            if length < 0:
                log(f"{_error()}: stops the driver", ERROR)
                return 1
            if length == 0:
                continue
            code, values = decode(buffer.raw[:length])
            if code == "DEINIT":
                return 0
            self._handle(code, values)
            if code == "INTCMP" and self.interval is not None:
                next_tick = time.monotonic() + self.interval

    def _handle(self, code, values):
        if code == "SETCFG":
            names = ("workplace", "driver_id", "working_directory", "ip_address", "network_adapter",
                     "virtual_panel_address", "nvram_directory")
            self.configuration = dict(zip(names, values))
        elif code == "INTCMP":
            self._call("completed", self.completed)
        elif code == "SNDFDP":
            self._call(f"FID {values[0]}", self.fid, values[0], list(zip(values[1::2], values[2::2])))
        elif code == "SUBSCR":
            self._call("subscribe", self.subscribe, values[0])
        elif code == "CRTFID":
            self._call("create_fid_list", self.create_fid_list)
        elif code == "SHOWST":
            self._show()

    def _show(self):
        """Each line names the driver, where the output of many comes together."""
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            self._call("show_state", self.show_state)
        sys.stdout.write("".join(f"{self.driver_id}: {line}\n" for line in output.getvalue().splitlines()))
        sys.stdout.flush()

    @staticmethod
    def _call(what, function, *arguments):
        try:
            function(*arguments)
        except Exception as error:  # pylint: disable=broad-except
            place = traceback.extract_tb(error.__traceback__)[-1]
            log(f"{what}: {type(error).__name__}: {error} ({place.filename}:{place.lineno})", ERROR)
