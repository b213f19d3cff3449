"""The example updates: the commands that stand at the head of each manifest, and what devices do with the result."""

import re

from world import World

SWITCHES = "as planned: updates and restarts"
STAYS = "as planned: runs, and stays on its set"
REFUSES = "as planned: refuses"

# By folder: what each kind of device of the manifest's rehearsal does, the warnings of `check`, and the images that each
# kind of device installs by that.
UPDATES = {
    "both-images": ([SWITCHES, REFUSES], [], ["kernel, rootfs", "kernel, rootfs"]),
    "dependency-ranges": ([SWITCHES, SWITCHES, SWITCHES, REFUSES], ["stale-volume"], ["rootfs", "kernel, rootfs"]),
    "encrypted": ([SWITCHES, REFUSES], [], ["kernel, rootfs"]),
    "scripts-only": ([STAYS, REFUSES], [], []),
}

# Devices that a preparation script refuses, and its words.
REFUSED_BY_SCRIPT = [
    ("scripts-only", "rootfs=2.3.9", "The root file system is 2.3.9, and this update is for 2.4."),
    ("scripts-only", "rootfs=2.40", "The root file system is 2.40, and this update is for 2.4."),
    ("dependency-ranges", "rootfs=2.3", "The root file system is 2.3. Install 2.4 first."),
    ("dependency-ranges", "rootfs=2.4,inactive-kernel=3.10.5", "k1 holds another kernel than 3.10.51, and would boot."),
    ("dependency-ranges", "rootfs=2.4,inactive-kernel=3.10.51-1", "k0 holds another kernel than 3.10.51, and would"),
]


class Updates(World):
    example = "updates"

    @classmethod
    def setUpClass(cls):
        """Runs the commands of each manifest."""
        super().setUpClass()
        cls.shell("./trial-files")
        cls.said = {}
        for manifest in sorted(cls.home.glob("*/manifest.lua")):
            commands = re.findall(r"^--   (.*\n)", manifest.read_text(), re.MULTILINE)
            cls.said[manifest.parent.name] = cls.shell("".join(commands))

    def test_does_what_its_manifest_says(self):
        self.assertEqual(sorted(UPDATES), sorted(self.said))
        for name, (outcomes, warnings, images) in UPDATES.items():
            with self.subTest(name):
                said = self.said[name]
                runs = re.findall(r"from set [01]: (\w+(?: planned: [^:\n]*)?)", said)
                self.assertEqual(runs, [outcome for outcome in outcomes for _ in (0, 1)], said)
                self.assertEqual(re.findall(r"^(?:warning|error) +(\S+) .*www", said, re.MULTILINE), warnings, said)
                self.assertEqual(re.findall(r"^RV.*?  ((?:kernel, )?rootfs)  +\d", said, re.MULTILINE), images, said)
                self.assertIn("\n0 errors, ", said)

    def test_scripts_refuse_devices(self):
        for name, kind, words in REFUSED_BY_SCRIPT:
            with self.subTest(kind):
                said = self.shell(f"rovu-pack rehearse {name}/www/update.lua --files {name}/www --pub "
                                  f"keys/rovu_pub.pem --device model=RV-20,kernel=3.10.51,{kind}", status=1)
                self.assertIn(words, said)
                self.assertNotIn("as planned", said)

    def test_changes_the_list_once_and_again(self):
        self.shell("rovu-sim init dev --key keys/rovu_pub.pem; mkdir -p dev/app0/etc; "
                   "echo old >dev/app0/etc/time-servers")
        for _ in (1, 2):
            self.shell("rovu-sim run dev --no-wait --serve http://updates.example/time-servers=scripts-only/www -- "
                       f"'{self.build}/rovu' http://updates.example/time-servers/update.lua")
            self.assertEqual(self.shell("cd dev/app0/etc; ls; cat time-servers"),
                             "time-servers\ntime1.example\ntime2.example\n")
        self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A00"])
