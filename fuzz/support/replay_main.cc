// Runs a target on files, in place of libFuzzer: what the tests do with the inputs that are kept.
#include "support/target.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr const char* USAGE =
    "usage: %s FILE|FOLDER...\n\nRuns the target on each file. Exit code: 0 when all passed, 2 for "
    "wrong usage; a finding\naborts.\n";

struct Kept {
  std::string path;
  std::vector<uint8_t> bytes;
};

// Read before the first is run, for targets change where they are.
std::vector<Kept> readAll(int argc, char** argv) {
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      paths.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
      paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Kept> all;
  for (const std::string& path : paths) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return {};
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    all.push_back({path, std::move(bytes)});
  }
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Kept> all = readAll(argc, argv);
  if (all.empty()) {
    std::fprintf(stderr, USAGE, argv[0]);
    return 2;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  const bool each = argc == 2 && all.size() == 1;
  for (const Kept& kept : all) {
    if (each) fuzz::report(kept.path + "\n");
    LLVMFuzzerTestOneInput(kept.bytes.data(), kept.bytes.size());
  }
  fuzz::report(std::to_string(all.size()) + " inputs, no finding\n");
  return 0;
}
