"""A complete update on a simulated device: against by_hand/update, on two equal devices on which fixed waits take no
time; and the memory of the program, as the image and the number of parts grow."""

import shutil

from .device import Device, WebServer
from .pairs import compare, run
from .release import MIB, Keys, Source

PARTS_IMAGE = 8  # MiB, while the number of parts grows


class Side:
    """One of the two ways, on a device of its own, which goes from set to set with each update."""

    def __init__(self, device, command, source):
        self.device = device
        self.command = command
        self.source = source
        self.active_set = 0

    def cost(self):
        cost = self.device.cost_of_update(self.command)
        self.active_set ^= 1
        return cost

    def check(self):
        if not self.device.holds(self.active_set, self.source):
            raise SystemExit(f"bench/run: {self.command[0]} did not install the images")


def measure(build, work, plan):
    keys = Keys(build / "rovu-pack", work / "keys")
    source = Source(work / "source", plan.images)
    room = sum(plan.images.values())
    with WebServer(work / "web", work / "www") as server:
        run(source.build_command(build / "rovu-pack", keys, work / "www", server.url))
        url = f"{server.url}/update.lua"
        ours = Side(Device(build, work / "ours", keys, room), ["/app0/rovu", url], source)
        other = Side(Device(build, work / "other", keys, room), ["/bin/sh", "/app0/update", url], source)
        result = compare(ours.cost, other.cost, plan.pairs)
        ours.check()
        other.check()
    return {"images_mib": [size // MIB for size in plan.images.values()], "comparison": result}


def sizes_of_update(build, work, keys, mebibytes, scripts, encrypted):
    """KiB: the largest resident size of the program, `total` and `private`, in an update of one image."""
    here = work / "update"
    here.mkdir()
    source = Source(here / "source", {"rootfs": mebibytes * MIB}, scripts, encrypted)
    with WebServer(here / "web", here / "www") as server:
        run(source.build_command(build / "rovu-pack", keys, here / "www", server.url))
        device = Device(build, here / "device", keys, mebibytes * MIB)
        result = device.update(["/app0/rovu", f"{server.url}/update.lua"], memory=True)
    shutil.rmtree(here)
    return {"mib": mebibytes, "scripts": scripts, "total": result["total"], "private": result["private"]}


def measure_memory(build, work, plan):
    keys = Keys(build / "rovu-pack", work / "keys")

    def by_size(encrypted):
        return [sizes_of_update(build, work, keys, mebibytes, 1, encrypted) for mebibytes in plan.growth_sizes]

    return {
        "plain": by_size(False),
        "encrypted": by_size(True),
        "parts": [sizes_of_update(build, work, keys, PARTS_IMAGE, scripts, False) for scripts in plan.growth_scripts],
    }
