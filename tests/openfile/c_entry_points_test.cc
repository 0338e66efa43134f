// Reading and writing open files from C: sessions, counts, positions, error texts, the line reader.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class CEntryPoints : public OpenFileTest {
 protected:
  static BoolType writeTo(OopType file, std::string_view text, int sessionId = 0) {
    return KvFileWrite(file, reinterpret_cast<const ByteType*>(text.data()),
                       static_cast<intptr_t>(text.size()), sessionId);
  }

  // The bytes read, or the failing result as text.
  static std::string readFrom(OopType file, std::size_t count, int sessionId = 0) {
    std::string into(count, '#');
    const intptr_t n = KvFileRead(file, reinterpret_cast<ByteType*>(into.data()),
                                  static_cast<intptr_t>(count), sessionId);
    if (n < 0) return "<" + std::to_string(n) + ">";
    return into.substr(0, static_cast<std::size_t>(n));
  }

  static std::string fetchText(OopType file, std::size_t room = 256, int sessionId = 0) {
    std::string buffer(256, '#');
    KvFileFetchErrorString(file, buffer.data(), room, sessionId);
    for (std::size_t i = std::max<std::size_t>(room, 1); i < buffer.size(); ++i)
      EXPECT_EQ(buffer[i], '#') << "written behind its end at " << i;
    return buffer.c_str();
  }

  // Calls each of the three that look a file up; each must raise `number` with `argument`, or where
  // `number` is 0 answer its failure.
  void expectLookUp(int number, OopType argument, OopType file, int sessionId, bool fetchRaises) {
    expectOutcome(number, argument, [&] { EXPECT_EQ(writeTo(file, "x", sessionId), FALSE); });
    expectOutcome(number, argument, [&] {
      ByteType byte = 0;
      EXPECT_EQ(KvFileRead(file, &byte, 1, sessionId), -1);
    });
    expectOutcome(fetchRaises ? number : 0, argument, [&] {
      char text[8] = "#######";
      KvFileFetchErrorString(file, text, sizeof text, sessionId);
      EXPECT_STREQ(text, "");
    });
  }

 private:
  template <typename Body>
  void expectOutcome(int number, OopType argument, Body body) {
    const kvhost::Outcome outcome = kvhost::protect(
        [](void* context) {
          (*static_cast<Body*>(context))();
          return OOP_NIL;
        },
        &body);
    ASSERT_EQ(outcome.status == kvhost::CallStatus::Raised, number != 0);
    if (number == 0) return;
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(outcome.error.fatal != 0, number == 4100);
    ASSERT_EQ(outcome.error.argCount, 1);
    EXPECT_EQ(outcome.error.args[0], argument);
  }
};

TEST_F(CEntryPoints, NilFailsWithoutARaiseEvenWithoutASession) {
  expectLookUp(0, OOP_NIL, OOP_NIL, 0, true);
  kvhost::sessionSelect(0);
  expectLookUp(0, OOP_NIL, OOP_NIL, 0, true);
  expectLookUp(0, OOP_NIL, OOP_NIL, 987654, true);
}

TEST_F(CEntryPoints, WithoutASessionZeroIsRaised) {
  const OopType file = openWith("abc");
  kvhost::sessionSelect(0);
  expectLookUp(4100, smallInt(0), file, 0, true);
  expectLookUp(4100, smallInt(0), file, -7, true);
}

TEST_F(CEntryPoints, WithoutAMapTheSessionIsRaised) {
  const OopType file = openWith("abc");
  expectLookUp(4100, smallInt(987654), file, 987654, true);
}

TEST_F(CEntryPoints, AnUnknownFileIsRaisedButHasNoText) {
  const OopType file = kvhost::newKvFile();
  expectLookUp(2364, file, file, 0, false);
  expectLookUp(2364, file, file, session_, false);
}

TEST_F(CEntryPoints, AClosedFileFails) {
  const OopType file = openWith("abc", "r+");
  call("KvfClose", {file});
  EXPECT_TRUE(fileCallsDuring([&] { expectLookUp(0, OOP_NIL, file, 0, true); }).empty());
  EXPECT_EQ(KvFileWrite(file, nullptr, 0, 0), FALSE);
  EXPECT_EQ(errorCode(file), "0");
}

TEST_F(CEntryPoints, ASessionIsNamedOrTheCurrentOne) {
  const OopType file = openWith("abc", "r+");
  const int other = kvhost::sessionBegin();
  KvfStartup(other);
  EXPECT_EQ(readFrom(file, 2, session_), "ab");
  expectLookUp(2364, file, file, 0, false);
  kvhost::sessionSelect(0);
  EXPECT_EQ(readFrom(file, 2, session_), "c");
  kvhost::sessionSelect(session_);
  EXPECT_EQ(writeTo(file, "d", -1), TRUE);
  EXPECT_EQ(readFile("data.bin"), "abcd");
  KvfShutdown(other);
  kvhost::sessionEnd(other);
  kvhost::sessionSelect(session_);
}

