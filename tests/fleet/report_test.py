#!/usr/bin/python3
"""The report of a fleet: what it counts and explains, that records cannot harm the page, and that it fits its screen."""

import functools
import html.parser
import http.server
import json
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest

FLEET = pathlib.Path(__file__).resolve().parents[2] / "fleet"
sys.path.insert(0, str(FLEET))
from rovu_fleet.advice import OUTCOMES, Book  # noqa: E402
from rovu_fleet.report import render  # noqa: E402
from rovu_fleet.summary import summarize  # noqa: E402

NOW = 1795667500
URL = "http://updates.example/update.lua"
FLASH = 'UBI [common/ubi_tools:83, 03/14-09:26:53]: Failed to flash UBI volume "k{}"'


def record(host, outcome="updated", why="", **values):
    """A record of an update that took 45 seconds, of these in `starting` 5 and in `flashing images` 30."""
    start = NOW - 100
    made = {"host": host, "url": URL, "wave": "w", "started": start, "attempts": 1, "outcome": outcome, "why": why}
    made |= {"log": [why] if why else [], "kind": "model=mast-4,kernel=1.0,rootfs=2.0,tmp=1", "ended": start + 45}
    made |= {"states": [["starting", start + 5], ["flashing images", start + 10], ["verifying", start + 40]]}
    made |= values
    return {name: value for name, value in made.items() if value is not None}


