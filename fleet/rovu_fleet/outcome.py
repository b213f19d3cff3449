"""How the work on one device ended, and what every such work asks of a device."""

import time

from ansible.errors import AnsibleActionFail

from rovu_fleet.link import LinkLost, ScriptFailed
from rovu_fleet.verification import set_of

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
        end = Outcome("unreachable", str(lost))
        if states:
            end = Outcome("gone", f'no answer since the state "{states[-1][0]}": {lost}')
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


def settled(link, before, limits):
    """What a device is after its restart. One that shuts down may still answer when /tmp is empty already, and one that
    starts, before all is there. `before`: what it was. Raises LinkLost.
    """
    active = before["active"]
    end = time.monotonic() + limits.restart
    while True:
        look = link.run("look", limit=max(0, end - time.monotonic()))
        is_on_its_way = look.get("active") == active and set_of(look.get("bootswitcher")) != int(active)
        is_starting = missing(look) or (look.get("references") == "missing" != before.get("references"))
        if not (is_on_its_way or is_starting) or time.monotonic() >= end:
            return look
        time.sleep(limits.poll)


def check_health(link, command):
    """Runs the operator's own command on the device, if there is one."""
    if not command:
        return
    said = link.run("health", COMMAND=command)
    if said.get("health") != "0":
        why = f"the health command ended with status {said.get('health')}"
        raise Outcome("unhealthy", why, said.get("log", []))
