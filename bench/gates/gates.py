#!/usr/bin/env python3
"""Compares what an item of work costs with the numbers in numbers.json.

  gates.py [GROUP...]            compares; all groups without one
  gates.py --update [GROUP...]   writes the numbers as they are now, to be committed with the reason

Costs are counted under callgrind and through the seam, as the difference of a run and one of twice
its length, so that beginning and ending cancel out:
  instructions     of the program itself, the C library and zlib left out; 2 % of room
  library calls    of functions of the C library and zlib, by name; exact
  system calls     by the function that makes them; exact
  allocations      calls of malloc and its kin; exact
  platform calls   of the module, by name; exact

An item that became cheaper fails as well: its number is lowered then, so that it stays cheap.
Instructions and library calls depend on the compiler: they are compared where it is the one that
numbers.json names. Takes the build folder from KVF_BINARY_DIR. Exit code: 0 when all agree, 1 when
not, 77 when nothing could be compared."""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from harness import callgrind, workloads  # noqa: E402
from harness.data import Store  # noqa: E402
from harness.machine import processor_flags  # noqa: E402

NUMBERS = Path(__file__).with_name("numbers.json")
ROOM = 0.02
SKIPPED = 77
ALLOCATORS = {"malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign"}


@dataclass(frozen=True)
class Gate:
    work: str        # of the module's program
    input: object    # (store, items) -> Input
    items: int       # of the shorter run; the longer one takes twice as many
    needs: str = ""  # the instructions depend on this flag of the processor


def folder_of(items_to_entries):
    """A folder of as many entries as items, walked once."""
    def make(store, items):
        return workloads.folder(items_to_entries * items)(store, 1)
    return make


# Lengths are chosen so that both runs read whole buffers.
GROUPS = {
    "lines": {
        "line": Gate("lines", workloads.lines_of(40), 4096),
        "line, reused": Gate("lines-reused", workloads.lines_of(40), 4096),
        "line, by name": Gate("call-lines", workloads.lines_of(40), 4096),
        "line of 1000": Gate("lines", workloads.lines_of(1000), 1024),
        "line with a 3-byte end": Gate("eol3", workloads.lines_of(40, workloads.EOL_3), 4096),
        "line of a gzip file": Gate("gzip-lines", workloads.lines_of(40, compressed=True), 4096),
    },
    "bytes_and_blocks": {
        "byte": Gate("bytes", workloads.bytes_of_lines, 40960),
        "byte, by name": Gate("call-bytes", workloads.bytes_of_lines, 40960),
        "block read": Gate("bulk-read", workloads.pieces, 200),
    },
    "writes": {
        "block written": Gate("bulk-write", workloads.writes, 200),
        "small write": Gate("small-write", workloads.writes, 500),
        "block to a gzip file": Gate("gzip-write", workloads.writes, 20),
    },
    "files": {
        "opening and closing": Gate("open-close", workloads.opening, 200),
        "question to an open file": Gate("is-open", workloads.opening, 2000),
        "directory entry": Gate("directory", folder_of(1), 500),
    },
    "decimal": {
        "64 KB printed": Gate("print", workloads.printing(65536), 2, "avx2"),
        "64 K values parsed": Gate("parse", workloads.parsing(65536), 2, "avx2"),
    },
}
ALL = {name: gate for group in GROUPS.values() for name, gate in group.items()}


def library_name(function):
    """A function of the C library whichever variant of it the processor gets."""
    plain = re.sub(r"@@.*$|'\d+$", "", function)
    found = re.match(r"__((?:mem|str|raw)[a-z]+)_(?:avx|sse|evex|erms|generic)", plain)
    return found.group(1) if found else plain


def program_costs(program, gate, store):
    """Counts of one gate from callgrind."""
    profiles = []
    for items in (gate.items, 2 * gate.items):
        given = gate.input(store, items)
        _, profile = callgrind.run([program, gate.work, "time", given.path, given.count])
        profiles.append(profile)
    cost = profiles[1] - profiles[0]
    own = str(program)
    library, allocations = Counter(), 0
    for (caller, called, function), count in cost.calls.items():
        name = library_name(function)
        if name in ALLOCATORS:
            allocations += count
        if caller == own and called != own:
            library[name] += count
    system = Counter()
    for function, count in cost.system_calls.items():
        system[library_name(function)] += count
    instructions = sum(count for (binary, *_), count in cost.instructions.items() if binary == own)
    return {"instructions": round(instructions / gate.items, 2), "allocations": allocations,
            "library calls": dict(sorted(library.items())),
            "system calls": dict(sorted(system.items()))}


