// End-of-line sequences dragged over every byte of a read buffer of 16 bytes.
#include "support/record_fixture.h"
#include "support/standard_streams.h"

#include <random>

namespace kvtest {
namespace {

static_assert(read_buf_size == 16, "these cases are about a small buffer");

class LineEnds : public RecordTest {
 protected:
  // One line, fetched as the line action does: scans until a sequence is found or nothing more
  // comes.
  static std::string nextLine(KvFileDataSType* record, std::string_view eol) {
    std::string line;
    bool eofIsError = true;
    for (;;) {
      intptr_t next = 0;
      const int found =
          record->readToEol(asBytes(eol), static_cast<int>(eol.size()), &next, eofIsError, "");
      if (found < 0) return line;
      const std::string part = take(record, next - record->readBufIdx);
      line += part;
      if (found == 1 || part.empty()) return line;
      eofIsError = false;
    }
  }

  // The end of the line that starts at `start`, by the rule of the scan alone: a failed comparison
  // skips the length of the sequence, and a sequence cut by the end of the text is not delivered.
  static size_t lineEnd(const std::string& text, size_t start, const std::string& eol) {
    for (size_t at = start; at < text.size();) {
      if (text[at] != eol[0]) {
        ++at;
      } else if (text.size() - at < eol.size()) {
        return at;
      } else if (text.compare(at, eol.size(), eol) == 0) {
        return at + eol.size();
      } else {
        at += eol.size();
      }
    }
    return text.size();
  }

  // Reads every line of the record, compares it with the rule, and closes the record.
  static void expectLines(KvFileDataSType* record, const std::string& text,
                          const std::string& eol) {
    for (size_t at = 0;;) {
      const size_t end = lineEnd(text, at, eol);
      const std::string line = nextLine(record, eol);
      ASSERT_EQ(line, text.substr(at, end - at)) << "line at " << at;
      ASSERT_EQ(record->readPosition(), static_cast<int64>(end));
      if (line.empty()) break;
      at = end;
    }
    record->kvfClose();
  }

