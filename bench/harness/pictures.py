"""The two pictures of the report, as SVG: no library, nothing but rectangles, dots and text."""

import math
from xml.sax.saxutils import escape

from harness.figures import ratios
from harness.shares import NAMES

KIND_COLOURS = {"bare": "#8a8a8a", "floor": "#222222", "module": "#c0392b", "naive": "#b8860b",
                "peer": "#2e6da4"}
PART_COLOURS = dict(zip(NAMES, (
    "#9e9e9e", "#c0392b", "#e67e22", "#f1c40f", "#7d3c98", "#1f618d", "#2e86c1", "#85c1e9",
    "#138d75", "#58d68d", "#a9dfbf", "#d5d8dc")))
FONT = 'font-family="sans-serif" font-size="12"'


def number(value):
    """Three digits that count, never as a power of ten."""
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def text(x, y, content, anchor="start", colour="#222222", weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}" '
            f'font-weight="{weight}">{escape(content)}</text>')


def document(width, height, title, body):
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" {FONT} role="img">',
        f"<title>{escape(title)}</title>",
        f'<rect width="{width}" height="{height}" fill="#ffffff"/>', *body, "</svg>", ""])


# ---- dots: the ratio to the floor ----

LEFT, AXIS, RIGHT, ROW = 250, 420, 80, 18


def axis_range(values):
    low = min(min(values), 0.5)
    high = max(max(values), 4.0)
    return math.floor(math.log2(low)), math.ceil(math.log2(high))


def panel(result, title, unit, base, top):
    """One workload; answers its elements and its height."""
    below = result["variants"][base]["ns"]
    rows = [(figures["title"], figures["kind"], ratios(figures["ns"], below))
            for figures in result["variants"].values()]
    low, high = axis_range([spread.median for _, _, spread in rows])

    def x(ratio):
        return LEFT + (math.log2(max(ratio, 1e-6)) - low) / (high - low) * AXIS

    bottom = top + 24 + ROW * len(rows)
    body = [text(12, top + 12, f"{title}, per {unit}", weight="bold")]
    step = max(1, (high - low) // 6)
    for power in range(low, high + 1, step):
        place = x(2.0 ** power)
        label = f"{2 ** power:g}" if power >= 0 else f"1/{2 ** -power}"
        body.append(f'<line x1="{place:.1f}" y1="{top + 20}" x2="{place:.1f}" y2="{bottom}" '
                    f'stroke="{"#555555" if power == 0 else "#e0e0e0"}"/>')
        body.append(text(place, bottom + 13, label, "middle", "#555555"))
    for row, (name, kind, figure) in enumerate(rows):
        y = top + 24 + ROW * row + ROW / 2
        body.append(text(LEFT - 12, y + 4, name, "end", KIND_COLOURS[kind]))
        body.append(f'<line x1="{x(figure.low):.1f}" y1="{y:.1f}" x2="{x(figure.high):.1f}" '
                    f'y2="{y:.1f}" stroke="{KIND_COLOURS[kind]}" stroke-width="3" opacity="0.4"/>')
        body.append(f'<circle cx="{x(figure.median):.1f}" cy="{y:.1f}" r="4.5" '
                    f'fill="{KIND_COLOURS[kind]}"/>')
        body.append(text(LEFT + AXIS + 14, y + 4, number(figure.median), colour="#555555"))
    return body, bottom + 34 - top


def dots(workloads, results):
    """All workloads; the ratio of each variant to the floor, quartiles as a bar."""
    body = [text(12, 22, "CPU time as a ratio to the floor (median, quartiles; logarithmic)",
                 weight="bold")]
    x = 12
    for kind, label in (("module", "the module"), ("floor", "floor"), ("bare", "system calls"),
                        ("naive", "naive twin"), ("peer", "peers")):
        body.append(f'<circle cx="{x + 5}" cy="40" r="4.5" fill="{KIND_COLOURS[kind]}"/>')
        body.append(text(x + 14, 44, label, colour=KIND_COLOURS[kind]))
        x += 24 + 8 * len(label)
    top = 66
    for workload in workloads:
        result = results.get(workload.name)
        if result is None or workload.base not in result["variants"]:
            continue
        base = "" if workload.base == "floor" else (
            f" (1 = {result['variants'][workload.base]['title']})")
        elements, height = panel(result, workload.title + base, workload.unit, workload.base, top)
        body += elements
        top += height
    return document(LEFT + AXIS + RIGHT, top, "Ratios to the floor", body)


# ---- bars: where the nanoseconds go ----

BAR_LEFT, BAR_WIDTH, BAR_ROW = 270, 520, 34


def bars(shares):
    """One bar a workload, all of one length; the parts are written into it where they fit."""
    used = [name for name in NAMES if any(name in bar["parts"] for bar in shares)]
    body = [text(12, 22, "Where the nanoseconds of the module go", weight="bold")]
    x, y = 12, 46
    for name in used:
        width = 26 + 7 * len(name)
        if x + width > BAR_LEFT + BAR_WIDTH + 60:
            x, y = 12, y + 20
        body.append(f'<rect x="{x}" y="{y - 10}" width="12" height="12" '
                    f'fill="{PART_COLOURS[name]}"/>')
        body.append(text(x + 17, y, name))
        x += width
    top = y + 20
    for row, bar in enumerate(shares):
        y = top + row * BAR_ROW
        body.append(text(BAR_LEFT - 12, y + 17,
                         f"{bar['label']}: {number(bar['ns'])} ns per {bar['unit']}", "end"))
        x = BAR_LEFT
        for name in used:
            value = bar["parts"].get(name, 0)
            width = value / bar["ns"] * BAR_WIDTH
            body.append(f'<rect x="{x:.1f}" y="{y}" width="{width:.1f}" height="24" '
                        f'fill="{PART_COLOURS[name]}"><title>{escape(name)}: {number(value)} ns'
                        f"</title></rect>")
            if width > 34:
                body.append(text(x + width / 2, y + 16, number(value), "middle", "#ffffff"))
            x += width
    height = top + len(shares) * BAR_ROW + 12
    return document(BAR_LEFT + BAR_WIDTH + 70, height, "Where the nanoseconds go", body)
