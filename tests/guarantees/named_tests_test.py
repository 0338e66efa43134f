#!/usr/bin/env python3
"""Holds docs/guarantees.md to the tests that it names: each one exists, and no promise stands without
one, or without the word that there is none. Takes the source and the build folder from KVF_SOURCE_DIR
and KVF_BINARY_DIR."""

import os
import re
import subprocess
import unittest
from pathlib import Path

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])
DOCUMENT = SOURCE / "docs" / "guarantees.md"

UNTESTED = "no test"
LAST_COLUMN = "held by"


def existing():
    shown = subprocess.run(["ctest", "-N"], cwd=BINARY, check=True, capture_output=True, text=True)
    return set(re.findall(r"^ *Test +#\d+: (.*?)(?: \(Disabled\))?$", shown.stdout, re.M))


def named(text):
    """Whatever stands in backquotes and has a dot in it is the name of a test."""
    return re.findall(r"`(\w+(?:\.[\w/]+)+)`", text)


def tables(text):
    """Each table as its rows of cells, the heading first."""
    found = re.findall(r"^\|.*\|\n\|[-| ]+\|\n(?:\|.*\|\n)+", text, re.M)
    return [[[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()
             if not re.fullmatch(r"[-| ]+", line)] for table in found]


def faults(text, tests):
    """What is wrong with the document, in words."""
    wrong = [f"no such test: {name}" for name in named(text) if name not in tests]
    for heading, *rows in tables(text):
        if heading[-1] != LAST_COLUMN:
            wrong.append(f"a table whose last column is {heading[-1]!r}")
            continue
        for row in rows:
            if len(row) != len(heading):
                wrong.append(f"a row of {len(row)} cells: {row[0]}")
            elif not named(row[-1]) and not row[-1].startswith(UNTESTED):
                wrong.append(f"held by nothing: {row[0]}")
    return wrong


class Guarantees(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = DOCUMENT.read_text(encoding="utf-8")
        cls.tests = existing()

    def test_every_promise_names_tests_that_exist(self):
        self.assertGreater(len(tables(self.text)), 5)
        self.assertGreater(len(set(named(self.text))), 80)
        self.assertEqual(faults(self.text, self.tests), [])

    def test_a_name_that_is_none_would_be_found(self):
        for name in set(named(self.text)):
            changed = self.text.replace(f"`{name}`", f"`{name}x`")
            self.assertIn(f"no such test: {name}x", faults(changed, self.tests))

    def test_a_promise_without_a_test_would_be_found(self):
        for table in tables(self.text):
            for row in table[1:]:
                changed = self.text.replace(f"| {row[-1]} |", "| |")
                self.assertIn(f"held by nothing: {row[0]}", faults(changed, self.tests))

    def test_every_test_of_its_folder_is_named(self):
        """Tests that were written for the document and that it does not name are promises forgotten."""
        own = {name for name in self.tests if name.startswith("guarantees.")} - {
            "guarantees.named_tests"}
        self.assertGreater(len(own), 40)
        self.assertEqual(sorted(own - set(named(self.text))), [])

    def test_the_readme_leads_to_it(self):
        self.assertIn("(docs/guarantees.md)", (SOURCE / "README.md").read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
