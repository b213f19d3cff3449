"""A complete update on a simulated device: against by_hand/update, on two equal devices on which fixed waits take no
time; and how its time, the memory of the program and the shares of its tools grow with the image and the number of
parts."""

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


def compare_updates(build, work, images, scripts, pairs):
    """One update, on two equal devices. `images` gives the sizes in bytes by kind."""
    work.mkdir()
    keys = Keys(build / "rovu-pack", work / "keys")
    source = Source(work / "source", images, scripts)
    room = sum(images.values())
    with WebServer(work / "web", work / "www") as server:
        run(source.build_command(build / "rovu-pack", keys, work / "www", server.url))
        url = f"{server.url}/update.lua"
        ours = Side(Device(build, work / "ours", keys, room), ["/app0/rovu", url], source)
        other = Side(Device(build, work / "other", keys, room), ["/bin/sh", "/app0/update", url], source)
        result = compare(ours.cost, other.cost, pairs)
        ours.check()
        other.check()
    shutil.rmtree(work)
    return result


def measure(build, work, plan):
    mebibytes = [size // MIB for size in plan.images.values()]
    return {"images_mib": mebibytes, "comparison": compare_updates(build, work / "update", plan.images, 1, plan.pairs)}


def measure_growth(build, work, plan):
    def of(mebibytes, scripts):
        images = {"kernel": MIB, "rootfs": mebibytes * MIB}
        comparison = compare_updates(build, work / "update", images, scripts, plan.growth_pairs)
        return {"mib": mebibytes, "scripts": scripts, "comparison": comparison}

    return {
        "sizes": [of(mebibytes, 1) for mebibytes in plan.growth_sizes],
        "parts": [of(PARTS_IMAGE, scripts) for scripts in plan.growth_scripts],
    }


def watched_update(build, work, keys, mebibytes, scripts, encrypted):
    """An update of one image: KiB, the largest resident size of the program, `total` and `private`; and `programs`, how
    often each of its programs was seen at work."""
    here = work / "update"
    here.mkdir()
    source = Source(here / "source", {"rootfs": mebibytes * MIB}, scripts, encrypted)
    with WebServer(here / "web", here / "www") as server:
        run(source.build_command(build / "rovu-pack", keys, here / "www", server.url))
        device = Device(build, here / "device", keys, mebibytes * MIB)
        result = device.update(["/app0/rovu", f"{server.url}/update.lua"], watch=True)
    shutil.rmtree(here)
    return {"mib": mebibytes, "scripts": scripts, **{name: result[name] for name in ("total", "private", "programs")}}


def measure_memory(build, work, plan):
    keys = Keys(build / "rovu-pack", work / "keys")

    def by_size(encrypted):
        return [watched_update(build, work, keys, mebibytes, 1, encrypted) for mebibytes in plan.growth_sizes]

    return {
        "plain": by_size(False),
        "encrypted": by_size(True),
        "parts": [watched_update(build, work, keys, PARTS_IMAGE, scripts, False) for scripts in plan.growth_scripts],
    }
