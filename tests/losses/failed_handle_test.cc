// A gzip handle whose descriptor failed inside zlib: zlib has lost its place, so the handle stays
// failed until the file is opened again, even where the descriptor has recovered.
#include "losses/gzip_files.h"

namespace kvtest {
namespace {

using Refusal = RefusingDescriptor::Refusal;

class FailedHandle : public OpenFileTest {
 protected:
  // Longer than zlib's buffers, so that a read comes in the middle.
  static const std::string& text() {
    static const std::string lines = linesThatHardlyPack(200000);
    return lines;
  }

  // A gzip file of that text, read a little, whose descriptor refused a read, and is sound again.
  // The pieces divide the read buffer, so that no read asks a second time for what was refused.
  OopType failedReading(const std::string& path = "in.gz") {
    writeFile(path, gzipMember(text()));
    const OopType file = openFile(path, "r", true);
    EXPECT_EQ(readBytes(file, 64), text().substr(0, 64));
    RefusingDescriptor refusing(path, Refusal::ReadsWithEISDIR);
    std::string delivered = text().substr(0, 64);
    for (int i = 0; i < 1000; ++i) {
      const OopType into = str("");
      const OopType count = read(file, into, 1, 64);
      if (count == OOP_NIL) break;
      delivered += bytes(into);
    }
    EXPECT_LT(delivered.size(), text().size()) << "no read was refused";
    EXPECT_EQ(text().compare(0, delivered.size(), delivered), 0);
    EXPECT_EQ(errorCode(file), std::to_string(EISDIR)) << "the first failure tells its cause";
    return file;
  }

  // A gzip file being written whose descriptor refused a write, and is sound again; the bytes that
  // were accepted before.
  OopType failedWriting(std::string* accepted) {
    const OopType file = openFile("out.gz", "w", true);
    RefusingDescriptor refusing("out.gz", Refusal::WritesWithENOSPC);
    for (std::size_t at = 0; at < text().size(); at += 1000) {
      const int64 count = oopSmallIntegerValue(write(file, text().substr(at, 1000)));
      *accepted += text().substr(at, static_cast<std::size_t>(count));
      if (count < 1000) return file;
    }
    ADD_FAILURE() << "no write was refused";
    return file;
  }

  std::string answerAndCode(OopType answer, OopType file) {
    return show(answer) + " " + errorCode(file);
  }

  static intptr_t readDirectly(OopType file) {
    ByteType some[10];
    return KvFileRead(file, some, sizeof some, 0);
  }

  static bool writeDirectly(OopType file, std::string_view bytesToWrite) {
    return KvFileWrite(file, reinterpret_cast<const ByteType*>(bytesToWrite.data()),
                       static_cast<intptr_t>(bytesToWrite.size()), 0) == TRUE;
  }
};

TEST_F(FailedHandle, GoesOnRefusingEveryKindOfRead) {
  const OopType file = failedReading();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(answerAndCode(read(file, str(""), 1, 10), file), "nil 5");
    EXPECT_EQ(answerAndCode(call("KvfGetC", {file}), file), "nil 5");
    EXPECT_EQ(answerAndCode(getLine(file), file), "nil 5");
    EXPECT_EQ(readDirectly(file), -1);
  }
}

TEST_F(FailedHandle, RefusesTheFirstReadOfEachKind) {
  EXPECT_EQ(getC(failedReading("1.gz")), "nil");
  EXPECT_EQ(show(getLine(failedReading("2.gz"))), "nil");
  EXPECT_EQ(readDirectly(failedReading("3.gz")), -1);
  const OopType file = failedReading("4.gz");
  const OopType into = str("");
  EXPECT_EQ(show(call("KvfLoadByteStrings", {file, into, smallInt(10)})), "0");
  EXPECT_EQ(bytes(into), "");
}

TEST_F(FailedHandle, RefusesToSeek) {
  const OopType file = failedReading();
  for (const int64 position : {0, 50, 100, 100000}) {
    EXPECT_EQ(show(seek(file, position)), "nil") << position;
    EXPECT_EQ(show(read(file, str(""), 1, 10)), "nil") << position;
  }
}

TEST_F(FailedHandle, RefusesToFlush) {
  const OopType file = failedReading();
  EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
  EXPECT_EQ(call("KvfSync", {file}), OOP_NIL);
  EXPECT_EQ(answerAndCode(read(file, str(""), 1, 10), file), "nil 5");
}

TEST_F(FailedHandle, OpenedAgainReadsFromTheStart) {
  const OopType file = failedReading();
  EXPECT_EQ(call("KvfOpen", {file, str("in.gz"), str("r"), OOP_TRUE}), smallInt(2));
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_TRUE(readBytes(file, static_cast<int64>(text().size())) == text());
}

TEST_F(FailedHandle, IsNotClearedAndTellsEIO) {
  const OopType file = failedReading();
  const auto names = namesOf(
      callsDuring([&] { EXPECT_EQ(answerAndCode(read(file, str(""), 1, 10), file), "nil 5"); }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("gzclearerr")));
  const auto asked = std::find(names.begin(), names.end(), "gzerror");
  ASSERT_NE(asked, names.end());
  EXPECT_NE(std::find(asked, names.end(), "gzread"), names.end())
      << "the handle is asked for its error before it is read";
}

TEST_F(FailedHandle, TheTextOfTheRecordIsThatOfTheFirstFailure) {
  const OopType file = failedReading();
  EXPECT_EQ(takeError(file), "'" + hostText(EISDIR) + "'");
  EXPECT_EQ(answerAndCode(read(file, str(""), 1, 10), file), "nil 5");
  EXPECT_EQ(takeError(file), "nil") << "a record has one text";
}

TEST_F(FailedHandle, GoesOnRefusingEveryKindOfWrite) {
  std::string accepted;
  const OopType file = failedWriting(&accepted);
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(show(write(file, "again")), ::testing::AnyOf("0", "nil"));
    EXPECT_FALSE(writeDirectly(file, "again"));
    call("KvfPutC", {file, smallInt('!')});
    call("KvfPrintBytes", {file, str("AB")});
    EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
    EXPECT_EQ(call("KvfSync", {file}), OOP_NIL);
    EXPECT_EQ(show(seek(file, 1000000)), "nil");
  }
}

