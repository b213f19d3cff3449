"""Two ways to do the same work, in turn; what counts is the ratio within a pair, because a machine's speed drifts."""

import os
import statistics
import subprocess
import time
from typing import NamedTuple


class Cost(NamedTuple):
    """What one run took, in seconds."""

    wall: float
    processor: float


def fail(command, status, output):
    raise SystemExit(f"{output}bench/run: failed with status {status}: {' '.join(map(str, command))}")


def run(command, **options):
    """Runs a program that must succeed; its output is shown only if it fails."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        fail(command, done.returncode, done.stdout)
    return done.stdout


def cost_of(command):
    """The cost of a program and of all the programs that it runs."""
    words = [str(word) for word in command]
    with os.fdopen(os.memfd_create("output"), "r+b") as output:
        redirection = [(os.POSIX_SPAWN_DUP2, output.fileno(), descriptor) for descriptor in (1, 2)]
        start = time.monotonic()
        pid = os.posix_spawnp(words[0], words, os.environ, file_actions=redirection)
        _, status, usage = os.wait4(pid, 0)
        wall = time.monotonic() - start
        if status != 0:
            output.seek(0)
            fail(words, os.waitstatus_to_exitcode(status), output.read().decode(errors="replace"))
    return Cost(wall, usage.ru_utime + usage.ru_stime)


def quartiles(values):
    """The first quartile, the median and the third quartile."""
    return statistics.quantiles(values, n=4, method="inclusive") if len(values) > 1 else [values[0]] * 3


def compare(ours, other, pairs):
    """Calls both functions, which return a Cost, in alternating order, after one call of each that does not count.

    The result: quartiles of the ratios ours / other, and the medians of the seconds.
    """
    ours()
    other()
    costs = []
    for number in range(pairs):
        if number % 2 == 0:
            our_cost, other_cost = ours(), other()
        else:
            other_cost, our_cost = other(), ours()
        costs.append((our_cost, other_cost))
    return {
        "pairs": pairs,
        "wall": quartiles([ours.wall / other.wall for ours, other in costs]),
        "processor": quartiles([ours.processor / other.processor for ours, other in costs]),
        "seconds": statistics.median(ours.wall for ours, _ in costs),
        "other_seconds": statistics.median(other.wall for _, other in costs),
    }
