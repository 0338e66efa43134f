// Errors of the C interface in both modes, raising, and calling actions.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <new>
#include <string>
#include <thread>

namespace {

constexpr OopType NO_OBJECT = 0x7777777701;

template <typename F>
KciActionFnType asAction(F* function) {
  return reinterpret_cast<KciActionFnType>(reinterpret_cast<void (*)()>(function));
}

KciErrSType anError(int number) {
  KciErrSType error;
  error.initialize();
  error.number = number;
  error.category = OOP_ERROR_CATEGORY;
  std::strcpy(error.message, "made for a test");
  return error;
}

OopType raiseNumber(void* number) {
  const KciErrSType error = anError(*static_cast<int*>(number));
  KciRaiseException(&error);
  ADD_FAILURE() << "a raise came back";
  return OOP_NIL;
}

TEST(PendingErrors, AreFetchedOnceAndNameTheObject) {
  KciErrSType error;
  error.initialize();
  EXPECT_FALSE(KciErr(&error));
  EXPECT_EQ(KciFetchSize_(NO_OBJECT), 0);
  ASSERT_TRUE(KciErr(&error));
  EXPECT_EQ(error.number, 2101);
  EXPECT_EQ(error.category, OOP_ERROR_CATEGORY);
  EXPECT_EQ(error.argCount, 1);
  EXPECT_EQ(error.args[0], NO_OBJECT);
  EXPECT_STREQ(error.message, "the object 0x7777777701 does not exist");
  EXPECT_EQ(error.fatal, 0);
  error.number = 77;
  EXPECT_FALSE(KciErr(&error));
  EXPECT_EQ(error.number, 77);
}

TEST(PendingErrors, ABuildUpOfTheWrongClassNamesTheClass) {
  const ByteType byte = 'x';
  KciStoreBytesInstanceOf(kvhost::CLASS_BYTE_ARRAY, kvhost::newString("a"), 1, &byte, 1);
  KciErrSType error;
  ASSERT_TRUE(KciErr(&error));
  EXPECT_EQ(error.argCount, 2);
  EXPECT_EQ(error.args[1], kvhost::CLASS_BYTE_ARRAY);
}

TEST(PendingErrors, SucceedingCallsLeaveThem) {
  KciFetchSize_(NO_OBJECT);
  EXPECT_EQ(KciFetchSize_(kvhost::newString("abc")), 3);
  KciErrSType error;
  EXPECT_TRUE(KciErr(&error));
}

TEST(PendingErrors, BelongToTheirThread) {
  KciFetchSize_(NO_OBJECT);
  std::thread([] {
    KciErrSType error;
    EXPECT_FALSE(KciErr(&error));
  }).join();
  KciErrSType error;
  EXPECT_TRUE(KciErr(&error));
}

TEST(PendingErrors, OfEarlierCallsAreNotAnActions) {
  KciFetchSize_(NO_OBJECT);
  const kvhost::Outcome outcome = kvhost::protect(
      [](void*) -> OopType {
        KciErrSType error;
        return oopFromBool(KciErr(&error));
      },
      nullptr);
  EXPECT_EQ(outcome.value, OOP_FALSE);
}

// Answers the number of the error that arrived by a jump; 0 when the call came back.
int jumpedNumber(void (*failing)()) {
  static KciErrJumpSType jump;
  KciErrSType error;
  error.initialize();
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    EXPECT_EQ(kvhost::errorJumpDepth(), 1);
    EXPECT_TRUE(KciErr(&error));
    KciPopErrJump(&jump);
    return error.number;
  }
  failing();
  KciPopErrJump(&jump);
  return 0;
}

TEST(Frames, FailingCallsJumpAndTheFrameStays) {
  EXPECT_EQ(jumpedNumber([] { KciFetchSize_(NO_OBJECT); }), 2101);
  EXPECT_EQ(jumpedNumber([] { KciStoreOop(OOP_NIL, 1, OOP_NIL); }), 2103);
  EXPECT_EQ(jumpedNumber([] { KciNewOop(OOP_NIL); }), 2109);
  EXPECT_EQ(jumpedNumber([] { KciSetVaryingSize(NO_OBJECT, 1); }), 2101);
  EXPECT_EQ(jumpedNumber([] { KciFetchSize_(OOP_NIL); }), 0);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
}

