"""How much a run measures, and on what kind of machine; nothing that tells one machine from another of its kind."""

import os
import pathlib
import platform
import re
from typing import NamedTuple

from .release import MIB


class Plan(NamedTuple):
    pairs: int
    download: int  # MiB
    decryption: int  # MiB
    images: dict  # bytes by kind, of the complete update and of the building
    growth_pairs: int
    growth_sizes: list  # MiB of one image
    growth_scripts: list  # parts of the spec


FULL = Plan(
    pairs=31,
    download=256,
    decryption=64,
    images={"kernel": 16 * MIB, "rootfs": 64 * MIB},
    growth_pairs=5,
    growth_sizes=[4, 8, 16, 32, 64, 128, 256],
    growth_scripts=[1, 4, 16, 64],
)
QUICK = Plan(
    pairs=3,
    download=32,
    decryption=8,
    images={"kernel": 2 * MIB, "rootfs": 8 * MIB},
    growth_pairs=1,
    growth_sizes=[4, 16],
    growth_scripts=[4],
)


def field(text, name):
    found = re.search(rf"^{name}\s*[:=]\s*\"?([^\"\n]*)", text, re.MULTILINE)
    return found.group(1).strip() if found else "unknown"


def describe_machine():
    memory = int(field(pathlib.Path("/proc/meminfo").read_text(), "MemTotal").split()[0])
    return {
        "processors": len(os.sched_getaffinity(0)),
        "model": field(pathlib.Path("/proc/cpuinfo").read_text(), "model name"),
        "memory": round(memory / 1024 / 1024),
        "kernel": ".".join(platform.release().split(".")[:2]),
        "system": field(pathlib.Path("/etc/os-release").read_text(), "PRETTY_NAME"),
        "load_before": os.getloadavg()[0],
    }
