"""Writes the report of the rollout, and fails if the wave must be the last one. Result: `soaks`, whether there is something
to wait for.
"""

import math
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.frozen import is_served  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402
from rovu_fleet.wave import soaks, why_stop, write  # noqa: E402


class ActionModule(FleetAction):
    _VALID_ARGS = frozenset(("results", "back"))
    _requires_connection = False

    def result(self, task_vars):
        if self._play_context.check_mode:
            return {"skipped": True}
        own, frozen, results = self.settings(task_vars), task_vars["rovu_frozen"], self._task.args["results"]
        stopped = why_stop(results, own, frozen["hosts"][0] in results)
        is_last = frozen["hosts"][-1] in results
        if not stopped and not is_last and not self._task.args.get("back") and not is_served(own, frozen["digest"]):
            stopped = "the server has another spec now"
        try:
            lines = write(own, frozen, stopped)
        except OSError as error:
            stopped = lines = f"the control machine cannot write {error.filename}: {error.strerror}"
        waits = {"soaks": not is_last and soaks(results, own), "soak": math.ceil(own.soak)}
        return {"failed": bool(stopped), "msg": lines, **waits, "_ansible_verbose_always": True}
