/* Paths, environment, log, locks and the terminal. */
#define _GNU_SOURCE
#include "c_host/checks.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

/* ---- paths and the process ---- */

static void checkPaths(void) {
  OopType sub = string(pathOf("sub"));
  CHECK(PERFORM("KvfMkdir", OOP_TRUE, sub, number(0700)) == OOP_TRUE);
  CHECK(PERFORM("KvfMkdir", OOP_TRUE, sub, OOP_NIL) == OOP_NIL);
  CHECK(PERFORM("KvfErrorCode", OOP_NIL) == number(17));
  CHECK(beginsWith(PERFORM("KvfClassError", OOP_NIL, OOP_NIL), "errno=17,EEXIST,"));
  CHECK(PERFORM("KvfIsDir", OOP_NIL, sub) != OOP_NIL);
  CHECK(PERFORM("KvfFileKind", OOP_NIL, sub) == number(1));
  CHECK(PERFORM("KvfUnlink", OOP_TRUE, sub) == OOP_NIL);
  CHECK(PERFORM("KvfRmdir", OOP_TRUE, sub) != OOP_NIL);
  CHECK(PERFORM("KvfSize", OOP_NIL, sub) == number(-1));
  OopType time = PERFORM("KvfModTime", OOP_NIL, string(pathOf("lines")));
  CHECK(KciIsKindOfClass(time, OOP_CLASS_DATE_TIME));
  CHECK(PERFORM("KvfModTime", OOP_NIL, sub) == OOP_NIL);
  CHECK(beginsWith(PERFORM("KvfClassError", OOP_NIL, OOP_NIL), "errno=2,ENOENT,"));
}

static void checkEnvironment(void) {
  OopType name = string("C_HOST_VARIABLE");
  CHECK(PERFORM("KvfSetEnvVar", OOP_NIL, name, string(directoryPath())) == OOP_TRUE);
  CHECK(hasText(PERFORM("KvfExpandEnvVar", OOP_NIL, name, number(0)), directoryPath()));
  OopType path = string("${C_HOST_VARIABLE}/lines");
  CHECK(hasText(PERFORM("KvfExpandEnvVar", OOP_NIL, path, number(1)), pathOf("lines")));
  CHECK(PERFORM("KvfSetEnvVar", OOP_NIL, name, OOP_NIL) == OOP_TRUE);
  CHECK(PERFORM("KvfExpandEnvVar", OOP_NIL, name, number(0)) == OOP_NIL);
  CHECK(PERFORM("KvfTestClientHandler", OOP_NIL) == OOP_TRUE);
}

static void checkLogAndParameters(void) {
  const ByteType utf16[] = {'a', 0, 0xE4, 0, 0x3D, 0xD8, 0x00, 0xDE};
  OopType wide = KciCreateByteObj(OOP_CLASS_UTF16_STRING, 1, utf16, sizeof utf16, 0, FALSE);
  CHECK(PERFORM("KvfKciLog", OOP_TRUE, string("begun")) == OOP_TRUE);
  CHECK(PERFORM("KvfKciLog", OOP_TRUE, wide) == OOP_TRUE);
  CHECK(strcmp(miniLogText(), "begun\na\xC3\xA4\xF0\x9F\x98\x80\n") == 0);
  CHECK(miniFlushedLogCalls() > 0 && KciGetLoggerFlush() == 0);
  CHECK(PERFORM("KvfVersionParam", OOP_NIL, number(11)) == number(getpid()));
  CHECK(hasText(PERFORM("KvfVersionParam", OOP_NIL, number(6)), "minimal"));
  CHECK(PERFORM("KvfVersionParam", OOP_NIL, number(99)) == OOP_NIL);
  OopType buffer = string("SO_SNDBUF");
  CHECK(PERFORM("KvfKciSetSocketBufSize", OOP_NIL, buffer, number(8192)) != OOP_NIL);
  CHECK(PERFORM("KvfKciGetSocketBufSize", OOP_NIL, buffer) == number(8192));
  CHECK(beginsWith(PERFORM("KvfKciGetSocketBufSize", OOP_NIL, string("none")), "no socket"));
}

static void checkLocks(void) {
  OopType file = openFile("lines", "r+", OOP_FALSE);
  OopType kind = KciNewSymbol("writeLock");
  OopType free = OOP_NIL;
  CHECK(kind == KciNewSymbol("writeLock"));
  CHECK(PERFORM("KvfLock", file, kind, number(0), number(8), number(0)) == OOP_TRUE);
  OopType answer = PERFORM("KvfLockQuery", file, kind, number(0), number(8));
  CHECK(KciFetchSize_(answer) == 5 && KciFetchOops(answer, 1, &free, 1) == 1);
  CHECK(free == OOP_TRUE); /* a process is never refused by its own lock */
  CHECK(PERFORM("KvfUnlock", file, number(0), number(8)) == OOP_TRUE);
  CHECK(PERFORM("KvfClose", file) == file);
}

