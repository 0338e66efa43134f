// Places in a file that must not be lost: seeks that zlib would not survive, positions after a seek to
// the start, and the end that was met before a seek inside the buffer.
#include "losses/gzip_files.h"

#include <climits>
#include <cstdint>

namespace kvtest {
namespace {

class LostPlaces : public OpenFileTest {
 protected:
  // Makes an answer of nil and the calls on the host file that led to it.
  void expectRefused(OopType file, int64 offset, int64 kind) {
    const auto calls = fileCallsDuring([&] { EXPECT_EQ(seek(file, offset, kind), OOP_NIL); });
    EXPECT_THAT(calls, ::testing::IsEmpty()) << "seek to " << offset << ", kind " << kind;
  }
};

constexpr int64 NEGATIVES[] = {-1, -2, -100, INT64_C(-1) << 40, INT64_MIN + 1, INT64_MIN};

// ---- a gzip file and a negative position from its start ----

TEST_F(LostPlaces, AWrittenGzipFileGoesOnWhereItWas) {
  const OopType file = openFile("out.gz", "w", true);
  write(file, "0123456789");
  for (const int64 offset : NEGATIVES) {
    expectRefused(file, offset, 0);
    EXPECT_EQ(position(file), "10") << offset;
  }
  write(file, "abc");
  EXPECT_EQ(call("KvfFlush", {file}), file);
  call("KvfClose", {file});
  EXPECT_EQ(readGzip("out.gz"), "0123456789abc");
}

TEST_F(LostPlaces, AReadGzipFileGoesOnBehindWhatWasReadAhead) {
  const std::string text = patternBytes(10000);
  for (const int64 offset : NEGATIVES) {
    const OopType file = openGzipWith(text);
    EXPECT_EQ(readBytes(file, 3), text.substr(0, 3));
    expectRefused(file, offset, 0);
    EXPECT_EQ(position(file), "4096") << "what was read ahead is dropped, as by every seek";
    EXPECT_EQ(readBytes(file, 100), text.substr(4096, 100)) << offset;
    EXPECT_EQ(show(seek(file, 5)), "5") << offset;
    EXPECT_EQ(readBytes(file, 100), text.substr(5, 100)) << offset;
    call("KvfClose", {file});
  }
}

TEST_F(LostPlaces, ARefusedGzipSeekLeavesNoTrace) {
  const OopType file = openGzipWith("abc");
  expectRefused(file, -1, 0);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(LostPlaces, ARefusedGzipSeekClearsWhatWasTold) {
  const OopType file = openGzipWith("abc");
  fault("KciStoreBytesInstanceOf:1:raise=2101");
  EXPECT_EQ(read(file, str(""), 1, 3), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2101");
  expectRefused(file, -1, 0);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(LostPlaces, ARefusedGzipSeekForgetsTheEnd) {
  const OopType file = openGzipWith("abc");
  EXPECT_EQ(readBytes(file, 10), "abc");
  EXPECT_EQ(readBytes(file, 10), "");
  expectRefused(file, -1, 0);
  EXPECT_EQ(readBytes(file, 10), "");
  EXPECT_EQ(position(file), "3");
}

TEST_F(LostPlaces, ARelativeSeekThatWrapsIsNegativeToo) {
  const std::string text = patternBytes(10000);
  const OopType file = openGzipWith(text);
  EXPECT_EQ(readBytes(file, 3), text.substr(0, 3));
  expectRefused(file, INT64_MAX, 1);
  EXPECT_EQ(position(file), "4096");
  EXPECT_EQ(readBytes(file, 10), text.substr(4096, 10));
}

TEST_F(LostPlaces, ARelativeSeekBeforeTheStartIsNegativeToo) {
  const OopType file = openGzipWith("abcdef");
  EXPECT_EQ(readBytes(file, 3), "abc");
  expectRefused(file, -4, 1);
  const OopType fresh = openGzipWith("abcdef", "r", "fresh.gz");
  expectRefused(fresh, -1, 1);
  EXPECT_EQ(readBytes(fresh, 10), "abcdef") << "nothing was read ahead";
}

TEST_F(LostPlaces, EveryWritingModeRefusesNegativePositions) {
  for (const char* mode : {"w", "a", "wb9", "ab1"}) {
    const OopType file = openFile("out.gz", mode, true);
    write(file, "x");
    expectRefused(file, -1, 0);
    expectRefused(file, INT64_MIN, 0);
    call("KvfClose", {file});
  }
  EXPECT_EQ(readGzip("out.gz"), "xx") << "wb9 began anew, ab1 added to it";
}

TEST_F(LostPlaces, FromTheEndZlibIsAskedAsBefore) {
  const OopType file = openGzipWith("abc");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(seek(file, -1, 2), OOP_NIL); }),
              ::testing::ElementsAre("gzseek=-1"));
}

TEST_F(LostPlaces, APlainFileAsksTheSystemAsBefore) {
  const OopType file = openWith("abc");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(seek(file, -1, 0), OOP_NIL); }),
              ::testing::ElementsAre("lseek=-1"));
  EXPECT_EQ(errorCode(file), std::to_string(EINVAL));
}

