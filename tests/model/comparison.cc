#include "model/comparison.h"

#include "model/gzip.h"
#include "model/transcript.h"

#include <zlib.h>

#include <algorithm>

namespace model {

namespace {

std::string quoted(std::string_view bytes) { return showBytes(bytes.substr(0, 300)); }

std::string showOop(OopType oop) {
  if (oop == OOP_NIL) return "nil";
  if (oop == OOP_TRUE) return "true";
  if (oop == OOP_FALSE) return "false";
  if (oopIsCharacter(oop)) return "Character " + std::to_string(oopCharacterCode(oop));
  int failed = 0;
  const int64 value = KciOopToI64_(oop, &failed);
  if (failed == 0) return std::to_string(value);
  const OopType cls = kvhost::classOf(oop);
  if (cls == OOP_CLASS_STRING) return quoted(kvhost::bytesOf(oop));
  return "a " + std::string(kvhost::className(cls));
}

std::string showObserved(const Observed& actual) {
  if (actual.raised) return "error " + std::to_string(actual.error.number);
  return showOop(actual.value) + " / " + std::to_string(actual.result) + " " + quoted(actual.bytes);
}

std::string differ(const std::string& what, const std::string& expected,
                   const std::string& actual) {
  return what + "\n  the model:  " + expected.substr(0, 400) +
         "\n  the module: " + actual.substr(0, 400);
}

// Where two long texts part.
std::string differBytes(const std::string& what, std::string_view expected,
                        std::string_view actual) {
  const auto at = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
  const auto start = static_cast<size_t>(at.first - expected.begin());
  const auto show = [&](std::string_view bytes) {
    return std::to_string(bytes.size()) + " bytes, ..." +
           quoted(bytes.substr(start < 10 ? 0 : start - 10).substr(0, 60));
  };
  return differ(what + ", from byte " + std::to_string(start), show(expected), show(actual));
}

// The members of a gzip file as far as they are whole, and whether nothing else is there.
struct Unpacked {
  std::vector<std::string> members;
  bool whole = true;
};

Unpacked unpack(std::string bytes) {
  Unpacked result;
  while (!bytes.empty() && result.whole) {
    std::string content(1 << 18, '\0');
    z_stream stream = {};
    inflateInit2(&stream, 15 + 16);
    stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(content.data());
    stream.avail_out = static_cast<uInt>(content.size());
    result.whole = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    content.resize(content.size() - stream.avail_out);
    bytes.erase(0, bytes.size() - stream.avail_in);
    inflateEnd(&stream);
    result.members.push_back(std::move(content));
  }
  return result;
}

bool isInteger(OopType oop, int64 value) {
  int failed = 0;
  return KciOopToI64_(oop, &failed) == value && failed == 0;
}

}  // namespace

Comparison::Comparison(int64 bufferSize)
    : bufferSize_(bufferSize), module_(sizeLimitFor(bufferSize)) {}

void Comparison::begin(const Sequence& sequence) {
  module_.begin(sequence.files, model_ != nullptr ? model_->host().lost() : std::vector<int>());
  model_ = std::make_unique<Model>(bufferSize_, sizeLimitFor(bufferSize_), module_.sessionIds(),
                                   [this](size_t i) { return module_.identifier(i); });
  Host& host = model_->host();
  for (const StartingFile& file : sequence.files) {
    HostFile& made = host.add(file.name);
    made.exists = true;
    made.bytes = file.bytes;
  }
  host.add(NEW_FILE);
  HostFile& directory = host.add(DIRECTORY);
  directory.exists = directory.isDirectory = true;
  for (const int descriptor : module_.takenDescriptors()) host.reserve(descriptor);
  host.redirect(0, host.find(STANDARD_FILES[0]), true, false, false);
  host.redirect(1, host.find(STANDARD_FILES[1]), true, true, false);
  host.redirect(2, host.find(STANDARD_FILES[2]), false, true, true);
  for (int64 i = 0; i < Model::OBJECTS; ++i) {
    model_->object(i).isByteArray = i == 1;
    model_->object(i).invariant = i == Model::OBJECTS - 1;
    module_.setObject(i, i == 1, i == Model::OBJECTS - 1, "");
  }
}

std::optional<Difference> Comparison::run(const Sequence& sequence, const std::vector<bool>& kept,
                                          const std::string& transcript) {
  if (!transcript.empty()) {
    transcript_.open(transcript, std::ios::binary | std::ios::trunc);
    write(transcriptStart(sequence.files, bufferSize_));
  }
  begin(sequence);
  for (size_t i = 0; i < sequence.operations.size(); ++i) {
    if (!kept.empty() && !kept[i]) continue;
    const std::string difference = step(sequence.operations[i]);
    if (!difference.empty()) return Difference{i, difference};
  }
  return std::nullopt;
}

// At once, for the step that follows may end the process.
void Comparison::write(const std::string& transcript) {
  module_.limitFiles(false);
  transcript_ << transcript << std::flush;
  module_.limitFiles(true);
}

std::string Comparison::step(const Operation& operation) {
  const bool isWhole = std::none_of(operation.arguments.begin(), operation.arguments.end(),
                                    [](const Value& value) { return value.fromSize; });
  const Operation counted = isWhole ? Operation() : model_->resolved(operation);
  const Operation& whole = isWhole ? operation : counted;
  if (!model_->admits(whole)) return "";
  module_.prepare(whole);
  const Answer expected = model_->perform(whole);
  if (transcript_.is_open()) write(transcriptStep(whole, expected, *model_));
  const Observed actual = module_.perform(whole);
  ++performed_;
  std::string difference = compareAnswer(expected, actual);
  if (difference.empty() && kvhost::forgottenErrorJumps() != 0)
    difference = "an error-jump frame was left registered";
  if (difference.empty()) difference = compareObjects(whole);
  if (difference.empty()) difference = compareRecord(whole);
  if (difference.empty()) difference = compareFiles();
  if (difference.empty()) difference = compareClassError();
  if (difference.empty()) return "";
  return showOperation(whole).substr(0, 400) + "\n" + difference;
}

// ---- answers ----

bool Comparison::sameError(const Answer& expected, const KciErrSType& actual) {
  const bool isFatal = expected.number >= 4000 && expected.number <= 4999;
  if (actual.number != expected.number || (actual.fatal != 0) != isFatal ||
      actual.category != OOP_ERROR_CATEGORY ||
      static_cast<size_t>(actual.argCount) != expected.details.size())
    return false;
  for (size_t i = 0; i < expected.details.size(); ++i) {
    const Answer::Detail& detail = expected.details[i];
    const OopType oop = actual.args[i];
    bool same = oop == static_cast<OopType>(detail.number);
    if (detail.kind == Answer::Detail::Kind::Integer) same = isInteger(oop, detail.number);
    if (detail.kind == Answer::Detail::Kind::File)
      same = oop == module_.fileIdentifier(detail.number);
    if (detail.kind == Answer::Detail::Kind::Argument)
      same = oop == module_.identifier(static_cast<size_t>(detail.number));
    if (!same) return false;
  }
  return true;
}

bool Comparison::sameResult(const Answer& expected, const Observed& actual) {
  switch (expected.kind) {
    case Answer::Kind::True:
      return actual.result == TRUE;
    case Answer::Kind::False:
      return actual.result == FALSE;
    case Answer::Kind::Integer:
      return actual.result == expected.number;
    case Answer::Kind::Text:
      return actual.result >= 0 && (expected.bytesUnknown || actual.bytes == expected.bytes);
    default:
      return expected.kind == Answer::Kind::Nothing;
  }
}

bool Comparison::sameAnswer(const Answer& expected, const Observed& actual) {
  const OopType oop = actual.value;
  switch (expected.kind) {
    case Answer::Kind::Nil:
      return oop == OOP_NIL;
    case Answer::Kind::True:
      return oop == OOP_TRUE;
    case Answer::Kind::False:
      return oop == OOP_FALSE;
    case Answer::Kind::Integer:
      return expected.numberUnknown || isInteger(oop, expected.number);
    case Answer::Kind::Character:
      return oop == oopFromCharacter(static_cast<uint32_t>(expected.number));
    case Answer::Kind::Text:
      return kvhost::classOf(oop) == OOP_CLASS_STRING &&
             (expected.bytesUnknown || module_.bytesOf(oop) == expected.bytes);
    case Answer::Kind::Argument:
      return oop == module_.identifier(static_cast<size_t>(expected.number));
    case Answer::Kind::Class:
      return oop == kvhost::CLASS_KV_FILE;
    default:
      return expected.kind == Answer::Kind::Nothing;
  }
}

std::string Comparison::compareAnswer(const Answer& expected, const Observed& actual) {
  bool same = !actual.outsideTouched;
  if (expected.kind == Answer::Kind::Raised || actual.raised) {
    same = same && actual.raised && expected.kind == Answer::Kind::Raised &&
           sameError(expected, actual.error);
  } else {
    same = same && (actual.forC ? sameResult(expected, actual) : sameAnswer(expected, actual));
  }
  return same ? "" : differ("the answer", showAnswer(expected), showObserved(actual));
}

std::string Comparison::compareObjects(const Operation& operation) {
  for (const Value& value : operation.arguments) {
    if (value.kind != Value::Kind::Object) continue;
    const std::string_view actual = module_.bytesOf(module_.objectIdentifier(value.number));
    const std::string& expected = model_->object(value.number).bytes;
    if (actual != expected)
      return differBytes("object " + std::to_string(value.number), expected, actual);
  }
  return "";
}

// ---- the record that the step was about ----

std::string Comparison::compareRecord(const Operation& operation) {
  if (operation.arguments.empty() || operation.arguments[0].kind != Value::Kind::File) return "";
  const int64 file = operation.arguments[0].number;
  const int session = operation.session > 0 ? operation.session : model_->currentSession();
  Record* record = model_->recordOf(session, file);
  if (record == nullptr) return "";
  const std::string_view text = module_.errorText(file, session);
  if (record->textUnknown) record->text = text;
  record->textUnknown = false;
  if (text != record->text) return differ("the pending text", quoted(record->text), quoted(text));
  if (session == model_->currentSession()) {
    const int code = module_.errorCode(module_.fileIdentifier(file));
    if (record->errCode == UNKNOWN_ERRNO) record->errCode = code;
    if (code != record->errCode)
      return differ("the error code", std::to_string(record->errCode), std::to_string(code));
  }
  if (record->descriptor() < 0) return "";
  const int64 expected = model_->host().at(record->descriptor()).position;
  const int64 actual = module_.descriptorPosition(record->descriptor());
  if (expected == actual) return "";
  return differ("the descriptor's position", std::to_string(expected), std::to_string(actual));
}

std::string Comparison::compareClassError() {
  if (!model_->hasFiles(model_->currentSession())) return "";
  const int actual = module_.errorCode(OOP_NIL);
  if (actual == model_->classErrorCode()) return "";
  return differ("the class-level code", std::to_string(model_->classErrorCode()),
                std::to_string(actual));
}

// ---- files ----

// What a gzip writer has finished must decompress to its members, and to nothing else.
std::string Comparison::settle(HostFile& file, std::string_view bytes) {
  const Unpacked written = unpack(std::string(bytes.substr(file.bytes.size())));
  if (!written.whole || written.members != file.members) {
    const auto joined = [](const std::vector<std::string>& members) {
      std::string all;
      for (const std::string& each : members) all += each + "|";
      return all;
    };
    return differBytes("gzip data in " + file.name, joined(file.members), joined(written.members));
  }
  file.bytes = bytes;
  file.members.clear();
  return "";
}

std::string Comparison::compareFile(HostFile& file) {
  const std::string_view bytes = module_.contentOf(file.name);
  const bool written = file.unsettled || !file.members.empty();
  if (written ? !bytes.starts_with(file.bytes) : bytes != file.bytes)
    return differBytes("file " + file.name, file.bytes, bytes);
  if (file.unsettled || file.members.empty()) return "";
  return settle(file, bytes);
}

std::string Comparison::compareFiles() {
  for (HostFile* file : model_->host().files()) {
    if (!file->exists || file->isDirectory) continue;
    std::string difference = compareFile(*file);
    if (!difference.empty()) return difference;
  }
  return "";
}

}  // namespace model
