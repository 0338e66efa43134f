#!/usr/bin/env python3
"""Tests the tests: breaks the module in one place at a time and expects the tests to notice.

Each fault is built into the copy, and the test programs run until one fails. A fault that no test
notices is reported, and makes the exit code 1. All of them take about five minutes on two cores.
"""

import argparse
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# File below src, text, replacement, what breaks.
FAULTS = [
    ("openfile/opening.cc", "if (zf != nullptr && mode[0] != 'r') gzprintf(zf, \"%s\", \"\");", "",
     "old memory fills the gap in a gzip file"),
    ("openfile/opening.cc", "\"%se\", mode", "\"%s\", mode", "programs inherit gzip files"),
    ("record/positioning.cc", " || (whence == SEEK_SET && offset < 0)) return -1;", ") return -1;",
     "a gzip file loses its place over a negative position"),
    ("record/writing.cc", "    fflush(stdout);\n", "", "the newline of closing standard output comes late"),
    ("record/writing.cc", "if (code == Z_ERRNO) {", "if (code == Z_VERSION_ERROR) {",
     "a gzip handle goes on without its place"),
    ("record/registry.cc", "  closeUnregistered(f, zf, isStd);\n", "", "a file without a record stays open"),
    ("record/registry.cc", "if (status == 0) return TRUE;\n  KvFileDataSType::deallocate(record);",
     "if (status == 0) return TRUE;", "a record that is not registered leaks"),
    ("record/reading.cc", "std::min(n, static_cast<ssize_t>(howMany))", "n",
     "a host that claims too much leads behind the buffer"),
    ("record/reading.cc", "memmove(readBuffer, &readBuffer[readBufIdx], static_cast<size_t>(avail));",
     "memmove(readBuffer, &readBuffer[readBufIdx], static_cast<size_t>(avail - 1));",
     "compaction loses the last unread byte"),
    ("record/reading.cc", "if (numBytes <= avail) return avail;", "if (numBytes < avail) return avail;",
     "a refill although enough is buffered"),
    ("record/reading.cc", "nextOsReadPos = kvftell();", "nextOsReadPos = 0;",
     "the position is not asked before a refill"),
    ("record/reading.cc", "numBytes <= read_buf_size - 3 ? numBytes + 2", "numBytes <= read_buf_size - 3 ? numBytes + 1",
     "the line fetch is given one byte less"),
    ("record/reading.cc", "numBytes != 1 && isatty", "isatty", "the line reader also for one byte"),
    ("record/reading.cc", "if (status == INTERRUPTED) return INTERRUPTED;", "",
     "an interrupted line fetch is taken for a failure"),
    ("record/reading.cc", "if (status == -1) lastReadEof = TRUE;", "", "the end of terminal input is forgotten"),
    ("record/reading.cc", "    if (n != 0) lastOpWasRead = -1;\n", "", "a failed refill leaves the buffer valid"),
    ("record/reading.cc", "lastOpWasRead = readable;\n  if (n <= 0", "lastOpWasRead = 1;\n  if (n <= 0",
     "a write-only file keeps read-ahead"),
    ("record/reading.cc", "if (lastReadEof && eofIsError) {", "if (lastReadEof) {",
     "the end of a line without terminator fails"),
    ("record/reading.cc", "nextOsReadPos = wrappingAdd(nextOsReadPos, total);",
     "nextOsReadPos = wrappingAdd(nextOsReadPos, n);", "buffered bytes are counted once"),
    ("record/reading.cc", "if (lastReadEof) return OOP_TRUE;", "", "the end is not remembered"),
    ("record/reading.cc", "} while (n == INTERRUPTED);", "} while (false);", "the end test is not repeated"),
    ("record/reading.cc", "if (n == 0) lastReadEof = TRUE;\n    // A host", "// A host",
     "the end of a plain file is not noted"),
    ("record/reading.cc", "gzungetc(c, zf);", "", "the end test of gzip eats a byte"),
    ("record/reading.cc", "return static_cast<ssize_t>(howMany);", "return n;", "the clamped count is answered"),
    ("record/eol_scan.cc", "idx += eolSize;\n  }", "idx += 1;\n  }", "the scan goes on one byte behind a miss"),
    ("record/eol_scan.cc", "if (eolSize > size - idx) break;", "if (eolSize >= size - idx) break;",
     "a sequence at the buffer's very end is missed"),
    ("record/eol_scan.cc", "    idx += 64;\n", "    idx += 63;\n", "nothing but time: an equivalent scan"),
    ("record/positioning.cc", "return kvfseek(position, SEEK_SET) >= 0;", "return TRUE;",
     "read-ahead is not undone before a write"),
    ("record/positioning.cc", "whence != SEEK_END || offset != 0", "whence != SEEK_END",
     "append mode seeks from the end"),
    ("record/positioning.cc", "|| record->writable) return false;", ") return false;",
     "a file that is written seeks in its buffer"),
    ("record/positioning.cc", "position < record->nextOsReadPos", "position <= record->nextOsReadPos",
     "a seek right behind the buffer stays in it"),
    ("record/positioning.cc", "seekKind == 1 && record->lastOpWasRead == 1", "seekKind == 1",
     "a relative seek after a write is relative"),
    ("record/positioning.cc", "if (reached >= 0) record->nextOsReadPos = reached;", "",
     "a seek from the end forgets the position"),
    ("record/writing.cc", "if (howMany > 0) lastPutcWasEoln", "lastPutcWasEoln = FALSE; if (howMany > 0) lastPutcWasEoln",
     "writing nothing ends the line state"),
    ("record/writing.cc", "gzflush(zf, Z_FINISH)", "gzflush(zf, Z_SYNC_FLUSH)", "a flush does not end the member"),
    ("record/writing.cc", "if (status == 0 && doSync) status = fsync", "if (status == 0) status = fsync",
     "every flush waits for the disk"),
    ("record/writing.cc", "return static_cast<int>(written);",
     "return 0 * static_cast<int>(written);", "closing standard output succeeds"),
    ("record/writing.cc", "  fPtr = nullptr;\n  return status;", "  if (status == 0) fPtr = nullptr;\n  return status;",
     "a failed close keeps the stream"),
    ("record/error_state.cc", "  if (errString != nullptr) return;\n  errString = KvFileErrStrType::allocate();\n  if (errString == nullptr) return;",
     "  if (errString == nullptr) errString = KvFileErrStrType::allocate();\n  if (errString == nullptr) return;",
     "every failure stores its text"),
    ("record/error_state.cc", "  if (zErrCode == Z_ERRNO) {\n    storeErrno();", "  if (zErrCode == Z_ERRNO) {\n    getErrorString();",
     "zlib's errno is not taken"),
    ("record/file_record.cc", "(mode[0] == 'a' || mode[0] == 'r' ||", "(mode[0] == 'r' ||", "a+ is append mode"),
    ("record/file_record.cc", "lastPutcWasEoln = TRUE;", "lastPutcWasEoln = FALSE;", "a fresh file is within a line"),
    ("record/registry.cc", "    closeRecord(known);\n", "", "a reopened file leaves the old one open"),
    ("record/registry.cc", "    return oopFromSmallInteger(2);", "    return oopFromSmallInteger(1);",
     "a reuse answers 1"),
    ("record/registry.cc", "  KvfShutdown(sessionId);\n  KciSup", "  KciSup", "start-up forgets an old map"),
    ("record/registry.cc", "    start += count;\n", "    start += BATCH_SIZE + 1;\n", "finalisation skips an element"),
    ("record/registry.cc", "conversionFailed != 0 || doFinalize", "doFinalize", "a bad element is finalised"),
    ("record/registry.cc", "raiseError(KVF_ERR_FILE_NOT_REGISTERED, oFile);", ";", "an unknown file is not raised"),
    ("framework/raise.cc", "errnum >= 4000 && errnum <= 4999", "errnum >= 4100 && errnum <= 4999", "4000 is not fatal"),
    ("framework/arguments.cc", "if (count > KvfPath::MAX_UTF8_BYTES) {", "if (count >= KvfPath::MAX_UTF8_BYTES) {",
     "a path of 4095 bytes is refused"),
    ("framework/arguments.cc", "if (converted != OOP_NIL) KciReleaseOops(&converted, 1);", "",
     "a converted path is not released"),
    ("framework/arguments.cc", "if (info.size > capacity) {", "if (info.size > capacity + 1) {",
     "a string that fills its buffer passes"),
    ("framework/class_error.cc", "classErrorCode = EINVAL;", "", "an installed text has no code"),
    ("openfile/file_modes.cc", "isLevel(mode[2]) && mode[0] != 'r' && len == 3", "isLevel(mode[2]) && len == 3",
     "rb9 is accepted"),
    ("openfile/opening.cc", "errno != 0 ? errno : ENOMEM", "errno", "zlib's want of memory has no code"),
    ("openfile/opening.cc", "HostOpenFile(aPath.path, mode, &err, 1)", "HostOpenFile(aPath.path, \"r\", &err, 1)",
     "every file is opened for reading"),
    ("openfile/status.cc", "  p->errCode = 0;\n", "", "taking the text keeps the code"),
    ("openfile/reading_actions.cc", "if (items == 0) p->storeErrorString", "p->storeErrorString",
     "a short read stores a text"),
    ("openfile/reading_actions.cc", "const int64 n = std::min(want, static_cast<int64>(got));",
     "const int64 n = std::min(want, static_cast<int64>(got)) / itemSize * itemSize;",
     "a part of an item is not delivered"),
    ("openfile/reading_actions.cc", "if (got == INTERRUPTED) return OOP_INTERRUPTED;\n      if", "if",
     "an interrupted read answers nil"),
    ("openfile/reading_actions.cc", "KciFetchSize_(oStr) + 1;", "KciFetchSize_(oStr);",
     "a line cannot be appended to a String"),
    ("openfile/reading_actions.cc", "storeIndex < KciFetchSize_(oStr)", "storeIndex + 1 < KciFetchSize_(oStr)",
     "a String one too long is not cut"),
    ("openfile/writing_actions.cc", "KciFetchBytes_(oBytes, total + 1, buffer, chunk)", "KciFetchBytes_(oBytes, 1, buffer, chunk)",
     "every chunk is the first"),
    ("openfile/writing_actions.cc", "MAX_PRINT_COLUMN = 200", "MAX_PRINT_COLUMN = 199", "lines of numbers break earlier"),
    ("openfile/writing_actions.cc", "  printByteObject(p, oBytes);\n  KciPopErrJump(&jump);", "  printByteObject(p, oBytes);",
     "printing leaves its frame registered"),
    ("openfile/writing_actions.cc", "    p->kvfputc(' ');\n    return;", "    return;", "an empty object prints nothing"),
    ("openfile/locking.cc", "lseek(fd, 0, SEEK_SET)", "lseek(fd, 0, SEEK_CUR)", "a query does not rewind"),
    ("openfile/locking.cc", "static_cast<uint64_t>(value) > INT_MAX", "value > INT_MAX", "a negative time-out passes"),
    ("openfile/c_entry_points.cc", "p->kvfwrite(buffer, static_cast<size_t>(chunk))",
     "p->kvfwrite(buffer + (numBytes - left), static_cast<size_t>(chunk))", "the pointer advances"),
    ("openfile/c_entry_points.cc", "  buf[0] = '\\0';\n", "", "no empty text for an unknown file"),
    ("pathhost/path_operations.cc", "strcmp(name, \"stdin\") == 0 && isatty(fileno(stdin))", "false",
     "a terminal on standard input is no terminal"),
    ("pathhost/log.cc", "if (logged.lastByte != '\\n') log(\"\\n\");", "log(\"\\n\");", "every text gets a newline"),
    ("pathhost/directory.cc", "clData->utfResult ? newNameString(name) : KciNewString(name)", "newNameString(name)",
     "names are UTF-8 unasked"),
    ("bytestrings/decimal_text.cc", "MAX_DIGITS = 4", "MAX_DIGITS = 3", "values end after three digits"),
    ("bytestrings/decimal_text.cc", "digits_ == 0 && consumed >= retry", "consumed >= retry",
     "a kernel begins within a value"),
    ("bytestrings/decimal_kernels.h", "DECIMAL_BLOCK / 2 + 1", "DECIMAL_BLOCK / 2",
     "a kernel fills the room and reads on behind it"),
    ("bytestrings/decimal_kernels.h", "at + DECIMAL_BLOCK - 4", "at + DECIMAL_BLOCK - 3",
     "values of four digits are cut by a window"),
    ("bytestrings/decimal_kernels.h", "movedUp(digits, 4);", "movedUp(digits, 5);", "kernels take five digits for a value"),
    ("bytestrings/byte_string_actions.cc", "memmove(buffer, &buffer[STORE_SIZE], static_cast<size_t>(count));", "",
     "values behind a full store are lost"),
    ("bytestrings/eom_stream.cc", "if (stream->bufbytes == 0) ", "", "a later short fetch clears what was fetched"),
    ("bytestrings/byte_string_actions.cc", "&& !reader.insideValueBegunByFifthDigit()", "",
     "a last fifth digit is a value"),
]

