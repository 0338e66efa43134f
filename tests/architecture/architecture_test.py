#!/usr/bin/env python3
"""Holds the shape of the module: what it exports, what it asks of others, how its files depend on
each other. Takes the source and the build folder from KVF_SOURCE_DIR and KVF_BINARY_DIR."""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402
from support.tree import PUBLIC, action_names, actions, c_functions, passive_actions  # noqa: E402

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])
CC, CXX = os.environ["KVF_CC"], os.environ["KVF_CXX"]
MODULE = SOURCE / "src"

# Each part of the tree, and the parts that its files may name in quotes: every path begins at the root
# of one of them.
ROOTS = {
    "src": ["src"],
    "standalone": ["standalone"],
    "tools": ["tools/kvf", "standalone"],
    "tests": ["tests", "src", "standalone", "tools/kvf", "tests/consumer/c_product"],
    "include": [],
}
MADE_BY_THE_BUILD = {"build_info.h", "action_docs.inc"}

C_LIBRARY = {
    "__assert_fail", "__errno_location", "_setjmp", "clearerr_unlocked", "fclose", "fflush", "fileno", "fsync", "fwrite",
    "isatty", "lseek", "lseek64", "memchr", "memcmp", "bcmp", "memcpy", "memmove", "memset", "printf",
    "rename", "snprintf", "stderr", "stdin", "stdout", "strchr", "strcmp", "strlen", "strstr",
}
ZLIB = {
    "gzopen", "gzprintf", "gzread", "gzgetc", "gzungetc", "gzwrite", "gzputc", "gzputs",
    "gzseek", "gztell", "gzflush", "gzclose", "gzerror", "gzclearerr",
    "gzdirect",
}
COMPILER = {"__cpu_model"}  # of the compiler's own library: what the processor can do


def sanitized():
    cache = (BINARY / "CMakeCache.txt").read_text()
    return bool(re.search(r"^KVFILE_SANITIZE:STRING=.+$", cache, re.M)) or (
        "KVFILE_COVERAGE:BOOL=ON" in cache)


def debug():
    return "CMAKE_BUILD_TYPE:STRING=Debug" in (BINARY / "CMakeCache.txt").read_text()


# An archive may hold two forms of its objects: nm shows what the linker optimises, where its plugin
# claims it, and machine code without a plugin.
FORMS = ([], ["--plugin=none"])
# What the linker's form calls its debug data: a file and a number, which is no name in a program.
DEBUG_DATA = re.compile(r"[\w.]+\.cc\.[0-9a-f]+")


def nm(*arguments):
    out = subprocess.run(["nm", *map(str, arguments)], check=True, capture_output=True, text=True)
    return {line.split()[-1].partition("@")[0] for line in out.stdout.splitlines()
            if len(line.split()) >= 2 and line.split()[-2] != "A"}  # A: the name of a version


def module_sources():
    return sorted(p for p in MODULE.rglob("*") if p.suffix in (".cc", ".h"))


def text_files():
    """All that is kept of the tree, in its own words; the inputs of fuzz targets are any bytes."""
    listed = subprocess.run(["git", "-C", SOURCE, "ls-files", ":!fuzz/corpus"],
                            capture_output=True, text=True)
    if listed.returncode == 0:
        return [SOURCE / name for name in listed.stdout.splitlines() if (SOURCE / name).is_file()]
    return [p for p in SOURCE.rglob("*") if p.is_file() and not re.match(
        r"(build|\.git|fuzz/corpus)", str(p.relative_to(SOURCE)))]


def sources():
    """Every file of C and C++."""
    return sorted(p for root in ROOTS for p in (SOURCE / root).rglob("*")
                  if p.suffix in (".c", ".cc", ".h", ".def"))


def public_headers():
    """As products include them."""
    return sorted(str(p.relative_to(PUBLIC)) for p in PUBLIC.rglob("*.h"))


def platform_functions():
    names = set()
    for header in (PUBLIC / "kvfile" / "platform").glob("*.h"):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        names |= set(re.findall(
            r"\b((?:Kci|Host|Utl|UnixIo|Ver|LrSup|LineRead|SysError)\w+)\(", text))
    return names


