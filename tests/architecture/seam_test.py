#!/usr/bin/env python3
"""Holds that the programs which are linked with the module behind the seam do go through it. A linker
that optimises could take another form of the module's objects than the one that was redirected, and
would say nothing. Takes the source and the build folder from KVF_SOURCE_DIR and KVF_BINARY_DIR."""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])
CXX = os.environ["KVF_CXX"]
REDIRECTED = dict(line.split() for line in (BINARY / "seam_redirections.txt").read_text().splitlines())
FUNCTION = re.compile(r"^[0-9a-f]+ <([\w.]+)>:$")
CALL = re.compile(r"\b(?:call|jmp)\w*\s.*<(\w+)(?:@[\w.]+)?>")


def objects_of(archive):
    """Of each object of the redirected archive: the functions that it alone defines, and the wrappers
    that it needs. Inline functions are left out: a test has its own of those that it calls itself."""
    listed = subprocess.run(["nm", "-A", archive], check=True,
                            capture_output=True, text=True).stdout
    objects = {}
    for name, kind, symbol in re.findall(r"^[^:]+:([^:]+):[0-9a-f ]+ ([A-Za-z]) ([\w.]+)$", listed, re.M):
        defined, needed = objects.setdefault(name, (set(), set()))
        if kind in "Tt":
            defined.add(symbol)
        elif kind == "U" and symbol in REDIRECTED.values():
            needed.add(symbol)
    return list(objects.values())


def functions_and_calls(program, module):
    """Those of the module's functions that are in a finished program, and what they call."""
    code = subprocess.run(["objdump", "-d", "--no-show-raw-insn", program], check=True,
                          capture_output=True, text=True).stdout
    functions, called, within = set(), set(), False
    for line in code.splitlines():
        if beginning := FUNCTION.match(line):
            within = beginning[1] in module
            if within:
                functions.add(beginning[1])
        elif within and (call := CALL.search(line)):
            called.add(call[1])
    return functions, called


def faults(program, archive=BINARY / "lib" / "libkvfile_seamed.a"):
    """What is wrong with a program that should go through the seam, as texts."""
    objects = objects_of(archive)
    functions, called = functions_and_calls(program, set().union(*(defined for defined, _ in objects)))
    needed = set().union(*(wrappers for defined, wrappers in objects
                           if defined & functions))  # a linker takes the objects that it needs
    past = [f"calls {name} past the seam" for name in sorted(called & REDIRECTED.keys())]
    absent = [f"never calls {name}" for name in sorted(needed - called)]
    return past + absent + ([] if needed else ["holds nothing of the module"])


def build_option(name):
    found = re.search(rf"^{name}:\w+=(.*)$", (BINARY / "CMakeCache.txt").read_text(), re.M)
    return found[1] if found else ""


@unittest.skipIf(build_option("CMAKE_BUILD_TYPE") == "Debug",
                 "inline functions are called there, and a test has its own of them")
class SeamedPrograms(unittest.TestCase):
    def test_call_everything_through_the_seam(self):
        programs = (BINARY / "seamed_programs.txt").read_text().split()
        names = {Path(program).name for program in programs}
        self.assertLessEqual({"kvf", "kvf_16", "seam_tests", "record_tests"}, names)
        self.assertNotIn("model_test", names)
        for program in programs:
            with self.subTest(program=program):
                self.assertEqual(faults(program), [])

    def test_are_told_from_one_that_is_not_behind_the_seam(self):
        found = faults(BINARY / "bin" / "model_test")
        self.assertIn("calls HostWriteFile_ past the seam", found)
        self.assertIn("never calls seam_HostWriteFile_", found)


@unittest.skipIf(build_option("KVFILE_SANITIZE") or build_option("KVFILE_COVERAGE") == "ON",
                 "what instruments this build is not in the other one")
class BuildWithFlagsOfADistribution(unittest.TestCase):
    """Flags that make objects of both forms, which is where nothing else would be noticed."""

    FLAGS = "-O2 -flto -ffat-lto-objects"

    def test_goes_through_the_seam(self):
        with ScratchFolder() as scratch:
            build = Path(scratch) / "build"
            self.run_checked("cmake", "-G", "Ninja", "-S", SOURCE / "tests/architecture/seamed_program",
                             "-B", build, f"-DCMAKE_CXX_COMPILER={CXX}", f"-DKVFILE_TREE={SOURCE}",
                             f"-DKVFILE_BUILD={BINARY}", f"-DCMAKE_CXX_FLAGS={self.FLAGS}")
            self.run_checked("cmake", "--build", build)
            program = build / "seamed_program"
            self.assertEqual(faults(program, build / "lib" / "libkvfile_seamed.a"), [])
            self.assertIn("HostFileType", self.run_checked(program).split())

    def run_checked(self, *command):
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, 0, f"{command}\n{done.stdout}{done.stderr}")
        return done.stdout


if __name__ == "__main__":
    unittest.main(verbosity=2)
