// A gap that a seek leaves in a gzip file being written: it is zeros, whatever memory the process had
// used before. Runs under valgrind as well.
#include "losses/gzip_files.h"

#include <malloc.h>

namespace kvtest {
namespace {

// What is done after the seek.
enum class Then { Write, PutOne, Print, Flush, FlushAndWrite, Close };
constexpr Then ALL_OF[] = {Then::Write, Then::PutOne,        Then::Print,
                           Then::Flush, Then::FlushAndWrite, Then::Close};

class GzipGap : public OpenFileTest {
 protected:
  static constexpr int PATTERN = 0xA5;

  void SetUp() override {
    OpenFileTest::SetUp();
    mallopt(M_PERTURB, PATTERN);
    useUpMemory();
  }
  void TearDown() override {
    mallopt(M_PERTURB, 0);
    OpenFileTest::TearDown();
  }

  // Leaves freed memory of the sizes that zlib asks for behind, full of letters.
  static void useUpMemory() {
    for (const std::size_t size : {std::size_t{8192}, std::size_t{16384}, std::size_t{65536}}) {
      char* const used = static_cast<char*>(malloc(size));
      std::fill(used, used + size, 'S');
      asm volatile("" : : "r"(used) : "memory");
      free(used);
    }
  }

  // The modes that write, from the module's own table.
  std::vector<std::string> writingModes() {
    std::vector<std::string> modes;
    for (const OopType mode : kvhost::elementsOf(call("KvfAllValidFileModes", {OOP_NIL, OOP_TRUE})))
      if (bytes(mode)[0] != 'r') modes.push_back(bytes(mode));
    return modes;
  }

  // Does it, and answers the text that must follow the gap.
  std::string afterSeek(OopType file, Then then) {
    switch (then) {
      case Then::Write:
        EXPECT_EQ(show(write(file, "text")), "4");
        return "text";
      case Then::PutOne:
        EXPECT_EQ(call("KvfPutC", {file, smallInt('!')}), OOP_TRUE);
        return "!";
      case Then::Print:
        EXPECT_EQ(call("KvfPrintBytes", {file, str("AB")}), file);
        return "65 66 ";
      case Then::Flush:
        EXPECT_EQ(call("KvfFlush", {file}), file);
        return "";
      case Then::FlushAndWrite:
        EXPECT_EQ(call("KvfFlush", {file}), file);
        EXPECT_EQ(show(write(file, "text")), "4");
        return "text";
      case Then::Close:
        break;
    }
    return "";
  }

  // Seeks first, and answers the first byte of the file that is wrong, or -1.
  std::string firstWrongByte(const std::string& mode, int64 gap, Then then) {
    std::filesystem::remove("gap.gz");
    std::string expected;
    if (mode[0] == 'a') {
      writeGzip("gap.gz", "here before");
      expected = "here before";
    }
    const OopType file = openFile("gap.gz", mode, true);
    EXPECT_EQ(show(seek(file, gap)), std::to_string(gap));
    expected += std::string(static_cast<std::size_t>(gap), '\0');
    expected += afterSeek(file, then);
    EXPECT_EQ(call("KvfClose", {file}), file);
    return compared(readGzip("gap.gz"), expected);
  }