class Folder(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.records = self.folder / "records"
        self.records.mkdir()

    def add(self, *records):
        for number, each in enumerate(records, len(list(self.records.iterdir()))):
            (self.records / f"{number}.json").write_text(json.dumps(each))

    def report(self, *words):
        return subprocess.run([sys.executable, "-B", FLEET / "report", *words], capture_output=True, text=True, check=False)

    def summary(self):
        return summarize(self.records, NOW)


class Summary(Folder):
    def test_what_is_urgent_and_frequent_comes_first(self):
        self.add(record("mast-10"), record("mast-9", wave="v", started=NOW - 500, states=[]))
        self.add(record("a-1", "refused", "no"), record("b", None, ended=None), record("c", "gone", "c is off"), record("r", "returned"))
        self.add(record("x", "failed", "odd"), *(record(f"f-{n}", "failed", FLASH.format(n % 2)) for n in range(3)))
        data = self.summary()
        self.assertEqual(list(data["counts"].items()), [("gone", 1), ("failed", 4), ("refused", 1), ("returned", 1), ("running", 1), ("updated", 2)])
        groups = [(each["outcome"], each["message"], each["devices"]) for each in data["failures"]]
        self.assertEqual(
            groups,
            [
                ("gone", "c is off", ["c"]),
                ("failed", 'Failed to flash UBI volume "…"', ["f-0", "f-1", "f-2"]),
                ("failed", "odd", ["x"]),
                ("refused", "no", ["a-1"]),
                ("returned", "", ["r"]),
            ],
        )
        self.assertEqual([wave["name"] for wave in data["waves"]], ["v", "w"])
        self.assertEqual([d["host"] for d in data["waves"][1]["devices"]][-2:], ["b", "mast-10"])
        self.assertIsNone(data["ended"])

    def test_messages_that_differ_in_host_and_numbers_are_one_group(self):
        self.add(*(record(f"h{n}", "gone", f"no link: h{n} at 10.0.0.{n}") for n in (1, 22)))
        self.assertEqual([each["devices"] for each in self.summary()["failures"]], [["h1", "h22"]])

    def test_message_tells_the_state_that_was_not_seen(self):
        self.add(record("a", "failed", "Failed to run fw_setenv (0, 1)"), record("b", "failed", "own words"))
        states = [[state["state"] for state in each["states"]] for each in self.summary()["failures"]]
        self.assertEqual(states, [["switching volume"], ["verifying"]])

    def test_time_line_covers_the_whole_duration(self):
        self.add(record("a"), record("b", None, ended=None))
        done, running = (device["segments"] for device in reversed(self.summary()["waves"][0]["devices"]))
        self.assertEqual([[state, seconds] for state, _, seconds in done[:2]], [["before the start", 5], ["starting", 5]])
        self.assertEqual(sum(seconds for _, _, seconds in done), 45)
        self.assertEqual(running[-1][2], 60)

    def test_devices_that_were_not_reached_are_told_with_the_reason(self):
        self.add(record("a", digest="d1"), record("b", "gone", digest="d1", url="http://other"))
        rollout = {"digest": "d1", "hosts": ["a", "b", "c", "d"], "stopped": "<b> is gone"}
        (self.records / "rollout").write_text(json.dumps(rollout))
        data = self.summary()
        self.assertEqual((data["total"], data["waiting"], data["others"]), (2, 2, {}))
        page = render(data)
        for words in ("&lt;b&gt; is gone. To go on", "1 of 4 devices needs attention", "<b>2</b> not reached yet"):
            self.assertIn(words, page)
        self.add(record("c", digest="d2", started=NOW))  # what is known is of another update
        self.assertEqual([self.summary()[name] for name in ("waiting", "stopped")], [0, ""])

    def test_bad_and_foreign_records_are_left_out_and_named(self):
        self.add(record("a"), record("old", url="http://other", started=NOW - 900), record("b", started=1e300))
        self.add([1], record("c", states=[[1, 2]]), record("d", started=float("nan")), {"host": "e"})
        (self.records / "cut.json").write_text('{"host": "x')
        data = self.summary()
        self.assertEqual([device["host"] for device in data["waves"][0]["devices"]], ["a"])
        self.assertEqual(data["others"], {"http://other": 1})
        self.assertEqual(len(data["unreadable"]), 6)
        self.assertIn("cut.json", render(data))


class AdviceOfMessages(unittest.TestCase):
    ROWS = (
        ('UBI [common/ubi_tools:9, 03/14-09:26:53]: Volume verification for "k0" failed (32, 0).', "compare the MD5s"),
        ("DOWNLD [common/fetch:7, 03/14-09:26:53]: CURL download failed after 0 bytes: (22) 404", "size limit"),
        ('ROVU [app/run:1, 03/14-09:26:53]: Failed to create directory "/tmp/rovu": 17', "clean up"),
        ("ROVU [app/run:1, 03/14-09:26:53]: Parsing of upgrade configuration file failed: 88", "(EILSEQ)"),
        ("ROVU [app/run:1, 03/14-09:26:53]: Parsing of upgrade configuration file failed: x:3: bad", "Lua's message"),
        ('ROVU [app/run:1, 03/14-09:26:53]: LUA parsing failed: Bad type for "tdep\t', "`dep` is not a table"),
        ("ROVU [app/run:1, 03/14-09:26:53]: LUA parsing failed: attempt to index nil", "as below"),
        ("UBI [common/references:2, 03/14-09:26:53]: Inconsistent file /a, checksum should be 0x00c0ffee", "one file"),
        ("Update dependencies not met.", "a version that it accepts"),
    )

    def test_is_found_by_the_message(self):
        book = Book()
        for line, words in self.ROWS:
            with self.subTest(line):
                advice = book.message(line)
                self.assertIsNotNone(advice)
                self.assertIn(words, f"{advice.meaning}; {advice.action}")

    def test_is_none_for_other_lines(self):
        for line in ("", "tar: error", 'Failed to remove UBI volume "k1" x', "Failed to read model number (a, 0, 1)"):
            with self.subTest(line):
                self.assertIsNone(Book().message(line))

    def test_tells_the_numbers(self):
        book = Book()
        for message, words in (
            ('Failed to create directory "/tmp/rovu": 17', "EEXIST, the directory exists"),
            ("Parsing of FW update spec file failed: 54", "EBADRQC"),
            ("Failed to read bootswitcher state (-12, 127).", "ENOMEM"),
            ("Failed to read bootswitcher state (-12, 127).", "no such command"),
            ("Failed to run fw_setenv (0, 137)", "signal"),
        ):
            with self.subTest(message):
                self.assertIn(words, book.numbers(message, book.message(message)))
        for message in ("Failed to run fw_setenv (0, 1)", "Failed to parse rootfs release number: 2"):
            with self.subTest(message):
                self.assertEqual(book.numbers(message, book.message(message)), "")

    def test_is_there_for_each_outcome(self):
        text = (FLEET.parent / "docs/fleet.md").read_text(encoding="utf-8")
        table = text.partition("| Outcome |")[2].partition("\n\n")[0]
        named = set(re.findall(r"^\| `([^`]+)` \|", table, re.MULTILINE))
        self.assertEqual(named | {"running"}, set(OUTCOMES))


# What the template gives its elements.
ATTRIBUTES = set(
    "aria-hidden aria-label aria-labelledby charset class colspan content href http-equiv id lang name role scope style "
    "title".split()
)


class Markup(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.tags, self.attributes, self.links = set(), set(), set()

    def handle_starttag(self, tag, attrs):
        self.tags.add(tag)
        self.attributes |= {name for name, _ in attrs}
        self.links |= {value for name, value in attrs if name in ("href", "src") and not value.startswith("#d")}


class Page(Folder):
    def test_text_of_records_never_is_markup(self):
        evil = "\"'><script>alert(1)</script><img src=x onerror=alert(1)>\x00\x1b[31m\ud800&{{1234*1001}}"
        for outcome in [*OUTCOMES, evil]:
            self.add(record(evil + outcome, outcome, evil, kind=evil, wave=evil, url=evil, log=[evil]))
            self.add(record("y" + evil, None, "", ended=None, states=[[evil, NOW - 90]], url=evil, wave=evil))
        (self.records / "<b>.json").write_text("{")
        done = self.report(self.records, self.folder / "a.html")
        self.assertEqual(done.returncode, 0, done.stderr)
        page = (self.folder / "a.html").read_text(encoding="utf-8")
        for word in ("<b>.json", "\x00", "\x1b", "1235234"):
            self.assertNotIn(word, page)
        found = Markup()
        found.feed(page)
        self.assertFalse(found.tags & {"script", "img", "b.json"})
        self.assertLessEqual(found.attributes, ATTRIBUTES)
        self.assertEqual(found.links, set())

    def test_ten_thousand_devices_are_a_page_of_few_megabytes_in_seconds(self):
        self.add(*(record(f"mast-{n}", *(("failed", FLASH.format(n % 2)) if n % 50 == 0 else ())) for n in range(2000)))
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
        done = self.report(self.records, self.folder / "a.html")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertLess(resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before, 10)
        self.assertLess((self.folder / "a.html").stat().st_size, 2000 * 350)
        self.assertEqual(len(json.loads((self.folder / "a.json").read_text())["waves"][0]["devices"]), 2000)

    def test_errors_say_what_to_do_and_leave_the_last_report(self):
        self.add(record("a"))
        for records, out, words in (
            (self.folder / "none", "a.html", "is no folder"),
            (self.records, "a.json", "does not end in .html"),
            (self.records, "records/a.html", "write it elsewhere"),
            (self.records, "none/a.html", "cannot write"),
        ):
            with self.subTest(words):
                done = self.report(records, self.folder / out)
                self.assertIn(words, done.stderr)
                self.assertNotEqual(done.returncode, 0)
        self.assertEqual([path.name for path in self.folder.iterdir()], ["records"])


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


@unittest.skipUnless(shutil.which("chromium"), "chromium is not installed")
class Browser(Folder):
    # The page in a frame of the width in question, and how wide its content is: the browser has no narrow windows.
    FRAME = """<!DOCTYPE html><iframe id=f src=a.html style="width:{}px;height:900px;border:0"></iframe><p id=p></p>
        <script>f.onload = () => {{ for (const each of f.contentDocument.querySelectorAll("details")) each.open = true;
            const page = f.contentDocument.documentElement;
            p.textContent = `content ${{page.scrollWidth}} of ${{page.clientWidth}}`; }};</script>"""

    def widths(self, width):
        """Of the page's content, and of the space for it."""
        (self.folder / "frame.html").write_text(self.FRAME.format(width))
        handler = functools.partial(Quiet, directory=self.folder)
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            words = "--headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
            words += " --disable-background-networking --disable-component-update --disable-sync"
            words += " --virtual-time-budget=10000 --dump-dom"
            dump = subprocess.run(
                ["chromium", *words.split(), f"--user-data-dir={self.folder}/profile",
                 f"http://127.0.0.1:{server.server_address[1]}/frame.html"],
                capture_output=True, text=True, check=True, timeout=120,
            ).stdout
            server.shutdown()
        return [int(each) for each in re.search(r"content (\d+) of (\d+)", dump).groups()]

    def test_page_fits_a_desktop_and_a_phone(self):
        long, made = "x" * 300, functools.partial(record, digest="d" * 64)
        self.add(made("mast-1"), made("mast-2", "failed", FLASH.format(0)), made("mast-3", "fell back", "why"))
        self.add(made(long, "failed", long, kind=f"model={long},kernel=1,rootfs=2", url=URL, attempts=2))
        for number in (0, 600):  # few in one table, and many folded away
            self.add(*(made(f"host-{long[:200]}-{n}") for n in range(number)))
            self.assertEqual(self.report(self.records, self.folder / "a.html").returncode, 0)
            for width in (390, 1280):
                with self.subTest(width=width, devices=number):
                    content, space = self.widths(width)
                    self.assertEqual(content, space)
                    self.assertGreater(space, width - 20)


if __name__ == "__main__":
    unittest.main()
