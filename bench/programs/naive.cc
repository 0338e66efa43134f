// A twin of the module as one would write it without thinking of speed: one file, the containers of
// the standard library, a byte at a time. It shows what the care is worth.
#include <kvfile/kvhost.h>

#include "programs/program.h"
#include "programs/shapes.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <unordered_map>
#include <vector>

namespace bench {

namespace {

// An open file, plain or compressed, read through a buffer.
class TwinFile {
 public:
  TwinFile(const std::string& path, const char* mode, bool gzip) {
    if (gzip) {
      compressed_ = gzopen(path.c_str(), mode);
    } else {
      const bool writing = mode[0] == 'w';
      plain_ = ::open(path.c_str(), writing ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0666);
    }
    if (compressed_ == nullptr && plain_ < 0) give_up(path.c_str());
  }
  ~TwinFile() {
    if (compressed_ != nullptr) gzclose(compressed_);
    if (plain_ >= 0) ::close(plain_);
  }
  TwinFile(const TwinFile&) = delete;
  TwinFile& operator=(const TwinFile&) = delete;

  // 0 to 255, or -1 at the end.
  int get() {
    if (next_ == buffer_.size() && !refill()) return -1;
    return static_cast<unsigned char>(buffer_[next_++]);
  }

  size_t read(std::vector<char>& target, size_t count) {
    target.clear();
    while (target.size() < count) {
      const int c = get();
      if (c < 0) break;
      target.push_back(static_cast<char>(c));
    }
    return target.size();
  }

  bool write(const std::vector<char>& bytes) {
    const auto size = bytes.size();
    if (compressed_ != nullptr) {
      return gzwrite(compressed_, bytes.data(), static_cast<unsigned>(size)) ==
             static_cast<int>(size);
    }
    return ::write(plain_, bytes.data(), size) == static_cast<ssize_t>(size);
  }

 private:
  bool refill() {
    buffer_.resize(piece_size);
    ssize_t got = 0;
    if (compressed_ != nullptr) {
      got = gzread(compressed_, buffer_.data(), piece_size);
    } else {
      touch(static_cast<uint64_t>(lseek(plain_, 0, SEEK_CUR)));
      got = ::read(plain_, buffer_.data(), piece_size);
    }
    buffer_.resize(got > 0 ? static_cast<size_t>(got) : 0);
    next_ = 0;
    return got > 0;
  }

