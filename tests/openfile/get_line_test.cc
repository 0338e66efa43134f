// Reading lines into Strings: where they end, where they are stored, how the reading ends.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class GetLine : public OpenFileTest {
 protected:
  // The next line with this end-of-line sequence, as shown.
  std::string line(OopType file, std::string_view eol = "\n") {
    return show(getLine(file, OOP_NIL, 1, str(eol)));
  }
  // The only line of a file with this content.
  std::string firstLineOf(std::string_view content, std::string_view eol) {
    return line(openWith(content), eol);
  }
};

TEST_F(GetLine, LinesComeWithTheirEndAndTheLastOneAsItIs) {
  const OopType file = openWith("ab\ncd");
  EXPECT_EQ(show(getLine(file)), "'ab\n'");
  EXPECT_EQ(position(file), "3");
  EXPECT_EQ(show(getLine(file)), "'cd'");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(errorCode(file), "0");
}

TEST_F(GetLine, AnEmptyFileIsNilWithAText) {
  const OopType file = openWith("");
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(GetLine, EmptyLinesAreTheirEndAlone) {
  const OopType file = openWith("\n\nx\n");
  EXPECT_EQ(show(getLine(file)), "'\n'");
  EXPECT_EQ(show(getLine(file)), "'\n'");
  EXPECT_EQ(show(getLine(file)), "'x\n'");
  EXPECT_EQ(getLine(file), OOP_NIL);
}

TEST_F(GetLine, AnyByteCanEndALine) {
  const OopType file =
      openWith(std::string("a\0b\xff"
                           "c",
                           5));
  EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, smallInt(0))), std::string("a\0", 2));
  EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, smallInt(255))), "b\xff");
  EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str("c"))), "c");
}

TEST_F(GetLine, ALineInTheBufferIsAllocatedOnceAndStoredOnce) {
  const OopType file = openWith("abc\ndef\n");
  getLine(file);
  std::vector<std::string> interesting;
  for (const std::string& name : namesOf(callsDuring([&] { getLine(file); })))
    if (name.rfind("KciCreate", 0) == 0 || name.rfind("KciStore", 0) == 0 ||
        name.rfind("KciSet", 0) == 0 || movesFile(name))
      interesting.push_back(name);
  EXPECT_THAT(interesting, ::testing::ElementsAre("KciCreateByteObj", "KciStoreBytesInstanceOf"));
}

TEST_F(GetLine, ALineLongerThanTheBufferGrowsTheString) {
  const std::string content = patternBytes(10000) + "\nnext\n";
  const OopType file = openWith(content);
  OopType answer = OOP_NIL;
  const auto names = namesOf(callsDuring([&] { answer = getLine(file); }));
  EXPECT_EQ(bytes(answer), patternBytes(10000) + "\n");
  EXPECT_EQ(kvhost::classOf(answer), OOP_CLASS_STRING);
  EXPECT_EQ(std::count(names.begin(), names.end(), "KciCreateByteObj"), 1);
  EXPECT_EQ(std::count(names.begin(), names.end(), "KciStoreBytesInstanceOf"), 3);
  EXPECT_EQ(std::count(names.begin(), names.end(), "HostReadFile_"), 3);
  EXPECT_EQ(std::count(names.begin(), names.end(), "lseek"), 3);
  EXPECT_EQ(position(file), "10001");
  EXPECT_EQ(show(getLine(file)), "'next\n'");
}

TEST_F(GetLine, AnEndOnEachSideOfTheBufferEndIsFound) {
  for (std::size_t length = 4093; length <= 4098; ++length) {
    const std::string content = patternBytes(length) + "\nrest";
    const OopType file = openWith(content);
    EXPECT_EQ(bytes(getLine(file)), patternBytes(length) + "\n") << length;
    EXPECT_EQ(show(getLine(file)), "'rest'") << length;
  }
}

TEST_F(GetLine, AWholeBufferWithoutAnEndIsALineAtTheEndOfTheFile) {
  const OopType file = openWith(patternBytes(4096));
  EXPECT_EQ(bytes(getLine(file)), patternBytes(4096));
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(takeError(file), past_end);
}

