"""What the terminal shows while a wave runs, a line for each device that is at work, and what Ctrl-C does.

start() is called in Ansible's own process before it starts others, one for each device. Those write into memory that they
share with it, and it draws. If standard output is no terminal, nothing is drawn.
"""

import mmap
import os
import shutil
import signal
import sys
import time

from rovu_fleet.report import STATES

SLOT, SLOTS = 160, 1024  # bytes, and devices at the same time; the first slot has the mark of Ctrl-C
BAR = 20
AGAIN = b"\nNo device is started any more. Those that are at work come to their end; a second Ctrl-C ends the playbook at once.\n"

shared = None
at_work = {}  # for each device its slot, and when its work began


def start():
    global shared
    shared = mmap.mmap(-1, SLOT * SLOTS)
    process = os.getpid()

    def interrupt(*_):
        if os.getpid() == process:
            shared[0] = 1
            signal.signal(signal.SIGINT, signal.default_int_handler)
            os.write(2, AGAIN)

    signal.signal(signal.SIGINT, interrupt)
    if sys.stdout.isatty():
        screen = sys.stdout = Screen(sys.stdout)
        signal.signal(signal.SIGALRM, lambda *_: screen.draw())
        signal.setitimer(signal.ITIMER_REAL, 1, 1)


def stop():
    """Before the end: a signal of the timer would then end the process with a status of its own."""
    signal.setitimer(signal.ITIMER_REAL, 0)


def interrupted():
    return shared is not None and shared[0] == 1


def ignore_interrupts():
    """In the process of a device: it, and the ssh that it starts, go on after Ctrl-C."""
    if shared is not None:
        signal.signal(signal.SIGINT, signal.SIG_IGN)


def enter(host):
    """Before the process of the device is started."""
    free = set(range(1, SLOTS)) - {slot for slot, _ in at_work.values()}
    if free:
        at_work[host] = min(free), time.monotonic()
        tell(host, "")


def leave(host):
    at_work.pop(host, None)


def tell(host, state, detail=""):
    """What the device does: words of its own, which must not reach the terminal as they are."""
    if host in at_work:
        text = "\n".join("".join(each for each in word if each.isprintable())[:50] for word in (state, detail)).encode()
        slot = at_work[host][0] * SLOT
        shared[slot : slot + SLOT] = text[:SLOT].ljust(SLOT, b"\0")


def lines(columns, rows):
    """One for each device at work, as far as there is room for them."""
    found = []
    for host, (slot, began) in sorted(at_work.items(), key=lambda item: item[1][1]):
        text = shared[slot * SLOT : (slot + 1) * SLOT].rstrip(b"\0").decode(errors="replace")
        state, _, detail = text.partition("\n")
        done = BAR * STATES.index(state) // (len(STATES) - 2) if state in STATES else 0
        minutes, seconds = divmod(int(time.monotonic() - began), 60)
        found.append(f"{host:16} [{'#' * done:.<{BAR}}] {minutes:3}:{seconds:02}  {' '.join(filter(None, (state, detail))) or 'look'}"[: columns - 1])
    if len(found) > rows:
        found[rows - 1 :] = [f"and {len(found) - rows + 1} more devices"]
    return found


class Screen:
    """Standard output, with those lines below what is written to it."""

    def __init__(self, real):
        self._real, self._drawn, self._busy, self._at_start = real, 0, False, True

    def __getattr__(self, name):
        return getattr(self._real, name)

    def write(self, text):
        self._busy = True  # the signal that draws may come amid this
        self._erase()
        done = self._real.write(text)
        self._real.flush()
        self._at_start = text.endswith("\n")
        self._busy = False
        return done

    def _erase(self):
        if self._drawn:
            self._real.write(f"\x1b[{self._drawn}A\x1b[J")
            self._drawn = 0

    def draw(self):
        if self._busy or not self._at_start:
            return
        self._erase()
        columns, rows = shutil.get_terminal_size()
        drawn = lines(columns, max(2, rows - 2))
        self._real.write("".join(f"{line}\n" for line in drawn))
        self._real.flush()
        self._drawn = len(drawn)