# File below src, text, replacement, what breaks, the program that is to notice it (with its arguments),
# and what it is to say: whatever else it says, that oracle has to speak.
EVERY_FAULT = ("every_fault", "--single")
ORACLE_FAULTS = [
    ("record/file_record.cc", "    UtlFree(dataPtr->errString);\n", "", "a freed record leaves its text",
     EVERY_FAULT, "blocks are left"),
    ("record/registry.cc", "  if (zf != nullptr) gzclose(zf);\n", "", "a gzip file without a record stays open",
     EVERY_FAULT, "gzip handles are left"),
    ("record/registry.cc", "  if (f != nullptr && !isStd) fclose(f);\n", "", "a plain file without a record stays open",
     EVERY_FAULT, "descriptors are left"),
    ("record/registry.cc", "  KciOopMapDestroy(map);\n", "", "the map of a session that has ended stays",
     EVERY_FAULT, "a file map is left"),
    ("pathhost/log.cc", "  if (utf8String != oString) KciReleaseOops(&utf8String, 1);\n", "",
     "a text that was converted for the log stays", EVERY_FAULT, "a converted text was not released"),
    ("openfile/writing_actions.cc", "    postPendingKciErr(p);\n    KciPopErrJump(&jump);", "    postPendingKciErr(p);",
     "a failed printing leaves its frame", EVERY_FAULT, "an error-jump frame is left"),
    ("openfile/writing_actions.cc", "    memset(buffer + fetched, 0, static_cast<size_t>(chunk - fetched));\n",
     "    memset(buffer + fetched, 1, static_cast<size_t>(chunk - fetched));\n",
     "what a fetch did not give is filled from memory", EVERY_FAULT, "other bytes than were given"),
    ("record/writing.cc", "HostWriteFile_(fileno(fPtr), buf, howMany)", "HostWriteFile_(fileno(fPtr) - 1, buf, howMany)",
     "bytes go to another file", EVERY_FAULT, "bytes went to own.txt"),
    ("record/registry.cc", "  KciOopMapType* map = KciSupGetKvfileOopMap(sessionId);\n  int64 arg2 = 0;",
     "  KciOopMapType* map = KciSupGetKvfileOopMap(2);\n  int64 arg2 = 0;",
     "all files of another session are closed", EVERY_FAULT, "the record of other.txt changed"),
    ("record/positioning.cc", "    const int64 position = readPosition();\n", "    const int64 position = nextOsReadPos;\n",
     "a write lands behind what was read ahead", EVERY_FAULT, "instead of"),
    ("record/writing.cc", "    gzclearerr(zf);\n", "", "an error stays in a gzip handle for ever",
     EVERY_FAULT, "DIFFERS"),
    ("openfile/opening.cc", "if (zf != nullptr && mode[0] != 'r') gzprintf(zf, \"%s\", \"\");", "",
     "old memory fills the gap in a gzip file", EVERY_FAULT, "DIFFERS KvfWrite: a gzip file behind a gap"),
    ("record/eol_scan.cc", "matches16(p + 48, wanted) << 48", "0", "the last vector of a scan is not looked at",
     ("losses_tests", "--gtest_filter=Scanning.*"), "FindsALineEndAtEveryDistance"),
    ("bytestrings/decimal_avx2.cc", "storeFields(_mm256_unpackhi_epi16(frontHigh, backHigh), high >> 8, out)",
     "storeFields(_mm256_unpackhi_epi16(frontHigh, backHigh), low >> 8, out)", "the last fields of a block are cut wrongly",
     ("bytestrings_tests", "--gtest_filter=*DecimalKernels.*"), "avx2"),
    ("bytestrings/decimal_avx2.cc", "_mm256_alignr_epi8(half, previous, 13)", "_mm256_alignr_epi8(half, previous, 14)",
     "the thousands are taken from the wrong lane",
     ("bytestrings_tests", "--gtest_filter=*DecimalKernels.*"), "avx2"),
]

