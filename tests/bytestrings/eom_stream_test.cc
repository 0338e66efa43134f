// Reading a byte object through the stream, byte by byte.
#include "bytestrings/eom_stream.h"

#include "bytestrings/bytes_fixture.h"

namespace kvtest {

using namespace kvf;
namespace {

class ByteStream : public BytesTest {
 protected:
  // What the stream over `text` delivers from the 1-based index `start` on.
  std::string delivered(std::string_view text, int64 start) {
    EomStream stream;
    eomReadStreamOpen(kvhost::newByteArray(text), start, &stream);
    std::string found;
    unsigned char c = 0;
    while (eomReadStreamNext(&stream, &c)) found += static_cast<char>(c);
    EXPECT_FALSE(eomReadStreamNext(&stream, &c)) << "the end is for good";
    return found;
  }

  static std::string pattern(size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) text += static_cast<char>(i % 251);
    return text;
  }
};

TEST_F(ByteStream, DeliversEachByteOnceWhateverTheSize) {
  for (const size_t size : {0U, 1U, 2U, 4095U, 4096U, 4097U, 8192U, 10000U})
    EXPECT_TRUE(delivered(pattern(size), 1) == pattern(size)) << size;
}

TEST_F(ByteStream, BeginsAtTheIndex) {
  const std::string text = pattern(5000);
  for (const size_t start : {2U, 904U, 905U, 4097U, 5000U, 5001U})
    EXPECT_TRUE(delivered(text, static_cast<int64>(start)) == text.substr(start - 1)) << start;
  EXPECT_EQ(delivered(text, 9000), "");
}

TEST_F(ByteStream, FetchesAPieceWhenTheOneBeforeIsUsedUp) {
  EomStream stream;
  eomReadStreamOpen(kvhost::newByteArray(pattern(5000)), 1, &stream);
  unsigned char c = 0;
  const auto calls = callsDuring([&] {
    for (int i = 0; i < 4096; ++i) eomReadStreamNext(&stream, &c);
  });
  EXPECT_EQ(fetchesIn(calls), (Ranges{{1, 4096}}));
  const auto further = callsDuring([&] {
    while (eomReadStreamNext(&stream, &c)) continue;
  });
  EXPECT_EQ(fetchesIn(further), (Ranges{{4097, 904}}));
}

}  // namespace
}  // namespace kvtest
