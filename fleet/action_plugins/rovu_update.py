"""Updates one device, or returns it to its former set, and waits for the outcome; with `again`, only verifies once more."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.back import Back  # noqa: E402
from rovu_fleet.frozen import is_served  # noqa: E402
from rovu_fleet.task import DeviceAction  # noqa: E402
from rovu_fleet.update import Update  # noqa: E402


class ActionModule(DeviceAction):
    def work(self, link, pack, record, settings, frozen):
        if self._task.args["work"] == "return":
            work = Back(link, record, settings, frozen)
        else:
            work = Update(link, pack, record, settings, frozen, lambda: is_served(settings, frozen["digest"]))
        return work.run(again=bool(self._task.args.get("again")))
