// Tab completion: from the candidates of a completer to a change of the line.
#pragma once

#include "terminal/line_reader.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

// What all the words begin with, never ending within a UTF-8 character; empty for no words.
std::string commonStart(const std::vector<std::string>& words);

// The words in columns for a terminal of `width` cells, each row ending with a newline; at most 100
// of them, with a line that tells how many more there are.
std::string listInColumns(const std::vector<std::string>& words, std::size_t width);

}  // namespace kvhost
