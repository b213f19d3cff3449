"""What is known of each device's update: one JSON file a device, replaced whole at every step, and a log of the folder,
which is only appended.

A control machine that is killed loses nothing of it. A run that finds an outcome which an operator is to look at keeps
the record of it.
"""

import contextlib
import getpass
import json
import os
import pathlib
import socket
import time

from ansible.errors import AnsibleActionFail

from rovu_fleet.link import without_secrets
from rovu_fleet.settings import HELD


def operator():
    try:
        return f"{getpass.getuser()}@{socket.gethostname()}"
    except (KeyError, OSError):
        return str(os.getuid())


class Record:
    def __init__(self, folder, host, digest, url="", retry=(), keep=False):
        """`digest`: the SHA-256 of the update's spec. `retry`: the outcomes that are not to be kept. `keep`: whether the
        last run goes on, even if it has ended.
        """
        # Nothing that an inventory may call a device leads out of the folder.
        self._path = pathlib.Path(folder) / f"{host.replace('%', '%25').replace('/', '%2F')}.json"
        self._path.parent.mkdir(parents=True, exist_ok=True, mode=0o700)
        self._former, self._keep = self._read(), keep
        self.data = dict(self._former)
        same = self.data.get("digest") == digest
        # How this update ended here before; empty if it did not.
        self.last = self.data.get("outcome", "") if same and self.data.get("ended") else ""
        self.held = self.last if self.last in HELD and self.last not in retry and not keep else ""
        # Whether an update that leaves no trace on the device has run.
        self.done = same and self.data.get("done", False)
        if not same or (self.last and not self.held and not keep):
            since = self.data.get("since", 0) if same else 0
            self.data = {"host": host, "digest": digest, "url": without_secrets(url), "attempts": 0, "states": [], "since": since}
            self.data["started"] = time.time()
        self.on_change = lambda detail=None: None  # called after each new state, and with what else there is to show

    def _read(self):
        try:
            return json.loads(self._path.read_text())
        except FileNotFoundError:
            return {}
        except (OSError, ValueError) as error:
            raise AnsibleActionFail(f"the record {self._path} cannot be read: {error}; nothing was started") from error

    def is_under_way(self):
        """Whether a run was ended amid the work on the device."""
        return not self.held and not self.data.get("ended") and bool(self.data.get("token") or self.data.get("returning"))

    def forget(self):
        """Leaves the record as it was: nothing was started."""
        self.data = self._former
        if self.data:
            self._store()
        else:
            self._path.unlink(missing_ok=True)

    def note(self, **values):
        self.data.update(values)
        self._store()

    def enter(self, state):
        """Notes a state with its time, unless the update is in it already."""
        if self.data["states"] and self.data["states"][-1][0] == state:
            return
        self.data["states"].append([state, time.time()])
        self._store()
        self.on_change()

    def end(self, outcome, why, log):
        """`log`: if it is empty, what was noted of it before stays."""
        if outcome == self.held:
            self.append("kept", outcome=outcome, why=why)
            return
        if outcome in ("updated", "done", "returned") and not self._keep:
            self.data["since"] = time.time()
        self.note(outcome=outcome, why=why, log=log or self.data.get("log", []), ended=time.time())
        self.append("ended", **{name: self.data.get(name) for name in ("outcome", "why", "started", "states", "log")})
        self.on_change()

    def append(self, action, **values):
        """Adds a line to the log of the folder."""
        line = {"time": time.time(), "who": operator(), "digest": self.data["digest"], "device": self.data["host"]}
        with self._writing():
            file = os.open(self._path.parent / "log.jsonl", os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o600)
            with open(file, "ab") as stream:  # whose write() is whole, or an error
                stream.write((json.dumps({**line, "action": action, **values}) + "\n").encode())

    def _store(self):
        # Another operator may write the same record.
        part = self._path.with_suffix(f".{os.getpid()}.part")
        with self._writing():
            try:
                with open(os.open(part, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w", encoding="utf-8") as stream:
                    stream.write(json.dumps(self.data, indent=1) + "\n")
                os.replace(part, self._path)
            except OSError:
                part.unlink(missing_ok=True)
                raise

    @contextlib.contextmanager
    def _writing(self):
        try:
            yield
        except OSError as error:
            message = f"the control machine cannot write its records in {self._path.parent}: {error.strerror}"
            raise AnsibleActionFail(message) from error
