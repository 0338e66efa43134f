#!/usr/bin/env python3
"""Replays sequences of the model in the shell: what a failure is handed over as has to run there.

Takes the folder of the programs from KVF_BINARY_DIR.
"""

import os
import resource
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAMS = Path(os.environ["KVF_BINARY_DIR"]) / "bin"
SHELLS = {16: "kvf_16", 64: "kvf_64", 4096: "kvf"}
MEMORY = Path("/dev/shm")  # other file systems refuse positions near the largest


def limit_files():
    """Steps may write anywhere; a replay must not fill the disk."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 26, 1 << 26))


@unittest.skipUnless(MEMORY.is_dir(), "no files in memory here")
class Transcripts(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(dir=MEMORY)
        self.addCleanup(self.folder.cleanup)
        self.transcript = Path(self.folder.name) / "sequence.kvt"

    def record(self, size, number):
        subprocess.run([PROGRAMS / "model_test", "--size", str(size), "--seed", "1", "--first", str(number),
                        "--record", "--transcript", self.transcript],
                       check=True, stdout=subprocess.DEVNULL, timeout=600)

    def replay(self, size):
        return subprocess.run([PROGRAMS / SHELLS[size], "check", "--timeout", "600", self.transcript], capture_output=True,
                              text=True, errors="replace", timeout=600, preexec_fn=limit_files,
                              env={**os.environ, "TMPDIR": self.folder.name})

    def test_recorded_sequences_replay_as_the_model_expects(self):
        for size in SHELLS:
            for number in range(4):
                with self.subTest(size=size, sequence=number):
                    self.record(size, number)
                    result = self.replay(size)
                    self.assertEqual(result.returncode, 0, result.stdout[:2000] + result.stderr[:500])
                    self.assertIn("all as expected", result.stdout)

    def test_a_replay_notices_another_answer(self):
        self.record(16, 1)
        text = self.transcript.read_text(encoding="latin-1")
        changed = text.replace("\ntrue\n", "\nfalse\n")
        self.assertNotEqual(text, changed)
        self.transcript.write_text(changed, encoding="latin-1")
        result = self.replay(16)
        self.assertEqual(result.returncode, 1)
        self.assertIn("with differences", result.stdout)


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=2))
