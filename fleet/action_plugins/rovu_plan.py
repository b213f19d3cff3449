"""Says what an update will do to the devices that rovu_look looked at. Result: `table`, its lines; `silent`, the
devices that did not answer.
"""

import pathlib
import sys

from ansible.plugins.action import ActionBase

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.plan import split, table, text  # noqa: E402
from rovu_fleet.task import PACK_ARGS, pack_of  # noqa: E402


class ActionModule(ActionBase):
    _VALID_ARGS = frozenset((*PACK_ARGS, "looks"))
    _requires_connection = False

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        args = self._task.args
        answered, silent = split(args["looks"])
        return {**result, "table": text(table(answered, pack_of(args))), "silent": silent, "changed": False}
