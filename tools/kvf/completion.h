// What the Tab key offers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace shell {

// The words that may stand before the cursor of `line`: paths within quotes, else actions, exported
// functions, classes, messages and `variables`. Stores where the word begins at `*wordStart`.
std::vector<std::string> completionsAt(std::string_view line, size_t cursor, size_t* wordStart,
                                       const std::vector<std::string>& variables);

}  // namespace shell
