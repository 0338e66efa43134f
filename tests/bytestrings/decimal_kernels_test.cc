// Every kernel against the scalar code, and the scalar code against the literal model: with each
// thing that matters at each place of a block, and memory that must not be touched all around.
#include "bytestrings/decimal_kernels.h"

#include "bytestrings/bytes_fixture.h"
#include "bytestrings/decimal_text.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

using namespace kvf;
namespace {

const uint8_t* bytesOf(std::string_view text) {
  return static_cast<const uint8_t*>(static_cast<const void*>(text.data()));
}

// Memory between two pages that cannot be touched. What is taken of it lies at its very beginning
// or its very end, so that no byte before or behind it can be touched either.
class GuardedMemory {
 public:
  explicit GuardedMemory(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    inner_ = (size + page - 1) / page * page;
    whole_ = inner_ + 2 * page;
    void* mapped =
        mmap(nullptr, whole_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    base_ = static_cast<uint8_t*>(mapped);
    begin_ = base_ + page;
    mprotect(base_, page, PROT_NONE);
    mprotect(begin_ + inner_, page, PROT_NONE);
  }
  ~GuardedMemory() { munmap(base_, whole_); }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  uint8_t* first(size_t) { return begin_; }
  uint8_t* last(size_t size) { return begin_ + inner_ - size; }
  uint8_t* place(bool atEnd, size_t size) { return atEnd ? last(size) : first(size); }

 private:
  uint8_t* base_ = nullptr;
  uint8_t* begin_ = nullptr;
  size_t inner_ = 0;
  size_t whole_ = 0;
};

// All that reading a text tells.
struct Outcome {
  std::string values;
  size_t consumed = 0;
  DecimalReader::Status status = DecimalReader::Status::NeedsText;
  bool inside = false;
  bool byFifthDigit = false;
  int pending = -1;  // the byte of the value that was begun

  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.values.size() << " values (" << testing::PrintToString(outcome.values) << "), "
       << outcome.consumed << " consumed, status " << static_cast<int>(outcome.status)
       << ", pending " << outcome.pending << (outcome.byFifthDigit ? " by a fifth digit" : "");
}

void addPending(DecimalReader* reader, Outcome* outcome) {
  outcome->inside = reader->insideValue();
  outcome->byFifthDigit = reader->insideValueBegunByFifthDigit();
  if (outcome->inside) outcome->pending = reader->endValue();
}

Outcome readWith(const DecimalKernel* kernel, std::string_view text, size_t capacity) {
  DecimalReader reader;
  capacity = std::min(capacity, text.size() + DECIMAL_BLOCK_ROOM);
  std::vector<uint8_t> out(capacity + 1, 0xEE);
  const auto result = reader.read(bytesOf(text), text.size(), out.data(), capacity, kernel);
  EXPECT_EQ(out[capacity], 0xEE) << "behind its room";
  Outcome outcome;
  outcome.values.assign(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(result.produced));
  outcome.consumed = result.consumed;
  outcome.status = result.status;
  addPending(&reader, &outcome);
  return outcome;
}

// Where the text stops being ordinary: at a foreign character, or at the fifth digit of a run.
size_t ordinaryLength(std::string_view text) {
  size_t run = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    run = isDecimalDigit(static_cast<uint8_t>(text[i])) ? run + 1 : 0;
    if (run == 5 || (run == 0 && !isDecimalSeparator(static_cast<uint8_t>(text[i])))) return i;
  }
  return text.size();
}

// Values of one to four digits with one separator each, rarely more.
std::string ordinaryText(std::mt19937* random, size_t length) {
  std::string text;
  while (text.size() < length) {
    const auto value = (*random)() % ((*random)() % 4 == 0 ? 10000 : 256);
    text += std::to_string(value);
    do {
      text += " \t\n"[(*random)() % 3];
    } while ((*random)() % 8 == 0);
  }
  text.resize(length);
  return text;
}

constexpr size_t LOTS_OF_ROOM = 50000;

class DecimalKernels : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    for (const DecimalKernel& usable : usableKernels()) {
      if (std::string_view(usable.name) == GetParam()) kernel_ = &usable;
    }
    if (kernel_ == nullptr && std::string_view(GetParam()) != "none") {
      GTEST_SKIP() << "this processor cannot run " << GetParam();
    }
  }

  void expectSame(std::string_view text, size_t capacity = LOTS_OF_ROOM) const {
    const Outcome expected = readWith(nullptr, text, capacity);
    ASSERT_EQ(readWith(kernel_, text, capacity), expected)
        << "room " << capacity << ", text " << testing::PrintToString(text);
  }

  // The kernel's own contract, with text and room at both ends of guarded memory.
  void expectContract(std::string_view text, size_t capacity = 200) {
    const size_t ordinary = ordinaryLength(text);
    for (const bool atEnd : {false, true}) {
      uint8_t* given = textMemory_.place(atEnd, text.size());
      memcpy(given, text.data(), text.size());
      uint8_t* out = outMemory_.place(atEnd, capacity);
      const DecimalProgress done = kernel_->parse(given, text.size(), out, capacity);
      SCOPED_TRACE(testing::PrintToString(text));
      const bool mustDo = ordinary >= 64 && capacity >= DECIMAL_BLOCK_ROOM;
      ASSERT_EQ(done.consumed > 0, mustDo);
      ASSERT_LE(done.consumed, ordinary);
      if (done.consumed == 0) {
        ASSERT_EQ(done.produced, 0U);
        continue;
      }
      ASSERT_TRUE(isDecimalSeparator(given[done.consumed - 1]));
      ASSERT_LT(done.produced, capacity);
      const Outcome scalar = readWith(nullptr, text.substr(0, done.consumed), LOTS_OF_ROOM);
      ASSERT_EQ(std::string(out, out + done.produced), scalar.values);
      // It ended for a reason.
      const bool textLeft = ordinary >= done.consumed + 64 + 4;
      const bool roomLeft = capacity - done.produced >= DECIMAL_BLOCK_ROOM;
      ASSERT_FALSE(textLeft && roomLeft) << done.consumed;
    }
  }

  const DecimalKernel* kernel_ = nullptr;
  GuardedMemory textMemory_{8192};
  GuardedMemory outMemory_{8192};
};

