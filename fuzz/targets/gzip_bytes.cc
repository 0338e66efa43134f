// Files of gzip members, whole, cut, damaged, or of any bytes, read through the module in any pieces:
// what is delivered must be what zlib delivers when it reads the same file in one go.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "support/actions.h"
#include "support/gzip.h"
#include "support/target.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <string>
#include <vector>

namespace {

constexpr size_t LARGEST_CONTENT = 1 << 16;

// ---- making the file ----

std::string memberContent(fuzz::Input* input) {
  std::string content;
  const size_t length = input->below(300);
  const std::string part(fuzz::textOf(input->bytes(1 + input->below(40))));
  if (part.empty()) return content;
  while (content.size() < length) content += part;
  content.resize(length);
  return content;
}

// A header with the optional parts that the bits of `parts` say.
gz_header headerWith(size_t parts) {
  static Bytef extra[] = {'A', 'B', 2, 0, 'x', 'y'};
  static Bytef name[] = "a name";
  static Bytef comment[] = "a comment";
  gz_header header = {};
  if ((parts & 1) != 0) {
    header.extra = extra;
    header.extra_len = sizeof extra;
  }
  if ((parts & 2) != 0) header.name = name;
  if ((parts & 4) != 0) header.comment = comment;
  header.hcrc = (parts & 8) != 0 ? 1 : 0;
  return header;
}

std::string member(fuzz::Input* input) {
  const size_t parts = input->byte();
  const int strategy = static_cast<int>(input->below(5));
  const int level = static_cast<int>(parts >> 4) % 10;
  gz_header header = headerWith(parts);
  return kvtest::gzipMember(memberContent(input), {level, 9, 1, strategy}, &header);
}

void damage(std::string* bytes, fuzz::Input* input) {
  const size_t kind = input->below(6);
  if (kind < 2 || bytes->empty()) return;
  const size_t at = input->below(std::min<size_t>(bytes->size(), 65535));
  if (kind == 2) bytes->resize(at);
  if (kind == 3) (*bytes)[at] = static_cast<char>(input->byte());
  if (kind == 4) bytes->resize(bytes->size() - std::min<size_t>(bytes->size(), at % 10));
  if (kind == 5) bytes->insert(at, fuzz::textOf(input->bytes(input->below(6))));
}

std::string gzipFile(fuzz::Input* input) {
  std::string bytes;
  for (size_t pieces = 1 + input->below(4); pieces > 0; --pieces) {
    const size_t kind = input->below(6);
    if (kind < 4) bytes += member(input);
    if (kind == 4) bytes += fuzz::textOf(input->bytes(input->below(200)));
    if (kind == 5) bytes.append(input->below(600), '\0');
  }
  damage(&bytes, input);
  return bytes;
}

// ---- what zlib says ----

struct Expected {
  std::string content;
  bool whole = false;  // without an error to the end
};

Expected readByZlib(const char* path) {
  Expected expected;
  gzFile file = gzopen(path, "r");
  fuzz::expect(file != nullptr, "gzopen");
  expected.content.resize(LARGEST_CONTENT);
  const int count =
      gzread(file, expected.content.data(), static_cast<unsigned>(expected.content.size()));
  int error = 0;
  gzerror(file, &error);
  expected.whole = count >= 0 && count < static_cast<int>(LARGEST_CONTENT) && error == Z_OK;
  expected.content.resize(static_cast<size_t>(std::max(count, 0)));
  gzclose(file);
  return expected;
}

// ---- what the module says ----

class Reading {
 public:
  explicit Reading(const Expected& expected) : expected_(expected), file_(kvhost::newKvFile()) {
    kvhost::addRoot(&file_);
  }
  ~Reading() { kvhost::removeRoot(&file_); }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  void run(fuzz::Input* input) {
    const std::array opening = {file_, kvhost::newString("g"), kvhost::newString("r"), OOP_TRUE};
    if (fuzz::call("KvfOpen", opening) == OOP_NIL) fuzz::fail("not opened");
    while (!input->empty() && !failed_) step(input);
    for (int i = 0; i < 3000 && !failed_ && read(64) > 0; ++i) {
    }
    if (expected_.whole && (failed_ || position_ != expected_.content.size()))
      fuzz::fail("the module delivers " + std::to_string(position_) + " of " +
                 std::to_string(expected_.content.size()) + " bytes");
    const std::array closing = {file_};
    const OopType closed = fuzz::call("KvfClose", closing);
    if (expected_.whole && closed == OOP_NIL) fuzz::fail("not closed");
  }

