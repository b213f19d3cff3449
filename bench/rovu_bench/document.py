"""The tables of docs/performance.md, between its markers."""

import math
import re

# Path of the result, what is measured, against what, the most time that the goal allows, the goal.
GOALS = [
    ("pieces", "download/libcurl", "Download, {download_mib} MiB", "libcurl's simplest use, same options", 1.0, "1.00"),
    ("pieces", "download/curl", "Download, {download_mib} MiB", "`curl`, larger receive buffer", None, ""),
    ("pieces", "control/curl", "Control: `curl`, {download_mib} MiB", "`curl` itself", None, ""),
    (
        "pieces",
        "decryption/openssl",
        "Decryption, {decryption_mib} MiB",
        "`openssl enc -d -aes-256-cbc`",
        1.0,
        "1.00: the same rate",
    ),
    ("update", None, "Complete update, images of {images} MiB", "`bench/by_hand/update`", 1.05, "1.05"),
    ("packing", None, "`rovu-pack build`, images of {images} MiB", "`bench/by_hand/build`", 0.6, "0.60"),
]
CALLS = {
    "spec/signature": "verify the signature of a spec, with the reading of the public key",
    "spec/read": "evaluate and read a spec of two images",
    "fletcher32/4096": "Fletcher-32 of 4096 bytes",
    "version": "read a version number",
}


def comparison_of(results, measurement, name):
    result = results[measurement]
    return result["comparison"] if name is None else result["comparisons"][name]


def ratio(quartiles):
    first, median, third = quartiles
    return f"{median:.2f} ({first:.2f} to {third:.2f})"


def title(results, measurement, text):
    result = results[measurement]
    images = " and ".join(map(str, result.get("images_mib", [])))
    return text.format(images=images, **{name: value for name, value in result.items() if name.endswith("_mib")})


def verdict(found, limit):
    """Whether the goal is met, as far as the spread lets the median tell."""
    if limit is None:
        return ""
    first, median, third = found["wall"]
    # The notch of a box plot: about a 95 % confidence interval of the median (McGill, Tukey, Larsen, 1978).
    notch = 1.57 * (third - first) / math.sqrt(found["pairs"])
    if median + notch <= limit:
        return "yes"
    return "**no**" if median - notch > limit else "undecided"


def goals_table(results):
    lines = [
        "| What | Against | Goal: at most | Time, ours / other | Processor time | Met |",
        "|---|---|---|---|---|---|",
    ]
    for measurement, name, text, other, limit, goal in GOALS:
        if measurement not in results:
            continue
        found = comparison_of(results, measurement, name)
        cells = [title(results, measurement, text), other, goal, ratio(found["wall"]), ratio(found["processor"])]
        lines.append("| " + " | ".join([*cells, verdict(found, limit)]) + " |")
    return lines


def calls_table(results):
    times = results["pieces"]["nanoseconds"]
    lines = ["| Call | Nanoseconds |", "|---|---|"]
    return lines + [f"| {text} | {times[name]:,.0f} |" for name, text in CALLS.items()]


def mebibytes(entry):
    return f"{entry['total'] / 1024:.1f} | {entry['private'] / 1024:.1f}"


def memory_table(results):
    memory = results["memory"]
    lines = ["| Image | Resident, MiB | of it private | Encrypted: resident | of it private |", "|---|---|---|---|---|"]
    for plain, encrypted in zip(memory["plain"], memory["encrypted"]):
        lines.append(f"| {plain['mib']} MiB | {mebibytes(plain)} | {mebibytes(encrypted)} |")
    lines += ["", "| Scripts, and an image of 8 MiB | Resident, MiB | of it private |", "|---|---|---|"]
    return lines + [f"| {entry['scripts']} | {mebibytes(entry)} |" for entry in memory["parts"]]


def sizes_table(results):
    lines = ["| Processor | Bytes | Without hardening |", "|---|---|---|"]
    rows = results["sizes"].items()
    return lines + [f"| {processor} | {size['bytes']:,} | {size['unhardened']:,} |" for processor, size in rows]


def machine_line(results):
    line = (
        "{processors} processors of the class {model}, {memory} GiB of memory, Linux {kernel}, {system};\n"
        "load average {load_before:.1f} at the start and {load_after:.1f} at the end; {pairs} pairs."
    )
    return [line.format(**results["machine"])]


# The measurements that a section is made of, any of them, and what makes its lines.
SECTIONS = {
    "machine": ({"machine"}, machine_line),
    "goals": ({"pieces", "update", "packing"}, goals_table),
    "calls": ({"pieces"}, calls_table),
    "memory": ({"memory"}, memory_table),
    "sizes": ({"sizes"}, sizes_table),
}


def print_tables(results):
    for measurements, make in SECTIONS.values():
        if measurements & results.keys():
            print("\n" + "\n".join(make(results)))


def update_document(path, results):
    """Replaces what stands between `<!-- NAME -->` and `<!-- end -->`, for each of SECTIONS."""
    text = path.read_text()
    for name, (_, make) in SECTIONS.items():
        section = "\n".join([f"<!-- {name} -->", "", *make(results), "", "<!-- end -->"])
        pattern = re.compile(rf"<!-- {name} -->\n.*?<!-- end -->", re.DOTALL)
        text, found = pattern.subn(lambda _, section=section: section, text)
        if found != 1:
            raise SystemExit(f"bench/run: {path} must have the markers of the section `{name}` once")
    path.write_text(text)
