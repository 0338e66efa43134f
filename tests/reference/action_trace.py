"""What each action calls, from the trace of a kvf that marks where actions begin and end."""

import os
import pty
import re
import subprocess
import sys
import threading
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
    """What is typed before the line editor sets its terminal up may be lost; it is typed again then,
    and what nobody asks for any more does no harm."""
    master, terminal = pty.openpty()
    ended = threading.Event()

    def keep_typing():
        os.write(master, typed)
        while not ended.wait(3):
            os.write(master, typed)

    typist = threading.Thread(target=keep_typing)
    typist.start()
    try:
        return subprocess.run(command, stdin=terminal, **options)
    finally:
        ended.set()
        typist.join()
        os.close(terminal)
        os.close(master)


def on_terminal_at_last(command, typed, options):
    """A run that hangs over typed text that was lost is begun anew."""
    for _ in range(9):
        try:
            return on_terminal(command, typed, {**options, "timeout": 20})
        except subprocess.TimeoutExpired:
            continue
    return on_terminal(command, typed, options)


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
            result = on_terminal_at_last(command, case.typed, options)
    return result.stderr.decode("utf-8", "replace")
