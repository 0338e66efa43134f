#!/usr/bin/env python3
"""Each gate must close: runs the programs whose actions cost more than they should, and expects the
comparison to say what became dearer, and nothing else."""

import os
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import gates  # noqa: E402

BINARY = Path(os.environ["KVF_BINARY_DIR"])


class Gates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.store = gates.Store(cls.folder.name)
        cls.usual = {name: cls.costs(name, "") for name in ("line", "byte")}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def costs(cls, name, dearer):
        os.environ["DEARER"] = dearer
        return gates.costs(gates.ALL[name], BINARY, cls.store, "gate_dearer")

    def complaints(self, name, dearer):
        return gates.compare(name, self.usual[name], self.costs(name, dearer), True, set())

    def test_same_program_costs_the_same_again(self):
        self.assertEqual(self.complaints("line", ""), [])

    def test_line_dearer_by_five_percent_fails(self):
        more = round(self.usual["line"]["instructions"] * 0.05)
        [complaint] = self.complaints("line", f"instructions={more}")
        self.assertIn("dearer", complaint)

    def test_line_dearer_by_one_percent_is_within_the_room(self):
        more = round(self.usual["line"]["instructions"] * 0.01)
        self.assertEqual(self.complaints("line", f"instructions={more}"), [])

    def test_cheaper_byte_asks_for_a_lower_number(self):
        dear = self.costs("byte", "instructions=30")
        [complaint] = gates.compare("byte", dear, self.usual["byte"], True, set())
        self.assertIn("lower", complaint)

    def test_system_call_more_fails(self):
        complaints = self.complaints("line", "system-call")
        self.assertTrue(any("system calls of lseek: 4136, not 40" in c for c in complaints),
                        complaints)

    def test_allocation_more_fails(self):
        complaints = self.complaints("byte", "allocation")
        self.assertTrue(any("allocations: 40960, not 0" in c for c in complaints), complaints)

    def test_library_call_more_fails(self):
        complaints = self.complaints("byte", "library-call")
        self.assertTrue(any("library calls of getppid: 40960, not 0" in c for c in complaints),
                        complaints)

    def test_platform_call_more_fails(self):
        complaints = self.complaints("byte", "platform-call")
        self.assertTrue(any("platform calls of KciGetSessionId: 81920, not 40960" in c
                            for c in complaints), complaints)

    def test_instructions_of_another_compiler_are_not_compared(self):
        dear = self.costs("byte", "instructions=30")
        self.assertEqual(gates.compare("byte", self.usual["byte"], dear, False, set()), [])

    def test_item_without_a_number_fails(self):
        [complaint] = gates.compare("byte", None, self.usual["byte"], True, set())
        self.assertIn("no number", complaint)


if __name__ == "__main__":
    if not shutil.which("valgrind"):
        print("skipped: valgrind is not installed")
        sys.exit(gates.SKIPPED)
    unittest.main(verbosity=2)
