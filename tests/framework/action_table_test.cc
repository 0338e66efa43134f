// What is declared to the interface: every action, in order, whatever becomes of the others.
#include "framework/class_error.h"
#include "support/module_fixture.h"

namespace kvtest {

using namespace kvf;
namespace {

struct Row {
  const char* name;
  int argumentCount;
};

// What the table says; the actions of passive objects stand behind the others.
std::vector<Row> rowsOfTable(bool passive) {
  std::vector<Row> rows;
#define KVF_ACTION(name, count, parameters, meaning) \
  if (!passive) rows.push_back({#name, count});
#define KVF_PASSIVE_ACTION(name, count, parameters, meaning) \
  if (passive) rows.push_back({#name, count});
#include <kvfile/action_table.def>
  return rows;
}

const std::vector<Row> FILE_ACTIONS = rowsOfTable(false);
const std::vector<Row> PASSIVE_ACTIONS = rowsOfTable(true);

// What images of databases call: each keeps its place and its count, whatever is added behind.
constexpr Row CALLED_BY_IMAGES[] = {
    {"KvfRename", 3},
    {"KvfOpen", 4},
    {"KvfAtEnd", 1},
    {"KvfClose", 1},
    {"KvfFlush", 1},
    {"KvfSync", 1},
    {"KvfPosition", 1},
    {"KvfIsOpen", 1},
    {"KvfCloseAll", 1},
    {"KvfFinalizeAll", 1},
    {"KvfClassError", 2},
    {"KvfUnlink", 2},
    {"KvfModTime", 2},
    {"KvfSize", 2},
    {"KvfVersionParam", 2},
    {"KvfRmdir", 2},
    {"KvfMkdir", 3},
    {"KvfIsDir", 2},
    {"KvfGetC", 1},
    {"KvfPutC", 2},
    {"KvfPrintBytes", 2},
    {"KvfGetLine", 5},
    {"KvfLoadByteStrings", 3},
    {"KvfDirectory", 3},
    {"KvfFileKind", 2},
    {"KvfExpandEnvVar", 3},
    {"KvfSetEnvVar", 3},
    {"KvfRead", 4},
    {"KvfSeek", 3},
    {"KvfWrite", 4},
    {"KvfCreateStdFile", 2},
    {"KvfGetFileDesc", 1},
    {"KvfErrorString", 1},
    {"KvfErrorCode", 1},
    {"KvfKciLog", 2},
    {"KvfClientFinalize", 1},
    {"KvfAllValidFileModes", 2},
    {"KvfIsCompressed", 1},
    {"KvfKciGetSocketBufSize", 2},
    {"KvfKciSetSocketBufSize", 3},
    {"KvfLock", 5},
    {"KvfUnlock", 3},
    {"KvfLockQuery", 4},
    {"KvfTestClientHandler", 1},
};
constexpr Row CALLED_BY_PASSIVE_OBJECTS[] = {
    {"KvfPassiveObjPrint", 1},
    {"KvfPassiveObjLoadByteStrings", 4},
};

class ActionTable : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    kvhost::forgetDeclaredActions();
    storeClassErrorString("pending");
    classErrorCode = 77;
  }
  void TearDown() override {
    clearFaults();
    kvhost::forgetDeclaredActions();
    EXPECT_TRUE(KvfUserActionInit());
    EXPECT_TRUE(KvfPassiveObjActionInit());
    ModuleTest::TearDown();
  }

  // The arguments of each declaration of one initialisation, as the seam shows them.
  using Declarations = std::vector<std::vector<std::string>>;

  static Declarations expectedDeclarations(const std::vector<Row>& rows) {
    Declarations declarations;
    for (const Row& row : rows)
      declarations.push_back(
          {'"' + std::string(row.name) + '"', "ptr", std::to_string(row.argumentCount), "6", "1"});
    return declarations;
  }

  template <typename Init>
  Declarations declarationsOf(Init init, BoolType* answer) {
    Declarations declarations;
    for (const seam::Call& each : callsDuring([&] { *answer = init(); }))
      if (each.name == "KciDeclareAction") declarations.push_back(each.arguments);
    return declarations;
  }

  static void failDeclaration(size_t at) {
    fault("KciDeclareAction:" + std::to_string(at) + ":result=0");
  }

  static void expectClassErrorCleared() {
    EXPECT_EQ(classErrorCode, 0);
    EXPECT_STREQ(classErrorString, "");
  }

  BoolType answer_ = FALSE;
};

TEST_F(ActionTable, DeclaresEveryFileActionInOrder) {
  EXPECT_EQ(declarationsOf(KvfUserActionInit, &answer_), expectedDeclarations(FILE_ACTIONS));
  EXPECT_EQ(answer_, TRUE);
  expectClassErrorCleared();
}

TEST_F(ActionTable, HoldsFirstWhatImagesCall) {
  const auto holds = [](const std::vector<Row>& rows, const auto& called) {
    ASSERT_GE(rows.size(), std::size(called));
    for (size_t i = 0; i < std::size(called); ++i) {
      EXPECT_STREQ(rows[i].name, called[i].name);
      EXPECT_EQ(rows[i].argumentCount, called[i].argumentCount) << called[i].name;
    }
  };
  holds(FILE_ACTIONS, CALLED_BY_IMAGES);
  holds(PASSIVE_ACTIONS, CALLED_BY_PASSIVE_OBJECTS);
}

TEST_F(ActionTable, DeclaresThePassiveActionsApart) {
  EXPECT_EQ(declarationsOf(KvfPassiveObjActionInit, &answer_),
            expectedDeclarations(PASSIVE_ACTIONS));
  EXPECT_EQ(answer_, TRUE);
  EXPECT_EQ(classErrorCode, 77) << "and leaves the class-level error alone";
  EXPECT_STREQ(classErrorString, "pending");
}

TEST_F(ActionTable, WhatIsDeclaredCanBeCalled) {
  EXPECT_TRUE(KvfUserActionInit());
  EXPECT_TRUE(KvfPassiveObjActionInit());
  const std::vector<kvhost::DeclaredAction> declared = kvhost::declaredActions();
  std::vector<Row> rows = FILE_ACTIONS;
  rows.insert(rows.end(), PASSIVE_ACTIONS.begin(), PASSIVE_ACTIONS.end());
  ASSERT_EQ(declared.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(declared[i].name, rows[i].name);
    EXPECT_EQ(declared[i].argumentCount, rows[i].argumentCount) << rows[i].name;
    EXPECT_EQ(declared[i].flags, static_cast<unsigned>(UAFLAG_SYSTEM | UAFLAG_KVFILE));
    const std::vector<OopType> tooMany(9, OOP_NIL);
    const kvhost::Outcome outcome =
        kvhost::callAction(rows[i].name, tooMany.data(), rows[i].argumentCount + 1);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::WrongArgumentCount);
    EXPECT_EQ(outcome.expectedCount, rows[i].argumentCount);
  }
}

TEST_F(ActionTable, OneFailedDeclarationDoesNotStopTheOthers) {
  const auto everything = expectedDeclarations(FILE_ACTIONS);
  for (size_t failing = 1; failing <= FILE_ACTIONS.size(); ++failing) {
    kvhost::forgetDeclaredActions();
    classErrorCode = 77;
    storeClassErrorString("pending");
    clearFaults();
    failDeclaration(failing);
    EXPECT_EQ(declarationsOf(KvfUserActionInit, &answer_), everything);
    EXPECT_EQ(answer_, FALSE) << failing;
    EXPECT_EQ(kvhost::declaredActions().size(), FILE_ACTIONS.size() - 1);
    expectClassErrorCleared();
  }
}

TEST_F(ActionTable, AFailedPassiveDeclarationDoesNotStopTheOther) {
  for (size_t failing = 1; failing <= PASSIVE_ACTIONS.size(); ++failing) {
    kvhost::forgetDeclaredActions();
    clearFaults();
    failDeclaration(failing);
    EXPECT_EQ(declarationsOf(KvfPassiveObjActionInit, &answer_),
              expectedDeclarations(PASSIVE_ACTIONS));
    EXPECT_EQ(answer_, FALSE) << failing;
    EXPECT_EQ(kvhost::declaredActions().size(), PASSIVE_ACTIONS.size() - 1);
  }
}

TEST_F(ActionTable, DeclaringTwiceFailsAndStillClearsTheClassError) {
  EXPECT_TRUE(KvfUserActionInit());
  classErrorCode = 77;
  storeClassErrorString("pending");
  EXPECT_EQ(declarationsOf(KvfUserActionInit, &answer_).size(), FILE_ACTIONS.size());
  EXPECT_EQ(answer_, FALSE);
  EXPECT_EQ(kvhost::declaredActions().size(), FILE_ACTIONS.size());
  expectClassErrorCleared();
}

TEST_F(ActionTable, AnyNonZeroResultCountsAsDeclared) {
  fault("KciDeclareAction:1+:result=2");
  EXPECT_EQ(KvfUserActionInit(), TRUE);
  EXPECT_EQ(KvfPassiveObjActionInit(), TRUE);
  clearFaults();
  fault("KciDeclareAction:2:result=4");
  EXPECT_EQ(KvfUserActionInit(), TRUE) << "1 and 4 have no bit in common";
}

}  // namespace
}  // namespace kvtest
