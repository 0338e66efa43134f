/* The folder that the checks work in, and how answers are looked at. */
#define _GNU_SOURCE
#include "c_host/checks.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static char gDirectory[] = "/tmp/c_host_XXXXXX";
static char gPath[sizeof gDirectory + 64];

void check(int holds, const char* condition, const char* file, int line) {
  if (holds) return;
  fprintf(stderr, "%s:%d: failed: %s\n", file, line, condition);
  exit(1);
}

void makeDirectory(void) { CHECK(mkdtemp(gDirectory) != NULL); }

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
