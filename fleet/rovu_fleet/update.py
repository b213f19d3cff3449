"""One device's update, from the first look to the verified restart; docs/fleet.md has a picture of it.

Everything is read from the device again, so that a control machine that was killed can go on: what runs the target is
not updated again, an update that is under way is followed and not started a second time, and a device on which it
ended badly is left as it is.
"""

import itertools
import time
import uuid

from rovu_fleet.outcome import Outcome, Work, check_health, check_look, is_held, settled
from rovu_fleet.gate import NotNow, Turn, why_wait
from rovu_fleet.link import LinkLost, ScriptFailed
from rovu_fleet.pack import kind_of
from rovu_fleet.settings import HELD
from rovu_fleet.verification import faults, lost, noted, recorded, set_of, volumes_of

# States in which the boot loader's variable may have been changed.
SWITCHING = ("switching volume", "complete")
# States before the device has the whole spec.
BEFORE_SPEC = ("", "starting", "initializing", "downloading spec")
# States in which it has all that it downloads.
DOWNLOADED = ("running scripts", "flashing overlay", "flashing images", "switching volume", "complete", "error")
# Of a server or a link that makes an update fail which has changed nothing.
FETCH_FAILURES = ("CURL download failed", "Hash verification failed")


def has_ended(look):
    """Whether the last update that was started has ended, by itself or because it was killed."""
    return "run_status" in look or "run_dead" in look


