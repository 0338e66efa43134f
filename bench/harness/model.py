"""What a workload is made of: its input, its variants, its targets. The workloads themselves are data
in workloads.py."""

import hashlib
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

from harness.runner import Launcher

SEPARATOR = b"\x1e"  # behind every item that a check delivers


@dataclass(frozen=True)
class Input:
    """What a variant works on."""
    path: Path
    count: int      # the last argument of a program
    items: int      # what every variant must come to


@dataclass(frozen=True)
class Tools:
    """Where the programs and interpreters are."""
    programs: Path           # the folder of the built ones
    peers: Path              # the folder of the scripts
    interpreters: dict[str, str]
    cpu_flags: frozenset[str]
    launcher: Launcher

    def has(self, variant):
        needed = variant.needs or variant.program
        return needed not in PEER_SCRIPTS | MODULES or needed in self.interpreters


PEER_SCRIPTS = {"python": "peer.py", "perl": "peer.pl", "lua": "peer.lua", "tcl": "peer.tcl",
                "gawk": "peer.awk"}
MODULES = {"lua-filesystem": "lfs"}  # that an interpreter may lack


@dataclass(frozen=True)
class Variant:
    name: str                   # unique within the workload, and what targets call it by
    title: str                  # as the report has it
    program: str                # a built program, or an interpreter
    work: str                   # what to have it do
    kind: str = "peer"          # bare, floor, module, naive or peer
    share: int = 1              # works on 1/share of the items, because it is so slow
    compare: str = "items"      # what a check compares: items, bytes (its items are others), no
    input: Callable | None = None    # where it is not the workload's
    needs: str = ""                  # a module of the interpreter
    script: Callable | None = None   # (tools, input, mode): a whole command, where it is no WORK

    def command(self, tools, given, mode):
        """The command for "check", "time" or "empty"; None where there is none."""
        if self.script:
            return self.script(tools, given, mode)
        if self.program == "gawk":
            return [tools.interpreters["gawk"], "-b", "-f", tools.peers / "peer.awk",
                    f"MODE={mode}", f"RS={self.work}", given.path]
        if self.program in PEER_SCRIPTS:
            isolated = ["-I", "-S"] if self.program == "python" else []
            return [tools.interpreters[self.program], *isolated,
                    tools.peers / PEER_SCRIPTS[self.program], self.work, mode, given.path,
                    given.count]
        if mode == "empty":
            return None  # these measure their work themselves
        return [tools.programs / self.program, self.work, mode, given.path, given.count]


@dataclass(frozen=True)
class Target:
    """A bar: the time of `of`, or its ratio to that of `to`."""
    of: str
    to: str | None = None          # None: nanoseconds an item
    at_most: float | None = None
    at_least: float | None = None
    needs: str | None = None       # only on processors with this flag
    lacks: str | None = None       # only on processors without it

    def applies(self, flags):
        return not (self.needs and self.needs not in flags) and not (
            self.lacks and self.lacks in flags)


@dataclass(frozen=True)
class Workload:
    name: str
    title: str
    unit: str                      # one item
    about: str                     # what is measured, in a sentence or two
    input: Callable                # (store, items) -> Input
    variants: tuple[Variant, ...]
    targets: tuple[Target, ...]
    check: int                     # items of a check, of a quick and of a full run
    quick: int
    full: int
    per_item: int = 1              # units in an item of the programs
    delivers: str = "output"       # where a check looks: output, file, gzip-file
    unordered: bool = False        # items may come in any order
    repeats: int = 1               # runs of a variant in a round, where one is very short
    base: str = "floor"            # the variant that ratios are taken to
    losses: dict[str, str] = field(default_factory=dict)  # why a peer is faster, by its name
    # Why a target is missed, by the variant that it is set to ("" for nanoseconds).
    shortfalls: dict[str, str] = field(default_factory=dict)

    def present(self, tools):
        return [v for v in self.variants if tools.has(v)]

    def absent(self, tools):
        return [v for v in self.variants if not tools.has(v)]

    def input_of(self, variant, store, items):
        return (variant.input or self.input)(store, max(items // variant.share, 1))


def digest(data, unordered=False):
    if unordered:
        data = SEPARATOR.join(sorted(data.split(SEPARATOR)))
    return hashlib.sha1(data).hexdigest()