TEST_F(GetLine, ASequenceCutByTheBufferEndIsFoundAfterTheRefill) {
  for (std::size_t length = 4092; length <= 4097; ++length) {
    const OopType file = openWith(patternBytes(length) + "~|~rest");
    EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str("~|~"))), patternBytes(length) + "~|~") << length;
    EXPECT_EQ(show(getLine(file, OOP_NIL, 1, str("~|~"))), "'rest'") << length;
  }
}

TEST_F(GetLine, ACutSequenceStaysForAReadThatCompactsTheBuffer) {
  const OopType file = openWith(patternBytes(4095) + "~|rest");
  std::vector<std::string> calls = fileCallsDuring(
      [&] { EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str("~|"))), patternBytes(4095) + "~|"); });
  EXPECT_THAT(calls, ::testing::ElementsAre("lseek=0", "HostReadFile_=4096", "HostReadFile_=5"));
}

TEST_F(GetLine, AFailedComparisonSkipsTheWholeSequenceLength) {
  EXPECT_EQ(firstLineOf("aab", "ab"), "'aab'");
  EXPECT_EQ(firstLineOf("aabx", "ab"), "'aabx'");
  EXPECT_EQ(firstLineOf("aaab...", "ab"), "'aaab'");
  EXPECT_EQ(firstLineOf("\r\r\n.", "\r\n"), "'\r\r\n.'");
  EXPECT_EQ(firstLineOf("xabcabd..", "abd"), "'xabcabd'");
  EXPECT_EQ(firstLineOf("aabaab.", "aab"), "'aab'");
  EXPECT_EQ(firstLineOf("aaabaab.", "aab"), "'aaabaab'");
}

TEST_F(GetLine, AnUnfinishedSequenceAtTheEndOfTheFileIsNotDelivered) {
  const OopType file = openWith("xyz\r");
  EXPECT_EQ(line(file, "\r\n"), "'xyz'");
  EXPECT_EQ(line(file, "\r\n"), "nil");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(position(file), "3");
  EXPECT_EQ(getC(file), "$13");
}

TEST_F(GetLine, AnUnfinishedSequenceAloneShrinksAGivenString) {
  const OopType file = openWith("\r");
  const OopType into = str("abcdef");
  EXPECT_EQ(getLine(file, into, 3, str("\r\n")), into);
  EXPECT_EQ(bytes(into), "ab");
}

TEST_F(GetLine, SequencesHaveUpTo128Bytes) {
  for (const std::size_t size : {1U, 2U, 3U, 127U, 128U}) {
    std::string eol(size, '=');
    eol.back() = '>';
    const OopType file = openWith("one" + eol + "two" + eol);
    EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str(eol))), "one" + eol) << size;
    EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str(eol))), "two" + eol) << size;
  }
}

TEST_F(GetLine, AGivenStringIsCutBehindTheLine) {
  const OopType file = openWith("ab\ncd\nlonger line\n");
  const OopType into = str("0123456789");
  EXPECT_EQ(getLine(file, into, 1), into);
  EXPECT_EQ(bytes(into), "ab\n");
  EXPECT_EQ(getLine(file, into, 2), into);
  EXPECT_EQ(bytes(into), "acd\n");
  EXPECT_EQ(getLine(file, into, 5), into);
  EXPECT_EQ(bytes(into), "acd\nlonger line\n");
}

TEST_F(GetLine, AStringOneByteTooLongIsCutByOne) {
  const OopType into = str("1234");
  EXPECT_EQ(getLine(openWith("ab\n"), into), into);
  EXPECT_EQ(bytes(into), "ab\n");
}

TEST_F(GetLine, AStringOfTheRightSizeIsNotResized) {
  const OopType file = openWith("ab\n");
  const OopType into = str("123");
  EXPECT_THAT(namesOf(callsDuring([&] { getLine(file, into, 1); })),
              ::testing::Not(::testing::Contains("KciSetVaryingSize")));
  EXPECT_EQ(bytes(into), "ab\n");
}

TEST_F(GetLine, AnInterruptedFirstReadIsMinusTwo) {
  const OopType file = openWith("ab\n");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 99)), "-2");
  EXPECT_EQ(show(getLine(file)), "'ab\n'");
}

TEST_F(GetLine, AnInterruptedLaterReadIsMinusTwoWithTheBytesStored) {
  const OopType file = openWith(patternBytes(5000) + "\n");
  const OopType into = str("");
  fault("HostReadFile_:2:interrupt");
  EXPECT_EQ(show(getLine(file, into)), "-2");
  EXPECT_EQ(bytes(into), patternBytes(4096));
  EXPECT_EQ(position(file), "4096");
}

