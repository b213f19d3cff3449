"""Updates one device, and waits for the outcome. It never fails: `outcome` and `why` say how it ended, `counts` whether
the threshold of the wave counts that. In check mode nothing is started.
"""

import pathlib
import sys

from ansible.plugins.action import ActionBase

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.task import PACK_ARGS, WORK_ARGS, Limits, link_of, pack_of, record_of, result_of  # noqa: E402
from rovu_fleet.update import Update  # noqa: E402


class ActionModule(ActionBase):
    _VALID_ARGS = frozenset((*PACK_ARGS, *WORK_ARGS, "url", "program", "options"))

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        args = self._task.args
        if self._play_context.check_mode:
            return {**result, "skipped": True, "msg": "nothing is started in check mode"}
        limits = Limits(args)
        record = record_of(args, task_vars, args["url"])
        update = Update(link_of(self, limits), pack_of(args), record, limits, args)
        return {**result, **result_of(update.run(), record)}