  static const std::string& sequence(size_t length) {
    static const std::string sequences[] = {"", "\n", "\r\n", "<->", "abcd", "12345"};
    return sequences[length];
  }
};

TEST_F(LineEnds, SequencesOf1To5BytesAtEveryOffset) {
  for (size_t length = 1; length <= 5; ++length) {
    for (size_t before = 0; before <= 40; ++before) {
      for (const size_t behind : {0U, 1U, 15U, 16U, 17U}) {
        const std::string& eol = sequence(length);
        const std::string text = std::string(before, '.') + eol + std::string(behind, '_');
        SCOPED_TRACE(text);
        expectLines(openPlainWith(text, "r"), text, eol);
      }
    }
  }
}

TEST_F(LineEnds, TwoSequencesAtEveryDistance) {
  for (size_t length = 1; length <= 5; ++length) {
    for (size_t before = 0; before <= 17; ++before) {
      for (size_t between = 0; between <= 17; ++between) {
        const std::string& eol = sequence(length);
        std::string text(before, '.');
        text.append(eol).append(between, '_').append(eol).append(".");
        SCOPED_TRACE(text);
        expectLines(openPlainWith(text, "r"), text, eol);
      }
    }
  }
}

TEST_F(LineEnds, ReadsOfEveryShortnessThatHoldsASequence) {
  for (int64_t atMost = 1; atMost <= 16; ++atMost) {
    for (size_t length = 1; length <= 5 && static_cast<int64_t>(length) <= atMost; ++length) {
      const std::string& eol = sequence(length);
      std::string text;
      for (size_t gap = 0; gap <= 18; ++gap) text += std::string(gap, '.') + eol;
      KvFileDataSType* record = openPlainWith(text, "r");
      seam::clearFaults();
      fault("HostReadFile_:1+:short=" + std::to_string(atMost));
      SCOPED_TRACE(atMost);
      expectLines(record, text, eol);
    }
  }
}

TEST_F(LineEnds, AReadThatBringsOnlyAPieceOfASequenceEndsTheScan) {
  KvFileDataSType* record = openPlainWith("\r\nab\r\n", "r");
  fault("HostReadFile_:1+:short=1");
  EXPECT_EQ(nextLine(record, "\r\n"), "") << "one read a scan, and it brought nothing certain";
  EXPECT_EQ(nextLine(record, "\r\n"), "\r\n");
  EXPECT_EQ(nextLine(record, "\r\n"), "ab");
  EXPECT_EQ(nextLine(record, "\r\n"), "\r\n");
}

TEST_F(LineEnds, OfGzipFiles) {
  for (size_t length = 1; length <= 5; ++length) {
    const std::string& eol = sequence(length);
    std::string text;
    for (size_t gap = 0; gap <= 34; ++gap) text += std::string(gap, '.') + eol;
    writeGzip("packed", text);
    expectLines(openGzip("packed", "rb"), text, eol);
  }
}

TEST_F(LineEnds, EveryCutSequenceStaysInTheBuffer) {
  for (size_t length = 2; length <= 5; ++length) {
    for (size_t before = 0; before <= 33; ++before) {
      for (size_t kept = 1; kept < length; ++kept) {
        const std::string& eol = sequence(length);
        const std::string text = std::string(before, '.') + eol.substr(0, kept);
        KvFileDataSType* record = openPlainWith(text, "r");
        EXPECT_EQ(nextLine(record, eol), std::string(before, '.'));
        EXPECT_EQ(nextLine(record, eol), "");
        EXPECT_EQ(positionsOf(record),
                  (Positions{static_cast<int64>(before), static_cast<int64>(text.size()),
                             static_cast<intptr_t>(kept)}));
        record->kvfClose();
      }
    }
  }
}

TEST_F(LineEnds, RandomTextsAndSequencesFromOneAlphabet) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto letters = [&](size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) text += static_cast<char>('a' + random() % 3);
    return text;
  };
  for (int round = 0; round < 1500; ++round) {
    const std::string eol = letters(1 + random() % 5);
    const std::string text = letters(random() % 80);
    SCOPED_TRACE(::testing::Message() << "eol " << eol << ", text " << text);
    KvFileDataSType* record = openPlainWith(text, "r");
    seam::clearFaults();
    const auto atMost = static_cast<int64_t>(eol.size() + random() % 12);
    if (random() % 2) fault("HostReadFile_:1+:short=" + std::to_string(atMost));
    expectLines(record, text, eol);
    if (HasFatalFailure()) return;
  }
}

TEST_F(LineEnds, StandardInputLinesAroundTheBufferSize) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string first = std::string(length, '.') + "\n";
    const std::string text = first + std::string(20, '_') + "\nlast";
    const StandardInputFrom input(text);
    KvFileDataSType* record = adopt(stdin, nullptr, true, "r");
    EXPECT_EQ(nextLine(record, "\n"), first);
    EXPECT_EQ(nextLine(record, "\n"), std::string(20, '_') + "\n");
    EXPECT_EQ(nextLine(record, "\n"), "last");
  }
}

TEST_F(LineEnds, StandardInputSizesFollowTheBuffer) {
  struct Case {
    ssize_t wanted;
    const char* size;
  };
  for (const Case& each : {Case{1, "3"}, Case{12, "14"}, Case{13, "15"}, Case{14, "16"},
                           Case{15, "16"}, Case{16, "16"}}) {
    const StandardInputFrom input("x\n");
    KvFileDataSType* record = adopt(stdin, nullptr, true, "r");
    std::string size;
    for (const seam::Call& call : callsDuring([&] { record->readIntoBuffer(each.wanted, ""); }))
      if (call.name == "UnixIoFgets_") size = argumentOf(call, 1);
    EXPECT_EQ(size, each.size) << each.wanted;
  }
}

TEST_F(LineEnds, AStandardInputLineMayFillTheSpareBytes) {
  const StandardInputFrom input("ab\n" + std::string(30, 'x') + "\n");
  KvFileDataSType* record = adopt(stdin, nullptr, true, "r");
  EXPECT_EQ(record->readIntoBuffer(16, ""), 3);
  EXPECT_EQ(record->readIntoBuffer(16, ""), 17);
  EXPECT_EQ(record->readBuffer[17], 0);
  EXPECT_EQ(take(record, 99), "ab\n" + std::string(14, 'x'));
}

}  // namespace
}  // namespace kvtest
