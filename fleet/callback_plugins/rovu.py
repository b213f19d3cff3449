"""Shows how far each device is, and says at the end what has become of the rollout, however it ended."""

import atexit
import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from ansible import context  # noqa: E402
from ansible.plugins.callback import CallbackBase  # noqa: E402
from rovu_fleet import report, terminal  # noqa: E402
from rovu_fleet.wave import last_words  # noqa: E402

DOCUMENTATION = "name: rovu\ntype: notification\nshort_description: how far each device is"


class CallbackModule(CallbackBase):
    CALLBACK_VERSION, CALLBACK_TYPE, CALLBACK_NAME = 2.0, "notification", "rovu"

    def __init__(self):
        super().__init__()
        self.frozen, self.has_begun, self.judged = None, False, {}
        terminal.start()
        report.template()
        atexit.register(self.last_words, os.getpid())

    def v2_runner_on_start(self, host, task):
        if task.action in ("rovu_look", "rovu_update", "rovu_wave"):
            terminal.enter(host.get_name())
            self.has_begun = self.has_begun or task.action == "rovu_update" and not context.CLIARGS["check"]

    def v2_runner_on_ok(self, result, **_):
        terminal.leave(result._host.get_name())
        if "digest" in result._result:
            self.frozen = result._result
        if "stopped" in result._result:
            self.judged = result._result

    v2_runner_on_failed = v2_runner_on_unreachable = v2_runner_on_skipped = v2_runner_on_ok

    def last_words(self, process):
        terminal.stop()
        if os.getpid() == process and self.has_begun:
            self._display.display("\n".join(last_words(self.frozen, self.judged, sys.argv)))
            sys.stdout.flush()
