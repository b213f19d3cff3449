"""Returns one device to the set that it came from, and waits for the outcome, as rovu_update does."""

import pathlib
import sys

from ansible.plugins.action import ActionBase

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.back import Back  # noqa: E402
from rovu_fleet.task import PACK_ARGS, WORK_ARGS, Limits, link_of, pack_of, record_of, result_of  # noqa: E402


class ActionModule(ActionBase):
    _VALID_ARGS = frozenset((*PACK_ARGS, *WORK_ARGS))

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        args = self._task.args
        if self._play_context.check_mode:
            return {**result, "skipped": True, "msg": "nothing is switched in check mode"}
        limits = Limits(args)
        record = record_of(args, task_vars, "back from " + args["spec"])
        back = Back(link_of(self, limits), pack_of(args), record, limits, args.get("health", ""))
        return {**result, **result_of(back.run(), record)}
