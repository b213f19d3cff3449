"""What kind of machine this is; nothing that tells one machine from another of its kind."""

import os
import pathlib
import platform
import re


def field(text, name):
    found = re.search(rf"^{name}\s*[:=]\s*\"?([^\"\n]*)", text, re.MULTILINE)
    return found.group(1).strip() if found else "unknown"


def describe():
    memory = int(field(pathlib.Path("/proc/meminfo").read_text(), "MemTotal").split()[0])
    return {
        "processors": len(os.sched_getaffinity(0)),
        "model": field(pathlib.Path("/proc/cpuinfo").read_text(), "model name"),
        "memory": round(memory / 1024 / 1024),
        "kernel": ".".join(platform.release().split(".")[:2]),
        "system": field(pathlib.Path("/etc/os-release").read_text(), "PRETTY_NAME"),
        "load_before": os.getloadavg()[0],
    }
