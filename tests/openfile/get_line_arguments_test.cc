// The arguments of reading a line: which are refused, and when each is looked at.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class GetLineArguments : public OpenFileTest {
 protected:
  void expectRefused(OopType culprit, OopType file, OopType into, OopType start, OopType eol,
                     OopType prompt) {
    expectRaise(2061, {culprit}, "KvfGetLine", {file, into, start, eol, prompt});
  }

  static inline const OopType one = smallInt(1);
  static inline const OopType newline = smallInt(10);
};

TEST_F(GetLineArguments, TheEndOfLineIsAByteOrAShortString) {
  const OopType file = openWith("ab\n");
  for (const OopType eol :
       {smallInt(-1), smallInt(256), smallInt(INT32_MIN), smallInt(int64{1} << 32),
        smallInt((int64{1} << 32) + 10), kvhost::newInteger(INT64_MAX), OOP_NIL, OOP_TRUE,
        oopFromCharacter('\n'), str(""), str(std::string(129, 'x')), str(std::string(500, 'x')),
        kvhost::newByteArray("\n"), kvhost::newArray({smallInt(10)})}) {
    expectRefused(eol, file, OOP_NIL, one, eol, OOP_NIL);
  }
  EXPECT_EQ(show(getLine(file)), "'ab\n'");
}

TEST_F(GetLineArguments, ASymbolIsAString) {
  EXPECT_EQ(show(getLine(openWith("ab--cd"), OOP_NIL, 1, kvhost::newSymbol("--"))), "'ab--'");
}

TEST_F(GetLineArguments, TheEndOfLineIsFetchedFromIndexZeroWithOneByteToSpare) {
  const OopType file = openWith("ab\n");
  const auto calls =
      callsNamed("KciFetchBytes_", [&] { getLine(file, OOP_NIL, 1, str(std::string(128, 'x'))); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(argumentOf(calls[0], 1), "0");
  EXPECT_EQ(lastArgumentOf(calls[0]), "129");
  EXPECT_EQ(calls[0].result, "128");
}

TEST_F(GetLineArguments, ThePromptIsNilOrHasCharacters) {
  const OopType file = openWith("a\nb\nc\nd\n");
  for (const OopType prompt : {str(""), smallInt(3), OOP_TRUE, kvhost::newArray({OOP_NIL})})
    expectRefused(prompt, file, OOP_NIL, one, newline, prompt);
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, newline, str("?"))), "'a\n'");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, newline, str(std::string(1023, 'p')))), "'b\n'");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, newline, str(std::string(5000, 'p')))), "'c\n'");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, newline, kvhost::newSymbol("p"))), "'d\n'");
}

TEST_F(GetLineArguments, ThePromptIsFetchedUpTo1023Characters) {
  const OopType file = openWith("ab\n");
  const OopType prompt = str(std::string(1500, 'p'));
  const auto calls =
      callsNamed("KciFetchChars_", [&] { getLine(file, OOP_NIL, 1, newline, prompt); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(lastArgumentOf(calls[0]), "1023");
  EXPECT_EQ(calls[0].result, "1023");
}

TEST_F(GetLineArguments, APromptThatIsSaidToBeLongerThanWasAskedForIsRefused) {
  const OopType file = openWith("ab\n");
  const OopType prompt = str("?");
  fault("KciFetchChars_:1:result=1024");
  expectRefused(prompt, file, OOP_NIL, one, newline, prompt);
  clearFaults();
  fault("KciFetchChars_:1:result=1023");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, newline, prompt)), "'ab\n'");
}

TEST_F(GetLineArguments, TheStartIsWithinTheStringOrJustBehindIt) {
  const OopType file = openWith("ab\n");
  const OopType into = str("xyz");
  for (const OopType start : {smallInt(0), smallInt(-1), smallInt(5), smallInt(int64{1} << 40),
                              kvhost::newInteger(INT64_MAX), kvhost::newInteger(INT64_MIN), OOP_NIL,
                              OOP_TRUE, str("1"), oopFromCharacter(1)}) {
    expectRefused(start, file, into, start, newline, OOP_NIL);
    EXPECT_EQ(position(file), "0");
  }
  EXPECT_EQ(bytes(into), "xyz");
  EXPECT_EQ(bytes(getLine(file, into, 4)), "xyzab\n");
}

TEST_F(GetLineArguments, WithoutAStringTheStartIsOne) {
  const OopType file = openWith("ab\n");
  for (const int64 start : {2, 0, -1})
    expectRefused(smallInt(start), file, OOP_NIL, smallInt(start), newline, OOP_NIL);
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1)), "'ab\n'");
}

TEST_F(GetLineArguments, TheEndOfLineComesBeforeThePromptAndThePromptBeforeTheStart) {
  const OopType file = openWith("ab\n");
  const OopType badEol = smallInt(256);
  const OopType badPrompt = str("");
  const OopType badStart = smallInt(77);
  expectRefused(badEol, file, OOP_NIL, badStart, badEol, badPrompt);
  expectRefused(badPrompt, file, OOP_NIL, badStart, newline, badPrompt);
  expectRefused(badStart, file, OOP_NIL, badStart, newline, OOP_NIL);
}

TEST_F(GetLineArguments, TheStartIsLookedAtOnlyOnceBytesWereRead) {
  const OopType file = openWith("ab\n");
  EXPECT_TRUE(fileCallsDuring([&] {
                expectRefused(smallInt(256), file, OOP_NIL, one, smallInt(256), OOP_NIL);
                const OopType badPrompt = str("");
                expectRefused(badPrompt, file, OOP_NIL, one, newline, badPrompt);
              }).empty());
  EXPECT_THAT(
      fileCallsDuring([&] { expectRefused(OOP_NIL, file, OOP_NIL, OOP_NIL, newline, OOP_NIL); }),
      ::testing::ElementsAre("lseek=0", "HostReadFile_=3"));
}

TEST_F(GetLineArguments, AtTheEndOfTheFileTheStartIsNotLookedAt) {
  const OopType file = openWith("");
  EXPECT_EQ(call("KvfGetLine", {file, OOP_NIL, OOP_NIL, newline, OOP_NIL}), OOP_NIL);
  EXPECT_EQ(takeError(file), past_end);
}

TEST_F(GetLineArguments, ARefusedPromptLeavesNoErrorForTheNextAction) {
  const OopType file = openWith("ab\n");
  expectRefused(smallInt(3), file, OOP_NIL, one, newline, smallInt(3));
  EXPECT_EQ(readBytes(file, 3), "ab\n");
  EXPECT_EQ(errorCode(file), "0");
}

}  // namespace
}  // namespace kvtest
