"""Where the module's nanoseconds go: system calls as measured by themselves, and the rest divided by
the instructions that callgrind counts for each part of the code."""

import os
from collections import Counter
from pathlib import Path

from harness import callgrind
from harness.figures import spread

# Parts, in the order in which the bars stack them, and the files of the tree that belong to each.
PARTS = (
    ("system calls", ()),
    ("action", ("src/openfile/", "src/framework/", "src/pathhost/", "src/bytestrings/")),
    ("finding the record", ("src/record/registry",)),
    ("record", ("src/record/",)),
    ("line scan", ("src/record/eol_scan",)),
    ("session and map", ("standalone/interface/sessions", "standalone/interface/oop_map",
                         "standalone/interface/error_state")),
    ("objects", ("standalone/memory/", "standalone/interface/")),
    ("collection", ("standalone/memory/collector", "standalone/interface/collection")),
    ("host layer", ("standalone/hostlayer/",)),
    ("C library", ()),
    ("zlib", ()),
    ("the calling loop", ("bench/",)),
)
NAMES = tuple(name for name, _ in PARTS)

# Workload, variant, items of the shorter of the two profiled runs (the longer takes thrice as many).
PROFILED = (
    ("bytes", "module", 163_840), ("lines-40", "module", 4096), ("lines-40", "reused", 4096),
    ("eol-3", "module", 4096), ("lines-1000", "module", 1024), ("bulk-read", "module", 400),
    ("small-write", "module", 2000), ("gzip-lines", "module", 4096), ("open-close", "module", 500),
    ("directory", "module", 1),
)


def part_of_file(path, root):
    """The part that a file belongs to: that of the longest prefix; None outside the tree. A compiler
    cache may name the file by a way from the folder that is built in."""
    try:
        relative = str(Path(os.path.normpath(path)).relative_to(root))
    except ValueError:
        return None
    fitting = [(len(prefix), name) for name, prefixes in PARTS for prefix in prefixes
               if relative.startswith(prefix)]
    return max(fitting)[1] if fitting else None


def part_of(place, root):
    """The part of one callgrind position. What is inlined from elsewhere counts for the function
    that it is inlined into."""
    binary, line_file, function_file, function = place
    found = part_of_file(line_file, root) or part_of_file(function_file, root)
    if found:
        return found
    if "KciOopMap" in function:
        return "session and map"
    return "zlib" if "libz" in Path(binary).name else "C library"


def instructions_by_part(command, longer, items, root):
    """Instructions an item by part, from the difference of two runs."""
    _, short = callgrind.run(command)
    _, long = callgrind.run(longer)
    counted = Counter()
    for place, count in (long - short).instructions.items():
        counted[part_of(place, root)] += count / items
    return counted


def share(workload, variant_name, size, result, tools, store, root):
    """One bar: nanoseconds an item by part."""
    variant = next(v for v in workload.variants if v.name == variant_name)
    short = workload.input_of(variant, store, size)
    long = workload.input_of(variant, store, size * 3)
    counted = instructions_by_part(variant.command(tools, short, "time"),
                                   variant.command(tools, long, "time"),
                                   long.items - short.items, root)
    total = spread(result["variants"][variant_name]["ns"]).median
    bare = result["variants"].get("bare")
    system = min(spread(bare["ns"]).median, total) if bare else 0.0
    if workload.name == "open-close":  # its floor is nothing but system calls
        system = min(spread(result["variants"]["floor"]["ns"]).median, total)
    user = sum(counted.values())
    parts = {name: (total - system) * counted[name] / user for name in NAMES if counted[name] > 0}
    if system:
        parts["system calls"] = system
    label = workload.name + (" (reused)" if variant_name == "reused" else "")
    return {"label": label, "unit": workload.unit, "ns": total, "instructions": user,
            "parts": parts}


def measure(workloads, results, tools, store, root, progress):
    """The bars of all profiled workloads that were measured."""
    bars = []
    by_name = {w.name: w for w in workloads}
    for name, variant, size in PROFILED:
        if name not in results:
            continue
        progress.step(f"{name}: counting instructions")
        bars.append(share(by_name[name], variant, size, results[name], tools, store, root))
    return bars
