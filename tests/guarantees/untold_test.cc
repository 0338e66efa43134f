// Answers that tell less than what happened: losses that look like success or like an ordinary end.
#include "losses/gzip_files.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class Untold : public OpenFileTest {
 protected:
  // All that can be read, and what the reads behind it answer and tell.
  std::string readToTheEnd(OopType file, std::string* told) {
    std::string text;
    for (;;) {
      const std::string piece = readBytes(file, 4096);
      if (piece.empty() || piece == "nil") {
        *told = Transcript() << piece << errorCode(file) << takeError(file) << getC(file)
                             << atEnd(file);
        return text;
      }
      text += piece;
    }
  }
};

// ---- gzip ----

TEST_F(Untold, AGzipFileThatIsCutShortEndsLikeAWholeOne) {
  const std::string text = linesThatHardlyPack(200000);
  writeFile("whole.gz", gzipMember(text));
  writeFile("cut.gz", gzipMember(text).substr(0, gzipMember(text).size() / 2));
  std::string toldOfTheWhole;
  std::string toldOfTheCut;
  EXPECT_TRUE(readToTheEnd(openFile("whole.gz", "r", true), &toldOfTheWhole) == text);
  const OopType cut = openFile("cut.gz", "r", true);
  const std::string delivered = readToTheEnd(cut, &toldOfTheCut);
  EXPECT_GT(delivered.size(), text.size() / 3);
  EXPECT_LT(delivered.size(), text.size());
  EXPECT_EQ(text.compare(0, delivered.size(), delivered), 0);
  EXPECT_EQ(toldOfTheCut, toldOfTheWhole);
  EXPECT_EQ(call("KvfClose", {cut}), cut);
}

// As a process leaves it that was killed between two flushes. What is appended is taken for the rest of
// the member that was cut, until it cannot be that; too little may never show that it is not.
TEST_F(Untold, WhatIsAppendedToAGzipFileThatIsCutShortCannotBeRead) {
  const std::string text = linesThatHardlyPack(100000);
  for (const std::size_t size : {std::size_t{10}, std::size_t{50000}}) {
    const std::string more = linesThatHardlyPack(size, 2);
    writeFile("log.gz", gzipMember(text).substr(0, gzipMember(text).size() / 2));
    const OopType out = openFile("log.gz", "a", true);
    EXPECT_EQ(show(write(out, more)), std::to_string(more.size()));
    EXPECT_EQ(call("KvfFlush", {out}), out);
    EXPECT_EQ(call("KvfClose", {out}), out);
    std::string told;
    const std::string delivered = readToTheEnd(openFile("log.gz", "r", true), &told);
    EXPECT_EQ(delivered.compare(0, 32768, text, 0, 32768), 0) << "what was there before";
    EXPECT_EQ(delivered.find(more), std::string::npos);
    if (size > 10) {
      EXPECT_THAT(told, ::testing::StartsWith("nil 0 'log.gz: "));
    }
  }
}

// The old handle is closed once the new one is open, and has emptied the file.
TEST_F(Untold, AFailedGzipFileOpenedAgainForWritingHasRestOfTheOldOneInIt) {
  const std::string text = linesThatHardlyPack(200000);
  const OopType file = openFile("out.gz", "w", true);
  {
    std::size_t at = 0;
    for (; at < 100000; at += 1000) ASSERT_EQ(show(write(file, text.substr(at, 1000))), "1000");
    const RefusingDescriptor refusing("out.gz", RefusingDescriptor::Refusal::WritesWithENOSPC);
    for (; at < text.size() - 1000; at += 1000)
      if (show(write(file, text.substr(at, 1000))) != "1000") break;
    ASSERT_LT(at, text.size() - 1000) << "no write was refused";
  }
  EXPECT_EQ(call("KvfOpen", {file, str("out.gz"), str("w"), OOP_TRUE}), smallInt(2));
  EXPECT_GT(readFile("out.gz").size(), 0U) << "written by the close of the old handle";
  EXPECT_EQ(show(write(file, "anew")), "4");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_GT(readFile("out.gz").size(), gzipMember("anew").size());
  EXPECT_EQ(readGzip("out.gz"), "anew") << "zlib passes over what is no member";
}

TEST_F(Untold, AFailedGzipFileClosedBeforeItIsOpenedAgainHasNot) {
  const std::string text = linesThatHardlyPack(200000);
  const OopType file = openFile("out.gz", "w", true);
  {
    const RefusingDescriptor refusing("out.gz", RefusingDescriptor::Refusal::WritesWithENOSPC);
    EXPECT_NE(show(write(file, text)), std::to_string(text.size()));
  }
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(call("KvfOpen", {file, str("out.gz"), str("w"), OOP_TRUE}), smallInt(2));
  EXPECT_EQ(show(write(file, "anew")), "4");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(readFile("out.gz").size(), gzipMember("anew").size());
}

