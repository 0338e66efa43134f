"""The workloads: what is compared with what, and the targets that are set. Figures of targets are
ratios within one run, unless they are nanoseconds."""

from harness.model import Input, Target, Variant, Workload

EOL_3 = b"=-\n"
CONTENT_LINES = 4096  # of the file that the costless platform holds in memory
PIECE = 4096
SMALL = 40
LOOKUPS = 2_000_000  # of a run


# ---- inputs ----

def lines_of(length, eol=b"\n", compressed=False):
    def make(store, items):
        path = store.lines(items, length, eol, compressed)
        return Input(path, length, items)
    return make


def costless_lines(length, eol=b"\n"):
    """A file that is read again and again from memory."""
    def make(store, items):
        repetitions = max(items // CONTENT_LINES, 1)
        return Input(store.lines(CONTENT_LINES, length, eol), repetitions,
                     repetitions * CONTENT_LINES)
    return make


def costless_bytes(store, items):
    repetitions = max(items // (CONTENT_LINES * 40), 1)
    return Input(store.lines(CONTENT_LINES, 40, b"\n"), repetitions,
                 repetitions * CONTENT_LINES * 40)


def bytes_of_lines(store, items):
    path = store.lines(items // 40, 40, b"\n")
    return Input(path, 0, items // 40 * 40)


def pieces(store, items):
    # 4096 bytes are no whole number of lines: the file has at least as many bytes as the pieces.
    lines = items * PIECE // SMALL
    return Input(store.lines(lines, SMALL, b"\n"), 0, -(-lines * SMALL // PIECE))


def writes(store, items):
    return Input(store.output(), items, items)


def printing(size):
    def make(store, items):
        return Input(store.random_bytes(size), items, items)
    return make


def parsing(values):
    def make(store, items):
        return Input(store.decimal_text(values), items, items * values)
    return make


def folder(entries):
    def make(store, items):
        return Input(store.directory(entries), items, items * entries)
    return make


def opening(store, items):
    return Input(store.text("opened", "a line\n"), items, items)


def files(count):
    def make(store, items):
        return Input(store.output(), count, LOOKUPS)
    return make


# ---- variants ----

def bare(work, **more):
    return Variant("bare", "bare system calls", "bench_floor", "bare-" + work, "bare",
                   compare="no", **more)


def floor(work, title="floor", **more):
    return Variant("floor", title, "bench_floor", work, "floor", **more)


def module(work, name="module", title="module", **more):
    return Variant(name, title, "bench_module_lto", work, "module", **more)


def module_forms(work):
    """As a product gets it: linked with optimisation, without, and through a call by name."""
    return (module(work),
            Variant("plain", "module, linked without LTO", "bench_module_plain", work, "module"),
            module("call-" + work, "by-name", "module, called by name"))


def costless_forms(work, make_input):
    """The module over a platform that costs nothing."""
    return (Variant("alone", "module over a costless platform", "bench_costless_lto", work, "module",
                    input=make_input),
            Variant("alone-plain", "the same, linked without LTO", "bench_costless_plain", work,
                    "module", input=make_input))


def naive(work, **more):
    return Variant("naive", "naive twin", "bench_naive", work, "naive", **more)


def library(work, title=None, **more):
    return Variant(work, title or work, "bench_library", work, **more)


def peers(work, *names, share=None, **more):
    """The interpreters; `share` tells which are so slow that they are given less."""
    titles = {"python": "Python", "perl": "Perl", "lua": "Lua", "tcl": "Tcl"}
    return tuple(Variant(name, titles[name], name, work, share=(share or {}).get(name, 1), **more)
                 for name in names)


ALL = ("python", "perl", "lua", "tcl")


def faster(peer, times, of="module", **more):
    """The module is `times` times faster than the peer."""
    return Target(peer, of, at_least=times, **more)


def within(limit, to="floor", of="module", **more):
    return Target(of, to, at_most=limit, **more)


# ---- losses that have their reason ----

SEEK_AND_OBJECT = ("it makes no object, looks nothing up, and reads without asking for the position "
                   "before")
NO_OBJECT = "it looks nothing up and makes no object"
DIRECT_READ = ("it reads straight into the caller's memory and asks for no position; the module "
               "reads into its buffer and stores from there, as the order of its calls demands")
NO_LOOKUP = "it is handed its stream; an action finds the record of an object first"
IN_BLOCKS = ("it reads larger blocks without asking for the position, and cuts the lines out where "
             "they lie")

# ---- targets that are missed with a reason ----

OBJECT_IN_TWO = ("the String is made by one call of the platform and filled by another, its size is "
                 "asked for once more, and session, map and record are found for each line; the floor "
                 "does none of it")
COLD_CODE = ("what an action does around a system call is run with caches and predictors that the "
             "call has used for itself")
INTERPRETER = "what is left is the system's and the platform's own, which the interpreter has as well"

# ---- kvf: the shell ----


def shell(code_of):
    """Runs code of the shell; "empty" runs it for no item."""
    def command(tools, given, mode):
        count = 0 if mode == "empty" else given.count
        return [tools.programs / "kvf", "-q", "-e", code_of(given.path, count)]
    return command


def shell_call(path, count):
    return (f"f := KvFile new. KvfOpen(f, '{path}', 'r', false). "
            f"{count} timesRepeat: [KvfIsOpen(f)]")


def shell_objects(path, count):
    return (f"a := Array new: {max(count, 1)}. i := 1. "
            f"[i <= {count}] whileTrue: [a at: i put: KvFile new. i := i + 1]")


STATEMENTS = {  # a line that opens, a line again and again
    "kvf": ("f := KvFile new. KvfOpen(f, '{path}', 'r', false)\n", "KvfIsOpen(f)\n"),
    "python": ("f = open('{path}')\n", "f.fileno()\n"),
    "perl": ("open $f, '<', '{path}';\n", "fileno $f;\n"),
    "lua": ("local f = io.open('{path}')\n", "io.type(f)\n"),
    "tcl": ("set f [open {path}]\n", "eof $f\n"),
}


def statements(language):
    """A script of so many statements; the commands take what `store` made of it."""
    def make(store, items):
        opened = store.text("opened", "a line\n")
        first, line = STATEMENTS[language]
        text = first.format(path=opened) + line * items
        return Input(store.text(f"statements-{items}.{language}", text), items, items)
    return make


def run_script(language):
    def command(tools, given, mode):
        path = given.path
        if mode == "empty":
            first, _ = STATEMENTS[language]
            path = path.parent / f"statements-none.{language}"
            path.write_text(first.format(path=path.parent / "opened"))
        if language == "kvf":
            return [tools.programs / "kvf", "-q", "run", path]
        isolated = ["-I", "-S"] if language == "python" else []
        return [tools.interpreters[language], *isolated, path]
    return command


def script_variant(language, title, kind="peer"):
    return Variant("module" if language == "kvf" else language, title, language, "", kind,
                   compare="no", input=statements(language), script=run_script(language))


def starting(*arguments):
    def command(tools, given, mode):
        if mode == "empty":
            return None
        first, *rest = arguments
        path = tools.programs / "kvf" if first == "kvf" else tools.interpreters[first]
        return [path, *rest]
    return command


def start_variant(name, title, *arguments, kind="peer"):
    return Variant(name, title, arguments[0], "", kind, compare="no", script=starting(*arguments))


# ---- the workloads ----

WORKLOADS = (
    Workload(
        "lines-40", "Lines of 40 bytes", "line",
        "Every line of a file by KvfGetLine, into a new String each or into one that is used again.",
        lines_of(40),
        (bare("reads"), floor("lines"), *module_forms("lines"),
         module("lines-reused", "reused", "module, one String again and again"),
         *costless_forms("lines", costless_lines(40)),
         naive("lines"), library("getline"), library("std-getline", "std::getline"),
         *peers("lines", *ALL),
         Variant("readline", "Python readline()", "python", "readline"),
         Variant("gawk", "gawk", "gawk", r"\n")),
        (within(1.25), within(1.1, of="reused"), within(1.0, "getline", "reused"),
         faster("python", 1.9), faster("perl", 2.5), faster("lua", 5.5), faster("tcl", 7.5),
         Target("alone", at_most=18)),
        check=9000, quick=300_000, full=2_500_000,
        losses={"getline": SEEK_AND_OBJECT, "std-getline": SEEK_AND_OBJECT},
        shortfalls={"floor": OBJECT_IN_TWO, "python": OBJECT_IN_TWO, "perl": OBJECT_IN_TWO,
                    "lua": OBJECT_IN_TWO, "tcl": OBJECT_IN_TWO}),
    Workload(
        "lines-1000", "Lines of 1000 bytes", "line", "The same with long lines.",
        lines_of(1000),
        (bare("reads"), floor("lines"), *module_forms("lines"),
         module("lines-reused", "reused", "module, one String again and again"),
         naive("lines"), library("getline"), library("std-getline", "std::getline"),
         *peers("lines", *ALL), Variant("gawk", "gawk", "gawk", r"\n")),
        (within(1.10), within(0.75, of="reused"), within(1.2, "getline", "reused"),
         faster("python", 1.15), faster("lua", 2.5)),
        check=900, quick=40_000, full=200_000,
        losses=dict.fromkeys(("getline", "std-getline", "perl"),
                             "one read of 4096 bytes and one question for the position a refill, and "
                             "a block of memory for each new String, are required of the module"),
        shortfalls={"floor": "a line that lies across two refills is stored in two pieces, and its "
                             "String grows in between; without an object to make, the memory that the "
                             "floor takes for each line is what is saved"}),
    Workload(
        "eol-3", "Lines with a 3-byte end", "line", "The same with an end-of-line sequence of three "
        "bytes and lines of 40 bytes.",
        lines_of(40, EOL_3),
        (bare("reads"), floor("eol3"), *module_forms("eol3"),
         module("eol3-reused", "reused", "module, one String again and again"),
         *costless_forms("eol3", costless_lines(40, EOL_3)),
         naive("eol3"), library("getdelim"), *peers("eol3", "perl"),
         Variant("gawk", "gawk", "gawk", r"=-\n")),
        (within(1.40), within(1.3, "getdelim"), faster("perl", 2.2)),
        check=9000, quick=300_000, full=2_500_000,
        losses={"getdelim": SEEK_AND_OBJECT, "perl": IN_BLOCKS},
        shortfalls={"floor": "the sequence is an object: its class is asked for and its bytes are "
                             "fetched for each line, as the order of calls demands",
                    "getdelim": SEEK_AND_OBJECT, "perl": IN_BLOCKS}),
    Workload(
        "bytes", "One byte per call", "byte", "Every byte of a file by KvfGetC.",
        bytes_of_lines,
        (bare("reads"), floor("bytes"), *module_forms("bytes"),
         *costless_forms("bytes", costless_bytes),
         naive("bytes"), library("getc"),
         *peers("bytes", *ALL, share=dict.fromkeys(ALL, 10))),
        (within(1.85), within(1.7, "getc"), faster("python", 13), faster("lua", 23),
         faster("tcl", 60), Target("alone", at_most=6)),
        check=40_000, quick=5_000_000, full=40_000_000,
        losses={"getc": NO_LOOKUP, "naive": "it knows one kind of file, one session, no error"},
        shortfalls={"floor": NO_LOOKUP, "getc": NO_LOOKUP,
                    **dict.fromkeys(ALL, "the interpreters are faster here than where the target was "
                                    "set, and the look-up of the record is most of a call")}),
    Workload(
        "bulk-read", "Reading 4096 bytes a call", "call", "A whole file by KvfRead into one object.",
        pieces,
        (bare("reads"), floor("bulk-read"), *module_forms("bulk-read"), naive("bulk-read"),
         library("fread"), *peers("bulk-read", *ALL)),
        (within(1.05), faster("python", 1.14)),
        check=50, quick=20_000, full=100_000,
        losses=dict.fromkeys(("fread", "python", "perl", "lua"), DIRECT_READ),
        shortfalls={"floor": COLD_CODE, "python": DIRECT_READ}),
    Workload(
        "bulk-write", "Writing 4096 bytes a call", "call", "KvfWrite of one object, again and again.",
        writes,
        (bare("bulk-write"), floor("bulk-write"), *module_forms("bulk-write"), naive("bulk-write"),
         library("fwrite"), *peers("bulk-write", *ALL)),
        (within(1.06), faster("python", 1.25)),
        check=50, quick=8_000, full=20_000, delivers="file",
        losses=dict.fromkeys(("fwrite", "perl", "naive"),
                             "the module copies the object's bytes before it writes them"),
        shortfalls={"floor": COLD_CODE, "python": INTERPRETER}),
    Workload(
        "small-write", "Writing 40 bytes a call", "call", "The same with little in each call: one "
        "write(2) a call is required, so the peers are unbuffered ones.",
        writes,
        (bare("small-write"), floor("small-write"), *module_forms("small-write"),
         Variant("alone", "module over a costless platform", "bench_costless_lto", "small-write",
                 "module", compare="no"),
         naive("small-write"), library("fwrite-unbuffered", "fwrite, unbuffered"),
         *peers("small-write", *ALL)),
        (within(1.08), within(1.0, "fwrite-unbuffered"), faster("python", 1.1), faster("tcl", 1.9)),
        check=300, quick=40_000, full=200_000, delivers="file",
        losses={"fwrite-unbuffered": NO_LOOKUP, "naive": "it knows one kind of file and no error",
                "perl": NO_LOOKUP, "lua": NO_LOOKUP, "python": NO_LOOKUP},
        shortfalls={"floor": COLD_CODE, "fwrite-unbuffered": NO_LOOKUP, "python": INTERPRETER,
                    "tcl": INTERPRETER}),
    Workload(
        "gzip-lines", "Lines of a gzip file", "line", "Lines of 40 bytes by KvfGetLine from "
        "compressed data. The floor is gzread alone, which finds no lines and makes no Strings.",
        lines_of(40, compressed=True),
        (floor("gzip-lines", "floor: gzread alone", compare="bytes"), *module_forms("gzip-lines"),
         naive("gzip-lines"), library("gzgets"), *peers("gzip-lines", "python", "tcl")),
        (within(1.13), within(1.0, "gzgets"), faster("python", 2.2), faster("tcl", 2.2)),
        check=9000, quick=150_000, full=800_000,
        losses={"gzgets": NO_OBJECT},
        shortfalls={"gzgets": NO_OBJECT, "python": "nine tenths of the time are zlib's own, and no "
                    "smaller in the module", "tcl": "nine tenths of the time are zlib's own, and no "
                    "smaller in the module"}),
    Workload(
        "gzip-write", "Writing a gzip file", "call", "KvfWrite of 4096 bytes to a compressed file. "
        "The floor is gzwrite alone.",
        writes,
        (floor("gzip-write", "floor: gzwrite alone"), *module_forms("gzip-write"),
         naive("gzip-write"), *peers("gzip-write", "python", "tcl")),
        (within(1.03),),
        check=50, quick=3_000, full=20_000, delivers="gzip-file"),
    Workload(
        "print-64K", "Printing 64 KB as decimal text", "byte", "KvfPassiveObjPrint of random bytes. "
        "The floor is a memcpy of what it delivers.",
        printing(65536),
        (floor("print", "floor: memcpy of the output"), *module_forms("print"), naive("print"),
         library("to_chars"), library("snprintf", share=10),
         *peers("print", *ALL, share=dict.fromkeys(ALL, 10))),
        (within(4, needs="avx512_vbmi2"), within(8, lacks="avx512_vbmi2"),
         faster("to_chars", 45, needs="avx512_vbmi2"), faster("to_chars", 10, lacks="avx512_vbmi2"),
         faster("python", 200)),
        check=1, quick=80, full=400, per_item=65536,
        shortfalls={"floor": "each 1,024 bytes are stored by a call of their own, and the String "
                             "doubles when it is full, which copies once more what it holds",
                    "to_chars": "std::to_chars is more than twice as fast here as where the target "
                                "was set"}),
    Workload(
        "print-1M", "Printing 1 MB as decimal text", "byte", "The same with an object that no near "
        "cache holds.",
        printing(1 << 20),
        (floor("print", "floor: memcpy of the output"), *module_forms("print"), naive("print"),
         library("to_chars"), *peers("print", "python", share={"python": 10})),
        (within(2.1, needs="avx512_vbmi2"), within(8, lacks="avx512_vbmi2")),
        check=1, quick=10, full=50, per_item=1 << 20,
        shortfalls={"floor": "the String doubles when it is full, which copies once more what it "
                             "holds"}),
    Workload(
        "parse", "Parsing decimal text", "value", "KvfPassiveObjLoadByteStrings of 64 K values of one "
        "to three digits.",
        parsing(65536),
        (*module_forms("parse"), naive("parse"), library("from_chars", "std::from_chars"),
         *peers("parse", *ALL, share=dict.fromkeys(ALL, 10))),
        (faster("naive", 19, needs="avx512_vbmi2"), faster("naive", 15, lacks="avx512_vbmi2"),
         faster("python", 100)),
        check=1, quick=40, full=200, base="naive"),
    *(Workload(
        f"lookup-{name}", f"Finding a record among {count:,} files", "look-up",
        "The map's part of every call: the record of an object, objects in random order. The floor "
        "is linear probing in a half-full table of 16-byte entries.",
        files(count),
        (floor("lookup", "floor: linear probing"), module("lookup"),
         library("unordered_map", "std::unordered_map")),
        (Target("module", at_most=limit), faster("unordered_map", 2)),
        check=1, quick=1, full=1,
        shortfalls={"": "the place of a key is a multiplication, a shift and a load behind each other",
                    "unordered_map": "its nodes lie in the nearest cache, too, while files are few"})
      for name, count, limit in (("1K", 1_000, 4), ("100K", 100_000, 7), ("1M", 1_000_000, 18))),
    Workload(
        "directory", "A directory of 100,000 files", "entry", "KvfDirectory: full path names in an "
        "Array.",
        folder(100_000),
        (bare("directory"), floor("directory"), *module_forms("directory"), naive("directory"),
         library("std-filesystem", "std::filesystem"),
         *peers("directory", "python", "perl", "tcl"),
         *peers("directory", "lua", needs="lua-filesystem")),
        (within(1.05), within(1.0, "python"), faster("std-filesystem", 1.35)),
        check=1, quick=1, full=5, unordered=True,
        losses=dict.fromkeys(("python", "perl", "lua"),
                             "it takes the names as the system gives them; the module copies them "
                             "once more, so that no descriptor is open while objects are made"),
        shortfalls=dict.fromkeys(("floor", "std-filesystem"),
                                 "the names are copied once more than the floor does, so that no "
                                 "descriptor is open while objects are made")),
    Workload(
        "open-close", "Opening and closing", "pair", "KvfOpen and KvfClose of one object. The floor "
        "is open(2) and close(2).",
        opening,
        (floor("open-close", "floor: open and close"), *module_forms("open-close"),
         naive("open-close"), library("fopen", "fopen and fclose"),
         library("fopen-checked", "the same with a directory check"), *peers("open-close", *ALL)),
        (within(1.05, "fopen-checked"), faster("python", 1.9)),
        check=10, quick=15_000, full=80_000, delivers="no",
        losses=dict.fromkeys(("fopen", "perl", "lua"),
                             "it opens directories as well; finding out is a system call more")
        | {"fopen-checked": "the path and the mode are objects, fetched by four calls, and the record "
                            "is found twice"},
        shortfalls={"fopen-checked": "the path and the mode are objects, fetched by four calls, and the "
                                     "record is found twice, all of it around system calls",
                    "python": INTERPRETER}),
    Workload(
        "kvf-call", "An action call in a loop of the shell", "call", "KvfIsOpen in a loop, beside a "
        "small call on a file in the loop of each interpreter.",
        opening,
        (Variant("module", "kvf", "kvf", "", "module", compare="no", script=shell(shell_call)),
         *peers("call", *ALL, compare="no")),
        (Target("module", at_most=40),),
        check=10, quick=1_000_000, full=5_000_000, delivers="no", base="module",
        losses=dict.fromkeys(ALL, "its call does less: it looks no record up")),
    Workload(
        "kvf-statements", "Statements from a script", "statement", "A script of one such call a line, "
        "read, run and forgotten.",
        opening,
        (script_variant("kvf", "kvf", "module"), script_variant("python", "Python"),
         script_variant("perl", "Perl"), script_variant("lua", "Lua"),
         script_variant("tcl", "Tcl")),
        (Target("module", at_most=1000),),
        check=10, quick=50_000, full=1_000_000, delivers="no", base="module",
        losses=dict.fromkeys(("perl", "lua", "tcl"),
                             "the whole script is compiled before it runs; the shell reads, runs and "
                             "forgets each statement, and closes the files that it dropped")),
    Workload(
        "kvf-start", "Starting the shell", "start", "A process from nothing to its end, doing "
        "nothing.",
        opening,
        (Variant("floor", "a program that does nothing", "true", "", "floor", compare="no",
                 script=lambda tools, given, mode: None if mode == "empty" else ["/bin/true"]),
         start_variant("module", "kvf", "kvf", "-q", "-e", "nil", kind="module"),
         start_variant("python", "Python, isolated", "python", "-I", "-S", "-c", "0"),
         start_variant("perl", "Perl", "perl", "-e", "1"),
         start_variant("lua", "Lua", "lua", "-e", "return"),
         start_variant("tcl", "Tcl", "tcl", "/dev/null")),
        (Target("module", at_most=2_000_000),),
        check=1, quick=1, full=1, delivers="no", repeats=10,
        losses={"lua": "it loads fewer shared libraries, and declares no actions"}),
    Workload(
        "kvf-objects", "File objects that are kept", "object", "KvFile new in a loop of the shell, "
        "every object kept in an Array.",
        opening,
        (Variant("module", "kvf", "kvf", "", "module", compare="no",
                 script=shell(shell_objects)),),
        (Target("module", at_most=2000),),
        check=10, quick=100_000, full=1_000_000, delivers="no", base="module"),
)
