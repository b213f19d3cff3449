"""The start of updates on a device, in the shells of BusyBox and of Debian."""

from world import URL, World

# Each starts from a new device: what is requested, what is done to the device, the update's first script, the exit
# status and the outcome.
ROWS = [
    ("success", URL, "", "", 0, "complete: " + URL),
    ("nothing requested", None, "", "", 0, ""),
    ("another model", URL, "sed -i s/RV-20/RV-19/ dev/device", "", 1, "failed: " + URL),
    ("a failed download", "http://updates.example/2.0/no", "", "", 1, "failed: http://updates.example/2.0/no"),
    ("a script that fails", URL, "", "exit 1", 1, "failed: " + URL),
    ("killed", URL, "", "kill -9 $(pidof rovu)", 1,
     'killed by signal 9 in state "running preparation scripts": ' + URL),
    ("terminated", URL, "", "kill $(pidof rovu); sleep 1", 1,
     'stopped in state "running preparation scripts": ' + URL),
    ("told to stop", URL, "", "kill $(awk '/^PPid/ { print $2 }' /proc/$(pidof rovu)/status); sleep 2", 1,
     'stopped in state "running preparation scripts": ' + URL),
    ("an update runs", URL, "mkdir dev/tmp/rovu", "", 1, ""),
    ("this one runs", URL, "mkdir dev/tmp/update-once", "", 1, ""),
    ("no program", URL, "rm rovu", "", 1, "failed: cannot run {home}/rovu: " + URL),
    ("an old report", URL, "ln -sf /bin/true rovu; echo '\"STATE\":\"complete\",' >dev/tmp/rovu.progress", "", 1,
     "running 0 " + URL),
    ("no URL", "-h", "", "", 1, "failed: not a URL: -h"),
    ("an empty request", "", "", "", 1, "failed: not a URL: "),
    ("what a shell would run", "http://$(reboot)`reboot`;reboot", "", "", 1, "failed: http://$(reboot)`reboot`;reboot"),
]

# What the server answers, the outcome of an earlier update, the exit status, and what is requested.
ANSWERS = [
    ("the first update", URL, "", 0, URL),
    ("a completed one", URL, "complete: " + URL, 0, ""),
    ("a completed one, in other lines", f" {URL}\r\n\n", f"complete: {URL}\r", 0, ""),
    ("one from which the device fell back", URL, "interrupted: no end was seen of " + URL, 0, ""),
    ("one that runs", URL, "running 0 " + URL, 0, ""),
    ("one that failed", URL, "failed: " + URL, 0, URL),
    ("nothing", "", "", 0, ""),
    ("a page", "<html>", "complete: " + URL, 1, ""),
    ("no answer", None, "", 1, ""),
]

# Runs on the device, given a shell and the script: an update, and another start while it runs.
TWICE = """
umask 077
"$@" & first=$!
until grep -q preparation /tmp/rovu.progress 2>/dev/null; do kill -0 $first && sleep 0.05 || exit 90; done
grep -qx 'running 0 http://updates.example/2.0/update.lua' /app0/update/outcome || exit 91
echo http://updates.example/second >/app0/update/request
if "$@"; then exit 92; fi
kill -HUP $first && touch /tmp/go
wait $first
"""


class UpdateOnce(World):
    example = "device"
    root = "--host-tools"  # for dash

    def request(self, url):
        folder = self.home / "dev/app0/update"
        folder.mkdir(exist_ok=True)
        if url is not None:
            (folder / "request").write_text(url)

    def kept(self, name):
        path = self.home / "dev/app0/update" / name
        return path.read_text() if path.exists() else ""

    def command(self, shell="busybox sh"):
        return (f"rovu-sim run dev --no-wait --bind '{self.home}' --bind '{self.build}' --serve http://updates.example/2.0=www -- env http_proxy=http://none "
                f"ROVU_PROGRAM='{self.home}/rovu' {shell} '{self.home}/update-once'")

    def test_keeps_the_outcome(self):
        for name, url, fault, first, status, outcome in ROWS:
            with self.subTest(name):
                self.make_update(first or ":")
                self.request(url)
                self.shell(f"ln -sf '{self.build}/rovu' rovu; {fault}")
                said = self.shell(self.command(), status)
                self.assertEqual(self.kept("outcome").strip(), outcome.format(home=self.home).strip(), said)
                self.assertEqual(bool(self.kept("request")), "runs" in name)
                self.assertEqual((self.home / "dev/tmp/update-once").exists(), name == "this one runs")

    def test_neither_repeats_an_update_nor_starts_a_second(self):
        for shell in ("busybox sh", "dash"):
            with self.subTest(shell):
                self.make_update("umask; while [ ! -e /tmp/go ]; do sleep 0.05; done")
                self.request(URL)
                self.shell(f"ln -sf '{self.build}/rovu' rovu")
                (self.home / "twice").write_text(TWICE)
                self.shell(self.command(f"sh '{self.home}/twice' {shell}"), 0)
                self.assertEqual(self.kept("outcome"), f"complete: {URL}\n")
                self.assertIn("0022\n", self.kept("log"))
                self.assertIn("Rebooting", self.kept("log"))
                self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A01"])
                self.shell("rovu-sim restart dev")
                self.shell(self.command(shell), 1)
                self.assertEqual(self.kept("outcome"), "failed: http://updates.example/second\n")
                self.assertIn("no update is requested", self.shell(self.command(shell)))
                self.assertEqual(self.kept("outcome"), "failed: http://updates.example/second\n")

    def test_finds_the_outcome_after_a_restart(self):
        self.make_update(":")
        self.request(None)
        for active, outcome in ((0, "interrupted: no end was seen of"), (1, "complete:")):
            (self.home / "dev/app0/update/outcome").write_text(f"running {active} {URL}\n")
            self.shell(self.command())
            self.assertEqual(self.kept("outcome"), f"{outcome} {URL}\n")


class UpdateAsk(World):
    example = "device"

    def test_requests_what_is_not_complete(self):
        self.shell("rovu-sim init dev; mkdir www dev/app0/update")
        for name, answer, outcome, status, requested in ANSWERS:
            with self.subTest(name):
                self.shell("rm -f www/current dev/app0/update/*")
                if answer is not None:
                    (self.home / "www/current").write_bytes(answer.encode())
                if outcome:
                    (self.home / "dev/app0/update/outcome").write_bytes(outcome.encode() + b"\n")
                said = self.shell(f"rovu-sim run dev --no-wait --bind '{self.home}' --bind /sys "
                                  f"--serve http://updates.example=www -- sh '{self.home}/update-ask' "
                                  "http://updates.example/current 1 echo started", status)
                request = self.home / "dev/app0/update/request"
                self.assertEqual(request.read_text().strip() if request.exists() else "", requested, said)
                self.assertEqual("started" in said, bool(requested), said)
