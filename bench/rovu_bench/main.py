"""The order of a run: programs, measurements, and what is written about them."""

import argparse
import json
import os
import pathlib
import subprocess
import sys

from . import document, packing, pieces, plan, plot, update
from .pairs import run

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
MEASUREMENTS = {
    "pieces": pieces.measure,
    "update": update.measure,
    "packing": packing.measure,
    "growth": update.measure_growth,
    "memory": update.measure_memory,
    "sizes": pieces.measure_sizes,
}
PROGRAMS = ["rovu", "rovu-pack", "rovu-sim", "rovu-sim-tool", "rovu-bench-pieces"]
INSIDE = "ROVU_BENCH_INSIDE"  # set once the run has a mount namespace of its own


def arguments(usage):
    parser = argparse.ArgumentParser(description=usage, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="small files and three pairs: that it works, no figures")
    parser.add_argument("--pairs", type=int, help="pairs of each comparison (default: 31)")
    parser.add_argument("--only", action="append", choices=MEASUREMENTS, help="only this measurement; repeatable")
    parser.add_argument("--build", type=pathlib.Path, help="a build folder whose programs to measure")
    parser.add_argument("--results", type=pathlib.Path, help="take the results from this file, and measure nothing")
    parser.add_argument("--document", action="store_true", help="write bench/results.json and docs/performance.md")
    options = parser.parse_args()
    if options.pairs is not None and options.pairs < 2:
        parser.error("--pairs: at least 2, for quartiles")
    if options.document and (options.quick or options.only or options.build):
        parser.error("--document: needs a full run, without --quick, --only and --build")
    return options


def build_programs():
    """Builds the preset `bench`; returns its folder."""
    subprocess.run([ROOT / "tools/install-packages", "build", "demo", "bench"], check=True)
    run(["cmake", "--preset", "bench"], cwd=ROOT)
    print("Building build/bench", flush=True)
    run(["cmake", "--build", "build/bench", "--target", *PROGRAMS], cwd=ROOT)
    return ROOT / "build/bench"


def enter_own_namespace(words):
    """Runs this program again where its file system in memory is invisible to others, and ends with it."""
    os.environ[INSIDE] = "1"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", *words])


def measure(name, build, chosen):
    print(f"Measuring: {name}", flush=True)
    work = build / "bench"
    work.mkdir(exist_ok=True)
    run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", work])
    try:
        return MEASUREMENTS[name](build, work, chosen)
    finally:
        os.chdir(ROOT)
        run(["umount", "--lazy", work])


def programs_of(folder):
    missing = [name for name in PROGRAMS if not (folder / name).exists()]
    if missing:
        raise SystemExit(f"bench/run: {folder} lacks {', '.join(missing)}; build the preset `bench` or `dev` first")
    return folder.resolve()


def read_results(path):
    try:
        return json.loads(path.read_text())
    except (OSError, ValueError) as error:
        raise SystemExit(f"bench/run: {path} holds no results of an earlier run: {error}") from None


def measure_all(options):
    build = programs_of(options.build) if options.build else build_programs()
    chosen = plan.QUICK if options.quick else plan.FULL
    if options.pairs:
        chosen = chosen._replace(pairs=options.pairs)
    results = {"machine": {**plan.describe_machine(), "pairs": chosen.pairs}}
    results.update({name: measure(name, build, chosen) for name in options.only or MEASUREMENTS})
    results["machine"]["load_after"] = os.getloadavg()[0]
    return results


def main(usage):
    options = arguments(usage)
    if options.results:
        results = read_results(options.results)
    else:
        if os.geteuid() != 0:
            raise SystemExit("bench/run: this needs root, for a file system in memory")
        if INSIDE not in os.environ:
            enter_own_namespace(sys.argv)
        results = measure_all(options)
    document.print_tables(results)
    if options.document:
        (ROOT / "bench/results.json").write_text(json.dumps(results, indent=2) + "\n")
        document.update_document(ROOT / "docs/performance.md", results)
        plot.update_plot(ROOT / "docs/performance.svg", results)
    return 0
