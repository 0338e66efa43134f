// The actions with something added to each line and each byte, which DEARER names:
//
//   instructions=N   N instructions more, or a few less
//   system-call      one lseek
//   allocation       one block of memory
//   library-call     one call of the C library
//   platform-call    what KvfIsOpen asks of the platform
#include "programs/actions.h"
#include "programs/program.h"

#include <unistd.h>

namespace bench {

namespace {

// Three instructions a round, and some six to come here.
void spend(long rounds) {
  for (long i = 0; i < rounds; ++i) asm volatile("");
}

std::string_view kind() {
  const char* set = std::getenv("DEARER");
  return set != nullptr ? set : "";
}

void addedWork(OopType file) {
  static const std::string_view added = kind();
  static const long instructions =
      added.starts_with("instructions=") ? std::atol(added.substr(added.find('=') + 1).data()) : 0;
  static const long rounds = (instructions - 6) / 3;
  if (instructions > 0) spend(rounds);
  if (added == "system-call") touch(static_cast<uint64_t>(lseek(0, 0, SEEK_CUR)));
  if (added == "library-call") touch(static_cast<uint64_t>(getppid() != 0));
  if (added == "platform-call") touch(::KvfIsOpen(file));
  if (added == "allocation") {
    void* block = std::malloc(16);
    touch(block);
    std::free(block);
  }
}

OopType dearerGetC(OopType file) {
  addedWork(file);
  return ::KvfGetC(file);
}

OopType dearerGetLine(OopType file, OopType string, OopType start, OopType eol, OopType prompt) {
  addedWork(file);
  return ::KvfGetLine(file, string, start, eol, prompt);
}

Actions makeTable() {
  Actions table = {
#define KVF_ACTION(name, count, parameters, meaning) .name = ::name,
#include <kvfile/action_table.def>
  };
  table.KvfGetC = dearerGetC;
  table.KvfGetLine = dearerGetLine;
  return table;
}

}  // namespace

const Actions& actions() {
  static const Actions table = makeTable();
  return table;
}

}  // namespace bench
