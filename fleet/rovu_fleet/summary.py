"""What the report shows, from the records of the devices: plain data, which can be written as JSON."""

import collections
import contextlib
import json
import math
import pathlib
import re

from rovu_fleet.advice import GOOD, OUTCOMES, Book, without_head

# Not characters of a page: control characters but tab and newline, and halves of a surrogate pair.
UNPRINTABLE = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\ud800-\udfff]")
BEFORE = "before the start"
LATEST_TIME = 2**33
# What is known of the rollout itself: the digest of its spec, its devices, and why it stopped. No record.
ROLLOUT = "rollout"
RELATED = 3  # messages before the last one that are explained too


class BadRecord(Exception):
    """A file that is no record; the message says why."""


def clean(value):
    if isinstance(value, str):
        return UNPRINTABLE.sub("\ufffd", value)
    if isinstance(value, list):
        return [clean(each) for each in value]
    return value


def field(record, name, kind, default):
    value = clean(record.get(name, default))
    if not isinstance(value, kind) or isinstance(value, bool):
        raise BadRecord(f'"{name}" has the wrong type')
    return value


def moment(value):
    if not isinstance(value, (int, float)) or not math.isfinite(value) or not 0 <= value < LATEST_TIME:
        raise BadRecord(f"{json.dumps(value)} is no time")
    return value


def natural(name):
    """Sorts mast-2 before mast-10."""
    return [int(part) if part.isdecimal() else part for part in re.split(r"(\d+)", name)]


def read_record(path):
    """The record of a file as the report needs it. Raises BadRecord."""
    try:
        record = json.loads(path.read_text(encoding="utf-8"))
    except (OSError, ValueError, RecursionError) as error:
        raise BadRecord(str(error)) from error
    if not isinstance(record, dict) or not record.get("host"):
        raise BadRecord('it has no "host"')
    states = field(record, "states", list, [])
    if not all(isinstance(each, list) and len(each) == 2 and isinstance(each[0], str) for each in states):
        raise BadRecord('"states" is no list of pairs')
    return {
        "host": field(record, "host", str, ""),
        "url": field(record, "url", str, ""),
        "digest": field(record, "digest", str, ""),
        "wave": field(record, "wave", str, ""),
        "kind": field(record, "kind", str, ""),
        "outcome": field(record, "outcome", str, "") or "running",
        "why": field(record, "why", str, ""),
        "attempts": field(record, "attempts", int, 0),
        "started": moment(record.get("started")),
        "ended": None if record.get("ended") is None else moment(record["ended"]),
        "states": [[state, moment(time)] for state, time in states],
        "log": [str(line) for line in field(record, "log", list, [])],
    }


def read_records(folder):
    """The records of a folder, sorted by host, and a list of the files that are none, each with the reason."""
    records, unreadable = [], []
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        try:
            records.append(read_record(path))
        except BadRecord as error:
            unreadable.append({"file": clean(path.name), "why": clean(str(error))})
    return sorted(records, key=lambda record: natural(record["host"])), unreadable


def segments(record, end):
    """The time line of a device: state, start (seconds since the epoch) and duration (seconds) of each part."""
    states = record["states"]
    if not states or states[0][1] > record["started"]:
        states = [[BEFORE, record["started"]], *states]
    ends = [time for _, time in states[1:]] + [end]
    return [[state, start, max(0, round(stop - start, 3))] for (state, start), stop in zip(states, ends)]


def device_of(record, now):
    end = record["ended"] or max(now, record["started"])
    return {
        **{name: record[name] for name in ("host", "outcome", "kind", "attempts", "why", "started", "ended")},
        "duration": max(0, round(end - record["started"], 3)),
        "segments": segments(record, end),
        "last_state": last_state(record),
    }


def last_state(record):
    return next((state for state, _ in reversed(record["states"]) if state != "error"), "")


def rank(outcome):
    """The most urgent outcome first, then the running devices, then the good ones."""
    names = list(OUTCOMES)
    return names.index(outcome) if outcome in names else names.index("running") - 0.5


def count(devices):
    """How many devices have each outcome, in the order of rank()."""
    counts = collections.Counter(device["outcome"] for device in devices)
    return dict(sorted(counts.items(), key=lambda item: rank(item[0])))


def message_key(record, advice):
    """The same for messages that differ in numbers and names only."""
    if advice:
        return advice.message
    return re.sub(r"\d+", "#", without_head(record["why"]).replace(record["host"], "HOST"))


def failures_of(records, book):
    """The devices that did not get the update, grouped by outcome and message: the most urgent and largest first."""
    groups, advices = collections.defaultdict(list), {}
    for record in records:
        if record["outcome"] in GOOD or record["outcome"] == "running":
            continue
        why = record["why"]
        if why not in advices:
            advices[why] = book.message(why)
        groups[record["outcome"], message_key(record, advices[why])].append(record)
    found = [failure(group, advices[group[0]["why"]], book) for group in groups.values()]
    return sorted(found, key=lambda each: (rank(each["outcome"]), -len(each["devices"]), each["message"]))


