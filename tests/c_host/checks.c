/* The folder that the checks work in, and how answers are looked at. */
#define _GNU_SOURCE
#include "c_host/checks.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum { DIRECTORY_SIZE = 1024 };

static char gDirectory[DIRECTORY_SIZE];
static char gPath[DIRECTORY_SIZE + 64];

void check(int holds, const char* condition, const char* file, int line) {
  if (holds) return;
  fprintf(stderr, "%s:%d: failed: %s\n", file, line, condition);
  exit(1);
}

/* Makes the folder, tells its name, and removes it when the last process that could write to
 * `lifeline` has ended: so nothing stays behind of a program that is killed. */
static void keepDirectory(int lifeline, int told) {
  char none;
  setsid();
  signal(SIGPIPE, SIG_IGN);
  if (mkdtemp(gDirectory) == NULL) _exit(1);
  BoolType wasTold = write(told, gDirectory, sizeof gDirectory) > 0;
  dup2(lifeline, STDIN_FILENO);
  close_range(STDIN_FILENO + 1, ~0U, 0);
  while (wasTold && read(STDIN_FILENO, &none, 1) < 0 && errno == EINTR) continue;
  if (access(gDirectory, F_OK) == 0) execl("/bin/rm", "rm", "-rf", "--", gDirectory, (char*)NULL);
  _exit(0);
}

void makeDirectory(void) {
  const char* parent = getenv("TMPDIR");
  int life[2], told[2];
  snprintf(gDirectory, sizeof gDirectory, "%s/kvfile-test-XXXXXX", parent ? parent : "/tmp");
  CHECK(pipe2(life, O_CLOEXEC) == 0 && pipe2(told, O_CLOEXEC) == 0);
  pid_t between = fork();
  CHECK(between >= 0);
  if (between == 0) {
    if (fork() == 0) keepDirectory(life[0], told[1]);
    _exit(0);
  }
  CHECK(waitpid(between, NULL, 0) == between);
  close(life[0]); /* the other end stays open as long as the program lives */
  close(told[1]);
  CHECK(read(told[0], gDirectory, sizeof gDirectory) == (ssize_t)sizeof gDirectory);
  close(told[0]);
}

void removeDirectory(void) {
  const char* names[] = {"lines", "lines.gz", "raise", "numbers", "direct"};
  for (size_t i = 0; i < sizeof names / sizeof names[0]; i++) CHECK(unlink(pathOf(names[i])) == 0);
  CHECK(rmdir(gDirectory) == 0);
}

const char* directoryPath(void) { return gDirectory; }

const char* pathOf(const char* name) {
  snprintf(gPath, sizeof gPath, "%s/%s", gDirectory, name);
  return gPath;
}

BoolType hasText(OopType oop, const char* text) {
  const MiniObject* object = miniObject(oop);
  return object && object->isCharacter && (size_t)object->size == strlen(text) &&
         memcmp(object->body, text, strlen(text)) == 0;
}

BoolType beginsWith(OopType oop, const char* text) {
  const MiniObject* object = miniObject(oop);
  return object && object->isCharacter && (size_t)object->size >= strlen(text) &&
         memcmp(object->body, text, strlen(text)) == 0;
}

BoolType wasRaised(int errorNumber) {
  KciErrSType err = {0};
  return miniTakeRaised(&err) && err.number == errorNumber && err.category == OOP_ERROR_CATEGORY;
}

BoolType nothingWasRaised(void) {
  KciErrSType err;
  return !miniTakeRaised(&err) && !KciErr(&err) && miniErrJumpDepth() == 0;
}

OopType openFile(const char* name, const char* mode, OopType isCompressed) {
  OopType file = KciNewOop(MINI_CLASS_FILE);
  OopType answer = PERFORM("KvfOpen", file, string(pathOf(name)), string(mode), isCompressed);
  CHECK(answer == number(1));
  return file;
}

int openDescriptors(void) {
  DIR* dir = opendir("/proc/self/fd");
  int count = 0;
  while (dir && readdir(dir)) count++;
  if (dir) closedir(dir);
  return count;
}
