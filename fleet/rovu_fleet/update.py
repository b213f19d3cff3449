"""One device's update, from the first look to the verified restart.

Everything is read from the device again, so that a control machine that was killed can go on: what runs the target is
not updated again, and an update that is under way is followed and not started a second time.
"""

import time

from rovu_fleet.outcome import Outcome, check_health, check_look, outcome_of, settled
from rovu_fleet.pack import kind_of
from rovu_fleet.verification import faults, runs_target, set_of

# States in which the boot loader's variable may have been changed.
SWITCHING = ("switching volume", "complete")


def has_ended(look):
    """Whether the last update that was started has ended, by itself or because it was killed."""
    return "run_status" in look or "run_dead" in look


class Update:
    def __init__(self, link, pack, record, limits, args):
        self.link, self.pack, self.record, self.limits = link, pack, record, limits
        self.url, self.program = args["url"], args["program"]
        self.options, self.health = args.get("options", "-v"), args.get("health", "")
        self.images = {}

    def run(self):
        """Returns the Outcome."""
        return outcome_of(self.attempts, self.record)

    def attempts(self):
        self.images = self.pack.images()
        while True:
            self.attempt()

    def attempt(self):
        # A device that is not known to be amid its update is waited for no longer than plan.yml does.
        look = self.link.run("look", limit=self.limits.link if self.record.data.get("token") else self.limits.look)
        check_look(look)
        if runs_target(look, self.images):
            if self.record.data.get("token"):
                self.record.note(attempts=max(1, self.record.data["attempts"]))
            self.finish(look, "updated" if self.record.data["attempts"] else "current")
        if self.has_restarted(look):
            self.back({**look, "active": str(self.record.data["active"])})
            return
        if not self.is_under_way(look):
            if self.record.done == self.pack.digest():
                self.record.note(done=self.record.done)
                raise Outcome("current", "the update, which does not restart the device, has run before")
            refusal = self.plan(look)
            if refusal:
                raise Outcome("refused", refusal)
            if not self.start(look):
                return  # and looks at what the other operator has started
        self.follow(look)

    def has_restarted(self, look):
        """Whether the update had come to its restart, which nobody saw because the control machine was killed."""
        token = self.record.data.get("token")
        is_planned = token and "active" in self.record.data
        return self.last_state() in SWITCHING and is_planned and look.get("run_token") != token

    def is_under_way(self, look):
        """Whether an update of this URL is there to be followed: this operator's or another's."""
        token = self.record.data.get("token")
        is_switched = set_of(look.get("bootswitcher")) != int(look["active"])
        if look.get("run_url") == self.url and look.get("run_token"):
            if token and look["run_token"] == token:  # it may have ended while nobody looked
                self.record.note(attempts=max(1, self.record.data["attempts"]))
                return True
            if not has_ended(look) or (is_switched and look.get("run_status") == "0"):
                self.plan(look)  # who started it has seen to it that nothing is refused
                self.record.note(token=look["run_token"], attempts=max(1, self.record.data["attempts"]))
                return True
        if look.get("alive"):
            raise Outcome("busy", "another update runs: " + ", ".join(look["alive"]))
        if set_of(look.get("bootswitcher")) is None:
            raise Outcome("unsound", f'the boot loader\'s variable reads "{look.get("bootswitcher", "")}", which names no set')
        if is_switched:
            raise Outcome("unsound", "the device was switched to its other set, and not restarted")
        return False

    def plan(self, look):
        """Notes what the update will do to this device. Returns why it is to be refused, because rovu-pack says that
        the device would refuse it, or would regret it; otherwise an empty string.
        """
        check = self.pack.check([kind_of(look)])
        device = check["devices"][0]
        if not device["accepts"]:
            return device["refusal"]
        plan = next(each for each in device["plans"] if each["active_set"] == int(look["active"]))
        volumes = [
            {"name": boot["volume"], "kind": boot["kind"], "version": boot["version"], "md5": self.images[boot["kind"]]["md5"]}
            for boot in plan["boots"]
            if boot["content"] == "new"
        ]
        self.record.note(
            kind=kind_of(look),
            active=int(look["active"]),
            switches=plan["switches"],
            expected={"volumes": volumes},
        )
        errors = [each["why"] for each in check["findings"] if each["severity"] == "error"]
        return "rovu-pack check: " + errors[0] if errors else ""

    def start(self, look):
        """Returns whether the update was started, and not another one since the look."""
        if self.record.data["attempts"] >= self.limits.attempts:
            raise Outcome("failed", "the device restarted in the middle of each attempt")
        attempts = self.record.data["attempts"] + 1
        token = f"{self.record.data['started']:.0f}.{attempts}"
        # Noted before the start: an update that nobody remembers would be started a second time. It counts only after
        # it, or a control machine that was killed here would have used it up.
        self.record.note(token=token)
        self.record.enter("starting")
        started = self.link.run(
            "start",
            URL=self.url,
            TOKEN=token,
            BEFORE=look.get("run_token", ""),
            PROGRAM=self.program,
            OPTIONS=self.options,
            CLEAR="yes" if look.get("work_directory") else "",
        )
        if started.get("started") == "other":
            self.record.note(token="")
            return False
        self.record.note(attempts=attempts)
        return True

    def follow(self, look):
        """Follows the update to its end. Returns if it is to be started again: after a restart in its middle, or a
        download that was cut.
        """
        while True:
            state = self.last_state()
            limit = self.limits.restart if state in SWITCHING else self.limits.link
            now = self.link.run("follow", limit=limit)
            if now.get("run_token") != self.record.data["token"]:
                return self.back(look)
            if now.get("state"):
                self.record.enter(now["state"])
            if now.get("log", []) != self.record.data.get("log", []):
                self.record.note(log=now.get("log", []))
            if has_ended(now) and self.ended(now):
                return None
            waited = time.time() - self.last_change()
            if state == "complete" and waited > self.limits.restart:
                raise Outcome("unsound", "the update is complete, and the device did not restart", now.get("log", []))
            if waited > self.limits.state:
                raise Outcome("stalled", f'in the state "{self.last_state()}" for {waited:.0f} s, and not at its end')
            time.sleep(self.limits.poll)

    def last_state(self):
        return self.record.data["states"][-1][0] if self.record.data["states"] else ""

    def last_change(self):
        return self.record.data["states"][-1][1] if self.record.data["states"] else self.record.data["started"]

    def ended(self, now):
        """Judges an update that has ended, while the device still runs. Returns whether it is to be started again."""
        log = now.get("log", [])
        status = now.get("run_status", "137")  # that of a killed process, where nothing was left to tell it
        if now.get("state") == "complete" and self.record.data.get("switches"):
            return False  # its restart is on its way, and may have killed it
        if now.get("state") == "complete" and status == "0":
            self.record.note(done=self.pack.digest())
            raise Outcome("done", "the update does not restart the device", log)
        if status == "0" or int(status or 1) > 128:
            raise Outcome("stopped", "a signal ended the update", log)
        if self.is_cut_download(log) and self.record.data["attempts"] < self.limits.attempts:
            self.record.note(token="")  # this end has been seen
            return True
        raise Outcome("failed", (log or ["the update ended with status " + status])[-1], log)

    @staticmethod
    def is_cut_download(log):
        """Whether the network ended the update, which has changed nothing then: the program tries some faults again
        by itself, but not a transfer that the server ends early.
        """
        return any("CURL download failed" in line for line in log)

    def back(self, before):
        """The device has restarted."""
        state = self.last_state()
        look = settled(self.link, before, self.limits)
        check_look(look)
        if look["active"] != before["active"]:
            self.finish(look, "updated")
        if state in SWITCHING or (self.is_recorded(look) and not self.is_recorded(before)):
            raise Outcome("fell back", "the device has the new set, and started its old one")
        self.record.enter("restarted in the middle")

    def is_recorded(self, look):
        """Whether the reference files say that the update's volumes are written."""
        volumes = self.record.data.get("expected", {"volumes": []})["volumes"]
        return all(look.get(f"reference.{volume['name']}") == volume["md5"] for volume in volumes)

    def finish(self, look, name):
        self.record.enter("verifying")
        expected = self.record.data.get("expected") or {"volumes": self.expected_of(look)}
        found = faults(look, self.link.run("digests", SET=look["active"]), expected)
        if found:
            raise Outcome("unsound", "; ".join(found))
        check_health(self.link, self.health)
        raise Outcome(name)

    def expected_of(self, look):
        """The volumes of a device that ran the target before."""
        volumes = {"kernel": f"k{look['active']}", "rootfs": f"k{look['active']}_root"}
        return [
            {"name": volumes[kind], "kind": kind, "version": image["version"], "md5": image["md5"]}
            for kind, image in self.images.items()
            if image["mandatory"]
        ]
