"""What the tasks of the playbooks have in common."""

from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase

from rovu_fleet import settings, terminal
from rovu_fleet.gate import NotNow, why_wait
from rovu_fleet.link import Link
from rovu_fleet.pack import Pack
from rovu_fleet.record import Record
from rovu_fleet.wave import refresh


class FleetAction(ActionBase):
    """A task that works with the settings of its host, and with the frozen update."""

    def run(self, tmp=None, task_vars=None):
        terminal.ignore_interrupts()
        result = {**super().run(tmp, task_vars), "changed": False}
        try:
            return {**result, **self.result(task_vars)}
        except AnsibleActionFail as failed:  # without the traceback that Ansible would print
            return {**result, "failed": True, "msg": str(failed), "stopped": str(failed)}

    def settings(self, task_vars):
        names = [name for name in task_vars if name.startswith("rovu_") and name not in settings.NOTED]
        return settings.read({name: self._templar.template(task_vars[name]) for name in names})


class DeviceAction(FleetAction):
    """Works on one device. It never fails: `outcome` and `why` say how it ended, `counts` whether the limits of the wave
    count that, `stops` that it is no fault of the device, and `since` from when on it is to prove itself. Without an
    outcome, nothing was started.
    """

    _VALID_ARGS = frozenset(("work", "again"))

    def result(self, task_vars):
        if self._play_context.check_mode:
            return {"skipped": True, "msg": "nothing is started in check mode"}
        again = self._task.args.get("again")  # the result of the first look
        if again and (again.get("counts", True) or again["outcome"] in ("refused", "")):
            return {name: again[name] for name in ("outcome", "why", "counts") if name in again}
        try:
            own, frozen = self.settings(task_vars), task_vars["rovu_frozen"]
            record = Record(own.records, task_vars["inventory_hostname"], frozen["digest"], own.url, own.retry,
                            keep=bool(again))
            record.on_change = lambda detail=None: self.tell(record, frozen, detail)
            if not (again or record.is_under_way()) and why_wait(own):
                raise NotNow(why_wait(own))
            if not record.held:
                record.note(wave=(task_vars.get("ansible_play_batch") or [""])[0])
            link = Link(self, own.link_limit, min(own.poll, 2), own.command_limit)
            link.on_wait = lambda: record.on_change("no answer")
            end = self.work(link, Pack(own.pack, frozen["copy"], own.pub), record, own, frozen)
        except NotNow as reason:
            record.forget()
            return {"outcome": "", "why": str(reason), "counts": False}
        except Exception as failed:  # whatever it is, the others of the wave go on, and the next wave does not start
            why = str(failed) if isinstance(failed, AnsibleActionFail) else f"{type(failed).__name__}: {failed}"
            return {"outcome": "failed", "why": why, "counts": True, "stops": True}
        said = {"outcome": end.name, "why": end.why, "counts": end.counts, "stops": end.name == "replaced"}
        said["since"] = record.data.get("since", 0)
        return {**said, "changed": record.data["attempts"] > 0 and end.name != record.held}

    @staticmethod
    def tell(record, frozen, detail):
        terminal.tell(record.data["host"], record.data["states"][-1][0] if record.data["states"] else "", detail or "")
        refresh(frozen, 0 if detail is None else 10)
