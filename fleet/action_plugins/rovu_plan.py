"""Says what an update will do to the devices that rovu_look looked at. Result: `table`, its lines; `order`, the
devices as the waves take them; `waves`, who is in which; `silent`, the devices that did not answer.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.pack import Pack  # noqa: E402
from rovu_fleet.plan import batches, drawn, split, table, text  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402


class ActionModule(FleetAction):
    _VALID_ARGS = frozenset(("looks", "work"))
    _requires_connection = False

    def result(self, task_vars):
        own, frozen = self.settings(task_vars), task_vars["rovu_frozen"]
        looks, work = self._task.args["looks"], self._task.args["work"]
        answered, silent = split(looks)
        lines = text(table(answered, Pack(own.pack, frozen["copy"], own.pub), frozen["images"]))
        order = drawn(looks)
        waves = [
            f"wave {number}, {len(batch)} of {len(order)} devices: " + ", ".join(batch)
            for number, batch in enumerate(batches(order, own.waves), 1)
        ]
        # One that is amid its restart is waited for by the wave.
        failed = work == "plan" and not answered
        return {"table": lines, "order": order, "waves": waves, "silent": silent, "failed": failed,
                "msg": f"no device answered: {silent}" if failed else ""}
