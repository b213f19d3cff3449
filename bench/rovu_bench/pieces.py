"""Pieces of the device program, by rovu-bench-pieces: pairs against curl and openssl, and the time per call."""

import json

from .pairs import run


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