// ---- a seek that reaches the start, then a direct read ----

TEST_F(LostPlaces, ADirectReadAfterASeekToTheStartIsCountedFromThere) {
  ByteType some[8];
  const OopType file = openWith("0123456789", "r+");
  EXPECT_EQ(show(seek(file, 5)), "5");
  EXPECT_EQ(show(seek(file, 0)), "0");
  EXPECT_EQ(KvFileRead(file, some, 4, 0), 4);
  EXPECT_EQ(position(file), "4");
}

TEST_F(LostPlaces, ADirectReadAfterASeekFromTheEndToTheStartIsCountedFromThere) {
  ByteType some[8];
  const OopType file = openWith("0123456789", "r+");
  EXPECT_EQ(show(seek(file, 5)), "5");
  EXPECT_EQ(show(seek(file, -10, 2)), "0");
  EXPECT_EQ(KvFileRead(file, some, 4, 0), 4);
  EXPECT_EQ(position(file), "4");
}

TEST_F(LostPlaces, AGzipFileCountsADirectReadFromTheStartToo) {
  ByteType some[8];
  const OopType file = openGzipWith("0123456789");
  EXPECT_EQ(show(seek(file, 5)), "5");
  EXPECT_EQ(show(seek(file, 0)), "0");
  EXPECT_EQ(KvFileRead(file, some, 4, 0), 4);
  EXPECT_EQ(position(file), "4");
}

// An index into the buffer survives its clearing, and counts below it.
TEST_F(LostPlaces, AnIndexFromBeforeTheSeekIsCountedIn) {
  ByteType some[8];
  const OopType file = openWith(patternBytes(100), "r+");
  readBytes(file, 7);
  EXPECT_EQ(show(seek(file, 0)), "0");
  EXPECT_EQ(KvFileRead(file, some, 4, 0), 4);
  EXPECT_EQ(position(file), "11");
}

// ---- back inside the buffer after the end ----

TEST_F(LostPlaces, TheEndStaysMetAfterASeekBackInsideTheBuffer) {
  const OopType file = openWith("abc");
  EXPECT_EQ(getC(file), "$97");
  EXPECT_EQ(show(read(file, str(""), 4, 1)), "0") << "two bytes are no item";
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(getC(file), "$98");
  const auto calls = fileCallsDuring([&] { EXPECT_EQ(show(seek(file, 1)), "1"); });
  EXPECT_THAT(calls, ::testing::IsEmpty()) << "the buffer serves it";
  EXPECT_EQ(atEnd(file), "true") << "with bytes left";
  EXPECT_EQ(position(file), "1");
  EXPECT_EQ(readBytes(file, 2), "bc");
}

TEST_F(LostPlaces, ASeekThatLeavesTheBufferForgetsTheEnd) {
  const OopType file = openWith("abc");
  EXPECT_EQ(getC(file), "$97");
  EXPECT_EQ(show(read(file, str(""), 4, 1)), "0");
  EXPECT_EQ(show(seek(file, 0)), "0") << "the first byte is no longer buffered";
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(readBytes(file, 10), "abc");
}

// ---- handles that are gone ----

TEST_F(LostPlaces, AClosedGzipFileIsCompressedWithoutZlibBeingAsked) {
  const OopType file = openGzipWith("abc");
  EXPECT_THAT(namesOf(callsDuring([&] { call("KvfIsCompressed", {file}); })),
              ::testing::Contains("gzdirect"));
  call("KvfClose", {file});
  EXPECT_THAT(namesOf(callsDuring([&] { EXPECT_EQ(call("KvfIsCompressed", {file}), OOP_TRUE); })),
              ::testing::Not(::testing::Contains("gzdirect")));
}

}  // namespace
}  // namespace kvtest
