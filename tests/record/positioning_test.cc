// Moving and telling positions: of the host, and of the logical position that Smalltalk sees.
#include "framework/wrapping.h"
#include "support/record_fixture.h"
#include "support/standard_streams.h"

#include <limits>

namespace kvtest {

using namespace kvf;
namespace {

constexpr int64 LARGEST = std::numeric_limits<int64>::max();
constexpr int64 SMALLEST = std::numeric_limits<int64>::min();

class HostPosition : public RecordTest {};
class Seek : public RecordTest {};

TEST_F(HostPosition, SeekMovesItAndEmptiesTheBuffer) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->lastReadEof = TRUE;
  leaveFailure(record, 5, -3, "old");
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfseek(4, SEEK_SET), 4); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(4, SEEK_SET)"});
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastOpWasRead, 0);
  EXPECT_EQ(record->readBufSize, 0);
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->nextOsReadPos, 6) << "left to the caller";
  EXPECT_EQ(record->kvfseek(-1, SEEK_END), 5);
  EXPECT_EQ(record->kvfseek(10, SEEK_END), 16);
}

TEST_F(HostPosition, AnImpossibleSeekIsAFailure) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(record->kvfseek(-1, SEEK_SET), -1);
  EXPECT_EQ(failureOf(record), (Failure{22, 0, "errno=22,EINVAL, Invalid argument"}));
  EXPECT_EQ(record->kvfseek(SMALLEST, SEEK_END), -1);
  EXPECT_EQ(failureOf(record), (Failure{22, 0, ""}));
}

struct AppendCase {
  int64 offset;
  int whence;
  bool allowed;
};

TEST_F(HostPosition, AppendModeAllowsOnlyTheEndItself) {
  writeFile("plain", "abcdef");
  for (const char* mode : {"a", "ab", "ab+"}) {
    const AppendCase cases[] = {{0, SEEK_END, true},  {1, SEEK_END, false}, {-1, SEEK_END, false},
                                {0, SEEK_SET, false}, {6, SEEK_SET, false}, {0, SEEK_CUR, false}};
    for (const AppendCase& each : cases) {
      KvFileDataSType* record = openPlain("plain", mode);
      int64 position = 0;
      const auto calls = callsDuring([&] { position = record->kvfseek(each.offset, each.whence); });
      SCOPED_TRACE(std::string(mode) + " " + std::to_string(each.offset));
      EXPECT_EQ(position, each.allowed ? 6 : -1);
      EXPECT_EQ(failureOf(record), each.allowed ? NO_FAILURE : (Failure{9, 0, APPEND_REFUSAL}));
      EXPECT_EQ(fileTraffic(calls).size(), each.allowed ? 1U : 0U);
    }
  }
}

TEST_F(HostPosition, AppendPlusModesMayGoAnywhere) {
  writeFile("plain", "abcdef");
  for (const char* mode : {"a+", "a+b"}) {
    KvFileDataSType* record = openPlain("plain", mode);
    EXPECT_EQ(record->kvfseek(2, SEEK_SET), 2) << mode;
    EXPECT_EQ(failureOf(record), NO_FAILURE);
  }
}

TEST_F(HostPosition, ARefusalStillClearsErrorAndBuffer) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "a");
  leaveFailure(record, 5, -3, "old");
  record->lastOpWasRead = 1;
  EXPECT_EQ(record->kvfseek(2, SEEK_SET), -1);
  EXPECT_EQ(failureOf(record), (Failure{9, 0, ""}));
  EXPECT_EQ(record->lastOpWasRead, 0);
}

TEST_F(HostPosition, StandardOutputRefusesSeeks) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  EXPECT_EQ(record->kvfseek(0, SEEK_SET), -1);
  EXPECT_EQ(failureOf(record), (Failure{9, 0, APPEND_REFUSAL}));
}

TEST_F(HostPosition, TellAsksTheHostAndKeepsTheBuffer) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  leaveFailure(record, 5, -3, "old");
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvftell(), 6); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(0, SEEK_CUR)"});
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(positionsOf(record), (Positions{2, 6, 4}));
  fault("lseek:1:ESPIPE");
  EXPECT_EQ(record->kvftell(), -1);
  EXPECT_EQ(failureOf(record), (Failure{ESPIPE, 0, ""})) << "the one text was used before";
}

