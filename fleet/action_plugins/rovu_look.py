"""Looks at a device, and changes nothing. Result: `device`, what it is; `kind`, the same for rovu-pack."""

import pathlib
import sys

from ansible.plugins.action import ActionBase

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.link import Link, LinkLost, ScriptFailed  # noqa: E402
from rovu_fleet.pack import kind_of  # noqa: E402


class ActionModule(ActionBase):
    _VALID_ARGS = frozenset(("link_limit",))

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        link = Link(self, float(self._task.args.get("link_limit", 60)))
        try:
            look = link.run("look")
        except (LinkLost, ScriptFailed) as fault:
            return {**result, "answered": False, "why": str(fault), "changed": False}
        return {**result, "answered": True, "device": look, "kind": kind_of(look), "changed": False}
