// How the module's costs grow with what a process holds: files, sessions, live objects. Each run
// takes one number and prints "NAME VALUE" lines: nanoseconds of CPU, or bytes.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "programs/actions.h"
#include "programs/program.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

namespace {

void show(const char* name, double value) { std::printf("%s %.2f\n", name, value); }

int beginSession() {
  const int session = kvhost::sessionBegin();
  KvfStartup(session);
  return session;
}

void prepare() {
  kvhost::initialize();
  if (!KvfUserActionInit()) give_up("declaring the actions");
}

template <typename T>
void shuffle(std::vector<T>& values) {
  Random random;
  for (size_t i = values.size(); i > 1; --i) std::swap(values[i - 1], values[random.below(i)]);
}

// A whole call on each of `count` registered files, in random order. Standard input can be bound
// any number of times, so that no descriptors are needed.
void calls(int64_t count) {
  prepare();
  const int session = beginSession();
  const Actions& table = actions();
  std::vector<OopType> files;
  const Stopwatch making;
  for (int64_t i = 0; i < count; ++i) {
    files.push_back(kvhost::newKvFile());
    table.KvfCreateStdFile(files.back(), oopFromSmallInteger(0));
  }
  show("register", static_cast<double>(making.elapsed()) / static_cast<double>(count));
  const std::vector<OopType> asked = randomPicks(files);
  int64_t open = 0;
  const Stopwatch watch;
  for (const OopType file : asked) open += table.KvfIsOpen(file) == OOP_TRUE ? 1 : 0;
  const int64_t elapsed = watch.elapsed();
  if (open != picks) give_up("not every file is open");
  show("call", static_cast<double>(elapsed) / static_cast<double>(open));
  const Stopwatch ending;
  KvfShutdown(session);
  kvhost::sessionEnd(session);
  show("release", static_cast<double>(ending.elapsed()) / static_cast<double>(count));
}

// Sessions with a file each: what beginning and ending one costs, and a call in each of them in
// turn.
void sessions(int64_t count) {
  prepare();
  const Actions& table = actions();
  std::vector<std::pair<int, OopType>> files;
  const Stopwatch beginning;
  for (int64_t i = 0; i < count; ++i) {
    const int session = beginSession();
    files.emplace_back(session, kvhost::newKvFile());
    table.KvfCreateStdFile(files.back().second, oopFromSmallInteger(0));
  }
  show("begin", static_cast<double>(beginning.elapsed()) / static_cast<double>(count));
  shuffle(files);
  const int64_t rounds = std::max<int64_t>(1, 500000 / count);
  int64_t open = 0;
  const Stopwatch watch;
  for (int64_t round = 0; round < rounds; ++round) {
    for (const auto& [session, file] : files) {
      kvhost::sessionSelect(session);
      open += table.KvfIsOpen(file) == OOP_TRUE ? 1 : 0;
    }
  }
  const int64_t elapsed = watch.elapsed();
  if (open != rounds * count) give_up("not every file is open");
  show("call", static_cast<double>(elapsed) / static_cast<double>(open));
  const Stopwatch staying;
  for (int64_t i = 0; i < 500000; ++i) open += table.KvfIsOpen(files.back().second) == OOP_TRUE;
  show("call_in_one", static_cast<double>(staying.elapsed()) / 500000.0);
  const Stopwatch ending;
  for (const auto& [session, file] : files) {
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  }
  show("end", static_cast<double>(ending.elapsed()) / static_cast<double>(count));
}

double allocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// Memory that a file takes: its record and what the C library keeps for it, while it is open and
// once it is closed.
void memory(int64_t count) {
  struct rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  if (static_cast<int64_t>(limit.rlim_cur) < count + 64) {
    std::printf("skipped %lld descriptors\n", static_cast<long long>(limit.rlim_cur));
    return;
  }
  prepare();
  const int session = beginSession();
  const OopType path = kvhost::newString("/proc/self/exe");
  const OopType mode = kvhost::newString("r");
  std::vector<OopType> files;
  for (int64_t i = 0; i < count; ++i) files.push_back(kvhost::newKvFile());
  const double before = allocatedBytes();
  for (const OopType file : files) {
    if (KvfOpen(file, path, mode, OOP_FALSE) == OOP_NIL) give_up("open");
  }
  show("open", (allocatedBytes() - before) / static_cast<double>(count));
  for (const OopType file : files) KvfClose(file);
  show("closed", (allocatedBytes() - before) / static_cast<double>(count));
  KvfShutdown(session);
  show("released", (allocatedBytes() - before) / static_cast<double>(count));
  kvhost::sessionEnd(session);
}

// A collection that frees nothing, and one that frees as many objects as live on.
void collections(int64_t count) {
  prepare();
  OopType kept = OOP_NIL;
  kvhost::addRoot(&kept);
  std::vector<OopType> live;
  for (int64_t i = 0; i < count; ++i)
    live.push_back(kvhost::newString("forty bytes, or about as many"));
  kept = kvhost::newArray(live);
  kvhost::collectGarbage();
  const int64_t rounds = std::max<int64_t>(1, 2000000 / count);
  const Stopwatch watch;
  for (int64_t round = 0; round < rounds; ++round) kvhost::collectGarbage();
  const double idle = static_cast<double>(watch.elapsed()) / static_cast<double>(rounds);
  show("live", idle / static_cast<double>(count));
  for (int64_t i = 0; i < count; ++i) kvhost::newString("soon gone");
  const Stopwatch freeing;
  const int64_t freed = kvhost::collectGarbage().objectsFreed;
  const auto took = static_cast<double>(freeing.elapsed());
  if (freed < count) give_up("not everything was collected");
  show("freed", std::max(0.0, took - idle) / static_cast<double>(count));
}

struct Series {
  std::string_view name;
  void (*run)(int64_t count);
};

constexpr Series all_series[] = {
    {"calls", calls}, {"sessions", sessions}, {"memory", memory}, {"collections", collections}};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  const std::string_view wanted = argc == 3 ? argv[1] : "";
  for (const bench::Series& series : bench::all_series) {
    if (series.name != wanted) continue;
    series.run(std::atoll(argv[2]));
    return 0;
  }
  std::fprintf(stderr, "usage: %s calls|sessions|memory|collections COUNT\n", argv[0]);
  return 2;
}
