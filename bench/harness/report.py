"""The report: the same tables for the terminal and for docs/performance.md, and its pictures."""

from collections import Counter

from harness import pictures
from harness.figures import ratios, spread
from harness.measure import judge

WIDTH = 100


def number(value):
    """Three digits that count; "-" where there is none."""
    if value is None:
        return "-"
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    if abs(value) >= 100:
        return f"{value:.0f}"
    if abs(value) >= 10:
        return f"{value:.1f}"
    return f"{value:.2f}" if abs(value) >= 0.1 else f"{value:.3f}"


def table(head, rows, texts=(0,)):
    """A Markdown table whose columns line up; `texts` are the columns that hold no figures."""
    cells = [[str(cell) for cell in row] for row in [head, *rows]]
    widths = [max(len(row[column]) for row in cells) for column in range(len(head))]

    def line(row):
        padded = [cell.ljust(width) if column in texts else cell.rjust(width)
                  for column, (cell, width) in enumerate(zip(row, widths))]
        return "| " + " | ".join(padded) + " |"

    rule = "|" + "|".join("-" * (width + 2) if column in texts else "-" * (width + 1) + ":"
                          for column, width in enumerate(widths)) + "|"
    return "\n".join([line(cells[0]), rule, *map(line, cells[1:])])


def wrap(text, width=WIDTH, indent=""):
    lines, line = [], ""
    for word in text.split():
        if line and len(line) + 1 + len(word) > width:
            lines.append(line)
            line = indent + word
        else:
            line = f"{line} {word}" if line else word
    return "\n".join([*lines, line] if line else lines)


def span(figure):
    return f"{number(figure.low)} to {number(figure.high)}"


# ---- a workload ----

def variants_table(workload, result):
    base = result["variants"].get(workload.base)
    rows = []
    for figures in result["variants"].values():
        time = spread(figures["ns"])
        row = [figures["title"], number(time.median), span(time)]
        if base:
            ratio = ratios(figures["ns"], base["ns"])
            row += [number(ratio.median), span(ratio)]
        rows.append(row)
    base_title = "floor" if workload.base == "floor" else base["title"] if base else ""
    head = ["variant", f"ns per {workload.unit}", "quartiles"]
    return table(head + ([f"ratio to {base_title}", "quartiles"] if base else []), rows)


def target_text(target, result):
    """A target in words."""
    title = result["variants"].get(target.of, {}).get("title", target.of)
    if target.to is None:
        return f"{title}: at most {number(target.at_most)} ns"
    other = result["variants"].get(target.to, {}).get("title", target.to)
    if target.at_least is not None:
        return f"{number(target.at_least)} times faster than {title}"
    return f"{title}: at most {number(target.at_most)} times {other}"


def target_rows(workload, result, flags):
    rows = []
    for target, figure, word in judge(workload, result, flags):
        rows.append([target_text(target, result), number(figure.median) if figure else "-",
                     span(figure) if figure else "-", word])
    return rows


def losses(workload, result):
    """Each peer that is faster than the module, and why. A loss without a reason is told as that."""
    module = result["variants"].get("module")
    lines = []
    for name, figures in result["variants"].items():
        if figures["kind"] not in ("peer", "naive") or module is None:
            continue
        ratio = ratios(module["ns"], figures["ns"])
        if ratio.median <= 1 or ratio.low <= 1:
            continue
        reason = workload.losses.get(name, "no reason is known, so it is work to be done")
        lines.append(wrap(f"- Slower than {figures['title']}, {number(ratio.median)} times: "
                          f"{reason}.", indent="  "))
    return lines


def why_missed(workload, target, result):
    """The reason why a target is not met; the first one where the floor does not meet it either."""
    variants = result["variants"]
    floor = variants.get("floor")
    if floor and target.at_least is not None and target.of in variants:
        best = ratios(variants[target.of]["ns"], floor["ns"]).median
        if best < target.at_least:
            return f"the floor itself is {number(best)} times as fast, and no more"
    if floor and target.to is None and spread(floor["ns"]).median > target.at_most:
        return f"the floor itself takes {number(spread(floor['ns']).median)} ns"
    known = target.of if target.at_least is not None else target.to or ""
    return workload.shortfalls.get(known, "no reason is known, so it is work to be done")


def shortfalls(workload, result, flags):
    """Each target that is missed, and why. One that is noisy is not told either way."""
    return [wrap(f"- {target_text(target, result)}: missed, {number(figure.median)}: "
                 f"{why_missed(workload, target, result)}.", indent="  ")
            for target, figure, word in judge(workload, result, flags) if word == "missed"]


def workload_section(workload, result, flags):
    parts = [f"### {workload.title}", "", wrap(workload.about), "",
             variants_table(workload, result), ""]
    rows = target_rows(workload, result, flags)
    if rows:
        parts += [table(["target", "measured", "quartiles", "verdict"], rows), ""]
    lost = [*shortfalls(workload, result, flags), *losses(workload, result)]
    if lost:
        parts += [*lost, ""]
    notes = []
    if result["checked"]:
        notes.append(f"{result['checked']} variants delivered the same items.")
    if result["skipped"]:
        notes.append("Skipped, because they are not installed: " + ", ".join(result["skipped"]) +
                     ".")
    if notes:
        parts += [wrap(" ".join(notes)), ""]
    return "\n".join(parts)


# ---- the whole ----

