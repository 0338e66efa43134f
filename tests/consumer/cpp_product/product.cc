// What a product does with the installed libraries: it links the module and the standalone host, and
// reads back what it wrote.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include <cstdio>
#include <string>

static OopType call(const char* name, std::initializer_list<OopType> args) {
  return kvhost::callAction(name, std::data(args), static_cast<int>(args.size())).value;
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  kvhost::initialize();
  if (!KvfUserActionInit()) return 1;
  const int session = kvhost::sessionBegin();
  KvfStartup(session);
  const OopType file = kvhost::newKvFile();
  call("KvfOpen", {file, kvhost::newString(argv[1]), kvhost::newString("w+"), OOP_FALSE});
  const ByteType text[] = {'k', 'e', 'p', 't', '\n'};
  const bool written = KvFileWrite(file, text, sizeof text, session) != 0;
  call("KvfSeek", {file, oopFromSmallInteger(0), oopFromSmallInteger(0)});
  const OopType line = call(
      "KvfGetLine", {file, OOP_NIL, oopFromSmallInteger(1), oopFromSmallInteger('\n'), OOP_NIL});
  std::fputs(kvhost::bytesOf(line).c_str(), stdout);
  KvfShutdown(session);
  kvhost::sessionEnd(session);
  return written ? 0 : 1;
}