TEST(Frames, ConversionsNeverJump) {
  EXPECT_EQ(jumpedNumber([] {
              int failed = 0;
              KciOopToI64_(NO_OBJECT, &failed);
              KciIsKindOfClass(NO_OBJECT, OOP_CLASS_STRING);
              EXPECT_NE(failed, 0);
            }),
            0);
}

TEST(Frames, PoppingOneRemovesThoseAfterIt) {
  static KciErrJumpSType outer;
  static KciErrJumpSType inner;
  static KciErrJumpSType innermost;
  KciPushErrJump(&outer);
  KciPushErrJump(&inner);
  KciPushErrJump(&innermost);
  EXPECT_EQ(kvhost::errorJumpDepth(), 3);
  KciPopErrJump(&inner);
  EXPECT_EQ(kvhost::errorJumpDepth(), 1);
  KciPopErrJump(&inner);
  EXPECT_EQ(kvhost::errorJumpDepth(), 1);
  KciPopErrJump(&outer);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
}

TEST(Raise, EndsTheCallAndDeliversTheError) {
  int number = 2061;
  const kvhost::Outcome outcome = kvhost::protect(raiseNumber, &number);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 2061);
  EXPECT_STREQ(outcome.error.message, "made for a test");
  EXPECT_EQ(outcome.value, OOP_NIL);
}

OopType raiseBelowFrames(void* number) {
  KciErrJumpSType first;
  KciErrJumpSType second;
  KciPushErrJump(&first);
  KciPushErrJump(&second);
  EXPECT_EQ(kvhost::errorJumpDepth(), 2);
  return raiseNumber(number);
}

TEST(Raise, UnwindsTheFramesOfTheCall) {
  int number = 4100;
  const kvhost::Outcome outcome = kvhost::protect(raiseBelowFrames, &number);
  EXPECT_EQ(outcome.error.number, 4100);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
  KciErrSType error;
  EXPECT_EQ(KciFetchSize_(NO_OBJECT), 0);
  EXPECT_TRUE(KciErr(&error));
}

OopType callWithinFrame(void* number) {
  KciErrJumpSType jump;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    ADD_FAILURE() << "an inner call reached the frame of an outer one";
    KciPopErrJump(&jump);
    return OOP_NIL;
  }
  const kvhost::Outcome inner = kvhost::protect(raiseNumber, number);
  EXPECT_EQ(inner.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(kvhost::errorJumpDepth(), 1);
  const kvhost::Outcome failing = kvhost::protect(
      [](void*) -> OopType {
        KciErrSType error;
        KciFetchSize_(NO_OBJECT);
        return oopFromBool(KciErr(&error));
      },
      nullptr);
  KciPopErrJump(&jump);
  return failing.value;
}

TEST(Raise, NestedCallsAreSeparate) {
  int number = 1;
  const kvhost::Outcome outcome = kvhost::protect(callWithinFrame, &number);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered);
  EXPECT_EQ(outcome.value, OOP_TRUE);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
}

OopType failAndAnswer(void* nested) {
  KciFetchSize_(NO_OBJECT);
  if (nested != nullptr) {
    const kvhost::Outcome inner =
        kvhost::protect([](void*) -> OopType { return oopFromSmallInteger(1); }, nullptr);
    EXPECT_EQ(inner.status, kvhost::CallStatus::Answered) << "the error is not the inner call's";
  }
  return OOP_TRUE;
}

TEST(Raise, HappensForAnErrorThatNobodyAskedAbout) {
  bool nested = true;
  for (void* context : {static_cast<void*>(nullptr), static_cast<void*>(&nested)}) {
    const kvhost::Outcome outcome = kvhost::protect(failAndAnswer, context);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, 2101);
    EXPECT_EQ(outcome.error.args[0], NO_OBJECT);
    EXPECT_EQ(outcome.value, OOP_NIL);
    KciErrSType error;
    EXPECT_FALSE(KciErr(&error)) << "told once";
  }
}