TEST_F(HostPosition, GzipSeeksAndTellsThroughZlib) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  auto calls = callsDuring([&] { EXPECT_EQ(record->kvfseek(4, SEEK_SET), 4); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzseek(4, SEEK_SET)"});
  calls = callsDuring([&] { EXPECT_EQ(record->kvftell(), 4); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gztell"});
  EXPECT_EQ(record->kvfseek(1, SEEK_SET), 1) << "zlib goes back by starting anew";
  EXPECT_EQ(readThroughBuffer(record, 2), "bc");
  EXPECT_EQ(record->kvfseek(0, SEEK_END), -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "zlib sets no code for it";
}

TEST_F(HostPosition, AGzipHandleThatTellsNoPositionLeavesItsErrorIfItHasOne) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* sound = openGzip("packed", "rb");
  fault("gztell:1:EIO");
  auto calls = callsDuring([&] { EXPECT_EQ(sound->kvftell(), -1); });
  EXPECT_EQ(namesOf(calls), (Traffic{"gztell", "gzerror"}));
  EXPECT_EQ(failureOf(sound), NO_FAILURE) << "its handle has none";
  EXPECT_EQ(sound->kvftell(), 0);
  clearFaults();

  KvFileDataSType* broken = adopt(nullptr, brokenGzip("packed", "rb"), false, "rb");
  ByteType byte = 0;
  EXPECT_EQ(broken->kvfread(&byte, 1), -1) << "leaves the handle with a host error";
  fault("gztell:1:EBADF");
  EXPECT_EQ(broken->kvftell(), -1);
  EXPECT_EQ(failureOf(broken), (Failure{EBADF, Z_ERRNO, ""})) << "the one text was used before";
}

TEST_F(HostPosition, AZlibFailureOfASeekIsTaken) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = adopt(nullptr, brokenGzip("packed", "rb"), false, "rb");
  ByteType byte = 0;
  EXPECT_EQ(record->kvfread(&byte, 1), -1) << "leaves the handle with a host error";
  errno = EBADF;
  EXPECT_EQ(record->kvfseek(3, SEEK_SET), -1);
  EXPECT_EQ(failureOf(record), (Failure{EBADF, Z_ERRNO, ""}));
}

TEST_F(HostPosition, AGzipAppendFileSeeksAsZlibAllows) {
  KvFileDataSType* record = openGzip("packed", "ab");
  ASSERT_EQ(record->isAppend, TRUE);
  EXPECT_EQ(record->kvfseek(3, SEEK_SET), 3);
  EXPECT_EQ(write(record, "x"), 1);
  record->kvfClose();
  EXPECT_EQ(readGzip("packed"), std::string("\0\0\0x", 4));
}

TEST_F(Seek, WithinTheBufferOfAReadOnlyFileMakesNoCall) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(readThroughBuffer(record, 100), countingBytes(100));
  leaveFailure(record, 5, 0, "kept");
  for (const int64 target : {int64{0}, int64{4095}, int64{100}, int64{101}, int64{99}}) {
    const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, target, 0), target); });
    EXPECT_EQ(calls.size(), 0U);
    EXPECT_EQ(positionsOf(record), (Positions{target, 4096, 4096 - target}));
  }
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"})) << "and clears nothing";
  EXPECT_EQ(take(record, 3), countingBytes(102).substr(99));
}

TEST_F(Seek, ToTheEndOfTheBufferAsksTheHost) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(readThroughBuffer(record, 1), countingBytes(1));
  leaveFailure(record, 5, 0, "old");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 4096, 0), 4096); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(4096, SEEK_SET)"});
  EXPECT_EQ(record->nextOsReadPos, 4096);
  EXPECT_EQ(record->lastOpWasRead, 0);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Seek, BeforeTheStartOfTheBufferAsksTheHost) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(doSeek(record, 1000, 0), 1000);
  EXPECT_EQ(readThroughBuffer(record, 1).size(), 1U);
  auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 1000, 0), 1000); });
  EXPECT_EQ(calls.size(), 0U);
  calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 999, 0), 999); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(999, SEEK_SET)"});
  EXPECT_EQ(record->nextOsReadPos, 999);
}

TEST_F(Seek, WithAnEmptiedBufferAsksTheHost) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 6), "abcdef");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 2, 0), 2); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(2, SEEK_SET)"});
}

TEST_F(Seek, InAWritableFileAlwaysAsksTheHost) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 4, 0), 4); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(4, SEEK_SET)"});
  EXPECT_EQ(positionsOf(record), (Positions{4, 4, 0}));
}

TEST_F(Seek, WithinTheBufferOfAGzipFileMakesNoCall) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, 5, 0), 5); });
  EXPECT_EQ(calls.size(), 0U);
  EXPECT_EQ(take(record, 1), "f");
  EXPECT_EQ(doSeek(record, 1, 0), 1);
  EXPECT_EQ(readThroughBuffer(record, 1), "b");
}

