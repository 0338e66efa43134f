"""What each action calls, from the trace of a kvf that marks where actions begin and end."""

import os
import pty
import re
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402

CALL = re.compile(r"^ *\d+  (\w+)\(")
MARK = re.compile(r"^(begin|end) (\w+)$")


def calls_by_action(trace):
    """[(action, [function, ...]), ...], one for each time that an action was called. What the C
    functions call is left out."""
    found, current = [], None
    for line in trace.splitlines():
        mark = MARK.match(line)
        call = CALL.match(line)
        if mark and mark[1] == "begin":
            current = []
            found.append((mark[2], current))
        elif mark:
            current = None
        elif call and current is not None:
            current.append(call[1])
    return found


def on_terminal(command, typed, options):
    """A run whose standard input is a terminal where this was typed."""
    master, terminal = pty.openpty()
    try:
        os.write(master, typed)
        return subprocess.run(command, stdin=terminal, **options)
    finally:
        os.close(terminal)
        os.close(master)


def trace_of(program, case):
    """Runs the case in a fresh directory."""
    with ScratchFolder() as folder:
        options = {"cwd": folder, "stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE,
                   "timeout": 600, "check": False,
                   "env": {**os.environ, "HOME": folder, "TERM": "dumb"}}
        command = [program, "--trace", *case.arguments()]
        if case.typed is None:
            result = subprocess.run(command, input=case.stdin, **options)
        else:
            result = on_terminal(command, case.typed, options)
    return result.stderr.decode("utf-8", "replace")
