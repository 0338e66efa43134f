// A host that fills a text to the last byte of its buffer, or adds no end to it: the module ends every
// such text itself.
#include "losses/lying_host.h"
#include "openfile/openfile_fixture.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class FilledBuffers : public OpenFileTest {
 protected:
  void TearDown() override {
    lies = Lies();
    OpenFileTest::TearDown();
  }
  static constexpr OopType CLASS = kvhost::CLASS_KV_FILE;
};

TEST_F(FilledBuffers, AVersionParameterHas299Characters) {
  const LyingHost host({.version = 'v'});
  EXPECT_EQ(bytes(call("KvfVersionParam", {CLASS, smallInt(8)})), std::string(299, 'v'));
}

TEST_F(FilledBuffers, AnExpandedTextHas15999Characters) {
  const LyingHost host({.expandedName = 'e'});
  EXPECT_EQ(bytes(call("KvfExpandEnvVar", {CLASS, str("name"), smallInt(1)})),
            std::string(15999, 'e'));
}

// The host was told of 15999 bytes, of which a NUL would have been the last.
TEST_F(FilledBuffers, AVariableHasNoMoreThanWhatTheHostWasToldOf) {
  const LyingHost host({.variable = 'e'});
  const std::string found = bytes(call("KvfExpandEnvVar", {CLASS, str("name"), smallInt(0)}));
  EXPECT_GE(found.size(), 15998U);
  EXPECT_LE(found.size(), 15999U);
  EXPECT_EQ(found, std::string(found.size(), 'e'));
}

TEST_F(FilledBuffers, AnExpandedNameIsOneThatIsTooLongToOpen) {
  const LyingHost host({.expandedName = 'e'});
  EXPECT_EQ(call("KvfOpen", {kvhost::newKvFile(), str("name"), str("w"), OOP_TRUE}), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), std::to_string(ENAMETOOLONG));
  EXPECT_EQ(takeError(OOP_NIL), "'" + hostText(ENAMETOOLONG) + " : name'");
}

TEST_F(FilledBuffers, ASocketsTextHas255Characters) {
  const LyingHost host({.socketText = 's'});
  EXPECT_EQ(bytes(call("KvfKciGetSocketBufSize", {CLASS, str("SO_SNDBUF")})),
            std::string(255, 's'));
  EXPECT_EQ(bytes(call("KvfKciSetSocketBufSize", {CLASS, str("SO_SNDBUF"), smallInt(4096)})),
            std::string(255, 's'));
}

TEST_F(FilledBuffers, APieceOfTheLogHas1023Characters) {
  FILE* const log = fopen("log", "w");
  kvhost::setLogStream(log);
  const auto calls = callsNamed("KciFetchUtf8Bytes_", [&] {
    EXPECT_EQ(call("KvfKciLog", {CLASS, str(std::string(1023, 'l'))}), CLASS);
  });
  kvhost::setLogStream(stderr);
  fclose(log);
  EXPECT_THAT(readFile("log"), ::testing::EndsWith(std::string(1023, 'l') + "\n"));
  EXPECT_EQ(readFile("log").find("\n"), readFile("log").size() - 1);
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0].result, "1023");
  EXPECT_EQ(calls[1].result, "0");
}

// ---- lines of standard input ----

TEST_F(FilledBuffers, ALineWithoutAnEndIsCutWhereItsBufferEnds) {
  const StandardInputFrom input("never read");
  const OopType file = kvhost::newKvFile();
  call("KvfCreateStdFile", {file, smallInt(0)});
  std::string first;
  writtenTo(STDOUT_FILENO, [&] {
    const LyingHost host({.line = 'z'});
    first = readBytes(file, 4095);
  });
  EXPECT_EQ(first, std::string(4095, 'z'));
  EXPECT_EQ(getC(file), "$110") << "the line had no more bytes, so the next one is read";
}

// The fewer bytes are wanted, the shorter the buffer that is told of: two bytes more than wanted.
TEST_F(FilledBuffers, AShortLineWithoutAnEndIsCutThere) {
  const StandardInputFrom input("never read");
  const OopType file = kvhost::newKvFile();
  call("KvfCreateStdFile", {file, smallInt(0)});
  std::string first;
  writtenTo(STDOUT_FILENO, [&] {
    {
      const LyingHost host({.line = 'z'});
      first = readBytes(file, 10);
    }
    first += readBytes(file, 1);
    first += readBytes(file, 1);
  });
  EXPECT_EQ(first, std::string(11, 'z') + "n");
}

