"""Returns one device to the set that it came from.

Only a device that runs the update is touched, so that the work can be repeated: a device that is back stays there.
"""

import time

from rovu_fleet.outcome import Outcome, check_health, check_look, outcome_of, settled
from rovu_fleet.update import has_ended
from rovu_fleet.verification import faults, runs_target, set_of


class Back:
    def __init__(self, link, pack, record, limits, health):
        self.link, self.pack, self.record, self.limits, self.health = link, pack, record, limits, health

    def run(self):
        """Returns the Outcome."""
        return outcome_of(self.work, self.record)

    def work(self):
        look = self.link.run("look")
        check_look(look)
        images = self.pack.images()
        if not any(image["mandatory"] for image in images.values()):
            raise Outcome("refused", "the update has no mandatory image, which would tell the devices that run it")
        if not runs_target(look, images):
            if self.record.data["attempts"]:
                self.finish(look)
            raise Outcome("current", "the device does not run the update")
        if look.get("alive") or (look.get("run_url") and not has_ended(look)):
            raise Outcome("busy", "an update runs")
        other = 1 - int(look["active"])
        if set_of(look.get("bootswitcher")) == int(look["active"]):
            self.check_set(look, other)
            self.record.note(attempts=1, active=int(look["active"]))
            self.record.enter("switching volume")
            if self.link.run("back", SET=other).get("switched") == "busy":
                raise Outcome("busy", "an update has started")
        self.finish(self.return_of(look))

    def check_set(self, look, other):
        """Refuses a set that is not whole."""
        if look.get("references") != "agree":
            raise Outcome("refused", f"the reference files: {look.get('references')}")
        digests = self.link.run("digests", SET=other)
        for volume in (f"k{other}", f"k{other}_root"):
            expected = look.get(f"reference.{volume}")
            if not expected:
                raise Outcome("refused", f"the reference files do not name {volume}")
            if digests.get(volume) != expected:
                raise Outcome("refused", f"volume {volume} does not hold what the reference files say")

    def return_of(self, before):
        """Waits for the restart. Returns what the device then is."""
        time.sleep(self.limits.poll)
        look = settled(self.link, before, self.limits)
        if look.get("active") != before["active"]:
            return look
        if set_of(look.get("bootswitcher")) == int(before["active"]):
            raise Outcome("fell back", "the boot loader started the new set again")
        raise Outcome("unsound", "the device was switched to its other set, and did not restart")

    def finish(self, look):
        check_look(look)
        self.record.enter("verifying")
        found = faults(look, self.link.run("digests", SET=look["active"]), {"volumes": []})
        if found:
            raise Outcome("unsound", "; ".join(found))
        check_health(self.link, self.health)
        raise Outcome("returned")