INSTANTIATE_TEST_SUITE_P(All, DecimalKernels, testing::Values("none", "avx2", "vbmi2"),
                         [](const auto& row) { return row.param; });

// ---- which there are ----

TEST(UsableKernels, AreThoseThatTheProcessorHasTheInstructionsFor) {
  std::ifstream in("/proc/cpuinfo");
  const std::string info{std::istreambuf_iterator<char>(in), {}};
  std::vector<std::string> expected;
#if defined(__x86_64__)
  const auto has = [&](const char* flag) {
    return info.find(' ' + std::string(flag) + ' ') != std::string::npos;
  };
  if (has("avx512_vbmi2") && has("avx512vbmi") && has("avx512bw") && has("avx512vl")) {
    expected.emplace_back("vbmi2");
  }
  if (has("avx2") && has("popcnt")) expected.emplace_back("avx2");
#endif
  std::vector<std::string> names;
  for (const DecimalKernel& kernel : usableKernels()) names.emplace_back(kernel.name);
  EXPECT_EQ(names, expected);
}

TEST(UsableKernels, BeginWithTheFastest) {
  const DecimalKernel* fastest = fastestKernel();
  EXPECT_EQ(fastest, usableKernels().empty() ? nullptr : &usableKernels().front());
}

// ---- parsing ----

