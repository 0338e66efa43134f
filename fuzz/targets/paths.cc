// Paths, modes and environment variables of any bytes through every action on them, each answer
// compared with what the system says of the path before and after. Runs in a root directory of its own.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "support/jail.h"
#include "support/target.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr size_t LONGEST_PATH = 4095;
constexpr int PATH_ERROR = 2718;
constexpr int RANGE_ERROR = 2061;

// ---- what the system says ----

std::optional<struct stat> ask(const std::string& path, bool followsLinks = false) {
  struct stat info = {};
  const int status = followsLinks ? stat(path.c_str(), &info) : lstat(path.c_str(), &info);
  if (status != 0) return std::nullopt;
  return info;
}

bool exists(const std::string& path) { return ask(path).has_value(); }

std::multiset<std::string> entriesOf(const std::string& path) {
  std::multiset<std::string> names;
  DIR* directory = opendir(path.c_str());
  if (directory == nullptr) return names;
  while (const dirent* entry = readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.insert(name);
  }
  closedir(directory);
  return names;
}

int kindOf(mode_t mode) {
  if (S_ISREG(mode)) return 0;
  if (S_ISDIR(mode)) return 1;
  return S_ISLNK(mode) ? 4 : 5;
}

bool namesStandardFile(const std::string& path) {
  return path == "stdin" || path == "stdout" || path == "stderr";
}

// ---- the actions ----

struct Path {
  std::string text;  // as the system takes it
  OopType object;
};

class Paths {
 public:
  explicit Paths(fuzz::Input* input) : input_(input) {}
  ~Paths() {
    for (const std::string& name : variables_) unsetenv(name.c_str());
  }
  Paths(const Paths&) = delete;
  Paths& operator=(const Paths&) = delete;

  void step() {
    switch (input_->below(14)) {
      case 0:
        return rename();
      case 1:
        return unlink();
      case 2:
        return askTime();
      case 3:
        return askSize();
      case 4:
        return removeDirectory();
      case 5:
        return makeDirectory();
      case 6:
      case 7:
        return askKind();
      case 8:
        return list();
      case 9:
        return expand();
      case 10:
        return setVariable();
      default:
        open();
    }
  }

 private:
  // From names that exist, pieces that mean something in a path, and bytes.
  std::string pathText() {
    static constexpr std::string_view PIECES[] = {
        "f",     "d",      "l",  "e",  "/",   "./", "../",  "d/x", "$A", "${A}", "$",
        "${",    "}",      "~",  "~/", "*",   "\n", "%s%n", "x",   "/f", "//",   "$HOME",
        "stdin", "stdout", "xx", "$B", "${B", " ",  "f/",   "d/",  ".",  "..",   "\xC3\xA9"};
    std::string text;
    for (size_t count = 1 + input_->below(4); count > 0; --count) {
      const size_t kind = input_->below(40);
      if (kind < std::size(PIECES)) {
        text += PIECES[kind];
      } else if (kind == 39) {
        text.append(4080 + input_->below(20), 'y');
      } else {
        text += fuzz::textOf(input_->bytes(input_->below(20)));
      }
    }
    return text;
  }

  Path path() {
    const std::string text = pathText();
    return {text.substr(0, text.find('\0')), kvhost::newString(text)};
  }

  // The outcome of an action whose last paths are these. Nothing when a path was refused, as it must be
  // where it is empty or too long.
  std::optional<OopType> call(const char* action, std::vector<OopType> arguments,
                              const std::vector<Path>& paths) {
    const kvhost::Outcome outcome =
        kvhost::callAction(action, arguments.data(), static_cast<int>(arguments.size()));
    fuzz::expect(kvhost::forgottenErrorJumps() == 0, "a frame is left registered");
    int refused = 0;
    for (const Path& each : paths) {
      const auto size = static_cast<size_t>(KciFetchSize_(each.object));
      if (refused == 0 && size == 0) refused = PATH_ERROR;
      if (refused == 0 && size > LONGEST_PATH) refused = RANGE_ERROR;
    }
    const int raised = outcome.status == kvhost::CallStatus::Raised ? outcome.error.number : 0;
    if (raised != refused)
      fuzz::fail(std::string(action) + " raised " + std::to_string(raised) + ", not " +
                 std::to_string(refused));
    if (raised != 0) return std::nullopt;
    return outcome.value;
  }
  std::optional<OopType> onClass(const char* action, std::vector<OopType> arguments,
                                 const std::vector<Path>& paths) {
    arguments.insert(arguments.begin(), kvhost::CLASS_KV_FILE);
    return call(action, std::move(arguments), paths);
  }