  static std::string compared(const std::string& found, const std::string& expected) {
    if (found == expected) return "";
    if (found.size() != expected.size())
      return std::to_string(found.size()) + " bytes, not " + std::to_string(expected.size());
    const auto at = std::mismatch(found.begin(), found.end(), expected.begin()).first;
    return "byte " + std::to_string(at - found.begin()) + " is " +
           std::to_string(static_cast<unsigned char>(*at));
  }
};

TEST_F(GzipGap, IsZerosInEveryWritingModeAndHoweverItEnds) {
  const std::vector<std::string> modes = writingModes();
  EXPECT_THAT(modes, ::testing::IsSupersetOf({"w", "a", "wb", "ab", "w1", "ab9"}));
  for (const std::string& mode : modes) {
    for (const Then then : ALL_OF) {
      EXPECT_EQ(firstWrongByte(mode, 5000, then), "")
          << "mode " << mode << ", then " << static_cast<int>(then);
    }
  }
}

TEST_F(GzipGap, IsZerosHoweverWideItIs) {
  for (const int64 gap : {1, 3, 8191, 8192, 8193, 16384, 20000, 100000}) {
    EXPECT_EQ(firstWrongByte("w", gap, Then::Write), "") << gap;
    EXPECT_EQ(firstWrongByte("ab1", gap, Then::Close), "") << gap;
  }
}

TEST_F(GzipGap, IsZerosBehindWrittenBytesToo) {
  const OopType file = openFile("gap.gz", "wb", true);
  EXPECT_EQ(show(seek(file, 10)), "10");
  EXPECT_EQ(show(write(file, "a")), "1");
  EXPECT_EQ(show(seek(file, 9000)), "9000");
  EXPECT_EQ(call("KvfFlush", {file}), file);
  EXPECT_EQ(show(seek(file, 9010)), "9010");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(
      compared(readGzip("gap.gz"), std::string(10, '\0') + "a" + std::string(8989 + 10, '\0')), "");
}

TEST_F(GzipGap, OpeningForWritingSetsUpTheHandleAtOnceAndWritesNothing) {
  for (const std::string& mode : writingModes()) {
    std::filesystem::remove("new.gz");
    const OopType file = kvhost::newKvFile();
    const auto calls = callsDuring([&] {
      EXPECT_EQ(call("KvfOpen", {file, str("new.gz"), str(mode), OOP_TRUE}), smallInt(1));
    });
    const std::vector<std::string> names = namesOf(calls);
    const auto opening = std::find(names.begin(), names.end(), "gzopen");
    ASSERT_NE(opening, names.end()) << mode;
    ASSERT_NE(opening + 1, names.end()) << mode;
    EXPECT_EQ(*(opening + 1), "gzprintf") << mode << ": directly after the open";
    EXPECT_EQ(std::count(names.begin(), names.end(), "gzprintf"), 1) << mode;
    EXPECT_EQ(std::filesystem::file_size("new.gz"), 0U) << mode;
    EXPECT_EQ(position(file), "0") << mode;
    EXPECT_EQ(call("KvfClose", {file}), file);
    EXPECT_EQ(readGzip("new.gz"), "") << mode;
  }
}

TEST_F(GzipGap, OpeningForReadingPrintsNothing) {
  writeGzip("old.gz", "abc");
  for (const char* mode : {"r", "rb", "r1", "r9"}) {
    const OopType file = kvhost::newKvFile();
    EXPECT_THAT(
        namesOf(callsDuring([&] {
          EXPECT_EQ(call("KvfOpen", {file, str("old.gz"), str(mode), OOP_TRUE}), smallInt(1));
        })),
        ::testing::AllOf(::testing::Contains("gzopen"),
                         ::testing::Not(::testing::Contains("gzprintf"))))
        << mode;
    EXPECT_EQ(readBytes(file, 10), "abc") << mode;
    call("KvfClose", {file});
  }
}

TEST_F(GzipGap, AHandleThatCannotBeHadIsNotPrintedTo) {
  EXPECT_THAT(namesOf(callsDuring([&] {
                EXPECT_EQ(call("KvfOpen",
                               {kvhost::newKvFile(), str("no/such/place.gz"), str("w"), OOP_TRUE}),
                          OOP_NIL);
              })),
              ::testing::Not(::testing::Contains("gzprintf")));
  EXPECT_EQ(errorCode(OOP_NIL), std::to_string(ENOENT));
  takeError(OOP_NIL);
}

TEST_F(GzipGap, FlushesAreOnlyEverFinishing) {
  const auto calls = callsDuring([&] {
    const OopType file = openFile("gap.gz", "w", true);
    seek(file, 100);
    call("KvfFlush", {file});
    write(file, "x");
    call("KvfSync", {file});
    call("KvfClose", {file});
  });
  for (const seam::Call& one : calls) {
    if (one.name == "gzflush") {
      EXPECT_EQ(lastArgumentOf(one), "Z_FINISH");
    }
  }
}

}  // namespace
}  // namespace kvtest
