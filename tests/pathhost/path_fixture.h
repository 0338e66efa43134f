// What the tests of the class-side actions share: the class-level error as a value, the host's own
// texts, and a look at the arguments of recorded platform calls.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include "support/host_errors.h"
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

inline std::string asText(std::string_view text) { return '"' + std::string(text) + '"'; }

// A directory in memory where there is one: quick, and its files keep any time.
class MemoryDirectory : public ScratchFolder {
 public:
  MemoryDirectory() : ScratchFolder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ".") {}
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

  // Makes the next `times` raises come back to the module.
  static void raisesComeBack(int times = 1) { letRaisesReturn(times); }

  // Ends that, and every fault; the raises were made.
  static void clearFaults() {
    EXPECT_EQ(raisesThatWillReturn(), 0) << "a raise was expected";
    letRaisesReturn(0);
    kvtest::clearFaults();
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
