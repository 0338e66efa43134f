"""Runs one variant of a workload as a process of its own, and all of them in interleaved rounds."""

import os
import re
import shutil
import signal
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path


class Failure(Exception):
    """A variant that did not run, or did not do what the others do."""


@dataclass(frozen=True)
class Run:
    output: bytes
    cpu: int      # nanoseconds, user and system
    memory: int   # bytes resident at most


# The same for all: no locale, no settings of the user, no waiting output.
ENVIRONMENT = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C", "HOME": "/",
               "TMPDIR": tempfile.gettempdir()}


class Launcher:
    """Runs commands on one CPU, by a program that is small enough not to count.

    Programs of the build are run from copies, and new ones for each round: where the pages of a
    program happen to lie in memory has been seen to make it half as slow again, run after run until
    the file was written anew. Chance must show as a spread, and not as a constant."""

    def __init__(self, programs, cpu, folder):
        self.programs = programs
        self.cpu = cpu
        self.folder = folder
        self.result = folder / "taken"
        self.copies = {}

    def new_round(self):
        """From now on programs are run from other pages."""
        for copy in self.copies.values():
            copy.unlink()
        self.copies = {}

    def placed(self, program):
        """The copy of a program of the build; other commands stay where they are."""
        if Path(program).parent != self.programs:
            return program
        if program not in self.copies:
            copy = self.folder / f"program-{len(self.copies)}-{Path(program).name}"
            shutil.copy(program, copy)
            self.copies[program] = copy
        return self.copies[program]

    def run(self, command, timeout=900):
        """Runs `command` to its end; its CPU time is what the system counted for the process."""
        words = [self.programs / "bench_launch", self.cpu, self.result, self.placed(command[0]),
                 *command[1:]]
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as errors:
            process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL,
                                       stdout=out, stderr=errors, env=ENVIRONMENT,
                                       start_new_session=True)
            try:
                status = process.wait(timeout)
            except BaseException as ended:  # the command's process, too, ends with the wait for it
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                if isinstance(ended, subprocess.TimeoutExpired):
                    raise Failure(f"{command[0]} took longer than {timeout} s") from None
                raise
            out.seek(0)
            output = out.read()
            if status != 0:
                errors.seek(0)
                told_why = errors.read().decode(errors="replace").strip()
                text = " ".join(str(part) for part in command)
                raise Failure(f"{text[:300]}: {told_why or f'ended with status {status}'}")
        cpu, memory = map(int, self.result.read_text().split())
        return Run(output, cpu, memory)


@dataclass(frozen=True)
class Told:
    """What a timed variant printed of itself."""
    items: int | None
    nanoseconds: int | None  # of the work alone; None: the whole process counts


def told(output):
    found = dict(re.findall(rb"\b(items|ns)=(\d+)", output))
    value = {key.decode(): int(number) for key, number in found.items()}
    return Told(value.get("items"), value.get("ns"))


def work_time(timed, empty):
    """CPU nanoseconds of the work: what the program measured itself, or what its process took more
    than one that ended where the work begins."""
    own = told(timed.output).nanoseconds
    if own is not None:
        return own
    return max(timed.cpu - (empty.cpu if empty else 0), 1)


def rounds(launcher, variants, count, repeats, progress):
    """Times every variant once a round, short ones as the mean of `repeats` runs. `variants` are (name, timed command, empty command or None,
    check of the output) tuples. Answers lists of nanoseconds and of peak memory by name."""
    times = {name: [] for name, *_ in variants}
    memory = {name: [] for name, *_ in variants}
    for number in range(count):
        progress(f"round {number + 1} of {count}")
        launcher.new_round()
        turn = number % len(variants)  # nobody is always behind the same neighbour
        for name, timed, empty, check in variants[turn:] + variants[:turn]:
            base = launcher.run(empty) if empty else None
            results = [launcher.run(timed) for _ in range(repeats)]
            for result in results:
                check(name, told(result.output))
            times[name].append(sum(work_time(result, base) for result in results) / repeats)
            memory[name].append(max(result.memory for result in results))
    return times, memory
