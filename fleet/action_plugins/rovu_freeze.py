"""Checks the settings of all devices, and freezes the update, before anything is asked of a device. The result is what
frozen.py returns; `hosts`, the devices of the play.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from ansible.errors import AnsibleActionFail  # noqa: E402
from ansible.utils.vars import load_extra_vars  # noqa: E402
from rovu_fleet.frozen import freeze  # noqa: E402
from rovu_fleet.settings import OF_THE_PLAY, complaints  # noqa: E402
from rovu_fleet.task import FleetAction  # noqa: E402


class ActionModule(FleetAction):
    _VALID_ARGS = frozenset(("hosts", "work"))
    _requires_connection = False

    def result(self, task_vars):
        pattern, limited = self._task.args["hosts"], task_vars["ansible_play_hosts_all"]
        hosts = [host for host in pattern if host in limited]
        if not hosts:
            raise AnsibleActionFail("no device is of the pattern rovu_hosts, and of the limit -l")
        wrong = []
        for host in hosts:
            variables = task_vars["hostvars"].raw_get(host)
            wrong += [each for each in complaints(variables) if each not in wrong]
            if host == "localhost" or variables.get("ansible_connection") == "local":
                wrong.append(f"{host} is the control machine, and no device")
        extra = load_extra_vars(self._loader)
        wrong += [f"{name} must be given with -e: in an inventory it is not read" for name in OF_THE_PLAY
                  if name in task_vars and name not in extra]
        if wrong:
            raise AnsibleActionFail("; ".join(wrong))
        own = self.settings(task_vars["hostvars"][hosts[0]])
        if self._task.args["work"] == "return":  # the server need not have it any more
            own.fetch, own.files = False, ""
        return {**freeze(own), "hosts": hosts}
