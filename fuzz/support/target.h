// What every target is made of: a function that takes one input, the reading of it, and the report of
// a finding. libFuzzer calls the function, or replay_main.cc does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

using Bytes = std::span<const uint8_t>;

// Writes to what standard error was when the process began: targets put other files there.
void report(std::string_view text);

// Reports a finding and ends the process.
[[noreturn]] void fail(const std::string& what);

inline void expect(bool holds, const char* what) {
  if (!holds) [[unlikely]]
    fail(what);
}

// Puts /dev/null behind a standard descriptor.
void silence(int descriptor);

// A new directory in memory, which is current from now on and gone when the process ends in order.
const std::string& enterScratchDirectory();

// The same, and the place where the model's comparison makes a directory of its own.
void hostModelDirectory();

// The largest size of a file from now on, for the module; 0: any.
void limitFileSize(uint64_t bytes);

// Descriptors that are open, below the ones that targets keep for themselves.
int openDescriptors();

// An input, taken from its start. Behind its end come zeros.
class Input {
 public:
  explicit Input(Bytes bytes) : left_(bytes) {}

  bool empty() const { return left_.empty(); }
  size_t size() const { return left_.size(); }

  uint8_t byte() {
    if (left_.empty()) return 0;
    const uint8_t first = left_.front();
    left_ = left_.subspan(1);
    return first;
  }
  // 0 to `bound` - 1, at most 65535.
  size_t below(size_t bound) {
    if (bound <= 1) return 0;
    if (bound <= 256) return byte() % bound;
    const size_t high = byte();
    return (high << 8 | byte()) % bound;
  }
  // At most `count` bytes.
  Bytes bytes(size_t count) {
    const Bytes taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  Bytes rest() { return bytes(left_.size()); }

 private:
  Bytes left_;
};

inline std::string_view textOf(Bytes bytes) {
  const void* start = bytes.data();
  return {static_cast<const char*>(start), bytes.size()};
}

}  // namespace fuzz