TEST_F(GetLine, AFoundEndTurnsAnInterruptIntoAFailure) {
  const OopType file = openWith("ab");
  EXPECT_EQ(show(getLine(file)), "'ab'");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(errorCode(file), "4");
}

TEST_F(GetLine, AnInterruptWithPartOfASequenceBufferedEndsTheLine) {
  const OopType file = openWith(patternBytes(4095) + "\r\nrest");
  fault("HostReadFile_:2:interrupt");
  EXPECT_EQ(bytes(getLine(file, OOP_NIL, 1, str("\r\n"))), patternBytes(4095));
  EXPECT_EQ(line(file, "\r\n"), "'\r\n'");
  EXPECT_EQ(line(file, "\r\n"), "'rest'");
}

TEST_F(GetLine, AHostErrorIsNilWithItsCode) {
  const OopType file = openWith("ab\n");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(getLine(file, OOP_NIL, 99), OOP_NIL);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
  EXPECT_EQ(show(getLine(file)), "'ab\n'");
}

TEST_F(GetLine, AHostErrorOfALaterReadIsNil) {
  const OopType file = openWith(patternBytes(5000) + "\n");
  const OopType into = str("");
  fault("HostReadFile_:2:EIO");
  EXPECT_EQ(getLine(file, into), OOP_NIL);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(bytes(into), patternBytes(4096));
}

TEST_F(GetLine, ShortReadsMakeOneLine) {
  const std::string content = patternBytes(50) + "\nrest";
  const OopType file = openWith(content);
  fault("HostReadFile_:1+:short=7");
  EXPECT_EQ(bytes(getLine(file)), patternBytes(50) + "\n");
  EXPECT_EQ(position(file), "51");
}

TEST_F(GetLine, GzipLinesAreReadLikePlainOnes) {
  const OopType file = openGzipWith(patternBytes(5000) + "\ncd");
  EXPECT_EQ(bytes(getLine(file)), patternBytes(5000) + "\n");
  EXPECT_EQ(show(getLine(file)), "'cd'");
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(takeError(file), past_end);
}

TEST_F(GetLine, AGzipHandleForWritingYieldsNothingAndNoText) {
  const OopType file = openFile("new.gz", "w", true);
  EXPECT_EQ(getLine(file), OOP_NIL);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
  const OopType into = str("abcdef");
  EXPECT_EQ(getLine(file, into, 3), into);
  EXPECT_EQ(bytes(into), "ab");
}

TEST_F(GetLine, ARefusedResizeIsKeptInTheRecord) {
  const OopType file = openWith("ab\n");
  const OopType into = str("0123456789");
  fault("KciSetVaryingSize:1:raise=2101");
  EXPECT_EQ(getLine(file, into), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2101");
  EXPECT_THAT(takeError(file), ::testing::StartsWith("'Kestrova KCI error 2101, message: "));
  EXPECT_EQ(bytes(into), "ab\n3456789");
}

TEST_F(GetLine, AnInvariantStringFailsAtTheResize) {
  const OopType file = openWith("ab\ncd\n");
  const OopType fixed = str("0123456789");
  kvhost::makeInvariant(fixed);
  const KciErrSType error = interfaceErrorOf([&] { KciSetVaryingSize(fixed, 3); });
  EXPECT_EQ(getLine(file, fixed), OOP_NIL);
  EXPECT_EQ(errorCode(file), std::to_string(error.number));
  EXPECT_EQ(bytes(fixed), "0123456789");
  EXPECT_EQ(position(file), "3");
}

TEST_F(GetLine, ARefusedStoreWithoutAResizeIsNotAskedForAndTold) {
  const OopType file = openWith("ab\ncd\n");
  const OopType fixed = str("01");
  kvhost::makeInvariant(fixed);
  expectUnasked(2106, "KvfGetLine", {file, fixed, smallInt(1), smallInt('\n'), OOP_NIL});
  EXPECT_EQ(bytes(fixed), "01");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(position(file), "3");
  EXPECT_EQ(readBytes(file, 2), "cd") << "an earlier action's error reached this one";
}

}  // namespace
}  // namespace kvtest
