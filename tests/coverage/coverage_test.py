#!/usr/bin/env python3
"""That the coverage gate closes: a small program is measured as the module is, with and without what
would reach all of it, and with exclusions that are right and wrong."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import coverage  # noqa: E402

SOURCE = """\
int both(int a, int b) {
  if (a > 0 && b > 0) {
    return 1;
  }
  return 0;
}
"""

# Calls it with each two of its arguments.
PROGRAM = """\
#include <cstdlib>
int both(int a, int b);
int main(int count, char** words) {
  for (int i = 2; i < count; i += 2) both(std::atoi(words[i - 1]), std::atoi(words[i]));
}
"""

CLANG = [str(Path(__file__).with_name("compile.sh")), "clang++-19", "-O0", "-fprofile-instr-generate",
         "-fcoverage-mapping", "-fcoverage-mcdc"]

ALL = "1 1 0 1 1 0"  # what reaches everything


def exclude(**fields):
    return coverage.Exclusion(**{"file": "both.cc", "reason": "a test", **fields})


class Gate(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory(prefix="kvf-coverage-")
        cls.folder = Path(cls.scratch.name)
        cls.source = cls.folder / "src"
        cls.source.mkdir()
        (cls.source / "both.cc").write_text(SOURCE)
        (cls.folder / "main.cc").write_text(PROGRAM)
        for words in (["g++", "-c", "-O0", "--coverage", "src/both.cc", "-o", "both.o"],
                      ["g++", "--coverage", "main.cc", "both.o", "-o", "gcov"],
                      [*CLANG, "-c", "src/both.cc", "-o", "clang.o"],
                      [*CLANG, "main.cc", "clang.o", "-o", "clang"]):
            subprocess.run(words, cwd=cls.folder, check=True)

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def evaluate(self, words, *exclusions):
        """The figures, and what is wrong, where the program is run with these words."""
        for old in [*self.folder.glob("*.gcda"), *self.folder.glob("*.profraw")]:
            old.unlink()
        for program in ("gcov", "clang"):
            subprocess.run([self.folder / program, *words.split()], check=True, cwd=self.folder,
                           env=dict(os.environ, LLVM_PROFILE_FILE="%m.profraw"))
        reached = coverage.Reached(self.source)
        for report in coverage.gcov_reports(self.folder):
            reached.add_gcov(report)
        reached.add_llvm(coverage.llvm_report(self.folder, [self.folder / "clang"]))
        return coverage.evaluate(reached, exclusions)

    def test_opens_where_all_is_reached(self):
        self.assertEqual(self.evaluate(ALL), (
            "Coverage: 4 of 4 lines, 4 of 4 branches, 2 of 2 conditions; 0 exclusions (0 places)", []))

    def test_closes_for_a_line_that_was_not_reached(self):
        figures, wrong = self.evaluate("0 1 1 0")
        self.assertIn("3 of 4 lines, 3 of 4 branches, 0 of 2 conditions", figures)
        self.assertIn("both.cc:3: line never reached: return 1;", wrong)

    def test_closes_for_a_branch_that_was_not_taken(self):
        figures, wrong = self.evaluate("1 1 0 1")
        self.assertIn("4 of 4 lines, 3 of 4 branches, 1 of 2 conditions", figures)
        self.assertEqual(wrong, [
            "both.cc:2: branch never taken: if (a > 0 && b > 0) {",
            "both.cc:2: condition never decided by itself: if (a > 0 && b > 0) {"])

    def test_closes_for_a_program_that_was_not_run(self):
        figures, wrong = self.evaluate("")
        self.assertIn("0 of 4 lines, 0 of 4 branches, 0 of 2 conditions", figures)
        self.assertEqual(len(wrong), 10)

    def test_opens_for_what_is_excluded_and_counts_it(self):
        figures, wrong = self.evaluate("1 1 0 1", exclude(line="if (a > 0 && b > 0) {"))
        self.assertEqual(wrong, [])
        self.assertIn("4 of 4 lines, 3 of 3 branches, 1 of 1 conditions; 1 exclusions (2 places)",
                      figures)
        self.assertEqual(self.evaluate("0 1 1 0", exclude())[1], [])

    def test_excludes_one_kind_alone_where_it_is_named(self):
        wrong = self.evaluate("1 1 0 1", exclude(line="if (a > 0 && b > 0) {", kind="branch"))[1]
        self.assertEqual(wrong,
                         ["both.cc:2: condition never decided by itself: if (a > 0 && b > 0) {"])

    def test_closes_for_an_exclusion_that_is_not_needed_any_more(self):
        for each in (exclude(), exclude(line="return 1;"), exclude(line="return 1;", kind="line")):
            self.assertEqual(self.evaluate(ALL, each)[1],
                             [f"the exclusion is not needed any more: {each}"])

    def test_closes_for_an_exclusion_that_matches_no_line(self):
        for each in (exclude(line="return 2;"), exclude(file="gone.cc"), exclude(line="")):
            self.assertEqual(self.evaluate(ALL, each)[1], [f"the exclusion matches 0 lines: {each}"])

    def test_closes_for_an_exclusion_that_could_mean_two_lines(self):
        each = exclude(line="}")
        self.assertEqual(self.evaluate(ALL, each)[1], [f"the exclusion matches 2 lines: {each}"])

    def test_closes_where_nothing_was_measured(self):
        self.assertEqual(coverage.evaluate(coverage.Reached(self.source), [])[1],
                         [f"no {kind} was measured" for kind in coverage.KINDS])

    def test_closes_for_a_source_that_one_of_the_two_has_not_seen(self):
        reached = coverage.Reached(self.source)
        for report in coverage.gcov_reports(self.folder):
            reached.add_gcov(report)
        self.assertIn("both.cc: clang has not seen it", coverage.evaluate(reached, [])[1])

    def test_counts_an_exclusion_only_on_the_processors_that_it_is_for(self):
        text = '[[exclusion]]\nfile = "a.cc"\nunless = "avx9"\nreason = "r"\n'
        self.assertEqual(coverage.read_exclusions(text, {"avx2"}),
                         [coverage.Exclusion(file="a.cc", reason="r", unless="avx9")])
        self.assertEqual(coverage.read_exclusions(text, {"avx2", "avx9"}), [])

    def test_takes_no_exclusion_without_a_reason_or_of_another_kind(self):
        for text in ('file = "a.cc"\nreason = " "', 'file = "a.cc"\nreason = "r"\nkind = "word"'):
            with self.assertRaises(coverage.Failure):
                coverage.read_exclusions(f"[[exclusion]]\n{text}\n", set())

    def test_does_not_compile_a_decision_that_would_not_be_measured(self):
        source = self.folder / "nested.cc"
        source.write_text("bool f(bool);\nbool g(bool a, bool b, bool c) { return a && f(b && c); }\n")
        done = subprocess.run([*CLANG, "-c", source, "-o", self.folder / "nested.o"],
                              capture_output=True, text=True)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("unsupported MC/DC boolean expression", done.stderr)


if __name__ == "__main__":
    unittest.main()
