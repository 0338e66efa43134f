// Reading items into byte objects: the counts, the refills, the ends, the failures.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class Reading : public OpenFileTest {};

TEST_F(Reading, ItemsArriveWithTheirByteCount) {
  const OopType file = openWith("abcdefghij");
  const OopType into = str("");
  EXPECT_EQ(show(read(file, into, 3, 2)), "6");
  EXPECT_EQ(bytes(into), "abcdef");
  EXPECT_EQ(position(file), "6");
}

TEST_F(Reading, BytesAreStoredFromTheStartOfALargerObjectWhoseRestStays) {
  const OopType file = openWith("abc");
  const OopType into = str("..........");
  EXPECT_EQ(show(read(file, into, 1, 10)), "3");
  EXPECT_EQ(bytes(into), "abc.......");
  const OopType array = kvhost::newByteArray("");
  seek(file, 0);
  EXPECT_EQ(show(read(file, array, 1, 2)), "2");
  EXPECT_EQ(bytes(array), "ab");
}

TEST_F(Reading, TheAmountIsCheckedBeforeTheItemSize) {
  const OopType file = openWith("abc");
  const OopType into = str("");
  for (const OopType bad : {OOP_NIL, OOP_TRUE, str("1"), oopFromCharacter('1')}) {
    expectRaise(2061, {bad}, "KvfRead", {file, into, smallInt(0), bad});
    expectRaise(2061, {bad}, "KvfRead", {file, into, bad, smallInt(1)});
  }
  EXPECT_EQ(bytes(into), "");
  EXPECT_EQ(position(file), "0");
}

TEST_F(Reading, ItemSizesGoFromOneToTheBufferSize) {
  const OopType file = openWith(patternBytes(5000));
  const OopType into = str("");
  for (const int64 size : {int64{0}, int64{4097}, int64{-1}, int64{1} << 32, int64{1} << 59}) {
    for (const int64 amount : {0, 1, -1}) {
      expectRaise(2061, {smallInt(size)}, "KvfRead",
                  {file, into, smallInt(size), smallInt(amount)});
    }
  }
  EXPECT_EQ(show(read(file, into, 4096, 1)), "4096");
  EXPECT_EQ(bytes(into), patternBytes(5000).substr(0, 4096));
}

TEST_F(Reading, NothingAskedIsNothingRead) {
  const OopType file = openWith("abc");
  for (const int64 amount : {int64{0}, int64{-1}, -(int64{1} << 62), INT64_MIN}) {
    EXPECT_TRUE(
        fileCallsDuring([&] { EXPECT_EQ(show(read(file, str(""), 1, amount)), "0"); }).empty());
  }
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(Reading, HugeAmountsReadWhatThereIs) {
  for (const int64 amount : {int64{1} << 40, int64{1} << 62, INT64_MAX}) {
    const OopType file = openWith("abcde");
    const OopType into = str("");
    EXPECT_EQ(show(read(file, into, 1, amount)), "5");
    EXPECT_EQ(bytes(into), "abcde");
    EXPECT_EQ(takeError(file), "nil");
  }
}

TEST_F(Reading, ATrailingPartOfAnItemIsDelivered) {
  const OopType file = openWith("abcdef");
  const OopType into = str("");
  EXPECT_EQ(show(read(file, into, 4, 2)), "6");
  EXPECT_EQ(bytes(into), "abcdef");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(show(read(openWith("abcdef"), into, 4, 5)), "6");
}

TEST_F(Reading, LessThanOneItemIsTheEndAndStaysBuffered) {
  const OopType file = openWith("abc");
  const OopType into = str("");
  EXPECT_EQ(show(read(file, into, 4, 1)), "0");
  EXPECT_EQ(bytes(into), "");
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(position(file), "0");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(getC(file), "$97"); }).empty());
  EXPECT_EQ(readBytes(file, 2), "bc");
}

TEST_F(Reading, TheEndOfFileTextComesOncePerRecord) {
  const OopType file = openWith("");
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "0");
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(Reading, ItemsThatDoNotFillTheBufferLeaveTheirRestForTheNext) {
  const std::string content = patternBytes(10000);
  const OopType file = openWith(content);
  const OopType into = str("");
  const auto calls = fileCallsDuring([&] { EXPECT_EQ(show(read(file, into, 3000, 2)), "6000"); });
  EXPECT_THAT(calls, ::testing::ElementsAre("lseek=0", "HostReadFile_=4096", "HostReadFile_=3000"));
  EXPECT_EQ(bytes(into), content.substr(0, 6000));
  EXPECT_EQ(position(file), "6000");
}

