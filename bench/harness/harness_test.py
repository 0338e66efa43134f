#!/usr/bin/env python3
"""Tests of the benchmark's own reckoning: nothing here is timed."""

import hashlib
import sys
import tempfile
import unittest
import xml.dom.minidom
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from harness import callgrind, figures, measure, pictures, report, runner, shares  # noqa: E402
from harness.data import Store  # noqa: E402
from harness.model import Input, Target, Tools, Variant, Workload  # noqa: E402
from harness.workloads import STATEMENTS, WORKLOADS, lines_of  # noqa: E402


class Silent:
    def step(self, text):
        pass


class FakeLauncher:
    """Answers what each program is said to print."""

    def __init__(self, outputs):
        self.outputs = outputs

    def new_round(self):
        pass

    def run(self, command):
        return runner.Run(self.outputs[Path(command[0]).name], 1000, 0)


def workload_of(*names, **more):
    variants = tuple(Variant(name, name, name, "work", kind) for name, kind in names)
    return Workload("sample", "Sample", "line", "A sample.",
                    lambda store, items: Input(Path("/data"), 1, items),
                    variants, (Target("module", "floor", at_most=1.5),), 2, 2, 2, **more)


def tools_of(outputs):
    return Tools(Path("/programs"), Path("/peers"), {}, frozenset(), FakeLauncher(outputs))


BOTH = (("floor", "floor"), ("module", "module"))


class Figures(unittest.TestCase):
    def test_median_and_quartiles_are_interpolated(self):
        spread = figures.spread([4, 1, 3, 2])
        self.assertEqual((spread.low, spread.median, spread.high), (1.75, 2.5, 3.25))

    def test_ratios_are_taken_within_a_round(self):
        self.assertEqual(figures.ratios([2, 20, 200], [1, 10, 100]), figures.Spread(2, 2, 2))

    def test_verdict_is_by_the_median(self):
        self.assertEqual(figures.verdict(figures.Spread(1.2, 1.2, 1.21), at_most=1.2), "met")
        self.assertEqual(figures.verdict(figures.Spread(1.3, 1.3, 1.31), at_most=1.2), "missed")
        self.assertEqual(figures.verdict(figures.Spread(2.0, 2.0, 2.1), at_least=1.9), "met")
        self.assertEqual(figures.verdict(figures.Spread(1.8, 1.8, 1.9), at_least=1.9), "missed")

    def test_quartiles_far_apart_give_no_verdict(self):
        self.assertEqual(figures.verdict(figures.Spread(1.0, 0.9, 1.01), at_most=1.2), "noisy")


class Checking(unittest.TestCase):
    def check(self, outputs, **more):
        workload = workload_of(*BOTH, **more)
        return measure.check(workload, workload.variants, tools_of(outputs), None, Silent())

    def test_variants_that_deliver_the_same_pass(self):
        same = {"floor": b"a\x1eb\x1e", "module": b"a\x1eb\x1e"}
        self.assertEqual(self.check(same), 2)

    def test_other_content_fails(self):
        with self.assertRaisesRegex(runner.Failure, "not the same"):
            self.check({"floor": b"a\x1eb\x1e", "module": b"a\x1ec\x1e"})

    def test_other_items_of_the_same_content_fail(self):
        with self.assertRaisesRegex(runner.Failure, "not the same"):
            self.check({"floor": b"a\x1eb\x1e", "module": b"ab\x1e"})

    def test_order_counts_unless_it_is_free(self):
        turned = {"floor": b"a\x1eb\x1e", "module": b"b\x1ea\x1e"}
        with self.assertRaises(runner.Failure):
            self.check(turned)
        self.assertEqual(self.check(turned, unordered=True), 2)

    def test_timed_run_of_too_few_items_fails(self):
        outputs = {"floor": b"items=2 ns=100\n", "module": b"items=1 ns=100\n"}
        workload = workload_of(*BOTH, delivers="no")
        with self.assertRaisesRegex(runner.Failure, "module came to"):
            measure.measure(workload, 2, 1, tools_of(outputs), None, Silent())

    def test_timed_run_without_a_count_fails(self):
        outputs = {"floor": b"items=2 ns=100\n", "module": b"done\n"}
        workload = workload_of(*BOTH, delivers="no")
        with self.assertRaisesRegex(runner.Failure, "no count"):
            measure.measure(workload, 2, 1, tools_of(outputs), None, Silent())

    def test_absent_interpreter_is_named_as_skipped(self):
        workload = workload_of(*BOTH, ("lua", "peer"), delivers="no")
        outputs = {"floor": b"items=2 ns=100\n", "module": b"items=2 ns=150\n"}
        result = measure.measure(workload, 2, 3, tools_of(outputs), None, Silent())
        self.assertEqual(result["skipped"], ["lua"])
        self.assertEqual(result["variants"]["module"]["ns"], [75, 75, 75])
        [(_, figure, word)] = measure.judge(workload, result, set())
        self.assertEqual((figure.median, word), (1.5, "met"))
        self.assertIn("not installed: lua", report.workload_section(workload, result, set()))


