// The class-level error: taking it, installing it, and what its code does then.
#include "framework/class_error.h"

#include "support/module_fixture.h"

namespace kvtest {

using namespace kvf;
namespace {

class ClassError : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    KvfInit();
  }
  void TearDown() override {
    KvfInit();
    ModuleTest::TearDown();
  }

  OopType classError(OopType toInstall) {
    return call("KvfClassError", {kvhost::CLASS_KV_FILE, toInstall});
  }
  OopType code() { return call("KvfErrorCode", {OOP_NIL}); }

  static void leave(int number, const char* text) {
    storeClassErrorString(text);
    classErrorCode = number;
  }
};

TEST_F(ClassError, StartsEmpty) {
  EXPECT_EQ(classError(OOP_NIL), OOP_NIL);
  EXPECT_EQ(code(), smallInt(0));
  EXPECT_EQ(sizeof classErrorString, 2048U);
}

TEST_F(ClassError, TakingItConsumesTextAndCode) {
  leave(13, "permission");
  const OopType text = classError(OOP_NIL);
  EXPECT_EQ(bytes(text), "permission");
  EXPECT_EQ(kvhost::classOf(text), OOP_CLASS_STRING);
  EXPECT_EQ(code(), smallInt(0));
  EXPECT_EQ(classError(OOP_NIL), OOP_NIL);
}

TEST_F(ClassError, WithoutATextTheCodeStays) {
  leave(13, "");
  EXPECT_EQ(classError(OOP_NIL), OOP_NIL);
  EXPECT_EQ(code(), smallInt(13));
}

TEST_F(ClassError, InstallingAnswersTheClassAndSetsTheCode) {
  EXPECT_EQ(classError(str("told by Smalltalk")), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(code(), smallInt(22));
  EXPECT_EQ(takeClassError(), "told by Smalltalk");
  EXPECT_EQ(code(), smallInt(0));
}

TEST_F(ClassError, TheReceiverIsAnsweredAsItCame) {
  EXPECT_EQ(call("KvfClassError", {smallInt(5), str("x")}), smallInt(5));
}

TEST_F(ClassError, AnInstalledTextReplacesALongerOne) {
  EXPECT_EQ(classError(str(std::string(500, 'l'))), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(classError(kvhost::newSymbol("short")), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(takeClassError(), "short");
}

TEST_F(ClassError, AnInstalledTextIsCutTo2047Characters) {
  for (const size_t length : {2046U, 2047U, 2048U, 2049U, 9000U}) {
    const std::string text = std::string(length - 1, 'x') + "y";
    EXPECT_EQ(classError(str(text)), kvhost::CLASS_KV_FILE);
    EXPECT_EQ(takeClassError(), text.substr(0, 2047)) << length;
  }
}

TEST_F(ClassError, AnInstalledTextEndsAtItsNul) {
  classError(str(std::string_view("ab\0cd", 5)));
  EXPECT_EQ(takeClassError(), "ab");
}

TEST_F(ClassError, AnEmptyTextCanBeInstalledAndLeavesItsCode) {
  leave(13, "permission");
  EXPECT_EQ(classError(str("")), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(code(), smallInt(22));
  EXPECT_EQ(classError(OOP_NIL), OOP_NIL);
  EXPECT_EQ(code(), smallInt(22)) << "only a text that is taken takes the code with it";
}

TEST_F(ClassError, AnObjectThatIsNoTextSetsTheCodeOnly) {
  for (const OopType object : {smallInt(3), kvhost::newArray({OOP_NIL}), OOP_TRUE}) {
    leave(0, "kept");
    expectUnasked(2104, "KvfClassError", {kvhost::CLASS_KV_FILE, object});
    EXPECT_EQ(code(), smallInt(22));
    EXPECT_STREQ(classErrorString, "kept");
  }
}

TEST_F(ClassError, IsSharedByTheSessionsOfTheProcess) {
  leave(13, "permission");
  const int other = kvhost::sessionBegin();
  KvfStartup(other);
  EXPECT_EQ(code(), smallInt(13));
  EXPECT_EQ(takeClassError(), "permission");
  KvfShutdown(other);
  kvhost::sessionEnd(other);
  kvhost::sessionSelect(session_);
  EXPECT_EQ(classError(OOP_NIL), OOP_NIL);
}

TEST_F(ClassError, TheTextReaderOfNilResetsTheCodeInEveryCase) {
  leave(13, "");
  EXPECT_EQ(call("KvfErrorString", {OOP_NIL}), OOP_NIL);
  EXPECT_EQ(code(), smallInt(0));
  leave(13, "permission");
  EXPECT_EQ(bytes(call("KvfErrorString", {OOP_NIL})), "permission");
  EXPECT_EQ(code(), smallInt(0));
  EXPECT_STREQ(classErrorString, "");
}

TEST_F(ClassError, InitialisingClearsIt) {
  leave(13, "permission");
  KvfInit();
  EXPECT_EQ(classErrorCode, 0);
  EXPECT_STREQ(classErrorString, "");
}

}  // namespace
}  // namespace kvtest
