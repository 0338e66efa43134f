"""Runs of kvf that bring out what actions call: every action on every kind of file, each by itself
and with each platform function failing; and what only a terminal or a signal shows."""

import dataclasses

PRELUDE = """
data := e'one\\ntwo\\nthree'
make := [f := KvFile new. KvfOpen(f, 'plain', 'w', false). KvfWrite(f, data, 1, 13). KvfClose(f).
  f := KvFile new. KvfOpen(f, 'packed', 'w', true). KvfWrite(f, data, 1, 13). KvfClose(f).
  f := KvFile new. KvfOpen(f, 'numbers', 'w', false). KvfWrite(f, '1 2 3 x', 1, 7). KvfClose(f)]
make value
"""

# One statement for each way to call an action on the open file `f`.
ON_A_FILE = """
KvfIsOpen(f). KvfIsCompressed(f). KvfGetFileDesc(f). KvfErrorCode(f). KvfErrorString(f)
KvfPosition(f). KvfAtEnd(f). KvfGetC(f). KvfAtEnd(f). KvfPosition(f)
KvfSeek(f, 0, 1). KvfSeek(f, 0, 0). KvfSeek(f, 0, 2). KvfSeek(f, -1, 0). KvfSeek(f, nil, 0). KvfSeek(f, 0, 3)
KvfSeek(f, 0, 0). KvfRead(f, String new, 1, 2). KvfRead(f, String new, 4, 1000)
KvfRead(f, #sym, 1, 1). KvfRead(f, nil, 0, 1). KvfRead(f, nil, 1, nil)
KvfSeek(f, 0, 0). KvfGetLine(f, nil, 1, 10, nil). KvfGetLine(f, 'much longer than a line', 1, 'w', 'prompt')
KvfGetLine(f, nil, nil, 10, nil). KvfGetLine(f, nil, 1, nil, nil). KvfGetLine(f, nil, 1, 10, '')
KvfSeek(f, 0, 0). KvfGetC(f). KvfWrite(f, 'abc', 1, 3). KvfWrite(f, 'abc', 1, 4). KvfWrite(f, nil, nil, 1)
KvfWrite(f, 'abc', 1, nil). KvfWrite(f, 'abc', 1, 0)
KvfSeek(f, 0, 0). KvfGetC(f). KvfPutC(f, $x). KvfPutC(f, 10). KvfPutC(f, 256). KvfPutC(f, 'x'). KvfPutC(f, $x)
KvfSeek(f, 0, 0). KvfLoadByteStrings(f, ByteArray new, 2). KvfLoadByteStrings(f, #sym, 2)
KvfLoadByteStrings(f, ByteArray new, nil)
KvfPrintBytes(f, (String new: 90 withAll: $x)). KvfPrintBytes(f, ''). KvfPrintBytes(f, KvFile)
KvfSeek(f, 0, 0). KvfGetC(f). KvfFlush(f). KvfSync(f)
KvfLock(f, 'readLock', 0, 1, 0). KvfLock(f, 'no lock', 0, 1, 0). KvfLock(f, 3, 0, 1, 0)
KvfLock(f, 'readLock', -1, 1, 0). KvfUnlock(f, 0, 1). KvfUnlock(f, nil, 1)
KvfLockQuery(f, 'writeLock', 0, 1). KvfLockQuery(f, 'no lock', 0, 1). KvfLockQuery(f, 3, 0, 1)
KvfErrorCode(f). KvfErrorString(f). KvfClose(f). KvfErrorCode(f). KvfErrorString(f). KvfIsCompressed(f)
KvfGetFileDesc(f). KvfClose(f)
"""

WAYS_TO_OPEN = [
    "KvfOpen(f, 'plain', 'r', false)", "KvfOpen(f, 'plain', 'r+', false)",
    "KvfOpen(f, 'plain', 'a', false)", "KvfOpen(f, 'plain', 'ab+', false)",
    "KvfOpen(f, 'new', 'w', false)", "KvfOpen(f, 'numbers', 'r', false)",
    "KvfOpen(f, 'packed', 'r', true)", "KvfOpen(f, 'plain', 'r', true)",
    "KvfOpen(f, 'packed', 'a', true)", "KvfOpen(f, 'new', 'w9', true)",
    "KvfCreateStdFile(f, 0)", "KvfCreateStdFile(f, 1)", "KvfCreateStdFile(f, 2)",
    "KvfCreateStdFile(f, 3)", "f := nil",
]

