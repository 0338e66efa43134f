#include "completion.h"

#include "action_table.h"
#include "functions.h"
#include "messages.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace shell {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view GLOBALS[] = {
    "Array",        "Boolean", "ByteArray",    "Character", "DateTime", "KvFile",
    "LargeInteger", "Object",  "SmallInteger", "String",    "Symbol",   "Utf16",
    "Utf8",         "Session", "Smalltalk",    "nil",       "true",     "false"};

// The offset just behind the quote that is open at the cursor; npos where none is.
size_t openQuote(std::string_view before) {
  size_t open = std::string_view::npos;
  char quote = '\0';
  for (size_t i = 0; i < before.size(); i++) {
    char c = before[i];
    if (quote == '\0' && c == '$') {
      i++;
    } else if (quote == '\0' && (c == '\'' || c == '"')) {
      quote = c;
      open = i + 1;
    } else if (c == quote) {
      quote = '\0';
    }
  }
  return quote == '\'' ? open : std::string_view::npos;
}

std::vector<std::string> pathCompletions(std::string_view typed) {
  size_t slash = typed.rfind('/');
  std::string directory(slash == std::string_view::npos ? "" : typed.substr(0, slash + 1));
  std::string_view stem = typed.substr(directory.size());
  std::vector<std::string> words;
  std::error_code failed;
  fs::directory_iterator entries(directory.empty() ? "." : directory, failed);
  for (; !failed && entries != fs::directory_iterator(); entries.increment(failed)) {
    std::string name = entries->path().filename().string();
    bool isHidden = name.starts_with('.') && !stem.starts_with('.');
    if (isHidden || !name.starts_with(stem)) continue;
    std::error_code ignored;
    words.push_back(directory + name + (entries->is_directory(ignored) ? "/" : ""));
  }
  return words;
}

std::vector<std::string> wordCompletions(std::string_view stem,
                                         const std::vector<std::string>& variables) {
  std::vector<std::string> words;
  auto offer = [&](std::string_view word, std::string_view tail) {
    if (word.starts_with(stem)) words.push_back(std::string(word) + std::string(tail));
  };
  for (const ActionRow& row : actionRows()) offer(row.name, "(");
  for (const CFunction& function : cFunctions()) offer(function.name, "(");
  for (std::string_view name : GLOBALS) offer(name, "");
  for (const std::string& name : variables) offer(name, "");
  for (const std::string& selector : allSelectors()) {
    if (std::isalpha(static_cast<unsigned char>(selector[0])) != 0) offer(selector, "");
  }
  return words;
}

}  // namespace

std::vector<std::string> completionsAt(std::string_view line, size_t cursor, size_t* wordStart,
                                       const std::vector<std::string>& variables) {
  std::string_view before = line.substr(0, cursor);
  std::vector<std::string> words;
  *wordStart = openQuote(before);
  if (*wordStart != std::string_view::npos) {
    words = pathCompletions(before.substr(*wordStart));
  } else {
    size_t start = before.size();
    while (start > 0 && (std::isalnum(static_cast<unsigned char>(before[start - 1])) != 0 ||
                         before[start - 1] == '_' || before[start - 1] == ':')) {
      start--;
    }
    *wordStart = start;
    if (start < before.size()) words = wordCompletions(before.substr(start), variables);
  }
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

}  // namespace shell
