// Flushing, syncing and closing, indicators, and the descriptor.
#include "support/record_fixture.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class Flush : public RecordTest {};
class Close : public RecordTest {};

TEST_F(Flush, OfAPlainFileFlushesItsStream) {
  KvFileDataSType* record = openPlain("plain", "w");
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfflush(FALSE), 0); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"fflush"});
}

TEST_F(Flush, WithSyncWaitsForTheDisk) {
  KvFileDataSType* record = openPlain("plain", "w");
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfflush(TRUE), 0); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"fflush", "fsync"}));
}

TEST_F(Flush, AFailureOfTheStreamSkipsTheSync) {
  KvFileDataSType* record = openPlain("plain", "w");
  fault("fflush:1:ENOSPC");
  int status = 0;
  const auto calls = callsDuring([&] { status = record->kvfflush(TRUE); });
  EXPECT_EQ(status, EOF);
  EXPECT_EQ(fileTraffic(calls), Traffic{"fflush"});
  EXPECT_EQ(failureOf(record), hostFailure(ENOSPC));
}

TEST_F(Flush, AFailureOfTheSyncIsAFailure) {
  KvFileDataSType* record = openPlain("plain", "w");
  fault("fsync:1:EIO");
  EXPECT_EQ(record->kvfflush(TRUE), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
}

TEST_F(Flush, KeepsErrorAndBuffer) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  leaveFailure(record, 5, -3, "kept");
  EXPECT_EQ(record->kvfflush(FALSE), 0);
  EXPECT_EQ(failureOf(record), (Failure{5, -3, "kept"}));
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(record->bufBytesAvail(), 4);
}

TEST_F(Flush, EndsTheGzipMemberAndSyncHasNoEffect) {
  KvFileDataSType* record = openGzip("packed", "wb");
  EXPECT_EQ(write(record, "abc"), 3);
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfflush(TRUE), 0); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzflush(Z_FINISH)"});
  EXPECT_EQ(readGzip("packed"), "abc") << "a complete member before any close";
  const std::string first = readFile("packed");

  EXPECT_EQ(write(record, "def"), 3);
  EXPECT_EQ(record->kvfflush(FALSE), 0);
  const std::string both = readFile("packed");
  EXPECT_EQ(both.substr(0, first.size()), first);
  EXPECT_EQ(both.substr(first.size(), 2), "\x1F\x8B") << "a second member follows";
  EXPECT_EQ(readGzip("packed"), "abcdef");
}

TEST_F(Flush, AFailureOfZlibIsTaken) {
  KvFileDataSType* record = adopt(nullptr, brokenGzip("packed", "wb"), false, "wb");
  EXPECT_EQ(write(record, "abc"), 3) << "zlib only buffers it";
  EXPECT_EQ(record->kvfflush(FALSE), Z_ERRNO);
  EXPECT_EQ(failureOf(record), (Failure{EBADF, Z_ERRNO, hostText(EBADF)}));
}

TEST_F(Flush, OfAGzipHandleForReadingFailsWithoutATrace) {
  writeGzip("packed", "abc");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(record->kvfflush(FALSE), Z_STREAM_ERROR);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Close, OfAPlainFileClosesTheStreamAndKeepsTheRest) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  leaveFailure(record, 5, -3, "kept");
  const int descriptors = openDescriptorCount();
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfClose(), 0); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"fclose"});
  EXPECT_EQ(openDescriptorCount(), descriptors - 1);
  EXPECT_EQ(record->fPtr, nullptr);
  EXPECT_EQ(failureOf(record), (Failure{5, -3, "kept"}));
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(record->bufBytesAvail(), 4);
  EXPECT_EQ(record->readable, TRUE);
}

TEST_F(Close, Twice) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  EXPECT_EQ(record->kvfClose(), 0);
  EXPECT_EQ(callsDuring([&] { EXPECT_EQ(record->kvfClose(), 0); }).size(), 0U);
  writeGzip("packed", "abc");
  KvFileDataSType* packed = openGzip("packed", "rb");
  EXPECT_EQ(packed->kvfClose(), 0);
  EXPECT_EQ(callsDuring([&] { EXPECT_EQ(packed->kvfClose(), 0); }).size(), 0U);
}

TEST_F(Close, AFailedCloseStillDropsTheStream) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("fclose:1:EIO");
  EXPECT_EQ(record->kvfClose(), EOF);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->fPtr, nullptr);
  EXPECT_EQ(record->isOpen(), FALSE);
}

TEST_F(Close, OfGzipKeepsItsStatusAsTheCode) {
  KvFileDataSType* record = openGzip("packed", "wb");
  record->zErrCode = -3;
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfClose(), 0); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzclose"});
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->zf, nullptr);
  EXPECT_EQ(record->compressed, TRUE);
}