class Update(Work):
    def __init__(self, link, pack, record, settings, frozen, is_served=None):
        """`settings`: those of the device; `frozen`: the update; `is_served`: whether the server still has its spec."""
        self.link, self.pack, self.record, self.settings, self.frozen = link, pack, record, settings, frozen
        self.is_served = is_served or (lambda: True)
        self.images = frozen["images"]
        self.spec_seen = False
        self.turn = Turn(settings.records, settings.downloads)

    def verify_again(self):
        name = self.record.last
        look = self.link.run("look")
        check_look(look)
        if not self.record.done and str(self.record.data.get("active_after", look["active"])) != look["active"]:
            raise Outcome("fell back", "the device ran the update, and is on its former set again")
        if self.record.done:
            check_health(self.link, self.settings)
            raise Outcome(name)
        self.finish(look, name)

    def work(self):
        """What has ended on the set that ran before must have left that as it was."""
        try:
            for number in itertools.count():
                self.attempt(is_first=number == 0)
        except Outcome as end:
            if end.name not in ("failed", "stopped", "fell back") or "before" not in self.record.data:
                raise
            try:
                found = lost(self.record.data["before"], self.link.run("digests"))
            except LinkLost as silent:
                raise Outcome("gone", f"no answer after {end.name}: {end.why}: {silent}", end.log) from end
            except ScriptFailed as unread:
                found = [f"the set that ran before was not read: {unread}"]
            if found:
                raise Outcome("unsound", "; ".join([*found, f"{end.name}: {end.why}"]), end.log) from end
            raise

    def attempt(self, is_first):
        # A device that is not known to be amid its update is waited for no longer than plan.yml does.
        has_started = self.record.data.get("token") and not self.record.held
        look = self.link.run("look", limit=self.settings.link_limit if has_started else self.settings.look_limit)
        check_look(look)
        if look.get("alive") and look.get("run_digest") != self.frozen["digest"]:
            # It may have been started amid the look, by another operator of this rollout.
            time.sleep(self.settings.poll)
            look = self.link.run("look", limit=self.settings.look_limit)
            check_look(look)
        if is_held(self.link, look, self.images, look["active"]):
            if self.record.data.get("token"):
                self.record.note(attempts=max(1, self.record.data["attempts"]))
            self.finish(look, "updated" if self.record.data["attempts"] else "current")
        if self.has_restarted(look):
            self.back()
            return
        if not self.is_under_way(look):
            if is_first:
                self.check_memory(look)
            refusal = self.plan(look)
            if refusal:
                raise Outcome("refused", refusal)
            if not self.start(look):
                return  # and looks at what the other operator has started
        self.follow()

    def note_before(self, look):
        """Notes both sets before the start: a verdict on what came of it rests on that."""
        if self.record.data.get("before", {}).get("active") != look["active"]:
            digests = self.link.run("digests")
            unread = [name for name in volumes_of(look["active"]).values() if not digests.get(name)]
            if unread:
                raise Outcome("unsound", f"not read of the set that runs: {', '.join(unread)}")
            self.record.note(before=noted(look, digests))

    def check_memory(self, look):
        """Leaves a device alone on which this update has run before, and that does not run it."""
        verdict, why = self.record.last, self.record.data.get("why", "")
        is_told = verdict in HELD and verdict != "gone"
        if not is_told and verdict not in ("failed", "stopped") and is_held(self.link, look, self.images, 1 - int(look["active"])):
            verdict, why = "fell back", "the other set holds the update, and the device runs its former one"
        if verdict in HELD and verdict not in self.settings.retry:
            raise Outcome(verdict, why)
        if self.record.done:
            self.record.note(done=True)
            check_health(self.link, self.settings)
            raise Outcome("current", "the update, which does not restart the device, has run before")

    def has_restarted(self, look):
        """Whether the update had come to its restart, which nobody saw because the control machine was killed."""
        token = self.record.data.get("token")
        is_planned = token and "before" in self.record.data and not self.record.held
        return self.last_state() in SWITCHING and is_planned and look.get("run_token") != token

    def is_under_way(self, look):
        """Whether this update is there to be followed: this operator's or another's."""
        token = self.record.data.get("token")
        is_switched = set_of(look.get("bootswitcher")) != int(look["active"])
        if look.get("run_digest") == self.frozen["digest"] and look.get("run_token"):
            if token and look["run_token"] == token:  # it may have ended while nobody looked
                self.record.note(attempts=max(1, self.record.data["attempts"]))
                return True
            if not has_ended(look) or (is_switched and look.get("run_status") == "0"):
                self.plan(look)  # who started it has seen to it that nothing is refused
                self.note_before(look)
                self.record.note(token=look["run_token"], attempts=max(1, self.record.data["attempts"]))
                return True
        if look.get("alive"):
            raise Outcome("busy", "another update runs: " + ", ".join(look["alive"]))
        if set_of(look.get("bootswitcher")) is None:
            raise Outcome("unsound", f'the boot loader\'s variable reads "{look.get("bootswitcher", "")}", which names no set')
        if is_switched:
            if settled(self.link, look, self.settings).get("active") != look["active"]:
                raise Outcome("busy", "another update has just restarted the device")
            raise Outcome("unsound", "the device was switched to its other set, and not restarted")
        return False

    def plan(self, look):
        """Notes what the update will do to this device. Returns why it is to be refused, because rovu-pack says that
        the device would refuse it, or would regret it; otherwise an empty string.
        """
        self.record.note(kind=kind_of(look))
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
        self.record.note(switches=plan["switches"], expected={"volumes": volumes})
        errors = [each["why"] for each in check["findings"] if each["severity"] == "error"]
        return "rovu-pack check: " + errors[0] if errors else ""

    def start(self, look):
        """Returns whether the update was started, and not another one since the look."""
        if self.record.data["attempts"] >= self.settings.attempts:
            raise Outcome("failed", "the device restarted in the middle of each attempt")
        attempts = self.record.data["attempts"] + 1
        self.wait_for_turn()
        self.note_before(look)
        token = uuid.uuid4().hex
        # Noted before the start: an update that nobody remembers would be started a second time. It counts only after
        # it, or a control machine that was killed here would have used it up.
        self.record.note(token=token)
        self.record.enter("starting")
        self.record.append("start", attempt=attempts, before=self.record.data["before"], retry=self.settings.retry)
        started = self.link.run(
            "start",
            URL=self.settings.url,
            DIGEST=self.frozen["digest"],
            TOKEN=token,
            BEFORE=look.get("run_token", ""),
            PROGRAM=self.settings.program,
            OPTIONS=self.settings.options,
            CLEAR="yes" if look.get("work_directory") else "",
        ).get("started")
        if started == "unsafe":
            raise Outcome("refused", "the device has no folder /run or /var/run that only root can change")
        if started == "other":
            self.record.note(token="")
            return False
        self.record.note(attempts=attempts)
        return True

    def wait_for_turn(self):
        """Raises NotNow, but not if the device is amid its update."""
        while True:
            if why_wait(self.settings) and not self.record.data["attempts"]:
                raise NotNow(why_wait(self.settings))
            if self.turn.take():
                return
            self.record.on_change("waits to download")
            time.sleep(self.settings.poll)

    def follow(self):
        """Follows the update to its end. Returns if it is to be started again: after a restart in its middle, or a
        download that failed.
        """
        while True:
            state = self.last_state()
            # A device that restarts may do so from states that nobody saw.
            limits = (self.settings.link_limit, self.settings.restart_limit)
            now = self.link.run("follow", limit=limits[1] if state in SWITCHING else max(limits))
            if now.get("run_token") != self.record.data["token"]:
                return self.back()
            if now.get("state"):
                self.record.enter(now["state"])
            if now.get("state") in DOWNLOADED or has_ended(now):
                self.turn.leave()
            if now.get("log", []) != self.record.data.get("log", []):
                self.record.note(log=now.get("log", []))
            self.check_spec(now)
            if has_ended(now) and self.ended(now):
                return None
            waited = time.time() - self.last_change()
            if state == "complete" and waited > self.settings.restart_limit:
                raise Outcome("unsound", "the update is complete, and the device did not restart", now.get("log", []))
            if waited > self.settings.state_limit:
                raise Outcome("stalled", f'in the state "{self.last_state()}" for {waited:.0f} s, and not at its end')
            is_download = "downloading" in now.get("state", "") and now.get("percent")
            self.record.on_change(f"{now['percent']} %" if is_download else "")
            time.sleep(self.settings.poll)

    def check_spec(self, now):
        """Whether what the device downloaded is the update of this rollout."""
        if now.get("state", "") in BEFORE_SPEC or not now.get("spec"):
            return
        if now["spec"] != self.frozen["md5"]:
            why = f'the device downloaded another spec, of the MD5 {now["spec"]}, which it carries out'
            raise Outcome("replaced", why, now.get("log", []))
        self.spec_seen = True

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
            if not self.spec_seen and not self.is_served():
                raise Outcome("replaced", "the server has another spec by now, and it is not known which one ran", log)
            self.record.note(done=True)
            check_health(self.link, self.settings)
            raise Outcome("done", "the update does not restart the device", log)
        if status == "0" or not status.isdecimal() or int(status) > 128:
            raise Outcome("stopped", "a signal ended the update", log)
        if self.is_failed_download(log) and self.record.data["attempts"] < self.settings.attempts:
            self.record.note(token="")  # this end has been seen
            return True
        raise Outcome("failed", (log or ["the update ended with status " + status])[-1], log)

    def is_failed_download(self, log):
        """Whether server or link ended the update, which has changed nothing then: the program tries some faults again by
        itself, but not a transfer that ends early, an error of the server, or a page of another one. The last state that
        was seen may be an earlier one, and what a portal answers to the spec leaves no other trace than the state.
        """
        failures = [line for line in log if any(failure in line for failure in FETCH_FAILURES)]
        states = [state for state, _ in self.record.data["states"] if state != "error"]
        return bool(failures) or (states[-1:] == ["downloading spec"])

    def back(self):
        """The device has restarted."""
        state, before = self.last_state(), self.record.data["before"]
        look = settled(self.link, before, self.settings)
        check_look(look)
        if look["active"] != before["active"]:
            self.finish(look, "updated")
        if state in SWITCHING or (self.is_recorded(recorded(look)) and not self.is_recorded(before["recorded"])):
            raise Outcome("fell back", "the device has the new set, and started its old one")
        self.record.enter("restarted in the middle")

    def is_recorded(self, values):
        """Whether the reference files say that the update's volumes are written."""
        volumes = self.record.data.get("expected", {"volumes": []})["volumes"]
        return all(values.get(volume["name"]) == volume["md5"] for volume in volumes)

    def finish(self, look, name):
        if look.get("alive"):  # which writes the other set, and has files of its own
            raise Outcome("busy", "another update runs: " + ", ".join(look["alive"]))
        self.record.enter("verifying")
        self.record.note(active_after=look["active"])
        expected = self.record.data.get("expected")
        if name == "current" or not expected or any(each["name"] not in volumes_of(look["active"]).values()
                                                    for each in expected["volumes"]):
            expected = {"volumes": self.expected_of(look)}
        digests = self.link.run("digests")
        found = faults(look, digests, expected)
        if "before" in self.record.data:
            found += lost(self.record.data["before"], digests)
        if found:
            raise Outcome("unsound", "; ".join(found))
        check_health(self.link, self.settings)
        raise Outcome(name)

    def expected_of(self, look):
        """The volumes of a device that ran the target before."""
        names = volumes_of(look["active"])
        return [
            {"name": names[kind], "kind": kind, "version": image["version"], "md5": image["md5"]}
            for kind, image in self.images.items()
            if image["mandatory"]
        ]
