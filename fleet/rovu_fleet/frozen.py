"""One update for the whole rollout: what the server has is compared with the spec of the control machine once, and a copy
of that is what every device is compared with, whatever is written in either place later.
"""

import hashlib
import os
import pathlib
import tempfile

from ansible.errors import AnsibleActionFail
from ansible.module_utils.urls import open_url

from rovu_fleet.link import without_secrets
from rovu_fleet.pack import Pack

ANSWER = 30  # seconds
LARGEST_SPEC = 16 << 20


def fetch(url, most):
    """At most `most` bytes of what the server has."""
    try:
        with open_url(url, timeout=ANSWER, http_agent="rovu") as answer:
            return answer.read(most)
    except Exception as error:  # of the many kinds of a failed transfer, none is worth another message
        if hasattr(error, "close"):  # an answer of the server, which is open
            error.close()
        raise AnsibleActionFail(f"cannot fetch {without_secrets(url)}: {without_secrets(str(error))}") from error


def is_served(settings, digest):
    """Whether the server still has the spec of this SHA-256."""
    return not settings.fetch or hashlib.sha256(fetch(settings.url, LARGEST_SPEC)).hexdigest() == digest


def check_files(settings, pack, facts):
    """Raises AnsibleActionFail if the tars are not those of the spec: in the folder rovu_files, or else on the server."""
    with tempfile.TemporaryDirectory() as folder:
        if not settings.files and settings.fetch:
            for url, most in [(each["url"], each["most_bytes"]) for each in facts["images"]] + [(facts["script_url"], 1 << 30)]:
                if url:
                    (pathlib.Path(folder) / url.split("?")[0].rsplit("/", 1)[-1]).write_bytes(fetch(url, most + 1))
        elif not settings.files:
            return
        found = pack.errors(settings.files or folder, settings.secrets)
    if found:
        raise AnsibleActionFail("rovu-pack check: " + "; ".join(found))


def freeze(settings):
    """Returns what every task of the playbook is to know of the update. Raises AnsibleActionFail."""
    spec = pathlib.Path(settings.spec).read_bytes()
    digest = hashlib.sha256(spec).hexdigest()
    if not is_served(settings, digest):
        raise AnsibleActionFail(f"the server has another spec than {settings.spec}, whose SHA-256 is {digest}")
    copy = pathlib.Path(settings.records) / f"{digest}.lua"
    try:
        copy.parent.mkdir(parents=True, exist_ok=True, mode=0o700)
        with open(os.open(copy, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "wb") as stream:
            stream.write(spec)
    except OSError as error:
        raise AnsibleActionFail(f"the control machine cannot write {copy}: {error.strerror}") from error
    pack = Pack(settings.pack, str(copy), settings.pub)
    facts = pack.facts()
    check_files(settings, pack, facts)
    images = {image["kind"]: image for image in facts["images"]}
    return {"digest": digest, "md5": hashlib.md5(spec).hexdigest(), "copy": str(copy), "images": images,
            "records": settings.records, "report": settings.report}
