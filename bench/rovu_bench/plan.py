"""How much a run measures."""

from typing import NamedTuple

from .release import MIB


class Plan(NamedTuple):
    pairs: int
    download: int  # MiB
    decryption: int  # MiB
    images: dict  # bytes by kind, of the complete update and of the building
    growth_sizes: list  # MiB of one image
    growth_scripts: list  # parts of the spec


FULL = Plan(
    pairs=31,
    download=256,
    decryption=64,
    images={"kernel": 16 * MIB, "rootfs": 64 * MIB},
    growth_sizes=[8, 16, 32, 64, 128, 256],
    growth_scripts=[1, 4, 16, 64],
)
QUICK = Plan(
    pairs=3,
    download=32,
    decryption=8,
    images={"kernel": 2 * MIB, "rootfs": 8 * MIB},
    growth_sizes=[8, 16],
    growth_scripts=[1, 4],
)
