"""The link to one device: shell scripts over Ansible's connection, which may be lost and come back."""

import pathlib
import re
import shlex
import time

from ansible.errors import AnsibleConnectionFailure

SCRIPTS = pathlib.Path(__file__).resolve().parent.parent / "device"


class LinkLost(Exception):
    """The device did not answer for as long as it may."""


class ScriptFailed(Exception):
    """A script ended with another status than 0."""


def script_text(name, variables):
    """The script without its comments (some SSH servers accept no more than 9,000 bytes), after its variables."""
    lines = [f"{key}={shlex.quote(str(value))}" for key, value in variables.items()]
    for part in ("run", name) if name in ("look", "follow") else (name,):
        text = (SCRIPTS / f"{part}.sh").read_text()
        lines += [line for line in text.splitlines() if line.strip() and not line.lstrip().startswith("#")]
    return "\n".join(lines) + "\n"


def parse(output):
    """Lines NAME=VALUE as a dictionary; a name that comes several times has a list of all its values."""
    values = {}
    for line in output.split("\n"):
        match = re.match(r"([a-z][a-z0-9_.]*)=(.*)$", line.rstrip("\r"))
        if not match:
            continue
        name, value = match.groups()
        if name in ("alive", "log"):
            values.setdefault(name, []).append(value)
        else:
            values[name] = value
    return values


class Link:
    def __init__(self, action, limit, pause=2):
        """`limit` and `pause` in seconds: how long a device may not answer, and how long to wait between attempts."""
        self._action = action
        self._limit = limit
        self._pause = pause
        self.losses = 0

    def run(self, name, limit=None, **variables):
        """Runs a script of the folder `device` once the link is there; it may then run more than once.

        Returns what it printed, as parse() does. Raises LinkLost or ScriptFailed.
        """
        text = script_text(name, variables)
        end = time.monotonic() + (self._limit if limit is None else limit)
        while True:
            try:
                return self._try(name, text)
            except AnsibleConnectionFailure as failure:
                self.losses += 1
                if time.monotonic() >= end:
                    raise LinkLost(str(failure).strip().splitlines()[-1]) from failure
            time.sleep(self._pause)
            self._reset()

    def _try(self, name, text):
        result = self._action._low_level_execute_command(text, executable="/bin/sh")
        if result["rc"] == 255:
            raise AnsibleConnectionFailure("the connection was lost")
        if result["rc"] > 125:  # a device that shuts down kills the shell, or cannot start it any more
            raise AnsibleConnectionFailure(f"the device's shell ended with status {result['rc']}")
        if result["rc"] != 0:
            raise ScriptFailed(f"{name}.sh ended with status {result['rc']}: {result['stderr'].strip()}")
        return parse(result["stdout"])

    def _reset(self):
        # A connection that is kept open may be the broken one.
        try:
            self._action._connection.reset()
        except (AnsibleConnectionFailure, OSError):
            pass
