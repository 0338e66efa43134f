// The floors: for each workload the best plain loop that makes the same system calls and copies with
// the same object allocator, and nothing else; and, named "bare-...", its system calls alone.
#include <kvfile/kvhost.h>

#include "programs/byte_scan.h"
#include "programs/object_allocator.h"
#include "programs/probing_map.h"
#include "programs/program.h"
#include "programs/shapes.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <vector>

namespace bench {

namespace {

// A file with a buffer of one piece; every refill asks for the position first.
struct PlainFile {
  int descriptor;
  size_t next = 0;
  size_t end = 0;
  alignas(64) char buffer[piece_size];

  explicit PlainFile(const std::string& path) : descriptor(open(path.c_str(), O_RDONLY)) {
    if (descriptor < 0) give_up(path.c_str());
  }
  ~PlainFile() { close(descriptor); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  bool refill() {
    touch(static_cast<uint64_t>(lseek(descriptor, 0, SEEK_CUR)));
    const ssize_t got = read(descriptor, buffer, piece_size);
    next = 0;
    end = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
  }
};

int openForWriting(const std::string& path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (descriptor < 0) give_up(path.c_str());
  return descriptor;
}

template <Mode MODE>
Outcome lines(const Job& job, std::string_view eol) {
  kvhost::initialize();
  PlainFile file(job.path);
  std::string begun;  // of a line that goes on behind the buffer
  StringMaker strings(job.count);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  const auto make = [&](const char* bytes, size_t size) {
    touch(strings.make(bytes, size));
    delivery.item(bytes, size);
  };
  while (file.refill()) {
    while (file.next < file.end) {
      const char* begin = file.buffer + file.next;
      const char* found = findLast(begin, file.buffer + file.end, eol);
      if (found == nullptr) {
        begun.append(begin, file.end - file.next);
        break;
      }
      file.next = static_cast<size_t>(found - file.buffer);
      if (begun.empty()) {
        make(begin, static_cast<size_t>(found - begin));
      } else {
        begun.append(begin, found);
        make(begun.data(), begun.size());
        begun.clear();
      }
    }
  }
  if (!begun.empty()) make(begun.data(), begun.size());
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome linesOf1(const Job& job) {
  return lines<MODE>(job, eol_1);
}
template <Mode MODE>
Outcome linesOf3(const Job& job) {
  return lines<MODE>(job, eol_3);
}

// One call a byte, as the workload has it.
[[gnu::noinline]] OopType nextByte(PlainFile& file) {
  if (file.next == file.end && !file.refill()) return OOP_NIL;
  return oopFromCharacter(static_cast<unsigned char>(file.buffer[file.next++]));
}

template <Mode MODE>
Outcome bytes(const Job& job) {
  PlainFile file(job.path);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (OopType c = nextByte(file); c != OOP_NIL; c = nextByte(file)) {
    const char byte = static_cast<char>(oopCharacterCode(c));
    delivery.item(&byte, 1);
  }
  return {delivery.count(), watch.elapsed()};
}

enum class Copy { No, Yes };

template <Mode MODE, Copy COPY>
Outcome bulkRead(const Job& job) {
  PlainFile file(job.path);
  alignas(64) static char object[piece_size];
  Delivery<MODE> delivery;
  const Stopwatch watch;
  while (file.refill()) {
    if constexpr (COPY == Copy::Yes) {
      std::memcpy(object, file.buffer, file.end);
      touch(object);
      delivery.item(object, file.end);
    } else {
      delivery.item(file.buffer, file.end);
    }
  }
  return {delivery.count(), watch.elapsed()};
}

template <size_t SIZE, Copy COPY>
Outcome writes(const Job& job) {
  const int descriptor = openForWriting(job.path);
  alignas(64) char buffer[SIZE];
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if constexpr (COPY == Copy::Yes) {
      std::memcpy(buffer, piece.bytes, SIZE);
      touch(buffer);
    }
    const void* source = COPY == Copy::Yes ? buffer : piece.bytes;
    if (write(descriptor, source, SIZE) != static_cast<ssize_t>(SIZE)) give_up("write");
  }
  close(descriptor);
  return {job.count, watch.elapsed()};
}

// gzread alone, in pieces; an item is a line of `job.count` bytes, which nothing looks for.
template <Mode MODE>
Outcome gzipLines(const Job& job) {
  const gzFile file = gzopen(job.path.c_str(), "r");
  if (file == nullptr) give_up(job.path.c_str());
  alignas(64) static char buffer[piece_size];
  Delivery<MODE> delivery;
  int64_t total = 0;
  const Stopwatch watch;
  for (;;) {
    const int got = gzread(file, buffer, piece_size);
    if (got <= 0) break;
    total += got;
    delivery.item(buffer, static_cast<size_t>(got));
  }
  gzclose(file);
  return {total / job.count, watch.elapsed()};
}

Outcome gzipWrite(const Job& job) {
  const gzFile file = gzopen(job.path.c_str(), "w");
  if (file == nullptr) give_up(job.path.c_str());
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (gzwrite(file, piece.bytes, piece_size) != static_cast<int>(piece_size)) give_up("gzwrite");
  }
  gzclose(file);
  return {job.count, watch.elapsed()};
}

// A copy of what printing delivers, made beforehand.
template <Mode MODE>
Outcome print(const Job& job) {
  const std::string content = contentOf(job.path);
  std::string printed;
  for (size_t i = 0; i < content.size(); ++i) {
    printed += std::to_string(static_cast<unsigned char>(content[i]));
    printed += ' ';
    if (i % 1024 == 1023 || i + 1 == content.size()) printed += '\n';
  }
  std::vector<char> copy(printed.size());
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    std::memcpy(copy.data(), printed.data(), printed.size());
    touch(copy.data());
    delivery.item(copy.data(), copy.size());
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome directory(const Job& job) {
  kvhost::initialize();
  StringMaker strings(StringMaker::never);  // names live on until the walk ends
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    DIR* directory = opendir(job.path.c_str());
    if (directory == nullptr) give_up(job.path.c_str());
    std::vector<OopType> names;
    std::string name = job.path + '/';
    const size_t prefix = name.size();
    while (const struct dirent* entry = readdir(directory)) {
      const char* text = entry->d_name;
      if (std::strcmp(text, ".") == 0 || std::strcmp(text, "..") == 0) continue;
      name.replace(prefix, std::string::npos, text);
      names.push_back(strings.make(name.data(), name.size()));
      delivery.item(name.data(), name.size());
    }
    closedir(directory);
    touch(names.data());
    kvhost::collectGarbage();
  }
  return {delivery.count(), watch.elapsed()};
}

// The system calls of a walk with the C library's buffer size; an item is an entry.
template <Mode MODE>
Outcome bareDirectory(const Job& job) {
  alignas(64) static char buffer[32768];
  int64_t entries = 0;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const int descriptor = open(job.path.c_str(), O_RDONLY | O_DIRECTORY);
    if (descriptor < 0) give_up(job.path.c_str());
    for (;;) {
      const ssize_t got = getdents64(descriptor, buffer, sizeof buffer);
      if (got <= 0) break;
      for (ssize_t at = 0; at < got;
           at += reinterpret_cast<const struct dirent64*>(buffer + at)->d_reclen) {
        ++entries;
      }
    }
    close(descriptor);
    entries -= 2;  // itself and its parent
  }
  return {entries, watch.elapsed()};
}

Outcome openClose(const Job& job) {
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    const int descriptor = open(job.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) give_up(job.path.c_str());
    close(descriptor);
  }
  return {job.count, watch.elapsed()};
}

