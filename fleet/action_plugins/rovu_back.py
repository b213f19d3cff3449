"""Returns one device to the set that it came from, and waits for the outcome."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.back import Back  # noqa: E402
from rovu_fleet.task import DeviceAction  # noqa: E402


class ActionModule(DeviceAction):
    def work(self, link, pack, record, settings, frozen):
        return Back(link, record, settings, frozen).run()
