"""docs/performance.svg: the ratios with their goals, the memory of an update, how its time grows, and which program takes
it. For light and dark pages."""

import io

from .document import GOALS, comparison_of, title

INK, PAGE = "#1f2328", "#ffffff"
BAR, GOAL, PRIVATE = "#0969da", "#bc4c00", "#1a7f37"
VIOLET, OTHER = "#8250df", "#818b98"
# On a dark page.
DARK = {INK: "#e6edf3", PAGE: "#0d1117", BAR: "#4493f8", GOAL: "#f0883e", PRIVATE: "#3fb950", VIOLET: "#ab7df8", OTHER: "#656c76"}

# What the programs of an update do there, in the order of their work.
WORK = {
    "rovu": ("transfer", BAR),
    "sha256sum": ("digest", PRIVATE),
    "tar": ("unpack", INK),
    "ubiupdatevol": ("flash", GOAL),
    "md5sum": ("read back", VIOLET),
    "": ("other", OTHER),
}


def load_matplotlib():
    import matplotlib

    matplotlib.use("svg")
    # Text stays text, and the same results give the same file.
    matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "rovu", "font.size": 10})
    for name in ("text.color", "axes.edgecolor", "axes.labelcolor", "xtick.color", "ytick.color"):
        matplotlib.rcParams[name] = INK
    from matplotlib import pyplot

    return pyplot


def draw_ratios(axes, results):
    rows = [row for row in GOALS if row[4] is not None][::-1]
    for place, (measurement, name, text, other, limit, _) in enumerate(rows):
        first, median, third = comparison_of(results, measurement, name)["wall"]
        axes.barh(place, median, height=0.5, color=BAR)
        axes.plot([first, third], [place, place], color=INK, linewidth=1.5)
        axes.plot([limit, limit], [place - 0.4, place + 0.4], color=GOAL, linewidth=2.5)
    labels = [f"{title(results, row[0], row[2])}\nagainst {row[3]}".replace("`", "") for row in rows]
    axes.set_yticks(range(len(rows)), labels)
    axes.set_xlim(0, None)
    axes.set_xlabel("time, ours / other: median with quartiles; the mark is the goal")


def scale(axes, direction, values):
    """A scale of base 2 with these marks."""
    getattr(axes, f"set_{direction}scale")("log", base=2)
    getattr(axes, f"set_{direction}ticks")(values, [str(value) for value in values])


def draw_memory(axes, results):
    memory = results["memory"]
    for name, line in (("plain", "-"), ("encrypted", "--")):
        sizes = [entry["mib"] for entry in memory[name]]
        for kind, label, color in (("total", "resident", BAR), ("private", "private", PRIVATE)):
            mebibytes = [entry[kind] / 1024 for entry in memory[name]]
            axes.plot(sizes, mebibytes, line, color=color, label=f"{label}, {name}")
    scale(axes, "x", sizes)
    scale(axes, "y", [1, 4, 16, 64, 256])
    axes.set_ylim(1, 4096)  # with room for the legend
    axes.set_xlabel("image, MiB")
    axes.set_ylabel("memory of the program, MiB")
    axes.legend(frameon=False, fontsize=9, loc="upper left")


def draw_growth(axes, entries, by, label):
    values = [entry[by] for entry in entries]
    for side, name, color in (("seconds", "rovu", BAR), ("other_seconds", "by hand", OTHER)):
        axes.plot(values, [entry["comparison"][side] for entry in entries], marker="o", color=color, label=name)
    scale(axes, "x", values)
    axes.set_ylim(0, None)
    axes.set_xlabel(label)
    axes.set_ylabel("update, seconds")
    axes.legend(frameon=False, fontsize=9, loc="upper left")


def draw_work(axes, results):
    """Shares of the time, of the smallest and the largest image."""
    rows = [(name, results["memory"][name][size]) for size in (-1, 0) for name in ("encrypted", "plain")]
    for place, (_, entry) in enumerate(rows):
        programs, left = entry["programs"], 0
        total = sum(programs.values())
        for program, (work, color) in WORK.items():
            known = programs.get(program, 0) if program else total - sum(programs.get(each, 0) for each in WORK if each)
            axes.barh(place, 100 * known / total, left=left, height=0.6, color=color, label="" if place else work)
            left += 100 * known / total
    axes.set_yticks(range(len(rows)), [f"{entry['mib']} MiB,\n{name}" for name, entry in rows])
    axes.set_xlabel("share of the time, %")
    axes.set_ylim(-0.5, 6)  # with room for the legend
    axes.legend(frameon=False, fontsize=9, ncols=2, loc="upper center")


def with_dark_page(svg):
    """Adds the colours of a dark page to the file."""
    rules = "".join(
        f'[style*="{kind}: {light}"] {{ {kind}: {dark} !important; }}\n'
        for light, dark in DARK.items()
        for kind in ("fill", "stroke")
    )
    text = f'text:not([style*="fill:"]) {{ fill: {INK}; }}\n'
    style = f"<style>\n{text}@media (prefers-color-scheme: dark) {{\n{rules}}}\n</style>\n"
    return svg.replace("<defs>", style + "<defs>", 1)


def update_plot(path, results):
    pyplot = load_matplotlib()
    figure = pyplot.figure(figsize=(11, 7.2), facecolor=PAGE, layout="constrained")
    upper, lower = figure.subfigures(2, 1, facecolor=PAGE)
    axes = [*upper.subplots(1, 2, width_ratios=[3, 2]), *lower.subplots(1, 3)]
    for each in axes:
        each.set_facecolor(PAGE)
        each.spines[["top", "right"]].set_visible(False)
    draw_ratios(axes[0], results)
    draw_memory(axes[1], results)
    draw_growth(axes[2], results["growth"]["sizes"], "mib", "image, MiB, beside a kernel of 1 MiB")
    draw_growth(axes[3], results["growth"]["parts"], "scripts", "scripts")
    draw_work(axes[4], results)
    file = io.StringIO()
    figure.savefig(file, format="svg", facecolor=PAGE, metadata={"Date": None})
    path.write_text(with_dark_page(file.getvalue()))
