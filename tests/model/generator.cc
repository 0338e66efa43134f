#include "model/generator.h"

#include "model/actions.h"
#include "support/gzip.h"

#include <algorithm>
#include <iterator>
#include <span>

namespace model {

namespace {

// The mixing of splitmix64: any two seeds give unrelated numbers. Or numbers that are read from given
// bytes, as few of them for each as it needs; behind their end they are mixed.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  explicit Random(std::span<const uint8_t> given) : given_(given), state_(given.size()) {}

  uint64_t next() { return given_.empty() ? mixed() : read(sizeof(uint64_t)); }
  int64 below(int64 bound) {
    const auto limit = static_cast<uint64_t>(bound);
    if (given_.empty()) return static_cast<int64>(mixed() % limit);
    size_t bytes = 1;
    while (bytes < sizeof(uint64_t) && (limit - 1) >> (8 * bytes) != 0) ++bytes;
    return static_cast<int64>(read(bytes) % limit);
  }
  bool hasGiven() const { return !given_.empty(); }
  int64 between(int64 low, int64 high) { return low + below(high - low + 1); }
  bool oneIn(int64 count) { return below(count) == 0; }
  template <typename Container>
  const auto& pick(const Container& from) {
    return *(std::begin(from) + below(static_cast<int64>(std::size(from))));
  }

 private:
  uint64_t mixed() {
    uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }
  uint64_t read(size_t count) {
    uint64_t value = 0;
    for (count = std::min(count, given_.size()); count > 0; --count) {
      value = value << 8 | given_.front();
      given_ = given_.subspan(1);
    }
    return value;
  }

  std::span<const uint8_t> given_;
  uint64_t state_;
};

struct Weight {
  Step step;
  int weight;
};

constexpr Weight WEIGHTS[] = {
    {Step::KvfOpen, 60},
    {Step::KvfCreateStdFile, 16},
    {Step::KvfClose, 24},
    {Step::KvfCloseAll, 2},
    {Step::KvfFinalizeAll, 3},
    {Step::KvfClientFinalize, 5},
    {Step::KvfRead, 150},
    {Step::KvfGetC, 80},
    {Step::KvfGetLine, 150},
    {Step::KvfAtEnd, 60},
    {Step::KvfWrite, 90},
    {Step::KvfPutC, 50},
    {Step::KvfPrintBytes, 12},
    {Step::KvfSeek, 110},
    {Step::KvfPosition, 60},
    {Step::KvfFlush, 20},
    {Step::KvfSync, 8},
    {Step::KvfErrorString, 20},
    {Step::KvfErrorCode, 8},
    {Step::KvfIsOpen, 6},
    {Step::KvfIsCompressed, 14},
    {Step::KvfGetFileDesc, 6},
    {Step::KvfLoadByteStrings, 20},
    {Step::KvfClassError, 6},
    {Step::KvFileRead, 60},
    {Step::KvFileWrite, 40},
    {Step::KvFileFetchErrorString, 14},
    {Step::KvfStartup, 1},
    {Step::KvfShutdown, 1},
    {Step::SelectSession, 14},
    {Step::SetObject, 24},
};

class Generator {
 public:
  Generator(Random random, int64 bufferSize) : random_(random), buffer_(bufferSize) {}

  Sequence sequence();
  Sequence sequenceWhileGiven();

 private:
  // Numbers.
  int64 limit();
  int64 orLimit(int64 typical) { return random_.below(5) == 0 ? limit() : typical; }
  int64 amount();
  Value integer(int64 typical);
  int session();

  // Bytes.
  std::string fill(int64 size);
  std::string lines(int64 size);
  std::string decimals(int64 size);
  std::string packed(const std::string& content);
  std::string gzipFile();
  std::string lineEnd();

  // Arguments.
  Value file();
  Value target();
  Value source();
  Value path();
  Value mode(bool gzip);

  Sequence withFiles();
  Operation step();
  Operation open();
  Operation clientFinalize();
  Operation getLine(Value which);
  Operation write(Value which);
  Operation forC(Step kind, Value which);
  Operation onFile(Step kind, Value which);