TEST_F(Seek, FromTheCurrentPositionCountsOnlyAfterARead) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r+");
  EXPECT_EQ(doSeek(record, 5, 1), 5) << "right after opening it is absolute";
  EXPECT_EQ(doSeek(record, 5, 1), 5) << "and after a seek";
  EXPECT_EQ(readThroughBuffer(record, 3), countingBytes(100).substr(5, 3));
  EXPECT_EQ(doSeek(record, 5, 1), 13);
  EXPECT_EQ(write(record, "x"), 1);
  EXPECT_EQ(doSeek(record, 5, 1), 5) << "and after a write";
}

TEST_F(Seek, FromTheCurrentPositionWithinTheBuffer) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
  EXPECT_EQ(readThroughBuffer(record, 3), countingBytes(3));
  const auto calls = callsDuring([&] {
    EXPECT_EQ(doSeek(record, 5, 1), 8);
    EXPECT_EQ(doSeek(record, -8, 1), 0);
  });
  EXPECT_EQ(calls.size(), 0U);
  EXPECT_EQ(positionsOf(record), (Positions{0, 100, 100}));
}

TEST_F(Seek, ARelativeSeekThatOverflowsWrapsAndFails) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, LARGEST, 1), -1); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"lseek(-9223372036854775807, SEEK_SET)"});
  EXPECT_EQ(failureOf(record), hostFailure(EINVAL));
}

TEST_F(Seek, ExtremePositionsFailAtTheHost) {
  for (const int64 position : {SMALLEST, int64{-1}}) {
    KvFileDataSType* record = openPlainWith("abcdef", "r");
    EXPECT_EQ(readThroughBuffer(record, 2), "ab");
    EXPECT_EQ(doSeek(record, position, 0), -1);
    EXPECT_EQ(failureOf(record), hostFailure(EINVAL));
    EXPECT_EQ(positionsOf(record), (Positions{6, 6, 0})) << "the buffer is gone all the same";
  }
}

TEST_F(Seek, FromTheEndTakesThePositionFromTheHost) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  leaveFailure(record, 5, 0, "old");
  const auto calls = callsDuring([&] { EXPECT_EQ(doSeek(record, -2, 2), 4); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(-2, SEEK_END)", "lseek(0, SEEK_CUR)"}));
  EXPECT_EQ(record->nextOsReadPos, 4);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(readThroughBuffer(record, 2), "ef");
}

TEST_F(Seek, FromTheEndFailsWithItsSecondCallToo) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  fault("lseek:2:EIO");
  EXPECT_EQ(doSeek(record, 0, 2), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->nextOsReadPos, 0);
}

TEST_F(Seek, FromTheEndOfAnAppendFileIsAllowedOnlyToTheEnd) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "a");
  EXPECT_EQ(doSeek(record, 0, 2), 6);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(doSeek(record, -1, 2), -1);
  EXPECT_EQ(failureOf(record), (Failure{9, 0, APPEND_REFUSAL}));
  EXPECT_EQ(doSeek(record, 3, 0), -1);
  EXPECT_EQ(failureOf(record), (Failure{9, 0, ""}));
  EXPECT_EQ(doSeek(record, 3, 1), -1);
  EXPECT_EQ(failureOf(record), (Failure{9, 0, ""}));
}

TEST_F(Seek, FromTheEndOfAGzipFileFailsWithoutATrace) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  EXPECT_EQ(doSeek(record, 0, 2), -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(positionsOf(record), (Positions{6, 6, 0})) << "read-ahead is lost";
}

TEST_F(Seek, AfterAFailureTheBufferIsGone) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  fault("lseek:1:EIO");
  EXPECT_EQ(doSeek(record, 3, 0), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->lastOpWasRead, 0);
  EXPECT_EQ(record->nextOsReadPos, 6) << "not the position that was not reached";
}

TEST_F(Seek, WrappingArithmetic) {
  EXPECT_EQ(wrappingAdd(LARGEST, 1), SMALLEST);
  EXPECT_EQ(wrappingAdd(SMALLEST, -1), LARGEST);
  EXPECT_EQ(wrappingAdd(-5, 7), 2);
  EXPECT_EQ(wrappingSubtract(SMALLEST, 1), LARGEST);
  EXPECT_EQ(wrappingSubtract(3, 5), -2);
  EXPECT_EQ(wrappingMultiply(-1, -5), 5);
  EXPECT_EQ(wrappingMultiply(SMALLEST, -1), SMALLEST);
}

}  // namespace
}  // namespace kvtest