TEST(Raise, OfAnActionGoesBeforeAPendingError) {
  const kvhost::Outcome outcome = kvhost::protect(
      [](void*) -> OopType {
        KciFetchSize_(NO_OBJECT);
        int number = 2061;
        return raiseNumber(&number);
      },
      nullptr);
  EXPECT_EQ(outcome.error.number, 2061);
  KciErrSType error;
  EXPECT_FALSE(KciErr(&error));
}

TEST(Raise, OfAnInnerCallLeavesThePendingErrorOfTheOuterOne) {
  const kvhost::Outcome outcome = kvhost::protect(
      [](void*) -> OopType {
        KciFetchSize_(NO_OBJECT);
        int number = 2061;
        EXPECT_EQ(kvhost::protect(raiseNumber, &number).error.number, 2061);
        return OOP_TRUE;
      },
      nullptr);
  EXPECT_EQ(outcome.error.number, 2101);
}

TEST(Raise, HappensWhereMemoryRunsOutInTheHost) {
  const kvhost::Outcome outcome = kvhost::protect(
      [](void*) -> OopType {
        KciErrJumpSType jump;
        KciPushErrJump(&jump);
        throw std::bad_alloc();
      },
      nullptr);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 2110);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
}

TEST(Raise, OtherExceptionsGoOnToTheCaller) {
  EXPECT_THROW(kvhost::protect([](void*) -> OopType { throw 7; }, nullptr), int);
  int number = 2061;
  EXPECT_EQ(kvhost::protect(raiseNumber, &number).error.number, 2061) << "calls go on as before";
}

TEST(Raise, AFrameThatWasForgottenIsDroppedAndReported) {
  char* text = nullptr;
  size_t size = 0;
  FILE* log = open_memstream(&text, &size);
  kvhost::setLogStream(log);
  static KciErrJumpSType forgotten;
  kvhost::protect(
      [](void*) -> OopType {
        KciPushErrJump(&forgotten);
        return OOP_NIL;
      },
      nullptr);
  kvhost::setLogStream(stderr);
  std::fclose(log);
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
  EXPECT_NE(std::string(text).find("1 error-jump frame(s) left registered"), std::string::npos);
  std::free(text);
}

TEST(RaiseDeathTest, OutsideAnyCallStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const KciErrSType error = anError(2061);
  EXPECT_DEATH(KciRaiseException(&error),
               "error 2061 was raised outside any call: made for a test");
}

OopType take0() { return oopFromSmallInteger(0); }
OopType take3(OopType a, OopType b, OopType c) {
  return oopFromSmallInteger(oopSmallIntegerValue(a) * 100 + oopSmallIntegerValue(b) * 10 +
                             oopSmallIntegerValue(c));
}
OopType take8(OopType a, OopType b, OopType c, OopType d, OopType e, OopType f, OopType g,
              OopType h) {
  int64 value = 0;
  for (const OopType each : {a, b, c, d, e, f, g, h}) {
    value = value * 10 + oopSmallIntegerValue(each);
  }
  return oopFromSmallInteger(value);
}

class Actions : public testing::Test {
 protected:
  void SetUp() override { kvhost::forgetDeclaredActions(); }
  void TearDown() override { kvhost::forgetDeclaredActions(); }

  static kvhost::Outcome callNumbered(const char* name, int count) {
    std::array<OopType, 8> args{};
    for (size_t i = 0; i < args.size(); ++i) args[i] = oopFromSmallInteger(static_cast<int>(i) + 1);
    return kvhost::callAction(name, args.data(), count);
  }
};

