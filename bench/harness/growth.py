"""How costs grow: with the length of a file, the number of files, of directory entries, of sessions,
of live objects. Each series is a table with a row a size."""

import resource
from pathlib import Path

from harness import runner
from harness.figures import quantile
from harness.workloads import LOOKUPS, run_script, shell, shell_objects, statements

MEGABYTE = 1_000_000
LINE = 40
MEMORY_OF_A_FILE = 4600  # bytes, generously; what the largest series needs must be there


def available_memory():
    text = Path("/proc/meminfo").read_text()
    return int(text.split("MemAvailable:")[1].split()[0]) * 1024


class Growth:
    """Measures the series; `full` takes the large sizes, `rounds` of each the median."""

    def __init__(self, tools, store, full, progress):
        self.tools = tools
        self.store = store
        self.full = full
        self.rounds = 5 if full else 3
        self.progress = progress

    def sizes(self, quick, full):
        return full if self.full else quick

    def runs(self, command):
        for _ in range(self.rounds):
            self.tools.launcher.new_round()
            yield self.tools.launcher.run(command)

    def median(self, command, read):
        return quantile([read(run) for run in self.runs(command)], 0.5)

    def program_ns(self, program, work, path, count, items):
        command = [self.tools.programs / program, work, "time", path, count]
        return self.median(command, lambda run: runner.told(run.output).nanoseconds) / items

    def peer_ns(self, program, work, path, count, items):
        base = [self.tools.interpreters[program], self.tools.peers / f"peer.{program[:2]}", work]
        empty = self.median([*base, "empty", path, count], lambda run: run.cpu)
        timed = self.median([*base, "time", path, count], lambda run: run.cpu)
        return max(timed - empty, 0) / items

    def values(self, series, count):
        """The values that bench_growth prints, medians by name."""
        command = [self.tools.programs / "bench_growth", series, count]
        runs = [dict(line.rsplit(" ", 1) for line in run.output.decode().splitlines())
                for run in self.runs(command)]
        if "skipped" in runs[0]:
            return {}
        return {name: quantile([float(run[name]) for run in runs], 0.5) for name in runs[0]}

    # ---- the series ----

    def lines(self):
        rows = []
        for size in self.sizes((1 * MEGABYTE, 20 * MEGABYTE),
                               (1 * MEGABYTE, 100 * MEGABYTE, 2000 * MEGABYTE)):
            self.progress.step(f"growth: a file of {size // MEGABYTE} MB")
            count = size // LINE
            path = self.store.lines(count, LINE, b"\n")
            row = [f"{size // MEGABYTE:,} MB",
                   1000 / self.program_ns("bench_floor", "lines", path, LINE, count),
                   1000 / self.program_ns("bench_module_lto", "lines", path, LINE, count)]
            if "python" in self.tools.interpreters:
                row.append(1000 / max(self.peer_ns("python", "lines", path, LINE, count), 1e-3))
            rows.append(row)
            self.store.drop(path)
        columns = ["file", "floor", "module", *(["Python"] if len(rows[0]) > 3 else [])]
        return {"title": "Lines of 40 bytes by the size of the file", "unit": "million lines a second",
                "columns": columns, "rows": rows}

    def files(self):
        rows = []
        for count in self.sizes((10, 1000, 100_000), (10, 100, 1000, 10_000, 100_000, 1_000_000)):
            self.progress.step(f"growth: {count:,} files")
            row = [f"{count:,}"]
            for program, work in (("bench_module_lto", "lookup"),
                                  ("bench_library", "unordered_map")):
                row.append(self.program_ns(program, work, "-", count, LOOKUPS))
            enough = available_memory() > count * MEMORY_OF_A_FILE * 1.3
            values = self.values("calls", count) if enough else {}
            row += [values.get(name) for name in ("call", "register", "release")]
            rows.append(row)
        return {"title": "Calls by the number of registered files",
                "unit": "ns; files in random order. A record is 4 KB, so that many of them leave the "
                "caches whatever the map does",
                "columns": ["files", "look-up", "std::unordered_map", "whole call", "registering",
                            "releasing"], "rows": rows}

    def directories(self):
        rows = []
        for count in self.sizes((1000, 20_000), (1000, 10_000, 100_000, 1_000_000)):
            self.progress.step(f"growth: a directory of {count:,}")
            path = self.store.directory(count)
            times = max(100_000 // count, 1)
            items = times * count
            row = [f"{count:,}", self.program_ns("bench_floor", "directory", path, times, items),
                   self.program_ns("bench_module_lto", "directory", path, times, items)]
            if "python" in self.tools.interpreters:
                row.append(self.peer_ns("python", "directory", path, times, items))
            rows.append(row)
            self.store.drop(path)
        columns = ["entries", "floor", "module", *(["Python"] if len(rows[0]) > 3 else [])]
        return {"title": "Directories by their size", "unit": "ns an entry", "columns": columns,
                "rows": rows}

    def named(self, series, title, unit, counted, columns, counts):
        rows = []
        for count in counts:
            self.progress.step(f"growth: {series}, {count:,}")
            values = self.values(series, count)
            rows.append([f"{count:,}", *(values.get(name) for name, _ in columns)])
        return {"title": title, "unit": unit,
                "columns": [counted, *(head for _, head in columns)], "rows": rows}

    def sessions(self):
        return self.named("sessions", "Calls by the number of sessions", "ns", "sessions",
                          (("call", "call, each in turn"), ("call_in_one", "call, in one of them"),
                           ("begin", "beginning one"), ("end", "ending one")),
                          self.sizes((1, 100, 1000), (1, 10, 100, 1000, 10_000)))

    def memory(self):
        return self.named("memory", "Memory of a file", "bytes from the C library's allocator",
                          "files", (("open", "an open file"), ("closed", "a closed one"),
                                    ("released", "after the session")),
                          self.sizes((1000,), (100, 1000, 10_000)))

    def collections(self):
        return self.named("collections", "Collections by the number of live objects", "ns", "objects",
                          (("live", "an object that lives on"), ("freed", "one that is freed")),
                          self.sizes((1000, 100_000), (1000, 10_000, 100_000, 1_000_000)))

    def kept_objects(self):
        rows = []
        given = self.store.text("opened", "a line\n")
        command = shell(shell_objects)
        for count in self.sizes((1000, 10_000, 100_000), (1000, 10_000, 100_000, 1_000_000)):
            self.progress.step(f"growth: {count:,} kept file objects")
            at = lambda mode: command(  # noqa: E731
                self.tools, _Given(given, count), mode)
            empty = self.median(at("empty"), lambda run: run.cpu)
            timed = self.median(at("time"), lambda run: run.cpu)
            rows.append([f"{count:,}", max(timed - empty, 0) / count])
        # Beside starting the shell, 1,000 objects are too few to tell by.
        return {"title": "File objects that a script keeps", "unit": "ns an object",
                "columns": ["objects", "kvf"], "rows": rows,
                "targets": [grows("an object among the most", rows[-1][1], "one among 10,000",
                                  rows[1][1], 1.5)]}

    def script_memory(self):
        rows = []
        command = run_script("kvf")
        make = statements("kvf")
        for count in self.sizes((1000, 10_000, 50_000), (1000, 10_000, 100_000, 1_000_000)):
            self.progress.step(f"growth: a script of {count:,} statements")
            run = self.tools.launcher.run(command(self.tools, make(self.store, count), "time"))
            rows.append([f"{count:,}", run.cpu / count, run.memory / MEGABYTE])
        return {"title": "Scripts by their length",
                "unit": "ns and MB, start-up included",
                "columns": ["statements", "ns a statement", "MB at most"], "rows": rows,
                "targets": [grows("memory of the longest script", rows[-1][2], "of the shortest",
                                  rows[0][2], 1.2)]}

    def all(self):
        series = (self.lines, self.files, self.directories, self.sessions, self.memory,
                  self.collections, self.kept_objects, self.script_memory)
        return [one() for one in series]


def grows(what, value, than, base, at_most):
    """A target of how much may be more of it, as (text, measured ratio, verdict)."""
    ratio = value / base
    return [f"{what}: at most {at_most:.2f} times {than}", ratio,
            "met" if ratio <= at_most else "missed"]


class _Given:
    def __init__(self, path, count):
        self.path = path
        self.count = count


def allow_many_descriptors():
    """What a process may open is inherited."""
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
