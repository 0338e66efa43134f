#!/usr/bin/env python3
"""Kills tests in their midst and looks at what they leave in the temporary folder: nothing."""

import os
import subprocess
import sys
import time
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402

BINARY = Path(os.environ["KVF_BINARY_DIR"])
TESTS = Path(os.environ["KVF_SOURCE_DIR"]) / "tests"
PATIENCE = 600


class KilledTests(unittest.TestCase):
    def wait_until(self, holds, what):
        end = time.monotonic() + PATIENCE
        while not holds():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.001)

    def kill_in_its_midst(self, *command):
        """Starts the command again until one is caught while it has a folder of its own."""
        with ScratchFolder() as folder:
            environment = dict(os.environ, TMPDIR=folder)
            end = time.monotonic() + PATIENCE
            caught = False
            while not caught:
                self.assertLess(time.monotonic(), end, "it never had a folder")
                process = subprocess.Popen([str(word) for word in command], env=environment,
                                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL)
                while process.poll() is None and not os.listdir(folder):
                    time.sleep(0.0005)
                caught = process.poll() is None
                process.kill()
                process.wait()
            self.wait_until(lambda: not os.listdir(folder), "what it made was left")

    def test_programs_of_tests_leave_nothing(self):
        for name in ("record", "openfile", "pathhost", "seam", "standalone", "shell"):
            with self.subTest(name=name):
                self.kill_in_its_midst(BINARY / "bin" / f"{name}_tests")

    def test_the_product_in_c_leaves_nothing(self):
        self.kill_in_its_midst(BINARY / "bin" / "c_host_test")

    def test_the_tests_of_the_shell_leave_nothing(self):
        self.kill_in_its_midst(sys.executable, TESTS / "shell" / "cli_test.py")


if __name__ == "__main__":
    unittest.main(verbosity=2)