TEST_F(FailedHandle, RefusesAWriteWithoutClearingTheHandle) {
  std::string accepted;
  const OopType file = failedWriting(&accepted);
  const auto names = namesOf(callsDuring([&] { write(file, "again"); }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("gzclearerr")));
  const auto asked = std::find(names.begin(), names.end(), "gzerror");
  ASSERT_NE(asked, names.end());
  EXPECT_NE(std::find(asked, names.end(), "gzwrite"), names.end());
}

TEST_F(FailedHandle, WritesNothingTwiceWhateverIsTriedAgain) {
  std::string accepted;
  const OopType file = failedWriting(&accepted);
  for (int i = 0; i < 5; ++i) {
    write(file, text().substr(accepted.size(), 1000));
    writeDirectly(file, text().substr(accepted.size(), 1000));
    call("KvfPutC", {file, smallInt('!')});
    call("KvfPrintBytes", {file, str("AB")});
    call("KvfFlush", {file});
    seek(file, static_cast<int64>(accepted.size()) + 5000);
  }
  call("KvfClose", {file});
  const std::string unpacked = unpackedAsFarAsPossible(readFile("out.gz"));
  EXPECT_LE(unpacked.size(), accepted.size() + 1000);
  EXPECT_EQ(text().compare(0, unpacked.size(), unpacked), 0) << "bytes came twice, or out of order";
}

TEST_F(FailedHandle, OpenedAgainWritesFromTheStart) {
  std::string accepted;
  const OopType file = failedWriting(&accepted);
  EXPECT_EQ(call("KvfOpen", {file, str("out.gz"), str("w"), OOP_TRUE}), smallInt(2));
  EXPECT_EQ(show(write(file, "sound")), "5");
  EXPECT_EQ(call("KvfFlush", {file}), file);
  call("KvfClose", {file});
  EXPECT_EQ(readGzip("out.gz"), "sound");
}

// ---- every other error is cleared, so that a file that grows can be read on ----

TEST_F(FailedHandle, AFileThatWasCutShortIsReadOnWhenItHasGrown) {
  const std::string raw = gzipMember(text());
  writeFile("growing.gz", raw.substr(0, raw.size() / 2));
  const OopType file = openFile("growing.gz", "r", true);
  std::string delivered;
  for (;;) {
    const std::string piece = readBytes(file, 4096);
    if (piece.empty() || piece == "nil") break;
    delivered += piece;
  }
  EXPECT_LT(delivered.size(), text().size());
  std::ofstream("growing.gz", std::ios::binary | std::ios::app) << raw.substr(raw.size() / 2);
  for (;;) {
    const std::string piece = readBytes(file, 4096);
    if (piece.empty() || piece == "nil") break;
    delivered += piece;
  }
  EXPECT_TRUE(delivered == text()) << delivered.size() << " of " << text().size();
}

TEST_F(FailedHandle, AMemberThatIsAddedLaterIsReadOn) {
  const OopType file = openGzipWith("first ");
  EXPECT_EQ(readBytes(file, 100), "first ");
  EXPECT_EQ(readBytes(file, 100), "");
  std::ofstream("data.gz", std::ios::binary | std::ios::app) << gzipMember("second");
  EXPECT_EQ(readBytes(file, 100), "second");
}

TEST_F(FailedHandle, ASoundOneIsAskedAndThenCleared) {
  const OopType file = openGzipWith("abc");
  const auto names = namesOf(callsDuring([&] { EXPECT_EQ(readBytes(file, 3), "abc"); }));
  const auto asked = std::find(names.begin(), names.end(), "gzerror");
  ASSERT_NE(asked, names.end());
  ASSERT_NE(asked + 1, names.end());
  EXPECT_EQ(*(asked + 1), "gzclearerr");
}

TEST_F(FailedHandle, ADamagedOneIsAskedAndThenCleared) {
  std::string raw = gzipMember(text());
  raw.replace(raw.size() / 2, 64, std::string(64, '\xff'));
  writeFile("damaged.gz", raw);
  const OopType file = openFile("damaged.gz", "r", true);
  for (int i = 0; i < 1000 && read(file, str(""), 1, 4096) != OOP_NIL; ++i) {
  }
  EXPECT_EQ(errorCode(file), "0");
  const auto calls = callsDuring([&] { read(file, str(""), 1, 4096); });
  const auto names = namesOf(calls);
  const auto asked = std::find(names.begin(), names.end(), "gzerror");
  ASSERT_NE(asked, names.end());
  ASSERT_NE(asked + 1, names.end());
  EXPECT_EQ(*(asked + 1), "gzclearerr");
}

// ---- a write that zlib refused leaves the record without an error ----

TEST_F(FailedHandle, AWriteThatZlibAnswersWith0LeavesNoCodeAndNoText) {
  const OopType file = openFile("out.gz", "w", true);
  fault("gzwrite:1:ENOSPC");
  EXPECT_EQ(show(write(file, "abc")), "0");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(FailedHandle, ADeviceThatIsFullLeavesNoCodeAndNoTextAtTheWrite) {
  std::string accepted;
  const OopType file = failedWriting(&accepted);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

}  // namespace
}  // namespace kvtest
