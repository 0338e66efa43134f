// The peers among the libraries: C stdio, zlib's own lines, the standard library of C++.
#include "programs/program.h"
#include "programs/shapes.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <unordered_map>
#include <vector>

namespace bench {

namespace {

std::FILE* openStream(const std::string& path, const char* mode) {
  std::FILE* stream = std::fopen(path.c_str(), mode);
  if (stream == nullptr) give_up(path.c_str());
  return stream;
}

template <Mode MODE>
Outcome getLines(const Job& job) {
  std::FILE* stream = openStream(job.path, "r");
  char* line = nullptr;
  size_t room = 0;
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const ssize_t length = getline(&line, &room, stream);
    if (length < 0) break;
    delivery.item(line, static_cast<size_t>(length));
  }
  std::fclose(stream);
  std::free(line);
  return {delivery.count(), watch.elapsed()};
}

// Up to the last byte of the sequence, again until all of it is there.
template <Mode MODE>
Outcome getDelimited(const Job& job) {
  std::FILE* stream = openStream(job.path, "r");
  char* piece = nullptr;
  size_t room = 0;
  std::string line;
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const ssize_t length = getdelim(&piece, &room, eol_3.back(), stream);
    if (length < 0) break;
    const std::string_view got(piece, static_cast<size_t>(length));
    if (line.empty() && got.ends_with(eol_3)) {
      delivery.item(got.data(), got.size());
      continue;
    }
    line += got;
    if (!line.ends_with(eol_3)) continue;
    delivery.item(line.data(), line.size());
    line.clear();
  }
  if (!line.empty()) delivery.item(line.data(), line.size());
  std::fclose(stream);
  std::free(piece);
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome streamLines(const Job& job) {
  std::ios::sync_with_stdio(false);
  std::ifstream stream(job.path, std::ios::binary);
  std::string line;
  Delivery<MODE> delivery;
  const Stopwatch watch;
  while (std::getline(stream, line)) {
    // The line feed is not kept; all lines of the data have one.
    if constexpr (MODE == Mode::Check) line += '\n';
    delivery.item(line.data(), line.size());
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome gzipLines(const Job& job) {
  const gzFile file = gzopen(job.path.c_str(), "r");
  if (file == nullptr) give_up(job.path.c_str());
  static char line[65536];
  Delivery<MODE> delivery;
  const Stopwatch watch;
  while (gzgets(file, line, sizeof line) != nullptr) {
    delivery.item(line, MODE == Mode::Check ? std::strlen(line) : 0);
  }
  gzclose(file);
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome getBytes(const Job& job) {
  std::FILE* stream = openStream(job.path, "r");
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int c = getc(stream); c != EOF; c = getc(stream)) {
    const char byte = static_cast<char>(c);
    delivery.item(&byte, 1);
  }
  std::fclose(stream);
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome freads(const Job& job) {
  std::FILE* stream = openStream(job.path, "r");
  alignas(64) static char buffer[piece_size];
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const size_t got = std::fread(buffer, 1, piece_size, stream);
    if (got == 0) break;
    delivery.item(buffer, got);
  }
  std::fclose(stream);
  return {delivery.count(), watch.elapsed()};
}

enum class Buffered { No, Yes };

template <size_t SIZE, Buffered BUFFERED>
Outcome fwrites(const Job& job) {
  std::FILE* stream = openStream(job.path, "w");
  if (BUFFERED == Buffered::No) std::setvbuf(stream, nullptr, _IONBF, 0);
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (std::fwrite(piece.bytes, 1, SIZE, stream) != SIZE) give_up("fwrite");
  }
  std::fclose(stream);
  return {job.count, watch.elapsed()};
}

// Prints one byte and a space; answers the end.
char* printByToChars(char* at, char* end, unsigned char value) {
  at = std::to_chars(at, end, static_cast<unsigned>(value)).ptr;
  *at++ = ' ';
  return at;
}
char* printByPrintf(char* at, char* end, unsigned char value) {
  return at + std::snprintf(at, static_cast<size_t>(end - at), "%u ", unsigned{value});
}

template <Mode MODE, auto PRINT>
Outcome print(const Job& job) {
  const std::string content = contentOf(job.path);
  std::vector<char> text(content.size() * 5 + 16);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    char* at = text.data();
    char* const end = text.data() + text.size();
    size_t column = 0;
    for (const char c : content) {
      at = PRINT(at, end, static_cast<unsigned char>(c));
      if (++column % 1024 == 0) *at++ = '\n';
    }
    if (column % 1024 != 0) *at++ = '\n';
    touch(text.data());
    delivery.item(text.data(), static_cast<size_t>(at - text.data()));
  }
  return {delivery.count(), watch.elapsed()};
}

template <Mode MODE>
Outcome parse(const Job& job) {
  const std::string text = contentOf(job.path);
  std::vector<unsigned char> values;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    values.clear();
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end) {
      unsigned value = 0;
      const auto [next, error] = std::from_chars(at, end, value);
      if (error != std::errc()) {
        ++at;
        continue;
      }
      values.push_back(static_cast<unsigned char>(value));
      at = next;
    }
    touch(values.data());
  }
  const int64_t elapsed = watch.elapsed();
  Delivery<MODE> delivery;
  delivery.item(values.data(), values.size());
  return {static_cast<int64_t>(values.size()) * job.count, elapsed};
}