  // What the host makes of a name with references in it.
  std::string expanded(const Path& path) {
    const auto answer = onClass("KvfExpandEnvVar", {path.object, kvhost::newInteger(1)}, {path});
    return answer && *answer != OOP_NIL ? kvhost::bytesOf(*answer) : "";
  }

  void rename() {
    const Path from = path();
    const Path to = path();
    const auto before = ask(from.text);
    const auto answer = onClass("KvfRename", {from.object, to.object}, {from, to});
    if (!answer) return;
    const bool done = *answer == oopFromSmallInteger(0);
    const auto after = ask(to.text);
    if (done && (!before || !after || before->st_ino != after->st_ino))
      fuzz::fail("what was renamed is not there");
    if (!done && before.has_value() != exists(from.text)) fuzz::fail("renamed after all");
  }

  void unlink() {
    const Path at = path();
    const auto before = ask(at.text);
    const auto answer = onClass("KvfUnlink", {at.object}, {at});
    if (!answer) return;
    if (*answer == OOP_NIL) {
      fuzz::expect(before.has_value() == exists(at.text), "removed after all");
      expectClassError();
    } else {
      fuzz::expect(before && !S_ISDIR(before->st_mode) && !exists(at.text), "not removed");
    }
  }

  void askTime() {
    const Path at = path();
    const auto answer = onClass("KvfModTime", {at.object}, {at});
    if (!answer || namesStandardFile(at.text)) return;
    const bool known = ask(expanded(at), true).has_value();
    fuzz::expect((*answer != OOP_NIL) == known, "a time of nothing, or none");
  }

  void askSize() {
    const Path at = path();
    const auto answer = onClass("KvfSize", {at.object}, {at});
    if (!answer || namesStandardFile(at.text)) return;
    const auto info = ask(at.text, true);
    if (info && S_ISREG(info->st_mode))
      fuzz::expect(*answer == kvhost::newInteger(info->st_size), "another size");
  }

  void removeDirectory() {
    const Path at = path();
    const auto before = ask(at.text);
    const auto answer = onClass("KvfRmdir", {at.object}, {at});
    if (!answer) return;
    if (*answer == OOP_NIL)
      fuzz::expect(before.has_value() == exists(at.text), "removed after all");
    else
      fuzz::expect(before && !exists(at.text), "not removed");
  }

  void makeDirectory() {
    const Path at = path();
    const bool before = exists(at.text);
    OopType mode = OOP_NIL;
    if (input_->below(2) == 0) mode = kvhost::newInteger(static_cast<int64>(input_->below(512)));
    const auto answer = onClass("KvfMkdir", {at.object, mode}, {at});
    if (!answer) return;
    const auto after = ask(at.text);
    if (*answer == OOP_NIL)
      fuzz::expect(before == after.has_value(), "made after all");
    else
      fuzz::expect(!before && after && S_ISDIR(after->st_mode), "not made");
  }

  void askKind() {
    const Path at = path();
    const auto kind = onClass("KvfFileKind", {at.object}, {at});
    const auto isDirectory = onClass("KvfIsDir", {at.object}, {at});
    if (!kind || namesStandardFile(at.text)) return;
    const auto info = ask(expanded(at));
    fuzz::expect((*kind != OOP_NIL) == info.has_value(), "a kind of nothing, or none");
    if (!info) return;
    fuzz::expect(*kind == oopFromSmallInteger(kindOf(info->st_mode)), "another kind");
    fuzz::expect(*isDirectory == oopFromBool(S_ISDIR(info->st_mode)), "a directory or none");
  }

  void list() {
    const Path at = path();
    const OopType utf = oopFromBool(input_->below(2) == 0);
    const auto answer = onClass("KvfDirectory", {at.object, utf}, {at});
    if (!answer || *answer == OOP_NIL || namesStandardFile(at.text)) return;
    std::multiset<std::string> names;
    for (const OopType each : kvhost::elementsOf(*answer)) {
      const std::string name = kvhost::bytesOf(each);
      fuzz::expect(name.starts_with(at.text), "a name elsewhere");
      const std::string last = name.substr(name.rfind('/') + 1);
      if (last != "." && last != "..") names.insert(last);
    }
    fuzz::expect(names == entriesOf(at.text), "another list");
  }

