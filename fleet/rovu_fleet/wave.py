"""What becomes of a rollout after a wave: whether it goes on, and what is written of it."""

import contextlib
import fcntl
import json
import pathlib
import time

from rovu_fleet.advice import GOOD
from rovu_fleet.report import replace, render
from rovu_fleet.summary import ROLLOUT, rollout_of, summarize

# Which limit is for which outcomes; rovu_max_fail is for all others.
LIMITS = {"unreachable": ("unreachable",), "fell_back": ("fell back", "unsound", "gone")}


def why_stop(results, settings, is_canary):
    """Why the next wave must not start; empty if it may. `results`: those of the wave's devices, by name."""
    for name, result in results.items():
        if result.get("stops"):
            return f"{name}: {result['why']}"
    bad = {name: result.get("outcome", "unreachable") for name, result in results.items() if result.get("counts", True)}
    for limit in (*LIMITS, "fail"):
        named = sum((LIMITS[each] for each in LIMITS), ()) if limit == "fail" else LIMITS[limit]
        of_it = [name for name, outcome in bad.items() if (outcome in named) != (limit == "fail")]
        share, most = 100 * len(of_it) / len(results), getattr(settings, f"max_{limit}")
        if share > most:
            first = of_it[0]
            return f"{len(of_it)} of {len(results)} devices, more than the {most:g} % of rovu_max_{limit}; {first}: {bad[first]}"
    proven = any(result.get("outcome") in GOOD for result in results.values())
    if is_canary and not proven and not settings.canary_may_refuse:
        return "no device of the first wave took the update, so that it proves nothing; rovu_canary_may_refuse lets it go on"
    if (pathlib.Path(settings.records) / "stop").exists():
        return f"{settings.records}/stop is there"
    return ""


def soaks(results, settings):
    """Whether there is something that is to prove itself."""
    return settings.soak > 0 and any(each.get("outcome") in ("updated", "done", "returned") for each in results.values())


def refresh(settings, frozen):
    """Writes the page while a wave runs: one of the processes that follow devices does, at most every 10 seconds, or in a
    large fleet every minute.
    """
    page = pathlib.Path(settings.report)
    with contextlib.suppress(FileNotFoundError):
        if time.time() - page.stat().st_mtime < min(60, max(10, len(frozen["hosts"]) / 50)):
            return
    with contextlib.suppress(OSError), open(f"{settings.records}/.page", "a", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        write(settings, frozen)


def write(settings, frozen, stopped=""):
    """Writes the page, and the list of the devices that need attention. Returns the lines that sum it up."""
    folder = pathlib.Path(settings.records)
    before = rollout_of(folder)  # of more devices, if -l names some of them now
    known = before["hosts"] if before["digest"] == frozen["digest"] else []
    hosts = list(dict.fromkeys([*known, *frozen["hosts"]]))
    state = {"digest": frozen["digest"], "hosts": hosts, "stopped": stopped}
    replace(folder / ROLLOUT, json.dumps(state) + "\n")
    data = summarize(folder, time.time())
    page = pathlib.Path(settings.report)
    replace(page.with_suffix(".json"), json.dumps(data, separators=(",", ":")) + "\n")
    replace(page, render(data))
    devices = [device for wave in data["waves"] for device in wave["devices"]]
    bad = [each["host"] for each in devices if each["outcome"] not in GOOD]
    replace(folder / "attention.txt", "".join(f"{host}\n" for host in bad))
    counts = ", ".join(f"{count} {outcome}" for outcome, count in data["counts"].items())
    lines = [f"{len(hosts)} device{'s' if len(hosts) > 1 else ''}: {counts}" + (f", {data['waiting']} not reached yet" if data["waiting"] else "")]
    if bad:
        lines.append(f"those that need attention, for -l: @{folder / 'attention.txt'}")
    if stopped:
        lines += [f"stopped: {stopped}", "to go on, start the same command again"]
    return lines