def overview(workloads, run, flags):
    """How many targets stand how, in words, and a table of them all."""
    rows = []
    for workload in workloads:
        if workload.name in run["results"]:
            judged = target_rows(workload, run["results"][workload.name], flags)
            rows += [[workload.name, text, measured, word] for text, measured, _, word in judged]
    for series in run["growth"]:
        rows += [["growth", text, number(ratio), word]
                 for text, ratio, word in series.get("targets", [])]
    counts = Counter(row[-1] for row in rows)
    told = ", ".join(f"{counts[word]} {word}" for word in ("met", "missed", "noisy", "skipped")
                     if word in counts)
    return told, table(["workload", "target", "measured", "verdict"], rows, texts=(0, 1))


def machine_section(run):
    calibration = run["calibration"]
    speeds = [f"{name.split('_')[1]} {number(value)}" for name, value in calibration.items()
              if name.endswith("GBs")]
    calls = [[name.replace("_", " "), number(value)] for name, value in calibration.items()
             if not name.endswith("GBs")]
    parts = [table(["", ""], run["machine"], texts=(0, 1)), "",
             table(["call", "ns"], calls), "",
             "memcpy in GB/s, by the size of the block: " + ", ".join(speeds) + ".", ""]
    return "\n".join(parts)


def shares_section(shares):
    rows = []
    for bar in shares:
        largest = sorted(bar["parts"].items(), key=lambda part: -part[1])[:5]
        rows.append([bar["label"], number(bar["ns"]), number(bar["instructions"]),
                     ", ".join(f"{name} {number(value)}" for name, value in largest)])
    method = (
        "System calls are measured by themselves (the bare variant, for opening the floor). What is "
        "left of the measured time is divided as the instructions are that callgrind counts for each "
        "part of the code outside the kernel: a share of instructions, which is not quite a share of "
        "time. Inlined code counts where its source lies.")
    head = ["workload", "ns", "instructions", "the largest parts, ns"]
    return "\n".join([wrap(method), "", table(head, rows, texts=(0, 3)), ""])


def growth_section(growth):
    parts = []
    for series in growth:
        rows = [[row[0], *map(number, row[1:])] for row in series["rows"]]
        parts += [f"### {series['title']}", "", wrap(f"In {series['unit']}."), "",
                  table(series["columns"], rows), ""]
        targets = [[text, number(ratio), word] for text, ratio, word in series.get("targets", [])]
        if targets:
            parts += [table(["target", "measured", "verdict"], targets), ""]
    return "\n".join(parts)


METHOD = """\
Every variant of a workload is a process of its own, pinned to one CPU, and in every round from a new
copy of its program (interpreters stay where they are installed): where its pages lie in memory can
make it half as slow again. Before anything is timed, all
of them deliver what they make of a small input, and must deliver the same items; timed runs only count them,
in every language, and the count is compared. The variants then run in turn, round after round. What counts is the CPU time of the
process, user and system (`getrusage`), of the work alone: programs ask for it where the work begins
and ends, and from interpreters the time of a run that ends where the work would begin is subtracted.
Ratios are taken within a round; the tables have medians and quartiles. Where the quartiles lie more
than 10 % apart, a target is called noisy, whatever the median says.

The floor of a workload is the best plain loop that makes the same system calls and copies with the
same object allocator, and nothing else, compiled without link-time optimisation. The naive twin is
the module as one would write it without thinking of speed: one file, the containers of the standard
library, a byte at a time. The module is called through pointers, as an interpreter calls it, and by
name through `kvhost::callAction`; over a costless platform its own part is left. Objects are
collected after 4096, or 512 KB, so that they stay in the second cache; freed memory stays with the
process, in all programs."""


def document(run, workloads, flags):
    """docs/performance.md."""
    results = run["results"]
    told, rows = overview(workloads, run, flags)
    kind = "A full run" if run["full"] else "A quick run: small sizes and few rounds"
    parts = [
        "# Speed", "",
        wrap(f"{kind}, made by `bench/run {'full' if run['full'] else 'quick'}` in "
             f"{run['minutes']:.0f} minutes with {run['rounds']} rounds of each workload. All figures "
             "and pictures of this page come from it; the method stands at its end."), "",
        "## Machine", "", machine_section(run),
        "## Targets", "", f"Of the targets {told}.", "", rows, "",
        "![Ratios to the floor](performance/ratios.svg)", "",
        "## Workloads", ""]
    parts += [workload_section(w, results[w.name], flags) for w in workloads if w.name in results]
    if run["shares"]:
        parts += ["## Where the nanoseconds go", "",
                  "![Where the nanoseconds go](performance/shares.svg)", "",
                  shares_section(run["shares"])]
    if run["growth"]:
        parts += ["## Growth", "", growth_section(run["growth"])]
    parts += ["## How it is measured", "", "\n\n".join(map(wrap, METHOD.split("\n\n"))), ""]
    return "\n".join(parts)


def write(run, workloads, flags, folder):
    """performance.md and its pictures; answers the path of the page."""
    images = folder / "performance"
    images.mkdir(parents=True, exist_ok=True)
    (images / "ratios.svg").write_text(pictures.dots(workloads, run["results"]))
    if run["shares"]:
        (images / "shares.svg").write_text(pictures.bars(run["shares"]))
    page = folder / "performance.md"
    page.write_text(document(run, workloads, flags))
    return page
