// Writing items from byte objects and single bytes: chunks, read-ahead, failures, arguments.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class Writing : public OpenFileTest {
 protected:
  OopType writeItems(OopType file, OopType object, int64 itemSize, int64 amount) {
    return call("KvfWrite",
                {file, object, kvhost::newInteger(itemSize), kvhost::newInteger(amount)});
  }
};

TEST_F(Writing, ItemsAreWrittenWithTheirByteCount) {
  const OopType file = openFile("out", "w");
  EXPECT_EQ(show(writeItems(file, str("abcdefgh"), 2, 3)), "6");
  EXPECT_EQ(show(writeItems(file, kvhost::newByteArray("XYZ"), 3, 1)), "3");
  EXPECT_EQ(show(writeItems(file, kvhost::newSymbol("sym"), 1, 2)), "2");
  EXPECT_EQ(readFile("out"), "abcdefXYZsy");
  EXPECT_EQ(position(file), "11");
}

TEST_F(Writing, LargeObjectsGoOutInChunks) {
  const std::string content = patternBytes(10000);
  const OopType file = openFile("out", "w");
  OopType answer = OOP_NIL;
  const auto calls = callsNamed("HostWriteFile_", [&] { answer = write(file, content); });
  EXPECT_EQ(show(answer), "10000");
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("4096", "4096", "1808"));
  EXPECT_EQ(readFile("out"), content);
}

TEST_F(Writing, ChunksAreFetchedOneByOne) {
  const OopType file = openFile("out", "w");
  const auto calls = callsNamed("KciFetchBytes_", [&] { write(file, patternBytes(10000)); });
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("4096", "4096", "1808"));
}

TEST_F(Writing, NothingIsWrittenForACountOfZeroOrLess) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abcdef");
  const std::vector<std::pair<int64, int64>> nothing = {
      {0, 5}, {5, 0}, {-1, 5}, {3, -2}, {0, 0}, {INT64_MIN, 1}, {-1, INT64_MAX}};
  for (const auto& one : nothing) {
    EXPECT_TRUE(fileCallsDuring([&] {
                  EXPECT_EQ(show(writeItems(file, text, one.first, one.second)), "0");
                }).empty());
  }
  EXPECT_EQ(show(writeItems(file, OOP_NIL, 1, 0)), "0");
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(Writing, TheProductWraps) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abcdef");
  constexpr int64 two62 = int64{1} << 62;
  EXPECT_EQ(show(writeItems(file, text, -1, -5)), "5");
  EXPECT_EQ(show(writeItems(file, text, two62 + 1, 4)), "4");
  EXPECT_EQ(show(writeItems(file, text, two62, 4)), "0");
  EXPECT_EQ(show(writeItems(file, text, 2, two62)), "0");
  EXPECT_EQ(show(writeItems(file, text, INT64_MIN, INT64_MIN)), "0");
  EXPECT_EQ(show(writeItems(file, text, INT64_MAX, INT64_MAX)), "1");
  EXPECT_EQ(readFile("out"), "abcdeabcda");
}

TEST_F(Writing, MoreThanTheObjectHoldsIsRaised) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abcde");
  expectRaise(2284, {text, smallInt(6)}, "KvfWrite", {file, text, smallInt(2), smallInt(3)});
  expectRaise(2284, {OOP_NIL, smallInt(1)}, "KvfWrite", {file, OOP_NIL, smallInt(1), smallInt(1)});
  expectRaise(2284, {text, smallInt(6)}, "KvfWrite", {file, text, smallInt(-2), smallInt(-3)});
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(Writing, ACountPastTheSmallIntegersIsRaisedAsAnInteger) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abcde");
  const auto outcome =
      attempt("KvfWrite", {file, text, kvhost::newInteger(int64{1} << 61), smallInt(3)});
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 2284);
  ASSERT_EQ(outcome.error.argCount, 2);
  EXPECT_EQ(outcome.error.args[0], text);
  int failed = 0;
  EXPECT_EQ(KciOopToI64_(outcome.error.args[1], &failed), 3 * (int64{1} << 61));
  EXPECT_EQ(failed, 0);
}

TEST_F(Writing, TheItemSizeIsCheckedBeforeTheAmount) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abc");
  for (const OopType bad : {OOP_NIL, OOP_FALSE, oopFromCharacter('1')}) {
    expectRaise(2061, {bad}, "KvfWrite", {file, text, bad, str("x")});
    expectRaise(2061, {bad}, "KvfWrite", {file, text, smallInt(1), bad});
  }
}