TEST_F(CEntryPoints, WrittenBytesReachTheFileAtOnce) {
  const OopType file = openFile("out", "w");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(writeTo(file, "abcdef"), TRUE); }),
              ::testing::ElementsAre("HostWriteFile_=6"));
  EXPECT_EQ(readFile("out"), "abcdef");
  EXPECT_EQ(position(file), "6");
}

TEST_F(CEntryPoints, LargeCountsAreOneWrite) {
  const std::string content = patternBytes(100000);
  const OopType file = openFile("out", "w");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(writeTo(file, content), TRUE); }),
              ::testing::ElementsAre("HostWriteFile_=100000"));
  EXPECT_EQ(readFile("out"), content);
}

TEST_F(CEntryPoints, AShortWriteIsFollowedByTheSameBytesAgain) {
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:1+:short=3");
  const auto calls =
      callsNamed("HostWriteFile_", [&] { EXPECT_EQ(writeTo(file, "abcdefgh"), TRUE); });
  ASSERT_EQ(calls.size(), 3U);
  for (const seam::Call& one : calls) {
    EXPECT_EQ(one.arguments, calls[0].arguments);
    EXPECT_EQ(lastArgumentOf(one), "8");
    EXPECT_EQ(one.result, "3");
  }
  EXPECT_EQ(readFile("out"), "abcabcabc");
}

TEST_F(CEntryPoints, WritingNothingIsTrue) {
  const OopType file = openFile("out", "w");
  const ByteType byte = 'x';
  for (const intptr_t count : {intptr_t{0}, intptr_t{-1}, INTPTR_MIN}) {
    EXPECT_TRUE(
        fileCallsDuring([&] { EXPECT_EQ(KvFileWrite(file, &byte, count, 0), TRUE); }).empty());
  }
  EXPECT_EQ(KvFileWrite(file, nullptr, 0, 0), TRUE);
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(CEntryPoints, WritingNothingStillUndoesReadAhead) {
  const OopType file = openWith("abcdef", "r+");
  readBytes(file, 2);
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(writeTo(file, ""), TRUE); }),
              ::testing::ElementsAre("lseek=2"));
}

TEST_F(CEntryPoints, AWriteAfterAPartialReadLandsBehindTheLastByteRead) {
  const OopType file = openWith("abcdefghij", "r+");
  EXPECT_EQ(readBytes(file, 3), "abc");
  EXPECT_EQ(writeTo(file, "XY"), TRUE);
  EXPECT_EQ(readFile("data.bin"), "abcXYfghij");
}

TEST_F(CEntryPoints, AFailedRepositioningWritesNothing) {
  const OopType file = openWith("abcdef", "r+");
  readBytes(file, 2);
  fault("lseek:1:EIO");
  EXPECT_EQ(writeTo(file, "X"), FALSE);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(readFile("data.bin"), "abcdef");
}

TEST_F(CEntryPoints, AFailedOrEmptyWriteIsFalse) {
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:1:ENOSPC");
  EXPECT_EQ(writeTo(file, "abc"), FALSE);
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_EQ(fetchText(file), "errno=28,ENOSPC, No space left on device");
  clearFaults();
  fault("HostWriteFile_:1:result=0");
  EXPECT_EQ(writeTo(file, "abc"), FALSE);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(CEntryPoints, GzipFilesAreWrittenAndRead) {
  const std::string content = patternBytes(9000);
  OopType file = openFile("out.gz", "w", true);
  EXPECT_EQ(writeTo(file, content), TRUE);
  EXPECT_EQ(writeTo(file, "more"), TRUE);
  call("KvfClose", {file});
  file = openFile("out.gz", "r", true);
  EXPECT_EQ(readFrom(file, 5), content.substr(0, 5));
  EXPECT_EQ(readFrom(file, 10000), content.substr(5) + "more");
  EXPECT_EQ(writeTo(file, "X"), FALSE);
}

TEST_F(CEntryPoints, BytesReadAheadComeFirst) {
  const std::string content = patternBytes(10000);
  const OopType file = openWith(content);
  EXPECT_EQ(readBytes(file, 10), content.substr(0, 10));
  EXPECT_TRUE(
      fileCallsDuring([&] { EXPECT_EQ(readFrom(file, 20), content.substr(10, 20)); }).empty());
  EXPECT_EQ(position(file), "30");
  const auto calls = callsNamed("HostReadFile_",
                                [&] { EXPECT_EQ(readFrom(file, 5000), content.substr(30, 5000)); });
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("934"));
}