ON_PATHS = """
KvfOpen(KvFile new, 'missing', 'r', false). KvfOpen(KvFile new, 'missing', 'r', true)
KvfOpen(KvFile new, 'stdin', 'r', false). KvfOpen(KvFile new, 'plain', 'no', false)
KvfOpen(KvFile new, 'plain', 3, false). KvfOpen(nil, 'plain', 'r', false)
KvfOpen(KvFile new, 3, 'r', false). KvfOpen(KvFile new, '', 'r', false). KvfOpen(KvFile new, w'x', 'r', false)
KvfAllValidFileModes(nil, true). KvfAllValidFileModes(nil, false). KvfAllValidFileModes(nil, nil)
KvfClassError(KvFile, nil). KvfClassError(KvFile, 'text'). KvfClassError(KvFile, nil). KvfClassError(KvFile, 3)
KvfErrorCode(nil). KvfErrorString(nil)
KvfMkdir(KvFile, 'dir', 16r1ED). KvfMkdir(KvFile, 'dir', nil). KvfMkdir(KvFile, 'dir', 'mode')
KvfIsDir(KvFile, 'dir'). KvfIsDir(KvFile, 'missing'). KvfFileKind(KvFile, 'plain'). KvfFileKind(KvFile, 'missing')
KvfFileKind(KvFile, 'stdin'). KvfFileKind(KvFile, 'stdout'). KvfFileKind(KvFile, 'stderr')
KvfSize(KvFile, 'plain'). KvfSize(KvFile, 'missing'). KvfSize(KvFile, 'stdin'). KvfSize(KvFile, nil)
KvfModTime(KvFile, 'plain'). KvfModTime(KvFile, 'missing'). KvfModTime(KvFile, 'stdin')
KvfRename(KvFile, 'plain', 'dir/plain'). KvfRename(KvFile, 'missing', 'other')
KvfDirectory(KvFile, 'dir', false). KvfDirectory(KvFile, 'dir', true). KvfDirectory(KvFile, 'missing', true)
KvfDirectory(KvFile, 'stdin', true)
KvfUnlink(KvFile, 'dir/plain'). KvfUnlink(KvFile, 'missing'). KvfUnlink(KvFile, 'stdin')
KvfRmdir(KvFile, 'dir'). KvfRmdir(KvFile, 'missing')
KvfSetEnvVar(KvFile, 'KVF_CASE', 'value'). KvfExpandEnvVar(KvFile, 'KVF_CASE', 0)
KvfExpandEnvVar(KvFile, '$KVF_CASE', 1). KvfExpandEnvVar(KvFile, 'KVF_CASE', 2). KvfSetEnvVar(KvFile, 'KVF_CASE', nil)
KvfVersionParam(KvFile, 8). KvfVersionParam(KvFile, 11). KvfVersionParam(KvFile, 99). KvfVersionParam(KvFile, nil)
KvfVersionParam(KvFile, 16rFFFFFFFFFF)
KvfKciLog(KvFile, 'text'). KvfKciLog(KvFile, w'text'). KvfKciLog(KvFile, ''). KvfKciLog(KvFile, #[1])
KvfKciGetSocketBufSize(KvFile, 'SO_SNDBUF'). KvfKciGetSocketBufSize(KvFile, 'none'). KvfKciGetSocketBufSize(KvFile, 3)
KvfKciSetSocketBufSize(KvFile, 'SO_SNDBUF', 8192). KvfKciSetSocketBufSize(KvFile, 'none', 2)
KvfKciSetSocketBufSize(KvFile, 'none', 3). KvfKciSetSocketBufSize(KvFile, 3, 2)
KvfPassiveObjPrint((String new: 3000)). KvfPassiveObjPrint(KvFile)
KvfPassiveObjLoadByteStrings(ByteArray new, 9, '1 2 3', 1). KvfPassiveObjLoadByteStrings(#sym, 9, '1 2 3', 1)
KvfPassiveObjLoadByteStrings(ByteArray new, 9, '1 2 3', nil). KvfPassiveObjLoadByteStrings(ByteArray new, nil, '1', 1)
KvfPassiveObjLoadByteStrings(ByteArray new, 9, '1', -5)
KvfTestClientHandler(KvFile)
"""

