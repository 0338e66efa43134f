"""Reads what callgrind writes: instructions by the source file of the line that they come from, calls
by what is called, system calls by the function that makes them."""

import re
import subprocess
import tempfile
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path


@dataclass
class Profile:
    """Counts of one run."""
    # by (object, file of the line, file of the function, function)
    instructions: Counter = field(default_factory=Counter)
    # by (calling object, called object, function)
    calls: Counter = field(default_factory=Counter)
    # by the function that makes them
    system_calls: Counter = field(default_factory=Counter)

    def __sub__(self, other):
        """What this run did more than a shorter one: starting and ending cancel out."""
        difference = Profile()
        for mine, theirs, answer in ((self.instructions, other.instructions,
                                      difference.instructions),
                                     (self.calls, other.calls, difference.calls),
                                     (self.system_calls, other.system_calls,
                                      difference.system_calls)):
            for key in mine.keys() | theirs.keys():
                if mine[key] != theirs[key]:
                    answer[key] = mine[key] - theirs[key]
        return difference


class Names:
    """Names are written once, with a number that stands for them later."""

    def __init__(self):
        self.known = {}

    def of(self, text):
        found = re.match(r"\((\d+)\)(?: (.*))?$", text)
        if not found:
            return text
        number, name = found.groups()
        if name is not None:
            self.known[number] = name
        return self.known[number]


def parse(text):
    """A Profile of a callgrind file whose only position is the line."""
    profile = Profile()
    objects, files, functions = Names(), Names(), Names()
    here_object = here_file = own_file = here_function = ""
    called_object = called_function = None
    calls = 0
    for line in text.splitlines():
        if line[:1].isdigit() or line[:1] in "+-*":
            if calls:  # the cost of the call itself, inclusive: counted where it is spent
                calls = 0
                continue
            cost = line.split()
            if len(cost) > 1:
                profile.instructions[here_object, here_file, own_file, here_function] += int(
                    cost[1])
            if len(cost) > 2 and int(cost[2]):
                profile.system_calls[here_function] += int(cost[2])
            continue
        key, _, value = line.partition("=")
        if key == "ob":
            here_object = objects.of(value)
        elif key == "fl":
            here_file = own_file = files.of(value)
        elif key in ("fi", "fe"):
            here_file = files.of(value)
        elif key == "fn":
            here_function = functions.of(value)
        elif key == "cob":
            called_object = objects.of(value)
        elif key in ("cfi", "cfl"):
            files.of(value)
        elif key == "cfn":
            called_function = functions.of(value)
        elif key == "calls":
            calls = int(value.split()[0])
            target = called_object if called_object is not None else here_object
            profile.calls[here_object, target, called_function] += calls
            called_object = None
    return profile


def run(command, timeout=300):
    """Runs a program under callgrind; what it printed, and the Profile."""
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / "callgrind.out"
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", "--dump-line=yes",
             "--collect-systime=yes", "--quiet", *map(str, command)],
            capture_output=True, text=True, timeout=timeout, check=False,
            stdin=subprocess.DEVNULL)
        if done.returncode != 0:
            raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr or done.stdout}")
        return done.stdout, parse(out.read_text())
