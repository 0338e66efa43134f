// Prints the calls that the seam sees of one action, a name a line.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "seam/seam.h"

#include <cstdio>

int main() {
  kvhost::initialize();
  if (!KvfUserActionInit()) return 1;
  const int session = kvhost::sessionBegin();
  KvfStartup(session);
  const OopType arguments[] = {OOP_NIL, kvhost::newString("/")};
  seam::start();
  if (kvhost::callAction("KvfIsDir", arguments, 2).value != OOP_TRUE) return 1;
  for (const seam::Call& call : seam::stop()) std::puts(call.name.c_str());
  KvfShutdown(session);
  kvhost::sessionEnd(session);
}
