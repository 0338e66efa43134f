// The scan for an end of line, byte by byte against the rule: at every distance, with every number of
// bytes left, around the steps that it takes several bytes at a time.
#include "support/record_fixture.h"

#include <gmock/gmock.h>

namespace kvtest {
namespace {

class Scanning : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    record_ = openPlainWith("", "r");
    record_->lastOpWasRead = 1;
  }

  // What the rule says: the index of the scan's end, and whether a sequence was found.
  struct End {
    intptr_t index;
    int found;
    bool operator==(const End&) const = default;
  };

  static End byTheRule(const std::string& buffered, intptr_t from, std::string_view eol) {
    const auto size = static_cast<intptr_t>(buffered.size());
    const auto length = static_cast<intptr_t>(eol.size());
    intptr_t at = from;
    while (at < size) {
      if (buffered[static_cast<std::size_t>(at)] != eol[0]) {
        ++at;
      } else if (length == 1) {
        return {at + 1, 1};
      } else if (length > size - at) {
        return {at, 0};
      } else if (buffered.compare(static_cast<std::size_t>(at), eol.size(), eol) == 0) {
        return {at + length, 1};
      } else {
        at += length;
      }
    }
    return {at, 0};
  }

  // The record's scan of these bytes from `from` on. What lies behind them would end a line, if it
  // were looked at.
  End scanned(const std::string& buffered, intptr_t from, std::string_view eol) {
    std::string all = buffered;
    for (std::size_t i = 0; i < 64 + eol.size(); ++i) all += eol[i % eol.size()];
    leaveInBuffer(record_, all);
    record_->readBufSize = static_cast<intptr_t>(buffered.size());
    record_->readBufIdx = from;
    intptr_t next = -1;
    const int found =
        record_->readToEol(asBytes(eol), static_cast<int>(eol.size()), &next, FALSE, "");
    return {next, found};
  }

  void expectByTheRule(const std::string& buffered, intptr_t from, std::string_view eol) {
    const End expected = byTheRule(buffered, from, eol);
    const End found = scanned(buffered, from, eol);
    if (found == expected) return;
    ADD_FAILURE() << buffered.size() - static_cast<std::size_t>(from) << " bytes from " << from
                  << ", a sequence of " << eol.size() << ": ended at " << found.index << " with "
                  << found.found << ", not at " << expected.index << " with " << expected.found;
  }

  KvFileDataSType* record_ = nullptr;
};

TEST_F(Scanning, FindsALineEndAtEveryDistanceWithEveryNumberOfBytesLeft) {
  for (intptr_t left = 1; left <= 200; ++left) {
    for (intptr_t distance = 0; distance < left; ++distance) {
      std::string buffered(static_cast<std::size_t>(left), 'x');
      buffered[static_cast<std::size_t>(distance)] = '\n';
      expectByTheRule(buffered, 0, "\n");
      if (HasFailure()) return;
    }
  }
}

TEST_F(Scanning, FindsTheFirstOfTwoLineEndsInEveryPairOfPlaces) {
  for (const std::size_t left : {64U, 65U, 128U, 130U}) {
    for (std::size_t first = 0; first < left; ++first) {
      for (std::size_t second = first; second < left; ++second) {
        std::string buffered(left, 'x');
        buffered[first] = buffered[second] = '\n';
        expectByTheRule(buffered, 0, "\n");
      }
    }
  }
}

TEST_F(Scanning, FindsNoneWhereThereIsNoneWithEveryNumberOfBytesLeft) {
  for (std::size_t left = 1; left <= 300; ++left) {
    expectByTheRule(std::string(left, 'x'), 0, "\n");
    expectByTheRule(std::string(left, 'x'), 0, "\r\n");
  }
}

