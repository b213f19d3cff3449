"""The start of updates on a device, in the shells of BusyBox and of Debian."""

import world
from world import World

MANIFEST = """{ version = 1, hardware = 'RV-20', clone_overlay = 1, '_first.sh',
  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },
  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' } }
"""
URL = "http://updates.example/2.0/update.lua"

# Each starts from a new device: what is requested (None: nothing), what stands in its way, and the outcome.
ROWS = [
    ("success", URL, "", 0, "complete: " + URL),
    ("nothing requested", None, "", 0, ""),
    ("another model", URL, "sed -i s/RV-20/RV-19/ dev/device", 1, "failed: " + URL),
    ("a failed download", URL.replace("2.0", "1.0"), "", 1, "failed: " + URL.replace("2.0", "1.0")),
    ("a script that fails", URL, "echo 'echo no room; exit 1' >_first.sh", 1, "failed: " + URL),
    ("killed", URL, "echo 'kill -9 $(pidof rovu)' >_first.sh", 1,
     'killed by signal 9 in state "running preparation scripts": ' + URL),
    ("terminated", URL, "echo 'kill $(pidof rovu); sleep 1' >_first.sh", 1,
     'stopped in state "running preparation scripts": ' + URL),
    ("an update runs", URL, "mkdir dev/tmp/rovu", 1, ""),
    ("this one runs", URL, "mkdir dev/tmp/update-once", 1, ""),
    ("no program, and an old report", URL, "touch no-program; echo '\"STATE\":\"complete\",' >dev/tmp/rovu.progress", 1,
     "failed: cannot run /none: " + URL),
    ("no URL", "-h", "", 1, "failed: not a URL: -h"),
    ("an empty request", "", "", 1, "failed: not a URL: "),
    ("what a shell would run", "http://$(reboot)`reboot`;reboot", "", 1, "failed: http://$(reboot)`reboot`;reboot"),
]

# Runs on the device, given a shell and the script: an update, and another start while it runs.
TWICE = """
umask 077
"$@" & first=$!
until grep -q preparation /tmp/rovu.progress 2>/dev/null; do kill -0 $first && sleep 0.05 || exit 90; done
grep -qx 'running 0 http://updates.example/2.0/update.lua' /app0/update/outcome || exit 91
echo http://updates.example/second >/app0/update/request
if "$@"; then exit 92; fi
kill -HUP $first && kill $first && touch /tmp/go
wait $first
"""


class UpdateOnce(World):
    example = "device"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.shell("rovu-pack keygen keys; echo version=2.0 | tee k.img r.img; seq 9999 >>k.img; seq 5555 >>r.img")
        (cls.home / "m.lua").write_text(MANIFEST)

    def new_device(self, preparation="", first=":"):
        (self.home / "_first.sh").write_text(first + "\n")
        self.shell(f"rm -rf dev no-program; rovu-sim init dev --key keys/rovu_pub.pem; {preparation}")
        self.shell("rovu-pack build m.lua --out www --key keys/private.pem --base-url http://updates.example/2.0")

    def request(self, url):
        (self.home / "dev/app0/update").mkdir(exist_ok=True)
        (self.home / "dev/app0/update/request").write_text(url)

    def kept(self, name):
        path = self.home / "dev/app0/update" / name
        return path.read_text() if path.exists() else ""

    def command(self, interpreter="busybox sh"):
        program = "/none" if (self.home / "no-program").exists() else f"{world.BUILD}/rovu"
        return (f"rovu-sim run dev --no-wait --serve http://updates.example/2.0=www -- env http_proxy=http://none "
                f"ROVU_PROGRAM={program} {interpreter} {self.home}/update-once")

    def test_keeps_the_outcome(self):
        for name, url, preparation, status, outcome in ROWS:
            with self.subTest(name):
                self.new_device(preparation)
                if url is not None:
                    self.request(url)
                said = self.shell(self.command(), status)
                self.assertEqual(self.kept("outcome").rstrip("\n"), outcome.rstrip("\n"), said + self.kept("log"))
                self.assertEqual(bool(self.kept("request")), "runs" in name)
                self.assertEqual((self.home / "dev/tmp/update-once").exists(), name == "this one runs")

    def test_neither_repeats_an_update_nor_starts_a_second(self):
        for shell in ("busybox sh", "dash"):
            with self.subTest(shell):
                self.new_device(first="umask; while [ ! -e /tmp/go ]; do sleep 0.05; done")
                self.request(URL)
                (self.home / "twice").write_text(TWICE)
                self.shell(self.command(f"sh {self.home}/twice {shell}"), 0)
                self.assertEqual(self.kept("outcome"), f"complete: {URL}\n")
                self.assertIn("0022\n", self.kept("log"))
                self.assertIn("Rebooting", self.kept("log"))
                self.assertEqual(self.boot_set(), 1)
                self.shell("rovu-sim restart dev")
                self.shell(self.command(shell), 1)
                self.assertEqual(self.kept("outcome"), "failed: http://updates.example/second\n")
                self.assertIn("no update is requested", self.shell(self.command(shell)))
                self.assertEqual(self.kept("outcome"), "failed: http://updates.example/second\n")

    def test_finds_the_outcome_after_a_restart(self):
        self.new_device()
        for active, outcome in ((0, "interrupted: no end was seen of"), (1, "complete:")):
            self.request("")
            (self.home / "dev/app0/update/request").unlink()
            (self.home / "dev/app0/update/outcome").write_text(f"running {active} {URL}\n")
            self.shell(self.command())
            self.assertEqual(self.kept("outcome"), f"{outcome} {URL}\n")


if __name__ == "__main__":
    world.main()
