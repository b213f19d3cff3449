"""The course of one device's update, and of its way back, with a link that plays the device.

usage: update_test.py
"""

import json
import pathlib
import sys
import tempfile
import types
import unittest
import unittest.mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "fleet"))
from rovu_fleet.back import Back  # noqa: E402
from rovu_fleet.gate import NotNow  # noqa: E402
from rovu_fleet.link import LinkLost, ScriptFailed  # noqa: E402
from rovu_fleet.plan import split  # noqa: E402
from rovu_fleet.record import Record  # noqa: E402
from rovu_fleet.update import Update  # noqa: E402

URL = "http://updates.example/update.lua"
MD5 = {"kernel": "a" * 32, "rootfs": "b" * 32}
OLD = {"model": "mast-4", "kernel": "1.0", "rootfs": "1.0", "active": "0", "bootswitcher": "0A0A00", "references": "agree"}
NEW = {**OLD, "kernel": "2.0", "rootfs": "2.0", "active": "1", "bootswitcher": "0A0A01"}
NEW.update({"reference.k1": MD5["kernel"], "reference.k1_root": MD5["rootfs"]})
OTHERS = {"run_digest": "d1", "run_token": "other"}
DIGESTS = {"k0": "c" * 32, "k0_root": "d" * 32, "k1": MD5["kernel"], "k1_root": MD5["rootfs"]}


IMAGES = {kind: {"kind": kind, "version": "2.0", "md5": MD5[kind], "mandatory": True} for kind in MD5}
FROZEN = {"digest": "d1", "md5": "5" * 32, "images": IMAGES}


SETTINGS = types.SimpleNamespace(url=URL, program="rovu", options="-v", health="", health_limit=9, retry=(), poll=5, attempts=2)
SETTINGS.records, SETTINGS.window, SETTINGS.downloads = "/none", (), 0
for each, seconds in (("link", 1), ("restart", 60), ("look", 1), ("state", 60)):
    setattr(SETTINGS, f"{each}_limit", seconds)


class Pack:
    switches = True

    def check(self, _):
        boots = [
            {"volume": volume, "kind": kind, "version": "2.0", "content": "new"}
            for kind, volume in (("kernel", "k1"), ("rootfs", "k1_root"))
        ]
        plans = [{"active_set": 0, "switches": self.switches, "boots": boots}]
        return {"devices": [{"accepts": True, "plans": plans}], "findings": []}


class Device:
    """Answers each script with what is next in the list of its answers; the last one stays."""

    def __init__(self, **answers):
        self.answers = {"digests": [DIGESTS], **answers}
        self.calls = []
        self.token = None

    def run(self, name, **variables):
        self.calls.append(name)
        if name == "start":
            self.token = variables["TOKEN"]
        answers = self.answers[name]
        answer = answers.pop(0) if len(answers) > 1 else answers[0]
        if isinstance(answer, BaseException):
            raise answer
        return {key: self.token if value == "own" else value for key, value in answer.items()}

    def left(self):
        return {name: answers for name, answers in self.answers.items() if len(answers) > 1}


OWN = {"run_digest": "d1", "run_token": "own"}
STARTED = [{"started": "now"}]


