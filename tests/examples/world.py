"""What the tests of the examples share: a folder of their own, a shell with the programs in its PATH, an update and a
simulated device."""

import pathlib
import shutil
import subprocess
import unittest

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent.parent / "examples"

MANIFEST = """{ version = 1, hardware = 'RV-20', clone_overlay = 1, '_first.sh',
  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },
  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' } }
"""
URL = "http://updates.example/2.0/update.lua"


class World(unittest.TestCase):
    """A copy of the folder `example`, in which shell() works. The tests of a class share it."""

    maxDiff = None
    build = home = example = None  # `build` and `home` by `run`
    root = ""  # option of `rovu-sim init`

    @classmethod
    def setUpClass(cls):
        shutil.rmtree(cls.home, ignore_errors=True)
        shutil.copytree(EXAMPLES / cls.example, cls.home)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.home)

    @classmethod
    def shell(cls, line, status=0):
        """Runs the line, and returns what it printed, errors included."""
        environment = {"PATH": f"{cls.build}:/usr/sbin:/usr/bin:/sbin:/bin", "TMPDIR": str(cls.home)}
        done = subprocess.run(["/bin/sh", "-euc", line], cwd=cls.home, env=environment, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != status:
            raise AssertionError(f"status {done.returncode} instead of {status}: {line}\n{done.stdout}")
        return done.stdout

    @classmethod
    def make_update(cls, first):
        """The update at URL, with the bytes of its first script, and a new device `dev` that takes it."""
        (cls.home / "m.lua").write_text(MANIFEST)
        (cls.home / "_first.sh").write_text(first)
        cls.shell("[ -e keys ] || rovu-pack keygen keys; echo version=2.0 | tee k.img >r.img; seq 9999 >>k.img; "
                  "rovu-pack build m.lua --out www --key keys/private.pem --base-url http://updates.example/2.0; "
                  "rm -rf dev; rovu-sim init dev --key keys/rovu_pub.pem " + cls.root)

    def boot_variables(self):
        return (self.home / "dev/uboot.env").read_text().split()
