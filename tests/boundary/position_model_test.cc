// Random sequences of operations against a model that is a text and a position. Failing sequences
// are shrunk and told with the seed that repeats them.
#include "support/record_fixture.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>

namespace kvtest {
namespace {

static_assert(read_buf_size == 16, "these cases are about a small buffer");

enum class Kind {
  Read,
  ReadByte,
  ReadLine,
  ReadDirectly,
  AtEnd,
  SeekStart,
  SeekCurrent,
  SeekEnd,
  Write,
  WriteByte,
  Flush
};
constexpr std::array<const char*, 11> KIND_NAMES = {
    "Read",        "ReadByte", "ReadLine", "ReadDirectly", "AtEnd", "SeekStart",
    "SeekCurrent", "SeekEnd",  "Write",    "WriteByte",    "Flush"};

struct Step {
  Kind kind = Kind::Read;
  int64 amount = 0;
};

void showValue(const Step& step, std::ostream& out) {
  out << KIND_NAMES[static_cast<size_t>(step.kind)] << ' ' << step.amount;
}

rc::Gen<std::vector<Step>> stepsOf(const std::vector<Kind>& kinds) {
  return rc::gen::scale(2.0, rc::gen::container<std::vector<Step>>(rc::gen::build<Step>(
                                 rc::gen::set(&Step::kind, rc::gen::elementOf(kinds)),
                                 rc::gen::set(&Step::amount, rc::gen::inRange<int64>(-40, 60)))));
}

rc::Gen<std::string> textOfLines() {
  return rc::gen::scale(1.5, rc::gen::container<std::string>(rc::gen::element('a', 'b', '\n')));
}

// The file as it has to be.
class Model {
 public:
  Model(std::string content, bool appends) : content_(std::move(content)), appends_(appends) {}

  const std::string& content() const { return content_; }
  int64 position() const { return position_; }
  int64 size() const { return static_cast<int64>(content_.size()); }
  bool atEnd() const { return position_ >= size(); }

  std::string read(int64 count) {
    const int64 got = std::clamp<int64>(size() - position_, 0, std::max<int64>(count, 0));
    std::string bytes = got > 0 ? content_.substr(index(), static_cast<size_t>(got)) : "";
    position_ += got;
    return bytes;
  }

  std::string readLine() {
    if (atEnd()) return "";
    const size_t newline = content_.find('\n', index());
    return read(newline == std::string::npos ? size()
                                             : static_cast<int64>(newline) + 1 - position_);
  }

  void write(const std::string& bytes) {
    if (appends_) position_ = size();
    if (content_.size() < index() + bytes.size()) content_.resize(index() + bytes.size(), '\0');
    content_.replace(index(), bytes.size(), bytes);
    position_ += static_cast<int64>(bytes.size());
  }

  void seek(int64 position) { position_ = position; }

 private:
  size_t index() const { return static_cast<size_t>(position_); }

  std::string content_;
  bool appends_;
  int64 position_ = 0;
};

class PositionModel : public RecordTest {
 protected:
  // Random steps may make no call that a fault could befall.
  void TearDown() override {
    seam::clearFaults();
    RecordTest::TearDown();
  }

  // Applies a step to the record and the model; both must agree.
  static void apply(const Step& step, KvFileDataSType* record, Model* model) {
    switch (step.kind) {
      case Kind::Read:
        return RC_ASSERT(readAll(record, step.amount) == model->read(step.amount));
      case Kind::ReadByte:
        return RC_ASSERT(readAll(record, 1) == model->read(1));
      case Kind::ReadLine:
        return RC_ASSERT(readLine(record) == model->readLine());
      case Kind::ReadDirectly:
        return readDirectly(step.amount, record, model);
      case Kind::AtEnd:
        return askForEnd(record, *model);
      case Kind::Write:
        return writeBoth(std::string(static_cast<size_t>(std::max<int64>(step.amount, 0)), 'W'),
                         record, model);
      case Kind::WriteByte:
        record->kvfputc('c');
        return model->write("c");
      case Kind::Flush:
        return RC_ASSERT(record->kvfflush(FALSE) == 0);
      default:
        return seek(step, record, model);
    }
  }

  static std::string readAll(KvFileDataSType* record, int64 count) {
    std::string bytes;
    while (static_cast<int64>(bytes.size()) < count) {
      const int64 wanted = std::min<int64>(count - static_cast<int64>(bytes.size()), read_buf_size);
      if (record->readIntoBuffer(wanted, "") <= 0) break;
      bytes += take(record, wanted);
    }
    return bytes;
  }

  static std::string readLine(KvFileDataSType* record) {
    std::string line;
    intptr_t next = 0;
    for (;;) {
      const int found = record->readToEol(asBytes("\n"), 1, &next, FALSE, "");
      RC_ASSERT(found >= 0);
      const std::string part = take(record, next - record->readBufIdx);
      line += part;
      if (found == 1 || part.empty()) return line;
    }
  }

  // A direct read keeps the position right while it does not reach past unread bytes, and behind a
  // buffered read only.
  static void readDirectly(int64 amount, KvFileDataSType* record, Model* model) {
    if (record->lastOpWasRead != 1) return;
    const intptr_t unread = record->bufBytesAvail();
    const int64 count = unread > 0 ? std::min<int64>(amount, unread) : amount;
    std::string bytes(64, '#');
    const ssize_t got = record->basicRead(reinterpret_cast<ByteType*>(bytes.data()), count);
    RC_ASSERT(got >= 0);
    RC_ASSERT(got > 0 || count <= 0 || model->atEnd());
    RC_ASSERT(bytes.substr(0, static_cast<size_t>(got)) == model->read(got));
  }

