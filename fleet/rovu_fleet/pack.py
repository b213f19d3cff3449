"""rovu-pack, which knows what an update is and what a device will do with it."""

import json
import subprocess

from ansible.errors import AnsibleActionFail


def kind_of(look):
    """A device as an option --device of rovu-pack names it. `look`: what look.sh printed."""
    words = [f"model={look['model']}", f"kernel={look['kernel']}", f"rootfs={look['rootfs']}"]
    for word, name in (("tmp", "tmp"), ("free-lebs", "free_lebs"), ("leb-size", "leb_size")):
        if look.get(name):
            words.append(f"{word}={look[name]}")
    return ",".join(words)


class Pack:
    def __init__(self, program, spec, public_key=""):
        self._program = program
        self._spec = spec
        self._key = ["--pub", public_key] if public_key else ["--unsigned"]

    def _run(self, words):
        try:
            done = subprocess.run([self._program, *words], capture_output=True, text=True, check=False)
        except OSError as error:
            raise AnsibleActionFail(f"{self._program}: {error.strerror}") from error
        if done.returncode not in (0, 1):
            raise AnsibleActionFail(done.stderr.strip() or f"{self._program} ended with status {done.returncode}")
        return json.loads(done.stdout)

    def facts(self):
        """What `inspect` says of the spec."""
        key = self._key if self._key[0] == "--pub" else []
        facts = self._run(["inspect", self._spec, "--json", *key])
        if facts["kind"] != "spec":
            raise AnsibleActionFail(f"{self._spec} is no spec")
        return facts

    def errors(self, files, secrets):
        """What is wrong with the update, whatever the device: the spec, its signature, and its tars in the folder `files`."""
        words = ["--files", files] + (["--secrets", secrets] if secrets else [])
        found = self._run(["check", self._spec, "--json", *self._key, *words])
        return [each["why"] for each in found["findings"] if each["severity"] == "error"]

    def check(self, kinds):
        """What `check` says of the update on these kinds of devices."""
        devices = [word for kind in kinds for word in ("--device", kind)]
        return self._run(["check", self._spec, "--json", *self._key, *devices])
