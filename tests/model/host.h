// The model's host: files that are strings of bytes, descriptors that are positions in them, and the
// part of the C library that keeps bytes of its own (standard input and standard output).
#pragma once

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace model {

using int64 = int64_t;

// errno where the last failure left no value that could be foretold.
inline constexpr int UNKNOWN_ERRNO = std::numeric_limits<int>::min();

// A position or product that leaves 64 bits wraps, and what comes out is used as it is.
inline int64 wrappedSum(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64 wrappedDifference(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
inline int64 wrappedProduct(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

struct HostFile {
  std::string name;
  bool exists = false;
  bool isDirectory = false;
  std::string bytes;
  int descriptors = 0;  // open on it now, those that nobody can reach any more left out
  int gzipReaders = 0;
  int gzipWriters = 0;

  // A gzip writer's output is known by what it decompresses to. `bytes` is then what stood before
  // it, and these are the members behind it; `unsettled` while the writer holds data that zlib may
  // have written in part.
  std::vector<std::string> members;
  bool unsettled = false;
};

struct Descriptor {
  HostFile* file = nullptr;
  int64 position = 0;
  bool reads = false;
  bool writes = false;
  bool appends = false;
};

// The text that the standalone host has for an errno.
std::string errnoText(int errNum);

class Host {
 public:
  static constexpr int MAX_DESCRIPTORS = 256;
  static constexpr int64 STREAM_BUFFER = 4096;   // what the C library reads at once
  static constexpr int64 ADDRESSES = 1LL << 46;  // a read of as many bytes ends outside of memory

  explicit Host(int64 sizeLimit) : sizeLimit_(sizeLimit) {}

  // A descriptor that the process has, but not the model.
  void reserve(int descriptor) { taken_[static_cast<size_t>(descriptor)] = true; }
  // Puts a standard descriptor at the start of a file.
  void redirect(int descriptor, HostFile* file, bool reads, bool writes, bool appends);

  HostFile* find(std::string_view name);
  HostFile& add(std::string_view name);
  std::vector<HostFile*> files();

  // A stream's or handle's open; the descriptor, or -1 with the error number. `truncates` and
  // `creates` as for open().
  struct Opening {
    bool reads = false, writes = false, creates = false, truncates = false, appends = false;
    bool toEnd = false;
  };
  int open(const std::string& path, Opening how, bool refuseDirectories, int* errNum);
  void close(int descriptor);
  // No record will ever close it; the descriptor stays taken.
  void lose(int descriptor);
  const std::vector<int>& lost() const { return lost_; }

  Descriptor& at(int descriptor) { return descriptors_[static_cast<size_t>(descriptor)]; }

  // The system's calls: a count or position, or -1 with `lastErrno` set.
  int64 read(int descriptor, int64 count, std::string* bytes);
  int64 seek(int descriptor, int64 offset, int whence);
  // Writes all, or what fits below the limit of a file's size and then fails.
  int64 write(int descriptor, std::string_view bytes);

  // One line from standard input, of at most `limit` bytes: 0, -1 at the end, 1 for a failure.
  int getLine(int64 limit, std::string* line);
  // Gives back what standard input has read ahead; false when the position cannot go there.
  bool flushInput();
  // Through the stream of standard output, which is flushed at once.
  void print(std::string_view text);

  int lastErrno = UNKNOWN_ERRNO;

 private:
  int lowestFree() const;
  int64 fail(int errNum);

  int64 sizeLimit_;
  std::array<HostFile, 16> files_;
  size_t fileCount_ = 0;
  std::array<Descriptor, MAX_DESCRIPTORS> descriptors_;
  std::array<bool, MAX_DESCRIPTORS> taken_{};
  std::vector<int> lost_;
  std::string inputAhead_;
};

}  // namespace model
