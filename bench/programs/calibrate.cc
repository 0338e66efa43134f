// What the machine takes for the calls that the workloads are made of. Prints "NAME VALUE" lines:
// nanoseconds of CPU a call, and gigabytes a second for memcpy.
#include "programs/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

namespace bench {

namespace {

// The best of five: what the machine can do when nothing disturbs it.
template <typename Body>
double nanosecondsPerCall(int64_t calls, Body body) {
  double best = 1e30;
  for (int round = 0; round < 5; ++round) {
    const Stopwatch watch;
    for (int64_t i = 0; i < calls; ++i) body();
    best = std::min(best, static_cast<double>(watch.elapsed()) / static_cast<double>(calls));
  }
  return best;
}

void show(const char* name, double value) { std::printf("%s %.3f\n", name, value); }

// Every call is made on the same place of the file, which stays in memory.
void systemCalls(const std::string& folder) {
  const std::string path = folder + "/calibration";
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (file < 0) give_up(path.c_str());
  std::array<char, 4096> buffer{};
  const auto transfer = [&](auto call, size_t size) {
    return [&buffer, file, call, size] {
      lseek(file, 0, SEEK_SET);
      if (call(file, buffer.data(), size) != static_cast<ssize_t>(size)) give_up("transfer");
    };
  };
  const auto writes = [](int to, char* bytes, size_t size) { return write(to, bytes, size); };
  const auto reads = [](int from, char* bytes, size_t size) { return read(from, bytes, size); };
  if (write(file, buffer.data(), buffer.size()) < 0) give_up("write");
  const double seek = nanosecondsPerCall(50000, [&] { lseek(file, 0, SEEK_SET); });
  show("lseek", seek);
  show("read_1", nanosecondsPerCall(20000, transfer(reads, 1)) - seek);
  show("read_4096", nanosecondsPerCall(20000, transfer(reads, 4096)) - seek);
  show("write_40", nanosecondsPerCall(20000, transfer(writes, 40)) - seek);
  show("write_4096", nanosecondsPerCall(20000, transfer(writes, 4096)) - seek);
  show("open_close", nanosecondsPerCall(10000, [&] {
         const int again = open(path.c_str(), O_RDONLY);
         close(again);
       }));
  close(file);
  unlink(path.c_str());
}

void memory() {
  show("malloc_free_64", nanosecondsPerCall(500000, [] {
         void* block = std::malloc(64);
         touch(block);
         std::free(block);
       }));
  const auto copySpeed = [](size_t size, int64_t calls) {
    const std::vector<char> from(size, 'x');
    std::vector<char> to(size);
    const double each = nanosecondsPerCall(calls, [&] {
      std::memcpy(to.data(), from.data(), size);
      touch(to.data());
    });
    return static_cast<double>(size) / each;
  };
  show("memcpy_16K_GBs", copySpeed(16384, 20000));
  show("memcpy_256K_GBs", copySpeed(262144, 1000));
  show("memcpy_64M_GBs", copySpeed(64 << 20, 2));
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  bench::systemCalls(argv[1]);
  bench::memory();
  return 0;
}
