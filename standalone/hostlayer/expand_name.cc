// File names as users write them: ~ and $NAME in front of the path that the kernel takes.
#include <kvfile/platform/host.h>

#include "hostlayer/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

bool isNameByte(char c, bool first) {
  const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
  return letter || (!first && c >= '0' && c <= '9');
}

size_t nameLength(std::string_view text) {
  size_t length = 0;
  while (length < text.size() && isNameByte(text[length], length == 0)) ++length;
  return length;
}

// The home directory of `user`, or of the user that runs the process when it is empty, as the user
// data base has it.
std::optional<std::string> homeInUserDataBase(const std::string& user) {
  std::vector<char> space(16384);
  struct passwd entry = {};
  struct passwd* found = nullptr;
  if (user.empty()) {
    getpwuid_r(getuid(), &entry, space.data(), space.size(), &found);
  } else {
    getpwnam_r(user.c_str(), &entry, space.data(), space.size(), &found);
  }
  if (found == nullptr || found->pw_dir == nullptr) return std::nullopt;
  return found->pw_dir;
}

// Takes "~" or "~user" off the front of `rest`, up to the first "/".
std::optional<std::string> expandTilde(std::string_view* rest) {
  const size_t end = std::min(rest->find('/'), rest->size());
  const std::string user(rest->substr(1, end - 1));
  rest->remove_prefix(end);
  if (user.empty()) {
    std::optional<std::string> home = kvhost::environmentValue("HOME");
    if (home.has_value()) return home;
  }
  return homeInUserDataBase(user);
}

// Takes "$NAME" or "${NAME}" off the front of `rest`. A "$" that no name follows stands for itself;
// a brace that is not closed behind a name is an unknown name.
std::optional<std::string> expandVariable(std::string_view* rest) {
  const bool braced = rest->size() > 1 && (*rest)[1] == '{';
  const size_t start = braced ? 2 : 1;
  const size_t length = nameLength(rest->substr(start));
  const std::string name(rest->substr(start, length));
  if (braced) {
    const size_t end = start + length;
    if (length == 0 || end >= rest->size() || (*rest)[end] != '}') return std::nullopt;
    rest->remove_prefix(end + 1);
  } else {
    rest->remove_prefix(start + length);
    if (length == 0) return "$";
  }
  return kvhost::environmentValue(name);
}

// Nothing as well when the result grows past `limit` bytes.
std::optional<std::string> expand(std::string_view rest, size_t limit) {
  std::string result;
  bool atStart = true;
  while (!rest.empty()) {
    std::optional<std::string> part;
    if (atStart && rest[0] == '~') {
      part = expandTilde(&rest);
    } else if (rest[0] == '$') {
      part = expandVariable(&rest);
    } else {
      const size_t plain = std::min(rest.find('$'), rest.size());
      part = std::string(rest.substr(0, plain));
      rest.remove_prefix(plain);
    }
    atStart = false;
    if (!part.has_value() || part->size() > limit - result.size()) return std::nullopt;
    result += *part;
  }
  return result;
}

}  // namespace

extern "C" {

// What a variable holds is put in as it stands: neither "$" nor "~" in it is expanded again.
BoolType HostExpandFileName(const char* in, char* out, size_t outSize, int /*noWildcards*/,
                            int /*expandLast*/) {
  if (outSize == 0) return FALSE;
  const std::optional<std::string> result = expand(in, outSize - 1);
  if (!result.has_value()) return FALSE;
  std::memcpy(out, result->c_str(), result->size() + 1);
  return TRUE;
}

}  // extern "C"
