/* Embeds the module in a product that is C throughout: it links the module and the minimal host,
 * and neither of them needs anything of C++. */
#include "c_host/checks.h"

#include <string.h>

enum { TEXT_SIZE = 2048 };

/* ---- start-up ---- */

static void checkDeclarations(void) {
  CHECK(KvfUserActionInit());
  CHECK(KvfPassiveObjActionInit());
  CHECK(!KvfUserActionInit()); /* each name is taken now */
#define KVF_ACTION(name, count, parameters, meaning) CHECK(miniDeclaredArgCount(#name) == (count));
#include <kvfile/action_table.def>
}

/* ---- the C functions ---- */

typedef struct Transfer {
  OopType file;
  char text[TEXT_SIZE];
  intptr_t count;
  int session;
} Transfer;

static void writeIt(void* argument) {
  Transfer* it = argument;
  it->count = KvFileWrite(it->file, (const ByteType*)it->text, it->count, it->session);
}

static void readIt(void* argument) {
  Transfer* it = argument;
  it->count = KvFileRead(it->file, (ByteType*)it->text, it->count, it->session);
}

static void fetchErrorIt(void* argument) {
  Transfer* it = argument;
  KvFileFetchErrorString(it->file, it->text, sizeof it->text, it->session);
}

static void checkCFunctions(void) {
  OopType file = openFile("direct", "w+", OOP_FALSE);
  Transfer write = {file, "straight from C", 15, 0};
  CHECK(miniProtect(writeIt, &write) && write.count == TRUE);
  CHECK(PERFORM("KvfSeek", file, number(9), number(0)) == number(9));
  Transfer read = {file, "", TEXT_SIZE, SESSION};
  CHECK(miniProtect(readIt, &read) && read.count == 6);
  CHECK(memcmp(read.text, "from C", 6) == 0);
  read.count = TEXT_SIZE;
  CHECK(miniProtect(readIt, &read) && read.count == 0);
  Transfer error = {file, "unset", 0, 0};
  CHECK(miniProtect(fetchErrorIt, &error));
  CHECK(strcmp(error.text, "attempt to read past end of file") == 0);
  CHECK(hasText(PERFORM("KvfErrorString", file), error.text)); /* fetching took nothing away */
  CHECK(PERFORM("KvfClose", file) == file);
  CHECK(miniProtect(writeIt, &write) && write.count == FALSE);
  CHECK(miniProtect(readIt, &read) && read.count == -1);
}

static void checkCFunctionsRaise(void) {
  Transfer stranger = {KciNewOop(MINI_CLASS_FILE), "x", 1, 0};
  CHECK(!miniProtect(writeIt, &stranger) && wasRaised(2364));
  CHECK(!miniProtect(readIt, &stranger) && wasRaised(2364));
  CHECK(miniProtect(fetchErrorIt, &stranger) && stranger.text[0] == '\0');
  stranger.session = OTHER_SESSION;
  CHECK(!miniProtect(fetchErrorIt, &stranger) && wasRaised(4100));
  CHECK(nothingWasRaised());
}

/* ---- ending ---- */

static void checkOtherSession(void) {
  OopType file = openFile("raise", "w", OOP_FALSE);
  KvfStartup(OTHER_SESSION);
  miniUseSession(OTHER_SESSION);
  CHECK(PERFORM("KvfGetC", file) == OOP_NIL && wasRaised(2364));
  KvfShutdown(OTHER_SESSION);
  miniUseSession(SESSION);
  OopType dead = KciNewOop(OOP_CLASS_ARRAY);
  const OopType id = KciI64ToOop((int64)file);
  KciAppendOops(dead, 1, &id);
  CHECK(PERFORM("KvfClientFinalize", dead) == OOP_TRUE);
  CHECK(PERFORM("KvfGetC", file) == OOP_NIL && wasRaised(2364));
}

static void checkShutdown(int descriptors) {
  openFile("lines", "r", OOP_FALSE);
  openFile("lines.gz", "rb", OOP_TRUE);
  CHECK(openDescriptors() == descriptors + 2);
  KvfShutdown(SESSION);
  CHECK(miniLiveBlocks() == 0 && miniLiveMapParts() == 0);
  CHECK(openDescriptors() == descriptors);
}

int main(void) {
  makeDirectory();
  int descriptors = openDescriptors();
  checkDeclarations();
  miniUseSession(SESSION);
  KvfStartup(SESSION);
  checkFiles();
  checkErrors();
  checkProcess();
  checkCFunctions();
  checkCFunctionsRaise();
  checkOtherSession();
  checkShutdown(descriptors);
  removeDirectory();
  miniFreeWalk();
  miniFreeObjects();
  return 0;
}
