// What the measured programs share: how they are called, their clock, and what they print.
//
//   PROGRAM WORKLOAD check|time PATH COUNT
//
// With "check" everything that the workload delivers goes to standard output, each item behind a
// byte that no data holds, so that all variants of a workload can be compared. With "time" the same
// code delivers nothing, and the program prints the count of items and the CPU time that they took.
#pragma once

#include <malloc.h>
#include <sys/resource.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

enum class Mode { Check, Time };

struct Job {
  std::string path;  // the file or folder to work on
  int64_t count;     // what the workload makes of it: repetitions, bytes, files
};

struct Outcome {
  int64_t items;
  int64_t nanoseconds;  // of CPU, user and system
};

struct Workload {
  std::string_view name;
  Outcome (*check)(const Job&);
  Outcome (*time)(const Job&);
};

[[noreturn]] inline void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

inline int64_t cpuNanoseconds() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  const auto micro = [](const struct timeval& t) {
    return int64_t{t.tv_sec} * 1000000 + int64_t{t.tv_usec};
  };
  return (micro(usage.ru_utime) + micro(usage.ru_stime)) * 1000;
}

class Stopwatch {
 public:
  int64_t elapsed() const { return cpuNanoseconds() - begin_; }

 private:
  int64_t begin_ = cpuNanoseconds();
};

// Counts the items of a workload and, in a check, writes them out.
template <Mode MODE>
class Delivery {
 public:
  void item(const void* bytes, size_t size) {
    ++count_;
    if constexpr (MODE == Mode::Check) {
      std::fwrite(bytes, 1, size, stdout);
      std::putchar(0x1E);
    }
  }
  int64_t count() const { return count_; }

 private:
  int64_t count_ = 0;
};

// Makes the compiler believe that the memory behind `pointer` is looked at.
inline void touch(const void* pointer) { asm volatile("" : : "g"(pointer) : "memory"); }
inline void touch(uint64_t value) { asm volatile("" : : "r"(value) : "memory"); }

inline std::string contentOf(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) give_up(path.c_str());
  std::string content;
  char piece[65536];
  size_t got = 0;
  while ((got = std::fread(piece, 1, sizeof piece, file)) > 0) content.append(piece, got);
  std::fclose(file);
  return content;
}

// Numbers that are the same in every run and every program.
class Random {
 public:
  uint64_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return state_;
  }
  uint64_t below(uint64_t limit) { return next() % limit; }

 private:
  uint64_t state_ = 0x9E3779B97F4A7C15ULL;
};

// Identifiers as file objects have them in a process that makes other objects in between.
inline std::vector<uint64_t> fileKeys(int64_t count) {
  Random random;
  std::vector<uint64_t> keys;
  uint64_t slot = 1 << 20;
  for (int64_t i = 0; i < count; ++i) {
    slot += 1 + random.below(16);
    keys.push_back((slot << 8) | 1);
  }
  return keys;
}

// So many look-ups among the keys that no predictor of branches learns their order.
inline constexpr int64_t picks = 2000000;
inline std::vector<uint64_t> randomPicks(const std::vector<uint64_t>& keys) {
  Random random;
  std::vector<uint64_t> picked(picks);
  for (uint64_t& key : picked) key = keys[random.below(keys.size())];
  return picked;
}

// What is freed stays with the process, in every program: else what is measured is how often the C
// library gives memory back, and the system's clearing of pages that it is given again.
inline void keepFreedMemory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

inline int runProgram(int argc, char** argv, std::span<const Workload> workloads) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s WORKLOAD check|time PATH COUNT\n", argv[0]);
    return 2;
  }
  const Job job = {argv[3], std::atoll(argv[4])};
  keepFreedMemory();
  for (const Workload& workload : workloads) {
    if (workload.name != argv[1]) continue;
    if (std::string_view(argv[2]) == "check") {
      workload.check(job);
    } else {
      const Outcome outcome = workload.time(job);
      std::printf("items=%lld ns=%lld\n", static_cast<long long>(outcome.items),
                  static_cast<long long>(outcome.nanoseconds));
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  std::fprintf(stderr, "%s has no workload %s\n", argv[0], argv[1]);
  return 2;
}

}  // namespace bench
