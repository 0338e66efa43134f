// A gzip file with a damaged spot: what lies before it is delivered.
#include "losses/gzip_files.h"

namespace kvtest {
namespace {

constexpr std::size_t MOST_LOST = 16384;
constexpr int LINES = 1000000;

class DamagedGzip : public OpenFileTest {
 protected:
  // The file of a million lines, packed once.
  static const std::string& text() {
    static const std::string lines = [] {
      std::string made;
      made.reserve(std::size_t{LINES} * 24);
      unsigned state = 12345;
      for (int i = 0; i < LINES; ++i) {
        state = state * 1664525U + 1013904223U;
        made += "line " + std::to_string(i) + ' ' + std::to_string(state >> 12) + '\n';
      }
      return made;
    }();
    return lines;
  }
  static const std::string& packedText() {
    static const std::string raw = gzipMember(text());
    return raw;
  }

  // Reads lines until there are no more and answers their sum; every one must be complete.
  std::string allLines(OopType file) {
    const OopType into = str("");
    std::string delivered;
    for (;;) {
      const OopType line = getLine(file, into);
      if (line != into) {
        EXPECT_EQ(line, OOP_NIL);
        return delivered;
      }
      delivered += bytes(line);
    }
  }

  // `damage` changes the packed bytes at the spot. Reads all lines, or the last ones before it.
  void expectLinesBefore(std::size_t spot, bool all,
                         const std::function<void(std::string*)>& damage) {
    std::string raw = packedText();
    damage(&raw);
    const std::string before =
        unpackedAsFarAsPossible(std::string_view(packedText()).substr(0, spot));
    ASSERT_EQ(text().compare(0, before.size(), before), 0);
    ASSERT_GT(before.size(), 2 * SHORT_WAY);
    writeFile("damaged.gz", raw);
    const OopType file = openFile("damaged.gz", "r", true);
    const std::size_t start = all ? 0 : text().find('\n', before.size() - SHORT_WAY) + 1;
    EXPECT_EQ(show(seek(file, static_cast<int64>(start))), std::to_string(start));
    const std::string delivered = allLines(file);
    const auto wrong =
        std::mismatch(delivered.begin(), delivered.end(),
                      text().begin() + static_cast<std::ptrdiff_t>(start), text().end());
    const auto right = start + static_cast<std::size_t>(wrong.first - delivered.begin());
    EXPECT_GE(right + MOST_LOST, before.size())
        << "of " << before.size() << " good bytes " << right << " came";
    call("KvfClose", {file});
  }
  static constexpr std::size_t SHORT_WAY = 500000;
};

TEST_F(DamagedGzip, ASoundMillionLinesComeWhole) {
  writeFile("sound.gz", packedText());
  const OopType file = openFile("sound.gz", "r", true);
  const std::string delivered = allLines(file);
  EXPECT_EQ(std::count(delivered.begin(), delivered.end(), '\n'), LINES);
  EXPECT_TRUE(delivered == text());
}

// How much is lost depends on where the spot lies in zlib's buffers, so there are several.
TEST_F(DamagedGzip, DeliversEveryLineUpTo16KilobytesBeforeBytesThatCannotBe) {
  for (std::size_t i = 0; i < 6; ++i) {
    const std::size_t spot = packedText().size() / 2 + i * 9001;
    expectLinesBefore(spot, i == 0,
                      [&](std::string* raw) { raw->replace(spot, 64, std::string(64, '\xff')); });
  }
}

TEST_F(DamagedGzip, DeliversEveryLineUpTo16KilobytesBeforeAHole) {
  for (std::size_t i = 0; i < 6; ++i) {
    const std::size_t spot = packedText().size() / 2 + 12345 + i * 9001;
    expectLinesBefore(spot, i == 0,
                      [&](std::string* raw) { raw->replace(spot, 4096, std::string(4096, '\0')); });
  }
}

TEST_F(DamagedGzip, DeliversEveryLineUpTo16KilobytesBeforeTheCut) {
  const std::size_t spot = packedText().size() / 3;
  expectLinesBefore(spot, true, [&](std::string* raw) { raw->resize(spot); });
}

TEST_F(DamagedGzip, TellsOfTheDamage) {
  std::string raw = gzipMember(linesThatHardlyPack(200000));
  raw.replace(raw.size() / 2, 64, std::string(64, '\xff'));
  writeFile("damaged.gz", raw);
  const OopType file = openFile("damaged.gz", "r", true);
  allLines(file);
  EXPECT_EQ(errorCode(file), "0") << "zlib's own codes are no errno values";
  EXPECT_THAT(takeError(file), ::testing::StartsWith("'damaged.gz: "))
      << "or it is lost what befell the file";
}

TEST_F(DamagedGzip, NoHandleIsGivenBuffersOfAnotherSize) {
  const auto calls = callsDuring([&] {
    const OopType out = openFile("new.gz", "w", true);
    write(out, patternBytes(100000));
    call("KvfFlush", {out});
    call("KvfClose", {out});
    const OopType in = openFile("new.gz", "r", true);
    readBytes(in, 20000);
    getLine(in);
    seek(in, 10);
    call("KvfClose", {in});
  });
  EXPECT_THAT(namesOf(calls), ::testing::AllOf(::testing::Contains("gzread"),
                                               ::testing::Not(::testing::Contains("gzbuffer"))));
}

}  // namespace
}  // namespace kvtest
