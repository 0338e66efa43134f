#!/usr/bin/env python3
"""Builds products, in C and in C++, against the module in each way that a product can take it: as the
installed package found by CMake, through pkg-config, as a subdirectory of the product's own tree."""

import json
import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402

SOURCE = Path(os.environ["KVF_SOURCE_DIR"])
BINARY = Path(os.environ["KVF_BINARY_DIR"])
CC, CXX = os.environ["KVF_CC"], os.environ["KVF_CXX"]
HERE = Path(__file__).parent
VERSION = re.search(r'#define KVFILE_VERSION "([0-9.]+)"',
                    (SOURCE / "include" / "kvfile" / "kvfile.h").read_text())[1]
MAJOR = VERSION.partition(".")[0]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


class Project(unittest.TestCase):
    """A scratch folder, and what the products need there."""

    @classmethod
    def setUpClass(cls):
        scratch = ScratchFolder()
        cls.addClassCleanup(scratch.cleanup)
        cls.folder = Path(scratch.name)

    @classmethod
    def run_checked(cls, *command, **options):
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                              **options)
        if done.returncode != 0:
            raise AssertionError(f"{command} answered {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    @classmethod
    def configure(cls, source, build, *options, c=CC, cxx=CXX, **environment):
        cls.run_checked("cmake", "-G", "Ninja", "-S", source, "-B", build,
                        f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}", "--no-warn-unused-cli",
                        "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", *options,
                        env=dict(os.environ, **environment))

    @classmethod
    def build(cls, *arguments, c=CC, cxx=CXX, **environment):
        source, build, *options = arguments
        cls.configure(source, build, *options, c=c, cxx=cxx, **environment)
        cls.run_checked("cmake", "--build", build)

    def check_cpp_product(self, program, **environment):
        kept = self.folder / "kept.txt"
        kept.unlink(missing_ok=True)
        self.assertEqual(self.run_checked(program, kept, env=dict(os.environ, **environment)), "kept\n")
        self.assertEqual(kept.read_bytes(), b"kept\n")

    def needed(self, program):
        """The shared libraries that a program asks for."""
        return re.findall(r"\(NEEDED\).*\[(.*)\]", self.run_checked("readelf", "-d", program))

    def check_kinds(self, build, check):
        """Runs both programs of a product, and sees that each has the library that it asked for."""
        for kind, shares in (("kvfile", True), ("kvfile_static", False)):
            program = build / f"product_{kind}"
            with self.subTest(kind=kind):
                check(program)
                self.assertEqual(f"libkvfile.so.{MAJOR}" in self.needed(program), shares)


