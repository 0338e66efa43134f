// What the tests of the class-side actions share: the class-level error as a value, the host's own
// texts, and a look at the arguments of recorded platform calls.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include "support/module_fixture.h"
#include "support/returning_raise.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

inline constexpr OopType KV_FILE = kvhost::CLASS_KV_FILE;

// The class-level error.
struct ClassError {
  int code = 0;
  std::string text;
  bool operator==(const ClassError&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const ClassError& error) {
  return out << error.code << " \"" << error.text << '"';
}

// The text that the host gives for an errno value.
inline std::string hostText(int errorNumber) {
  HostErrSType error{errorNumber};
  ErrMsgStrType text;
  HostGetErrMsg(&error, text, sizeof text);
  return text;
}

// Recorded calls of one platform function.
inline std::vector<seam::Call> callsOf(const std::vector<seam::Call>& calls,
                                       std::string_view name) {
  std::vector<seam::Call> result;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(result),
               [name](const seam::Call& call) { return call.name == name; });
  return result;
}

// The arguments of a recorded call, one by one; commas within quotes do not part them.
inline std::vector<std::string> argumentsOf(const seam::Call& call) {
  std::vector<std::string> result;
  std::string current;
  bool inQuotes = false;
  bool escaped = false;
  for (const char c : call.arguments) {
    if (c == '"' && !escaped) inQuotes = !inQuotes;
    escaped = c == '\\' && !escaped;
    if (c == ',' && !inQuotes) {
      result.push_back(current);
      current.clear();
    } else if (!(c == ' ' && current.empty())) {
      current.push_back(c);
    }
  }
  if (!current.empty()) result.push_back(current);
  return result;
}

inline std::string asText(std::string_view text) { return '"' + std::string(text) + '"'; }

// A directory in memory where there is one: quick, and its files keep any time. Removed with all
// that is in it.
class MemoryDirectory {
 public:
  MemoryDirectory() {
    const char* parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ".";
    path_ = std::string(parent) + "/kvfile-test-XXXXXX";
    EXPECT_NE(mkdtemp(path_.data()), nullptr);
  }
  ~MemoryDirectory() { std::filesystem::remove_all(path_); }
  MemoryDirectory(const MemoryDirectory&) = delete;
  MemoryDirectory& operator=(const MemoryDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class PathTest : public ModuleTest {
 protected:
  // Calls an action with arguments known only at run time; it must not raise.
  OopType act(const std::string& name, const std::vector<OopType>& args) {
    const kvhost::Outcome outcome = tryAct(name, args);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered)
        << name << " raised " << outcome.error.number;
    return outcome.value;
  }

  kvhost::Outcome tryAct(const std::string& name, const std::vector<OopType>& args) {
    return kvhost::callAction(name.c_str(), args.data(), static_cast<int>(args.size()));
  }

  // Reads the class-level error and empties it.
  ClassError takeSlot() {
    const OopType code = call("KvfErrorCode", {OOP_NIL});
    ClassError result;
    result.code = static_cast<int>(oopSmallIntegerValue(code));
    result.text = takeClassError();
    return result;
  }

  // Leaves a known failure in the class-level error: code 2 with a text of its own.
  ClassError seedSlot() {
    EXPECT_EQ(call("KvfRmdir", {KV_FILE, str("seed")}), OOP_NIL);
    return {ENOENT, hostText(ENOENT) + " : seed"};
  }

  static void failCall(const std::string& function, int64_t errorNumber, int64_t at = 1) {
    seam::addFault({function, at, false, seam::Fault::Kind::Error, errorNumber});
  }

  // Makes the next `times` raises come back to the module.
  static void raisesComeBack(int times = 1) { letRaisesReturn(times); }

  // Ends that, and every fault; the raises were made.
  static void clearFaults() {
    EXPECT_EQ(raisesThatWillReturn(), 0) << "a raise was expected";
    letRaisesReturn(0);
    seam::clearFaults();
  }

  void TearDown() override {
    clearFaults();
    ModuleTest::TearDown();
  }

  bool exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }
};

}  // namespace kvtest
