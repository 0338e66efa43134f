// The record of an error that is raised.
#include "framework/raise.h"

#include "support/module_fixture.h"

namespace kvtest {

using namespace kvf;
namespace {

class Raise : public ModuleTest {
 protected:
  using Body = OopType (*)(void*);

  static KciErrSType raised(Body body, void* context = nullptr) {
    const kvhost::Outcome outcome = kvhost::protect(body, context);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
    return outcome.error;
  }

  // Everything of the record: what was not given is nil, 0 or empty.
  static void expectRecord(const KciErrSType& error, int number, int argCount,
                           std::vector<OopType> args) {
    EXPECT_EQ(error.category, OopType{0x38701});
    EXPECT_EQ(error.context, OOP_NIL);
    EXPECT_EQ(error.exceptionObj, OOP_NIL);
    EXPECT_EQ(error.number, number);
    EXPECT_EQ(error.argCount, argCount);
    args.resize(KCI_MAX_ERR_ARGS, OOP_NIL);
    EXPECT_EQ(std::vector<OopType>(std::begin(error.args), std::end(error.args)), args);
    EXPECT_STREQ(error.message, "");
    EXPECT_STREQ(error.reason, "");
  }
};

TEST_F(Raise, TheFullForm) {
  const KciErrSType error = raised([](void*) -> OopType {
    raiseError(2242, 3, smallInt(1), OOP_TRUE, OOP_FALSE);
    return OOP_NIL;
  });
  expectRecord(error, 2242, 3, {smallInt(1), OOP_TRUE, OOP_FALSE});
}

TEST_F(Raise, TheCountIsTakenAsGiven) {
  const KciErrSType error = raised([](void*) -> OopType {
    raiseError(2061, 1, smallInt(1), smallInt(2), OOP_NIL);
    return OOP_NIL;
  });
  expectRecord(error, 2061, 1, {smallInt(1), smallInt(2), OOP_NIL});
}

TEST_F(Raise, WithoutArguments) {
  expectRecord(raised([](void*) -> OopType {
                 raiseError(2208);
                 return OOP_NIL;
               }),
               2208, 0, {});
}

TEST_F(Raise, WithOneTwoAndThreeArguments) {
  expectRecord(raised([](void*) -> OopType {
                 raiseError(2364, smallInt(5));
                 return OOP_NIL;
               }),
               2364, 1, {smallInt(5)});
  expectRecord(raised([](void*) -> OopType {
                 raiseError(2094, smallInt(5), OOP_CLASS_STRING);
                 return OOP_NIL;
               }),
               2094, 2, {smallInt(5), OopType{0x12401}});
  expectRecord(raised([](void*) -> OopType {
                 raiseError(2242, smallInt(5), OOP_CLASS_CHARACTER, OOP_CLASS_SMALL_INTEGER);
                 return OOP_NIL;
               }),
               2242, 3, {smallInt(5), OopType{0x10B01}, OopType{0x12201}});
}

TEST_F(Raise, AnArgumentThatIsACInt) {
  for (int value : {0, 7, -7, 2147483647, -2147483647 - 1}) {
    expectRecord(raised(
                     [](void* context) -> OopType {
                       raiseErrorI(4100, *static_cast<int*>(context));
                       return OOP_NIL;
                     },
                     &value),
                 4100, 1, {smallInt(value)});
  }
}

TEST_F(Raise, FatalExactlyFor4000To4999) {
  struct Case {
    int number;
    int fatal;
  };
  for (Case each : {Case{2061, 0}, Case{2094, 0}, Case{2208, 0}, Case{2242, 0}, Case{2284, 0},
                    Case{2364, 0}, Case{2718, 0}, Case{4100, 1}, Case{3999, 0}, Case{4000, 1},
                    Case{4999, 1}, Case{5000, 0}, Case{0, 0}, Case{-4100, 0}}) {
    const KciErrSType error = raised(
        [](void* context) -> OopType {
          raiseError(static_cast<Case*>(context)->number, OOP_TRUE);
          return OOP_NIL;
        },
        &each);
    expectRecord(error, each.number, 1, {OOP_TRUE});
    EXPECT_EQ(error.fatal, each.fatal) << each.number;
  }
}

TEST_F(Raise, TheNumbersOfTheModule) {
  EXPECT_EQ(KVF_ERR_ARGUMENT_RANGE, 2061);
  EXPECT_EQ(KVF_ERR_ARGUMENT_CLASS, 2094);
  EXPECT_EQ(KVF_ERR_NO_MEMORY, 2208);
  EXPECT_EQ(KVF_ERR_NOT_CHARACTER, 2242);
  EXPECT_EQ(KVF_ERR_COUNT_TOO_LARGE, 2284);
  EXPECT_EQ(KVF_ERR_FILE_NOT_REGISTERED, 2364);
  EXPECT_EQ(KVF_ERR_PATH, 2718);
  EXPECT_EQ(KVF_ERR_NO_SESSION, 4100);
}

TEST_F(Raise, ThePendingErrorOfTheInterfaceIsRaisedUnchanged) {
  constexpr OopType NO_OBJECT = 0x7FFFFFFFFFFFFF01;
  KciErrSType expected;
  expected.initialize();
  EXPECT_EQ(KciFetchSize_(NO_OBJECT), 0);
  ASSERT_TRUE(KciErr(&expected));
  const KciErrSType error = raised([](void*) -> OopType {
    KciFetchSize_(NO_OBJECT);
    raisePendingError();
    return OOP_NIL;
  });
  EXPECT_NE(error.number, 0);
  EXPECT_EQ(error.number, expected.number);
  EXPECT_EQ(error.category, expected.category);
  EXPECT_EQ(error.fatal, expected.fatal);
  EXPECT_EQ(error.argCount, expected.argCount);
  EXPECT_STREQ(error.message, expected.message);
  KciErrSType none;
  none.initialize();
  EXPECT_FALSE(KciErr(&none)) << "fetching it cleared it";
}

TEST_F(Raise, WithNothingPendingTheFreshRecordIsRaised) {
  const KciErrSType error = raised([](void*) -> OopType {
    raisePendingError();
    return OOP_NIL;
  });
  EXPECT_EQ(error.number, 0);
  EXPECT_EQ(error.category, OOP_NIL);
  EXPECT_EQ(error.argCount, 0);
  EXPECT_EQ(error.fatal, 0);
}

}  // namespace
}  // namespace kvtest