def platform_calls(program, gate, store):
    counts = []
    for items in (gate.items, 2 * gate.items):
        given = gate.input(store, items)
        done = subprocess.run([program, gate.work, "time", given.path, str(given.count)],
                              capture_output=True, text=True, check=True,
                              stdin=subprocess.DEVNULL)
        counts.append(Counter({name: int(count) for name, count in
                               re.findall(r"^calls (\w+) (\d+)$", done.stdout, re.M)}))
    return {name: counts[1][name] - counts[0][name] for name in sorted(counts[1])
            if counts[1][name] != counts[0][name]}


def costs(gate, binary_dir, store, program="gate_module"):
    """All costs of one gate, for its items."""
    answer = {"items": gate.items}
    answer.update(program_costs(binary_dir / "bin" / program, gate, store))
    answer["platform calls"] = platform_calls(binary_dir / "bin" / f"{program}_seamed", gate, store)
    return answer


def differences(what, told, found):
    """Texts that tell how two counts by name differ."""
    for name in sorted(told.keys() | found.keys()):
        if told.get(name, 0) != found.get(name, 0):
            yield f"{what} of {name}: {found.get(name, 0)}, not {told.get(name, 0)}"


def compare(name, told, found, same_compiler, flags):
    """What disagrees with the numbers, as texts."""
    if told is None:
        return [f"{name}: there is no number; gates.py --update writes it"]
    wrong = []
    for what in ("system calls", "platform calls"):
        wrong += differences(what, told[what], found[what])
    if told["allocations"] != found["allocations"]:
        wrong.append(f"allocations: {found['allocations']}, not {told['allocations']}")
    needs = ALL[name].needs
    if same_compiler and (not needs or needs in flags):
        wrong += differences("library calls", told["library calls"], found["library calls"])
        was, now = told["instructions"], found["instructions"]
        if abs(now - was) > ROOM * was:
            change = (now - was) / was * 100
            verb = "dearer than" if now > was else "cheaper than, so lower,"
            wrong.append(f"instructions an item: {now}, {verb} {was} ({change:+.1f} %)")
    return [f"{name}, in {found['items']} items: {text}" for text in wrong]


def compiler():
    return os.environ.get("KVF_COMPILER", "")


def main(arguments):
    update = "--update" in arguments
    groups = [a for a in arguments if a != "--update"] or list(GROUPS)
    if any(group not in GROUPS for group in groups):
        print(__doc__)
        return 2
    if not shutil.which("valgrind"):
        print("skipped: valgrind is not installed")
        return SKIPPED
    binary_dir = Path(os.environ.get("KVF_BINARY_DIR",
                                     Path(__file__).resolve().parents[2] / "build"))
    numbers = json.loads(NUMBERS.read_text()) if NUMBERS.exists() else {"costs": {}}
    same_compiler = compiler() in ("", numbers.get("compiler"))
    if not same_compiler:
        print(f"The numbers are for {numbers.get('compiler')}: instructions and library calls of "
              f"{compiler()} are not compared.")
    wrong = []
    with tempfile.TemporaryDirectory() as folder:
        store = Store(folder)
        for name in (name for group in groups for name in GROUPS[group]):
            found = costs(ALL[name], binary_dir, store)
            if update:
                numbers["costs"][name] = found
            print(f"{name}: {found['instructions']} instructions", flush=True)
            wrong += compare(name, numbers["costs"].get(name), found, same_compiler,
                             processor_flags())
    if update:
        numbers["compiler"] = compiler() or numbers.get("compiler", "")
        NUMBERS.write_text(json.dumps(numbers, indent=1) + "\n")
    if wrong:
        print("\n".join(wrong))
        print("Where that is meant: bench/gates/gates.py --update, and a commit that says why.")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