class Launching(unittest.TestCase):
    def test_time_of_an_empty_run_is_subtracted(self):
        timed, empty = runner.Run(b"items=1", 5000, 0), runner.Run(b"", 2000, 0)
        self.assertEqual(runner.work_time(timed, empty), 3000)

    def test_programs_of_the_build_are_run_from_new_copies(self):
        with tempfile.TemporaryDirectory() as folder:
            build = Path(folder) / "build"
            build.mkdir()
            (build / "program").write_text("text")
            launcher = runner.Launcher(build, 0, Path(folder))
            self.assertEqual(launcher.placed("/bin/true"), "/bin/true")
            first = launcher.placed(build / "program")
            self.assertEqual(first.read_text(), "text")
            self.assertEqual(launcher.placed(build / "program"), first)
            (build / "program").write_text("other")
            launcher.new_round()
            self.assertFalse(first.exists())
            self.assertEqual(launcher.placed(build / "program").read_text(), "other")

    def test_own_measurement_comes_first(self):
        self.assertEqual(runner.work_time(runner.Run(b"items=1 ns=700", 5000, 0), None), 700)


CALLGRIND = """\
events: Ir sysCount sysTime
ob=(1) /bin/program
fl=(1) main.cc
fn=(1) main
10 5
fi=(2) inlined.h
3 7
fe=(1)
cob=(2) /lib/libc.so.6
cfi=(3) read.c
cfn=(2) read
calls=4 20
+1 900 4 100
ob=(2)
fl=(3)
fn=(2)
20 30 4 100
"""


class Callgrind(unittest.TestCase):
    def test_instructions_calls_and_system_calls_are_told_apart(self):
        profile = callgrind.parse(CALLGRIND)
        self.assertEqual(profile.instructions, {
            ("/bin/program", "main.cc", "main.cc", "main"): 5,
            ("/bin/program", "inlined.h", "main.cc", "main"): 7,
            ("/lib/libc.so.6", "read.c", "read.c", "read"): 30})
        self.assertEqual(profile.calls, {("/bin/program", "/lib/libc.so.6", "read"): 4})
        self.assertEqual(profile.system_calls, {"read": 4})

    def test_difference_leaves_what_is_more(self):
        longer = callgrind.parse(CALLGRIND.replace("10 5", "10 9"))
        difference = longer - callgrind.parse(CALLGRIND)
        self.assertEqual(list(difference.instructions.values()), [4])
        self.assertEqual(difference.calls, {})

    def test_file_belongs_to_the_part_of_its_longest_prefix(self):
        self.assertEqual(shares.part_of_file("/tree/src/record/registry.cc", "/tree"),
                         "finding the record")
        self.assertEqual(shares.part_of_file("/tree/src/record/reading.cc", "/tree"), "record")
        self.assertEqual(shares.part_of_file("/tree/build/../src/record/reading.cc", "/tree"),
                         "record")
        self.assertIsNone(shares.part_of_file("/usr/include/string.h", "/tree"))


class Reports(unittest.TestCase):
    def test_columns_line_up(self):
        lines = report.table(["a", "figure"], [["long name", "1"], ["b", "1,000"]]).splitlines()
        self.assertEqual(len({len(line) for line in lines}), 1)
        self.assertEqual(lines[2], "| long name |      1 |")

    def test_loss_is_told_with_its_reason(self):
        result = {"checked": 2, "skipped": [], "variants": {
            "floor": {"title": "floor", "kind": "floor", "ns": [10, 10]},
            "module": {"title": "module", "kind": "module", "ns": [20, 20]},
            "fast": {"title": "a fast one", "kind": "peer", "ns": [10, 10]},
            "other": {"title": "another", "kind": "peer", "ns": [5, 5]}}}
        workload = workload_of(*BOTH, losses={"fast": "it does less"})
        section = report.workload_section(workload, result, set())
        self.assertIn("- Slower than a fast one, 2.00 times: it does less.", section)
        self.assertIn("- Slower than another, 4.00 times: no reason is known", section)

    def test_pictures_are_well_formed(self):
        results = {"sample": {"variants": {
            "floor": {"title": "floor", "kind": "floor", "ns": [10, 10]},
            "module": {"title": "a < b", "kind": "module", "ns": [20, 30]}}}}
        xml.dom.minidom.parseString(pictures.dots([workload_of(*BOTH)], results))
        xml.dom.minidom.parseString(pictures.bars([
            {"label": "x", "unit": "line", "ns": 10.0, "instructions": 5,
             "parts": {"action": 6.0, "record": 4.0}}]))


class Tables(unittest.TestCase):
    """The workloads are data: names in them must name something."""

    def test_targets_and_losses_name_variants(self):
        for workload in WORKLOADS:
            names = [v.name for v in workload.variants]
            self.assertEqual(len(names), len(set(names)), workload.name)
            wanted = {workload.base, *workload.losses}
            for target in workload.targets:
                wanted |= {target.of} | ({target.to} if target.to else set())
                self.assertNotEqual(target.at_most is None, target.at_least is None)
            self.assertEqual(wanted - set(names), set(), workload.name)

    def test_profiled_workloads_are_there(self):
        known = {(w.name, v.name) for w in WORKLOADS for v in w.variants}
        self.assertEqual({(w, v) for w, v, _ in shares.PROFILED} - known, set())

    def test_every_language_has_its_statements(self):
        self.assertEqual(set(STATEMENTS), {"kvf", "python", "perl", "lua", "tcl"})


class Data(unittest.TestCase):
    def test_data_is_the_same_in_every_run(self):
        with tempfile.TemporaryDirectory() as folder:
            store = Store(folder)
            given = lines_of(40)(store, 10_000)
            content = given.path.read_bytes()
            self.assertEqual((len(content), content.count(b"\n")), (400_000, 10_000))
            self.assertEqual(hashlib.sha1(content).hexdigest(),
                             "2542c87d73ca126d1be5e4005bf38471efdb589c")
            store.remove()


if __name__ == "__main__":
    unittest.main(verbosity=2)
