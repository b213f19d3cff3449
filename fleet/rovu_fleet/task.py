"""What the tasks of the playbooks have in common."""

from rovu_fleet.link import Link
from rovu_fleet.pack import Pack
from rovu_fleet.record import Record


class Limits:
    """In seconds, but for `attempts`: how often an update is started in one run of the playbook."""

    def __init__(self, args):
        self.poll = float(args.get("poll", 5))
        self.link = float(args.get("link_limit", 600))
        self.restart = float(args.get("restart_limit", 600))
        self.look = float(args.get("look_limit", 30))
        self.state = float(args.get("state_limit", 14400))
        self.attempts = int(args.get("attempts", 2))


PACK_ARGS = ("pack", "spec", "pub", "files", "secrets")
WORK_ARGS = ("records", "wave", "health", "poll", "link_limit", "restart_limit", "look_limit", "state_limit", "attempts")


def pack_of(args):
    return Pack(args["pack"], args["spec"], args.get("pub", ""), args.get("files", ""), args.get("secrets", ""))


def link_of(action, limits):
    return Link(action, limits.link, min(limits.poll, 2))


def record_of(args, task_vars, subject):
    record = Record(args["records"], task_vars["inventory_hostname"], subject)
    record.note(wave=args["wave"])
    return record


def result_of(outcome, record):
    return {
        "changed": record.data["attempts"] > 0,
        "outcome": outcome.name,
        "why": outcome.why,
        "counts": outcome.counts,
    }