  void expand() {
    const Path name = path();
    const auto operation = static_cast<int64>(input_->below(4));
    const auto answer =
        onClass("KvfExpandEnvVar", {name.object, kvhost::newInteger(operation)}, {name});
    if (!answer || operation != 0) return;
    const char* value = std::getenv(name.text.c_str());
    fuzz::expect((*answer != OOP_NIL) == (value != nullptr), "a variable or none");
    if (value != nullptr) fuzz::expect(kvhost::bytesOf(*answer) == value, "another value");
  }

  void setVariable() {
    static constexpr const char* NAMES[] = {"A", "B", "HOME"};
    const size_t which = input_->below(4);
    const Path name = which < 3 ? Path{NAMES[which], kvhost::newString(NAMES[which])} : path();
    const Path value = path();
    const auto answer = onClass("KvfSetEnvVar", {name.object, value.object}, {name, value});
    if (!answer || *answer == OOP_NIL) return;
    variables_.push_back(name.text);
    const char* now = std::getenv(name.text.c_str());
    fuzz::expect(now != nullptr && value.text == now, "the variable has another value");
  }

  void open() {
    static constexpr std::string_view LETTERS = "rwab+19bxr";
    const Path at = path();
    std::string mode;
    for (size_t count = input_->below(5); count > 0; --count)
      mode += LETTERS[input_->below(LETTERS.size())];
    const bool compressed = input_->below(3) == 0;
    const OopType file = kvhost::newKvFile();
    const auto answer =
        call("KvfOpen", {file, at.object, kvhost::newString(mode), oopFromBool(compressed)}, {at});
    if (!answer) return;
    if (*answer == OOP_NIL) return expectClassError();
    fuzz::expect(!namesStandardFile(at.text), "a standard file was opened");
    fuzz::expect(isListed(mode, compressed), "opened with a mode that is none");
    fuzz::expect(*call("KvfIsOpen", {file}, {}) == OOP_TRUE, "not open");
    const auto info = ask(compressed ? expanded(at) : at.text, true);
    if (info && mode[0] == 'w' && !compressed) fuzz::expect(info->st_size == 0, "not truncated");
    use(file, mode);
    fuzz::expect(*call("KvfClose", {file}, {}) == file, "not closed");
  }

  void use(OopType file, const std::string& mode) {
    const OopType text = kvhost::newString("text");
    const bool writes = mode.find_first_of("wa+") != std::string::npos;
    const auto written =
        call("KvfWrite", {file, text, kvhost::newInteger(1), kvhost::newInteger(4)}, {});
    if (!writes) fuzz::expect(*written != oopFromSmallInteger(4), "written to what is read");
    call("KvfGetC", {file}, {});
  }

  // "r1" and "r9" are let through for compressed files, though no list has them.
  bool isListed(const std::string& mode, bool compressed) {
    if (compressed && (mode == "r1" || mode == "r9")) return true;
    const auto all = onClass("KvfAllValidFileModes", {oopFromBool(compressed)}, {});
    const std::vector<OopType> modes = kvhost::elementsOf(*all);
    return std::any_of(modes.begin(), modes.end(),
                       [&](OopType each) { return kvhost::bytesOf(each) == mode; });
  }

  void expectClassError() {
    const auto text = onClass("KvfClassError", {OOP_NIL}, {});
    fuzz::expect(text && *text != OOP_NIL, "a failure without a text");
  }

  fuzz::Input* input_;
  std::vector<std::string> variables_;
};

bool begin() {
  if (!fuzz::Jail::isPossible()) return false;
  fuzz::silence(STDIN_FILENO);
  fuzz::silence(STDOUT_FILENO);
  setenv("HOME", "/d", 1);
  kvhost::initialize();
  KvfUserActionInit();
  KvfStartup(kvhost::sessionBegin());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool possible = begin();
  if (!possible) return 0;
  fuzz::Input input({data, size});
  const int descriptors = fuzz::openDescriptors();
  {
    const fuzz::Jail jail;
    Paths paths(&input);
    for (int steps = 0; steps < 40 && !input.empty(); ++steps) paths.step();
  }
  setenv("HOME", "/d", 1);
  fuzz::expect(fuzz::openDescriptors() == descriptors, "a descriptor is left open");
  const OopType kvFile = kvhost::CLASS_KV_FILE;
  kvhost::callAction("KvfCloseAll", &kvFile, 1);
  if (kvhost::objectsSinceCollection() > 20000) kvhost::collectGarbage();
  return 0;
}
