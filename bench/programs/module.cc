// The module at work in the standalone host: its actions called directly, and by name through
// kvhost::callAction. Objects that are made are collected, as they are in a product.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "programs/actions.h"
#include "programs/program.h"
#include "programs/shapes.h"

#include <array>
#include <vector>

namespace bench {

namespace {

// How an action is called: through its pointer, or by its name.
struct Direct {
  static constexpr bool by_name = false;
};
struct ByName {
  static constexpr bool by_name = true;
};

template <typename How, typename Function, typename... Args>
inline OopType call(Function function, const char* name, Args... arguments) {
  if constexpr (How::by_name) {
    const std::array<OopType, sizeof...(Args)> list = {arguments...};
    return kvhost::callAction(name, list.data(), static_cast<int>(list.size())).value;
  } else {
    return function(arguments...);
  }
}

// CALL(KvfGetC, file) calls it the way How, out of the table `table`.
#define CALL(name, ...) call<How>(table.name, #name, __VA_ARGS__)

// A session with its file map, and one file object that the collector keeps.
class Session {
 public:
  Session() {
    kvhost::initialize();
    if (!KvfUserActionInit() || !KvfPassiveObjActionInit()) give_up("declaring the actions");
    id_ = kvhost::sessionBegin();
    KvfStartup(id_);
    file = kvhost::newKvFile();
    kvhost::addRoot(&file);
  }
  ~Session() {
    KvfShutdown(id_);
    kvhost::removeRoot(&file);
    kvhost::sessionEnd(id_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void open(const std::string& path, const char* mode, bool compressed = false) {
    const OopType opened = KvfOpen(file, kvhost::newString(path), kvhost::newString(mode),
                                   oopFromBool(compressed ? TRUE : FALSE));
    if (opened == OOP_NIL) give_up(path.c_str());
  }
  OopType file = OOP_NIL;

 private:
  int id_ = 0;
};

// An object that the collector keeps.
class Kept {
 public:
  explicit Kept(OopType object) : object_(object) { kvhost::addRoot(&object_); }
  ~Kept() { kvhost::removeRoot(&object_); }
  Kept(const Kept&) = delete;
  Kept& operator=(const Kept&) = delete;
  OopType object() const { return object_; }

 private:
  OopType object_;
};

// Collects after a number of objects.
class Collecting {
 public:
  explicit Collecting(int64_t objectSize) : period_(objectsBetweenCollections(objectSize)) {}
  void madeOne() {
    if (--left_ > 0) return;
    kvhost::collectGarbage();
    left_ = period_;
  }

 private:
  int64_t period_;
  int64_t left_ = period_;
};

template <Mode MODE>
void deliver(Delivery<MODE>& delivery, OopType text) {
  if constexpr (MODE == Mode::Check) {
    const std::string bytes = kvhost::bytesOf(text);
    delivery.item(bytes.data(), bytes.size());
  } else {
    delivery.item(nullptr, 0);
  }
}

enum class Target { New, Reused };

// `job.count` is the length of a line, by which the collections are spaced.
template <Mode MODE, typename How, Target TARGET, bool GZIP = false, bool LONG_EOL = false>
Outcome lines(const Job& job) {
  const Actions& table = actions();
  Session session;
  session.open(job.path, "r", GZIP);
  const Kept eol(LONG_EOL ? kvhost::newString(eol_3) : oopFromSmallInteger(10));
  const Kept reused(TARGET == Target::Reused ? kvhost::newString("") : OOP_NIL);
  const OopType start = oopFromSmallInteger(1);
  Collecting collecting(job.count);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const OopType line =
        CALL(KvfGetLine, session.file, reused.object(), start, eol.object(), OOP_NIL);
    if (line == OOP_NIL) break;
    deliver(delivery, line);
    if constexpr (TARGET == Target::New) collecting.madeOne();
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE, typename How>
Outcome bytes(const Job& job) {
  const Actions& table = actions();
  Session session;
  session.open(job.path, "r");
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const OopType character = CALL(KvfGetC, session.file);
    if (character == OOP_NIL) break;
    const char byte = static_cast<char>(oopCharacterCode(character));
    delivery.item(&byte, 1);
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE, typename How>
Outcome bulkRead(const Job& job) {
  const Actions& table = actions();
  Session session;
  session.open(job.path, "r");
  const Kept target(kvhost::newByteArray(std::string_view(piece.bytes, piece_size)));
  const OopType one = oopFromSmallInteger(1);
  const OopType amount = oopFromSmallInteger(piece_size);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const OopType got = CALL(KvfRead, session.file, target.object(), one, amount);
    if (got == OOP_NIL || oopSmallIntegerValue(got) <= 0) break;
    if constexpr (MODE == Mode::Check) {
      const std::string read = kvhost::bytesOf(target.object());
      delivery.item(read.data(), static_cast<size_t>(oopSmallIntegerValue(got)));
    } else {
      delivery.item(nullptr, 0);
    }
  }
  return {delivery.count(), watch.elapsed()};
}

// Writes `job.count` pieces; the file itself is what is checked.
template <typename How, size_t SIZE, bool GZIP = false>
Outcome writes(const Job& job) {
  const Actions& table = actions();
  Session session;
  session.open(job.path, "w", GZIP);
  const Kept source(kvhost::newByteArray(std::string_view(piece.bytes, SIZE)));
  const OopType one = oopFromSmallInteger(1);
  const OopType amount = oopFromSmallInteger(SIZE);
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (CALL(KvfWrite, session.file, source.object(), one, amount) != amount) {
      give_up("write");
    }
  }
  if (CALL(KvfClose, session.file) != session.file) give_up("close");
  return {job.count, watch.elapsed()};
}

// Prints the bytes of a file `job.count` times.
template <Mode MODE, typename How>
Outcome print(const Job& job) {
  const Actions& table = actions();
  Session session;
  const std::string content = contentOf(job.path);
  const Kept source(kvhost::newByteArray(content));
  Collecting collecting(static_cast<int64_t>(content.size()) * 4);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const OopType text = CALL(KvfPassiveObjPrint, source.object());
    if (text == OOP_NIL) give_up("print");
    deliver(delivery, text);
    collecting.madeOne();
  }
  return {delivery.count(), watch.elapsed()};
}

// Parses the decimal text of a file `job.count` times; an item is a value.
template <Mode MODE, typename How>
Outcome parse(const Job& job) {
  const Actions& table = actions();
  Session session;
  const std::string text = contentOf(job.path);
  const Kept source(kvhost::newByteArray(text));
  const Kept target(kvhost::newByteArray(""));
  const OopType all = oopFromSmallInteger(static_cast<int64_t>(text.size()));
  const OopType start = oopFromSmallInteger(1);
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const OopType end =
        CALL(KvfPassiveObjLoadByteStrings, target.object(), all, source.object(), start);
    if (end == OOP_NIL) give_up("parse");
  }
  const int64_t elapsed = watch.elapsed();
  const std::string values = kvhost::bytesOf(target.object());
  Delivery<MODE> delivery;
  delivery.item(values.data(), values.size());
  return {static_cast<int64_t>(values.size()) * job.count, elapsed};
}

template <Mode MODE, typename How>
Outcome directory(const Job& job) {
  const Actions& table = actions();
  Session session;
  const Kept path(kvhost::newString(job.path));
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const OopType names = CALL(KvfDirectory, kvhost::CLASS_KV_FILE, path.object(), OOP_FALSE);
    if (names == OOP_NIL) give_up(job.path.c_str());
    if constexpr (MODE == Mode::Check) {
      for (const OopType name : kvhost::elementsOf(names)) deliver(delivery, name);
    } else {
      const int64_t entries = KciFetchSize_(names);
      for (int64_t entry = 0; entry < entries; ++entry) delivery.item(nullptr, 0);
    }
    kvhost::collectGarbage();
  }
  return {delivery.count(), watch.elapsed()};
}

template <typename How>
Outcome openClose(const Job& job) {
  const Actions& table = actions();
  Session session;
  const Kept path(kvhost::newString(job.path));
  const Kept mode(kvhost::newString("r"));
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (CALL(KvfOpen, session.file, path.object(), mode.object(), OOP_FALSE) == OOP_NIL) {
      give_up(job.path.c_str());
    }
    CALL(KvfClose, session.file);
  }
  return {job.count, watch.elapsed()};
}

