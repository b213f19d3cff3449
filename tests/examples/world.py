"""What the tests of the examples share: a folder of their own, a shell with the programs in its PATH, and simulated
devices."""

import pathlib
import shutil
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
EXAMPLES = SOURCE / "examples"
BUILD = SCRATCH = None


def main():
    """Runs the tests of the calling file: usage: FILE BUILD SCRATCH [unittest options]"""
    global BUILD, SCRATCH
    BUILD, SCRATCH = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
    del sys.argv[1:3]
    unittest.main(module="__main__")


class World(unittest.TestCase):
    """A copy of an example's folder, in which shell() works. The tests of a class share it."""

    maxDiff = None
    example = None

    @classmethod
    def setUpClass(cls):
        cls.home = SCRATCH / cls.__name__
        shutil.rmtree(cls.home, ignore_errors=True)
        shutil.copytree(EXAMPLES / cls.example, cls.home)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.home)

    @classmethod
    def environment(cls):
        return {"PATH": f"{BUILD}:/usr/sbin:/usr/bin:/sbin:/bin", "TMPDIR": str(cls.home)}

    @classmethod
    def shell(cls, line, status=0):
        """Runs the line, and returns what it printed, errors included."""
        done = subprocess.run(["/bin/sh", "-euc", line], cwd=cls.home, env=cls.environment(), text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != status:
            raise AssertionError(f"status {done.returncode} instead of {status}: {line}\n{done.stdout}")
        return done.stdout

    def boot_set(self):
        """The set that the device `dev` boots next."""
        return 1 if "bootswitcher=0A0A01" in (self.home / "dev/uboot.env").read_text() else 0