PROGRAMS = ["record", "framework", "boundary", "openfile", "pathhost", "bytestrings", "losses"]

# Faults that change nothing that a caller could see: the tests must pass.
HARMLESS = {"nothing but time: an equivalent scan"}


def build(copy, targets=tuple(f"{name}_tests" for name in PROGRAMS)):
    return subprocess.run(["cmake", "--build", copy / "build", "--target", *targets],
                          capture_output=True, text=True)


def noticing_program(copy):
    for name in PROGRAMS:
        try:
            done = subprocess.run([copy / "build" / "bin" / f"{name}_tests", "--gtest_brief=1",
                                   "--gtest_fail_fast"], capture_output=True, timeout=120,
                                  stdin=subprocess.DEVNULL)
        except subprocess.TimeoutExpired:
            return name
        if done.returncode != 0:
            return name
    return None


def copy_tree(work):
    copy = work / "tree"
    if not copy.exists():
        shutil.copytree(ROOT, copy, ignore=shutil.ignore_patterns("build", "build-*", ".git"))
    subprocess.run(["cmake", "-S", copy, "-B", copy / "build", "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=Release", "-DKVFILE_WERROR=OFF"], check=True, capture_output=True)
    return copy


def prepare(work):
    copy = copy_tree(work)
    done = build(copy)
    if done.returncode != 0 or noticing_program(copy) is not None:
        sys.exit("the tests do not pass before anything is broken:\n" + done.stdout[-2000:])
    return copy