  Random random_;
  int64 buffer_;
};

// ---- numbers ----

int64 Generator::limit() {
  static constexpr int64 LIMITS[] = {0, 1LL << 31, 1LL << 32, 1LL << 60,
                                     std::numeric_limits<int64>::min()};
  const int64 base = random_.pick(LIMITS);
  return wrappedSum(random_.oneIn(2) ? base : wrappedDifference(0, base), random_.between(-2, 2));
}

// A count of bytes: few, or around a buffer's size, or around what zlib holds.
int64 Generator::amount() {
  switch (random_.below(8)) {
    case 0:
      return random_.between(0, 3);
    case 1:
      return buffer_ + random_.between(-2, 2);
    case 2:
      return 2 * buffer_ + random_.between(-2, 2);
    case 3:
      return buffer_ == 4096 && random_.oneIn(4) ? 16384 + random_.between(-2, 2)
                                                 : random_.between(0, 3 * buffer_);
    default:
      return random_.between(1, std::min<int64>(buffer_, 60));
  }
}

// Now and then something that is no integer.
Value Generator::integer(int64 typical) {
  if (random_.oneIn(60)) return random_.oneIn(2) ? Value::nil() : Value::text("7");
  return Value::integer(orLimit(typical));
}

int Generator::session() {
  if (!random_.oneIn(3)) return 0;
  const int64 id = orLimit(random_.between(1, 2));
  return static_cast<int>(std::clamp<int64>(id, -2147483648LL, 2147483647LL));
}

// ---- bytes ----

// Few different bytes, so that parts of line ends are everywhere.
std::string Generator::fill(int64 size) {
  static const std::string ALPHABETS[] = {"ab\n", "a\r\n", "aab\n", std::string("ab\0\n", 4),
                                          "abcdefgh\n"};
  const std::string& alphabet = random_.pick(ALPHABETS);
  std::string bytes(static_cast<size_t>(std::max<int64>(size, 0)), '\0');
  uint64_t bits = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i % 16 == 0) bits = random_.next();
    bytes[i] = alphabet[(bits & 15) % alphabet.size()];
    bits >>= 4;
  }
  return bytes;
}

std::string Generator::lines(int64 size) {
  std::string bytes(static_cast<size_t>(std::max<int64>(size, 0)), '.');
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>('!' + (i * 7 + i / 64) % 89);
  const int64 period = random_.between(1, 2 * buffer_);
  for (int64 i = period; i < size; i += period) bytes[static_cast<size_t>(i)] = '\n';
  return bytes;
}

std::string Generator::decimals(int64 size) {
  static const std::string ODD = ",\rx12345 ";
  std::string text;
  while (static_cast<int64>(text.size()) < size) {
    if (random_.oneIn(60)) text += random_.pick(ODD);
    text += std::to_string(random_.below(random_.oneIn(30) ? 20000 : 300));
    text += random_.oneIn(8) ? "\n\t" : " ";
  }
  return text.substr(0, static_cast<size_t>(std::max<int64>(size, 0)));
}

// A gzip member, with a level of its own.
std::string Generator::packed(const std::string& content) {
  return kvtest::gzipMember(content,
                            {.level = static_cast<int>(random_.between(0, 2)), .memLevel = 1});
}

// One to three members, sometimes cut, damaged, or with something behind them.
std::string Generator::gzipFile() {
  std::string bytes;
  for (int64 count = random_.between(1, random_.oneIn(2) ? 1 : 3); count > 0; --count)
    bytes += packed(random_.oneIn(2) ? lines(amount()) : fill(amount()));
  switch (random_.below(10)) {
    case 0:
      bytes.resize(static_cast<size_t>(random_.below(static_cast<int64>(bytes.size()))));
      break;
    case 1:
      bytes.resize(bytes.size() - static_cast<size_t>(random_.between(1, 9)));
      break;
    case 2:
      bytes[bytes.size() - static_cast<size_t>(random_.between(1, 8))] ^= 1;
      break;
    case 3:
      bytes[static_cast<size_t>(random_.below(static_cast<int64>(bytes.size())))] ^= 4;
      break;
    case 4:
      bytes += fill(random_.between(1, 9));
      break;
    default:
      break;
  }
  return bytes;
}

std::string Generator::lineEnd() {
  static const std::string ENDS[] = {"\n", "\r\n", "ab", "aab", "aa", "ba\n", "a", "abc"};
  if (random_.oneIn(20)) return fill(random_.between(0, 130));
  return random_.pick(ENDS);
}

// ---- arguments ----

Value Generator::file() {
  if (random_.oneIn(60)) return Value::nil();
  return Value::file(std::min(random_.below(Model::FILES), random_.below(Model::FILES + 1)));
}

Value Generator::target() {
  if (random_.oneIn(80)) return Value::array({Value::nil(), Value::integer(3)});
  if (random_.oneIn(80)) return random_.oneIn(2) ? Value::nil() : Value::integer(5);
  return Value::object(random_.oneIn(40) ? Model::OBJECTS - 1 : random_.below(Model::OBJECTS - 1));
}

Value Generator::source() {
  if (random_.oneIn(3)) return Value::text(fill(random_.between(0, 12)));
  return target();
}

