"""How the work on one device ended, and what every such work asks of a device."""

import re
import time

from rovu_fleet.advice import GOOD
from rovu_fleet.link import LinkLost, ScriptFailed
from rovu_fleet.verification import holds, recorded, set_of

# What a device says goes to the command line of rovu-pack, into records and onto the page.
NAME = r"[^,=\x00-\x1f\x7f]{1,100}"
SAID = {"model": NAME, "kernel": NAME, "rootfs": NAME, "active": "[01]"}
NUMBERS = ("tmp", "free_lebs", "leb_size")


class Outcome(Exception):
    def __init__(self, name, why="", log=(), is_good=False):
        """`is_good`: whether the device is what it should be, although it does not run the update."""
        super().__init__(name)
        self.name, self.why, self.log = name, why, list(log)
        # Whether the limits of a wave count it.
        self.counts = not is_good and name not in (*GOOD, "refused")


class Work:
    """On one device. Its methods work() and verify_again(), for a device that was well, end by raising an Outcome."""

    def run(self, again=False):
        """Returns the Outcome, which is recorded."""
        record = self.record
        try:
            (self.verify_again if again else self.work)()
        except Outcome as outcome:
            end = outcome
        except LinkLost as lost:
            states = record.data["states"]
            end = Outcome("unreachable", str(lost))
            if record.held:
                end = Outcome(record.held, f"{record.data['why']} (no answer now: {lost})".lstrip())
            elif states:
                end = Outcome("gone", f'no answer since the state "{states[-1][0]}": {lost}')
        except ScriptFailed as failed:
            end = Outcome("failed", str(failed))
        record.end(end.name, end.why, end.log)
        return end


def is_held(link, look, images, number):
    """Whether a set holds the update: by the reference files if they agree, and by its volumes if they do not."""
    return holds(recorded(look) if look.get("references") == "agree" else link.run("digests"), images, number)


def missing(look):
    """What the device should tell, and does not, or not in a way that can be true."""
    names = [name for name, pattern in SAID.items() if not re.fullmatch(pattern, look.get(name, ""))]
    return names + [name for name in NUMBERS if not re.fullmatch(r"\d{0,15}", look.get(name, ""))]


def check_look(look):
    if missing(look):
        raise Outcome("unsound", "the device does not tell: " + ", ".join(missing(look)))


def settled(link, before, limits):
    """What a device is after its restart. One that shuts down may still answer when /tmp is empty already, and one that
    starts, before all is there. `before`: what it was. Raises LinkLost.
    """
    active = before["active"]
    end = time.monotonic() + limits.restart_limit
    while True:
        look = link.run("look", limit=max(0, end - time.monotonic()))
        is_on_its_way = look.get("active") == active and set_of(look.get("bootswitcher")) != int(active)
        is_starting = missing(look) or (look.get("references") == "missing" != before.get("references"))
        if not (is_on_its_way or is_starting) or time.monotonic() >= end:
            return look
        time.sleep(limits.poll)


def check_health(link, settings):
    """Runs the operator's own command on the device, if there is one."""
    if not settings.health:
        return
    try:
        # It may be the command itself that ends the link.
        said = link.run("health", command_limit=settings.health_limit, tries=3, COMMAND=settings.health)
    except LinkLost as lost:
        raise Outcome("unhealthy", f"the health command did not come to its end: {lost}") from lost
    if said.get("health") != "0":
        why = f"the health command ended with status {said.get('health')}"
        raise Outcome("unhealthy", why, said.get("log", []))
