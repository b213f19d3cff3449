"""A complete update on a simulated device, against by_hand/update. Both devices are the same, and fixed waits take no
time on either."""

from .device import Device
from .pairs import compare, run
from .release import MIB, Keys, Source
from .web_server import WebServer


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
