#!/usr/bin/env python3
"""Holds the "Host calls" of the reference to what actions really call: the examples and the cases of
call_cases.py run under the trace. A call that the action's paragraph does not name is a fault, and
so is a function that a paragraph names and no case reaches.

Takes the source folder from KVF_SOURCE_DIR and the program from KVF_MARKED."""

import concurrent.futures
import os
import pathlib
import re
import sys
import unittest

SOURCE = pathlib.Path(os.environ["KVF_SOURCE_DIR"])
PROGRAM = os.environ["KVF_MARKED"]
sys.dont_write_bytecode = True  # the source folder stays as it is
sys.path += [str(SOURCE / "tools" / "docgen"), str(pathlib.Path(__file__).parent)]

import call_cases  # noqa: E402
import docgen  # noqa: E402
import action_trace  # noqa: E402

# What no case can reach, and why.
ONLY_ELSEWHERE = {
    "KvfLockQuery": {
        "lseek": "this host tells where a lock begins from the start of the file",
        "UnixIoFstat": "this host tells where a lock begins from the start of the file",
    },
}


def seam_functions():
    """The names of the calls that a trace can show."""
    rows = (SOURCE / "standalone" / "seam" / "functions.def").read_text()
    named = re.findall(r"^SEAM_(?:CALL|CALL_VIA|INNER|VARIADIC)\((\w+),", rows, re.M)
    return set(named)


class Reference:
    """The host calls that the comments of the module name."""

    def __init__(self):
        self.known = seam_functions()
        problems = []
        self.actions = docgen.read_table(SOURCE)
        docgen.read_sources(SOURCE / "src", self.actions, problems)
        self.shared = docgen.read_shared(SOURCE / "src")

    def named_in(self, text):
        return {word for word in re.findall(r"\w+", text) if word in self.known}

    def text_of(self, name):
        """The host calls of an action, or of what actions share."""
        return self.shared.get(name) or self.actions[name].paragraphs[docgen.HOST_CALLS]

    def parts_of(self, name):
        """What actions share that an action's paragraph stands for."""
        parts = docgen.all_shared_in(self.actions[name], self.shared)
        return parts + [docgen.RAISE] * self.actions[name].raises

    def allowed(self, name):
        texts = [self.text_of(each) for each in [name, *self.parts_of(name)]]
        return set().union(*map(self.named_in, texts))


def transcripts():
    documents = [*sorted((SOURCE / "examples").iterdir()), SOURCE / "README.md",
                 SOURCE / "docs" / "kvf.md"]
    return [call_cases.Transcript(path.name, path) for path in documents]


def observe(cases, seen):
    """Adds to {action: {function: name of the first case that shows the call}}."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        traces = pool.map(lambda case: action_trace.trace_of(PROGRAM, case), cases)
        for case, text in zip(cases, traces):
            for action, calls in action_trace.calls_by_action(text):
                for function in calls:
                    seen.setdefault(action, {}).setdefault(function, case.name)


def observe_all():
    seen = {}
    observe(transcripts() + call_cases.CASES, seen)
    observe(call_cases.failing(set().union(*seen.values())), seen)
    return seen


class HostCalls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.reference = Reference()
        cls.seen = observe_all()

    def test_every_action_is_called(self):
        self.assertEqual(sorted(set(self.reference.actions) - set(self.seen)), [])

    def test_every_call_is_named_by_its_action(self):
        unnamed = [f"{action}: {function} (in {case})"
                   for action in self.reference.actions
                   for function, case in self.seen.get(action, {}).items()
                   if function not in self.reference.allowed(action)]
        self.assertEqual(unnamed, [])

    def unseen(self, name, functions):
        missing = self.reference.named_in(self.reference.text_of(name)) - functions
        return [f"{name}: {function}" for function in sorted(missing)
                if function not in ONLY_ELSEWHERE.get(name, {})]

    def test_every_function_that_an_action_names_is_called_by_it(self):
        missing = []
        for action in self.reference.actions:
            missing += self.unseen(action, set(self.seen.get(action, {})))
        self.assertEqual(missing, [])

    def callers_of(self, shared_name):
        return [a for a in self.reference.actions if shared_name in self.reference.parts_of(a)]

    def test_every_function_that_actions_share_is_called_by_one_of_them(self):
        missing = []
        for name in self.reference.shared:
            calls = [set(self.seen.get(action, {})) for action in self.callers_of(name)]
            missing += self.unseen(name, set().union(*calls))
        self.assertEqual(missing, [])

    def test_what_cannot_be_reached_is_named_and_not_reached(self):
        for action, functions in ONLY_ELSEWHERE.items():
            for function in functions:
                self.assertIn(function, self.reference.named_in(self.reference.text_of(action)))
                self.assertNotIn(function, self.seen[action])

    def test_no_paragraph_names_an_unknown_function(self):
        looks_like_one = re.compile(
            r"\b(?:(?:Kci|Host|Utl|UnixIo|Ver|SysError|LrSup|LineRead)\w+|gz\w+)\b")
        for name in [*self.reference.actions, *self.reference.shared]:
            words = set(looks_like_one.findall(self.reference.text_of(name)))
            self.assertEqual(words - self.reference.known, set(), name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