template <Mode MODE>
Outcome lookup(const Job& job) {
  ProbingMap map(static_cast<size_t>(job.count));
  const std::vector<OopType> keys = fileKeys(job.count);
  for (const OopType key : keys) map.add(key, &map);
  const std::vector<OopType> wanted = randomPicks(keys);
  int64_t found = 0;
  const Stopwatch watch;
  for (const OopType key : wanted) {
    found += map.find(key) == &map ? 1 : 0;
  }
  const int64_t elapsed = watch.elapsed();
  Delivery<MODE> delivery;
  delivery.item(found == picks ? "all" : "not", 3);
  return {found, elapsed};
}

using enum Mode;

constexpr std::array<Workload, 17> workloads = {{
    {"lines", linesOf1<Check>, linesOf1<Time>},
    {"eol3", linesOf3<Check>, linesOf3<Time>},
    {"bytes", bytes<Check>, bytes<Time>},
    {"bulk-read", bulkRead<Check, Copy::Yes>, bulkRead<Time, Copy::Yes>},
    {"bulk-write", writes<piece_size, Copy::Yes>, writes<piece_size, Copy::Yes>},
    {"small-write", writes<small_write_size, Copy::Yes>, writes<small_write_size, Copy::Yes>},
    {"gzip-lines", gzipLines<Check>, gzipLines<Time>},
    {"gzip-write", gzipWrite, gzipWrite},
    {"print", print<Check>, print<Time>},
    {"directory", directory<Check>, directory<Time>},
    {"open-close", openClose, openClose},
    {"lookup", lookup<Check>, lookup<Time>},
    {"bare-reads", bulkRead<Check, Copy::No>, bulkRead<Time, Copy::No>},
    {"bare-bulk-write", writes<piece_size, Copy::No>, writes<piece_size, Copy::No>},
    {"bare-small-write", writes<small_write_size, Copy::No>, writes<small_write_size, Copy::No>},
    {"bare-directory", bareDirectory<Check>, bareDirectory<Time>},
    {"bare-open-close", openClose, openClose},
}};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) { return bench::runProgram(argc, argv, bench::workloads); }