TEST_F(Close, AFailedGzipCloseAnswersZeroAndDropsTheHandle) {
  KvFileDataSType* record = adopt(nullptr, brokenGzip("packed", "wb"), false, "wb");
  EXPECT_EQ(write(record, "abc"), 3);
  EXPECT_EQ(record->kvfClose(), 0);
  EXPECT_EQ(failureOf(record), (Failure{0, Z_ERRNO, ""})) << "only the code, no text";
  EXPECT_EQ(record->zf, nullptr);
}

// Closes a record on a standard stream; the status, and the traffic of the close.
struct ClosedStandard {
  int status = 0;
  std::string written;
  Traffic traffic;
};

TEST_F(Close, StandardOutputWithinALineGetsANewline) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  ClosedStandard first, second;
  first.written = writtenTo(STDOUT_FILENO, [&] {
    write(record, "abc");
    first.traffic = fileTraffic(callsDuring([&] { first.status = record->kvfClose(); }));
  });
  EXPECT_EQ(first.written, "abc\n");
  EXPECT_EQ(first.status, 1) << "the count of the write";
  EXPECT_EQ(first.traffic, (Traffic{"fwrite", "fflush"}));
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  EXPECT_EQ(record->fPtr, nullptr);
  second.written = writtenTo(STDOUT_FILENO, [&] { second.status = record->kvfClose(); });
  EXPECT_EQ(second.written, "");
  EXPECT_EQ(second.status, 0);
}

TEST_F(Close, StandardOutputAtTheEndOfALineGetsNone) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  ClosedStandard closed;
  closed.written = writtenTo(STDOUT_FILENO, [&] {
    write(record, "abc\n");
    closed.traffic = fileTraffic(callsDuring([&] { closed.status = record->kvfClose(); }));
  });
  EXPECT_EQ(closed.written, "abc\n");
  EXPECT_EQ(closed.status, 0);
  EXPECT_EQ(closed.traffic, Traffic{});
  EXPECT_EQ(record->fPtr, nullptr);
}

TEST_F(Close, AFreshStandardOutputGetsNone) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  int status = -1;
  EXPECT_EQ(writtenTo(STDOUT_FILENO, [&] { status = record->kvfClose(); }), "");
  EXPECT_EQ(status, 0);
}

TEST_F(Close, AFailedNewlineCountsAsWritten) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  record->lastPutcWasEoln = FALSE;
  fault("fwrite:1:EIO");
  EXPECT_EQ(record->kvfClose(), 0);
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->fPtr, nullptr);
}

TEST_F(Close, TheOtherStandardFilesAreDroppedOnly) {
  for (FILE* stream : {stdin, stderr}) {
    KvFileDataSType* record = adopt(stream, nullptr, true, stream == stdin ? "r" : "a");
    record->lastPutcWasEoln = FALSE;
    const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfClose(), 0); });
    EXPECT_EQ(fileTraffic(calls), Traffic{});
    EXPECT_EQ(record->fPtr, nullptr);
    EXPECT_EQ(record->lastPutcWasEoln, FALSE);
    EXPECT_GE(fileno(stream), 0) << "still open";
  }
}

TEST_F(Close, APlainFileThatEndsWithinALineGetsNoNewline) {
  KvFileDataSType* record = openPlain("plain", "w");
  EXPECT_EQ(write(record, "abc"), 3);
  EXPECT_EQ(record->kvfClose(), 0);
  EXPECT_EQ(readFile("plain"), "abc");
}

TEST_F(Close, ClearingIndicatorsLeavesTheRecordsCodes) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  leaveFailure(record, 5, -3, "kept");
  EXPECT_EQ(std::fputc('x', record->fPtr), EOF);
  ASSERT_NE(std::ferror(record->fPtr), 0);
  EXPECT_EQ(namesOf(callsDuring([&] { record->kvclearerr(); })), Traffic{"clearerr_unlocked"});
  EXPECT_EQ(std::ferror(record->fPtr), 0);
  EXPECT_EQ(failureOf(record), (Failure{5, -3, "kept"}));

  writeGzip("packed", "abc");
  KvFileDataSType* packed = openGzip("packed", "rb");
  EXPECT_EQ(namesOf(callsDuring([&] { packed->kvclearerr(); })),
            (Traffic{"gzerror", "gzclearerr"}));
}

TEST_F(Close, TheDescriptorOfWhatHasOne) {
  KvFileDataSType* plain = openPlainWith("abc", "r");
  EXPECT_EQ(plain->kvfFileDesc(), fileno(plain->fPtr));
  EXPECT_EQ(adopt(stdout, nullptr, true, "a")->kvfFileDesc(), STDOUT_FILENO);
  plain->kvfClose();
  EXPECT_EQ(plain->kvfFileDesc(), -1);
  KvFileDataSType* packed = openGzip("packed", "wb");
  EXPECT_EQ(packed->kvfFileDesc(), -1);
}

}  // namespace
}  // namespace kvtest
