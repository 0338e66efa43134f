// Moving and asking the position of plain files, and what flushing does to it.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

constexpr const char* append_refusal = "'Cannot seek on a file opened with append mode'";

class Seeking : public OpenFileTest {
 protected:
  std::string at(OopType file, int64 offset, int64 kind) { return show(seek(file, offset, kind)); }
};

TEST_F(Seeking, ThePositionIsCheckedBeforeTheKind) {
  const OopType file = openWith("0123456789");
  for (const OopType bad : {OOP_NIL, OOP_TRUE, str("1"), oopFromCharacter('1')}) {
    expectRaise(2061, {bad}, "KvfSeek", {file, bad, smallInt(3)});
    expectRaise(2061, {bad}, "KvfSeek", {file, smallInt(1), bad});
  }
  for (const OopType kind :
       {smallInt(3), smallInt(-1), smallInt(int64{1} << 32), kvhost::newInteger(INT64_MIN)}) {
    expectRaise(2061, {kind}, "KvfSeek", {file, smallInt(1), kind});
  }
  EXPECT_EQ(position(file), "0");
}

TEST_F(Seeking, TheStartAndTheEndAreOrigins) {
  const OopType file = openWith("0123456789");
  EXPECT_EQ(at(file, 4, 0), "4");
  EXPECT_EQ(readBytes(file, 2), "45");
  EXPECT_EQ(at(file, 0, 2), "10");
  EXPECT_EQ(at(file, -3, 2), "7");
  EXPECT_EQ(readBytes(file, 9), "789");
  EXPECT_EQ(at(file, 5, 2), "15");
  EXPECT_EQ(at(file, 0, 0), "0");
  EXPECT_EQ(readBytes(file, 1), "0");
}

TEST_F(Seeking, OnlyAReadMakesAPositionToCountFrom) {
  const OopType file = openWith("0123456789", "r+");
  EXPECT_EQ(at(file, 5, 1), "5");
  EXPECT_EQ(at(file, 2, 1), "2");
  EXPECT_EQ(readBytes(file, 3), "234");
  EXPECT_EQ(at(file, 5, 1), "10");
  seek(file, 0);
  readBytes(file, 3);
  EXPECT_EQ(at(file, -2, 1), "1");
  EXPECT_EQ(readBytes(file, 1), "1");
  EXPECT_EQ(show(write(file, "X")), "1");
  EXPECT_EQ(at(file, 1, 1), "1");
}

TEST_F(Seeking, AReadingFileMovesInsideItsBufferWithoutTheHost) {
  const std::string content = patternBytes(10000);
  const OopType file = openWith(content);
  EXPECT_EQ(at(file, 1000, 0), "1000");
  EXPECT_EQ(readBytes(file, 100), content.substr(1000, 100));
  for (const int64 target : {1000, 5095, 1001, 3000}) {
    EXPECT_TRUE(fileCallsDuring([&] {
                  EXPECT_EQ(at(file, target, 0), std::to_string(target));
                  EXPECT_EQ(position(file), std::to_string(target));
                }).empty())
        << target;
  }
  EXPECT_TRUE(fileCallsDuring([&] {
                EXPECT_EQ(at(file, -500, 1), "2500");
                EXPECT_EQ(readBytes(file, 10), content.substr(2500, 10));
              }).empty());
}

TEST_F(Seeking, TargetsOutsideTheBufferAskTheHost) {
  const std::string content = patternBytes(10000);
  for (const int64 target : {999, 5096, 0, 9999}) {
    const OopType file = openWith(content);
    seek(file, 1000);
    readBytes(file, 100);
    EXPECT_THAT(fileCallsDuring([&] { at(file, target, 0); }),
                ::testing::ElementsAre("lseek=" + std::to_string(target)));
    EXPECT_EQ(readBytes(file, 1), content.substr(static_cast<std::size_t>(target), 1));
  }
}

TEST_F(Seeking, ADrainedBufferServesNoSeek) {
  const OopType file = openWith("0123456789");
  readBytes(file, 10);
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(at(file, 3, 0), "3"); }),
              ::testing::ElementsAre("lseek=3"));
}

TEST_F(Seeking, AWritableFileAlwaysAsksTheHost) {
  const OopType file = openWith("0123456789", "r+");
  readBytes(file, 2);
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(at(file, 5, 0), "5"); }),
              ::testing::ElementsAre("lseek=5"));
}

TEST_F(Seeking, MovingInsideTheBufferKeepsAnEarlierError) {
  const OopType file = openWith(patternBytes(9000));
  fault("HostReadFile_:2:EIO");
  EXPECT_EQ(show(read(file, str(""), 3000, 2)), "nil");
  EXPECT_EQ(at(file, 3500, 0), "3500");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(at(file, 8000, 0), "8000");
  EXPECT_EQ(errorCode(file), "0");
}

TEST_F(Seeking, NegativePositionsAreTheHostsToRefuse) {
  const OopType file = openWith("0123456789");
  EXPECT_EQ(at(file, -1, 0), "nil");
  EXPECT_EQ(errorCode(file), "22");
  EXPECT_EQ(takeError(file), "'errno=22,EINVAL, Invalid argument'");
  EXPECT_EQ(at(file, -11, 2), "nil");
  EXPECT_EQ(at(file, INT64_MIN, 0), "nil");
  EXPECT_EQ(errorCode(file), "22");
  EXPECT_EQ(readBytes(file, 3), "012");
  EXPECT_EQ(at(file, INT64_MAX, 1), "nil");
  EXPECT_EQ(errorCode(file), "22");
}

