"""docs/performance.svg: the ratios with their goals, and the memory of an update. For light and dark pages."""

import io

from .document import GOALS, comparison_of, title

INK, PAGE = "#1f2328", "#ffffff"
BAR, GOAL, PRIVATE = "#0969da", "#bc4c00", "#1a7f37"
DARK = {INK: "#e6edf3", PAGE: "#0d1117", BAR: "#4493f8", GOAL: "#f0883e", PRIVATE: "#3fb950"}  # on a dark page


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


def draw_memory(axes, results):
    memory = results["memory"]
    for name, line in (("plain", "-"), ("encrypted", "--")):
        sizes = [entry["mib"] for entry in memory[name]]
        for kind, label, color in (("total", "resident", BAR), ("private", "private", PRIVATE)):
            mebibytes = [entry[kind] / 1024 for entry in memory[name]]
            axes.plot(sizes, mebibytes, line, color=color, label=f"{label}, {name}")
    axes.set_xscale("log", base=2)
    axes.set_xticks(sizes, [str(size) for size in sizes])
    axes.set_yscale("log", base=2)
    axes.set_ylim(1, 4096)  # with room for the legend
    axes.set_yticks(ticks := [1, 4, 16, 64, 256], [str(tick) for tick in ticks])
    axes.set_xlabel("image, MiB")
    axes.set_ylabel("memory of the program, MiB")
    axes.legend(frameon=False, fontsize=9, loc="upper left")


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
    figure, (ratios, memory) = pyplot.subplots(1, 2, figsize=(11, 3.6), facecolor=PAGE, width_ratios=[3, 2])
    for axes in (ratios, memory):
        axes.set_facecolor(PAGE)
        axes.spines[["top", "right"]].set_visible(False)
    draw_ratios(ratios, results)
    draw_memory(memory, results)
    figure.tight_layout()
    file = io.StringIO()
    figure.savefig(file, format="svg", facecolor=PAGE, metadata={"Date": None})
    path.write_text(with_dark_page(file.getvalue()))
