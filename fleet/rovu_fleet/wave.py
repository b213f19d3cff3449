"""What becomes of a rollout after a wave: whether it goes on, and what is written of it."""

import contextlib
import fcntl
import json
import os
import pathlib
import shlex
import time

from rovu_fleet.advice import GOOD
from rovu_fleet.gate import why_wait
from rovu_fleet.link import without_secrets
from rovu_fleet.report import render, replace
from rovu_fleet.summary import ROLLOUT, rollout_of, summarize

# Which limit is for an outcome; rovu_max_fail is for all others.
LIMITS = {"unreachable": "unreachable", "fell back": "fell_back", "unsound": "fell_back", "gone": "fell_back"}


def why_stop(results, settings, is_canary, is_last=False):
    """Why the next wave must not start; empty if it may. `results`: those of the wave's devices, by name."""
    for name, result in results.items():
        if result.get("stops"):
            return f"{name}: {result['why']}"
    bad = {name: result.get("outcome", "unreachable") for name, result in results.items() if result.get("counts", True)}
    for limit in ("unreachable", "fell_back", "fail"):
        of_it = [name for name, outcome in bad.items() if LIMITS.get(outcome, "fail") == limit]
        share, most = 100 * len(of_it) / len(results), getattr(settings, f"max_{limit}")
        if share > most:
            first = of_it[0]
            return f"{len(of_it)} of {len(results)} devices, more than the {most:g} % of rovu_max_{limit}; {first}: {bad[first]}"
    if len(bad) == len(results) and not is_last:  # after which Ansible itself starts no other wave
        return f"every device of the wave has failed; {next(iter(bad))}: {next(iter(bad.values()))}"
    left_out = [result["why"] for result in results.values() if result.get("outcome") == ""]
    if left_out or (not is_last and why_wait(settings)):
        return left_out[0] if left_out else why_wait(settings)
    proven = any(result["outcome"] != "refused" for name, result in results.items() if name not in bad)
    if is_canary and not proven and not settings.canary_may_refuse:
        return "no device of the first wave took the update, so that it proves nothing; rovu_canary_may_refuse lets it go on"
    return ""


def soak_left(results, settings, now):
    """For how many seconds the wave is to prove itself yet: the devices that were updated, in this run or shortly before."""
    return max(0, settings.soak - now + max((each.get("since", 0) for each in results.values()), default=0))


def refresh(frozen, least=0):
    """Writes the page while a wave runs: the process of a device does, unless the page is younger than `least` seconds, or
    in a large fleet than a few.
    """
    page = pathlib.Path(frozen["report"])
    with contextlib.suppress(OSError), open(f"{frozen['records']}/.page", "a", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        written = page.stat().st_mtime if page.exists() else 0
        if time.time() - written >= max(least, min(60, len(frozen["hosts"]) / 250)):
            write(frozen)


def write(frozen, stopped=""):
    """Writes the page, and the list of the devices that need attention. Returns the lines that sum it up. What cannot be
    written is told in these and on the page, if that can be.
    """
    folder, page = pathlib.Path(frozen["records"]), pathlib.Path(frozen["report"])
    known = rollout_of(folder, frozen["digest"])["hosts"]  # more devices, if -l names some of them now
    rollout = {"digest": frozen["digest"], "hosts": list(dict.fromkeys([*known, *frozen["hosts"]])), "stopped": stopped}
    faults = put({folder / ROLLOUT: json.dumps(rollout) + "\n"})
    data = summarize(folder, time.time(), rollout={**rollout, "stopped": "; ".join(filter(None, [stopped, *faults]))})
    bad = [device["host"] for wave in data["waves"] for device in wave["devices"] if device["outcome"] not in GOOD]
    attention = folder / "attention.txt"
    faults += put({page: render(data), page.with_suffix(".json"): json.dumps(data, separators=(",", ":")) + "\n",
                   attention: "".join(f"{host}\n" for host in bad)})
    counts = [f"{count} {outcome}" for outcome, count in data["counts"].items()]
    counts += [f"{data['waiting']} not reached yet"] if data["waiting"] else []
    lines = [f"{len(rollout['hosts'])} device{'s' if len(rollout['hosts']) > 1 else ''}: {', '.join(counts)}", *faults]
    return lines + ([f"those that need attention, for -l: @{attention}"] if bad else []) + [f"page: {page}"]


def put(files):
    """Writes the text of each file, or removes it: for -l, an empty list is all devices. Returns what went wrong."""
    faults = []
    for path, text in files.items():
        try:
            replace(path, text) if text else path.unlink(missing_ok=True)
        except OSError as error:
            faults.append(f"the control machine cannot write {path}: {error.strerror}")
    return faults


def last_words(frozen, judged, command):
    """What the terminal says at the end, in whichever way that came. `judged`: the result of rovu_wave that came last."""
    stopped = judged.get("stopped") or ("" if judged.get("over") else "the playbook was ended amid a wave")
    lines = write(frozen, stopped)
    if stopped:
        words = [os.path.basename(command[0]), *map(without_secrets, command[1:])]
        lines += [f"stopped {stopped}", f"to go on: {shlex.join(words)}"]
    return lines