// What was compressed before the close is that of the text, and what comes behind it of the buffer.
TEST_F(Untold, ALongDirectGzipWriteThatFailedIsReadFromTheCallersBufferAtTheClose) {
  std::string buffer = linesThatHardlyPack(200000);
  const std::string before = buffer;
  const OopType file = openFile("out.gz", "w", true);
  {
    const RefusingDescriptor refusing("out.gz", RefusingDescriptor::Refusal::WritesWithENOSPC);
    EXPECT_EQ(KvFileWrite(file, reinterpret_cast<const ByteType*>(buffer.data()), 100000, 0),
              FALSE);
  }
  std::fill(buffer.begin(), buffer.end(), '#');
  EXPECT_EQ(call("KvfClose", {file}), file);
  const std::string unpacked = unpackedAsFarAsPossible(readFile("out.gz"));
  EXPECT_NE(unpacked.find("########"), std::string::npos);
  EXPECT_EQ(before.find("########"), std::string::npos);
}

TEST_F(Untold, AShortDirectGzipWriteThatFailedIsNot) {
  const std::string text = linesThatHardlyPack(200000);
  const OopType file = openFile("out.gz", "w", true);
  {
    const RefusingDescriptor refusing("out.gz", RefusingDescriptor::Refusal::WritesWithENOSPC);
    std::string buffer;
    BoolType written = TRUE;
    for (std::size_t at = 0; written && at + 8191 < text.size(); at += 8191) {
      buffer = text.substr(at, 8191);
      written = KvFileWrite(file, reinterpret_cast<const ByteType*>(buffer.data()), 8191, 0);
      std::fill(buffer.begin(), buffer.end(), '#');
    }
    EXPECT_FALSE(written) << "no write was refused";
  }
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(unpackedAsFarAsPossible(readFile("out.gz")).find("########"), std::string::npos);
}

TEST_F(Untold, AFailedGzipFileTakesNoMoreAndTellsNothing) {
  const std::string text = linesThatHardlyPack(300000);
  const OopType file = openFile("/dev/full", "w", true);
  write(file, text);
  for (const std::size_t size : {std::size_t{1}, std::size_t{20000}}) {
    EXPECT_EQ(show(write(file, text.substr(0, size))), "0") << size;
    EXPECT_EQ(std::string(Transcript() << errorCode(file) << takeError(file)), "0 nil") << size;
  }
}

TEST_F(Untold, AFailedGzipFileTellsADirectReadWhateverErrnoHeld) {
  writeFile("in.gz", gzipMember(linesThatHardlyPack(200000)));
  const OopType file = openFile("in.gz", "r", true);
  EXPECT_EQ(readBytes(file, 64).size(), 64U);
  const RefusingDescriptor refusing("in.gz", RefusingDescriptor::Refusal::ReadsWithEISDIR);
  while (read(file, str(""), 1, 64) != OOP_NIL) {
  }
  ByteType some[8];
  for (const int left : {EEXIST, ENOTEMPTY}) {
    errno = left;
    EXPECT_EQ(KvFileRead(file, some, sizeof some, 0), -1);
    EXPECT_EQ(errorCode(file), std::to_string(left));
  }
}

TEST_F(Untold, AFailedGzipFileTellsAtAFlushWhateverErrnoHeld) {
  const std::string text = linesThatHardlyPack(300000);
  const OopType file = openFile("/dev/full", "w", true);
  EXPECT_NE(show(write(file, text)), std::to_string(text.size()));
  for (const int left : {EEXIST, ENOTEMPTY}) {
    errno = left;
    EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
    EXPECT_EQ(errorCode(file), std::to_string(left));
    errno = left;
    EXPECT_EQ(seek(file, 1000000), OOP_NIL);
    EXPECT_EQ(errorCode(file), std::to_string(left));
  }
}

// Asked for the kind, zlib looks at the beginning, and has bytes of it ready, which a single byte is
// taken from before the seek is made.
TEST_F(Untold, APlainFileOpenedAsGzipLosesItsPlaceWhereItIsAskedForItsKindAfterASeek) {
  writeFile("plain", "11 22 33 44 ");
  const auto loadedBehindASeek = [&](bool asksForTheKind) {
    const OopType file = openFile("plain", "r", true);
    EXPECT_EQ(show(seek(file, 6)), "6");
    if (asksForTheKind) {
      EXPECT_EQ(call("KvfIsCompressed", {file}), OOP_FALSE);
    }
    const OopType into = str("");
    EXPECT_EQ(show(call("KvfLoadByteStrings", {file, into, smallInt(1)})), "1");
    return bytes(into);
  };
  EXPECT_EQ(loadedBehindASeek(false), std::string(1, 33));
  EXPECT_EQ(loadedBehindASeek(true), std::string(1, 11));
}

