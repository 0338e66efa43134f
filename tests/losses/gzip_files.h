// Gzip files seen from beside zlib's own functions for files: what a damaged or unfinished one still
// holds, and handles whose descriptor begins to refuse.
#pragma once

#include "openfile/openfile_fixture.h"
#include "support/gzip.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace kvtest {

// All that the members of `raw` hold, one after the other, up to their end or to the first byte that
// cannot be. Nothing is checked but what inflating checks.
inline std::string unpackedAsFarAsPossible(std::string_view raw) {
  std::string text;
  z_stream stream{};
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(raw.data()));
  stream.avail_in = static_cast<uInt>(raw.size());
  for (int status = Z_STREAM_END; status == Z_STREAM_END && stream.avail_in > 0;) {
    if (inflateInit2(&stream, 15 + 16) != Z_OK) break;
    do {
      char piece[16384];
      stream.next_out = reinterpret_cast<Bytef*>(piece);
      stream.avail_out = sizeof piece;
      status = inflate(&stream, Z_SYNC_FLUSH);
      text.append(piece, sizeof piece - stream.avail_out);
    } while (status == Z_OK && (stream.avail_in > 0 || stream.avail_out == 0));
    inflateEnd(&stream);
  }
  return text;
}

// Lines of digits and letters that hardly repeat, about `size` bytes; the same for the same seed.
inline std::string linesThatHardlyPack(std::size_t size, unsigned seed = 1) {
  std::string text;
  text.reserve(size + 64);
  unsigned state = seed * 2654435761U + 1;
  while (text.size() < size) {
    for (int i = 0; i < 40; ++i) {
      state = state * 1664525U + 1013904223U;
      text += static_cast<char>('0' + (state >> 24) % 75);
    }
    text += '\n';
  }
  return text;
}

// The number of the descriptor that is open on `path`, or -1.
inline int descriptorOn(const std::filesystem::path& path) {
  const std::filesystem::path wanted = std::filesystem::weakly_canonical(path);
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    if (std::filesystem::read_symlink(entry.path(), ignored) == wanted)
      return std::stoi(entry.path().filename());
  }
  return -1;
}

// While it lives, the descriptor that is open on `path` refuses every read and write: it leads to a
// directory, or to a device that is full.
class RefusingDescriptor {
 public:
  enum class Refusal { ReadsWithEISDIR, WritesWithENOSPC };

  RefusingDescriptor(const std::string& path, Refusal refusal)
      : fd_(descriptorOn(path)), saved_(fcntl(fd_, F_DUPFD_CLOEXEC, 0)) {
    EXPECT_GE(fd_, 0) << path << " is not open";
    const bool reads = refusal == Refusal::ReadsWithEISDIR;
    const int other = open(reads ? "/" : "/dev/full", (reads ? O_RDONLY : O_WRONLY) | O_CLOEXEC);
    dup2(other, fd_);
    close(other);
  }
  ~RefusingDescriptor() { mend(); }
  RefusingDescriptor(const RefusingDescriptor&) = delete;
  RefusingDescriptor& operator=(const RefusingDescriptor&) = delete;

  // The descriptor is what it was.
  void mend() {
    if (saved_ < 0) return;
    dup2(saved_, fd_);
    close(saved_);
    saved_ = -1;
  }

 private:
  int fd_;
  int saved_;
};

}  // namespace kvtest
