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
        is_again = self._task.args.get("again")
        if self._task.args["work"] == "return":
            back = Back(link, record, settings, frozen)
            return back.run_again() if is_again else back.run()
        update = Update(link, pack, record, settings, frozen, lambda: is_served(settings, frozen["digest"]))
        return update.run_again() if is_again else update.run()
