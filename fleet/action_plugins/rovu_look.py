"""Looks at a device, and changes nothing. Result: `device`, what it is."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet.link import Link, LinkLost, ScriptFailed  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402


class ActionModule(FleetAction):
    def result(self, task_vars):
        own = self.settings(task_vars)
        try:
            look = Link(self, own.look_limit, command_limit=own.command_limit).run("look")
        except (LinkLost, ScriptFailed) as fault:
            return {"answered": False, "why": str(fault)}
        return {"answered": True, "device": look}
