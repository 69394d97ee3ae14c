#!/usr/bin/python3 -IS
"""Keeps what a long run has found out, so that an interruption costs nothing: results by their names, in groups,
together with the state (commit, programs) that they were found in. Another state begins anew.

usage: kept.py DIRECTORY begin [--fresh] KEY=VALUE...  opens the results of that state, or begins anew; says which
       kept.py DIRECTORY has NAME PROGRAM              whether that step has passed with the program as it is now
       kept.py DIRECTORY add NAME PROGRAM              notes that it has
       kept.py DIRECTORY run NAME PROGRAM COMMAND...   runs the command, and notes the step when it passes; does
                                                       neither when it has passed already"""

import hashlib
import json
import os
import sys
from pathlib import Path

# subprocess and shutil are imported where they are used: a long run asks after each of its steps.

ROOT = Path(__file__).resolve().parents[2]
STEPS = "steps"  # the group of the commands above


def commit():
    """The commit that is checked out; "none" outside of a repository."""
    import subprocess

    done = subprocess.run(["git", "-C", str(ROOT), "rev-parse", "HEAD"], capture_output=True, text=True, check=False)
    return done.stdout.strip() if done.returncode == 0 else "none"


def fingerprint(paths):
    """One text for the contents of these files; a missing one counts as such."""
    digest = hashlib.sha256()
    for path in sorted(map(str, paths)):
        digest.update(path.encode() + b"\0")
        try:
            with open(path, "rb") as file:
                digest.update(hashlib.file_digest(file, "sha256").digest())
        except FileNotFoundError:
            digest.update(b"missing")
    return digest.hexdigest()


class Kept:
    """The results below one directory: a file a group, a line a result."""

    def __init__(self, directory, state=None, fresh=False):
        """Without a state, what stands there is taken as it is."""
        self.directory = Path(directory)
        self.anew = ""  # why what stood there has been thrown away
        self.groups = {}
        if state is not None:
            self._open({key: str(value) for key, value in state.items()}, fresh)
        for path in sorted(self.directory.glob("*.jsonl")):
            self.groups[path.stem] = dict(self._read(path))

    def _open(self, state, fresh):
        file = self.directory / "state.json"
        try:
            former = json.loads(file.read_text())
        except (FileNotFoundError, json.JSONDecodeError):
            former = None
        if fresh and former:
            self.anew = "--fresh"
        elif former:
            changed = sorted(key for key in former.keys() & state.keys() if former[key] != state[key])
            self.anew = f"another {' and another '.join(changed)} than in the run before" if changed else ""
        if former is None or self.anew:
            import shutil

            shutil.rmtree(self.directory, ignore_errors=True)
            former = {}
        # What only the run before knew of the state still holds for its results.
        self.directory.mkdir(parents=True, exist_ok=True)
        part = file.with_suffix(".part")
        part.write_text(json.dumps(former | state, indent=1) + "\n")
        part.replace(file)

    @staticmethod
    def _read(path):
        # The last line may be torn: whoever wrote it was killed.
        for line in path.read_text(errors="replace").splitlines():
            try:
                entry = json.loads(line)
            except json.JSONDecodeError:
                continue
            if isinstance(entry, dict) and "name" in entry:
                yield entry.pop("name"), entry

    def get(self, group, name):
        """None when there is no such result."""
        return self.groups.get(group, {}).get(name)

    def put(self, group, name, **entry):
        """Any process may write beside others: a line goes out whole."""
        self.groups.setdefault(group, {})[name] = entry
        path = self.directory / f"{group}.jsonl"
        line = json.dumps({"name": name} | entry) + "\n"
        file = os.open(path, os.O_RDWR | os.O_CREAT | os.O_APPEND, 0o644)
        try:
            size = os.fstat(file).st_size
            torn = size > 0 and os.pread(file, 1, size - 1) != b"\n"
            os.write(file, (("\n" if torn else "") + line).encode())
        finally:
            os.close(file)


def begin(directory, words):
    state = dict(word.split("=", 1) for word in words if word != "--fresh")
    kept = Kept(directory, {"commit": commit()} | state, "--fresh" in words)
    names = list(kept.groups.get(STEPS, {}))
    if kept.anew:
        print(f"begins anew: {kept.anew}")
    elif names:
        print(f"{len(names)} steps are taken over from the run before (--fresh begins anew): {', '.join(names)}")
    return 0


def main(words):
    if len(words) >= 2 and words[1] == "begin":
        return begin(words[0], words[2:])
    if len(words) < 4 or words[1] not in ("has", "add", "run") or (words[1] == "run") != (len(words) > 4):
        sys.exit(__doc__)
    kept, name, program = Kept(words[0]), words[2], fingerprint([words[3]])
    entry = kept.get(STEPS, name)
    has_passed = entry is not None and entry.get("program") == program
    if words[1] == "has":
        return 0 if has_passed else 1
    if words[1] == "run" and has_passed:
        print(f"{name}: taken over from the run before")
        return 0
    status = 0
    if words[1] == "run":
        import subprocess

        status = subprocess.run(words[4:], check=False).returncode
    if status == 0:
        kept.put(STEPS, name, program=program)
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