// Bytes that may begin an end of line stay in the buffer, and the next line is fetched behind them.
TEST_F(FilledBuffers, ALineBehindAPartOfAnEndOfLineIsGivenWhatIsLeft) {
  for (std::size_t kept = 1; kept <= 127; ++kept) {
    const std::string begun = std::string(kept - 1, 'e') + "\n";
    const StandardInputFrom input("hhhh" + begun + "ooooo\n");
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(0)});
    std::vector<seam::Call> calls;
    std::string line;
    writtenTo(STDOUT_FILENO, [&] {
      calls = callsNamed("UnixIoFgets_",
                         [&] { line = bytes(getLine(file, OOP_NIL, 1, str(begun + "!"))); });
    });
    ASSERT_GE(calls.size(), 2U) << kept;
    const int64 wanted = 4096 - 2 * static_cast<int64>(kept);
    const std::string size = std::to_string(wanted <= 4093 ? wanted + 2 : 4096);
    EXPECT_THAT(calls[1].arguments, ::testing::Contains(size)) << kept;
    // A newline that would begin the next sequence is kept once more, and then the input ends.
    EXPECT_EQ(line, "hhhh" + begun + (kept == 1 ? "ooooo" : "ooooo\n")) << kept;
    call("KvfClose", {file});
  }
}

TEST_F(FilledBuffers, ALineBehindAPartOfAnEndOfLineIsCutWhereTheBufferEnds) {
  for (const std::size_t kept : {1U, 2U, 3U, 127U}) {
    const std::string begun = std::string(kept - 1, 'e') + "\n";
    const StandardInputFrom input("hhhh" + begun);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(0)});
    int fetches = 0;
    // From the second fetch on the host adds no end, and the third finds none either.
    seam::setListener([&](const seam::Call& made) {
      if (made.name != "UnixIoFgets_") return;
      ++fetches;
      lies.line = fetches == 1 ? 'z' : '\0';
    });
    std::string line;
    writtenTo(STDOUT_FILENO, [&] { line = bytes(getLine(file, OOP_NIL, 1, str(begun + "!"))); });
    seam::setListener(nullptr);
    const int64 wanted = 4096 - 2 * static_cast<int64>(kept);
    const auto filled = static_cast<std::size_t>((wanted <= 4093 ? wanted + 2 : 4096) - 1);
    EXPECT_EQ(line, "hhhh" + begun + std::string(filled, 'z')) << kept;
    call("KvfClose", {file});
  }
}

// ---- texts of the interface's errors ----

// Each is ended before it is printed; a record has too little room to show what would come behind it.
class EndlessErrorTexts : public FilledBuffers {
 protected:
  void SetUp() override {
    FilledBuffers::SetUp();
    endlessTextsPrinted = 0;
  }
  void TearDown() override {
    EXPECT_EQ(endlessTextsPrinted, 0);
    FilledBuffers::TearDown();
  }

  static std::string expected(int number) {
    const std::string whole =
        "Kestrova KCI error " + std::to_string(number) + ", message: " + std::string(1024, 'M');
    return "'" + whole.substr(0, 1023) + "'";
  }
};

TEST_F(EndlessErrorTexts, OfAStoreAreCut) {
  const OopType file = openWith("abc");
  const LyingHost host({.error = 'M'});
  fault("KciStoreBytesInstanceOf:1:raise=2101");
  EXPECT_EQ(read(file, str(""), 1, 3), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2101");
  EXPECT_EQ(takeError(file), expected(2101));
}

TEST_F(EndlessErrorTexts, OfAResizeAreCut) {
  const OopType file = openWith("ab\ncd");
  const LyingHost host({.error = 'M'});
  fault("KciSetVaryingSize:1:raise=2102");
  EXPECT_EQ(getLine(file, str("a longer string")), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2102");
  EXPECT_EQ(takeError(file), expected(2102));
}

TEST_F(EndlessErrorTexts, OfAPrintAreCut) {
  const OopType file = openFile("out", "w");
  const LyingHost host({.error = 'M'});
  fault("KciFetchBytes_:1:raise=2103");
  EXPECT_EQ(call("KvfPrintBytes", {file, str("abc")}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2103");
  EXPECT_EQ(takeError(file), expected(2103));
}

TEST_F(EndlessErrorTexts, OfALoadAreCut) {
  const OopType file = openWith("1 2 3 ");
  const LyingHost host({.error = 'M'});
  fault("KciStoreBytesInstanceOf:1:raise=2104");
  EXPECT_EQ(call("KvfLoadByteStrings", {file, str(""), smallInt(3)}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2104");
  EXPECT_EQ(takeError(file), expected(2104));
}

}  // namespace
}  // namespace kvtest