  int plain_ = -1;
  gzFile compressed_ = nullptr;
  std::vector<char> buffer_;
  size_t next_ = 0;
};

// The files of a session, by their objects.
std::unordered_map<OopType, std::unique_ptr<TwinFile>> files;

OopType openFile(const std::string& path, const char* mode, bool gzip = false) {
  static OopType file = OOP_NIL;
  if (file == OOP_NIL) {
    kvhost::initialize();
    file = kvhost::newKvFile();
    kvhost::addRoot(&file);
  }
  files[file] = std::make_unique<TwinFile>(path, mode, gzip);
  return file;
}

[[gnu::noinline]] OopType getByte(OopType file) {
  const auto found = files.find(file);
  if (found == files.end()) return OOP_NIL;
  const int c = found->second->get();
  return c < 0 ? OOP_NIL : oopFromCharacter(static_cast<unsigned>(c));
}

bool endsWith(const std::string& text, std::string_view end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

[[gnu::noinline]] OopType getLine(OopType file, std::string_view eol) {
  const auto found = files.find(file);
  if (found == files.end()) return OOP_NIL;
  std::string line;
  for (int c = found->second->get(); c >= 0; c = found->second->get()) {
    line.push_back(static_cast<char>(c));
    if (endsWith(line, eol)) break;
  }
  return line.empty() ? OOP_NIL : kvhost::newString(line);
}

template <Mode MODE>
Outcome lines(const Job& job, std::string_view eol, bool gzip) {
  const OopType file = openFile(job.path, "r", gzip);
  const int64_t period = objectsBetweenCollections(job.count);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (OopType line = getLine(file, eol); line != OOP_NIL; line = getLine(file, eol)) {
    if constexpr (MODE == Mode::Check) {
      const std::string text = kvhost::bytesOf(line);
      delivery.item(text.data(), text.size());
    } else {
      delivery.item(nullptr, 0);
    }
    if (delivery.count() % period == 0) kvhost::collectGarbage();
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome linesOf1(const Job& job) {
  return lines<MODE>(job, eol_1, false);
}
template <Mode MODE>
Outcome linesOf3(const Job& job) {
  return lines<MODE>(job, eol_3, false);
}
template <Mode MODE>
Outcome gzipLines(const Job& job) {
  return lines<MODE>(job, eol_1, true);
}

template <Mode MODE>
Outcome bytes(const Job& job) {
  const OopType file = openFile(job.path, "r");
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (OopType c = getByte(file); c != OOP_NIL; c = getByte(file)) {
    const char byte = static_cast<char>(oopCharacterCode(c));
    delivery.item(&byte, 1);
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome bulkRead(const Job& job) {
  const OopType file = openFile(job.path, "r");
  std::vector<char> object;
  Delivery<MODE> delivery;
  const Stopwatch watch;
  while (files.at(file)->read(object, piece_size) > 0) delivery.item(object.data(), object.size());
  return {delivery.count(), watch.elapsed()};
}

template <size_t SIZE, bool GZIP>
Outcome writes(const Job& job) {
  const OopType file = openFile(job.path, "w", GZIP);
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const std::vector<char> copy(piece.bytes, piece.bytes + SIZE);
    if (!files.at(file)->write(copy)) give_up("write");
  }
  files.erase(file);
  return {job.count, watch.elapsed()};
}

template <Mode MODE>
Outcome print(const Job& job) {
  const std::string content = contentOf(job.path);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    std::string text;
    size_t column = 0;
    for (const char c : content) {
      text += std::to_string(static_cast<unsigned char>(c));
      text += ' ';
      if (++column % 1024 == 0) text += '\n';
    }
    if (column % 1024 != 0) text += '\n';
    delivery.item(text.data(), text.size());
  }
  return {delivery.count(), watch.elapsed()};
}

// Text that is taken a character at a time.
class TextReader {
 public:
  explicit TextReader(const std::string& text) : text_(text) {}
  // The next character, or -1 at the end.
  int get() { return next_ < text_.size() ? static_cast<unsigned char>(text_[next_++]) : -1; }

 private:
  const std::string& text_;
  size_t next_ = 0;
};

// The values of a text: one to four digits each, up to the first character that is neither digit
// nor separator. A fifth digit begins the next value.
void readValues(TextReader text, std::vector<unsigned char>& values) {
  unsigned value = 0;
  int digits = 0;
  for (int c = text.get(); c >= 0; c = text.get()) {
    const bool digit = c >= '0' && c <= '9';
    if (digits > 0 && (!digit || digits == 4)) {
      values.push_back(static_cast<unsigned char>(value));
      value = 0;
      digits = 0;
    }
    if (digit) {
      value = value * 10 + static_cast<unsigned>(c - '0');
      ++digits;
    } else if (c != ' ' && c != '\t' && c != '\n') {
      return;
    }
  }
  if (digits > 0) values.push_back(static_cast<unsigned char>(value));
}

template <Mode MODE>
Outcome parse(const Job& job) {
  const std::string text = contentOf(job.path);
  std::vector<unsigned char> values;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    values.clear();
    readValues(TextReader(text), values);
    touch(values.data());
  }
  const int64_t elapsed = watch.elapsed();
  Delivery<MODE> delivery;
  delivery.item(values.data(), values.size());
  return {static_cast<int64_t>(values.size()) * job.count, elapsed};
}

template <Mode MODE>
Outcome directory(const Job& job) {
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(job.path)) {
      names.push_back(entry.path().string());
    }
    for (const std::string& name : names) {
      touch(kvhost::newString(name));
      delivery.item(name.data(), name.size());
    }
    kvhost::collectGarbage();
  }
  return {delivery.count(), watch.elapsed()};
}

Outcome openClose(const Job& job) {
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (std::filesystem::is_directory(job.path)) give_up("a directory");
    const std::ifstream stream(job.path, std::ios::binary);
    if (!stream) give_up(job.path.c_str());
  }
  return {job.count, watch.elapsed()};
}

using enum Mode;

constexpr std::array<Workload, 12> workloads = {{
    {"lines", linesOf1<Check>, linesOf1<Time>},
    {"eol3", linesOf3<Check>, linesOf3<Time>},
    {"gzip-lines", gzipLines<Check>, gzipLines<Time>},
    {"bytes", bytes<Check>, bytes<Time>},
    {"bulk-read", bulkRead<Check>, bulkRead<Time>},
    {"bulk-write", writes<piece_size, false>, writes<piece_size, false>},
    {"small-write", writes<small_write_size, false>, writes<small_write_size, false>},
    {"gzip-write", writes<piece_size, true>, writes<piece_size, true>},
    {"print", print<Check>, print<Time>},
    {"parse", parse<Check>, parse<Time>},
    {"directory", directory<Check>, directory<Time>},
    {"open-close", openClose, openClose},
}};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) { return bench::runProgram(argc, argv, bench::workloads); }
