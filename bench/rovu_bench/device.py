"""A simulated device, on which an update can run again and again."""

import json
import pathlib
import shutil

from .pairs import Cost, run

LEB = 126976  # bytes of an erase block in the simulator
HERE = pathlib.Path(__file__).resolve().parent


class Device:
    """A device with the programs that it runs in /app0, so that nothing of the host's /tmp must be visible.

    `room` is the bytes of one set's images.
    """

    def __init__(self, build, state, keys, room):
        self.sim = build / "rovu-sim"
        self.state = pathlib.Path(state)
        lebs = 2 * room // LEB + 256
        run([self.sim, "init", state, "--host-tools", "--lebs", str(lebs), "--key", keys.public, "--preshared", keys.secrets])
        for program in (build / "rovu", HERE / "measured.py", HERE.parent / "by_hand/update"):
            shutil.copy(program, self.state / "app0")

    def update(self, command, memory=False):
        """Runs a program of /app0 that updates the device, and boots the new set.

        Long waits take no time, whoever waits. Returns what measured.py writes.
        """
        measured = ["/usr/bin/python3", "/app0/measured.py"] + (["--memory"] if memory else []) + ["/app0/result"]
        run([self.sim, "run", self.state, "--no-wait", "--network", "--", *measured, *command])
        run([self.sim, "restart", self.state])
        return json.loads((self.state / "app0/result").read_text())

    def cost_of_update(self, command):
        result = self.update(command)
        return Cost(result["wall"], result["processor"])

    def holds(self, active_set, source):
        """Whether the volumes of a set hold the release's images."""
        for kind, suffix in (("kernel", ""), ("rootfs", "_root")):
            if kind not in source.images:
                continue
            copy = self.state / "volume"
            run([self.sim, "volume", "get", self.state, f"k{active_set}{suffix}", copy])
            same = copy.read_bytes() == (source.folder / f"{kind}.img").read_bytes()
            copy.unlink()
            if not same:
                return False
        return True