TEST_F(Reading, ALastItemThatIsCutStaysBuffered) {
  const std::string content = patternBytes(10000);
  const OopType file = openWith(content);
  const OopType into = str("");
  EXPECT_EQ(show(read(file, into, 4096, 3)), "8192");
  EXPECT_EQ(bytes(into), content.substr(0, 8192));
  EXPECT_EQ(position(file), "8192");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(readBytes(file, 5000), content.substr(8192));
}

TEST_F(Reading, EachRefillAsksThePositionAndReadsOnce) {
  const std::string content = patternBytes(10000);
  const OopType file = openWith(content);
  std::string all;
  const auto calls = fileCallsDuring([&] { all = readBytes(file, 10000); });
  EXPECT_EQ(all, content);
  EXPECT_THAT(calls,
              ::testing::ElementsAre("lseek=0", "HostReadFile_=4096", "lseek=4096",
                                     "HostReadFile_=4096", "lseek=8192", "HostReadFile_=1808"));
}

TEST_F(Reading, EachRefillAsksForAFullBuffer) {
  const OopType file = openWith(patternBytes(5000));
  const auto calls = callsNamed("HostReadFile_", [&] { readBytes(file, 1); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(lastArgumentOf(calls[0]), "4096");
  EXPECT_EQ(calls[0].result, "4096");
}

TEST_F(Reading, BufferedBytesNeedNoHostCall) {
  const OopType file = openWith(patternBytes(5000));
  readBytes(file, 1);
  EXPECT_TRUE(fileCallsDuring([&] { readBytes(file, 4095); }).empty());
}

TEST_F(Reading, ShortReadsAddUp) {
  const std::string content = patternBytes(100);
  const OopType file = openWith(content);
  fault("HostReadFile_:1+:short=10");
  std::string all;
  const auto calls = callsNamed("HostReadFile_", [&] { all = readBytes(file, 25); });
  EXPECT_EQ(all, content.substr(0, 25));
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("10", "10", "10"));
  EXPECT_EQ(position(file), "25");
}

TEST_F(Reading, ShortReadsThatCutItemsDeliverMoreBytesThanAsked) {
  const std::string content = patternBytes(100);
  const OopType file = openWith(content);
  const OopType into = str("");
  fault("HostReadFile_:1+:short=10");
  EXPECT_EQ(show(read(file, into, 4, 5)), "24");
  EXPECT_EQ(bytes(into), content.substr(0, 24));
}

TEST_F(Reading, AShortReadOfLessThanAnItemCountsAsTheEndUntilTheNextRead) {
  const std::string content = patternBytes(100);
  const OopType file = openWith(content);
  const OopType into = str("");
  fault("HostReadFile_:1+:short=10");
  EXPECT_EQ(show(read(file, into, 20, 1)), "0");
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(show(read(file, into, 20, 1)), "20");
  EXPECT_EQ(bytes(into), content.substr(0, 20));
}

TEST_F(Reading, AnInterruptedReadIsMinusTwo) {
  const OopType file = openWith(patternBytes(9000));
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(show(read(file, str(""), 1, 5)), "-2");
  EXPECT_EQ(errorCode(file), "4");
  EXPECT_EQ(takeError(file), "'errno=4,EINTR, Interrupted system call'");
  EXPECT_EQ(position(file), "0");
  EXPECT_EQ(readBytes(file, 5), patternBytes(5));
}

TEST_F(Reading, AnInterruptedLaterRefillIsMinusTwoWithTheBytesStored) {
  const OopType file = openWith(patternBytes(9000));
  const OopType into = str("");
  fault("HostReadFile_:2:interrupt");
  EXPECT_EQ(show(read(file, into, 1, 9000)), "-2");
  EXPECT_EQ(bytes(into), patternBytes(4096));
  EXPECT_EQ(position(file), "4096");
}

TEST_F(Reading, AnInterruptWithPartOfAnItemBufferedIsAnError) {
  const std::string content = patternBytes(9000);
  const OopType file = openWith(content);
  fault("HostReadFile_:2:interrupt");
  EXPECT_EQ(show(read(file, str(""), 3000, 2)), "nil");
  EXPECT_EQ(errorCode(file), "4");
  EXPECT_EQ(readBytes(file, 6000), content.substr(3000));
}

TEST_F(Reading, AHostErrorIsNilWithItsCodeAndText) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "nil");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
  EXPECT_EQ(readBytes(file, 9), "abc");
}

