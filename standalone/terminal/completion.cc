#include "terminal/completion.h"

#include <algorithm>

namespace kvhost {

namespace {

constexpr size_t MAX_LISTED = 100;
constexpr size_t GAP = 2;

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

size_t characterCount(std::string_view text) {
  return text.size() -
         static_cast<size_t>(std::count_if(text.begin(), text.end(), continuesCharacter));
}

}  // namespace

std::string commonStart(const std::vector<std::string>& words) {
  if (words.empty()) return {};
  size_t length = words[0].size();
  for (const std::string& word : words) {
    const size_t limit = std::min(length, word.size());
    size_t same = 0;
    while (same < limit && word[same] == words[0][same]) ++same;
    length = same;
  }
  while (length > 0 && length < words[0].size() && continuesCharacter(words[0][length])) --length;
  return words[0].substr(0, length);
}

std::string listInColumns(const std::vector<std::string>& words, size_t width) {
  const size_t shown = std::min(words.size(), MAX_LISTED);
  size_t cell = 1;
  for (size_t i = 0; i < shown; ++i) cell = std::max(cell, characterCount(words[i]) + GAP);
  const size_t columns = std::max<size_t>(width / cell, 1);
  std::string text;
  for (size_t i = 0; i < shown; ++i) {
    text += words[i];
    const bool endsRow = (i + 1) % columns == 0 || i + 1 == shown;
    if (endsRow) {
      text += '\n';
    } else {
      text.append(cell - characterCount(words[i]), ' ');
    }
  }
  if (shown < words.size()) text += "... and " + std::to_string(words.size() - shown) + " more\n";
  return text;
}

}  // namespace kvhost