class Course(unittest.TestCase):
    def setUp(self):
        self.now = 1795667500.0
        for name, stand_in in (("sleep", self.wait), ("time", lambda: self.now), ("monotonic", lambda: self.now)):
            patch = unittest.mock.patch(f"time.{name}", stand_in)
            patch.start()
            self.addCleanup(patch.stop)

    def wait(self, seconds):
        """Lets time pass, which nothing else does."""
        self.now += seconds

    def test_the_start_before_which_a_control_machine_was_killed_does_not_count(self):
        for killed_in, look in (("start", {}), ("follow", {}), ("start", NEW)):
            with self.subTest(killed_in=killed_in, look=look):
                device = Device(look=[OLD], start=STARTED, follow=[{}])
                device.answers[killed_in] = [KeyboardInterrupt()]
                with self.assertRaises(KeyboardInterrupt):
                    self.run_on(device, attempts=1)
                self.assertEqual(self.record.data["before"], {"active": "0", "references": "agree", "recorded": {}, "digests": DIGESTS})
                there = {"run_digest": "d1", "run_token": self.record.data["token"]} if killed_in == "follow" else {}
                device.answers.update(look=[look or {**OLD, **there}, NEW], start=STARTED, follow=[there or {**OWN}, {}])
                end = self.run_again(device, attempts=1)
                self.assertEqual((end.name, self.record.data["attempts"]), ("updated", 1), end.why)
                self.assertEqual(device.calls.count("start"), 2 if killed_in == "start" and not look else 1)

    def test_a_fallback_while_the_control_machine_was_off_is_told(self):
        complete = {**OWN, "state": "complete", "log": ["Rebooting..."]}
        device = Device(look=[OLD], start=STARTED, follow=[complete, KeyboardInterrupt()])
        with self.assertRaises(KeyboardInterrupt):
            self.run_on(device)
        end = self.run_again(device)
        self.assertEqual((end.name, self.record.data["log"]), ("fell back", ["Rebooting..."]))
        self.assertEqual(device.calls.count("start"), 1)

    def test_an_update_without_a_restart_runs_once(self):
        pack = Pack()
        pack.switches = False
        device = Device(look=[OLD], start=STARTED, follow=[{**OWN, "state": "complete", "run_status": "0"}])
        ends = [self.run_on(device, pack).name] + [self.run_again(device, pack).name for _ in range(2)]
        self.assertEqual(ends, ["done", "current", "current"])
        device.answers["look"] = [{**OLD, "references": "missing"}]
        record = Record(self.folder, "mast-1", "d1", keep=True)
        self.assertEqual(Update(device, pack, record, SETTINGS, FROZEN).run(again=True).name, "current")
        device.answers["look"] = [OLD]
        ill = types.SimpleNamespace(**{**vars(SETTINGS), "health": "x"})
        rows = [(host, "1", (), "unhealthy") for host in ("mast-1", "mast-3")]
        for host, health, retry, name in [*rows, ("mast-1", "0", (), "unhealthy"), ("mast-1", "0", ["unhealthy"], "current")]:
            device.answers["health"], ill.retry = [{"health": health}], retry
            record = Record(self.folder, host, "d1", retry=retry)
            self.assertEqual(Update(device, pack, record, ill, FROZEN).run().name, name)
        first = device.token
        self.assertEqual(self.run_again(device, pack, frozen={**FROZEN, "digest": "d2"}).name, "done")
        self.assertNotEqual(device.token, first)  # at the same time
        record = Record(self.folder, "mast-2", "d1")
        self.assertEqual(Update(device, pack, record, SETTINGS, FROZEN, lambda: False).run().name, "replaced")

    def test_every_name_of_a_device_is_a_file_of_the_folder(self):
        with tempfile.TemporaryDirectory() as folder:
            for host in ("a/b", "../x", "/etc/y", "fe80::1%eth0", "mast-1.example", "mast-1"):
                Record(folder, host, "d1").note()
                Record(folder, host, "d1").note()
            self.assertEqual(len(list(pathlib.Path(folder).glob("*.json"))), 6)

    def test_bad_end_is_kept_until_the_operator_says_otherwise(self):
        """Each run is a look, an outcome, and the outcomes to try again; the first run starts the update."""
        complete, flashing = {**OWN, "state": "complete"}, {**OWN, "state": "flashing images"}
        left = {**OLD, "reference.k1": MD5["kernel"], "reference.k1_root": MD5["rootfs"]}
        other = {**OWN, "state": "parsing spec", "spec": "6" * 32}
        lost, off = LinkLost("off"), KeyboardInterrupt()
        again = ["fell back"]
        rows = {
            "fell back twice": (
                [complete, {}], [OLD, left], [(left, "fell back", ()), (left, "fell back", again), (left, "fell back", ())], 2
            ),
            "fell back while it was off": ([flashing, off], [OLD], [(left, "fell back", ()), (lost, "fell back", ())], 1),
            "gone, and late on its old set": ([flashing, lost], [OLD], [(left, "fell back", ["gone"])], 1),
            "gone, and late on its new set": ([flashing, lost], [OLD], [(NEW, "updated", ())], 1),
            "gone twice": ([flashing, lost], [OLD], [(lost, "gone", ()), (OLD, "gone", ()), (OLD, "gone", ["gone"])], 2),
            "another spec": ([other], [OLD], [(OLD, "replaced", ())], 1),
        }
        for name, (follow, looks, runs, starts) in rows.items():
            with self.subTest(name):
                device = Device(look=looks, start=STARTED, follow=[*follow])
                try:
                    self.run_on(device)
                except KeyboardInterrupt:
                    pass
                for look, outcome, retry in runs:
                    device.answers.update(look=[look], follow=[*follow])
                    end = self.run_again(device, retry=retry)
                    self.assertEqual((end.name, self.record.data["outcome"]), (outcome, outcome), end.why)
                self.assertEqual(device.calls.count("start"), starts)
                actions = [json.loads(line) for line in (pathlib.Path(self.folder) / "log.jsonl").read_text().splitlines()]
                self.assertEqual(sum(each["action"] == "start" for each in actions), starts)
                self.assertEqual((actions[-1]["outcome"], actions[-1]["digest"]), (outcome, "d1"))

    def test_nothing_is_started_any_more_once_the_operator_says_so(self):
        complete = [{**OWN, "state": "complete"}, {}]
        cut = {**OWN, "state": "error", "run_status": "1", "log": ["CURL download failed after 0 bytes: (22) 404"]}
        rows = (("before the start", [OLD], complete, NotNow), ("amid the update", [OLD, OLD, NEW], [cut, *complete], "updated"))
        for name, looks, follow, end in rows:
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                device = Device(look=looks, start=STARTED, follow=[*follow])
                record = Record(folder, "mast-1", "d1")
                with unittest.mock.patch("rovu_fleet.update.why_wait", lambda _: end is NotNow or "start" in device.calls):
                    update = Update(device, Pack(), record, SETTINGS, FROZEN)
                    if end is NotNow:
                        self.assertRaises(NotNow, update.run)
                        record.forget()
                        self.assertEqual(list(pathlib.Path(folder).glob("*.json")), [])
                    else:
                        self.assertEqual(update.run().name, end)
                self.assertEqual(device.calls.count("start"), 0 if end is NotNow else 2)

    def test_device_that_was_brought_back_stays_there(self):
        there = {**NEW, "reference.k0": "c" * 32, "reference.k0_root": "d" * 32}
        old = {**there, "active": "0", "bootswitcher": "0A0A00"}
        whole = {"k0": "c" * 32, "k0_root": "d" * 32}
        device = Device(look=[there], digests=[DIGESTS])
        self.assertEqual(self.run_on(device).name, "current")
        device.answers.update(look=[there, old], digests=[whole], back=[{"switched": "yes"}])
        for answer, counts in ((there, False), (old, False), (LinkLost("off"), True)):
            device.answers["look"] = [answer, old]
            end = Back(device, Record(self.folder, "mast-1", "d1"), SETTINGS, FROZEN).run()
            self.assertEqual((end.name, end.counts), ("returned", counts), answer)
        for answer in (old, LinkLost("off")):
            device.answers["look"] = [answer]
            end = self.run_again(device)
            self.assertEqual((end.name, end.counts), ("returned", True), answer)

    def test_canary_is_judged_by_what_it_is_after_the_soak(self):
        sick = types.SimpleNamespace(**{**vars(SETTINGS), "health": "x"})
        rows = (([NEW], SETTINGS, "updated"), ([LinkLost()], SETTINGS, "gone"), ([OLD], SETTINGS, "fell back"), ([NEW], sick, "unhealthy"))
        for looks, settings, outcome in rows:
            with self.subTest(outcome):
                device = Device(look=[OLD, NEW], start=STARTED, follow=[{**OWN, "state": "complete"}, {}], health=[{"health": "1"}])
                self.assertEqual(self.run_on(device).name, "updated")
                states = self.record.data["states"]
                device.answers["look"] = looks
                record = Record(self.folder, "mast-1", "d1", keep=True)
                self.assertEqual(Update(device, Pack(), record, settings, FROZEN).run(again=True).name, outcome)
                self.assertEqual((record.data["outcome"], record.data["states"]), (outcome, states))

    def test_each_way_back_ends_in_its_outcome(self):
        there = {**NEW, "reference.k0": "c" * 32, "reference.k0_root": "d" * 32}
        old = {**there, "active": "0", "bootswitcher": "0A0A00"}
        switched = {**there, "bootswitcher": "0A0A00"}
        whole = {"k0": "c" * 32, "k0_root": "d" * 32}
        said = [{"switched": "yes"}]
        rows = {
            "restarted": ("returned", [there, switched, {**old, "references": "missing"}, old], [whole], said),
            "not whole": ("refused", [there], [{**whole, "k0": "e" * 32}], []),
            "both sets hold it": ("refused", [{**there, "reference.k0": MD5["kernel"], "reference.k0_root": MD5["rootfs"]}],
                                  [{"k0": MD5["kernel"], "k0_root": MD5["rootfs"]}], []),
            "never ran there": ("refused", [OLD], [whole], []),
            "a boot loader that counts": ("refused", [{**there, "bootcount": "0"}], [whole], []),
            "another fell back": ("fell back", [there], [whole], said),
            "an update since the look": ("busy", [there], [whole], [{"switched": "busy"}]),
            "an update that was killed": ("returned", [{**there, **OTHERS, "run_dead": "yes"}, old], [whole], said),
            "no restart": ("unsound", [there, switched], [whole], said),
            "no return": ("gone", [there, LinkLost()], [whole], said),
            "no answer": ("unreachable", [LinkLost()], [], []),
            "fell back by itself": ("returned", [old], [whole], []),
            "fell back, and starts the update again": ("unsound", [{**old, "bootswitcher": "0A0A01"}], [whole], []),
            "ill": ("unhealthy", [there, old], [whole], said),
        }
        for name, (outcome, looks, digests, back) in rows.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                device = Device(look=looks, digests=digests, back=back, health=[{"health": "1"}])
                own = types.SimpleNamespace(**{**vars(SETTINGS), "health": "x" if name == "ill" else ""})
                end = Back(device, Record(folder, "mast-1", "d1"), own, FROZEN).run()
                self.assertEqual(end.name, outcome, end.why)
                self.assertEqual(device.left(), {}, "answers that nobody asked for")
                if outcome == "gone":  # and comes late
                    device.answers["look"] = [old]
                    end = Back(device, Record(folder, "mast-1", "d1"), own, FROZEN).run()
                    self.assertEqual((end.name, end.counts), ("returned", False))

    def test_boot_loader_that_counts_must_leave_the_former_set_alone(self):
        rows = [({}, True), ({"good": "0A0A00"}, True), ({"good": "0A0A01"}, False), ({"good": "0A0A00", "bootcount": "3"}, True)]
        rows += [({"bootlimit": "3"}, False), ({"upgrade_available": "1"}, False), ({"bootcount": "2", "upgrade_available": "0"}, True)]
        for variables, leaves in rows:
            self.assertEqual(not Back.counts(variables, 0), leaves, variables)

    def test_plan_names_the_devices_that_tell_too_little(self):
        results = {"a": {"answered": True, "device": OLD}, "b": {"answered": True, "device": {**OLD, "model": ""}}}
        results.update({"c": {"answered": False, "why": "Connection refused"}, "d": {"unreachable": True}})
        answered, silent = split(results)
        self.assertEqual(answered, [OLD])
        self.assertEqual(silent, {"b": "the device does not tell: model", "c": "Connection refused", "d": "unreachable"})

    def run_on(self, device, pack=None, **limits):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        return self.run_again(device, pack, **limits)

    def run_again(self, device, pack=None, frozen=FROZEN, **settings):
        own = types.SimpleNamespace(**{**vars(SETTINGS), **settings})
        self.record = Record(self.folder, "mast-1", frozen["digest"], own.url, own.retry)
        return Update(device, pack or Pack(), self.record, own, frozen).run()

    def test_each_course_ends_in_its_outcome(self):
        killed = {**OWN, "run_dead": "yes", "state": "flashing images"}
        running = {**OWN, "state": "flashing images"}
        complete = {**OWN, "state": "complete"}
        failed = {**OWN, "state": "error", "run_status": "1"}
        cut = {**failed, "log": ["CURL download failed after 0 bytes: (22) HTTP response code said error"]}
        portal = [{**OWN, "state": "downloading spec"}, failed]
        lost = {**NEW, "references": "missing"}
        switched = {**OLD, "bootswitcher": "0A0A01"}
        their_end = {**OTHERS, "state": "complete", "run_status": "0"}
        rows = {
            "a script that hangs": ("stalled", Device(look=[OLD], start=STARTED, follow=[{**OWN, "state": "running scripts"}])),
            "an update": ("updated", Device(look=[OLD, NEW], start=STARTED, follow=[running, complete, {}])),
            "no restart": ("unsound", Device(look=[OLD], start=STARTED, follow=[{**complete, "run_status": "0"}])),
            "shutdown without /tmp": (
                "updated",
                Device(look=[OLD, {**OLD, "bootswitcher": "0A0A01"}, NEW], start=STARTED, follow=[complete, {}]),
            ),
            "start before all is mounted": (
                "updated",
                Device(look=[OLD, {**NEW, "references": "missing", "model": ""}, NEW], start=STARTED, follow=[complete, {}]),
            ),
            "no variable": ("unsound", Device(look=[{**OLD, "bootswitcher": ""}])),
            "old set": ("fell back", Device(look=[OLD], start=STARTED, follow=[complete, {}])),
            "no answer": ("unreachable", Device(look=[LinkLost()])),
            "a restart in each attempt": ("failed", Device(look=[OLD], start=STARTED, follow=[running, {}, running, {}])),
            "switched by another, and not restarted": ("unsound", Device(look=[switched])),
            "no answer to the start": ("gone", Device(look=[OLD], start=[LinkLost()])),
            "no answer after the restart": ("gone", Device(look=[OLD, LinkLost()], start=STARTED, follow=[complete, {}])),
            "lost reference files": ("unsound", Device(look=[lost])),
            "a volume that is not read": ("unsound", Device(look=[NEW], digests=[{"k1": MD5["kernel"]}])),
            "a way back that is not read": ("unsound", Device(look=[OLD], digests=[{"k0": "c" * 32}])),
            "a model that cannot be": ("unsound", Device(look=[{**OLD, "model": "mast-4,kernel=9"}])),
            "an answer without content": ("unsound", Device(look=[{}])),
            "another's, by a cron job": ("busy", Device(look=[switched, switched, NEW])),
            "an error of the server": ("updated", Device(look=[OLD, OLD, NEW], start=STARTED, follow=[cut, complete, {}])),
            "a tar of another server": (
                "updated",
                Device(look=[OLD, OLD, NEW], start=STARTED, follow=[{**failed, "log": ["Hash verification failed"]}, complete, {}]),
            ),
            "a way back that is lost": (
                "unsound", Device(look=[OLD, NEW], start=STARTED, follow=[complete, {}], digests=[DIGESTS, {**DIGESTS, "k0": "e" * 32}]),
            ),
            "a failure that changed the running set": (
                "unsound", Device(look=[OLD], start=STARTED, follow=[failed], digests=[DIGESTS, {**DIGESTS, "k0": "e" * 32}]),
            ),
            "a failure, and then silence": ("gone", Device(look=[OLD], start=STARTED, follow=[failed], digests=[DIGESTS, LinkLost()])),
            "a failure, and then nonsense": (
                "unsound", Device(look=[OLD], start=STARTED, follow=[failed], digests=[DIGESTS, ScriptFailed("status 2")]),
            ),
            "a failure": ("failed", Device(look=[OLD], start=STARTED, follow=[failed])),
            "another's, amid the verification": ("busy", Device(look=[{**NEW, "alive": ["rovu"], "work_directory": "yes"}])),
            "a portal": ("updated", Device(look=[OLD, OLD, NEW], start=STARTED, follow=[*portal, complete, {}])),
            "no safe folder": ("refused", Device(look=[OLD], start=[{"started": "unsafe"}])),
            "killed": ("stopped", Device(look=[OLD], start=STARTED, follow=[running, killed])),
            "ended by a signal": ("stopped", Device(look=[OLD], start=STARTED, follow=[{**OWN, "run_status": "143"}])),
            "killed before": ("updated", Device(look=[{**OLD, **OTHERS, "run_dead": "yes"}, NEW], start=STARTED, follow=[complete, {}])),
            "another operator's": ("updated", Device(look=[{**OLD, **OTHERS}, NEW], follow=[OTHERS, their_end, {}])),
            "another's, amid the look": (
                "updated", Device(look=[{**OLD, "alive": ["rovu"]}, {**OLD, **OTHERS}, NEW], follow=[OTHERS, their_end, {}])
            ),
            "another update": ("busy", Device(look=[{**OLD, "alive": ["rovu"]}])),
            "another's, since the look": (
                "updated",
                Device(look=[OLD, {**OLD, **OTHERS}, NEW], start=[{"started": "other"}], follow=[OTHERS, {}]),
            ),
            "another's, which restarts now": (
                "updated",
                Device(look=[{**OLD, **their_end, "bootswitcher": "0A0A01"}, NEW], follow=[their_end, {}]),
            ),
        }
        for name, (outcome, device) in rows.items():
            with self.subTest(name):
                end = self.run_on(device)
                self.assertEqual(end.name, outcome, end.why)
                self.assertEqual(device.left(), {}, "answers that nobody asked for")


if __name__ == "__main__":
    unittest.main()