def failure(group, advice, book):
    outcome = group[0]["outcome"]
    texts = collections.Counter(without_head(record["why"]) for record in group).most_common()
    sample = next((record for record in group if record["log"]), group[0])
    numbers = [book.numbers(text, advice) for text, _ in texts] if advice else []
    # Where a failure left no message of its own, only the state tells its cause.
    silent = outcome == "failed" and (not advice or advice.level in ("info", "debug"))
    return {
        "outcome": outcome,
        "outcome_advice": OUTCOMES.get(outcome, ""),
        "message": re.sub("%(08x|[a-z])", "…", advice.message) if advice and len(texts) > 1 else texts[0][0],
        "texts": [list(each) for each in texts],
        "meaning": advice.meaning if advice else "",
        "action": advice.action if advice else "",
        "numbers": list(dict.fromkeys(filter(None, numbers)))[:RELATED],
        "states": [
            {
                "state": state,
                "devices": devices,
                "advice": book.state(state) if outcome == "failed" else "",
                "cause": book.silent(state) if silent else "",
            }
            for state, devices in stopped_in(group, advice.states if advice else ())
        ],
        "related": related(sample, book),
        "log_host": sample["host"],
        "log": sample["log"],
        "devices": [record["host"] for record in group],
    }


def stopped_in(group, possible):
    """In which states the updates stopped, each with a count of devices.

    The last state that was seen may be an earlier one; where the message is logged in a single state, it tells.
    """
    if len(possible) == 1:
        return [(possible[0], len(group))]
    seen = collections.Counter(last_state(record) for record in group if record["states"]).most_common()
    return [(state, devices) for state, devices in seen if not possible or state in possible]


def related(record, book):
    """The errors and warnings that the device logged before its last message, the latest first."""
    found, seen = [], {without_head(record["why"])}
    for line in reversed(record["log"]):
        advice, text = book.message(line), without_head(line)
        if advice and advice.level in ("error", "warning") and text not in seen and len(found) < RELATED:
            found.append({"message": text, "meaning": advice.meaning, "action": advice.action})
        seen.add(text)
    return found


def waves_of(records, now):
    """The waves in the order of their start; in each, the devices in the order of rank()."""
    waves = collections.defaultdict(list)
    for record in records:
        waves[record["wave"]].append(device_of(record, now))
    found = []
    for name, devices in waves.items():
        devices.sort(key=lambda device: rank(device["outcome"]))
        ends = [device["ended"] for device in devices]
        found.append(
            {
                "name": name,
                "started": min(device["started"] for device in devices),
                "ended": None if None in ends else max(ends),
                "counts": count(devices),
                "devices": devices,
            }
        )
    return sorted(found, key=lambda wave: wave["started"])


def rollout_of(folder, digest):
    """What is known of the rollout of an update; nothing if its records are all there is."""
    with contextlib.suppress(OSError, ValueError, KeyError, TypeError):
        found = json.loads((pathlib.Path(folder) / ROLLOUT).read_text(encoding="utf-8"))
        if digest and found["digest"] == digest:
            return {"digest": digest, "hosts": [str(host) for host in found["hosts"]], "stopped": clean(str(found["stopped"]))}
    return {"digest": digest, "hosts": [], "stopped": ""}


def select(records, digest):
    """The records of an update, or else of the one that was started last, and how many records are of which other URL."""
    newest = max(records, key=lambda record: record["started"], default={"digest": ""})
    name = "digest" if digest or newest["digest"] else "url"
    value = digest or newest.get(name)
    others = collections.Counter(record["url"] for record in records if record[name] != value)
    return [record for record in records if record[name] == value], dict(others.most_common())


def summarize(folder, now, book=None, rollout=None):
    """What the report of a folder of records shows. `now` in seconds since the epoch.

    It is about the update that was started last; records of others are counted only. `rollout`: what is known of it, even
    if no device has been reached, if not what the folder says.
    """
    book = book or Book()
    records, unreadable = read_records(folder)
    records, others = select(records, rollout["digest"] if rollout else "")
    known = {record["host"] for record in records}
    rollout = rollout or rollout_of(folder, records[0]["digest"] if records else "")
    waves = waves_of(records, now)
    devices = [device for wave in waves for device in wave["devices"]]
    waiting, stopped = sum(host not in known for host in rollout["hosts"]), rollout["stopped"]
    running = waiting and not stopped or any(device["ended"] is None for device in devices)
    return {
        "url": max(records, key=lambda record: record["started"])["url"] if records else "",
        "urls": len({record["url"] for record in records}),
        "digest": rollout["digest"],
        "waiting": waiting,
        "stopped": stopped,
        "generated": now,
        "started": min((device["started"] for device in devices), default=None),
        "ended": None if running else max((device["ended"] for device in devices), default=None),
        "total": len(devices),
        "longest": max((device["duration"] for device in devices), default=0),
        "counts": count(devices),
        "failures": failures_of(records, book),
        "waves": waves,
        "others": others,
        "unreadable": unreadable,
    }