TEST_F(Untold, SoItDoesWhereItIsAskedForItsEnd) {
  writeFile("plain", "0123456789");
  const OopType file = openFile("plain", "r", true);
  EXPECT_EQ(show(seek(file, 6)), "6");
  EXPECT_EQ(call("KvfIsCompressed", {file}), OOP_FALSE);
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(readBytes(file, 10), "0789");
}

TEST_F(Untold, AGzipFileKeepsItsPlaceThere) {
  const OopType file = openGzipWith("0123456789");
  EXPECT_EQ(show(seek(file, 6)), "6");
  EXPECT_EQ(call("KvfIsCompressed", {file}), OOP_TRUE);
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_EQ(readBytes(file, 10), "6789");
}

TEST_F(Untold, AGzipFileThatWasFlushedHasNothingLeftForItsClose) {
  const OopType file = openFile("out.gz", "w", true);
  const std::string lines = linesThatHardlyPack(100000);
  EXPECT_EQ(show(write(file, lines)), std::to_string(lines.size()));
  EXPECT_EQ(call("KvfFlush", {file}), file);
  const std::string flushed = readFile("out.gz");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_TRUE(readFile("out.gz") == flushed);
}

// A single huge line takes as much memory as it unpacks to.
TEST_F(Untold, ALineOfAGzipFileMayBeAThousandTimesTheFile) {
  writeFile("bomb.gz", gzipMember(std::string(8000000, 'x')));
  EXPECT_LT(std::filesystem::file_size("bomb.gz"), 10000U);
  EXPECT_EQ(bytes(getLine(openFile("bomb.gz", "r", true))).size(), 8000000U);
}

// ---- appending ----

// The refused write has dropped what was read ahead, and nothing holds the next one back.
TEST_F(Untold, AWriteThatAppendModeRefusedOverReadAheadIsTakenTheSecondTime) {
  const std::string text = patternBytes(5000);
  const OopType file = openWith(text, "ab+");
  EXPECT_EQ(readBytes(file, 3), text.substr(0, 3));
  ByteType byte = 0;
  EXPECT_EQ(KvFileRead(file, &byte, 1, 0), 1);
  EXPECT_EQ(show(write(file, "X")), "nil");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(show(write(file, "X")), "1");
  EXPECT_EQ(readFile("data.bin"), text + "X");
}

// ---- lines ----

TEST_F(Untold, ALastLineOfAPipeWithoutItsEndIsLost) {
  const std::string seen = inChild([&] {
    int ends[2];
    if (pipe(ends) != 0) return std::string("no pipe");
    if (::write(ends[1], "one\ntwo", 7) != 7) return std::string("not written");
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(0)});
    Transcript transcript;
    transcript << show(getLine(file));
    return std::string(transcript << show(getLine(file)) << errorCode(file) << getC(file));
  });
  EXPECT_EQ(seen, "'one\n' nil 29 nil");
}

TEST_F(Untold, ALastLineOfAFileOnStandardInputWithoutItsEndIsDelivered) {
  const StandardInputFrom input("one\ntwo");
  const OopType file = kvhost::newKvFile();
  call("KvfCreateStdFile", {file, smallInt(0)});
  EXPECT_EQ(show(getLine(file)), "'one\n'");
  EXPECT_EQ(show(getLine(file)), "'two'");
}

TEST_F(Untold, StandardInputReadDirectlyMissesWhatTheStreamHasBuffered) {
  const StandardInputFrom input("one\ntwo\n");
  const OopType file = kvhost::newKvFile();
  call("KvfCreateStdFile", {file, smallInt(0)});
  EXPECT_EQ(show(getLine(file)), "'one\n'");
  ByteType some[8];
  EXPECT_EQ(KvFileRead(file, some, sizeof some, 0), 0);
  EXPECT_EQ(show(getLine(file)), "'two\n'");
}

// The read that fails brings nothing new, and the bytes that are there count.
TEST_F(Untold, AReadThatFailsWithPartOfALineEndBufferedEndsTheLine) {
  const OopType file = openWith("line\r");
  ASSERT_EQ(getC(file), "$108");
  fault("HostReadFile_:1+:EIO");
  const OopType eol = str("\r\n");
  EXPECT_EQ(show(getLine(file, OOP_NIL, 1, eol)), "'ine'");
  EXPECT_EQ(errorCode(file), "5");
  clearFaults();
}

}  // namespace
}  // namespace kvtest
