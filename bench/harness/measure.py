"""Measuring one workload: every variant is checked against the others first, then all are timed."""

import gzip
from collections import Counter

from harness import runner
from harness.figures import ratios, spread, verdict
from harness.model import SEPARATOR, digest
from harness.runner import Failure


class Progress:
    """Tells on a terminal, or line by line, what is being done."""

    def __init__(self, stream):
        self.stream = stream
        self.live = stream.isatty()

    def step(self, text):
        if self.live:
            self.stream.write(f"\r\033[K{text}")
            self.stream.flush()

    def line(self, text):
        self.stream.write(f"\r\033[K{text}\n" if self.live else text + "\n")
        self.stream.flush()

    def done(self):
        if self.live:
            self.stream.write("\r\033[K")
            self.stream.flush()


def delivered(workload, variant, tools, given):
    """What a variant delivers: its output, or the file that it wrote."""
    output = tools.launcher.run(variant.command(tools, given, "check")).output
    if workload.delivers == "output":
        return output
    written = given.path.read_bytes()
    given.path.unlink()
    return gzip.decompress(written) if workload.delivers == "gzip-file" else written


def check(workload, variants, tools, store, progress):
    """Fails unless all variants that can be compared deliver the same items."""
    items, contents = {}, {}
    for variant in variants:
        if variant.compare == "no" or workload.delivers == "no":
            continue
        progress.step(f"{workload.name}: checking {variant.title}")
        given = (variant.input or workload.input)(store, workload.check)
        if variant.input:  # repeats its content; a check sees it once
            given = workload.input(store, workload.check)
        data = delivered(workload, variant, tools, given)
        contents[variant.name] = digest(data.replace(SEPARATOR, b""), workload.unordered)
        if variant.compare == "items":
            count = data.count(SEPARATOR)
            items[variant.name] = f"{count} items, {digest(data, workload.unordered)}"
    compared = contents if not workload.unordered else {}
    for what in (items, compared):
        counted = Counter(what.values())
        if len(counted) > 1:
            agreed = counted.most_common(1)[0][0]
            odd = ", ".join(f"{name} ({value})" for name, value in what.items() if value != agreed)
            raise Failure(f"{workload.name}: not the same as the others ({agreed}): {odd}")
    return len(items)


def counted(workload, inputs):
    """A check of what a timed variant printed: it must have done all of it."""
    def compare(name, told):
        given, variant = inputs[name]
        if variant.kind == "bare" or variant.script:
            return
        if told.items is None:
            raise Failure(f"{workload.name}: {name} tells no count")
        if told.items != given.items:
            raise Failure(f"{workload.name}: {name} came to {told.items}, not to {given.items}")
    return compare


def measure(workload, size, rounds, tools, store, progress):
    """The figures of one workload, as plain data."""
    variants = workload.present(tools)
    checked = check(workload, variants, tools, store, progress)
    inputs = {v.name: (workload.input_of(v, store, size), v) for v in variants}
    jobs = [(v.name, v.command(tools, inputs[v.name][0], "time"),
             v.command(tools, inputs[v.name][0], "empty"), counted(workload, inputs))
            for v in variants]
    times, memory = runner.rounds(
        tools.launcher, jobs, rounds, workload.repeats,
        lambda text: progress.step(f"{workload.name}: {text}"))
    figures = {}
    for variant in variants:
        units = inputs[variant.name][0].items * workload.per_item
        figures[variant.name] = {
            "title": variant.title, "kind": variant.kind,
            "ns": [time / units for time in times[variant.name]],
            "memory": max(memory[variant.name])}
    return {"name": workload.name, "items": size, "rounds": rounds, "checked": checked,
            "variants": figures,
            "skipped": [v.title for v in workload.absent(tools)]}


def judge(workload, result, flags):
    """(target, spread, verdict) of every target whose variants were measured."""
    judged = []
    for target in workload.targets:
        if not target.applies(flags):
            continue
        of = result["variants"].get(target.of)
        to = result["variants"].get(target.to) if target.to else None
        if of is None or (target.to and to is None):
            judged.append((target, None, "skipped"))
            continue
        figure = ratios(of["ns"], to["ns"]) if to else spread(of["ns"])
        judged.append((target, figure, verdict(figure, target.at_most, target.at_least)))
    return judged
