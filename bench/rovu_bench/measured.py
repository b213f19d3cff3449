"""Runs a command on a simulated device and writes what it cost, as JSON.

usage: measured.py [--memory] RESULT COMMAND [ARG...]

Without what starting and ending the simulator costs. With --memory, also the largest resident sizes of the command's
own process, in KiB: `total` is all of it, `private` what is not shared with a file; reading them costs time.
"""

import json
import os
import sys
import time


def sizes_of(pid):
    """VmHWM and RssAnon of a process; empty once it has ended."""
    try:
        with open(f"/proc/{pid}/status", encoding="ascii") as status:
            fields = dict(line.split(":", 1) for line in status)
    except OSError:
        return {}
    if "VmHWM" not in fields:
        return {}
    return {"total": int(fields["VmHWM"].split()[0]), "private": int(fields["RssAnon"].split()[0])}


def watch(pid):
    """Waits for a process; returns its status and usage as wait4 does, and the largest of its sizes."""
    largest = {"total": 0, "private": 0}
    while True:
        for name, size in sizes_of(pid).items():
            largest[name] = max(largest[name], size)
        ended, status, usage = os.wait4(pid, os.WNOHANG)
        if ended:
            return status, usage, largest
        time.sleep(0.001)


def main():
    words = sys.argv[1:]
    memory = words[0] == "--memory"
    if memory:
        words.pop(0)
    result, *command = words
    start = time.monotonic()
    pid = os.posix_spawnp(command[0], command, os.environ)
    if memory:
        status, usage, sizes = watch(pid)
    else:
        _, status, usage = os.wait4(pid, 0)
        sizes = {}
    wall = time.monotonic() - start
    if status == 0:
        with open(result, "w", encoding="ascii") as file:
            json.dump({"wall": wall, "processor": usage.ru_utime + usage.ru_stime, **sizes}, file)
    return os.waitstatus_to_exitcode(status)


if __name__ == "__main__":
    sys.exit(main())
