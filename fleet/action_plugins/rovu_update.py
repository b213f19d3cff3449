"""Updates one device, and waits for the outcome; with `again`, only verifies once more a device that runs the update."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.frozen import is_served  # noqa: E402
from rovu_fleet.task import DeviceAction  # noqa: E402
from rovu_fleet.update import Update  # noqa: E402


class ActionModule(DeviceAction):
    def work(self, link, pack, record, settings, frozen):
        update = Update(link, pack, record, settings, frozen, lambda: is_served(settings, frozen["digest"]))
        return update.run_again() if self._task.args.get("again") else update.run()