Value Generator::path() {
  switch (random_.below(60)) {
    case 0:
      return Value::text("");
    case 1:
      return Value::text(random_.oneIn(2) ? "stdin" : "stdout");
    case 2:
      return Value::text("missing/x");
    case 3:
      return Value::text(DIRECTORY);
    case 4:
      return Value::utf16();
    case 5:
      return Value::text(std::string(static_cast<size_t>(random_.between(4094, 4097)), 'x'));
    case 6:
      return random_.oneIn(2) ? Value::nil() : Value::byteArray("p0");
    case 7:
      return Value::symbol("p0");
    case 8:
      return Value::text(std::string("p1\0x", 4));
    case 9:
    case 10:
      return Value::text(random_.pick(STANDARD_FILES));
    case 11:
      return Value::text(NEW_FILE);
    default:
      return Value::text(random_.pick(DATA_FILES));
  }
}

Value Generator::mode(bool gzip) {
  static const char* PLAIN[] = {"r",  "w",   "a",   "r+",  "w+",  "a+",  "rb", "wb",
                                "ab", "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};
  static const char* GZIP[] = {"r",   "w",   "a",  "rb", "wb",  "ab",  "w1", "a1",
                               "wb1", "ab1", "w9", "a9", "wb9", "ab9", "r1", "r9"};
  static const char* WRONG[] = {"", "b", "rw", "r+b+", "rb9", "w+", "wb+", "w19", "readonly", "x"};
  if (random_.oneIn(40)) return Value::text(random_.pick(WRONG));
  if (random_.oneIn(80)) return random_.oneIn(2) ? Value::nil() : Value::integer(5);
  if (random_.oneIn(80)) return Value::byteArray("r");
  if (random_.oneIn(80)) return Value::text(std::string("r\0+", 3));
  // Reading is what most steps are about, and making a gzip writer takes long.
  if (random_.oneIn(3)) return Value::text(gzip || random_.oneIn(3) ? "r" : "r+");
  return Value::text(gzip ? random_.pick(GZIP) : random_.pick(PLAIN));
}

// ---- steps ----

Operation Generator::open() {
  Operation made;
  made.step = Step::KvfOpen;
  const bool gzip = random_.oneIn(4);
  Value where = gzip && !random_.oneIn(8) ? Value::text(random_.oneIn(2) ? "g0" : "g1") : path();
  if (gzip && !random_.oneIn(4)) {
    made.arguments = {file(), where, Value::text("r"), Value::boolean(true)};
  } else {
    made.arguments = {file(), where, mode(gzip),
                      random_.oneIn(50) ? Value::nil() : Value::boolean(gzip)};
  }
  return made;
}

Operation Generator::clientFinalize() {
  Operation made;
  made.step = Step::KvfClientFinalize;
  std::vector<Value> elements;
  if (random_.oneIn(50)) elements.resize(static_cast<size_t>(random_.between(498, 502)));
  for (int64 count = random_.between(0, 3); count > 0; --count)
    elements.push_back(random_.oneIn(5) ? integer(20) : file());
  made.arguments = {Value::array(std::move(elements))};
  return made;
}

Operation Generator::getLine(Value which) {
  Value into = random_.oneIn(3) ? target() : Value::nil();
  Value start = Value::integer(orLimit(1));
  if (!into.isNil() && random_.oneIn(2)) start = Value::fromSizeOf(random_.between(-2, 2));
  Value end = random_.oneIn(2) ? integer(random_.oneIn(2) ? '\n' : 'a') : Value::text(lineEnd());
  Value prompt = Value::nil();
  if (random_.oneIn(10))
    prompt = Value::text(random_.oneIn(10) ? lines(random_.between(0, 1030)) : "? ");
  if (random_.oneIn(60)) prompt = Value::byteArray("x");
  Operation made;
  made.step = Step::KvfGetLine;
  made.arguments = {std::move(which), into, start, end, prompt};
  return made;
}

Operation Generator::write(Value which) {
  Operation made;
  made.step = Step::KvfWrite;
  if (random_.oneIn(3)) {
    made.arguments = {std::move(which), source(), integer(random_.between(1, 3)),
                      integer(random_.between(0, 9))};
  } else {
    made.arguments = {std::move(which), source(), Value::integer(1),
                      Value::fromSizeOf(-std::max<int64>(random_.between(-2, 2), 0))};
  }
  return made;
}

Operation Generator::forC(Step kind, Value which) {
  Operation made;
  made.step = kind;
  made.session = session();
  made.arguments = {std::move(which)};
  made.count = orLimit(amount());
  if (kind == Step::KvFileFetchErrorString) made.count = orLimit(random_.between(0, 60));
  if (kind != Step::KvFileWrite) return made;
  if (made.count > 4 * buffer_) made.count = amount();
  made.arguments.push_back(Value::text(fill(made.count)));
  return made;
}

Operation Generator::onFile(Step kind, Value which) {
  Operation made;
  made.step = kind;
  made.arguments = {std::move(which)};
  switch (kind) {
    case Step::KvfCreateStdFile:
      made.arguments.push_back(integer(random_.below(3)));
      break;
    case Step::KvfRead:
      made.arguments.insert(made.arguments.end(), {target(), Value::integer(1), integer(amount())});
      if (random_.oneIn(3))
        made.arguments[2] = integer(random_.between(1, random_.oneIn(2) ? 5 : buffer_ + 1));
      break;
    case Step::KvfPutC:
      made.arguments.push_back(integer(random_.oneIn(2) ? '\n' : random_.below(260)));
      if (random_.oneIn(2))
        made.arguments[1] = Value::character(random_.below(random_.oneIn(20) ? 70000 : 257));
      break;
    case Step::KvfPrintBytes:
      made.arguments.push_back(source());
      break;
    case Step::KvfSeek:
      made.arguments.insert(made.arguments.end(), {integer(amount()), integer(random_.below(3))});
      if (random_.oneIn(4)) made.arguments[1] = Value::integer(-amount());
      break;
    case Step::KvfLoadByteStrings:
      made.arguments.insert(
          made.arguments.end(),
          {target(), integer(random_.oneIn(6) ? random_.between(2046, 2050) : random_.below(40))});
      break;
    default:
      break;
  }
  return made;
}

Operation Generator::step() {
  static const int TOTAL = [] {
    int total = 0;
    for (const Weight& each : WEIGHTS) total += each.weight;
    return total;
  }();
  int64 left = random_.below(TOTAL);
  const Weight* chosen = WEIGHTS;
  while (left >= chosen->weight) left -= (chosen++)->weight;
  Operation made;
  made.step = chosen->step;
  switch (chosen->step) {
    case Step::KvfOpen:
      return open();
    case Step::KvfClientFinalize:
      return clientFinalize();
    case Step::KvfGetLine:
      return getLine(file());
    case Step::KvfWrite:
      return write(file());
    case Step::KvFileRead:
    case Step::KvFileWrite:
    case Step::KvFileFetchErrorString:
      return forC(chosen->step, file());
    case Step::KvfCloseAll:
    case Step::KvfFinalizeAll:
      break;
    case Step::KvfClassError:
      made.arguments = {random_.oneIn(2) ? Value::nil() : Value::text(lines(random_.below(30)))};
      if (random_.oneIn(20)) made.arguments = {Value::text(lines(random_.between(2046, 2050)))};
      if (random_.oneIn(20)) made.arguments = {Value::byteArray("x")};
      break;
    case Step::KvfStartup:
    case Step::KvfShutdown:
      made.session = static_cast<int>(random_.between(0, 2));
      break;
    case Step::SelectSession:
      made.session = static_cast<int>(random_.oneIn(20) ? 0 : random_.between(1, 2));
      break;
    case Step::SetObject:
      made.arguments = {Value::object(random_.below(Model::OBJECTS)), Value::text(fill(amount()))};
      break;
    default:
      return onFile(chosen->step, file());
  }
  return made;
}

Sequence Generator::withFiles() {
  Sequence made;
  for (const char* name : STANDARD_FILES) made.files.push_back({name, lines(amount())});
  made.files.push_back({"p0", random_.oneIn(3) ? decimals(amount()) : fill(amount())});
  made.files.push_back({"p1", random_.oneIn(2) ? lines(amount()) : fill(amount())});
  made.files.push_back({"g0", gzipFile()});
  made.files.push_back({"g1", random_.oneIn(3)   ? fill(amount())
                              : random_.oneIn(3) ? packed(decimals(3 * amount()))
                                                 : gzipFile()});
  return made;
}

Sequence Generator::sequence() {
  Sequence made = withFiles();
  for (int i = 0; i < SEQUENCE_LENGTH; ++i) made.operations.push_back(i < 6 ? open() : step());
  return made;
}

Sequence Generator::sequenceWhileGiven() {
  Sequence made = withFiles();
  for (int i = 0; i < SEQUENCE_LENGTH && random_.hasGiven(); ++i)
    made.operations.push_back(i < 2 ? open() : step());
  return made;
}

}  // namespace

int64 sizeLimitFor(int64 bufferSize) {
  if (bufferSize <= 16) return 4096;
  return bufferSize <= 64 ? 8192 : 65536;
}

Sequence generate(uint64_t seed, uint64_t number, int64 bufferSize) {
  Random mixer(seed ^ (static_cast<uint64_t>(bufferSize) << 48));
  const uint64_t start = mixer.next() + number * 0xD1342543DE82EF95;
  return Generator(Random(Random(start).next()), bufferSize).sequence();
}

Sequence generateFrom(std::span<const uint8_t> choices, int64 bufferSize) {
  return Generator(Random(choices), bufferSize).sequenceWhileGiven();
}

}  // namespace model
