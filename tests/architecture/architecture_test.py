#!/usr/bin/env python3
"""Holds the shape of the module: what it exports, what it asks of others, how its files depend on
each other. Takes the source and the build folder from KVF_SOURCE_DIR and KVF_BINARY_DIR."""

import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])
MODULE = SOURCE / "src"
PUBLIC = SOURCE / "include"

ENTRY_POINTS = {
    "KvfUserActionInit", "KvfPassiveObjActionInit", "KvfStartup", "KvfShutdown", "KvFileWrite",
    "KvFileRead", "KvFileFetchErrorString", "KvFileSetLineReader", "KvFileShutdownLineReader",
}
C_LIBRARY = {
    "__assert_fail", "__errno_location", "_setjmp", "clearerr_unlocked", "fclose", "fflush", "fileno", "fsync", "fwrite",
    "isatty", "lseek", "lseek64", "memchr", "memcmp", "bcmp", "memcpy", "memmove", "memset", "printf",
    "rename", "snprintf", "stderr", "stdin", "stdout", "strchr", "strcmp", "strlen", "strstr",
}
ZLIB = {
    "gzopen", "gzopen64", "gzprintf", "gzread", "gzgetc", "gzungetc", "gzwrite", "gzputc", "gzputs",
    "gzseek", "gzseek64", "gztell", "gztell64", "gzflush", "gzclose", "gzerror", "gzclearerr",
    "gzdirect",
}


def sanitized():
    cache = (BINARY / "CMakeCache.txt").read_text()
    return bool(re.search(r"^KVFILE_SANITIZE:STRING=.+$", cache, re.M)) or (
        "KVFILE_COVERAGE:BOOL=ON" in cache)


def debug():
    return "CMAKE_BUILD_TYPE:STRING=Debug" in (BINARY / "CMakeCache.txt").read_text()


def nm(*arguments):
    out = subprocess.run(["nm", *map(str, arguments)], check=True, capture_output=True, text=True)
    return {line.split()[-1].partition("@")[0] for line in out.stdout.splitlines()
            if len(line.split()) >= 2 and line.split()[-2] != "A"}  # A: the name of a version


def actions():
    table = (PUBLIC / "kvfile" / "action_table.def").read_text()
    return re.findall(r"^KVF_(?:PASSIVE_)?ACTION\((Kvf\w+), (\d+), \(([^)]*)\)", table, re.M)


def module_sources():
    return sorted(p for p in MODULE.rglob("*") if p.suffix in (".cc", ".h"))


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
    def test_has_all_actions_with_their_counts(self):
        rows = actions()
        self.assertEqual(len(rows), 46)
        self.assertEqual(len({name for name, _, _ in rows}), 46)
        for name, count, parameters in rows:
            self.assertEqual(int(count), len(parameters.split(",")), name)

    def test_every_action_has_a_test(self):
        tests = "".join(p.read_text() for p in (SOURCE / "tests").rglob("*_test.cc"))
        untested = [name for name, _, _ in actions() if f'"{name}"' not in tests]
        self.assertEqual(untested, [])

    def test_every_folder_of_tests_is_built(self):
        listed = (SOURCE / "tests" / "CMakeLists.txt").read_text()
        folders = {p.parent.name for p in (SOURCE / "tests").rglob("*_test.*")}
        self.assertEqual([f for f in sorted(folders) if not re.search(rf"\b{f}\b", listed)], [])


class Symbols(unittest.TestCase):
    def test_shared_library_exports_actions_and_entry_points_only(self):
        exported = nm("-D", "--defined-only", BINARY / "lib" / "libkvfile.so")
        self.assertEqual(exported, ENTRY_POINTS | {name for name, _, _ in actions()})

    @unittest.skipIf(sanitized() or debug(), "templates of the standard library are not inlined")
    def test_archive_defines_public_names_and_its_namespace_only(self):
        """A product may have functions and variables of any other name."""
        defined = nm("-g", "--defined-only", BINARY / "lib" / "libkvfile.a")
        private = {name for name in defined if re.match(r"_ZNK?3kvf", name)}
        self.assertEqual(defined - private, ENTRY_POINTS | {name for name, _, _ in actions()})

    @unittest.skipIf(sanitized(), "instrumentation adds symbols")
    def test_module_calls_only_its_platform(self):
        archive = BINARY / "lib" / "libkvfile.a"
        undefined = {
            line.split()[-1].partition("@")[0]
            for line in subprocess.run(["nm", "-u", archive], check=True, capture_output=True,
                                       text=True).stdout.splitlines() if " U " in line}
        defined = nm("--defined-only", archive)
        foreign = undefined - defined - {"_GLOBAL_OFFSET_TABLE_"}
        self.assertEqual(foreign - platform_functions() - C_LIBRARY - ZLIB, set())

    @unittest.skipIf(sanitized(), "instrumentation adds symbols")
    def test_no_frame_needs_unwinding(self):
        """Frames may be jumped over: none may hold what an unwinder would have to destroy."""
        undefined = nm("-u", BINARY / "lib" / "libkvfile.a")
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

    def test_each_failure_text_stands_in_one_place(self):
        texts = re.findall(r'TEXT_\w+\[\] =\s*"([^"]+)"',
                           (MODULE / "framework" / "texts.h").read_text())
        self.assertGreater(len(texts), 25)
        whole = "".join(p.read_text() for p in module_sources())
        for text in texts:
            if len(text) > 10:  # the short forms are patterns, which others may share
                self.assertEqual(len(re.findall(r"(?<!\w)" + re.escape(text), whole)), 1, text)

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
        with tempfile.TemporaryDirectory() as folder:
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
                for c, cpp in (("gcc", "g++"), ("clang-14", "clang++-14")):
                    self.compile(header, c, "c", "c11")
                    self.compile(header, cpp, "c++", "c++20")


if __name__ == "__main__":
    unittest.main(verbosity=2)
