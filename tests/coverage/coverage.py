#!/usr/bin/env python3
"""Holds the module to full coverage by its deterministic tests: lines and branches as gcov counts
them, and each condition of each decision (MC/DC) as clang does.

  coverage.py BUILD    BUILD is a build in which the target coverage_tests was built

What cannot be reached stands in exclusions.toml, each with its reason. Exit code: 0 when all else was
reached and each exclusion is needed, 1 when not.
"""

import json
import os
import subprocess
import sys
import tomllib
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
EXCLUSIONS = Path(__file__).with_name("exclusions.toml")

# The longest first.
SUITES = ["losses", "openfile", "bytestrings", "pathhost", "record", "framework"]

# What is counted, and what is said of one whose count is 0.
KINDS = {"line": "never reached", "branch": "never taken",
         "condition": "never decided by itself"}


class Failure(Exception):
    """Why there is nothing to measure."""


def command(*arguments):
    """Runs a command that must succeed, and answers what it printed."""
    done = subprocess.run(arguments, capture_output=True)
    if done.returncode != 0:
        raise Failure(f"{arguments[0]} failed:\n{done.stderr.decode(errors='replace')[-3000:]}")
    return done.stdout


# ---- measuring ----

def run_suite(program):
    """Answers what a failing program printed at last, or None. Random properties try no case."""
    environment = dict(os.environ, RC_PARAMS="max_success=0", LLVM_PROFILE_FILE=f"{program}.%m.profraw")
    done = subprocess.run([program, "--gtest_brief=1"], stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=600, env=environment)
    if done.returncode == 0:
        return None
    return f"{program.name} failed:\n{done.stdout.decode(errors='replace')[-3000:]}"


def run_suites(folder):
    for old in [*folder.rglob("*.gcda"), *folder.rglob("*.profraw")]:
        old.unlink()
    programs = [folder / "bin" / f"{suite}_tests_{kind}" for suite in SUITES for kind in ("gcov", "mcdc")]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        failed = [text for text in pool.map(run_suite, programs) if text is not None]
    if failed:
        raise Failure("\n".join(failed))


def gcov_reports(folder):
    """What gcov has of each object below the folder."""
    notes = sorted(folder.rglob("*.gcno"))
    reports = command("gcov", "--branch-probabilities", "--json-format", "--stdout", *notes)
    return [json.loads(line) for line in reports.splitlines()]


def llvm_report(folder, programs):
    """What clang has of programs whose profiles lie below the folder."""
    profile = folder / "all.profdata"
    command("llvm-profdata-19", "merge", "-o", profile, *folder.rglob("*.profraw"))
    objects = [word for program in programs[1:] for word in ("-object", program)]
    return json.loads(command("llvm-cov-19", "export", "-instr-profile", profile, programs[0],
                              *objects))


# ---- what was reached ----

class Reached:
    """How often each line, branch and condition of the files below a folder was reached, by its kind,
    the file's path there, the line's number and its place in the line."""

    def __init__(self, source):
        self.source = source.resolve()
        self.counts = Counter()
        self.files = {"gcov": set(), "clang": set()}

    def relative(self, file, folder="."):
        path = Path(folder, file).resolve()
        return str(path.relative_to(self.source)) if path.is_relative_to(self.source) else None

    def count(self, count, *place):
        self.counts[place] += count

    def add_gcov(self, report):
        """Adds what gcov has of one object: inline functions come with each that has them."""
        for file in report["files"]:
            # A compiler cache may have made the path relative to the build.
            name = self.relative(file["file"], report["current_working_directory"])
            if name is None:
                continue
            self.files["gcov"].add(name)
            for line in file["lines"]:
                number = line["line_number"]
                self.count(line["count"], "line", name, number, 0)
                for at, branch in enumerate(b for b in line["branches"] if not b["throw"]):
                    self.count(branch["count"], "branch", name, number, at)

    def add_llvm(self, report):
        for file in report["data"][0]["files"]:
            name = self.relative(file["filename"])
            if name is None:
                continue
            self.files["clang"].add(name)
            for line, column, _, _, _, _, shown in file["mcdc_records"]:
                for at, decides in enumerate(shown):
                    self.count(int(decides), "condition", name, line, (column, at))

    def unmeasured(self):
        """The sources that one of the two has not seen at all."""
        for file in sorted(self.source.rglob("*.cc")):
            name = str(file.relative_to(self.source))
            # A file of declarations has no code to be seen.
            seen = self.files["gcov"] | self.files["clang"]
            for tool in ("gcov", "clang"):
                if name in seen and name not in self.files[tool]:
                    yield f"{name}: {tool} has not seen it"


