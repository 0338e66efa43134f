// A running module in a fresh directory: the standalone host, one session, and the seam that shows
// what the module asked of its platform.
#pragma once

#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/oop.h>

#include "seam/seam.h"
#include "support/calls.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

inline OopType smallInt(int64 value) { return oopFromSmallInteger(value); }

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kvhost::initialize();
    static const BoolType declared = KvfUserActionInit() & KvfPassiveObjActionInit();
    ASSERT_TRUE(declared);
    resetClassError();
    originalDirectory_ = std::filesystem::current_path();
    scratch_.emplace();
    directory_ = scratch_->path();
    std::filesystem::current_path(directory_);
    session_ = kvhost::sessionBegin();
    KvfStartup(session_);
  }

  void TearDown() override {
    seam::stop();
    seam::clear();
    clearFaults();
    kvhost::sessionSelect(session_);
    EXPECT_EQ(kvhost::forgottenErrorJumps(), forgottenBefore_) << "left registered";
    KvfShutdown(session_);
    kvhost::sessionEnd(session_);
    std::filesystem::current_path(originalDirectory_);
    scratch_.reset();
  }

  // Calls an action, which must not raise.
  OopType call(const char* name, std::initializer_list<OopType> args) {
    const kvhost::Outcome outcome = attempt(name, args);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered)
        << name << " raised " << outcome.error.number;
    return outcome.value;
  }

  // Calls an action and tells how it ended.
  kvhost::Outcome attempt(const char* name, std::initializer_list<OopType> args) {
    const kvhost::Outcome outcome =
        kvhost::callAction(name, std::data(args), static_cast<int>(args.size()));
    EXPECT_NE(outcome.status, kvhost::CallStatus::NoSuchAction) << name;
    EXPECT_NE(outcome.status, kvhost::CallStatus::WrongArgumentCount) << name;
    EXPECT_EQ(kvhost::forgottenErrorJumps(), forgottenBefore_)
        << name << " left a frame registered";
    return outcome;
  }

  // Calls an action that must raise `number` with exactly these arguments.
  void expectRaise(int number, std::initializer_list<OopType> errorArgs, const char* name,
                   std::initializer_list<OopType> args) {
    const kvhost::Outcome outcome = attempt(name, args);
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised) << name << " raised nothing";
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(outcome.error.category, OOP_ERROR_CATEGORY);
    EXPECT_EQ(outcome.error.fatal != 0, number >= 4000 && number <= 4999);
    const std::vector<OopType> raised(
        outcome.error.args,
        outcome.error.args + static_cast<std::ptrdiff_t>(outcome.error.argCount));
    EXPECT_EQ(raised, std::vector<OopType>(errorArgs));
  }

  // Calls an action that does not ask about an error of the interface, which the host then raises.
  void expectUnasked(int number, const char* name, std::initializer_list<OopType> args) {
    const kvhost::Outcome outcome = attempt(name, args);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised) << name << " raised nothing";
    EXPECT_EQ(outcome.error.number, number);
  }

  static OopType str(std::string_view bytes) { return kvhost::newString(bytes); }
  static std::string bytes(OopType object) { return kvhost::bytesOf(object); }

  // A new file object, opened; the open must succeed.
  OopType openFile(std::string_view path, std::string_view mode, bool compressed = false) {
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(call("KvfOpen", {file, str(path), str(mode), oopFromBool(compressed)}), smallInt(1));
    return file;
  }

  // The class-level text, taken; empty when there is none.
  std::string takeClassError() {
    const OopType text = call("KvfClassError", {kvhost::CLASS_KV_FILE, OOP_NIL});
    return text == OOP_NIL ? std::string() : bytes(text);
  }

  // The platform calls that the module made while `body` ran.
  template <typename Body>
  std::vector<seam::Call> callsDuring(Body body) {
    seam::clear();
    seam::start();
    body();
    return seam::stop();
  }
  int session_ = 0;
  const int64 forgottenBefore_ = kvhost::forgottenErrorJumps();
  std::filesystem::path directory_;

 private:
  void resetClassError() {
    const OopType noFile = OOP_NIL;
    kvhost::callAction("KvfErrorString", &noFile, 1);
  }

  std::optional<ScratchFolder> scratch_;
  std::filesystem::path originalDirectory_;
};

}  // namespace kvtest
