"""What a run was made on: processor, kernel, compiler, versions, and what its basic calls take."""

import datetime
import os
import platform
import re
import shutil
import subprocess
from pathlib import Path


def first_line(*command, pattern=None):
    """The first line that a command prints, or what `pattern` finds in all of it; "" without it."""
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=20, check=False,
                              stdin=subprocess.DEVNULL)
    except (OSError, subprocess.TimeoutExpired):
        return ""
    text = done.stdout + done.stderr
    if pattern:
        found = re.search(pattern, text)
        return found.group(1) if found else ""
    return text.strip().splitlines()[0] if text.strip() else ""


def processor():
    text = Path("/proc/cpuinfo").read_text()
    name = re.search(r"^model name\s*:\s*(.*)$", text, re.M)
    return name.group(1).strip() if name else platform.machine()


def processor_flags():
    text = Path("/proc/cpuinfo").read_text()
    flags = re.search(r"^flags\s*:\s*(.*)$", text, re.M)
    return set(flags.group(1).split()) if flags else set()


def distribution():
    try:
        text = Path("/etc/os-release").read_text()
    except OSError:
        return ""
    name = re.search(r'^PRETTY_NAME="?([^"\n]*)', text, re.M)
    return name.group(1) if name else ""


def filesystem(folder):
    """The type of the file system that a folder lies in."""
    best = ("", "?")
    for line in Path("/proc/self/mounts").read_text().splitlines():
        _, point, kind, *_ = line.split()
        inside = f"{folder}/".startswith(point.rstrip("/") + "/")
        if inside and len(point) >= len(best[0]):
            best = (point, kind)
    return best[1]


# Interpreters: the names that they may have, and what prints their version.
INTERPRETERS = {
    "python": (("/usr/bin/python3", "python3"), ("--version",), None),
    "perl": (("perl",), ("-v",), r"\((v[\d.]+)\)"),
    "lua": (("lua5.4", "lua"), ("-v",), r"(Lua [\d.]+)"),
    "tcl": (("tclsh", "tclsh8.6"), (), None),
    "gawk": (("gawk",), ("--version",), r"(GNU Awk [\d.]+)"),
}
PACKAGES = {"python": "python3", "perl": "perl", "lua": "lua5.4", "lua-filesystem": "lua-filesystem",
            "tcl": "tcl", "gawk": "gawk"}  # valgrind is among those that the build installs


def interpreters():
    """The path of each interpreter that is there; for a module, that of its interpreter."""
    found = {}
    for name, (names, _, _) in INTERPRETERS.items():
        path = next((shutil.which(n) for n in names if shutil.which(n)), None)
        if path:
            found[name] = path
    if "lua" in found and subprocess.run([found["lua"], "-e", "require 'lfs'"],
                                         capture_output=True, check=False).returncode == 0:
        found["lua-filesystem"] = found["lua"]
    return found


def versions(paths):
    """(what, version) of everything that is compared."""
    answer = []
    for name in (known for known in INTERPRETERS if known in paths):
        path = paths[name]
        if name == "tcl":
            done = subprocess.run([path], input="puts [info patchlevel]", text=True,
                                  capture_output=True, check=False)
            answer.append((name, done.stdout.strip()))
            continue
        _, arguments, pattern = INTERPRETERS[name]
        text = first_line(path, *arguments, pattern=pattern)
        answer.append((name, re.sub(r"^[A-Za-z ]+", "", text)))
    answer.append(("C library", platform.libc_ver()[1]))
    answer.append(("zlib", first_line("pkg-config", "--modversion", "zlib")))
    return [(what, version) for what, version in answer if version]


def description(cpu, data_folder, paths):
    """What the head of the report says, as (what, text) pairs."""
    return [
        ("Date", datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")),
        ("Processor", f"{processor()}, {os.cpu_count()} CPUs; measured on CPU {cpu}"),
        ("Kernel", f"{platform.system()} {platform.release()}, {distribution()}"),
        ("Load", f"{os.getloadavg()[0]:.2f} when the run began"),
        ("Compiler", first_line(os.environ.get("CXX", "c++"), "--version")),
        ("Data", f"on {filesystem(data_folder)}"),
        ("Versions", ", ".join(f"{what} {version}" for what, version in versions(paths))),
    ]
