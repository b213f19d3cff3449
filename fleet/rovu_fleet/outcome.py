"""How the work on one device ended, and what every such work asks of a device."""

from ansible.errors import AnsibleActionFail

from rovu_fleet.link import LinkLost, ScriptFailed

# docs/fleet.md says what each outcome means. Those that leave a device as it was wanted, or as it was:
GOOD = ("updated", "current", "done", "returned")
UNTOUCHED = ("refused",)


class Outcome(Exception):
    def __init__(self, name, why="", log=()):
        super().__init__(name)
        self.name, self.why, self.log = name, why, list(log)

    @property
    def counts(self):
        """Whether the threshold of a wave counts it."""
        return self.name not in GOOD + UNTOUCHED


def outcome_of(work, record):
    """Does the work, which ends by raising an Outcome, and records it."""
    try:
        work()
        end = Outcome("failed", "the work did not end")
    except Outcome as outcome:
        end = outcome
    except LinkLost as lost:
        states = record.data["states"]
        end = Outcome("gone", f'no answer since the state "{states[-1][0]}": {lost}') if states else Outcome("unreachable", str(lost))
    except (ScriptFailed, AnsibleActionFail) as failed:
        end = Outcome("failed", str(failed))
    record.end(end.name, end.why, end.log)
    return end


def missing(look):
    """What the device should tell, and does not."""
    return [name for name in ("model", "kernel", "rootfs", "active") if not look.get(name)]


def check_look(look):
    if missing(look):
        raise Outcome("unsound", "the device does not tell: " + ", ".join(missing(look)))


def check_health(link, command):
    """Runs the operator's own command on the device, if there is one."""
    if not command:
        return
    said = link.run("health", COMMAND=command)
    if said.get("health") != "0":
        why = f"the health command ended with status {said.get('health')}"
        raise Outcome("unhealthy", why, said.get("log", []))
