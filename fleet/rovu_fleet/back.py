"""Returns one device to the set that it came from.

Only a device that runs the update is touched, so that the work can be repeated: a device that is back stays there.
"""

import time

from rovu_fleet.outcome import Outcome, Work, check_health, check_look, is_held, settled
from rovu_fleet.update import has_ended
from rovu_fleet.verification import faults, holds, noted, recorded, set_of, unlike, volumes_of


class Back(Work):
    def __init__(self, link, record, settings, frozen):
        self.link, self.record, self.settings, self.images = link, record, settings, frozen["images"]

    def verify_again(self):
        look = self.link.run("look")
        check_look(look)
        if is_held(self.link, look, self.images, look["active"]):
            raise Outcome("fell back", "the boot loader started the new set again")
        self.finish(look)

    def work(self):
        look = self.link.run("look", limit=self.settings.look_limit)
        check_look(look)
        if not any(image["mandatory"] for image in self.images.values()):
            raise Outcome("refused", "the update has no mandatory image, which would tell the devices that run it")
        other = 1 - int(look["active"])
        if not is_held(self.link, look, self.images, look["active"]):
            if not is_held(self.link, look, self.images, other):
                raise Outcome("refused", "no set of the device holds this update: it never ran there, or another one did since")
            if self.record.held and not self.record.data.get("returning"):
                raise Outcome(self.record.held, self.record.data["why"], is_good=self.record.held == "returned")
            self.finish(look)
        if look.get("alive") or (look.get("run_digest") and not has_ended(look)):
            raise Outcome("busy", "an update runs")
        if set_of(look.get("bootswitcher")) == int(look["active"]):
            digests = self.link.run("digests")
            self.check_set(look, other, digests)
            self.record.note(returning=True, attempts=1, before=noted(look, digests))
            self.record.enter("switching volume")
            self.record.append("switch", set=other)
            if self.link.run("back", SET=other).get("switched") == "busy":
                raise Outcome("busy", "an update has started")
        self.finish(self.return_of(look))

    @staticmethod
    def counts(look, other):
        """Why the boot loader would leave the other set again, or might; empty if it would not.

        One with the variable `good` counts the starts of every other set. U-Boot's own count runs where upgrade_available
        is not 0, and what comes after it is a command of the board's, which returns to `good` if that is there.
        """
        if look.get("good"):
            names = set_of(look["good"]) == other
            return "" if names else f"the boot loader's variable good is {look['good']}: it would count the starts of set {other}, and leave it again"
        counter = [name for name in ("bootcount", "bootlimit", "upgrade_available") if look.get(name)]
        if not counter or look.get("upgrade_available") == "0":
            return ""
        return f"the boot loader counts starts ({counter[0]} is {look[counter[0]]}), and nothing tells which set it would leave set {other} for"

    def check_set(self, look, other, digests):
        """Refuses a set that is not whole, or that is not the former one, or that the boot loader would leave again."""
        if look.get("references") != "agree":
            raise Outcome("refused", f"the reference files: {look.get('references')}")
        if self.counts(look, other):
            raise Outcome("refused", self.counts(look, other))
        if holds(digests, self.images, other):
            raise Outcome("refused", "both sets hold the update")
        for volume in volumes_of(other).values():
            expected = recorded(look).get(volume)
            if not expected:
                raise Outcome("refused", f"the reference files do not name {volume}")
            fault = unlike(volume, expected, digests, "what the reference files say")
            if fault:
                raise Outcome("refused", fault)

    def return_of(self, before):
        """Waits for the restart. Returns what the device then is."""
        time.sleep(self.settings.poll)
        look = settled(self.link, before, self.settings)
        if look.get("active") != before["active"]:
            return look
        if set_of(look.get("bootswitcher")) == int(before["active"]):
            raise Outcome("fell back", "the boot loader started the new set again")
        raise Outcome("unsound", "the device was switched to its other set, and did not restart")

    def finish(self, look):
        check_look(look)
        self.record.enter("verifying")
        found = faults(look, self.link.run("digests"), {"volumes": []})
        if found:
            raise Outcome("unsound", "; ".join(found))
        check_health(self.link, self.settings)
        self.record.note(returning=False)
        raise Outcome("returned", is_good=True)