TEST_F(Writing, AnObjectWithoutBytesIsWrittenAsZerosAndTold) {
  const OopType file = openFile("out", "w");
  const OopType array = kvhost::newArray(std::vector<OopType>(5, smallInt(1)));
  expectUnasked(2102, "KvfWrite", {file, array, smallInt(1), smallInt(5)});
  EXPECT_EQ(readFile("out"), std::string(5, '\0'));
}

TEST_F(Writing, AWriteAfterAPartialReadLandsBehindTheLastByteRead) {
  const std::string content = patternBytes(5000);
  const OopType file = openWith(content, "r+");
  readBytes(file, 10);
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(show(write(file, "X")), "1"); }),
              ::testing::ElementsAre("lseek=10", "HostWriteFile_=1"));
  EXPECT_EQ(readFile("data.bin"), content.substr(0, 10) + "X" + content.substr(11));
  EXPECT_EQ(position(file), "11");
  EXPECT_EQ(readBytes(file, 3), content.substr(11, 3));
}

TEST_F(Writing, AWriteAfterAllBufferedBytesWereReadDoesNotReposition) {
  const OopType file = openWith("abc", "r+");
  readBytes(file, 3);
  EXPECT_THAT(fileCallsDuring([&] { write(file, "X"); }),
              ::testing::ElementsAre("HostWriteFile_=1"));
  EXPECT_EQ(readFile("data.bin"), "abcX");
}

TEST_F(Writing, AFailedRepositioningWritesNothing) {
  const OopType file = openWith("abcdef", "r+");
  readBytes(file, 2);
  fault("lseek:1:EIO");
  EXPECT_EQ(write(file, "X"), OOP_NIL);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
  EXPECT_EQ(readFile("data.bin"), "abcdef");
}

TEST_F(Writing, ShortWritesGoOnFromWhereTheyEnded) {
  const std::string content = patternBytes(10000);
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:1+:short=1500");
  const auto calls =
      callsNamed("HostWriteFile_", [&] { EXPECT_EQ(show(write(file, content)), "10000"); });
  EXPECT_THAT(resultsOf(calls),
              ::testing::ElementsAre("1500", "1500", "1500", "1500", "1500", "1500", "1000"));
  EXPECT_EQ(readFile("out"), content);
}

TEST_F(Writing, AFailureIsNilAndKeepsWhatWasWritten) {
  const std::string content = patternBytes(10000);
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:2:ENOSPC");
  EXPECT_EQ(write(file, content), OOP_NIL);
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_EQ(takeError(file), "'errno=28,ENOSPC, No space left on device'");
  EXPECT_EQ(readFile("out"), content.substr(0, 4096));
}

TEST_F(Writing, ACountOfZeroEndsTheWriteWithoutAnError) {
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:2:result=0");
  EXPECT_EQ(show(write(file, patternBytes(10000))), "4096");
  EXPECT_EQ(errorCode(file), "0");
}

TEST_F(Writing, AStaleErrorShowsInAWriteOfNothing) {
  const OopType file = openFile("out", "w");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(writeItems(file, str("abc"), 1, 0), OOP_NIL);
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(show(write(file, "abc")), "3");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(show(writeItems(file, str("abc"), 1, 0)), "0");
}

TEST_F(Writing, AFileForReadingCannotBeWritten) {
  const OopType file = openWith("abc");
  EXPECT_EQ(write(file, "X"), OOP_NIL);
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(readFile("data.bin"), "abc");
}

TEST_F(Writing, AppendedBytesGoToTheEnd) {
  const OopType file = openWith("abc", "a");
  EXPECT_EQ(show(write(file, "def")), "3");
  EXPECT_EQ(readFile("data.bin"), "abcdef");
  const OopType both = openFile("data.bin", "a+");
  EXPECT_EQ(readBytes(both, 2), "ab");
  EXPECT_EQ(show(write(both, "ghi")), "3");
  EXPECT_EQ(readFile("data.bin"), "abcdefghi");
}

TEST_F(Writing, TheAppendModeThatOnlyTheHostReadsWritesAfterARead) {
  const OopType file = openWith(patternBytes(5000), "ab+");
  EXPECT_EQ(readBytes(file, 3), patternBytes(3));
  EXPECT_EQ(show(write(file, "X")), "1");
  EXPECT_EQ(readFile("data.bin"), patternBytes(5000) + "X");
}