template <Mode MODE>
Outcome walk(const Job& job) {
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(job.path)) {
      names.push_back(entry.path().string());
      delivery.item(names.back().data(), names.back().size());
    }
    touch(names.data());
  }
  return {delivery.count(), watch.elapsed()};
}

template <bool CHECKED>
Outcome openClose(const Job& job) {
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    std::FILE* stream = std::fopen(job.path.c_str(), "re");
    if (stream == nullptr) give_up(job.path.c_str());
    if constexpr (CHECKED) {
      // A read of no bytes, which a directory refuses.
      char nothing = 0;
      if (pread(fileno(stream), &nothing, 0, 0) != 0) give_up("a directory");
    }
    std::fclose(stream);
  }
  return {job.count, watch.elapsed()};
}

template <Mode MODE>
Outcome lookup(const Job& job) {
  std::unordered_map<uint64_t, void*> map;
  const std::vector<uint64_t> keys = fileKeys(job.count);
  for (const uint64_t key : keys) map[key] = &map;
  const std::vector<uint64_t> wanted = randomPicks(keys);
  int64_t found = 0;
  const Stopwatch watch;
  for (const uint64_t key : wanted) {
    const auto entry = map.find(key);
    found += entry != map.end() && entry->second == &map ? 1 : 0;
  }
  const int64_t elapsed = watch.elapsed();
  Delivery<MODE> delivery;
  delivery.item(found == picks ? "all" : "not", 3);
  return {found, elapsed};
}

using enum Mode;

constexpr std::array<Workload, 15> workloads = {{
    {"getline", getLines<Check>, getLines<Time>},
    {"getdelim", getDelimited<Check>, getDelimited<Time>},
    {"std-getline", streamLines<Check>, streamLines<Time>},
    {"gzgets", gzipLines<Check>, gzipLines<Time>},
    {"getc", getBytes<Check>, getBytes<Time>},
    {"fread", freads<Check>, freads<Time>},
    {"fwrite", fwrites<piece_size, Buffered::Yes>, fwrites<piece_size, Buffered::Yes>},
    {"fwrite-unbuffered", fwrites<small_write_size, Buffered::No>,
     fwrites<small_write_size, Buffered::No>},
    {"to_chars", print<Check, printByToChars>, print<Time, printByToChars>},
    {"snprintf", print<Check, printByPrintf>, print<Time, printByPrintf>},
    {"from_chars", parse<Check>, parse<Time>},
    {"std-filesystem", walk<Check>, walk<Time>},
    {"fopen", openClose<false>, openClose<false>},
    {"fopen-checked", openClose<true>, openClose<true>},
    {"unordered_map", lookup<Check>, lookup<Time>},
}};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) { return bench::runProgram(argc, argv, bench::workloads); }
