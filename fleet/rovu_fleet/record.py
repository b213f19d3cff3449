"""What is known of each device's update: one JSON file a device, replaced whole at every step.

A control machine that is killed loses nothing of it.
"""

import json
import os
import pathlib
import time


class Record:
    def __init__(self, folder, host, url):
        # Nothing that an inventory may call a device leads out of the folder.
        self._path = pathlib.Path(folder) / f"{host.replace('%', '%25').replace('/', '%2F')}.json"
        self._path.parent.mkdir(parents=True, exist_ok=True)
        self.data = self._read()
        before = self.data if self.data.get("url") == url else {}
        # What an update that leaves no trace on the device had done. Empty, or the SHA-256 of its spec.
        self.done = before.get("done", "")
        if not before or before.get("ended"):
            self.data = {"host": host, "url": url, "started": time.time(), "attempts": 0, "states": []}

    def _read(self):
        try:
            return json.loads(self._path.read_text())
        except (FileNotFoundError, ValueError):
            return {}

    def note(self, **values):
        self.data.update(values)
        self._store()

    def enter(self, state):
        """Notes a state with its time, unless the update is in it already."""
        if self.data["states"] and self.data["states"][-1][0] == state:
            return
        self.data["states"].append([state, time.time()])
        self._store()

    def end(self, outcome, why, log):
        """`log`: if it is empty, what was noted of it before stays."""
        self.note(outcome=outcome, why=why, log=log or self.data.get("log", []), ended=time.time())

    def _store(self):
        # Another operator may write the same record.
        part = self._path.with_suffix(f".{os.getpid()}.part")
        part.write_text(json.dumps(self.data, indent=1) + "\n")
        os.replace(part, self._path)
