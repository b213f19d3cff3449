"""Runs a command on a simulated device and writes what it cost, as JSON.

usage: measured.py [--watch] RESULT COMMAND [ARG...]

Without what starting and ending the simulator costs. With --watch, which costs time, also the largest resident sizes of
the command's own process, in KiB (`total` is all of it, `private` what is not shared with a file), and `programs`: how
often each program was seen at work.
"""

import collections
import json
import os
import sys
import time


def read(path):
    """A file of /proc; empty once the process has ended."""
    try:
        with open(path, encoding="ascii") as file:
            return file.read()
    except OSError:
        return ""


def sizes_of(pid):
    """VmHWM and RssAnon of a process; empty once it has ended."""
    fields = dict(line.split(":", 1) for line in read(f"/proc/{pid}/status").splitlines())
    if "VmHWM" not in fields:
        return {}
    return {"total": int(fields["VmHWM"].split()[0]), "private": int(fields["RssAnon"].split()[0])}


def at_work(pid):
    """The name of the process that the others wait for."""
    while children := read(f"/proc/{pid}/task/{pid}/children").split():
        pid = children[-1]
    return read(f"/proc/{pid}/comm").strip()


def watch(pid):
    """Waits for a process; returns its status and usage as wait4 does, and what was seen."""
    largest, programs = {"total": 0, "private": 0}, collections.Counter()
    while True:
        for name, size in sizes_of(pid).items():
            largest[name] = max(largest[name], size)
        programs[at_work(pid)] += 1
        ended, status, usage = os.wait4(pid, os.WNOHANG)
        if ended:
            return status, usage, {**largest, "programs": programs}
        time.sleep(0.001)


def main():
    words = sys.argv[1:]
    watched = words[0] == "--watch"
    if watched:
        words.pop(0)
    result, *command = words
    start = time.monotonic()
    pid = os.posix_spawnp(command[0], command, os.environ)
    if watched:
        status, usage, seen = watch(pid)
    else:
        _, status, usage = os.wait4(pid, 0)
        seen = {}
    wall = time.monotonic() - start
    if status == 0:
        with open(result, "w", encoding="ascii") as file:
            json.dump({"wall": wall, "processor": usage.ru_utime + usage.ru_stime, **seen}, file)
    return os.waitstatus_to_exitcode(status)


if __name__ == "__main__":
    sys.exit(main())