def plant(copy, fault):
    """Answers the name of the program that noticed, or None."""
    file, text, replacement, _ = fault
    path = copy / "src" / file
    sound = path.read_text()
    if sound.count(text) != 1:
        sys.exit(f"{file}: the text stands there {sound.count(text)} times: {text}")
    try:
        path.write_text(sound.replace(text, replacement))
        done = build(copy)
        if done.returncode != 0:
            sys.exit(f"{file}: does not build with {replacement!r}:\n{done.stdout[-2000:]}")
        return noticing_program(copy)
    finally:
        path.write_text(sound)


def told_by(copy, program):
    """What the program says; that it is killed counts, too."""
    try:
        done = subprocess.run([copy / "build" / "bin" / program[0], *program[1:]], timeout=600,
                              capture_output=True, text=True, stdin=subprocess.DEVNULL)
    except subprocess.TimeoutExpired:
        return "did not end"
    return done.stdout + done.stderr if done.returncode != 0 else ""


def plant_for_oracle(copy, fault):
    """Whether the oracle that is meant for the fault spoke, and how many lines were said."""
    file, text, replacement, _, program, words = fault
    path = copy / "src" / file
    sound = path.read_text()
    try:
        path.write_text(sound.replace(text, replacement))
        done = build(copy, [program[0]])
        if done.returncode != 0:
            sys.exit(f"{file}: does not build with {replacement!r}:\n{done.stdout[-2000:]}")
        said = told_by(copy, program)
        return words in said, len(said.splitlines())
    finally:
        path.write_text(sound)