TEST_F(Actions, AreCalledByNameWithTheirArguments) {
  ASSERT_TRUE(KciDeclareAction("Take0", asAction(take0), 0, UAFLAG_SYSTEM, TRUE));
  ASSERT_TRUE(KciDeclareAction("Take3", asAction(take3), 3, UAFLAG_SYSTEM | UAFLAG_KVFILE, TRUE));
  ASSERT_TRUE(KciDeclareAction("Take8", asAction(take8), 8, 0, FALSE));
  EXPECT_EQ(callNumbered("Take0", 0).value, oopFromSmallInteger(0));
  EXPECT_EQ(callNumbered("Take3", 3).value, oopFromSmallInteger(123));
  EXPECT_EQ(callNumbered("Take8", 8).value, oopFromSmallInteger(12345678));
  const std::vector<kvhost::DeclaredAction> all = kvhost::declaredActions();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[1].name, "Take3");
  EXPECT_EQ(all[1].argumentCount, 3);
  EXPECT_EQ(all[1].flags, 6U);
}

TEST_F(Actions, WrongNamesAndCountsAreTold) {
  ASSERT_TRUE(KciDeclareAction("Take3", asAction(take3), 3, 0, TRUE));
  const kvhost::Outcome wrong = callNumbered("Take3", 2);
  EXPECT_EQ(wrong.status, kvhost::CallStatus::WrongArgumentCount);
  EXPECT_EQ(wrong.expectedCount, 3);
  EXPECT_EQ(callNumbered("Take", 3).status, kvhost::CallStatus::NoSuchAction);
  kvhost::forgetDeclaredActions();
  EXPECT_EQ(callNumbered("Take3", 3).status, kvhost::CallStatus::NoSuchAction);
  EXPECT_TRUE(kvhost::declaredActions().empty());
}

TEST_F(Actions, BadDeclarationsAreRefused) {
  EXPECT_TRUE(KciDeclareAction("Once", asAction(take0), 0, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction("Once", asAction(take3), 3, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction("", asAction(take0), 0, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction(nullptr, asAction(take0), 0, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction("NoFunction", nullptr, 0, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction("Negative", asAction(take0), -1, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction("Nine", asAction(take0), 9, 0, TRUE));
  EXPECT_TRUE(KciDeclareAction(std::string(31, 'x').c_str(), asAction(take0), 0, 0, TRUE));
  EXPECT_FALSE(KciDeclareAction(std::string(32, 'x').c_str(), asAction(take0), 0, 0, TRUE));
  EXPECT_EQ(kvhost::declaredActions().size(), 2U);
  KciErrSType error;
  EXPECT_FALSE(KciErr(&error));
}

TEST_F(Actions, RaisesAreOutcomes) {
  ASSERT_TRUE(KciDeclareAction("Fail", asAction(+[](OopType object) -> OopType {
                                 KciFetchSize_(object);
                                 return OOP_TRUE;
                               }),
                               1, 0, TRUE));
  const OopType nobody = NO_OBJECT;
  const kvhost::Outcome failed = kvhost::callAction("Fail", &nobody, 1);
  EXPECT_EQ(failed.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(failed.error.number, 2101);
  EXPECT_EQ(failed.value, OOP_NIL);
  ASSERT_TRUE(KciDeclareAction("Raise", asAction(+[](OopType number) -> OopType {
                                 int value = static_cast<int>(oopSmallIntegerValue(number));
                                 return raiseNumber(&value);
                               }),
                               1, 0, TRUE));
  const kvhost::Outcome outcome = callNumbered("Raise", 1);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 1);
}

TEST_F(Actions, AreSeenByThreadsWhileOthersDeclare) {
  ASSERT_TRUE(KciDeclareAction("Take0", asAction(take0), 0, 0, TRUE));
  std::thread caller([] {
    for (int i = 0; i < 20000; ++i) {
      ASSERT_EQ(callNumbered("Take0", 0).value, oopFromSmallInteger(0));
    }
  });
  for (int i = 0; i < 500; ++i) {
    EXPECT_TRUE(
        KciDeclareAction(("Other" + std::to_string(i)).c_str(), asAction(take0), 0, 0, TRUE));
  }
  caller.join();
  EXPECT_EQ(kvhost::declaredActions().size(), 501U);
}

}  // namespace