/* Another process locks the first 8 bytes of the file until `release` is closed; `ready` tells. */
static void holdLock(const char* path, int ready, int release) {
  char byte = 'x';
  struct flock lock = {.l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 8};
  int fd = open(path, O_RDWR);
  if (fd < 0 || fcntl(fd, F_SETLK, &lock) != 0 || write(ready, &byte, 1) != 1) _exit(1);
  _exit(read(release, &byte, 1) == 0 ? 0 : 1);
}

static void checkRefusal(pid_t holder) {
  OopType file = openFile("lines", "r+", OOP_FALSE);
  OopType kind = KciNewSymbol("writeLock");
  OopType found[5] = {0};
  CHECK(PERFORM("KvfLock", file, kind, number(4), number(8), number(20)) == OOP_FALSE);
  OopType answer = PERFORM("KvfLockQuery", file, kind, number(4), number(8));
  CHECK(KciFetchOops(answer, 1, found, 5) == 5);
  CHECK(found[0] == OOP_FALSE && found[1] == kind && found[2] == number(0));
  CHECK(found[3] == number(8) && found[4] == number(holder));
  CHECK(PERFORM("KvfLock", file, kind, number(8), number(8), number(0)) == OOP_TRUE);
  CHECK(PERFORM("KvfClose", file) == file);
}

static void checkForeignLock(void) {
  int ready[2] = {-1, -1}, release[2] = {-1, -1}, status = -1;
  char byte = 0;
  CHECK(pipe(ready) == 0 && pipe(release) == 0);
  pid_t holder = fork();
  CHECK(holder >= 0);
  if (holder == 0) {
    close(release[1]);
    holdLock(pathOf("lines"), ready[1], release[0]);
  }
  close(ready[1]);
  CHECK(read(ready[0], &byte, 1) == 1 && byte == 'x');
  checkRefusal(holder);
  close(release[1]);
  CHECK(waitpid(holder, &status, 0) == holder && status == 0);
  close(ready[0]);
  close(release[0]);
}

/* ---- the terminal ---- */

/* Puts a terminal in the place of standard input and answers its other end. */
static int terminalAsInput(void) {
  int keyboard = posix_openpt(O_RDWR | O_NOCTTY);
  CHECK(keyboard >= 0 && grantpt(keyboard) == 0 && unlockpt(keyboard) == 0);
  int terminal = open(ptsname(keyboard), O_RDWR | O_NOCTTY);
  CHECK(terminal >= 0 && dup2(terminal, STDIN_FILENO) == STDIN_FILENO);
  close(terminal);
  return keyboard;
}

static void checkTypedLines(int keyboard) {
  OopType file = KciNewOop(MINI_CLASS_FILE);
  OopType prompt = string("? ");
  CHECK(PERFORM("KvfCreateStdFile", file, number(0)) == number(1));
  KvFileSetLineReader(miniNewLineReader());
  CHECK(write(keyboard, "edited\n", 7) == 7);
  CHECK(hasText(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), prompt), "edited\n"));
  CHECK(miniLinesRead() == 1);
  KvFileShutdownLineReader();
  KvFileShutdownLineReader(); /* there is none any more */
  CHECK(miniLiveLineReaders() == 0);
  KvFileSetLineReader(miniNewLineReader());
  CHECK(write(keyboard, "again\n", 6) == 6);
  CHECK(hasText(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), OOP_NIL), "again\n"));
  KvFileShutdownLineReader();
  CHECK(miniLinesRead() == 2 && miniLiveLineReaders() == 0);
  CHECK(write(keyboard, "plain\n", 6) == 6);
  CHECK(hasText(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), prompt), "plain\n"));
  CHECK(miniLinesRead() == 2);
  CHECK(write(keyboard, "\x04", 1) == 1); /* the end of input */
  CHECK(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), OOP_NIL) == OOP_NIL);
  CHECK(PERFORM("KvfAtEnd", file) == OOP_TRUE);
  CHECK(PERFORM("KvfClose", file) != OOP_NIL);
}

static void checkTerminal(void) {
  int input = dup(STDIN_FILENO);
  int keyboard = terminalAsInput();
  checkTypedLines(keyboard);
  CHECK(dup2(input, STDIN_FILENO) == STDIN_FILENO);
  close(input);
  close(keyboard);
}

void checkProcess(void) {
  checkPaths();
  checkEnvironment();
  checkLogAndParameters();
  checkLocks();
  checkForeignLock();
  checkTerminal();
}
