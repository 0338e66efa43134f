// Looking for an end-of-line sequence in the buffer.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class EndOfLine : public RecordTest {
 protected:
  struct Scan {
    int found;
    std::string line;  // the bytes that are the caller's

    bool operator==(const Scan&) const = default;
    friend void PrintTo(const Scan& scan, std::ostream* out) {
      *out << scan.found << " \"" << scan.line << '"';
    }
  };

  // One scan, after which the caller's bytes are taken.
  static Scan scan(KvFileDataSType* record, std::string_view eol, bool eofIsError = false) {
    intptr_t next = -1;
    const int found =
        record->readToEol(asBytes(eol), static_cast<int>(eol.size()), &next, eofIsError, "");
    if (found < 0) return {found, ""};
    return {found, take(record, next - record->readBufIdx)};
  }

  // Makes the next host reads deliver at most `count` bytes each.
  static void shortReads(int64_t count) {
    fault("HostReadFile_:1+:short=" + std::to_string(count));
  }
};

TEST_F(EndOfLine, FindsOneByteAndAsksForAFullBuffer) {
  KvFileDataSType* record = openPlainWith("ab\ncd", "r");
  auto calls = callsDuring([&] { EXPECT_EQ(scan(record, "\n"), (Scan{1, "ab\n"})); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"}));
  calls = callsDuring([&] { EXPECT_EQ(scan(record, "\n"), (Scan{0, "cd"})); });
  EXPECT_EQ(calls.size(), 0U) << "bytes are buffered, so nothing is read";
  EXPECT_EQ(scan(record, "\n"), (Scan{0, ""}));
}

TEST_F(EndOfLine, LeavesTheBufferIndexToTheCaller) {
  KvFileDataSType* record = openPlainWith("ab\ncd", "r");
  intptr_t next = -1;
  EXPECT_EQ(record->readToEol(asBytes("\n"), 1, &next, TRUE, ""), 1);
  EXPECT_EQ(next, 3);
  EXPECT_EQ(record->readBufIdx, 0);
}

TEST_F(EndOfLine, AFailedComparisonSkipsTheWholeLength) {
  EXPECT_EQ(scan(openPlainWith("aab", "r"), "ab"), (Scan{0, "aab"}))
      << "so the sequence that starts inside the skipped bytes is missed";
}

TEST_F(EndOfLine, ASequenceBehindASkipIsFound) {
  EXPECT_EQ(scan(openPlainWith("aaab", "r"), "ab"), (Scan{1, "aaab"}));
}

TEST_F(EndOfLine, ACutSequenceStaysInTheBuffer) {
  KvFileDataSType* record = openPlainWith("xyabc!", "r");
  shortReads(4);
  EXPECT_EQ(scan(record, "abc"), (Scan{0, "xy"}));
  EXPECT_EQ(positionsOf(record), (Positions{2, 4, 2}));
  EXPECT_EQ(scan(record, "abc"), (Scan{1, "abc"}));
  EXPECT_EQ(scan(record, "abc"), (Scan{0, "!"}));
}

TEST_F(EndOfLine, ATrailingPieceOfASequenceIsNeverTheCallers) {
  KvFileDataSType* record = openPlainWith("xya", "r");
  EXPECT_EQ(scan(record, "ab", true), (Scan{0, "xy"}));
  EXPECT_EQ(scan(record, "ab", true), (Scan{0, ""}));
  EXPECT_EQ(record->bufBytesAvail(), 1);
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "bytes are there, so the end is no error";
}

TEST_F(EndOfLine, ReadsOnlyWhenLessThanTheSequenceIsBuffered) {
  KvFileDataSType* record = openPlainWith("0123456789", "r");
  shortReads(4);
  record->readIntoBuffer(1, "");
  auto calls = callsDuring([&] { EXPECT_EQ(scan(record, "wxyz"), (Scan{0, "0123"})); });
  EXPECT_EQ(calls.size(), 0U);
  record->readBufIdx = 1;
  calls = callsDuring([&] { EXPECT_EQ(scan(record, "wxyz"), (Scan{0, "1234567"})); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostReadFile_(4093)"});
}

TEST_F(EndOfLine, ASequenceOf128Bytes) {
  const std::string eol = countingBytes(128);
  const std::string text = std::string(300, '\xFF') + eol + "rest";
  EXPECT_EQ(scan(openPlainWith(text, "r"), eol), (Scan{1, text.substr(0, 428)}));
}

TEST_F(EndOfLine, ANulByteIsAByteLikeAnyOther) {
  using std::string_literals::operator""s;
  KvFileDataSType* record = openPlainWith("a\0b\0\0c"s, "r");
  EXPECT_EQ(scan(record, "\0"s), (Scan{1, "a\0"s}));
  EXPECT_EQ(scan(record, "\0\0"s), (Scan{1, "b\0\0"s}));
}

TEST_F(EndOfLine, TheEndIsAnErrorWhereTheCallerSaysSo) {
  KvFileDataSType* record = openPlainWith("", "r");
  EXPECT_EQ(scan(record, "\n", false), (Scan{0, ""}));
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(scan(record, "\n", true), (Scan{-1, ""}));
  EXPECT_EQ(failureOf(record), (Failure{0, 0, PAST_END}));
}

TEST_F(EndOfLine, TheTextOfTheEndIsStoredOnceInALifetime) {
  KvFileDataSType* record = openPlainWith("", "r");
  EXPECT_EQ(scan(record, "\n", true).found, -1);
  EXPECT_EQ(scan(record, "\n", true).found, -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "the read emptied the text and none is stored again";
}

TEST_F(EndOfLine, AFailedReadIsAFailure) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(scan(record, "\n").found, -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
}

TEST_F(EndOfLine, AnInterruptIsPassedUp) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(scan(record, "\n", true).found, -2);
  EXPECT_EQ(scan(record, "\n", true), (Scan{0, "abc"}));
}

TEST_F(EndOfLine, AnEarlierEndTurnsAnInterruptIntoAFailure) {
  KvFileDataSType* record = openPlainWith("", "r");
  record->readIntoBuffer(1, "");
  ASSERT_EQ(record->lastReadEof, TRUE);
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(scan(record, "\n", true).found, -1);
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(scan(record, "\n", false).found, -2);
}

TEST_F(EndOfLine, AGzipHandleForWritingHasNothingToScan) {
  KvFileDataSType* record = openGzip("packed", "wb");
  EXPECT_EQ(scan(record, "\n", true), (Scan{0, ""}))
      << "zlib sets no code, so the failed read passes for nothing new";
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(EndOfLine, BadGzipDataIsAFailure) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "rb");
  writeGzip("packed", "abc");
  record->reinitialize(nullptr, brokenGzip("packed", "rb"), TRUE, OOP_NIL, FALSE, "rb");
  EXPECT_EQ(scan(record, "\n", true).found, -1);
  EXPECT_EQ(failureOf(record), (Failure{EBADF, Z_ERRNO, hostText(EBADF)}));
}

TEST_F(EndOfLine, AWriteOnlyRecordScansWhatOneReadBrought) {
  writeFile("plain", "ab\ncd\n");
  KvFileDataSType* record = openPlain("plain", "r+");
  record->setFromMode("wb+");
  EXPECT_EQ(scan(record, "\n"), (Scan{1, "ab\n"}));
  EXPECT_EQ(scan(record, "\n"), (Scan{0, ""}))
      << "the buffer was not valid, and the host is at the end";
}

}  // namespace
}  // namespace kvtest
