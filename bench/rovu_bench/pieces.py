"""Pieces of the device program, by rovu-bench-pieces: pairs against curl and openssl, and the time per call; and the size
of the stripped program, with and without what hardens it."""

import json
import os
import pathlib
import platform

from .pairs import run

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def comparison(entry):
    """A pair as pairs.compare() returns it."""
    return {
        "pairs": entry["iterations"],
        "wall": [entry["wall_q1"], entry["wall"], entry["wall_q3"]],
        "processor": [entry["cpu_q1"], entry["cpu"], entry["cpu_q3"]],
        "seconds": entry["real_time"] / 1e3,  # the mean
        "other_seconds": entry["other_ms"] / 1e3,
    }


def measure(build, work, plan):
    out = work / "pieces.json"
    sizes = [f"--pairs={plan.pairs}", f"--download={plan.download}", f"--decryption={plan.decryption}"]
    output = ["--benchmark_out_format=json", f"--benchmark_out={out}"]
    run([build / "rovu-bench-pieces", *sizes, *output])
    entries = json.loads(out.read_text())["benchmarks"]
    pairs = {entry["name"].split("/iterations")[0]: comparison(entry) for entry in entries if "other_ms" in entry}
    calls = {entry["name"]: entry["cpu_time"] for entry in entries if "other_ms" not in entry}
    return {
        "download_mib": plan.download,
        "decryption_mib": plan.decryption,
        "comparisons": pairs,
        "nanoseconds": calls,
    }


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


def measure_sizes(_build, work, _plan):
    targets = {platform.machine(): ("release", "strip")}
    if has_mips_libraries():
        targets["mips"] = ("mips", "mips-linux-gnu-strip")
    return {
        processor: {"bytes": size_of(*tools, work, "ON"), "unhardened": size_of(*tools, work, "OFF")}
        for processor, tools in targets.items()
    }
