// The codec by itself: bytes to decimal text and back, in any pieces.
#include "bytestrings/decimal_text.h"

#include "bytestrings/bytes_fixture.h"

#include <rapidcheck.h>

namespace kvtest {

using namespace kvf;
namespace {

using kvf::DecimalReader;
using Status = DecimalReader::Status;

const uint8_t* bytesOfText(std::string_view text) {
  return static_cast<const uint8_t*>(static_cast<const void*>(text.data()));
}

DecimalReader::Result readText(DecimalReader* reader, std::string_view text, uint8_t* out,
                               size_t capacity) {
  return reader->read(bytesOfText(text), text.size(), out, capacity);
}

// All values of a text, read in pieces of `piece` characters into room for `capacity` values; the
// position behind the last character that was consumed goes to `*consumed`.
std::string readAll(std::string_view text, size_t piece, size_t capacity, size_t* consumed) {
  DecimalReader reader;
  std::string values;
  std::vector<uint8_t> out(capacity);
  *consumed = 0;
  while (*consumed < text.size() && !reader.stopped()) {
    const std::string_view given = text.substr(*consumed, piece);
    const auto result = readText(&reader, given, out.data(), capacity);
    values.append(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(result.produced));
    *consumed += result.consumed;
    EXPECT_EQ(result.status == Status::Stopped, reader.stopped());
    const bool consumedAll = result.consumed == given.size();
    const bool filled = result.produced == capacity;
    EXPECT_TRUE(result.status != Status::NeedsText || consumedAll);
    EXPECT_TRUE(result.status != Status::Full || filled);
    if (result.consumed == 0) {
      ADD_FAILURE() << "no progress at " << *consumed;
      break;
    }
  }
  if (reader.insideValue()) values.push_back(static_cast<char>(reader.endValue()));
  EXPECT_FALSE(reader.insideValue());
  return values;
}

TEST(DecimalField, HasEveryByteWithoutLeadingZeros) {
  for (int value = 0; value < 256; ++value) {
    const kvf::DecimalField& field = kvf::decimalField(static_cast<uint8_t>(value));
    const std::string expected = std::to_string(value) + " ";
    EXPECT_EQ(std::string(field.text, field.length), expected);
    EXPECT_STREQ(field.text, expected.c_str());
  }
}

TEST(PrintDecimal, WritesOneFieldAByteAndStaysInItsRoom) {
  std::string data;
  for (int value = 0; value < 256; ++value) data.push_back(static_cast<char>(value));
  std::string expected = modelPrint(data);
  expected.pop_back();
  std::string text(256 * kvf::DECIMAL_FIELD_MAX + 4 + 8, '#');
  const size_t written = kvf::printDecimal(bytesOfText(data), data.size(), text.data());
  EXPECT_EQ(text.substr(0, written), expected);
  EXPECT_EQ(text.substr(256 * kvf::DECIMAL_FIELD_MAX + 4), "########");
}

TEST(PrintDecimal, WritesNothingForNothing) {
  char text[8] = "";
  EXPECT_EQ(kvf::printDecimal(nullptr, 0, text), 0U);
}

TEST(DecimalCharacters, AreExactlyThese) {
  for (int c = -1; c < 256; ++c) {
    EXPECT_EQ(kvf::isDecimalSeparator(c), c == 32 || c == 9 || c == 10) << c;
    EXPECT_EQ(kvf::isDecimalDigit(c), c >= 48 && c <= 57) << c;
  }
}

TEST(DecimalReading, StoresAValueWhenTheCharacterBehindItWasConsumed) {
  DecimalReader reader;
  uint8_t out[8] = {};
  auto result = readText(&reader, "1 2", out, 8);
  EXPECT_EQ(result.consumed, 3U);
  EXPECT_EQ(result.produced, 1U);
  EXPECT_EQ(result.status, Status::NeedsText);
  EXPECT_EQ(out[0], 1);
  EXPECT_TRUE(reader.insideValue());
  EXPECT_EQ(reader.endValue(), 2);
  EXPECT_FALSE(reader.insideValue());
}

TEST(DecimalReading, LeavesTheTextBehindTheLastValueAskedFor) {
  DecimalReader reader;
  uint8_t out[8] = {};
  const auto result = readText(&reader, "10 20 30 40", out, 2);
  EXPECT_EQ(result.consumed, 6U);
  EXPECT_EQ(result.produced, 2U);
  EXPECT_EQ(result.status, Status::Full);
  EXPECT_EQ(out[1], 20);
  EXPECT_EQ(out[2], 0) << "behind its room";
}

TEST(DecimalReading, StopsAtAForeignCharacterAndConsumesIt) {
  DecimalReader reader;
  uint8_t out[8] = {};
  const auto result = readText(&reader, "1 2x3", out, 8);
  EXPECT_EQ(result.consumed, 4U);
  EXPECT_EQ(result.produced, 2U);
  EXPECT_EQ(result.status, Status::Stopped);
  EXPECT_TRUE(reader.stopped());
  EXPECT_FALSE(reader.insideValue());
}

TEST(DecimalReading, KnowsWhetherTheLastCharacterBeganAValueAsAFifthDigit) {
  struct Row {
    const char* text;
    bool inside, fifth;
  };
  for (const auto& [text, inside, fifth] : std::vector<Row>{{"1234", true, false},
                                                            {"12345", true, true},
                                                            {"123456", true, false},
                                                            {"12345678", true, false},
                                                            {"123456789", true, true},
                                                            {"12345 ", false, false},
                                                            {"1234 5", true, false},
                                                            {"12345 6", true, false}}) {
    DecimalReader reader;
    uint8_t out[8];
    readText(&reader, text, out, 8);
    EXPECT_EQ(reader.insideValue(), inside) << text;
    EXPECT_EQ(reader.insideValueBegunByFifthDigit(), fifth) << text;
  }
}

TEST(DecimalReading, WrapsAndSplitsLongRuns) {
  size_t consumed = 0;
  EXPECT_EQ(readAll("256", 100, 100, &consumed), std::string("\0", 1));
  EXPECT_EQ(readAll("0065", 100, 100, &consumed), "A");
  EXPECT_EQ(readAll("12345", 100, 100, &consumed), std::string("\xD2\x05", 2));
  EXPECT_EQ(readAll("9999", 100, 100, &consumed), std::string("\x0F", 1));
  EXPECT_EQ(readAll("00000000", 100, 100, &consumed), std::string("\0\0", 2));
}

std::string genText() {
  const auto character = rc::gen::weightedOneOf<char>({{20, rc::gen::inRange<char>('0', '9' + 1)},
                                                       {8, rc::gen::element(' ', '\t', '\n')},
                                                       {1, rc::gen::arbitrary<char>()}});
  return *rc::gen::container<std::string>(character);
}

TEST(DecimalReading, DoesNotDependOnThePieces) {
  EXPECT_TRUE(rc::check("pieces of any size give the model's values", [] {
    const std::string text = genText();
    const auto piece = *rc::gen::inRange<size_t>(1, 12);
    const auto capacity = *rc::gen::inRange<size_t>(1, 6);
    ModelFile file{text};
    const std::string expected = modelLoadFile(&file, LOTS);
    size_t consumed = 0;
    RC_ASSERT(readAll(text, piece, capacity, &consumed) == expected);
    RC_ASSERT(consumed == file.position);
  }));
}

TEST(DecimalReading, ReadsBackWhatWasPrinted) {
  EXPECT_TRUE(rc::check("any bytes come back", [](const std::string& data) {
    std::string text(data.size() * kvf::DECIMAL_FIELD_MAX + 4, '\0');
    text.resize(kvf::printDecimal(bytesOfText(data), data.size(), text.data()));
    size_t consumed = 0;
    RC_ASSERT(readAll(text, 7, 5, &consumed) == data);
    RC_ASSERT(consumed == text.size());
  }));
}

}  // namespace
}  // namespace kvtest
