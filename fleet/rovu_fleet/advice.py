"""What an operator reads about an outcome, and about a message that a device logged.

Messages and states are looked up in the tables of docs/operating.md, so that each is explained in one place.
"""

import dataclasses
import pathlib
import re

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "operating.md"

# The most urgent first: what may need a visit to the device, then what may happen to the devices that follow, then
# what changed nothing.
OUTCOMES = {
    "gone": "The device has not answered since the state that is named. In \"switching volume\" or \"complete\", it has not "
    "come back from its restart. Check its power, its link and its console. The update may go on without the link: run "
    "the playbook again when the device answers. If the update did not come through, rovu_retry=gone starts it again.",
    "stalled": "The update still runs, but does not get on: a script that waits, or a very slow link. Look at the device, "
    "then run the playbook again: it follows the update.",
    "replaced": "The device downloaded another spec than that of the rollout, and carries it out. Find out who replaced it on "
    "the server, then look at what the device runs.",
    "fell back": "The device did not start the set that it was told to start, but the one before. Look at the console "
    "of one such device before the update goes to more. It is not updated again until rovu_retry=fell_back says so.",
    "unsound": "The device is not what it should be, or tells contradictory things. Look at it before anything else is "
    "done to it.",
    "unhealthy": "The volumes are as expected, but the health command failed. See what it printed; the playbook back.yml "
    "returns the device to its former set.",
    "failed": "The update ended with an error. Fix the cause, then run the playbook again.",
    "unreachable": "The device did not answer, so nothing was started. Check the link, then run the playbook again.",
    "stopped": "A signal ended the update before it was complete. Find out who sent it, then run the playbook again.",
    "busy": "Another update runs on the device, so this one was not started. Run the playbook again when it has ended.",
    "refused": "Nothing was started: the device would refuse the update, or it would do harm. Use an update for this "
    "kind of device, or take the device out of the inventory.",
    "running": "The update is under way. If no playbook is running, run it again: it follows the update.",
    "updated": "The device runs the update, and its volumes were verified.",
    "current": "Nothing was to be done. Nothing was started.",
    "done": "The update ran, and does not restart the device.",
    "returned": "The device runs its former set again, and its volumes were verified. It is not updated again until "
    "rovu_retry=returned says so.",
}
GOOD = ("updated", "current", "done", "returned")

# What a message may have for each variable of the document.
VARIABLES = {"%s": r".*", "%d": r"-?\d+", "%u": r"\d+", "%c": r".", "%08x": r"[0-9a-fA-F]{8}"}
HEAD = re.compile(r"[A-Z]+ \[[^\]]*:\d+, \d\d/\d\d-\d\d:\d\d:\d\d\]: ")
FAULT_HEAD = "LUA parsing failed: "
# A longer line is none of the device's messages, and would only take time.
LONGEST_LINE = 2000


@dataclasses.dataclass(frozen=True)
class Advice:
    """A row of the document. `meaning` and `action` are Markdown; all but `message` may be empty.

    `section`: the heading above the row, which may name the states in which the message is logged.
    """

    message: str
    level: str = ""
    meaning: str = ""
    action: str = ""
    section: str = ""


def without_head(line):
    """The message of a log line, which names module, source line and time before it."""
    return HEAD.sub("", line, count=1).strip()


def tables(text):
    """Each table of a Markdown document: the heading above it, its column titles, and its rows."""
    heading, rows = "", []
    for line in [*text.splitlines(), ""]:
        if line.startswith("|"):
            rows.append([cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]])
            continue
        if len(rows) > 2:
            yield heading, rows[0], rows[2:]
        rows = []
        if line.startswith("#"):
            heading = line.lstrip("#").strip()


def pattern_of(message):
    """The regular expression of a documented message, and its count of fixed characters."""
    parts = re.split("(" + "|".join(VARIABLES) + ")", message)
    expression = "".join(VARIABLES.get(part) or re.escape(part) for part in parts)
    return re.compile(expression, re.DOTALL), sum(len(part) for part in parts if part not in VARIABLES)


class Book:
    """The tables of docs/operating.md. Of a document that is not there, every look-up finds nothing."""

    def __init__(self, path=DOCUMENT):
        self.states = {}
        self._silent = {}
        self._errnos = {}
        self._patterns = []
        try:
            text = pathlib.Path(path).read_text(encoding="utf-8")
        except FileNotFoundError:
            return
        messages, faults = [], []
        for heading, titles, rows in tables(text):
            if titles[0] == "Message":
                messages += [Advice(name(row[0]), *row[1:4], heading) for row in rows]
            elif titles == ["Fault", "Meaning"]:
                faults += rows
            elif titles[0] == "State" and titles[-1] == "If it stops here":
                self.states = resolved({name(row[0]): row[-1] for row in rows})
            elif titles == ["State", "Cause"]:
                self._silent = {name(each): row[1] for row in rows for each in row[0].split(", ")}
            elif titles[0] == "Name" and titles[-1] == "Meaning":
                self._errnos = {int(value): f"{row[0]}, {row[-1]}" for row in rows for value in row[1:-1]}
        head = next((each for each in messages if each.message == FAULT_HEAD + "%s"), Advice(""))
        messages += [dataclasses.replace(head, message=FAULT_HEAD + name(row[0]), meaning=row[1]) for row in faults]
        self._add(messages)

    def _add(self, messages):
        found = [(*pattern_of(each.message), each) for each in messages]
        # Of several that match, the one with the most fixed text, and with numbers rather than strings.
        found.sort(key=lambda entry: (-entry[1], entry[2].message.count("%s")))
        self._patterns = [(pattern, advice) for pattern, _, advice in found]

    def message(self, line):
        """The Advice for a line of a device's log, or for a message without a head; None if there is none."""
        said = without_head(line)
        if not said or len(said) > LONGEST_LINE:
            return None
        return next((advice for pattern, advice in self._patterns if pattern.fullmatch(said)), None)

    def states_of(self, advice):
        """The states in which the message is logged, as far as its section names them."""
        return [state for state in self.states if re.search(rf"\b{state}\b", advice.section)]

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
        return self.states.get(state, "")

    def silent(self, state):
        """Why an update may fail in this state without a message; empty if there is nothing."""
        return self._silent.get(state, "")


def name(cell):
    """What a cell of the first column names, without its quotes."""
    return cell.strip().strip("`")


def resolved(states):
    """The texts of the states, with those to which they refer by "as for" in them."""
    as_for = re.compile("as for `([^`]+)`")
    return {state: as_for.sub(lambda other: states.get(other[1], other[0]), text) for state, text in states.items()}


def status_text(status):
    """The exit status of a command, as far as it tells more than that the command failed."""
    if status == 127:
        return "exit status 127, no such command"
    if status == -1 or status > 128:
        return f"exit status {status}, a signal killed the command"
    return ""
