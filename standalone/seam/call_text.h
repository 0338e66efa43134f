// How arguments and results are written in a trace.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace seam {

// An argument or result without its type: a number or an address.
struct Word {
  int64_t number = 0;
  const void* address = nullptr;
};

template <class T>
Word toWord(T value) {
  if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>) {
    return {0, reinterpret_cast<const void*>(value)};
  } else if constexpr (std::is_pointer_v<T>) {
    return {0, value};
  } else {
    return {static_cast<int64_t>(value), nullptr};
  }
}

// Appends `word` in the format that `kind` names:
//
//   i number               u number without a sign       m permission bits
//   w position's origin    z kind of flush               o object identifier
//   s NUL-terminated text  b bytes, their count in the next argument
//   a object identifiers, their count in the next argument
//   f stream               g gzip handle                 e error record
//   p any other address    c function
//
// `next` is the argument that follows it, or any for the last one.
void appendWord(std::string* out, char kind, Word word, Word next);

// All arguments, one kind each.
std::vector<std::string> argumentTexts(std::string_view kinds, const Word* words);

}  // namespace seam