TEST_F(Writing, ThatModeRefusesAWriteOnceACReaderMarkedTheBuffer) {
  const OopType file = openWith(patternBytes(5000), "ab+");
  EXPECT_EQ(readBytes(file, 3), patternBytes(3));
  ByteType byte = 0;
  ASSERT_EQ(KvFileRead(file, &byte, 1, 0), 1);
  EXPECT_EQ(write(file, "X"), OOP_NIL);
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(takeError(file), "'Cannot seek on a file opened with append mode'");
  EXPECT_EQ(readFile("data.bin"), patternBytes(5000));
}

TEST_F(Writing, GzipFilesAreWrittenThroughZlib) {
  const std::string content = patternBytes(10000);
  const OopType file = openFile("out.gz", "wb9", true);
  const auto calls = callsNamed("gzwrite", [&] { EXPECT_EQ(show(write(file, content)), "10000"); });
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("4096", "4096", "1808"));
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(readGzip("out.gz"), content);
  const OopType more = openFile("out.gz", "a", true);
  write(more, "more");
  call("KvfClose", {more});
  EXPECT_EQ(readGzip("out.gz"), content + "more");
}

TEST_F(Writing, AGzipHandleForReadingTakesNothing) {
  const OopType file = openGzipWith("abc");
  EXPECT_EQ(show(write(file, "X")), "0");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

class PuttingBytes : public OpenFileTest {};

TEST_F(PuttingBytes, CharactersAndSmallIntegersAreWrittenOneByOne) {
  const OopType file = openFile("out", "w");
  std::string expected;
  for (uint32_t b = 0; b < 256; b += 5) {
    EXPECT_EQ(call("KvfPutC", {file, oopFromCharacter(b)}), OOP_TRUE);
    EXPECT_EQ(call("KvfPutC", {file, smallInt(b)}), OOP_TRUE);
    expected += std::string(2, static_cast<char>(b));
  }
  EXPECT_EQ(readFile("out"), expected);
  EXPECT_EQ(position(file), std::to_string(expected.size()));
}

TEST_F(PuttingBytes, OtherValuesAreRaised) {
  const OopType file = openFile("out", "w");
  for (const OopType range :
       {smallInt(256), smallInt(-1), smallInt(int64{1} << 32), smallInt((int64{1} << 32) + 65),
        oopFromCharacter(256), oopFromCharacter(0x10FFFF)}) {
    expectRaise(2061, {range}, "KvfPutC", {file, range});
  }
  for (const OopType wrong : {str("a"), OOP_NIL, OOP_TRUE, kvhost::newInteger(INT64_MAX)}) {
    expectRaise(2242, {wrong, OOP_CLASS_CHARACTER, OOP_CLASS_SMALL_INTEGER}, "KvfPutC",
                {file, wrong});
  }
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(PuttingBytes, AByteAfterAPartialReadLandsBehindTheLastByteRead) {
  const OopType file = openWith("abcdef", "r+");
  readBytes(file, 2);
  EXPECT_THAT(fileCallsDuring([&] {
                EXPECT_EQ(call("KvfPutC", {file, smallInt('X')}), OOP_TRUE);
              }),
              ::testing::ElementsAre("lseek=2", "HostWriteFile_=1"));
  EXPECT_EQ(readFile("data.bin"), "abXdef");
}

TEST_F(PuttingBytes, AFailedRepositioningIsTrueAndRecorded) {
  const OopType file = openWith("abcdef", "r+");
  readBytes(file, 2);
  fault("lseek:1:EIO");
  EXPECT_THAT(fileCallsDuring([&] {
                EXPECT_EQ(call("KvfPutC", {file, smallInt('X')}), OOP_TRUE);
              }),
              ::testing::ElementsAre("lseek=-1"));
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(readFile("data.bin"), "abcdef");
}

TEST_F(PuttingBytes, AFailedWriteIsTrueAndNotRecorded) {
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:1:ENOSPC");
  EXPECT_EQ(call("KvfPutC", {file, smallInt('X')}), OOP_TRUE);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(PuttingBytes, AnEarlierErrorStaysWhereNothingIsRepositioned) {
  const OopType file = openFile("out", "w");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(call("KvfPutC", {file, smallInt('X')}), OOP_TRUE);
  EXPECT_EQ(errorCode(file), "9");
}

TEST_F(PuttingBytes, GzipBytesGoThroughZlib) {
  const OopType file = openFile("out.gz", "w", true);
  EXPECT_EQ(call("KvfPutC", {file, smallInt('X')}), OOP_TRUE);
  EXPECT_EQ(call("KvfPutC", {file, oopFromCharacter(255)}), OOP_TRUE);
  call("KvfClose", {file});
  EXPECT_EQ(readGzip("out.gz"), "X\xff");
}

}  // namespace
}  // namespace kvtest
