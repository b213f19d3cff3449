"""The report as a page: what summary.py found, set by report.html.j2."""

import argparse
import collections
import datetime
import functools
import json
import os
import pathlib
import re
import statistics
import sys
import time

import jinja2
import markupsafe

from rovu_fleet.advice import DATA, GOOD, OUTCOMES
from rovu_fleet.summary import BEFORE, summarize

# The states in their order, as the legend numbers them; 0 is the time before the first.
*RUN, ERROR = (state for state, *_ in DATA["states"])
STATES = (BEFORE, "starting", *RUN, "restarted in the middle", "verifying", ERROR)
# Of the device nothing was changed, and nothing is broken.
HELD = ("unreachable", "stopped", "busy", "refused", "returned")
# A larger fleet's good devices are folded away; if even more devices than these are shown, their time lines lose their
# text. So the page of ten thousand devices has a few megabytes.
FOLDED_FROM = 500


def duration_text(seconds):
    seconds = round(seconds)
    if seconds < 60:
        return f"{seconds} s"
    if seconds < 3600:
        return f"{seconds // 60} min {seconds % 60:02} s"
    return f"{seconds // 3600} h {seconds % 3600 // 60:02} min"


def utc(seconds, form="%Y-%m-%d %H:%M:%S"):
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime(form)


def period(start, end):
    """From one time to another, the day only once; an end of None is not reached yet."""
    if end is None:
        return f"{utc(start)} UTC until now"
    return f"{utc(start)} to {utc(end, '%H:%M:%S' if utc(start)[:10] == utc(end)[:10] else '%Y-%m-%d %H:%M:%S')} UTC"


def number(value):
    return f"{value:,}"


def tone(outcome):
    if outcome in GOOD:
        return "good"
    return outcome if outcome == "running" else "held" if outcome in HELD else "bad"


def kind_text(kind):
    """model=mast-4,kernel=1.0,rootfs=2.0,tmp=... as people say it."""
    values = dict(word.partition("=")[::2] for word in kind.split(","))
    if "model" not in values:
        return kind
    return ", ".join([values["model"]] + [f"{name} {values[name]}" for name in ("kernel", "rootfs") if name in values])


def state_number(state):
    return STATES.index(state) if state in STATES else len(STATES)


def markdown(text):
    """The inline Markdown of advice.json as HTML: code, bold, and the text of a link."""
    escaped = str(markupsafe.escape(text))
    escaped = re.sub(r"`([^`]+)`", r"<code>\1</code>", escaped)
    escaped = re.sub(r"\*\*([^*]+)\*\*", r"<strong>\1</strong>", escaped)
    escaped = re.sub(r"\*([^*]+)\*", r"<em>\1</em>", escaped)
    return markupsafe.Markup(re.sub(r"\[([^\]]+)\]\([^)]*\)", r"\1", escaped))


def time_line(segment_list, longest):
    """The parts of a time line that can be seen: number of the state, width in percent, name, start and seconds."""
    scale = 100 / longest if longest else 0
    for state, start, seconds in segment_list:
        width = round(seconds * scale, 1)
        if width:
            yield state_number(state), f"{width:g}", state, start, seconds


def time_stops(segment_list, longest):
    """Where each part of a time line ends, in percent of its width, after the number of its state."""
    scale, end, shown = (100 / longest if longest else 0), 0, 0
    for state, _, seconds in segment_list:
        end += seconds * scale
        if round(end) > shown:
            shown = round(end)
            yield state_number(state), shown


def alike(devices):
    """Groups of devices of one outcome, kind (as the page names it) and count of attempts, with these before them."""
    groups = collections.defaultdict(list)
    for device in devices:
        groups[device["outcome"], kind_text(device["kind"]), device["attempts"]].append(device)
    return [(*key, groups[key]) for key in sorted(groups)]


@functools.cache
def template():
    """That of the page. Ansible's processes of devices have the one that was made before they were started."""
    env = jinja2.Environment(
        loader=jinja2.FileSystemLoader(pathlib.Path(__file__).parent),
        autoescape=True,
        undefined=jinja2.StrictUndefined,
        trim_blocks=True,
        lstrip_blocks=True,
    )
    env.filters.update(duration=duration_text, utc=utc, number=number, tone=tone, kind=kind_text, markdown=markdown)
    env.filters.update(state_number=state_number, median=statistics.median)
    env.globals.update(period=period, time_line=time_line, time_stops=time_stops, alike=alike)
    return env.get_template("report.html.j2")


def render(data):
    """The page for what summarize() returned."""
    devices = [device for wave in data["waves"] for device in wave["devices"]]
    bad = [device for device in devices if tone(device["outcome"]) in ("bad", "held")]
    seen = {state for device in devices for state, _, seconds in device["segments"] if seconds}
    return template().render(
        data=data,
        bad=len(bad),
        anchors={device["host"]: index for index, device in enumerate(bad)},
        folded=data["total"] > FOLDED_FROM,
        detailed=sum(device["outcome"] not in GOOD for device in devices) <= FOLDED_FROM,
        good_outcomes=GOOD,
        outcomes=OUTCOMES,
        states=sorted((state_number(state), state) for state in seen),
    ).lstrip()


def replace(path, text):
    """The whole file or the one before: a browser may be reading it."""
    part = path.with_name(path.name + ".part")
    try:
        part.write_text(text, encoding="utf-8")
        os.replace(part, path)
    except OSError:
        part.unlink(missing_ok=True)
        raise


def complaint(folder, out):
    """Why no report can be written; empty if it can."""
    if not folder.is_dir():
        return f"{folder} is no folder; the first argument is the folder of the records"
    if out.suffix != ".html":
        return f"{out} does not end in .html"
    if out.parent.resolve() == folder.resolve():
        return f"{out} is in the folder of the records, where its .json would be read as a record; write it elsewhere"
    return ""


def main(usage):
    """Returns the exit status."""
    parser = argparse.ArgumentParser(prog="report", usage=usage)
    parser.add_argument("records", type=pathlib.Path)
    parser.add_argument("out", type=pathlib.Path)
    args = parser.parse_args()
    problem = complaint(args.records, args.out)
    if problem:
        print(f"report: {problem}", file=sys.stderr)
        return 2
    data = summarize(args.records, time.time())
    try:
        replace(args.out.with_suffix(".json"), json.dumps(data, separators=(",", ":")) + "\n")
        replace(args.out, render(data))
    except OSError as error:
        print(f"report: cannot write {error.filename}: {error.strerror}", file=sys.stderr)
        return 1
    for each in data["unreadable"]:
        print(f"report: {args.records / each['file']} was left out: {each['why']}", file=sys.stderr)
    return 0