TEST_P(DecimalKernels, ReadAllShortPatternsAtAllPlacesOfABlock) {
  constexpr std::string_view letters = "7 9x";
  constexpr size_t length = 6;
  for (const std::string_view filler : {" ", "255 ", "1\n", "9999\t"}) {
    std::string around;
    while (around.size() < 200) around += filler;
    for (size_t number = 0; number < 4096; ++number) {
      std::string pattern;
      for (size_t i = 0; i < length; ++i) pattern += letters[number >> 2 * i & 3];
      // All places in the first patterns, one that changes in the others.
      const size_t step = number % 64 == 0 ? 1 : 71;
      for (size_t at = number % step; at < 140; at += step) {
        std::string text = around;
        text.replace(at, length, pattern);
        expectSame(text);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(DecimalKernels, ReadAllRunsOfDigitsAndSeparatorsAcrossAllPlaces) {
  for (size_t digits = 1; digits <= 12; ++digits) {
    for (size_t separators = 0; separators <= 70; ++separators) {
      const std::string run =
          std::string("98765432109876").substr(0, digits) + std::string(separators, '\n');
      for (size_t at = 0; at < 68; ++at) {
        std::string text;
        while (text.size() < at) text += "7 ";
        text.resize(at);
        text += run + "12 345 6 7 " + run + "8";
        text += " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29";
        expectSame(text);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(DecimalKernels, ReadEveryValueOfUpToFourDigits) {
  for (const char* format : {"%u ", "%02u\n", "%03u\t", "%04u "}) {
    std::string text;
    for (unsigned value = 0; value < 10000; ++value) {
      char field[16];
      text.append(field, static_cast<size_t>(snprintf(field, sizeof field, format, value)));
    }
    const Outcome outcome = readWith(kernel_, text, LOTS_OF_ROOM);
    ASSERT_EQ(outcome.values.size(), 10000U);
    for (size_t value = 0; value < 10000; ++value) {
      ASSERT_EQ(static_cast<uint8_t>(outcome.values[value]), value & 0xFF) << format;
    }
    ASSERT_EQ(outcome.consumed, text.size());
  }
}

TEST_P(DecimalKernels, StopAtEveryForeignCharacterAtEveryPlace) {
  std::mt19937 random(1);
  const std::string text = ordinaryText(&random, 200);
  for (size_t at = 0; at < 132; ++at) {
    for (int c = 0; c < 256; ++c) {
      std::string changed = text;
      changed[at] = static_cast<char>(c);
      expectSame(changed);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(DecimalKernels, ReadWhatEndsAtEveryLengthIntoEveryRoom) {
  std::mt19937 random(2);
  std::string dense;
  while (dense.size() < 300) dense += "1 2\n3\t";
  for (const std::string& text : {dense, ordinaryText(&random, 300)}) {
    for (size_t length = 0; length <= 200; ++length) {
      for (size_t capacity = 1; capacity <= 110; ++capacity) {
        expectSame(text.substr(0, length), capacity);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(DecimalKernels, ReadTextCutAnywhereAsIfItWereWhole) {
  std::mt19937 random(3);
  for (int round = 0; round < 20; ++round) {
    std::string text = ordinaryText(&random, 330);
    if (round % 3 == 1) text.replace(random() % 300, 7, "1234567");
    if (round % 3 == 2) text[random() % 330] = '\r';
    const Outcome whole = readWith(nullptr, text, LOTS_OF_ROOM);
    for (size_t cut = 0; cut <= text.size(); ++cut) {
      DecimalReader reader;
      std::vector<uint8_t> out(text.size() + DECIMAL_BLOCK_ROOM);
      const auto front = reader.read(bytesOf(text), cut, out.data(), out.size(), kernel_);
      const auto back = reader.read(bytesOf(text) + front.consumed, text.size() - front.consumed,
                                    &out[front.produced], out.size() - front.produced, kernel_);
      Outcome outcome;
      const auto produced = static_cast<std::ptrdiff_t>(front.produced + back.produced);
      outcome.values.assign(out.begin(), out.begin() + produced);
      outcome.consumed = front.consumed + back.consumed;
      outcome.status = back.status;
      addPending(&reader, &outcome);
      ASSERT_EQ(outcome, whole) << "cut at " << cut << ": " << text;
    }
  }
}

TEST_P(DecimalKernels, ReadLongRandomTextsAsTheModelDoes) {
  std::mt19937 random(4);
  for (int round = 0; round < 400; ++round) {
    std::string text = ordinaryText(&random, random() % 6000);
    for (unsigned disturbances = random() % 4; !text.empty() && disturbances > 0; --disturbances) {
      const size_t at = random() % text.size();
      if (random() % 2 == 0) text.replace(at, 5, "40961");
      if (random() % 16 == 0) text[at] = static_cast<char>(random());
    }
    ModelFile file{text};
    const std::string expected = modelLoadFile(&file, LOTS);
    Outcome outcome = readWith(kernel_, text, LOTS_OF_ROOM);
    ASSERT_EQ(outcome.consumed, file.position) << round;
    if (outcome.inside) outcome.values.push_back(static_cast<char>(outcome.pending));
    ASSERT_EQ(outcome.values, expected) << round;
  }
}

TEST_P(DecimalKernels, ReadAtEveryAlignmentToEveryAlignment) {
  std::mt19937 random(5);
  const std::string text = ordinaryText(&random, 700);
  const Outcome expected = readWith(nullptr, text, LOTS_OF_ROOM);
  alignas(64) char from[64 + 700];
  alignas(64) uint8_t to[64 + 700];
  for (size_t align = 0; align < 64; ++align) {
    for (const size_t outAlign : {align, 63 - align, size_t{0}}) {
      memcpy(from + align, text.data(), text.size());
      DecimalReader reader;
      const auto result = reader.read(bytesOf({from + align, text.size()}), text.size(),
                                      to + outAlign, 700, kernel_);
      ASSERT_EQ(std::string(to + outAlign, to + outAlign + result.produced), expected.values);
      ASSERT_EQ(result.consumed, expected.consumed);
    }
  }
}

// ---- the kernels' own contract ----

class DecimalKernelContract : public DecimalKernels {};
INSTANTIATE_TEST_SUITE_P(All, DecimalKernelContract, testing::Values("avx2", "vbmi2"),
                         [](const auto& row) { return row.param; });

TEST_P(DecimalKernelContract, TakesAnythingOrdinaryOf64CharactersAndNothingShorter) {
  std::mt19937 random(6);
  for (size_t length = 0; length <= 330; ++length) {
    expectContract(ordinaryText(&random, length));
    expectContract(std::string(length, ' '));
    expectContract(std::string(length, '5'));
    if (HasFatalFailure()) return;
  }
}

TEST_P(DecimalKernelContract, KeepsToTheRoomAndLeavesSomeOfIt) {
  std::string dense;
  while (dense.size() < 400) dense += "8 ";
  for (const size_t shift : {0U, 1U}) {
    for (size_t length = 60; length <= 330; ++length) {
      for (size_t capacity = 0; capacity <= 140; ++capacity) {
        expectContract(dense.substr(shift, length), capacity);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(DecimalKernelContract, EndsInFrontOfWhatIsNotOrdinary) {
  const std::vector<std::string> strangers = {"x",
                                              "\r",
                                              "\x80",
                                              "\xFF",
                                              "/",
                                              ":",
                                              "12345",
                                              "000000",
                                              "1234 ",
                                              "    ",
                                              std::string(1, '\0')};
  std::mt19937 random(7);
  const std::string text = ordinaryText(&random, 330);
  for (size_t at = 0; at <= 260; ++at) {
    for (const std::string& strange : strangers) {
      expectContract(std::string(text).replace(at, strange.size(), strange));
      if (HasFatalFailure()) return;
    }
  }
}

// ---- printing ----

TEST_P(DecimalKernels, PrintEveryByteAtEveryPlaceOfABlock) {
  std::string data;
  for (size_t i = 0; i < 64; ++i) data += static_cast<char>(i * 37);
  for (size_t at = 0; at < 64; ++at) {
    for (int value = 0; value < 256; ++value) {
      std::string changed = data;
      changed[at] = static_cast<char>(value);
      char text[64 * DECIMAL_FIELD_MAX + 4];
      const size_t length = printDecimal(bytesOf(changed), 64, text, kernel_);
      const std::string expected = modelPrint(changed);
      ASSERT_EQ(std::string(text, length) + '\n', expected) << at << ' ' << value;
    }
  }
}

TEST_P(DecimalKernels, PrintAnyNumberOfBytesWithinTheRoom) {
  std::mt19937 random(8);
  std::string data;
  for (size_t i = 0; i < 400; ++i) data += static_cast<char>(random());
  for (const std::string& some : {data, std::string(400, '\xFF'), std::string(400, '\0')}) {
    for (size_t count = 0; count <= some.size(); ++count) {
      const std::string_view given = std::string_view(some).substr(0, count);
      for (const bool atEnd : {false, true}) {
        uint8_t* from = textMemory_.place(atEnd, count);
        memcpy(from, given.data(), count);
        const size_t room = count * DECIMAL_FIELD_MAX + 4;
        uint8_t* to = outMemory_.place(atEnd, room);
        const size_t length =
            printDecimal(from, count, static_cast<char*>(static_cast<void*>(to)), kernel_);
        ASSERT_EQ(std::string(to, to + length) + '\n', modelPrint(given)) << count;
      }
    }
  }
}

TEST_P(DecimalKernels, PrintFromEveryAlignmentToEveryAlignment) {
  std::mt19937 random(9);
  alignas(64) char data[64 + 200];
  alignas(64) char text[64 + 200 * DECIMAL_FIELD_MAX + 4];
  for (char& byte : data) byte = static_cast<char>(random());
  for (size_t align = 0; align < 64; ++align) {
    for (const size_t outAlign : {align, 63 - align, size_t{0}}) {
      const std::string_view given(data + align, 200);
      const size_t length = printDecimal(bytesOf(given), given.size(), text + outAlign, kernel_);
      ASSERT_EQ(std::string(text + outAlign, length) + '\n', modelPrint(given)) << align;
    }
  }
}

TEST_P(DecimalKernelContract, PrintsIntoFourCharactersAByteAndNoMore) {
  std::mt19937 random(10);
  for (size_t count = 0; count <= 1024; count += 64) {
    std::string data;
    for (size_t i = 0; i < count; ++i)
      data += static_cast<char>(random() % 3 == 0 ? 255 : random());
    for (const bool atEnd : {false, true}) {
      uint8_t* from = textMemory_.place(atEnd, count);
      memcpy(from, data.data(), count);
      uint8_t* to = outMemory_.place(atEnd, count * DECIMAL_FIELD_MAX);
      const size_t length = kernel_->print(from, count, static_cast<char*>(static_cast<void*>(to)));
      std::string expected;
      for (const char byte : data) expected += std::to_string(static_cast<uint8_t>(byte)) + ' ';
      ASSERT_EQ(std::string(to, to + length), expected) << count;
    }
  }
}

}  // namespace
}  // namespace kvtest