TEST_F(CEntryPoints, BytesReadAheadAreCountedTwiceInThePosition) {
  const OopType file = openWith(patternBytes(10000));
  readBytes(file, 10);
  EXPECT_EQ(readFrom(file, 5000).size(), 5000U);
  EXPECT_EQ(position(file), "9096");
  EXPECT_EQ(
      lseek(static_cast<int>(oopSmallIntegerValue(call("KvfGetFileDesc", {file}))), 0, SEEK_CUR),
      5010);
}

TEST_F(CEntryPoints, AReadBehindAClearedBufferCountsFromItsOldIndex) {
  const OopType file = openWith(patternBytes(10000));
  readBytes(file, 10);
  EXPECT_EQ(show(seek(file, 9000)), "9000");
  EXPECT_EQ(readFrom(file, 50), patternBytes(10000).substr(9000, 50));
  EXPECT_EQ(position(file), "9060");
  EXPECT_EQ(readBytes(file, 3), patternBytes(10000).substr(9050, 3));
}

TEST_F(CEntryPoints, AReadOfAFreshFileGoesStraightToTheHost) {
  const OopType file = openWith("abcdef");
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(readFrom(file, 4), "abcd"); }),
              ::testing::ElementsAre("HostReadFile_=4"));
  EXPECT_EQ(position(file), "4");
  EXPECT_EQ(readBytes(file, 9), "ef");
}

TEST_F(CEntryPoints, WrittenBytesCountInTheNextPosition) {
  const OopType file = openWith("abcdefghij", "r+");
  EXPECT_EQ(writeTo(file, "XY"), TRUE);
  EXPECT_EQ(readFrom(file, 3), "cde");
  EXPECT_EQ(position(file), "5");
  seek(file, 0);
  readBytes(file, 3);
  EXPECT_EQ(writeTo(file, "Z"), TRUE);
  EXPECT_EQ(readFrom(file, 2), "ef");
  EXPECT_EQ(position(file), "16");
}

TEST_F(CEntryPoints, TheEndOfTheFileIsZeroWithAText) {
  const OopType file = openWith("abc");
  EXPECT_EQ(readFrom(file, 100), "abc");
  EXPECT_EQ(fetchText(file), "");
  EXPECT_EQ(readFrom(file, 100), "");
  EXPECT_EQ(fetchText(file), "attempt to read past end of file");
  EXPECT_EQ(errorCode(file), "0");
}

TEST_F(CEntryPoints, ReadingNothingIsZero) {
  const OopType file = openWith("abc");
  ByteType byte = '#';
  for (const intptr_t count : {intptr_t{0}, intptr_t{-1}, INTPTR_MIN})
    EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(KvFileRead(file, &byte, count, 0), 0); }).empty());
  EXPECT_EQ(byte, '#');
  EXPECT_EQ(fetchText(file), "");
  readBytes(file, 9);
  EXPECT_EQ(KvFileRead(file, &byte, 0, 0), 0);
  EXPECT_EQ(byte, '#');
}

TEST_F(CEntryPoints, ReadingNothingBehindAFoundEndLeavesTheText) {
  const OopType file = openWith("abc");
  EXPECT_EQ(readFrom(file, 3), "abc");
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(KvFileRead(file, nullptr, 0, 0), 0);
  EXPECT_EQ(fetchText(file), "attempt to read past end of file");
}

TEST_F(CEntryPoints, EveryFailureIsMinusOne) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(readFrom(file, 3), "<-1>");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(fetchText(file), "errno=5,EIO, Input/output error");
  clearFaults();
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(readFrom(file, 3), "<-1>");
  EXPECT_EQ(readFrom(file, 3), "abc");
}

TEST_F(CEntryPoints, FetchingTheTextCutsItAndKeepsIt) {
  const OopType file = openWith("");
  readFrom(file, 1);
  EXPECT_EQ(fetchText(file, 4), "att");
  EXPECT_EQ(fetchText(file, 1), "");
  EXPECT_EQ(fetchText(file, 0), "");
  EXPECT_EQ(fetchText(file, 33), "attempt to read past end of file");
  EXPECT_EQ(fetchText(file, 32), "attempt to read past end of fil");
  EXPECT_EQ(takeError(file), past_end);
  EXPECT_EQ(fetchText(file), "");
}

TEST_F(CEntryPoints, FetchingTheTextKeepsTheCodeAndWorksOnAClosedFile) {
  const OopType file = openWith("abc");
  fault("fclose:1:EIO");
  EXPECT_EQ(call("KvfClose", {file}), OOP_NIL);
  EXPECT_EQ(fetchText(file, 8, session_), "errno=5");
  EXPECT_EQ(errorCode(file), "5");
}

}  // namespace
}  // namespace kvtest
