"""Pieces of the device program, by rovu-bench-pieces: transfers against curl and openssl, and the time per call; and the
size of the stripped program, with and without what hardens it."""

import json
import os
import pathlib
import platform
import shutil

from .device import WebServer
from .pairs import compare, cost_of, run
from .release import MIB

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
NO_KEY = ["-K", 64 * "0", "-iv", 32 * "0"]  # that of `rovu-bench-pieces decrypt`


def compare_downloads(program, work, plan):
    """Of a file in memory into memory, so that neither side waits for a disk."""
    (work / "www").mkdir()
    (work / "www/file").write_bytes(os.urandom(plan.download * MIB))
    with WebServer(work / "web", work / "www") as server:
        transfer = [f"{server.url}/file", work / "target"]

        def ours():
            return cost_of([program, "download", *transfer])

        def libcurl():
            return cost_of([program, "libcurl", *transfer])

        def curl():
            return cost_of(["curl", "--silent", "--fail", transfer[0], "--output", transfer[1]])

        # The last one is the control: how far from 1 the same work is on this machine, at this time.
        return {
            "download/libcurl": compare(ours, libcurl, plan.pairs),
            "download/curl": compare(ours, curl, plan.pairs),
            "control/curl": compare(curl, curl, plan.pairs),
        }


def compare_decryption(program, work, plan):
    plain, ciphertext, in_place = (work / name for name in ("plain", "ciphertext", "in-place"))
    plain.write_bytes(os.urandom(plan.decryption * MIB))
    run(["openssl", "enc", "-aes-256-cbc", *NO_KEY, "-in", plain, "-out", ciphertext])

    def ours():
        shutil.copyfile(ciphertext, in_place)
        return cost_of([program, "decrypt", in_place])

    def openssl():
        return cost_of(["openssl", "enc", "-d", "-aes-256-cbc", *NO_KEY, "-in", ciphertext, "-out", work / "decrypted"])

    return {"decryption/openssl": compare(ours, openssl, plan.pairs)}


def measure(build, work, plan):
    program = build / "rovu-bench-pieces"
    out = work / "pieces.json"
    run([program, "--benchmark_out_format=json", f"--benchmark_out={out}"])
    calls = json.loads(out.read_text())["benchmarks"]
    return {
        "download_mib": plan.download,
        "decryption_mib": plan.decryption,
        "comparisons": {**compare_downloads(program, work, plan), **compare_decryption(program, work, plan)},
        "nanoseconds": {call["name"]: call["cpu_time"] for call in calls},
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
