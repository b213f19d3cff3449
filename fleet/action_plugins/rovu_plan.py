"""Says what an update will do to the devices that rovu_look looked at. Result: `table`, its lines; `waves`, who is in
which; `silent`, the devices that did not answer.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.pack import Pack  # noqa: E402
from rovu_fleet.plan import split, table, text, waves  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402


class ActionModule(FleetAction):
    _VALID_ARGS = frozenset(("looks",))
    _requires_connection = False

    def result(self, task_vars):
        own, frozen = self.settings(task_vars), task_vars["rovu_frozen"]
        answered, silent = split(self._task.args["looks"])
        lines = text(table(answered, Pack(own.pack, frozen["copy"], own.pub), frozen["images"]))
        found = {"table": lines, "waves": waves(frozen["hosts"], own.waves), "silent": silent}
        return {**found, "failed": not answered, "msg": "" if answered else f"no device answered: {silent}"}