class Table(unittest.TestCase):
    def test_rows_are_named_once_and_count_their_parameters(self):
        rows = actions()
        self.assertGreater(len(rows), 1)
        self.assertEqual(len(action_names()), len(rows))
        for name, count, parameters in rows:
            self.assertEqual(int(count), len(parameters.split(",")), name)

    def test_every_action_is_called_by_a_test(self):
        """By a test that says what it expects of it: a name in a list is none."""
        tests = "".join(p.read_text() for p in (SOURCE / "tests").rglob("*_test.cc"))
        called = set(re.findall(r'\b(?:call|attempt|act|tryAct)\(\s*"(Kvf\w+)"', tests))
        called |= set(re.findall(r'\bexpectRaise\(\s*[^;"]*"(Kvf\w+)"', tests))
        for helper, action in re.findall(r'(\w+)\([^;{}]*\) \{[^{}]*\bcall\(\s*"(Kvf\w+)"', "".join(
                p.read_text() for p in (SOURCE / "tests").rglob("*.h"))):
            if re.search(rf"\b{helper}\(", tests):
                called.add(action)
        self.assertEqual(sorted(action_names() - called), [])

    def test_how_many_actions_there_are_is_written_nowhere(self):
        """The table tells; a number in a text goes stale with the next action."""
        whole, apart = len(actions()), len(passive_actions())
        counts = {whole, whole - apart, len(c_functions()), whole + len(c_functions())}
        words = {9: "nine", 44: "forty-four", 46: "forty-six", 55: "fifty-five"}
        numbers = "|".join([str(c) for c in counts] + [words[c] for c in counts if c in words])
        counted = re.compile(
            rf"(?<![\w.])({numbers})\s+(?:[\w-]+\s+){{0,2}}(actions?|C functions?|entry points|public names)\b",
            re.I)
        compared = re.compile(rf"(?:size\(\)|rows\)|names\)), ({numbers})U?\)")
        stale = [f"{p.relative_to(SOURCE)}: {match[0]}" for p in text_files()
                 if p.suffix in (".md", ".h", ".cc", ".c", ".py", ".def", ".txt", ".cmake", ".sh", "")
                 for pattern in (counted, compared) for match in pattern.finditer(p.read_text())]
        self.assertEqual(stale, [])


class Tests(unittest.TestCase):
    def test_every_folder_is_built(self):
        listed = (SOURCE / "tests" / "CMakeLists.txt").read_text()
        folders = {p.parent.name for p in (SOURCE / "tests").rglob("*_test.*")}
        self.assertEqual([f for f in sorted(folders) if not re.search(rf"\b{f}\b", listed)], [])

    def test_names_are_the_same_in_every_build(self):
        """A value in a name may be an address, or another one elsewhere."""
        shown = subprocess.run(["ctest", "-N"], cwd=BINARY, check=True, capture_output=True, text=True)
        names = re.findall(r"^ *Test +#\d+: (.*?)(?: \(Disabled\))?$", shown.stdout, re.M)
        self.assertGreater(len(names), 100)
        self.assertEqual([name for name in names if not re.fullmatch(r"[\w./-]+", name)], [])
        self.assertEqual(len(set(names)), len(names))


class Symbols(unittest.TestCase):
    def test_shared_library_exports_actions_and_entry_points_only(self):
        exported = nm("-D", "--defined-only", BINARY / "lib" / "libkvfile.so")
        self.assertEqual(exported, c_functions() | action_names())

    @unittest.skipIf(sanitized() or debug(), "templates of the standard library are not inlined")
    def test_archive_defines_public_names_and_its_namespace_only(self):
        """A product may have functions and variables of any other name."""
        for form in FORMS:
            with self.subTest(form=form):
                defined = nm("-g", "--defined-only", *form, BINARY / "lib" / "libkvfile.a")
                private = {name for name in defined
                           if re.match(r"_ZNK?3kvf", name) or DEBUG_DATA.fullmatch(name)}
                self.assertEqual(defined - private, c_functions() | action_names())

    @unittest.skipIf(sanitized(), "instrumentation adds symbols")
    def test_module_calls_only_its_platform(self):
        archive = BINARY / "lib" / "libkvfile.a"
        for form in FORMS:
            with self.subTest(form=form):
                defined = nm("--defined-only", *form, archive)
                foreign = nm("-u", *form, archive) - defined - {"_GLOBAL_OFFSET_TABLE_"}
                self.assertEqual(foreign - platform_functions() - C_LIBRARY - ZLIB - COMPILER, set())

    @unittest.skipIf(sanitized(), "instrumentation adds symbols")
    def test_no_frame_needs_unwinding(self):
        """Frames may be jumped over: none may hold what an unwinder would have to destroy."""
        undefined = nm("-u", "--plugin=none", BINARY / "lib" / "libkvfile.a")
        self.assertIn("KciRaiseException", undefined)
        self.assertEqual([s for s in undefined if "Unwind" in s or "personality" in s], [])


