#!/usr/bin/env python3
"""Installs what was built into an empty folder and builds a small product against it alone."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])


class Consumer(unittest.TestCase):
    def run_checked(self, *command, **options):
        done = subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_product_builds_against_the_installed_files(self):
        with tempfile.TemporaryDirectory() as folder:
            prefix = Path(folder) / "installed"
            self.run_checked("cmake", "--install", BINARY, "--prefix", prefix)
            pkgconfig = next(prefix.rglob("kvfile_standalone.pc")).parent
            environment = dict(os.environ, PKG_CONFIG_PATH=str(pkgconfig))
            flags = self.run_checked("pkg-config", "--static", "--cflags", "--libs",
                                     "kvfile_standalone", env=environment).split()
            program = Path(folder) / "consumer"
            archives = [f for f in flags if f.startswith("-l") or f.startswith("-L")]
            self.run_checked("g++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                             *[f for f in flags if f.startswith("-I")],
                             SOURCE / "tests" / "consumer" / "consumer.cc", "-o", program,
                             *archives, "-Wl,-rpath," + str(pkgconfig.parent))
            kept = Path(folder) / "kept.txt"
            self.assertEqual(self.run_checked(program, kept), "kept\n")
            self.assertEqual(kept.read_bytes(), b"kept\n")
            self.assertIn("kvf", self.run_checked(prefix / "bin" / "kvf", "--version"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
