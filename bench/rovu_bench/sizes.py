"""The size of the stripped program."""

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


def measure(build, work, _plan):
    result = {platform.machine(): stripped_size(build / "rovu", "strip", work)}
    if has_mips_libraries():
        run(["cmake", "--preset", "mips"], cwd=ROOT)
        run(["cmake", "--build", "build/mips", "--target", "rovu"], cwd=ROOT)
        result["mips"] = stripped_size(ROOT / "build/mips/rovu", "mips-linux-gnu-strip", work)
    return result