TEST_F(Seeking, AFailureToTellTheEndIsNil) {
  const OopType file = openWith("0123456789");
  fault("lseek:2:EIO");
  EXPECT_EQ(at(file, 0, 2), "nil");
  EXPECT_EQ(errorCode(file), "5");
}

TEST_F(Seeking, AnAppendingFileOnlyGoesToItsEnd) {
  const OopType file = openWith("0123456789", "a");
  EXPECT_EQ(at(file, 0, 2), "10");
  EXPECT_EQ(errorCode(file), "0");
  for (const auto& to :
       std::vector<std::pair<int64, int64>>{{0, 0}, {10, 0}, {0, 1}, {3, 1}, {-1, 2}, {1, 2}}) {
    EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(at(file, to.first, to.second), "nil"); }).empty());
    EXPECT_EQ(errorCode(file), "9");
  }
}

TEST_F(Seeking, EveryRefusalOfAnAppendingFileHasItsText) {
  for (const auto& [offset, kind] :
       std::vector<std::pair<int64, int64>>{{0, 0}, {10, 0}, {0, 1}, {3, 1}, {-1, 2}, {1, 2}}) {
    const OopType file = openWith("0123456789", "a");
    EXPECT_EQ(at(file, offset, kind), "nil");
    EXPECT_EQ(takeError(file), append_refusal);
  }
}

TEST_F(Seeking, WhichAppendingModesRefuse) {
  for (const char* mode : {"a", "ab", "ab+"})
    EXPECT_EQ(at(openWith("abc", mode), 1, 0), "nil") << mode;
  for (const char* mode : {"a+", "a+b"}) EXPECT_EQ(at(openWith("abc", mode), 1, 0), "1") << mode;
}

class Positions : public OpenFileTest {};

TEST_F(Positions, AfterAReadThePositionIsKnownWithoutTheHost) {
  const OopType file = openWith(patternBytes(10000));
  readBytes(file, 5);
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(position(file), "5"); }).empty());
}

TEST_F(Positions, OtherwiseTheHostIsAsked) {
  const OopType file = openWith("0123456789", "r+");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(position(file), "0"); }),
              ::testing::ElementsAre("lseek=0"));
  write(file, "abc");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(position(file), "3"); }),
              ::testing::ElementsAre("lseek=3"));
}

TEST_F(Positions, AFailureIsNilWithItsCode) {
  const OopType file = openWith("abc");
  fault("lseek:1:EBADF");
  EXPECT_EQ(position(file), "nil");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(takeError(file), "'errno=9,EBADF, Bad file descriptor'");
}

TEST_F(Positions, OnlyMinusOneIsAFailure) {
  const OopType file = openWith("abc");
  fault("lseek:1:result=-5");
  EXPECT_EQ(position(file), "-5");
}

TEST_F(Positions, AskingTheHostForgetsAnErrorAndAskingTheBufferDoesNot) {
  const OopType file = openWith(patternBytes(9000));
  fault("HostReadFile_:2:EIO");
  EXPECT_EQ(show(read(file, str(""), 3000, 2)), "nil");
  EXPECT_EQ(position(file), "3000");
  EXPECT_EQ(errorCode(file), "5");
  clearFaults();
  fault("HostReadFile_:1:EIO");
  const OopType fresh = openWith("abc", "r", "fresh");
  EXPECT_EQ(readBytes(fresh, 1), "nil");
  EXPECT_EQ(errorCode(fresh), "5");
  EXPECT_EQ(position(fresh), "0");
  EXPECT_EQ(errorCode(fresh), "0");
  EXPECT_EQ(takeError(fresh), "nil");
}

class Flushing : public OpenFileTest {};

TEST_F(Flushing, FlushAndSyncMakeTheirCalls) {
  const OopType file = openWith("abc", "r+");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(call("KvfFlush", {file}), file); }),
              ::testing::ElementsAre("fflush=0"));
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(call("KvfSync", {file}), file); }),
              ::testing::ElementsAre("fflush=0", "fsync=0"));
}

TEST_F(Flushing, ReadAheadIsLost) {
  const std::string content = patternBytes(10000);
  for (const char* action : {"KvfFlush", "KvfSync"}) {
    const OopType file = openWith(content);
    readBytes(file, 5);
    EXPECT_EQ(call(action, {file}), file);
    EXPECT_EQ(position(file), "4096");
    EXPECT_EQ(readBytes(file, 3), content.substr(4096, 3));
  }
}

TEST_F(Flushing, AFoundEndIsForgotten) {
  const OopType file = openWith("abc");
  readBytes(file, 9);
  std::ofstream("data.bin", std::ios::app) << "more";
  EXPECT_EQ(atEnd(file), "true");
  call("KvfFlush", {file});
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(readBytes(file, 9), "more");
}

TEST_F(Flushing, AFailedFlushIsNilAndNothingIsSynchronised) {
  const OopType file = openWith("abc", "r+");
  fault("fflush:1:ENOSPC");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(call("KvfSync", {file}), OOP_NIL); }),
              ::testing::ElementsAre("fflush=-1"));
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_EQ(takeError(file), "'errno=28,ENOSPC, No space left on device'");
}

TEST_F(Flushing, AFailedSyncIsNil) {
  const OopType file = openWith("abc", "r+");
  fault("fsync:1:EIO");
  EXPECT_EQ(call("KvfSync", {file}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(call("KvfFlush", {file}), file);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

}  // namespace
}  // namespace kvtest
