"""What an operator reads about an outcome, and about a message that a device logged.

All of it is data in advice.json, from which the tables of docs/messages.md are made too (tests/docs/messages).
"""

import dataclasses
import json
import pathlib
import re

DATA = json.loads(pathlib.Path(__file__).with_name("advice.json").read_text(encoding="utf-8"))

# The most urgent first: what may need a visit to the device, then what may happen to the devices that follow, then
# what changed nothing.
OUTCOMES = DATA["outcomes"]
GOOD = ("updated", "current", "done")

# What a message may have for each variable.
VARIABLES = {"%s": r".*", "%d": r"-?\d+", "%u": r"\d+", "%c": r".", "%08x": r"[0-9a-fA-F]{8}"}
HEAD = re.compile(r"[A-Z]+ \[[^\]]*:\d+, \d\d/\d\d-\d\d:\d\d:\d\d\]: ")
FAULT_HEAD = "LUA parsing failed: "
# A longer line is none of the device's messages, and would only take time.
LONGEST_LINE = 2000


@dataclasses.dataclass(frozen=True)
class Advice:
    """`meaning` and `action` are Markdown and may be empty. `states`: those in which the message is logged, if known."""

    message: str
    level: str
    meaning: str
    action: str
    states: tuple


def without_head(line):
    """The message of a log line, which names module, source line and time before it."""
    return HEAD.sub("", line, count=1).strip()


def pattern_of(message):
    """The regular expression of a message, and its count of fixed characters."""
    parts = re.split("(" + "|".join(VARIABLES) + ")", message)
    expression = "".join(VARIABLES.get(part) or re.escape(part) for part in parts)
    return re.compile(expression, re.DOTALL), sum(len(part) for part in parts if part not in VARIABLES)


class Book:
    """What is known of messages, their numbers, and states."""

    def __init__(self):
        self._states = {state: stopped for state, _, stopped in DATA["states"]}
        self._silent = {each: cause for states, cause in DATA["silent"] for each in states.split(", ")}
        self._errnos = {value: f"{row[0]}, {row[-1]}" for row in DATA["numbers"] for value in row[1:-1]}
        found = [Advice(*row, tuple(each["states"])) for each in DATA["messages"] for row in each["rows"]]
        head = next(each for each in found if each.message == FAULT_HEAD + "%s")
        found += [dataclasses.replace(head, message=FAULT_HEAD + fault, meaning=why) for fault, why in DATA["faults"]]
        # Of several that match, the one with the most fixed characters, and with numbers rather than strings.
        patterns = [(*pattern_of(each.message), each) for each in found]
        patterns.sort(key=lambda entry: (-entry[1], entry[2].message.count("%s")))
        self._patterns = [(pattern, advice) for pattern, _, advice in patterns]

    def message(self, line):
        """The Advice for a line of a device's log, or for a message without a head; None if there is none."""
        said = without_head(line)
        if not said or len(said) > LONGEST_LINE:
            return None
        return next((advice for pattern, advice in self._patterns if pattern.fullmatch(said)), None)

    def numbers(self, line, advice):
        """What the numbers in a message say; empty if that is not known. `advice`: that of the line."""
        said = without_head(line)
        pair = re.search(r"\((-?\d+), (-?\d+)[,)]", said)
        if "(%d, %d" in advice.message and pair:
            return "; ".join(filter(None, (self._errnos.get(-int(pair[1])), status_text(int(pair[2])))))
        last = re.search(r": (\d+)$", said)
        # Where it may be an exit status, it cannot be told from an errno value.
        if advice.message.endswith(": %d") and last and "exit status" not in advice.meaning:
            return self._errnos.get(int(last[1]), "")
        return ""

    def state(self, state):
        """What to do about an update that stopped in this state; empty if there is nothing."""
        return self._states.get(state, "")

    def silent(self, state):
        """Why an update may fail in this state without a message; empty if there is nothing."""
        return self._silent.get(state, "")


def status_text(status):
    """The exit status of a command, as far as it tells more than that the command failed."""
    if status == 127:
        return "exit status 127, no such command"
    if status == -1 or status > 128:
        return f"exit status {status}, a signal killed the command"
    return ""
