"""When the update of a device may be started: not after Ctrl-C, while there is a file `stop`, or outside of the operator's
window; and no more of them download at the same time than may.
"""

import fcntl
import pathlib
import time

from rovu_fleet import terminal


class NotNow(Exception):
    """Nothing was started on the device; the message says why."""


def is_open(window, hour):
    """Whether a time of day is within the window. Both times of that are in hours; it may span midnight."""
    start, end = window
    return start <= hour < end if start < end else not end <= hour < start


def why_wait(settings):
    """Why no device may be started now; empty if one may."""
    now = time.localtime()
    if terminal.interrupted():
        return "Ctrl-C was pressed"
    if (pathlib.Path(settings.records) / "stop").exists():
        return f"{settings.records}/stop is there; remove it to go on"
    if settings.window and not is_open(settings.window, now.tm_hour + now.tm_min / 60):
        return f"at {now.tm_hour}:{now.tm_min:02}, it is outside of rovu_window"
    return ""


class Turn:
    """One of the downloads that may run at the same time. The turn of a process that is killed is free again."""

    def __init__(self, folder, most):
        """`most`: 0 if there is no limit."""
        self._files = [f"{folder}/.download-{number}" for number in range(most)]
        self._held = None

    def take(self):
        """Whether it is the device's turn."""
        for name in self._files if self._held is None else []:
            stream = open(name, "a", encoding="ascii")
            try:
                fcntl.flock(stream, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                stream.close()
                continue
            self._held = stream
            break
        return self._held is not None or not self._files

    def leave(self):
        if self._held is not None:
            self._held.close()
            self._held = None
