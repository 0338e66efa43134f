// A host that says that it gave more than it was asked for is taken to have given what was asked for.
#include "losses/lying_host.h"
#include "openfile/openfile_fixture.h"

#include <climits>
#include <cstdint>

namespace kvtest {
namespace {

constexpr int64 SURPLUSES[] = {1, 7, 4096, 1000000, INT_MAX, INT64_C(1) << 40, INT64_MAX};

class OverstatingHost : public OpenFileTest {
 protected:
  void SetUp() override {
    OpenFileTest::SetUp();
    log_ = fopen("log", "w+");
    ASSERT_NE(log_, nullptr);
    kvhost::setLogStream(log_);
  }
  void TearDown() override {
    lies = Lies();
    kvhost::setLogStream(stderr);
    fclose(log_);
    KciSetLoggerFlush(0);
    OpenFileTest::TearDown();
  }

  std::string logged() {
    fflush(log_);
    return readFile("log");
  }

  // Memory behind what a call was given, which it must leave alone.
  static constexpr ByteType UNTOUCHED = 0xE7;

  const std::string content_ = patternBytes(10000);

 private:
  FILE* log_ = nullptr;
};

// ---- HostReadFile_ ----

TEST_F(OverstatingHost, ReadsDeliverWhatTheFileHolds) {
  for (const int64 surplus : SURPLUSES) {
    const OopType file = openWith(content_);
    const LyingHost host({.surplusRead = surplus});
    EXPECT_EQ(readBytes(file, 100), content_.substr(0, 100)) << surplus;
    EXPECT_EQ(position(file), "100") << surplus;
    EXPECT_EQ(readBytes(file, 5000), content_.substr(100, 5000)) << surplus;
    EXPECT_EQ(position(file), "5100") << surplus;
    EXPECT_TRUE(readBytes(file, 9999) == content_.substr(5100)) << surplus;
    EXPECT_EQ(position(file), "10000") << surplus;
    call("KvfClose", {file});
  }
}

TEST_F(OverstatingHost, SingleBytesAreThoseOfTheFile) {
  const OopType file = openWith(content_);
  const LyingHost host({.surplusRead = 4096});
  std::string found;
  for (OopType c; oopIsCharacter(c = call("KvfGetC", {file}));)
    found += static_cast<char>(oopCharacterCode(c));
  EXPECT_TRUE(found == content_) << found.size() << " bytes";
}

TEST_F(OverstatingHost, LinesAreThoseOfTheFile) {
  std::string text;
  for (int i = 0; i < 600; ++i) text += "line " + std::to_string(i) + "\n";
  for (const int64 surplus : SURPLUSES) {
    const OopType file = openWith(text);
    const LyingHost host({.surplusRead = surplus});
    std::string found;
    for (OopType line; (line = getLine(file)) != OOP_NIL;) found += bytes(line);
    EXPECT_TRUE(found == text) << surplus << ": " << found.size() << " bytes";
    call("KvfClose", {file});
  }
}

TEST_F(OverstatingHost, TheEndIsWhereItIs) {
  const OopType file = openWith(content_.substr(0, 8192));
  const LyingHost host({.surplusRead = 1});
  EXPECT_EQ(atEnd(file), "false");
  EXPECT_TRUE(readBytes(file, 8192) == content_.substr(0, 8192));
  EXPECT_EQ(atEnd(file), "true");
  EXPECT_EQ(position(file), "8192");
}

TEST_F(OverstatingHost, ADirectReadFillsNoMoreThanItWasGiven) {
  for (const int64 surplus : SURPLUSES) {
    const OopType file = openWith(content_);
    const LyingHost host({.surplusRead = surplus});
    ByteType memory[200];
    std::fill(std::begin(memory), std::end(memory), UNTOUCHED);
    EXPECT_EQ(KvFileRead(file, memory, 100, 0), 100) << surplus;
    EXPECT_EQ(std::string(memory, memory + 100), content_.substr(0, 100)) << surplus;
    EXPECT_EQ(std::count(memory + 100, memory + 200, UNTOUCHED), 100) << surplus;
    EXPECT_EQ(position(file), "100") << surplus;
    call("KvfClose", {file});
  }
}

TEST_F(OverstatingHost, DecimalTextIsLoadedByteByByte) {
  const OopType file = openWith("104 101 108 108 111 ");
  const LyingHost host({.surplusRead = 5});
  const OopType into = str("");
  EXPECT_EQ(show(call("KvfLoadByteStrings", {file, into, smallInt(5)})), "5");
  EXPECT_EQ(bytes(into), "hello");
}

TEST_F(OverstatingHost, AShortReadThatIsOverstatedStaysInsideTheBuffer) {
  const OopType file = openWith("abc");
  const LyingHost host({.surplusRead = 100000, .claimsWhenShort = true});
  const std::string found = readBytes(file, 1000000);
  EXPECT_EQ(found.size(), 4096U);
  EXPECT_TRUE(found.starts_with("abc"));
}

// ---- KciFetchBytes_ ----

TEST_F(OverstatingHost, WritesHoldWhatTheObjectHolds) {
  for (const int64 surplus : SURPLUSES) {
    const LyingHost host({.surplusBytes = surplus});
    const OopType file = openFile("out", "w");
    EXPECT_EQ(show(write(file, content_)), "10000") << surplus;
    call("KvfClose", {file});
    EXPECT_TRUE(readFile("out") == content_) << surplus;
  }
}

TEST_F(OverstatingHost, GzipWritesHoldWhatTheObjectHolds) {
  const LyingHost host({.surplusBytes = 4096});
  const OopType file = openFile("out.gz", "w", true);
  EXPECT_EQ(show(write(file, content_)), "10000");
  call("KvfClose", {file});
  EXPECT_TRUE(readGzip("out.gz") == content_);
}

TEST_F(OverstatingHost, PrintedBytesAreThoseOfTheObject) {
  const OopType object = str(content_.substr(0, 2048));
  OopType file = openFile("honest", "w");
  EXPECT_EQ(call("KvfPrintBytes", {file, object}), file);
  call("KvfClose", {file});
  const std::string honest = readFile("honest");
  for (const int64 surplus : SURPLUSES) {
    const LyingHost host({.surplusBytes = surplus});
    file = openFile("out", "w");
    EXPECT_EQ(call("KvfPrintBytes", {file, object}), file) << surplus;
    call("KvfClose", {file});
    EXPECT_TRUE(readFile("out") == honest) << surplus;
  }
}

TEST_F(OverstatingHost, PassivePrintsAreThoseOfTheObject) {
  for (const std::size_t size : {5U, 1024U, 1025U, 4096U}) {
    const OopType object = str(content_.substr(0, size));
    const std::string honest = bytes(call("KvfPassiveObjPrint", {object}));
    for (const int64 surplus : SURPLUSES) {
      const LyingHost host({.surplusBytes = surplus});
      EXPECT_TRUE(bytes(call("KvfPassiveObjPrint", {object})) == honest)
          << size << " bytes and " << surplus;
    }
  }
}

TEST_F(OverstatingHost, PassiveLoadsAreThoseOfTheObject) {
  const OopType source = call("KvfPassiveObjPrint", {str(content_)});
  for (const int64 surplus : SURPLUSES) {
    const LyingHost host({.surplusBytes = surplus});
    const OopType into = str("");
    call("KvfPassiveObjLoadByteStrings", {into, smallInt(10000), source, smallInt(1)});
    EXPECT_TRUE(bytes(into) == content_) << surplus;
  }
}

TEST_F(OverstatingHost, AnEndOfLineThatIsTooLongIsRefused) {
  for (const int64 surplus : SURPLUSES) {
    const OopType file = openWith("ab\r\ncd");
    const LyingHost host({.surplusBytes = surplus, .claimsWhenShort = true});
    const OopType eol = str("\r\n");
    expectRaise(2061, {eol}, "KvfGetLine", {file, OOP_NIL, smallInt(1), eol, OOP_NIL});
    EXPECT_EQ(position(file), "0") << surplus;
    call("KvfClose", {file});
  }
}

TEST_F(OverstatingHost, AUtf16PathIsTooLong) {
  for (const int64 surplus : SURPLUSES) {
    const LyingHost host({.surplusBytes = surplus, .claimsWhenShort = true});
    const OopType path = kvhost::newUtf16(u"name");
    const OopType file = kvhost::newKvFile();
    letRaisesReturn(1);
    expectRaise(2061, {path}, "KvfOpen", {file, path, str("r"), OOP_FALSE});
    EXPECT_EQ(takeClassError(), "");
  }
}

// ---- KciFetchUtf8Bytes_ ----

TEST_F(OverstatingHost, ALogIsThatOfTheString) {
  for (const int64 surplus : SURPLUSES) {
    ASSERT_EQ(truncate("log", 0), 0);
    const LyingHost host({.surplusUtf8 = surplus});
    const auto calls = callsDuring([&] {
      EXPECT_EQ(call("KvfKciLog", {kvhost::CLASS_KV_FILE, str(content_.substr(0, 3000))}),
                kvhost::CLASS_KV_FILE);
    });
    std::vector<std::string> starts;
    for (const seam::Call& one : calls) {
      if (one.name != "KciFetchUtf8Bytes_") continue;
      starts.push_back(argumentOf(one, 1));
    }
    EXPECT_THAT(starts, ::testing::ElementsAre("1", "1024", "2047", "3001")) << surplus;
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                            [](const seam::Call& one) { return one.name == "KciLogger"; }),
              4)
        << surplus;
    EXPECT_THAT(logged(), ::testing::EndsWith(content_.substr(0, 3000) + "\n")) << surplus;
  }
}

