// Reading single bytes, and asking whether a file is at its end.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class SingleBytes : public OpenFileTest {};

TEST_F(SingleBytes, EveryByteValueIsACharacter) {
  std::string content;
  for (int b = 0; b < 256; ++b) content += static_cast<char>(b);
  const OopType file = openWith(content);
  for (uint32_t b = 0; b < 256; ++b) EXPECT_EQ(call("KvfGetC", {file}), oopFromCharacter(b));
  EXPECT_EQ(getC(file), "nil");
}

TEST_F(SingleBytes, TheBufferIsFilledOnce) {
  const OopType file = openWith("abc");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(getC(file), "$97"); }),
              ::testing::ElementsAre("lseek=0", "HostReadFile_=3"));
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(getC(file), "$98"); }).empty());
  EXPECT_EQ(position(file), "2");
}

TEST_F(SingleBytes, TheEndIsNilWithoutAText) {
  const OopType file = openWith("");
  EXPECT_EQ(getC(file), "nil");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "true"); }).empty());
}

TEST_F(SingleBytes, AnInterruptedReadIsMinusTwo) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(getC(file), "-2");
  EXPECT_EQ(getC(file), "$97");
}

TEST_F(SingleBytes, AHostErrorIsNilWithItsCode) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(getC(file), "nil");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
  EXPECT_EQ(getC(file), "$97");
}

TEST_F(SingleBytes, AModeThatOnlyTheHostReadsLosesItsReadAhead) {
  const OopType file = openFile("data.bin", "wb+");
  write(file, "abc");
  seek(file, 0);
  EXPECT_EQ(getC(file), "$97");
  EXPECT_EQ(getC(file), "nil");
}

TEST_F(SingleBytes, GzipBytesComeThroughTheBuffer) {
  const OopType file = openGzipWith("abc");
  EXPECT_EQ(getC(file), "$97");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(getC(file), "$98"); }).empty());
  EXPECT_EQ(getC(file), "$99");
  EXPECT_EQ(getC(file), "nil");
}

class AtEnd : public OpenFileTest {};

TEST_F(AtEnd, AFreshFileIsAskedByARead) {
  const OopType file = openWith("abc");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "false"); }),
              ::testing::ElementsAre("lseek=0", "HostReadFile_=3"));
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "false"); }).empty());
  EXPECT_EQ(readBytes(file, 3), "abc");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(atEnd(openWith("", "r", "empty")), "true");
}

TEST_F(AtEnd, AFoundEndStaysAlthoughTheFileGrew) {
  const OopType file = openWith("abc");
  readBytes(file, 9);
  std::ofstream("data.bin", std::ios::app) << "more";
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "true"); }).empty());
  EXPECT_EQ(show(seek(file, 3)), "3");
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(readBytes(file, 9), "more");
}

TEST_F(AtEnd, AFoundEndCountsEvenWithBytesLeft) {
  const OopType file = openWith("abc");
  EXPECT_EQ(show(read(file, str(""), 4, 1)), "0");
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(show(read(file, str(""), 4, 1)), "0");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(readBytes(file, 3), "abc");
}

TEST_F(AtEnd, AFreshFileRepeatsAnInterruptedRead) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:interrupt");
  fault("HostReadFile_:2:interrupt");
  const auto calls = callsNamed("HostReadFile_", [&] { EXPECT_EQ(atEnd(file), "false"); });
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("-2", "-2", "3"));
}

TEST_F(AtEnd, ADrainedBufferTakesAnInterruptedReadForMore) {
  const OopType file = openWith("abc");
  readBytes(file, 3);
  fault("HostReadFile_:1:interrupt");
  const auto calls = callsNamed("HostReadFile_", [&] { EXPECT_EQ(atEnd(file), "false"); });
  EXPECT_EQ(calls.size(), 1U);
}

TEST_F(AtEnd, AReadErrorCountsAsTheEnd) {
  const OopType fresh = openWith("abc");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(atEnd(fresh), "true");
  EXPECT_EQ(errorCode(fresh), "5");
  const OopType drained = openWith("abc");
  readBytes(drained, 3);
  clearFaults();
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(atEnd(drained), "true");
  EXPECT_EQ(errorCode(drained), "5");
}

TEST_F(AtEnd, AFileForWritingComparesItsPositions) {
  const OopType file = openFile("data.bin", "w");
  write(file, "abc");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(show(seek(file, 1)), "1");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "false"); }),
              ::testing::ElementsAre("lseek=1", "lseek=3", "lseek=3", "lseek=1"));
  EXPECT_EQ(position(file), "1");
}

TEST_F(AtEnd, AFileForAppendingIsAtItsEndAndRefusesTheWayBack) {
  const OopType file = openWith("abc", "a");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(takeError(file), "'Cannot seek on a file opened with append mode'");
}

TEST_F(AtEnd, GzipFilesAreAskedByOneByteThatIsPutBack) {
  const OopType file = openGzipWith("abc");
  EXPECT_THAT(namesOf(callsDuring([&] { EXPECT_EQ(atEnd(file), "false"); })),
              ::testing::IsSupersetOf({"gzgetc", "gzungetc"}));
  EXPECT_EQ(readBytes(file, 2), "ab");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "false"); }).empty());
  EXPECT_EQ(readBytes(file, 9), "c");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(atEnd(openGzipWith("", "r", "empty.gz")), "true");
}

TEST_F(AtEnd, GzipFilesForWritingAlwaysAre) {
  const OopType file = openFile("new.gz", "w", true);
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(atEnd(file), "true"); }).empty());
  write(file, "abc");
  EXPECT_EQ(atEnd(file), "true");
}

}  // namespace
}  // namespace kvtest