// Asks for the record of each of `job.count` files, in random order, in the host's map alone.
template <Mode MODE>
Outcome lookup(const Job& job) {
  KciOopMapType* map = KciOopMapCreate();
  const std::vector<OopType> keys = fileKeys(job.count);
  int status = 0;
  for (const OopType key : keys) KciOopMapEntryAdd(map, key, map, &status);
  if (status != 0) give_up("map");
  const std::vector<OopType> wanted = randomPicks(keys);
  int64_t found = 0;
  const Stopwatch watch;
  for (const OopType key : wanted) {
    KciOopMapEntryType* entry = KciOopMapEntryFind(map, key);
    if (entry != nullptr) found += KciOopMapEntryGetValue(entry) == map ? 1 : 0;
  }
  const int64_t elapsed = watch.elapsed();
  Delivery<MODE> delivery;
  delivery.item(found == picks ? "all" : "not", 3);
  return {found, elapsed};
}

// Asks a file that is open, again and again: nothing but the way into an action and out of it.
template <typename How>
Outcome isOpen(const Job& job) {
  const Actions& table = actions();
  Session session;
  session.open(job.path, "r");
  int64_t open = 0;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (CALL(KvfIsOpen, session.file) == OOP_TRUE) ++open;
  }
  return {open, watch.elapsed()};
}

template <typename How>
constexpr std::array<Workload, 16> workloadsOf() {
  using enum Mode;
  using enum Target;
  return {{
      {"lines", lines<Check, How, New>, lines<Time, How, New>},
      {"lines-reused", lines<Check, How, Reused>, lines<Time, How, Reused>},
      {"eol3", lines<Check, How, New, false, true>, lines<Time, How, New, false, true>},
      {"eol3-reused", lines<Check, How, Reused, false, true>,
       lines<Time, How, Reused, false, true>},
      {"gzip-lines", lines<Check, How, New, true>, lines<Time, How, New, true>},
      {"bytes", bytes<Check, How>, bytes<Time, How>},
      {"bulk-read", bulkRead<Check, How>, bulkRead<Time, How>},
      {"bulk-write", writes<How, piece_size>, writes<How, piece_size>},
      {"small-write", writes<How, small_write_size>, writes<How, small_write_size>},
      {"gzip-write", writes<How, piece_size, true>, writes<How, piece_size, true>},
      {"print", print<Check, How>, print<Time, How>},
      {"parse", parse<Check, How>, parse<Time, How>},
      {"directory", directory<Check, How>, directory<Time, How>},
      {"open-close", openClose<How>, openClose<How>},
      {"lookup", lookup<Check>, lookup<Time>},
      {"is-open", isOpen<How>, isOpen<How>},
  }};
}

constexpr auto direct = workloadsOf<Direct>();
constexpr auto by_name = workloadsOf<ByName>();

}  // namespace

}  // namespace bench

// A workload's name behind "call-" has its actions called by name.
int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]).starts_with("call-")) {
    argv[1] += std::string_view("call-").size();
    return bench::runProgram(argc, argv, bench::by_name);
  }
  return bench::runProgram(argc, argv, bench::direct);
}