TEST_F(Reading, AHostErrorOfALaterRefillIsNilWithTheBytesStored) {
  const OopType file = openWith(patternBytes(9000));
  const OopType into = str("");
  fault("HostReadFile_:2:EIO");
  EXPECT_EQ(show(read(file, into, 1, 9000)), "nil");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(bytes(into), patternBytes(4096));
  EXPECT_EQ(position(file), "4096");
}

TEST_F(Reading, AHostErrorWithPartOfAnItemBufferedIsNilAndLosesNothing) {
  const std::string content = patternBytes(9000);
  const OopType file = openWith(content);
  fault("HostReadFile_:2:EIO");
  EXPECT_EQ(show(read(file, str(""), 3000, 2)), "nil");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(position(file), "3000");
  EXPECT_EQ(readBytes(file, 6000), content.substr(3000));
}

TEST_F(Reading, AFileForWritingCannotBeRead) {
  const OopType file = openWith("", "w");
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "nil");
  EXPECT_EQ(errorCode(file), "9");
}

TEST_F(Reading, AStoreThatTheInterfaceRefusesIsKeptInTheRecord) {
  const OopType file = openWith("abcdef");
  const OopType fixed = str("xyz");
  kvhost::makeInvariant(fixed);
  const ByteType byte = 'a';
  const KciErrSType error =
      interfaceErrorOf([&] { KciStoreBytesInstanceOf(OOP_NIL, fixed, 1, &byte, 1); });
  EXPECT_EQ(show(read(file, fixed, 1, 2)), "nil");
  EXPECT_EQ(bytes(fixed), "xyz");
  EXPECT_EQ(errorCode(file), std::to_string(error.number));
  EXPECT_EQ(takeError(file), "'" + interfaceErrorText(error) + "'");
  EXPECT_EQ(position(file), "2");
  EXPECT_EQ(readBytes(file, 9), "cdef");
}

TEST_F(Reading, TheInterfaceIsAskedAfterEveryStore) {
  const OopType file = openWith(patternBytes(9000));
  const OopType into = str("");
  fault("KciStoreBytesInstanceOf:2:raise=2101");
  EXPECT_EQ(show(read(file, into, 1, 9000)), "nil");
  EXPECT_EQ(errorCode(file), "2101");
  EXPECT_THAT(takeError(file), ::testing::StartsWith("'Kestrova KCI error 2101, message: "));
  EXPECT_EQ(bytes(into), patternBytes(4096));
  EXPECT_EQ(position(file), "8192");
}

TEST_F(Reading, AModeThatOnlyTheHostReadsLosesItsReadAhead) {
  const std::string content = patternBytes(9000);
  const OopType file = openFile("data.bin", "wb+");
  write(file, content);
  EXPECT_EQ(show(seek(file, 0)), "0");
  EXPECT_EQ(readBytes(file, 3), "!(/");
  EXPECT_EQ(position(file), "4096");
  EXPECT_EQ(readBytes(file, 3), content.substr(4096, 3));
  seek(file, 0);
  const OopType into = str("");
  EXPECT_EQ(show(read(file, into, 3000, 2)), "6000");
  EXPECT_EQ(bytes(into), content.substr(0, 3000) + content.substr(4096, 3000));
}

TEST_F(Reading, GzipDataIsReadInRefills) {
  const std::string content = patternBytes(10000);
  const OopType file = openGzipWith(content);
  std::string all;
  const auto calls = callsNamed("gzread", [&] { all = readBytes(file, 10000); });
  EXPECT_EQ(all, content);
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("4096", "4096", "1808"));
  EXPECT_EQ(position(file), "10000");
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "0");
  EXPECT_EQ(takeError(file), past_end);
}

TEST_F(Reading, DamagedGzipDataIsNilWithZlibsTextAndNoCode) {
  writeGzip("bad.gz", "some text that is worth a checksum");
  std::string raw = readFile("bad.gz");
  raw[raw.size() - 8] = static_cast<char>(raw[raw.size() - 8] ^ 1);
  writeFile("bad.gz", raw);
  const OopType file = openFile("bad.gz", "r", true);
  EXPECT_EQ(show(read(file, str(""), 1, 10)), "nil");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "'bad.gz: incorrect data check'");
}

TEST_F(Reading, AGzipHandleForWritingReadsAsItsEnd) {
  const OopType file = openFile("new.gz", "w", true);
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "0");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), past_end);
}

}  // namespace
}  // namespace kvtest