def plant_for_oracles(work, numbers):
    copy = copy_tree(work)
    programs = {fault[4] for fault in ORACLE_FAULTS}
    build(copy, sorted({program[0] for program in programs}))
    for program in programs:
        if said := told_by(copy, program):
            sys.exit(f"{program[0]} complains before anything is broken:\n{said[-2000:]}")
    missed = 0
    chosen = numbers or range(1, len(ORACLE_FAULTS) + 1)
    for number in chosen:
        fault = ORACLE_FAULTS[number - 1]
        spoke, lines = plant_for_oracle(copy, fault)
        missed += not spoke
        verdict = f"found: {fault[5]}" if spoke else f"NOT FOUND among {lines} lines"
        print(f"{number:3} {fault[0]}: {fault[3]}: {verdict}", flush=True)
    print(f"{len(chosen) - missed} passed, {missed} failed")
    return 1 if missed else 0


def misplaced():
    """The faults whose text does not stand exactly once in its file."""
    return [f"{file}: {text!r}" for file, text, *_ in FAULTS + ORACLE_FAULTS
            if (ROOT / "src" / file).read_text().count(text) != 1]


def plant_all(work, numbers):
    chosen = numbers or range(1, len(FAULTS) + 1)
    copy = prepare(work)
    wrong = 0
    for number in chosen:
        fault = FAULTS[number - 1]
        noticed = plant(copy, fault)
        expected = fault[3] not in HARMLESS
        wrong += (noticed is not None) != expected
        verdict = f"noticed by {noticed}_tests" if noticed else "NOT NOTICED"
        print(f"{number:3} {fault[0]}: {fault[3]}: {verdict}", flush=True)
    print(f"{len(chosen) - wrong} passed, {wrong} failed")
    return 1 if wrong else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("work", nargs="?", type=Path, metavar="WORK", help="a folder for the copy")
    parser.add_argument("numbers", nargs="*", type=int, metavar="NUMBER", help="these faults only")
    parser.add_argument("--oracles", action="store_true", help="the faults for single oracles")
    parser.add_argument("--check", action="store_true",
                        help="only looks whether every fault has its place in the source")
    arguments = parser.parse_args()
    if arguments.check:
        stale = misplaced()
        return "\n".join(["these cannot be planted:", *stale]) if stale else 0
    if arguments.work is None:
        parser.error("a WORK folder is needed")
    planting = plant_for_oracles if arguments.oracles else plant_all
    return planting(arguments.work.resolve(), arguments.numbers)


if __name__ == "__main__":
    sys.exit(main())