  static void askForEnd(KvFileDataSType* record, const Model& model) {
    const bool end = record->atEnd() == OOP_TRUE;
    // An end that was once seen is told until the buffer is cleared.
    const bool endWasSeen = !record->compressed && record->lastReadEof;
    RC_ASSERT(end == (endWasSeen || model.atEnd()));
  }

  static void writeBoth(const std::string& bytes, KvFileDataSType* record, Model* model) {
    RC_ASSERT(write(record, bytes) == static_cast<ssize_t>(bytes.size()));
    if (!bytes.empty()) model->write(bytes);
  }

  static void seek(const Step& step, KvFileDataSType* record, Model* model) {
    const bool fromRead = step.kind == Kind::SeekCurrent && record->lastOpWasRead == 1;
    const int64 base = step.kind == Kind::SeekEnd ? model->size()
                       : fromRead                 ? model->position()
                                                  : 0;
    const int64 limit = record->compressed ? model->size() : base + 1000;
    const int64 target = std::clamp<int64>(base + step.amount, 0, limit);
    const int seekKind = step.kind == Kind::SeekStart ? 0 : step.kind == Kind::SeekCurrent ? 1 : 2;
    RC_ASSERT(doSeek(record, target - base, seekKind) == target);
    model->seek(target);
  }

  // After every step the three positions agree, and the file holds what the model holds.
  static void expectAgreement(KvFileDataSType* record, const Model& model, const char* path) {
    const Positions at = positionsOf(record);
    RC_ASSERT(at.logical == model.position());
    RC_ASSERT(at.host - at.unread == at.logical);
    RC_ASSERT(failureOf(record) == NO_FAILURE);
    if (path) RC_ASSERT(readFile(path) == model.content());
  }

  void checkPlain(const char* mode, const std::vector<Kind>& kinds) {
    const bool truncates = mode[0] == 'w';
    const bool appends = mode[0] == 'a';
    const bool holds = rc::check(mode, [&] {
      const std::string content = *textOfLines();
      const std::vector<Step> steps = *stepsOf(kinds);
      const auto atMost = *rc::gen::inRange<int64_t>(1, 18);
      std::filesystem::remove("model");
      writeFile("model", content);
      Model model(truncates ? "" : content, appends);
      KvFileDataSType* record = openPlain("model", mode);
      seam::clearFaults();
      fault("HostReadFile_:1+:short=" + std::to_string(atMost));
      const Closer closer{record};
      for (const Step& step : steps) {
        apply(step, record, &model);
        expectAgreement(record, model, "model");
      }
    });
    EXPECT_TRUE(holds);
  }

  struct Closer {
    KvFileDataSType* record;
    ~Closer() { record->kvfClose(); }
  };

  const std::vector<Kind> READS = {Kind::Read,         Kind::ReadByte, Kind::ReadLine,
                                   Kind::ReadDirectly, Kind::AtEnd,    Kind::SeekStart,
                                   Kind::SeekCurrent,  Kind::SeekEnd};
  std::vector<Kind> readsAndWrites() const {
    std::vector<Kind> kinds = READS;
    kinds.insert(kinds.end(), {Kind::Write, Kind::WriteByte, Kind::Flush});
    return kinds;
  }
};

TEST_F(PositionModel, ReadOnly) { checkPlain("r", READS); }

TEST_F(PositionModel, ReadAndWrite) { checkPlain("r+", readsAndWrites()); }

TEST_F(PositionModel, TruncateReadAndWrite) { checkPlain("w+", readsAndWrites()); }

TEST_F(PositionModel, AppendAndRead) { checkPlain("a+", readsAndWrites()); }

TEST_F(PositionModel, ReadableByModeAndWritableByTheHost) { checkPlain("rb+", readsAndWrites()); }

TEST_F(PositionModel, WritableOnlyByMode) {
  checkPlain("wb", {Kind::Write, Kind::WriteByte, Kind::SeekStart, Kind::SeekEnd, Kind::SeekCurrent,
                    Kind::Flush});
}

TEST_F(PositionModel, GzipReading) {
  EXPECT_TRUE(rc::check("gzip reading", [&] {
    const std::string content = *textOfLines();
    writeGzip("packed", content);
    Model model(content, false);
    KvFileDataSType* record = openGzip("packed", "rb");
    const Closer closer{record};
    for (const Step& step :
         *stepsOf({Kind::Read, Kind::ReadByte, Kind::ReadLine, Kind::ReadDirectly, Kind::AtEnd,
                   Kind::SeekStart, Kind::SeekCurrent})) {
      apply(step, record, &model);
      expectAgreement(record, model, nullptr);
    }
  }));
}

TEST_F(PositionModel, GzipWriting) {
  EXPECT_TRUE(rc::check("gzip writing", [&] {
    std::string content;
    KvFileDataSType* record = openGzip("packed", "wb");
    for (const Step& step : *stepsOf({Kind::Write, Kind::WriteByte, Kind::Flush})) {
      Model model("", true);
      apply(step, record, &model);
      content += model.content();
      RC_ASSERT(failureOf(record) == NO_FAILURE);
    }
    record->kvfClose();
    RC_ASSERT(readGzip("packed") == content);
  }));
}

}  // namespace
}  // namespace kvtest