class Sources(unittest.TestCase):
    def include_graph(self):
        graph = {}
        for source in module_sources():
            included = re.findall(r'^#include "([^"]+)"', source.read_text(), re.M)
            targets = set()
            for name in included:
                candidate = (MODULE / name).resolve()
                self.assertTrue(candidate.is_file(), f"{source}: {name} is not named from src/")
                targets.add(candidate)
            graph[source.resolve()] = targets
        return graph

    def assert_no_cycle(self, graph):
        done, path = set(), []

        def visit(node):
            if node in path:
                self.fail("cycle: " + " -> ".join(map(str, path[path.index(node):] + [node])))
            if node in done:
                return
            path.append(node)
            for target in sorted(graph.get(node, ())):
                visit(target)
            path.pop()
            done.add(node)

        for node in sorted(graph):
            visit(node)

    def test_files_include_without_cycle(self):
        self.assert_no_cycle(self.include_graph())

    def test_folders_include_without_cycle(self):
        folders = {}
        for source, targets in self.include_graph().items():
            folders.setdefault(source.parent.name, set()).update(
                t.parent.name for t in targets if t.parent != source.parent)
        self.assert_no_cycle(folders)

    def test_public_headers_are_included_in_angle_brackets_and_others_from_the_root_of_their_part(self):
        wrong = []
        for source in sources():
            part = source.relative_to(SOURCE).parts[0]
            text = source.read_text()
            for name in re.findall(r'^\s*#\s*include "([^"]+)"', text, re.M):
                if name not in MADE_BY_THE_BUILD and not any(
                        (SOURCE / root / name).is_file() for root in ROOTS[part]):
                    wrong.append(f'{source.relative_to(SOURCE)}: "{name}"')
            for name in re.findall(r"^\s*#\s*include <([^>]+)>", text, re.M):
                if any((SOURCE / root / name).is_file() for root in ROOTS[part]):
                    if "consumer" not in source.parts:  # a product's own, which it finds as it likes
                        wrong.append(f"{source.relative_to(SOURCE)}: <{name}>")
        self.assertEqual(wrong, [])

    def test_every_file_begins_with_what_it_is_for(self):
        silent = []
        for path in text_files():
            lines = path.read_text().splitlines()[:2]
            if path.suffix in (".c", ".cc", ".h", ".def"):
                tells = re.match(r"(//|/\*) ?[A-Z`<]", lines[0])
                if path.suffix == ".cc" and path.with_suffix(".h").is_file():  # there it stands
                    tells = tells or re.fullmatch(rf'#include ".*\b{path.stem}\.h"', lines[0])
            elif path.suffix == ".py" or lines[:1] == ["#!/usr/bin/env python3"]:
                tells = any(line.startswith('"""') for line in lines)
            elif path.suffix in (".sh", ".cmake") or lines[:1] == ["#!/usr/bin/env bash"]:
                tells = any(re.match(r"# ?\S", line) for line in lines)
            else:
                continue
            if not tells:
                silent.append(str(path.relative_to(SOURCE)))
        self.assertEqual(silent, [])

    def test_each_failure_text_stands_in_one_place(self):
        texts = re.findall(r'TEXT_\w+\[\] =\s*"([^"]+)"',
                           (MODULE / "framework" / "texts.h").read_text())
        self.assertGreater(len(texts), 25)
        whole = "".join(p.read_text() for p in module_sources())
        for text in texts:
            if len(text) > 10:  # the short forms are patterns, which others may share
                self.assertEqual(len(re.findall(r"(?<!\w)" + re.escape(text), whole)), 1, text)

    def test_every_planted_fault_has_its_place(self):
        sys.path.insert(0, str(SOURCE / "tests" / "planted_faults"))
        import plant
        gone = [f"{file}: {text}" for file, text, _, _ in plant.FAULTS
                if (MODULE / file).read_text().count(text) != 1]
        self.assertEqual(gone, [])

    def test_module_neither_throws_nor_catches(self):
        for source in module_sources():
            code = re.sub(r"//.*|/\*.*?\*/", "", source.read_text())
            self.assertIsNone(re.search(r"\b(throw|catch|try)\b", code), source)


class Headers(unittest.TestCase):
    def test_guards_are_nobody_elses(self):
        for header in public_headers():
            guard = re.search(r"^#(?:ifndef (\w+)|pragma once)$", (PUBLIC / header).read_text(), re.M)
            self.assertTrue(guard[1] is None or guard[1].startswith("KVFILE_"), header)

    def compile(self, header, compiler, language, standard):
        with ScratchFolder() as folder:
            suffix = ".c" if language == "c" else ".cc"
            probe = Path(folder) / f"probe{suffix}"
            probe.write_text(f'#include <{header}>\n')
            subprocess.run(
                [compiler, f"-std={standard}", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                 "-fsyntax-only", "-I", str(PUBLIC), str(probe)],
                check=True, capture_output=True, text=True)

    def test_public_headers_compile_alone_as_c_and_as_cpp(self):
        for header in public_headers():
            if header == "kvfile/kvhost.h":  # the standalone host's is C++
                continue
            with self.subTest(header=header):
                self.compile(header, CC, "c", "c11")
                self.compile(header, CXX, "c++", "c++20")


if __name__ == "__main__":
    unittest.main(verbosity=2)
