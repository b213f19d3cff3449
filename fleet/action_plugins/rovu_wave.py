"""Writes the page of the rollout, and fails if the wave must be the last one; otherwise waits until the wave has proved
itself, which `again` says. Result: `soaked`, whether it did; `stopped`, why no wave follows, and `over`, whether there is none.
"""

import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rovu_fleet import terminal  # noqa: E402
from rovu_fleet.frozen import is_served  # noqa: E402
from rovu_fleet.gate import why_wait  # noqa: E402
from rovu_fleet.plan import batches  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402
from rovu_fleet.wave import soak_left, why_stop, write  # noqa: E402


class ActionModule(FleetAction):
    _VALID_ARGS = frozenset(("results", "work", "again"))
    _requires_connection = False

    def result(self, task_vars):
        if self._play_context.check_mode:
            return {"skipped": True}
        own, frozen, known = self.settings(task_vars), task_vars["rovu_frozen"], self._task.args["results"]
        waves = batches(task_vars["ansible_play_hosts_all"], own.waves)
        number = next(number for number, batch in enumerate(waves, 1) if set(batch) & set(known))
        # Ansible leaves out the devices whose task itself failed.
        results = {host: known.get(host, {}) for host in waves[number - 1]}
        is_last = number == len(waves)
        stopped = why_stop(results, own, number == 1, is_last)
        if not stopped and not is_last and self._task.args["work"] == "update" and not is_served(own, frozen["digest"]):
            stopped = "the server has another spec now"
        stopped = stopped and f"in wave {number}: {stopped}"
        lines = write(frozen, stopped)
        left = 0 if stopped or is_last or self._task.args.get("again") else soak_left(results, own, time.time())
        end = time.monotonic() + left
        while not stopped and time.monotonic() < end:
            terminal.tell(task_vars["inventory_hostname"], f"wave {number} proves itself", f"for {end - time.monotonic():.0f} s")
            time.sleep(min(1, max(0, end - time.monotonic())))
            if why_wait(own):
                stopped = f"in wave {number}, before the end of its soak time: {why_wait(own)}"
        said = {"soaked": left > 0, "stopped": stopped, "over": is_last and not stopped}
        return {"failed": bool(stopped), "msg": f"stopped {stopped}" if stopped else lines[0], **said, "_ansible_verbose_always": True}