class Package(Project):
    """What was built, installed into an empty folder, which is then moved."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        first = cls.folder / "first"
        cls.run_checked("cmake", "--install", BINARY, "--prefix", first)
        cls.prefix = first.rename(cls.folder / "installed")
        cls.libraries = next(cls.prefix.rglob("libkvfile.a")).parent

    def test_c_product_finds_it(self):
        build = self.folder / "c"
        self.build(HERE / "c_product", build, f"-DCMAKE_PREFIX_PATH={self.prefix}", cxx="/no/such/c++")
        self.check_kinds(build, self.run_checked)

    def test_cpp_product_finds_it(self):
        build = self.folder / "cpp"
        self.build(HERE / "cpp_product", build, f"-DCMAKE_PREFIX_PATH={self.prefix}", c="/no/such/cc")
        self.check_kinds(build, self.check_cpp_product)

    def flags(self, package):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.libraries / "pkgconfig"))
        return self.run_checked("pkg-config", "--cflags", "--libs", package, env=environment).split()

    def test_c_product_links_with_the_flags_of_pkg_config(self):
        product = HERE / "c_product"
        sources = sorted((SOURCE / "tests" / "c_host").glob("*.c")) + [product / "own/own.c"]
        for package, shares in (("kvfile", True), ("kvfile-static", False)):
            with self.subTest(package=package):
                program = self.folder / package
                self.run_checked(CC, "-std=c11", *WARNINGS, "-I", SOURCE / "tests", "-I", product, "-I",
                                 product / "own", *sources, "-o", program, *self.flags(package),
                                 f"-Wl,-rpath,{self.libraries}")
                self.run_checked(program)
                self.assertEqual(f"libkvfile.so.{MAJOR}" in self.needed(program), shares)

    def test_cpp_product_links_with_the_flags_of_pkg_config(self):
        program = self.folder / "by_pkg_config"
        self.run_checked(CXX, "-std=c++17", *WARNINGS, HERE / "cpp_product/product.cc", "-o", program,
                         *self.flags("kvfile_standalone"))
        self.check_cpp_product(program)
        self.assertNotIn(f"libkvfile.so.{MAJOR}", self.needed(program))

    def optimised_at_link(self, *command):
        """Runs a command that links, and tells whether the linker was given what it optimised. Nobody
        has a warning to give."""
        done = subprocess.run([str(word) for word in (*command, "-Wl,--trace")], capture_output=True,
                              text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return ".ltrans" in done.stdout

    def test_archives_are_for_products_with_and_without_optimisation_at_link_time(self):
        cache = (BINARY / "CMakeCache.txt").read_text()
        both = "KVFILE_LTO:BOOL=ON" in cache and "clang" not in self.run_checked(CXX, "--version")
        for name in ("libkvfile.a", "libkvfile_standalone.a"):
            objects = self.run_checked("readelf", "-SW", self.libraries / name).split("\nFile: ")[1:]
            self.assertGreater(len(objects), 10)
            for sections in objects:
                self.assertRegex(sections, r" \.text")
                self.assertEqual(" .gnu.lto_.decls." in sections, both)
        product, cpp_product = HERE / "c_product", HERE / "cpp_product"
        sources = sorted((SOURCE / "tests" / "c_host").glob("*.c")) + [product / "own/own.c"]
        for flags, optimised in (["-fno-lto"], False), (["-flto=auto", "-O2"], True):
            with self.subTest(flags=flags):
                program = self.folder / f"c_optimised_{optimised}"
                self.assertEqual(self.optimised_at_link(
                    CC, "-std=c11", *flags, *WARNINGS, "-I", SOURCE / "tests", "-I", product, "-I",
                    product / "own", *sources, "-o", program, *self.flags("kvfile-static")),
                    optimised and both)
                self.run_checked(program)
                program = self.folder / f"cpp_optimised_{optimised}"
                self.assertEqual(self.optimised_at_link(
                    CXX, "-std=c++17", *flags, *WARNINGS, cpp_product / "product.cc", "-o", program,
                    *self.flags("kvfile_standalone")), optimised and both)
                self.check_cpp_product(program)

    def test_packages_tell_the_version(self):
        for package in ("kvfile", "kvfile-static", "kvfile_standalone"):
            told = self.run_checked("pkg-config", "--modversion", package, env=dict(
                os.environ, PKG_CONFIG_PATH=str(self.libraries / "pkgconfig")))
            self.assertEqual(told.strip(), VERSION)

    def test_include_path_holds_nothing_but_the_folder_of_the_module(self):
        self.assertEqual(os.listdir(self.prefix / "include"), ["kvfile"])
        headers = {str(p.relative_to(self.prefix)) for p in (self.prefix / "include").rglob("*.*")}
        self.assertEqual(headers, {str(p.relative_to(SOURCE)) for p in (SOURCE / "include").rglob("*.*")})

    def test_shared_library_carries_its_version_and_that_of_its_symbols(self):
        library = self.libraries / f"libkvfile.so.{VERSION}"
        self.assertTrue(library.is_file() and not library.is_symlink())
        for link in ("libkvfile.so", f"libkvfile.so.{MAJOR}"):
            self.assertEqual((self.libraries / link).resolve(), library.resolve())
        soname = re.findall(r"\(SONAME\).*\[(.*)\]", self.run_checked("readelf", "-d", library))
        self.assertEqual(soname, [f"libkvfile.so.{MAJOR}"])
        names = self.run_checked("nm", "-D", "--defined-only", library).split()
        symbols = {name for name in names if name.startswith("Kv")}
        self.assertGreater(len(symbols), 1)
        self.assertEqual({s.partition("@")[2] for s in symbols}, {f"@KVFILE_{MAJOR}"})

    def test_shell_tells_its_version(self):
        self.assertIn(VERSION, self.run_checked(self.prefix / "bin" / "kvf", "--version"))


class ModuleAlone(Project):
    """The module without the standalone host, by one who has no C compiler and flags of his own."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.alone = cls.folder / "alone"
        cls.build(SOURCE, cls.alone, "-DKVFILE_STANDALONE=OFF", "-DKVFILE_SHELL=OFF",
                  "-DKVFILE_TESTS=OFF", "-DCMAKE_CXX_FLAGS_RELEASE=-O0 -DGIVEN_BY_OPTION",
                  CXXFLAGS="-DGIVEN_BY_ENVIRONMENT", c="/no/such/cc")
        cls.prefix = cls.folder / "installed"
        cls.run_checked("cmake", "--install", cls.alone, "--prefix", cls.prefix)

    def test_keeps_the_flags_that_its_user_gave(self):
        commands = json.loads((self.alone / "compile_commands.json").read_text())
        self.assertGreater(len(commands), 1)
        for entry in commands:
            words = entry["command"].split()
            self.assertIn("-DGIVEN_BY_ENVIRONMENT", words)
            self.assertIn("-DGIVEN_BY_OPTION", words)
            self.assertEqual([word for word in words if word.startswith("-O")], ["-O0"])

    def test_needs_neither_the_standalone_host_nor_what_that_needs(self):
        cache = (self.alone / "CMakeCache.txt").read_text()
        self.assertEqual(re.findall(r"^(?:absl|fmt|CLI11|GTest|rapidcheck|Python3?)\w*", cache, re.M), [])
        self.assertEqual([p.name for p in self.prefix.rglob("*") if "standalone" in p.name.lower()], [])

    def test_c_product_finds_it(self):
        build = self.folder / "c"
        self.build(HERE / "c_product", build, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.check_kinds(build, self.run_checked)

    def test_package_says_that_it_has_no_standalone_host(self):
        with self.assertRaisesRegex(AssertionError, "without the standalone host"):
            self.configure(HERE / "cpp_product", self.folder / "cpp",
                           f"-DCMAKE_PREFIX_PATH={self.prefix}")


class Subdirectory(Project):
    """The module built along with a product, in the product's own way."""

    def test_c_product_builds_it_along(self):
        build = self.folder / "c"
        self.build(HERE / "c_product", build, f"-DKVFILE_TREE={SOURCE}", "-DCMAKE_BUILD_TYPE=Debug",
                   CXXFLAGS="-O0")
        self.check_kinds(build, self.run_checked)
        self.assertEqual([p.name for p in build.rglob("*standalone*.a")], [])

    def test_cpp_product_builds_it_and_the_standalone_host_along(self):
        build = self.folder / "cpp"
        self.build(HERE / "cpp_product", build, f"-DKVFILE_TREE={SOURCE}", "-DCMAKE_BUILD_TYPE=Debug",
                   CXXFLAGS="-O0")
        self.check_kinds(build, self.check_cpp_product)
        paths = {path for entry in json.loads((build / "compile_commands.json").read_text())
                 if entry["file"].endswith("product.cc")
                 for path in re.findall(r"-(?:I|isystem) ?(\S+)", entry["command"])}
        self.assertEqual(paths, {str(SOURCE / "include")})

    def test_is_not_installed_with_the_product(self):
        """Unless the product asks for it with KVFILE_INSTALL."""
        build = self.folder / "uninstalled"
        self.configure(HERE / "c_product", build, f"-DKVFILE_TREE={SOURCE}")
        prefix = self.folder / "product"
        self.run_checked("cmake", "--install", build, "--prefix", prefix)
        self.assertEqual([p for p in prefix.rglob("*") if p.is_file()] if prefix.exists() else [], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
