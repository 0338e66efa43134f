// What the tests of the decimal byte text share: a literal model of the two loaders, and ways to
// call them.
#pragma once

#include <kvfile/platform/host.h>

#include "support/module_fixture.h"
#include "support/returning_raise.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

// ---- the model: one character after another, nothing clever ----

inline bool modelSeparator(int c) { return c == 32 || c == 9 || c == 10; }
inline bool modelDigit(int c) { return c >= '0' && c <= '9'; }

// A file of which one character is read at a time; -1 at its end, which is then known.
struct ModelFile {
  std::string_view text;
  size_t position = 0;
  int64_t reads = 0;
  bool atEnd = false;

  int next() {
    ++reads;
    if (position < text.size()) return static_cast<unsigned char>(text[position++]);
    atEnd = true;
    return -1;
  }
};

// What loading from a file stores; `file` is moved on.
inline std::string modelLoadFile(ModelFile* file, int64_t amount) {
  std::string stored;
  int current = ' ';
  while (static_cast<int64_t>(stored.size()) + 1 <= amount && !file->atEnd) {
    while (modelSeparator(current) && !file->atEnd) current = file->next();
    if (!modelDigit(current)) break;
    int value = current - '0';
    for (int i = 1; i <= 4; ++i) {
      current = file->next();
      if (file->atEnd || i == 4 || !modelDigit(current)) break;
      value = value * 10 + (current - '0');
    }
    stored.push_back(static_cast<char>(value & 0xFF));
  }
  return stored;
}

// A byte object that is fetched 4096 bytes at a time. Asking it for bytes in front of its first one
// is an error of the interface; the index 0 means 1.
struct ModelStream {
  static constexpr int64_t buffer_size = 4096;

  std::string_view source;
  int64_t index;  // 0-based
  int64_t next = 0;
  int64_t valid = 0;
  std::array<char, buffer_size> buffer{};

  int64_t size() const { return static_cast<int64_t>(source.size()); }

  // False at the end, or for an error of the interface.
  bool take(int* c) {
    if (next == valid) {
      if (index >= size() || !fetch()) return false;
    }
    *c = static_cast<unsigned char>(buffer[static_cast<size_t>(next++)]);
    ++index;
    return true;
  }

 private:
  bool fetch() {
    if (index + 1 < 0) return false;
    const int64_t from = std::max<int64_t>(index, 0);
    valid = std::min(size() - index, buffer_size);
    next = 0;
    source.copy(buffer.data(), static_cast<size_t>(valid), static_cast<size_t>(from));
    return true;
  }
};

struct ModelLoad {
  std::optional<int64_t> answer;  // none: nil
  std::string stored;  // what was gathered; of a nil answer only whole buffers are stored
};

// What loading from a byte object stores and answers. `start` is above INT64_MIN.
inline ModelLoad modelLoadObject(std::string_view source, int64_t start, int64_t amount) {
  ModelStream stream{source, start - 1};
  ModelLoad load;
  int64_t index = start;
  int current = ' ';
  while (static_cast<int64_t>(load.stored.size()) + 1 <= amount && index <= stream.size()) {
    while (modelSeparator(current)) {
      if (!stream.take(&current)) return load;
      index += 1;
      if (index > stream.size()) break;
    }
    if (!modelDigit(current)) break;
    const int64_t limit = index + 4;
    int value = 0;
    for (;;) {
      value = value * 10 + (current - '0');
      if (index > stream.size()) {
        index += 1;
        break;
      }
      if (!stream.take(&current)) return load;
      index += 1;
      if (index == limit || !modelDigit(current)) break;
    }
    load.stored.push_back(static_cast<char>(value & 0xFF));
  }
  load.answer = index;
  return load;
}

// The decimal byte text of some bytes.
inline std::string modelPrint(std::string_view data) {
  std::string text;
  size_t column = 0;
  for (const char c : data) {
    if (column == 1024) {
      text += '\n';
      column = 0;
    }
    text += std::to_string(static_cast<unsigned char>(c)) + ' ';
    ++column;
  }
  return text + '\n';
}

// ---- the fixture ----

inline constexpr int64_t LOTS = int64_t{1} << 40;

class BytesTest : public ModuleTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(raisesThatWillReturn(), 0) << "a raise was expected";
    letRaisesReturn(0);
    ModuleTest::TearDown();
  }

  static OopType emptyTarget() { return kvhost::newByteArray(""); }

  OopType openText(std::string_view text, bool compressed = false) {
    if (compressed) {
      writeGzip("text.gz", text);
      return openFile("text.gz", "r", true);
    }
    writeFile("text", text);
    return openFile("text", "r");
  }

  OopType loadFile(OopType file, OopType target, int64_t amount) {
    return call("KvfLoadByteStrings", {file, target, kvhost::newInteger(amount)});
  }
  OopType loadObject(OopType target, int64_t amount, OopType source, int64_t start) {
    return call("KvfPassiveObjLoadByteStrings",
                {target, kvhost::newInteger(amount), source, kvhost::newInteger(start)});
  }
  OopType print(OopType object) { return call("KvfPassiveObjPrint", {object}); }

  // The code and text that the file's record holds; reading them clears both.
  std::pair<int64, std::string> takeRecordError(OopType file) {
    const int64 code = oopSmallIntegerValue(call("KvfErrorCode", {file}));
    const OopType text = call("KvfErrorString", {file});
    return {code, text == OOP_NIL ? "" : bytes(text)};
  }

  // Every registered error-jump frame was removed, and before anything was raised.
  static void expectFramesPopped(const std::vector<seam::Call>& calls, int64_t frames = 1) {
    EXPECT_EQ(countOf(calls, "KciPushErrJump"), frames);
    int64_t depth = 0;
    for (const seam::Call& made : calls) {
      if (made.name == "KciPushErrJump") ++depth;
      if (made.name == "KciPopErrJump") --depth;
      if (made.name == "KciRaiseException") {
        EXPECT_EQ(depth, 0) << "raised within a frame";
      }
    }
    EXPECT_EQ(depth, 0);
  }

  // First index and count of each store and of each fetch of bytes, in order.
  static std::vector<std::pair<int64_t, int64_t>> storesIn(const std::vector<seam::Call>& calls) {
    return rangesIn(callsOf(calls, "KciStoreBytesInstanceOf"), 2);
  }
  static std::vector<std::pair<int64_t, int64_t>> fetchesIn(const std::vector<seam::Call>& calls) {
    return rangesIn(callsOf(calls, "KciFetchBytes_"), 1);
  }

 private:
  // From the argument at `first` and the last one.
  static std::vector<std::pair<int64_t, int64_t>> rangesIn(const std::vector<seam::Call>& calls,
                                                           size_t first) {
    std::vector<std::pair<int64_t, int64_t>> ranges;
    for (const seam::Call& made : calls)
      ranges.emplace_back(std::stoll(argumentOf(made, first)), std::stoll(lastArgumentOf(made)));
    return ranges;
  }
};

using Ranges = std::vector<std::pair<int64_t, int64_t>>;

}  // namespace kvtest
