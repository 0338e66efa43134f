#!/usr/bin/env python3
"""Tests of the kvf program from outside. The program's path is $KVF or the first argument."""

import gzip
import os
import pathlib
import pty
import re
import resource
import select
import signal
import subprocess
import sys
import time
import unittest
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from support.scratch import ScratchFolder  # noqa: E402
from support.tree import action_names, c_functions  # noqa: E402

KVF = os.environ.get("KVF", "")
PATIENCE = 300  # seconds, for a machine with much else to do


class CommandLineTest(unittest.TestCase):
    """Each test has a directory of its own."""

    def setUp(self):
        self.folder = ScratchFolder()
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name)

    def kvf(self, *arguments, stdin="", environment=None):
        return subprocess.run([KVF, *arguments], input=stdin, cwd=self.path, capture_output=True,
                              text=True, timeout=PATIENCE, check=False,
                              env={**os.environ, **(environment or {})})

    def write(self, name, text):
        (self.path / name).write_text(text, encoding="utf-8")
        return name

    def test_help_and_version_succeed(self):
        result = self.kvf("--help")
        self.assertEqual(result.returncode, 0)
        for word in ("run", "check", "actions", "help", "--keep-going", "--trace", "--fault"):
            self.assertIn(word, result.stdout)
        result = self.kvf("--version")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"^kvf \d+\.\d+\.\d+\n$")

    def test_wrong_usage_is_2(self):
        for arguments in (["--nonsense"], ["run"], ["check"], ["help"], ["help", "Nothing"],
                          ["--fault", "nonsense", "-e", "1"], ["--color", "mauve", "-e", "1"],
                          ["run", "missing.kvf"], ["check", "missing.md"], ["-e", "1 )"],
                          ["-e", "1", "actions"]):
            result = self.kvf(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertNotEqual(result.stderr, "", arguments)
            self.assertEqual(result.stdout, "", arguments)

    def test_an_unreadable_file_is_named(self):
        (self.path / "folder").mkdir()
        result = self.kvf("run", "folder")
        self.assertEqual(result.returncode, 2)
        self.assertEqual(result.stderr, "kvf: folder: Is a directory\n")

    def test_every_script_is_read_before_the_first_runs(self):
        result = self.kvf("run", self.write("a.kvf", "1"), "missing.kvf")
        self.assertEqual((result.returncode, result.stdout), (2, ""))

    def test_code_on_the_command_line_shares_a_workspace(self):
        result = self.kvf("-e", "a := 3", "-e", "a + 4")
        self.assertEqual((result.returncode, result.stdout), (0, "3\n7\n"))

    def test_standard_input_is_a_script(self):
        result = self.kvf(stdin="1 + 1\n'x' , 'y'")
        self.assertEqual((result.returncode, result.stdout), (0, "2\n'xy'\n"))
        result = self.kvf("run", self.write("a.kvf", "b := 1"), "-", stdin="b + 1")
        self.assertEqual(result.stdout, "1\n2\n")

    def test_standard_input_is_at_its_end_for_actions_while_it_is_a_script(self):
        result = self.kvf(stdin="f := KvFile new\nKvfCreateStdFile(f, 0)\n"
                                "KvfGetLine(f, nil, 1, 10, nil)\n'still run'")
        self.assertEqual(result.stdout, "aKvFile#1\n1\nnil\n'still run'\n")

    def test_code_leaves_standard_input_to_the_actions(self):
        code = "f := KvFile new. KvfCreateStdFile(f, 0). KvfGetLine(f, nil, 1, 10, nil)"
        self.assertTrue(self.kvf("-e", code, stdin="typed\n").stdout.endswith("e'typed\\n'\n"))

    def test_a_script_stops_at_the_first_error_unless_told_otherwise(self):
        script = self.write("a.kvf", "1\nKvfClose(KvFile new)\n  3 foo\n2\n")
        result = self.kvf("run", script)
        self.assertEqual((result.returncode, result.stdout), (1, "1\n"))
        self.assertEqual(result.stderr, "a.kvf:2:1: error 2364 (file object is not registered in "
                                        "this session), not fatal, arguments: aKvFile#1\n")
        result = self.kvf("--keep-going", "run", script)
        self.assertEqual((result.returncode, result.stdout), (1, "1\n2\n"))
        self.assertIn("a.kvf:3:5: error: SmallInteger does not understand #foo", result.stderr)

    def test_a_syntax_error_is_met_where_it_stands_unless_the_script_is_checked_first(self):
        script = self.write("a.kvf", "1\nx := #[1 300]\n3")
        wrong = ("syntax error: a.kvf:2:10: an integer of 0 to 255 or ']' expected\n"
                 "  x := #[1 300]\n           ^\n")
        for option, printed in (("--keep-going", "1\n"), ("--check-first", "")):
            result = self.kvf("run", option, script)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (2, printed, wrong))
        for code in ("1\n2 )", "1. 2 )"):
            self.assertEqual(self.kvf("-e", code).stdout, "", "a text that is there is checked")
        result = self.kvf("--check-first", stdin="1\n2 )")
        self.assertEqual((result.returncode, result.stdout), (2, ""))

    def test_an_error_far_into_a_script_shows_its_place(self):
        long = "y := 'x'. " * 30000
        script = self.write("a.kvf", long + "\n" + long + "3 )\n")
        result = self.kvf("-q", "run", script)
        self.assertEqual(result.stderr, f"syntax error: a.kvf:2:{len(long) + 3}: a message, a period "
                         "or the end of the line expected, not ')'\n  ..." + (long + "3 ")[-60:] +
                         ")\n  " + " " * 63 + "^\n")
        script = self.write("b.kvf", "'" + "z" * 200000 + "\n" * 300 + "' size\n3 foo")
        result = self.kvf("run", script)
        self.assertEqual((result.returncode, result.stdout), (1, "200300\n"))
        self.assertEqual(result.stderr, "b.kvf:302:3: error: SmallInteger does not understand #foo\n")

    def test_statements_run_as_they_are_read(self):
        with subprocess.Popen([KVF], cwd=self.path, text=True, bufsize=1, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as process:
            for number in range(3):
                process.stdin.write(f"{number} + 100\n")
                self.assertEqual(process.stdout.readline(), f"{number + 100}\n")
            process.stdin.write("(3 +\n4)\n")
            self.assertEqual(process.stdout.readline(), "7\n")
            process.stdin.close()
            self.assertEqual(process.wait(PATIENCE), 0)

    def test_memory_does_not_grow_with_the_script(self):
        def peak(count):
            lines = "\n".join(f"x := {i} + 4. y := [x]. z := 'text {i}'" for i in range(count))
            script = self.write("a.kvf", lines + "\nSmalltalk system: "
                                "'grep VmHWM /proc/$PPID/status >&2'\n")
            # A sanitizer keeps what was freed for a while.
            environment = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"}
            result = self.kvf("-q", "run", script, environment=environment)
            return int(re.search(r"(\d+) kB", result.stderr)[1])
        small = peak(1000)
        self.assertLess(peak(100000), small + 16000)

    def test_a_script_leaves_the_low_descriptors_to_its_files(self):
        code = "f := KvFile new. KvfOpen(f, 'x', 'w', false). KvfGetFileDesc(f) printNl\n"
        alone = self.kvf("-q", "-e", code).stdout
        script = self.write("a.kvf", code + "\"" + "x" * 200000 + "\"")
        self.assertEqual(self.kvf("-q", "run", script).stdout, alone)
        self.assertEqual(self.kvf("-q", stdin=code).stdout, alone)

    def test_quiet_prints_only_what_is_asked_for(self):
        self.assertEqual(self.kvf("-q", "-e", "1. 2 printNl. 3").stdout, "2\n")

    def test_options_may_stand_behind_the_command(self):
        result = self.kvf("run", "-q", self.write("a.kvf", "1 + 1. 7 printNl"))
        self.assertEqual((result.returncode, result.stdout), (0, "7\n"))

    def test_quit_chooses_the_exit_code(self):
        result = self.kvf("-e", "1. Smalltalk quit: 5. 2")
        self.assertEqual((result.returncode, result.stdout), (5, "1\n"))

    def test_colours_obey_the_option_and_the_environment(self):
        self.assertNotIn("\033", self.kvf("-e", "3 foo").stderr)
        self.assertIn("\033[31m", self.kvf("--color=always", "-e", "3 foo").stderr)
        self.assertNotIn("\033", self.kvf("--color=never", "-e", "3 foo").stderr)

    def test_long_answers_are_not_cut_off_a_terminal(self):
        result = self.kvf("-e", "String new: 5000 withAll: $x")
        self.assertEqual(len(result.stdout), 5003)

    def test_actions_and_help_describe_the_table(self):
        listing = self.kvf("actions")
        self.assertEqual(listing.returncode, 0)
        rows = [line for line in listing.stdout.splitlines() if re.match(r"Kvf?\w+\(", line)]
        self.assertEqual(sorted(row.partition("(")[0] for row in rows),
                         sorted(action_names() | c_functions()))
        self.assertEqual(rows[0].split("(")[0], "KvfRename")
        result = self.kvf("help", "KvfSeek")
        self.assertEqual(result.returncode, 0)
        self.assertTrue(result.stdout.startswith("KvfSeek(oFile, oPosition, oKind)\n"))
        self.assertIn("Answers: ", result.stdout)

    def test_trace_prints_the_calls_of_the_module(self):
        result = self.kvf("--trace", "-e", "KvfSize(KvFile, 'nothing')")
        self.assertEqual(result.stdout, "-1\n")
        self.assertRegex(result.stderr, r'(?m)^ *\d+  HostFileExistSize\("nothing", .* us$')

    def test_faults_befall_the_calls_they_name(self):
        result = self.kvf("--fault", "HostOpenFile:2:EACCES", "-e",
                          "KvfOpen(KvFile new, 'x', 'w', false). KvfOpen(KvFile new, 'x', 'r', "
                          "false). KvfErrorCode(nil)")
        self.assertEqual(result.stdout, "1\nnil\n13\n")

    def test_the_trace_names_the_interface_s_own_error_and_no_older_errno(self):
        code = ("f := KvFile new. KvfSize(KvFile, 'nothing'). KvfOpen(f, 'x', 'w', false). "
                "KvfWrite(f, 'abc', 1, 0). KvfWrite(f, #(1 2), 1, 2). KvfPrintBytes(f, #(1 2))")
        trace = self.kvf("--trace", "-k", "-e", code).stderr
        self.assertIn("= 0 ENOENT (No such file or directory)", trace)
        failed = r"KciFetchBytes_\(\S+ 1, ptr, 2\) = {} error 2102 \(.* does not hold bytes\)  "
        self.assertRegex(trace, failed.format(0))
        self.assertRegex(trace, failed.format("jumped"))
        self.assertEqual(re.findall(r"Kci\w+\(.*\) = \S+ E[A-Z]+", trace), [])

    def test_a_fault_that_never_came_to_pass_is_reported(self):
        faults = ["--fault", "HostOpenFile:2:EACCES", "--fault", "HostOpenFile:1:EIO",
                  "--fault", "gzopen:1+:nomem"]
        code = "KvfOpen(KvFile new, 'x', 'w', false)"
        lost = ("kvf: the fault HostOpenFile:2:EACCES never came to pass; 1 call counted for it\n"
                "kvf: the fault gzopen:1+:nomem never came to pass; 0 calls counted for it\n")
        result = self.kvf(*faults, "-e", code)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "nil\n", lost))
        self.write("a.md", f"```kvf\n> {code}\nnil\n```\n```kvf fresh\n> 3\n3\n```\n")
        result = self.kvf(*faults, "check", "a.md")
        self.assertEqual((result.returncode, result.stderr), (0, lost))

    def test_the_names_for_faults_can_be_listed(self):
        result = self.kvf("--fault", "list")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        lines = {line.split()[0]: line.split()[1:] for line in result.stdout.splitlines()}
        self.assertEqual(lines["HostOpenFile"], ["ERRNO", "result=0", "nomem"])
        self.assertEqual(lines["HostReadFile_"], ["ERRNO", "short=N", "result=N", "interrupt"])
        self.assertNotIn("UtlFree", lines)
        for name, actions in lines.items():
            for action in actions:
                action = action.replace("ERRNO", "EIO").replace("N", "7")
                self.assertEqual(self.kvf("--fault", f"{name}:1:{action}", "-e", "1").returncode, 0)

    def test_the_deliberate_fault_is_contained(self):
        result = self.kvf("-k", "-e", "Smalltalk testPointerFaults: true. "
                          "KvfTestClientHandler(KvFile). KvfTestClientHandler(KvFile). 3 + 4. "
                          "Smalltalk testPointerFaults: false. KvfTestClientHandler(KvFile)")
        self.assertEqual((result.returncode, result.stdout), (1, "true\n7\nfalse\nnil\n"))
        self.assertEqual(result.stderr.count("the fault was contained"), 2)

    def test_descriptors_are_the_same_after_a_script(self):
        result = self.kvf("-q", "-e", "before := Smalltalk openDescriptors. 50 timesRepeat: "
                          "[f := KvFile new. KvfOpen(f, 'x', 'w', false)]. f := nil. "
                          "(Smalltalk openDescriptors - before) printNl")
        self.assertEqual(result.stdout, "0\n")

    def test_check_accepts_what_agrees(self):
        self.write("a.kvt", "> 3 + 4\n7\n> Smalltalk processId\n...\n> 'a' printNl\n'a'\n'a'\n")
        result = self.kvf("check", "a.kvt")
        self.assertEqual((result.returncode, result.stdout),
                         (0, "a.kvt: 3 exchanges, all as expected\n"))

    def test_check_shows_what_differs(self):
        self.write("a.md", "# Title\n\n```kvf\n> 3 + 4\n8\n> 1\n1\n```\n")
        result = self.kvf("check", "a.md")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "--- a.md\n+++ a.md (replayed)\n@@ -4,2 +4,2 @@\n > 3 + 4\n"
                                        "-8\n+7\na.md: 2 exchanges, with differences\n")

    def test_check_gives_each_file_a_fresh_workspace(self):
        self.write("a.kvt", "> x := 1. Session current\n1\n1\n"
                            "> KvfOpen(KvFile new, 'made', 'w', false)\n1\n")
        self.write("b.kvt", "> x\nerror: there is no variable or class 'x'\n> Session current\n1\n"
                            "> KvfSize(KvFile, 'made')\n-1\n")
        result = self.kvf("check", "a.kvt", "b.kvt")
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertFalse((self.path / "made").exists())

    def test_check_leaves_no_directory_behind(self):
        self.write("a.kvt", "> KvfOpen(KvFile new, 'x', 'w', false)\n1\n")
        temporary = self.path / "tmp"
        temporary.mkdir()
        self.kvf("check", "a.kvt", environment={"TMPDIR": str(temporary)})
        self.assertEqual(list(temporary.iterdir()), [])

    def test_check_stops_a_transcript_after_its_time(self):
        self.write("a.md", "```kvf\n> 3 + 4\n8\n> [true] whileTrue\n```\n```kvf fresh\n> 1\n2\n```\n")
        result = self.kvf("check", "--timeout", "4.5", "a.md")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "--- a.md\n+++ a.md (replayed)\n@@ -2,2 +2,2 @@\n > 3 + 4\n"
                         "-8\n+7\nthe replay was stopped after 4.5 seconds in the statements at "
                         "line 4\na.md: 3 exchanges, with differences\n")
        self.write("b.kvt", "> Smalltalk sleep: 600\n...\n")
        self.assertEqual(self.kvf("check", "--timeout", "0", "b.kvt").returncode, 0)
        self.assertEqual(self.kvf("check", "--timeout", "-1", "b.kvt").returncode, 2)

    def test_check_names_the_statements_at_which_a_replay_crashed(self):
        self.write("a.kvt", "> 3\n3\n> Smalltalk system: 'kill -SEGV $PPID'\n")
        result = self.kvf("check", "a.kvt")
        self.assertEqual(result.returncode, 1)
        self.assertIn("ended by signal 11 in the statements at line 3\n", result.stdout)

    def test_a_replay_ends_with_its_parent_and_its_directory_is_removed(self):
        temporary = self.path / "tmp"
        temporary.mkdir()
        pipe = self.path / "pipe"
        os.mkfifo(pipe)
        self.write("a.kvt", f"> f := KvFile new. KvfOpen(f, '{pipe}', 'w', false). "
                            f"KvfOpen(KvFile new, 'x', 'w', false). Smalltalk system: 'exec 3>{pipe}; echo >&3; sleep 600'\n")
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            reader = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
            self.addCleanup(os.close, reader)
            process = subprocess.Popen([KVF, "check", "a.kvt"], cwd=self.path,
                                       env={**os.environ, "TMPDIR": str(temporary)})
            self.assertTrue(select.select([reader], [], [], PATIENCE)[0], "nothing was replayed")
            self.assertEqual(os.read(reader, 1), b"\n")
            self.assertEqual(len(list(temporary.iterdir())), 1)
            process.send_signal(number)
            self.assertEqual(process.wait(PATIENCE), -number)
            # Once nobody has the pipe open, the replay and the command that it ran are gone.
            self.assertTrue(select.select([reader], [], [], PATIENCE)[0], "the replay goes on")
            self.assertEqual(os.read(reader, 1), b"")
            end = time.monotonic() + PATIENCE
            while list(temporary.iterdir()) and time.monotonic() < end:
                time.sleep(0.01)
            self.assertEqual(list(temporary.iterdir()), [], number)

    def test_check_refuses_what_is_no_transcript(self):
        self.write("a.kvt", "7\n> 3 + 4\n")
        result = self.kvf("check", "a.kvt")
        self.assertEqual(result.returncode, 2)
        self.assertEqual(result.stderr, "kvf: a.kvt:1: an answer before any statement\n")
        self.write("empty.md", "no block\n")
        self.assertEqual(self.kvf("check", "empty.md").returncode, 2)

    def test_an_unwritable_standard_output_is_reported(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run([KVF, "-e", "3"], stdout=full, stderr=subprocess.PIPE, text=True,
                                    stdin=subprocess.DEVNULL, timeout=PATIENCE, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn("standard output cannot be written", result.stderr)

    def test_help_that_cannot_be_written_is_no_success(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            for option in ("--help", "--version"):
                self.assertEqual(subprocess.run([KVF, option], stdout=full, timeout=PATIENCE,
                                                stderr=subprocess.DEVNULL, check=False).returncode,
                                 1, option)

    def test_a_command_line_error_names_the_program_and_a_way_on(self):
        result = self.kvf("script.kvf")
        self.assertEqual(result.returncode, 2)
        self.assertTrue(result.stderr.startswith("kvf: "), result.stderr)
        self.assertIn("kvf run FILE", result.stderr)

    def test_no_file_takes_the_place_of_a_closed_standard_descriptor(self):
        code = "f := KvFile new. KvfOpen(f, 'made', 'w', false). 'hello' displayNl"
        for redirection in ("<&-", ">&-", "2>&-", "<&- >&- 2>&-"):
            result = subprocess.run(["sh", "-c", f'exec "$0" -e "$1" {redirection}', KVF, code],
                                    cwd=self.path, capture_output=True, timeout=PATIENCE, check=False)
            self.assertEqual(result.returncode, 1 if ">&-" in redirection.split("2>&-")[0] else 0)
            self.assertEqual((self.path / "made").read_bytes(), b"", redirection)

    def test_a_reader_that_goes_ends_an_endless_script(self):
        command = '"$0" -e "[true] whileTrue: [3 printNl]" | head -n 1; echo ${PIPESTATUS[0]}'
        result = subprocess.run(["bash", "-c", command, KVF], cwd=self.path, capture_output=True,
                                text=True, timeout=PATIENCE, check=False)
        self.assertEqual((result.stdout, result.stderr), ("3\n141\n", ""))

    def test_a_write_to_a_pipe_without_a_reader_is_an_error_of_the_file(self):
        os.mkfifo(self.path / "pipe")
        code = ("f := KvFile new. KvfOpen(f, 'pipe', 'w', false). "
                "Smalltalk system: 'read line'. KvfWrite(f, 'abc', 1, 3). KvfErrorCode(f)")
        reader = os.open(self.path / "pipe", os.O_RDONLY | os.O_NONBLOCK)
        process = subprocess.Popen([KVF, "-e", code], cwd=self.path, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        while process.stdout.readline() != "1\n":
            pass
        os.close(reader)
        output = process.communicate("go on\n", timeout=PATIENCE)[0]
        self.assertEqual((process.returncode, output), (0, "0\nnil\n32\n"))

    def test_a_file_can_be_a_program(self):
        script = self.path / "program"
        script.write_text(f"#!/usr/bin/env -S {KVF} run\n3 + 4\n", encoding="utf-8")
        script.chmod(0o755)
        result = subprocess.run([script], capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual((result.returncode, result.stdout), (0, "7\n"))


def is_sanitized():
    """Sanitizers reserve more addresses than a limit may allow, and slow everything down."""
    cache = pathlib.Path(os.environ.get("KVF_BINARY_DIR", ".")) / "CMakeCache.txt"
    return cache.exists() and re.search(r"^KVFILE_SANITIZE:STRING=.+$", cache.read_text(), re.M)


class HostTest(unittest.TestCase):
    """Errors, files and time of the host that kvf runs in."""

    def setUp(self):
        folder = ScratchFolder()
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name)

    def kvf(self, *arguments, limits=()):
        def limit():
            for kind, value in limits:
                resource.setrlimit(kind, (value, value))
        return subprocess.run([KVF, *arguments], cwd=self.path, capture_output=True, text=True,
                              timeout=PATIENCE, check=False, preexec_fn=limit)

    def seconds(self, *arguments):
        """The processor time that a successful run takes."""
        before = os.times()
        result = self.kvf(*arguments)
        after = os.times()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return after.children_user + after.children_system - (
            before.children_user + before.children_system)

    @unittest.skipIf(is_sanitized(), "the address space is limited")
    def test_a_line_that_memory_is_too_short_for_is_an_error(self):
        with open(self.path / "large", "wb") as file:
            file.truncate(1 << 30)
        code = "KvfOpen(f := KvFile new, 'large', 'r', false). l := KvfGetLine(f, nil, 1, 10, nil)"
        result = self.kvf("-q", "-e", code, limits=[(resource.RLIMIT_AS, 600000 << 10)])
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("2110", result.stderr)
        self.assertIn("there is no memory", result.stderr)

    def test_an_interface_error_that_the_action_does_not_ask_about_is_shown(self):
        code = "KvfOpen(f := KvFile new, 'out', 'w', false). KvfWrite(f, #(1 2), 1, 2)"
        result = self.kvf("-e", code)
        self.assertEqual((result.returncode, result.stdout), (1, "1\n"))
        self.assertIn("error 2102", result.stderr)
        self.assertIn("does not hold bytes", result.stderr)

    def test_a_failed_store_shows_no_byte_of_old_memory(self):
        (self.path / "in").write_text("new " * 30 + "\n")
        code = ("500 timesRepeat: ['old' , (String new: 118 withAll: 120)]. "
                "Smalltalk collectGarbage. l := nil. KvfOpen(f := KvFile new, 'in', 'r', false). "
                "l := KvfGetLine(f, nil, 1, 10, nil)")
        result = self.kvf("-k", "--fault", "KciStoreBytesInstanceOf:1:raise=2710",
                          "-e", code, "-e", "l")
        self.assertEqual(result.returncode, 1)
        self.assertIn("error 2710", result.stderr)
        self.assertNotIn("xxx", result.stdout)
        self.assertTrue(result.stdout.endswith("\nnil\n"), result.stdout)

    def test_a_file_that_grows_beyond_its_limit_is_an_error_of_the_write(self):
        code = ("KvfOpen(f := KvFile new, 'out', 'w', false). "
                "KvfWrite(f, (String new: 3000 withAll: 65), 1, 3000). KvfErrorCode(f)")
        result = self.kvf("-e", code, limits=[(resource.RLIMIT_FSIZE, 1000)])
        self.assertEqual((result.returncode, result.stdout), (0, "1\nnil\n27\n"))

    def test_a_dropped_file_is_closed_at_the_next_statement_however_many_objects_live(self):
        code = ("a := Array new: 150000. i := 0. "
                "150000 timesRepeat: [i := i + 1. a at: i put: 'text' , '.']. n := 0. "
                "KvfOpen(f := KvFile new, 'out', 'w', false). n := Smalltalk openDescriptors. "
                "f := nil. (n - Smalltalk openDescriptors) printNl. "
                "a at: 7 put: (f := KvFile new). KvfOpen(f, 'out', 'w', false). f := nil. "
                "n := Smalltalk openDescriptors. a at: 7 put: nil. "
                "(n - Smalltalk openDescriptors) printNl. "
                "KvfOpen(KvFile new, 'out', 'w', false). "
                "(n - Smalltalk openDescriptors) printNl")
        self.assertEqual(self.kvf("-q", "-e", code).stdout, "1\n1\n1\n")

    def test_files_dropped_in_a_loop_do_not_use_up_the_descriptors(self):
        code = "3000 timesRepeat: [KvfOpen(KvFile new, 'out', 'w', false) == 1 ifFalse: [1 / 0]]"
        result = self.kvf("-q", "-e", code, limits=[(resource.RLIMIT_NOFILE, 1024)])
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    @unittest.skipIf(is_sanitized(), "time is measured")
    def test_a_statement_costs_no_more_while_many_objects_live(self):
        objects = ("KvfOpen(f := KvFile new, 'out', 'w', false). i := 0. a := Array new: 90000. "
                   "90000 timesRepeat: [i := i + 1. a at: i put: 'text' , '.']. ")
        statements = "i := i + 1. s := 'text'. " * 5000
        extra = self.seconds("-q", "-e", objects + statements) - self.seconds("-q", "-e", objects)
        self.assertLess(extra, 1.0)  # 10,000 collections of so many objects take 3 seconds

    @unittest.skipIf(is_sanitized(), "time is measured")
    def test_the_cost_of_a_kept_file_object_does_not_grow_with_their_number(self):
        def cost(count):
            return self.seconds("-q", "-e", f"a := Array new: {count}. i := 0. {count} timesRepeat: "
                                "[i := i + 1. a at: i put: KvFile new]")
        self.assertLess(cost(400000), 8 * (cost(100000) + 0.01))


class Terminal:
    """kvf on a pseudo-terminal."""

    def __init__(self, folder, *arguments, **changes):
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            environment = {**os.environ, "TERM": "vt100", "XDG_STATE_HOME": str(folder / "state"),
                           "NO_COLOR": "1", **changes}
            os.execve(KVF, [KVF, *arguments], environment)
        self.seen = ""

    def expect(self, text, seconds=PATIENCE):
        """Reads until `text` has appeared; answers what came up to its end."""
        end = time.monotonic() + seconds
        while text not in self.seen:
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.descriptor], [], [], left)[0]:
                raise AssertionError(f"no {text!r} in {self.seen!r}")
            try:
                piece = os.read(self.descriptor, 4096)
            except OSError:
                piece = b""
            if not piece:
                raise AssertionError(f"the end before {text!r} in {self.seen!r}")
            self.seen += piece.decode("utf-8", "replace")
        index = self.seen.index(text) + len(text)
        before, self.seen = self.seen[:index], self.seen[index:]
        return before

    def send(self, text):
        os.write(self.descriptor, text.encode())

    def wait_until_it_waits(self):
        """Until the process sleeps, and so is where it can be interrupted."""
        end = time.monotonic() + PATIENCE
        while pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()[0] != "S":
            if time.monotonic() > end:
                raise AssertionError("it never waited")
            time.sleep(0.01)

    def exit_code(self):
        """Reads to the end and waits."""
        while True:
            try:
                if not os.read(self.descriptor, 4096):
                    break
            except OSError:
                break
        status = os.waitpid(self.pid, 0)[1]
        os.close(self.descriptor)
        return os.waitstatus_to_exitcode(status)

    def close(self):
        self.send("\x04")
        return self.exit_code()


class InteractiveTest(unittest.TestCase):

    def setUp(self):
        self.folder = ScratchFolder()
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name)

    def start(self, *arguments, **changes):
        terminal = Terminal(self.path, *arguments, **changes)
        terminal.expect("kvf> ")
        return terminal

    def test_statements_errors_and_the_end(self):
        terminal = self.start()
        terminal.send("3 + 4\r")
        terminal.expect("\n7\r\n")
        terminal.expect("kvf> ")
        terminal.send("KvfClose(KvFile new)\r")
        terminal.expect("error 2364 (file object is not registered")
        terminal.expect("kvf> ")
        terminal.send("1 )\r")
        terminal.expect("syntax error: input:1:3:")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_open_brackets_continue_on_the_next_line(self):
        terminal = self.start()
        terminal.send("(3 +\r")
        terminal.expect("...> ")
        terminal.send("4)\r")
        terminal.expect("\n7\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_history_is_kept_between_runs(self):
        terminal = self.start()
        terminal.send("'kept' , 'line'\r")
        terminal.expect("'keptline'")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)
        self.assertTrue((self.path / "state/kvf/history").exists())
        terminal = self.start()
        terminal.send("\x10\r")
        terminal.expect("'keptline'")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_history_survives_a_shell_that_is_killed(self):
        for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGKILL):
            terminal = self.start()
            terminal.send(f"'by ' , '{number.name}'\r")
            terminal.expect(f"'by {number.name}'")
            terminal.expect("kvf> ")
            os.kill(terminal.pid, number)
            self.assertEqual(terminal.exit_code(), -number)
        lines = (self.path / "state/kvf/history").read_text(encoding="utf-8").splitlines()
        self.assertEqual(lines, ["_HiStOrY_V2_", "'by\\040'\\040,\\040'SIGHUP'",
                                 "'by\\040'\\040,\\040'SIGTERM'", "'by\\040'\\040,\\040'SIGKILL'"])
        terminal = self.start()
        terminal.send("\x10\x10\r")
        terminal.expect("\n'by SIGTERM'\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_two_shells_at_once_keep_the_lines_of_both(self):
        both = [self.start(), self.start()]
        for number in range(6):
            both[number % 2].send(f"{number} + 100\r")
            both[number % 2].expect(f"\n{number + 100}\r\n")
            both[number % 2].expect("kvf> ")
        for terminal in both:
            self.assertEqual(terminal.close(), 0)
        lines = (self.path / "state/kvf/history").read_text(encoding="utf-8").splitlines()
        self.assertEqual(lines[1:], [f"{number}\\040+\\040100" for number in range(6)])

    def test_tab_completes_names_and_paths(self):
        (self.path / "unusual-name.txt").write_text("x", encoding="utf-8")
        terminal = self.start()
        terminal.send("KvfSi\tKvFile, 'unus\t')\r")
        terminal.expect("\n1\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_clears_the_line(self):
        terminal = self.start()
        terminal.send("3 foo")
        terminal.expect("3 foo")
        terminal.send("\x03")
        terminal.expect("kvf> ")
        terminal.send("5 + 5\r")
        terminal.expect("\n10\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_text_typed_behind_ctrl_c_is_kept(self):
        terminal = self.start()
        for number in range(20):
            terminal.send(f"{number} foo\x03{number} + 100\r")
            shown = terminal.expect(f"\n{number + 100}\r\n")
            self.assertNotIn("error", shown)
            terminal.expect("kvf> ")
        terminal.send("'looping' displayNl. [true] whileTrue\r")
        terminal.expect("\nlooping\r\n")
        terminal.send("\x037 + 200\r")
        terminal.expect("interrupted")
        terminal.expect("\n207\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_a_terminal_of_unknown_type_gets_no_escapes(self):
        terminal = self.start(TERM="no-such-type", NO_COLOR="")
        terminal.send("3 foo\r")
        shown = terminal.expect("does not understand #foo")
        terminal.send("KvfSi\t\x01'\x05\x7f\x7f\x10\r")
        shown += terminal.expect("does not understand #foo")
        shown += terminal.expect("kvf> ")
        self.assertNotIn("\033", shown)
        self.assertEqual(terminal.close(), 0)
        terminal = self.start(TERM="xterm", NO_COLOR="")
        terminal.send("3 foo\r")
        terminal.expect("\033[31m")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_interrupts_a_read_of_the_terminal(self):
        terminal = self.start()
        terminal.send("f := KvFile new. KvfCreateStdFile(f, 0)\r")
        terminal.expect("\n1\r\n")
        terminal.expect("kvf> ")
        terminal.send("KvfGetLine(f, nil, 1, 10, 'name? ')\r")
        terminal.expect("\nname? ")
        terminal.send("\x03")
        terminal.expect("-2\r\n")
        terminal.expect("kvf> ")
        terminal.send("KvfGetLine(f, nil, 1, 10, 'name? ')\r")
        terminal.expect("\nname? ")
        terminal.send("typed\r")
        terminal.expect("e'typed\\n'")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_interrupts_a_read_of_a_pipe(self):
        os.mkfifo(self.path / "pipe")
        keeper = os.open(self.path / "pipe", os.O_RDWR)
        self.addCleanup(os.close, keeper)
        terminal = self.start()
        terminal.send("f := KvFile new. KvfOpen(f, 'pipe', 'r', false)\r")
        terminal.expect("\n1\r\n")
        terminal.expect("kvf> ")
        terminal.send("'reading' displayNl. KvfGetC(f)\r")
        terminal.expect("\nreading\r\n")
        terminal.wait_until_it_waits()
        terminal.send("\x03")
        terminal.expect("-2\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_fails_the_read_of_a_gzip_file_until_it_is_opened_again(self):
        def answers(statement, pattern):
            terminal.send(statement + "\r")
            self.assertRegex(terminal.expect("kvf> "), f"\n{pattern}\r\n")
        os.mkfifo(self.path / "pipe")
        keeper = os.open(self.path / "pipe", os.O_RDWR)
        packer = zlib.compressobj(wbits=31)
        os.write(keeper, packer.compress(b"one\ntwo\n") + packer.flush(zlib.Z_SYNC_FLUSH))
        terminal = self.start()
        answers("f := KvFile new. KvfOpen(f, 'pipe', 'r', true)", "1")
        terminal.send("'reading' displayNl. KvfGetLine(f, nil, 1, 10, nil)\r")
        terminal.expect("\nreading\r\n")
        terminal.wait_until_it_waits()
        terminal.send("\x03")
        terminal.expect("nil\r\n")
        terminal.expect("kvf> ")
        answers("KvfErrorCode(f)", "[45]")
        # The rest of the file is there, and would be read without the bytes that were dropped.
        os.write(keeper, packer.compress(b"three\n") + packer.flush())
        for read in ("KvfGetLine(f, nil, 1, 10, nil)", "KvfGetC(f)", "KvfRead(f, String new, 1, 3)"):
            answers(read, "nil")
            answers("KvfErrorCode(f)", "[45]")
        answers("3 + 4", "7")
        os.close(keeper)
        os.unlink(self.path / "pipe")
        (self.path / "pipe").write_bytes(gzip.compress(b"one\ntwo\nthree\n"))
        answers("KvfOpen(f, 'pipe', 'r', true)", "2")
        for line in ("one", "two", "three"):
            answers("KvfGetLine(f, nil, 1, 10, nil)", f"e'{line}\\\\n'")
        answers("KvfAtEnd(f)", "true")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_ends_the_wait_for_the_other_end_of_a_pipe(self):
        os.mkfifo(self.path / "pipe")
        terminal = self.start()
        for compressed in ("false", "true"):
            terminal.send("'opening' displayNl. KvfOpen(KvFile new, 'pipe', 'r', "
                          f"{compressed})\r")
            terminal.expect("\nopening\r\n")
            terminal.wait_until_it_waits()
            terminal.send("\x03")
            terminal.expect("nil\r\n")
            terminal.expect("kvf> ")
            terminal.send("KvfErrorString(nil)\r")
            terminal.expect("EINTR")
            terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_ctrl_c_stops_a_loop(self):
        terminal = self.start()
        terminal.send("'looping' displayNl. [true] whileTrue\r")
        terminal.expect("\nlooping\r\n")
        terminal.send("\x03")
        terminal.expect("interrupted")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_long_answers_are_cut(self):
        terminal = self.start()
        terminal.send("String new: 5000 withAll: $x\r")
        terminal.expect("(1000 of 5002 bytes shown)")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_long_errors_are_cut(self):
        terminal = self.start()
        terminal.send("KvfSize(KvFile, (String new: 5000 withAll: $x))\r")
        terminal.expect("bytes shown)\r\n")
        terminal.expect("kvf> ")
        self.assertEqual(terminal.close(), 0)

    def test_quit_leaves_with_its_code(self):
        terminal = self.start()
        terminal.send("Smalltalk quit: 7\r")
        self.assertEqual(terminal.exit_code(), 7)

    def test_a_script_on_a_terminal_dies_of_ctrl_c(self):
        terminal = Terminal(self.path, "-e", "'on' displayNl. [true] whileTrue")
        terminal.expect("on\r\n")
        terminal.send("\x03")
        self.assertEqual(terminal.exit_code(), -signal.SIGINT)


if __name__ == "__main__":
    if not KVF and len(sys.argv) > 1 and not sys.argv[1].startswith("-"):
        KVF = sys.argv.pop(1)
    if not KVF:
        sys.exit("cli_test.py: set KVF or give the path of kvf")
    KVF = os.path.abspath(KVF)
    unittest.main()
