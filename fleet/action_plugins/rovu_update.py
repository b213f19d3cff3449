"""Updates one device, and waits for the outcome. It never fails: `outcome` and `why` say how it ended, `good` whether
that is well. In check mode nothing is started.
"""

import pathlib
import sys

from ansible.plugins.action import ActionBase

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.link import Link  # noqa: E402
from rovu_fleet.pack import Pack  # noqa: E402
from rovu_fleet.record import Record  # noqa: E402
from rovu_fleet.update import GOOD, Limits, Update  # noqa: E402


class ActionModule(ActionBase):
    _VALID_ARGS = frozenset(
        "url spec pub files secrets pack program options health records wave poll link_limit restart_limit attempts".split()
    )

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        args = self._task.args
        if self._play_context.check_mode:
            return {**result, "skipped": True, "msg": "nothing is started in check mode"}
        limits = Limits(*(float(args[name]) for name in ("poll", "link_limit", "restart_limit", "attempts")))
        pack = Pack(args["pack"], args["spec"], args.get("pub", ""), args.get("files", ""), args.get("secrets", ""))
        record = Record(args["records"], task_vars["inventory_hostname"], args["url"])
        record.note(wave=args["wave"])
        link = Link(self, limits.link, min(limits.poll, 2))
        update = Update(
            link, pack, record, limits, args["url"], args["program"], args.get("options", "-v"), args.get("health", "")
        )
        outcome = update.run()
        return {
            **result,
            "changed": record.data["attempts"] > 0,
            "outcome": outcome.name,
            "why": outcome.why,
            "good": outcome.name in GOOD,
        }
