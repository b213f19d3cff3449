"""The size of the stripped program, with and without what hardens it."""

import os
import pathlib
import platform

from .pairs import run

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def stripped_size(program, strip, work):
    copy = work / "stripped"
    run([strip, "-o", copy, program])
    return copy.stat().st_size


def has_mips_libraries():
    cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache")
    return (cache / "rovu/mips/sysroot").is_dir()


def size_of(preset, strip, work, hardening):
    """Of the program as it is released; a second build folder is for the one without hardening."""
    build = ROOT / "build" / (preset if hardening == "ON" else f"{preset}-unhardened")
    run(["cmake", "--preset", preset, "-B", build, f"-DROVU_HARDENING={hardening}"], cwd=ROOT)
    run(["cmake", "--build", build, "--target", "rovu"], cwd=ROOT)
    return stripped_size(build / "rovu", strip, work)


def measure(_build, work, _plan):
    targets = {platform.machine(): ("release", "strip")}
    if has_mips_libraries():
        targets["mips"] = ("mips", "mips-linux-gnu-strip")
    return {
        processor: {"bytes": size_of(*tools, work, "ON"), "unhardened": size_of(*tools, work, "OFF")}
        for processor, tools in targets.items()
    }