ON_SESSIONS = """
f := KvFile new. KvfIsOpen(f). KvfErrorCode(f). KvfErrorString(f). KvfGetFileDesc(f). KvfIsCompressed(f)
KvfClientFinalize({f objectId}). KvfClientFinalize({nil. nil objectId}). KvfClientFinalize(3)
KvfOpen(f, 'numbers', 'r', false). KvfOpen(f, 'packed', 'r', true). KvfOpen(f, 'numbers', 'r', false)
KvfSeek(f, -1, 0). KvfClientFinalize({f objectId})
KvfOpen(f, 'packed', 'r', true). KvfClientFinalize({f objectId})
KvfCreateStdFile(f, 1). KvfPutC(f, $x). KvfOpen(f, 'numbers', 'r', false). KvfCreateStdFile(f, 1)
g := KvFile new. KvfOpen(g, 'numbers', 'r', false). h := KvFile new. KvfOpen(h, 'packed', 'r', true)
KvfPutC(f, $x). KvfFinalizeAll(KvFile). KvfCloseAll(KvFile)
KvfOpen(g, 'numbers', 'r', false). g := nil. Smalltalk collectGarbage
here := Session current. KvfShutdown(here)
KvfIsOpen(f). KvfErrorString(f). KvfFinalizeAll(KvFile). KvfCloseAll(KvFile). KvfClientFinalize({f objectId})
KvfOpen(f, 'numbers', 'r', false). KvfCreateStdFile(f, 0)
Session end: here
KvfIsOpen(f). KvfFinalizeAll(KvFile). KvfCloseAll(KvFile). KvfClientFinalize({f objectId})
KvfOpen(f, 'numbers', 'r', false)
"""


@dataclasses.dataclass
class Case:
    """One run of kvf."""
    name: str
    code: str
    fault: str = ""
    stdin: bytes = b"typed one\ntyped two\n" * 20
    typed: bytes = None  # standard input is a terminal where this is typed

    def arguments(self):
        faults = ["--fault", self.fault] if self.fault else []
        return ["-q", "-k", *faults, "-e", self.code]


@dataclasses.dataclass
class Transcript:
    """One that is replayed."""
    name: str
    path: str
    stdin: bytes = b""
    typed: bytes = None

    def arguments(self):
        return ["check", str(self.path)]


def on_every_kind_of_file():
    return "".join(f"\nf := KvFile new. {way}{ON_A_FILE}" for way in WAYS_TO_OPEN)


EVERYTHING = PRELUDE + on_every_kind_of_file() + ON_PATHS + "make value" + ON_SESSIONS

# Each fails every call of the function, where that can happen to it; an interrupt only the first,
# because KvfAtEnd asks again until it is let.
FAULTS = ["1+:EIO", "1+:raise=2710", "1+:nomem", "1:interrupt"]

# No session, no map, and UTF-16 paths that pass for others.
ODD_ANSWERS = ["KciGetSessionId:1+:result=0", "KciSupGetKvfileOopMap:1+:result=0",
               "KciIsKindOfClass:1+:result=0"]

CONFLICT = """
f := KvFile new. KvfOpen(f, 'shared', 'w+', false)
Smalltalk system: '"$KVF" -q -e "g := KvFile new. KvfOpen(g, ''shared'', ''r+'', false).
  KvfLock(g, ''writeLock'', 0, 1, 0). KvfOpen(KvFile new, ''held'', ''w'', false). Smalltalk sleep: 300000" &
  echo $! >holder'
[KvfSize(KvFile, 'held') < 0] whileTrue: [Smalltalk sleep: 5]
KvfLockQuery(f, 'writeLock', 0, 0). KvfLock(f, 'writeLock', 0, 0, 0)
Smalltalk system: 'kill $(cat holder)'
"""

TERMINAL = """
KvFileSetLineReader(true). f := KvFile new. KvfCreateStdFile(f, 0). KvfGetLine(f, nil, 1, 10, 'prompt ')
KvfRead(f, String new, 1, 2). KvfAtEnd(f). KvfGetC(f)
KvfFileKind(KvFile, 'stdin')
"""


def failing(functions):
    """A case for each way in which each of the functions may fail."""
    faults = [f"{function}:{fault}" for function in sorted(functions) for fault in FAULTS]
    return [Case(fault, EVERYTHING, fault=fault) for fault in faults + ODD_ANSWERS]


CASES = [
    Case("everything", EVERYTHING),
    Case("lock conflict", CONFLICT),
    Case("terminal", TERMINAL, typed=b"typed\n" * 8),
]