TEST_F(OverstatingHost, APathIsTooLong) {
  for (const int64 surplus : SURPLUSES) {
    const LyingHost host({.surplusUtf8 = surplus, .claimsWhenShort = true});
    const OopType path = str("data.bin");
    expectRaise(2061, {path}, "KvfOpen", {kvhost::newKvFile(), path, str("r"), OOP_FALSE});
    expectRaise(2061, {path}, "KvfSize", {kvhost::CLASS_KV_FILE, path});
    expectRaise(2061, {path}, "KvfExpandEnvVar", {kvhost::CLASS_KV_FILE, path, smallInt(0)});
  }
}

// ---- KciFetchOops ----

TEST_F(OverstatingHost, DeadFilesAreThoseOfTheArray) {
  for (const int64 surplus : SURPLUSES) {
    std::vector<OopType> ids;
    for (int i = 0; i < 700; ++i) {
      const OopType file = kvhost::newKvFile();
      ASSERT_EQ(call("KvfCreateStdFile", {file, smallInt(2)}), smallInt(1));
      ids.push_back(kvhost::newInteger(static_cast<int64>(file)));
    }
    const OopType dead = kvhost::newArray(ids);
    const LyingHost host({.surplusOops = surplus});
    const auto calls = callsNamed(
        "KciFetchOops", [&] { EXPECT_EQ(call("KvfClientFinalize", {dead}), OOP_TRUE) << surplus; });
    EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0") << surplus;
    ASSERT_EQ(calls.size(), 3U) << surplus;
    EXPECT_THAT(calls[1].arguments, ::testing::Contains("501")) << surplus;
    EXPECT_THAT(calls[2].arguments, ::testing::Contains("701")) << surplus;
  }
}

}  // namespace
}  // namespace kvtest