TEST_F(Scanning, BeginsAtEveryIndex) {
  for (intptr_t from = 0; from <= 130; ++from) {
    for (intptr_t distance = 40; distance <= 70; ++distance) {
      for (const intptr_t behind : {0, 1, 15, 16, 17, 30}) {
        // A line end before the beginning is none of this scan's.
        std::string buffered(static_cast<std::size_t>(from), '\n');
        buffered += std::string(static_cast<std::size_t>(distance), 'x') + "\n" +
                    std::string(static_cast<std::size_t>(behind), 'y');
        expectByTheRule(buffered, from, "\n");
      }
    }
  }
}

TEST_F(Scanning, FindsLongerSequencesAtEveryDistance) {
  for (const std::string_view eol : {"\r\n", "<->", "abcd", "aab", "=================!"}) {
    for (std::size_t left = eol.size(); left <= 150; ++left) {
      for (std::size_t distance = 0; distance + eol.size() <= left; ++distance) {
        std::string buffered(left, 'x');
        buffered.replace(distance, eol.size(), eol);
        expectByTheRule(buffered, 0, eol);
      }
    }
  }
}

TEST_F(Scanning, SkipsWhatBeginsLikeASequenceAndKeepsWhatIsCut) {
  for (std::size_t left = 1; left <= 140; ++left) {
    for (std::size_t distance = 0; distance < left; ++distance) {
      std::string buffered(left, 'x');
      buffered[distance] = '\r';
      expectByTheRule(buffered, 0, "\r\n");
      buffered[left - 1] = '\n';
      expectByTheRule(buffered, 0, "\r\n");
    }
  }
}

TEST_F(Scanning, TakesEveryByteForWhatItIs) {
  for (int wanted = 0; wanted < 256; ++wanted) {
    const std::string eol(1, static_cast<char>(wanted));
    std::string buffered;
    for (int i = 0; i < 192; ++i) {
      const int other = (wanted + 1 + i % 255) % 256;
      buffered += static_cast<char>(other);
    }
    expectByTheRule(buffered, 0, eol);
    buffered[130] = eol[0];
    expectByTheRule(buffered, 0, eol);
    for (const std::size_t at : {47U, 48U, 55U, 62U, 63U, 64U}) {
      std::string one = buffered;
      one[at] = eol[0];
      expectByTheRule(one, 0, eol);
    }
  }
}

TEST_F(Scanning, AFullBufferIsScannedToItsLastByte) {
  for (std::size_t at = 4000; at < 4096; ++at) {
    std::string buffered(4096, 'x');
    buffered[at] = '\n';
    leaveInBuffer(record_, buffered);
    record_->readBufSize = 4096;
    for (const intptr_t from : {0, 3, 3999, 4000 - 64}) {
      record_->readBufIdx = from;
      intptr_t next = -1;
      EXPECT_EQ(record_->readToEol(asBytes("\n"), 1, &next, FALSE, ""), 1);
      EXPECT_EQ(next, static_cast<intptr_t>(at) + 1) << "from " << from;
    }
  }
}

// ---- the end of a closed gzip record ----

TEST_F(Scanning, AClosedGzipRecordIsAtItsEndWhateverItsBufferHolds) {
  writeGzip("packed.gz", "abcdef");
  KvFileDataSType* record = openGzip("packed.gz", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->kvfClose();
  ASSERT_GT(record->bufBytesAvail(), 0);
  const auto calls = callsDuring([&] {
    EXPECT_TRUE(record->zAtEnd());
    EXPECT_EQ(record->atEnd(), OOP_TRUE);
  });
  EXPECT_THAT(namesOf(calls), ::testing::Not(::testing::Contains("gzgetc")));
}

TEST_F(Scanning, AClosedGzipRecordUsesCompressionWithoutZlibBeingAsked) {
  writeGzip("packed.gz", "abcdef");
  KvFileDataSType* record = openGzip("packed.gz", "r");
  EXPECT_TRUE(record->usingCompression());
  record->kvfClose();
  EXPECT_TRUE(callsDuring([&] { EXPECT_TRUE(record->usingCompression()); }).empty());
}

}  // namespace
}  // namespace kvtest
