// The shapes of the workloads, on which all programs agree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace bench {

inline constexpr size_t piece_size = 4096;  // of bulk reads and writes
inline constexpr size_t small_write_size = 40;
inline constexpr std::string_view eol_1 = "\n";
inline constexpr std::string_view eol_3 = "=-\n";

// Objects that a program lets pile up before it collects them: so few that they stay in the
// processor's second cache, because it is the module that is measured and not the memory.
inline constexpr int64_t collect_after_objects = 4096;
inline constexpr int64_t collect_after_bytes = 512 * 1024;

// How many objects of a size that is.
constexpr int64_t objectsBetweenCollections(int64_t size) {
  const int64_t by_bytes = collect_after_bytes / (64 + size);
  if (by_bytes < 1) return 1;
  return by_bytes < collect_after_objects ? by_bytes : collect_after_objects;
}

// The bytes that writing workloads write: letters, a line feed at the end of each piece.
struct Piece {
  char bytes[piece_size];
};
constexpr Piece makePiece() {
  Piece piece = {};
  for (size_t i = 0; i < piece_size; ++i) {
    piece.bytes[i] =
        i % small_write_size == small_write_size - 1 ? '\n' : static_cast<char>('a' + i * 7 % 26);
  }
  return piece;
}
inline constexpr Piece piece = makePiece();

}  // namespace bench
