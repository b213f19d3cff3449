"""The memory of the device program during an update, as the image and the number of parts grow."""

import shutil

from .device import Device
from .pairs import run
from .release import MIB, Keys, Source
from .web_server import WebServer

PARTS_IMAGE = 8  # MiB, while the number of parts grows


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


def measure(build, work, plan):
    keys = Keys(build / "rovu-pack", work / "keys")

    def by_size(encrypted):
        return [sizes_of_update(build, work, keys, mebibytes, 1, encrypted) for mebibytes in plan.growth_sizes]

    return {
        "plain": by_size(False),
        "encrypted": by_size(True),
        "parts": [sizes_of_update(build, work, keys, PARTS_IMAGE, scripts, False) for scripts in plan.growth_scripts],
    }