 private:
  void step(fuzz::Input* input) {
    const size_t choice = input->byte();
    switch (choice % 8) {
      case 0:
        return getByte();
      case 1:
      case 2:
        return getLine(static_cast<char>(choice & 0x80 ? '\n' : input->byte()));
      case 3:
        return seek(input);
      case 4:
        return askEnd();
      case 5:
        return readItems(1 + input->below(90));
      default:
        read(1 + input->below(choice & 0x80 ? 5000 : 200));
    }
  }

  // The next bytes that the module delivered.
  void delivered(std::string_view bytes) {
    const std::string_view known = expected_.content;
    const std::string_view rest = known.substr(std::min(position_, known.size()));
    // Of a damaged file zlib delivers more or less, as the pieces fall that it is asked for.
    const size_t length = expected_.whole ? bytes.size() : std::min(bytes.size(), rest.size());
    if (rest.substr(0, length) != bytes.substr(0, length))
      fuzz::fail("other bytes at " + std::to_string(position_));
    position_ += bytes.size();
  }

  int64 read(size_t count) {
    std::vector<ByteType> buffer(count);
    const int64 got = KvFileRead(file_, buffer.data(), static_cast<intptr_t>(count), 0);
    failed_ = failed_ || got < 0;
    if (got > 0) delivered(fuzz::textOf({buffer.data(), static_cast<size_t>(got)}));
    return got;
  }

  void readItems(size_t count) {
    const OopType object = kvhost::newString("");
    const std::array arguments = {file_, object, kvhost::newInteger(1),
                                  kvhost::newInteger(static_cast<int64>(count))};
    const OopType answer = fuzz::call("KvfRead", arguments);
    failed_ = failed_ || answer == OOP_NIL;
    // What came before a failure may be stored without being answered.
    if (!failed_) delivered(kvhost::bytesOf(object));
  }

  void getByte() {
    const std::array arguments = {file_};
    const OopType answer = fuzz::call("KvfGetC", arguments);
    if (oopIsCharacter(answer)) {
      delivered(std::string(1, static_cast<char>(oopCharacterCode(answer))));
    } else {
      mayEnd();
    }
  }

  void getLine(char end) {
    const std::array arguments = {file_, OOP_NIL, kvhost::newInteger(1),
                                  kvhost::newInteger(static_cast<unsigned char>(end)), OOP_NIL};
    const OopType answer = fuzz::call("KvfGetLine", arguments);
    if (answer == OOP_NIL) return mayEnd();
    const std::string line = kvhost::bytesOf(answer);
    const size_t found = line.find(end);
    if (found != std::string::npos && found + 1 != line.size()) fuzz::fail("a line within a line");
    delivered(line);
  }

  void askEnd() {
    const std::array arguments = {file_};
    const OopType answer = fuzz::call("KvfAtEnd", arguments);
    if (expected_.whole && answer == OOP_FALSE && position_ >= expected_.content.size() && !sought_)
      fuzz::fail("not at the end");
  }

  void seek(fuzz::Input* input) {
    const auto to = static_cast<int64>(input->below(expected_.content.size() + 1));
    if (!expected_.whole) return;
    const std::array arguments = {file_, kvhost::newInteger(to), kvhost::newInteger(0)};
    if (fuzz::call("KvfSeek", arguments) == OOP_NIL) fuzz::fail("not sought");
    position_ = static_cast<size_t>(to);
    sought_ = true;
    const std::array asking = {file_};
    if (fuzz::call("KvfPosition", asking) != oopFromSmallInteger(to))
      fuzz::fail("another position");
  }

  // Nothing came: the file is at its end, or reading it failed.
  void mayEnd() {
    if (!expected_.whole) {
      failed_ = true;
    } else if (position_ < expected_.content.size()) {
      fuzz::fail("nothing comes at " + std::to_string(position_));
    }
  }

  const Expected& expected_;
  OopType file_;
  size_t position_ = 0;
  bool failed_ = false;
  bool sought_ = false;
};

void begin() {
  kvhost::initialize();
  KvfUserActionInit();
  fuzz::silence(STDOUT_FILENO);
  KvfStartup(kvhost::sessionBegin());
  fuzz::enterScratchDirectory();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool begun = (begin(), true);
  (void)begun;
  fuzz::Input input({data, size});
  const std::string bytes = gzipFile(&input);
  const int file = open("g", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  fuzz::expect(write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
               "write");
  close(file);
  const Expected expected = readByZlib("g");
  const int descriptors = fuzz::openDescriptors();
  Reading(expected).run(&input);
  fuzz::expect(fuzz::openDescriptors() == descriptors, "a descriptor is left open");
  const OopType kvFile = kvhost::CLASS_KV_FILE;
  kvhost::callAction("KvfCloseAll", &kvFile, 1);
  if (kvhost::objectsSinceCollection() > 20000) kvhost::collectGarbage();
  return 0;
}
