// Random sequences: the files that one begins with, and its steps. A sequence follows from the seed,
// its number and the size of the read buffer alone.
#pragma once

#include "model/operation.h"

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace model {

struct StartingFile {
  std::string name;
  std::string bytes;
};

struct Sequence {
  std::vector<StartingFile> files;
  std::vector<Operation> operations;
};

// The files that a sequence may meet. The first three stand behind the standard descriptors; the
// last two do not exist at first, and are a directory.
inline constexpr const char* STANDARD_FILES[] = {"s0", "s1", "s2"};
inline constexpr const char* DATA_FILES[] = {"p0", "p1", "g0", "g1"};
inline constexpr const char* NEW_FILE = "n0";
inline constexpr const char* DIRECTORY = "dir";

inline constexpr int SEQUENCE_LENGTH = 250;

// Where files may not grow past, so that memory stays bounded whatever is written where.
int64 sizeLimitFor(int64 bufferSize);

Sequence generate(uint64_t seed, uint64_t number, int64 bufferSize);

// Each choice is read from `choices`, and the sequence ends with them: what a fuzzer varies.
Sequence generateFrom(std::span<const uint8_t> choices, int64 bufferSize);

}  // namespace model