# ---- exclusions ----

@dataclass
class Exclusion:
    """A file, or one line of it by its text, of which all or one kind is not asked for."""

    file: str
    reason: str
    line: str | None = None
    kind: str | None = None
    unless: str | None = None  # a flag in /proc/cpuinfo with which nothing is excluded

    def __str__(self):
        return f"{self.file}: {self.line or 'the whole file'}"

    def numbers(self, source):
        """The numbers of the lines with its text."""
        path = source / self.file
        lines = path.read_text().splitlines() if path.exists() else []
        return {n for n, text in enumerate(lines, 1) if self.line in (None, text.strip())}

    def covers(self, place, numbers):
        kind, file, number, _ = place
        return file == self.file and number in numbers and self.kind in (None, kind)


def processor_flags():
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("flags"):
            return set(line.split(":", 1)[1].split())
    return set()


def read_exclusions(text, flags):
    """Those that count on a processor with these flags."""
    all_of_them = [Exclusion(**table) for table in tomllib.loads(text).get("exclusion", [])]
    for each in all_of_them:
        if not each.reason.strip() or each.kind not in (None, *KINDS):
            raise Failure(f"an exclusion without a reason or of an unknown kind: {each}")
    return [each for each in all_of_them if each.unless is None or each.unless not in flags]


# ---- the gate ----

def describe(source, place):
    kind, file, number, _ = place
    text = (source / file).read_text().splitlines()[number - 1].strip()
    return f"{file}:{number}: {kind} {KINDS[kind]}: {text}"


def evaluate(reached, exclusions):
    """The line that tells the figures, and what is wrong."""
    missed = {place for place, count in reached.counts.items() if count == 0}
    wrong = list(reached.unmeasured())
    excluded = set()
    for each in exclusions:
        numbers = each.numbers(reached.source)
        if not numbers or (each.line is not None and len(numbers) > 1):
            wrong.append(f"the exclusion matches {len(numbers)} lines: {each}")
            continue
        needed = {place for place in missed if each.covers(place, numbers)}
        if not needed:
            wrong.append(f"the exclusion is not needed any more: {each}")
        excluded |= needed
    wrong += sorted(describe(reached.source, place) for place in missed - excluded)
    measured = {place[0] for place in reached.counts}
    wrong += [f"no {kind} was measured" for kind in KINDS if kind not in measured]
    asked = Counter(place[0] for place in reached.counts.keys() - excluded)
    short = Counter(place[0] for place in missed - excluded)
    figures = ", ".join(f"{asked[kind] - short[kind]} of {asked[kind]} {plural}" for kind, plural in
                        (("line", "lines"), ("branch", "branches"), ("condition", "conditions")))
    return f"Coverage: {figures}; {len(exclusions)} exclusions ({len(excluded)} places)", wrong


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    folder = Path(sys.argv[1]).resolve() / "tests" / "coverage"
    try:
        exclusions = read_exclusions(EXCLUSIONS.read_text(), processor_flags())
        run_suites(folder)
        reached = Reached(ROOT / "src")
        for report in gcov_reports(folder):
            reached.add_gcov(report)
        reached.add_llvm(llvm_report(folder, sorted((folder / "bin").glob("*_mcdc"))))
        figures, wrong = evaluate(reached, exclusions)
    except Failure as failure:
        sys.exit(str(failure))
    print("\n".join([*wrong, figures]))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
