"""The CI job: what it leaves of a good update, and that it refuses a bad one."""

import re
import shutil

import yaml

from world import EXAMPLES, World

# What makes the update, or the job, wrong; the exit status, and what is said.
BAD = [
    ("echo 'echo no room; exit 1' >update/save.sh", 1, "no room"),
    ("echo 'if true' >update/save.sh", 1, "script-syntax"),
    ("echo 'fw_setenv bootswitcher 0A0A00; ubirmvol /dev/ubi0 -N k0_data' >update/save.sh", 1, "script-danger"),
    ("echo 'takes model=RV-22,kernel=3.10.51,rootfs=2.4' >>update/devices", 1, "device-refuses"),
    ("echo 'takes model=RV-21,kernel=3.10.51,rootfs=2.4,tmp=1M' >>update/devices", 1, "room-tmp"),
    ("echo 'refuses model=RV-21,kernel=3.10.51,rootfs=2.4' >>update/devices", 1, "is named as one that refuses it"),
    ("echo 'take model=RV-21,kernel=3.10.51,rootfs=2.4' >>update/devices", 2, "devices: the lines above"),
    ("sed -i 's/^takes/refuses/' update/devices", 2, "no line"),
    ("sed -i 's/clone_overlay = 1/clone_overlay = 0/' update/manifest.lua", 1, "stale-data"),
    ("sed -i 's/3.10.50/3.10.54/' update/manifest.lua", 1, "dep-images-disagree"),
    ("sed -i \"s/'mandatory', version = vars.kernel/'optional', dep = {{'rootfs', '3', '4'}}, version = vars.kernel/\" "
     "update/manifest.lua", 1, "Update dependencies not met."),
    ("openssl genrsa 2048 2>/dev/null | openssl rsa -pubout -out keys/rovu_pub.pem", 1, "device-refuses"),
    ("mkdir 2.5.0", 2, "2.5.0 exists"),
]


class Release(World):
    example = "updates"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        shutil.copytree(EXAMPLES / "ci", cls.home / "ci")
        cls.shell("./trial-files; cp -r both-images update; mv keys good-keys")
        job = yaml.safe_load((EXAMPLES / "ci/workflow.yml").read_text())["jobs"]["release"]
        release = [step["run"] for step in job["steps"] if step.get("name") == "Release"][0]
        cls.command = f"KEYS=keys; TAG=v2.5.0\n{release}"

    def setUp(self):
        self.shell("rm -rf keys 2.5.0; cp -r good-keys keys; cp both-images/* ci/devices update")

    def test_leaves_a_good_update_with_its_digests(self):
        said = self.shell(self.command)
        self.assertEqual(len(re.findall("as planned: updates and restarts", said)), 4, said)
        self.assertEqual(len(re.findall("as planned: refuses", said)), 2, said)
        files = "SHA256SUMS check.txt kernel.tar rehearsal.txt rootfs.tar scripts.tar update.lua".split()
        self.assertEqual(self.shell("LC_ALL=C ls 2.5.0").split(), files)
        self.assertEqual(self.shell("cd 2.5.0; sha256sum -c SHA256SUMS").count(": OK"), len(files) - 1)
        self.assertEqual(self.shell("cat 2.5.0/rehearsal.txt").count("as planned"), 6)
        self.assertEqual(self.shell("grep -cE '^0 errors|^Not rehearsed' 2.5.0/check.txt").strip(), "1")

    def test_releases_an_encrypted_update(self):
        self.shell("ci/release -m encrypted/manifest.lua -d update/devices -p "
                   "keys/rovu_pub.pem -s preshared -o out/ -- --key keys/private.pem --base-url http://updates.example "
                   "--set kernel=3.10.53 --set rootfs=2.5.0 --set images=../images --set offset=0; ls out/update.lua")

    def test_leaves_nothing_of_a_bad_one(self):
        for fault, status, words in BAD:
            with self.subTest(fault):
                self.setUp()
                self.shell(fault)
                self.assertIn(words, self.shell(self.command, status))
                self.assertEqual(self.shell("ls -d 2.5.0/* 2.5.0.new || :").count("cannot access"), 2)
