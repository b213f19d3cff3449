"""The link to one device: shell scripts over Ansible's connection, which may be lost and come back."""

import contextlib
import os
import pathlib
import re
import resource
import shlex
import signal
import subprocess
import time

from ansible.errors import AnsibleConnectionFailure, AnsibleError

SCRIPTS = pathlib.Path(__file__).resolve().parent.parent / "device"
# Read from standard input: what a script holds, such as a URL with a password, is on no command line.
COMMAND = 'eval "$(cat)" </dev/null'
# What an answer may take of this process, in KiB. Ansible keeps all of it in memory, several times.
LARGEST = 48 * 1024
LINES, LENGTH = 20, 500


class LinkLost(Exception):
    """The device did not answer for as long as it may."""


class ScriptFailed(Exception):
    """A script ended with another status than 0, or said too much."""


class Overrun(BaseException):
    """A script took too long, or its answer too much room. No Exception: Ansible's connection catches those."""


def script_text(name, variables):
    """The script without its comments, after its variables and run.sh."""
    lines = [f"{key}={shlex.quote(str(value))}" for key, value in variables.items()]
    for part in ("run", name):
        text = (SCRIPTS / f"{part}.sh").read_text()
        lines += [line for line in text.splitlines() if line.strip() and not line.lstrip().startswith("#")]
    return "\n".join(lines) + "\n"


def without_secrets(text):
    """A text without the passwords and queries of the URLs in it."""
    return re.sub(r"(://[^\s?]*)\?[^\s\"]*", r"\1?***", re.sub(r"://[^/\s]*@", "://***@", text))


def parse(output):
    """Lines NAME=VALUE as a dictionary; a name that comes several times has a list of its last values."""
    values = {}
    for line in output.split("\n"):
        match = re.match(r"([a-z][a-z0-9_.]{0,40})=(.*)$", line[: LENGTH + 50].rstrip("\r"))
        if not match:
            continue
        name, value = match[1], without_secrets(match[2][:LENGTH])
        if name in ("alive", "log"):
            values[name] = (values.get(name, []) + [value])[-LINES:]
        else:
            values[name] = value
    return values


def children():
    """The processes of this one, which is Ansible's for one device: the client of the connection, and what it started."""
    listing = subprocess.run(["ps", "-o", "pid=", "--ppid", str(os.getpid())], capture_output=True, text=True, check=False)
    return {int(word) for word in listing.stdout.split()}


@contextlib.contextmanager
def bounded(seconds):
    """Raises Overrun in what is done within: after so many seconds, or if it takes too much memory."""
    end, before = time.monotonic() + seconds, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss

    def look(*_):
        if resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before > LARGEST:
            raise Overrun("")
        if time.monotonic() >= end:
            raise Overrun(f"a command did not end within {seconds:g} s")

    former = signal.signal(signal.SIGALRM, look)
    signal.setitimer(signal.ITIMER_REAL, 0.2, 0.2)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, former)


class Link:
    def __init__(self, action, limit, pause=2, command_limit=120):
        """All in seconds: how long a device may not answer, how long to wait between attempts, and how long a script may
        run.
        """
        self._action = action
        self._limit = limit
        self._pause = pause
        self._command_limit = command_limit
        self.on_wait = lambda: None  # called while the device does not answer

    def run(self, name, limit=None, command_limit=None, tries=None, **variables):
        """Runs a script of the folder `device` once the link is there; it may then run more than once, but no more than
        `tries` times.

        Returns what it printed, as parse() does. Raises LinkLost or ScriptFailed.
        """
        text = script_text(name, variables)
        end, tried = time.monotonic() + (self._limit if limit is None else limit), 0
        while True:
            try:
                return self._try(name, text, command_limit or self._command_limit)
            except AnsibleError as failure:  # of some kind of its own if `become` does not answer
                tried += 1
                if time.monotonic() >= end or tried == tries:
                    raise LinkLost((str(failure).strip().splitlines() or ["no connection"])[-1]) from failure
            self.on_wait()
            time.sleep(self._pause)
            self._reset()

    def _try(self, name, text, command_limit):
        try:
            with bounded(command_limit):
                result = self._action._low_level_execute_command(COMMAND, in_data=text.encode(), executable="/bin/sh")
        except Overrun as overrun:
            for process in children():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)
            if not str(overrun):
                raise ScriptFailed(f"{name}.sh: the device said more than may be true") from overrun
            raise AnsibleConnectionFailure(str(overrun)) from overrun
        if result["rc"] == 255 or result["rc"] < 0:
            raise AnsibleConnectionFailure("the connection was lost")
        if result["rc"] > 125:  # a device that shuts down kills the shell, or cannot start it any more
            raise AnsibleConnectionFailure(f"the device's shell ended with status {result['rc']}")
        if result["rc"] != 0:
            raise ScriptFailed(f"{name}.sh ended with status {result['rc']}: {result['stderr'].strip()[:LENGTH]}")
        return parse(result["stdout"])

    def _reset(self):
        # A connection that is kept open may be the broken one.
        with contextlib.suppress(AnsibleError, OSError, Overrun), bounded(self._command_limit):
            self._action._connection.reset()
