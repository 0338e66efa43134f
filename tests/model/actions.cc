#include "model/actions.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace model {

namespace {

using Kind = Answer::Kind;

constexpr int64 READ_CHUNK = 4096;  // most that an item may take, and that is fetched at once
constexpr int64 LOAD_CHUNK = 2048;
constexpr int64 LINE_END_LIMIT = 128;
constexpr int64 PROMPT_LIMIT = 1023;
constexpr int64 PATH_LIMIT = 4095;
constexpr int64 MODE_LIMIT = 7;
constexpr size_t CLASS_TEXT_LIMIT = 2047;
constexpr int64 LARGEST_SMALL_INTEGER = (1LL << 60) - 1;

constexpr int64 CLASS_STRING = 0x12401;
constexpr int64 CLASS_SMALL_INTEGER = 0x12201;
constexpr int64 CLASS_CHARACTER = 0x10B01;
constexpr int64 NIL_ID = 0x14;

// The interface's own errors.
constexpr int NOT_BYTES = 2102;
constexpr int NOT_CHARACTERS = 2104;
constexpr int SIZE_FIXED = 2105;
constexpr int INVARIANT = 2106;

Answer nil() { return {}; }
Answer simple(Kind kind) {
  Answer answer;
  answer.kind = kind;
  return answer;
}
Answer boolean(bool value) { return simple(value ? Kind::True : Kind::False); }
Answer integer(int64 value) {
  Answer answer = simple(Kind::Integer);
  answer.number = value;
  return answer;
}
Answer argument(int64 index) {
  Answer answer = simple(Kind::Argument);
  answer.number = index;
  return answer;
}
Answer textAnswer(std::string_view text) {
  Answer answer = simple(Kind::Text);
  answer.bytes = text;
  return answer;
}
Answer raised(int number, std::vector<Answer::Detail> details) {
  Answer answer = simple(Kind::Raised);
  answer.number = number;
  answer.details = std::move(details);
  return answer;
}
Answer::Detail detail(size_t index) {
  return {Answer::Detail::Kind::Argument, static_cast<int64>(index)};
}
Answer::Detail detailInteger(int64 value) { return {Answer::Detail::Kind::Integer, value}; }
Answer::Detail detailClass(int64 id) { return {Answer::Detail::Kind::Class, id}; }
Answer outOfRange(size_t index) { return raised(2061, {detail(index)}); }
Answer noMap(int session) { return raised(4100, {detailInteger(session)}); }

// What C takes for a text.
std::string cText(std::string_view bytes) {
  return std::string(bytes.substr(0, std::min(bytes.find('\0'), bytes.size())));
}

bool isPlainMode(const std::string& mode) {
  static const std::vector<std::string> modes = {
      "r", "w", "a", "r+", "w+", "a+", "rb", "wb", "ab", "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};
  return std::find(modes.begin(), modes.end(), mode) != modes.end();
}

bool isGzipMode(const std::string& mode) {
  static const std::vector<std::string> modes = {"r",   "w",   "a",   "rb",  "wb", "ab",
                                                 "w1",  "a1",  "wb1", "ab1", "w9", "a9",
                                                 "wb9", "ab9", "r1",  "r9"};
  return std::find(modes.begin(), modes.end(), mode) != modes.end();
}

bool isStandardName(const std::string& path) {
  return path == "stdin" || path == "stdout" || path == "stderr";
}

Host::Opening openingFor(const std::string& mode, bool gzip) {
  const bool both = !gzip && mode.find('+') != std::string::npos;
  Host::Opening how;
  how.reads = mode[0] == 'r' || both;
  how.writes = mode[0] != 'r' || both;
  how.creates = mode[0] != 'r';
  how.truncates = mode[0] == 'w';
  how.appends = mode[0] == 'a';
  how.toEnd = mode[0] == 'a' && !both;
  return how;
}

bool isSeparator(int c) { return c == ' ' || c == '\t' || c == '\n'; }
bool isDigit(int c) { return c >= '0' && c <= '9'; }

}  // namespace

Model::Model(int64 bufferSize, int64 sizeLimit, std::array<int, SESSIONS> sessionIds,
             Identify identify)
    : bufferSize_(bufferSize),
      sizeLimit_(sizeLimit),
      host_(sizeLimit),
      identify_(std::move(identify)),
      sessionIds_(sessionIds),
      session_(sessionIds[0]) {
  for (auto& files : sessions_) files.emplace();
}

// ---- looking up ----

Model::Files* Model::filesOf(int session) {
  for (size_t i = 0; i < SESSIONS; ++i)
    if (sessionIds_[i] == session && sessions_[i]) return &*sessions_[i];
  return nullptr;
}

Record* Model::recordOf(int session, int64 file) {
  Files* files = filesOf(session);
  if (files == nullptr || !files->contains(file)) return nullptr;
  return files->at(file).get();
}

HostFile* Model::fileOf(int session, int64 file) {
  Record* record = recordOf(session, file);
  if (record == nullptr || !record->isOpen()) return nullptr;
  const int descriptor = record->compressed ? record->handle()->descriptor : record->descriptor();
  return host_.at(descriptor).file;
}

std::optional<Answer> Model::missingSession(int session) {
  if (session == 0 || filesOf(session) == nullptr) return noMap(session);
  return std::nullopt;
}

Model::Found Model::find(const Value& file, int session, bool mayBeMissing) {
  if (file.isNil()) return {};
  if (session < 1) session = session_;
  Found found;
  found.raised = missingSession(session);
  if (found.raised) return found;
  found.record = recordOf(session, file.number);
  if (found.record == nullptr && !mayBeMissing)
    found.raised = raised(2364, {{Answer::Detail::Kind::File, file.number}});
  return found;
}

Model::Found Model::findOpen(const Value& file, int session) {
  Found found = find(file, session, false);
  if (found.record != nullptr && !found.record->isOpen()) found.record = nullptr;
  return found;
}

// ---- the interface's objects ----

int64 Model::sizeOf(const Value& value) const {
  if (value.kind == Value::Kind::Object)
    return static_cast<int64>(objects_[static_cast<size_t>(value.number)].bytes.size());
  if (value.kind == Value::Kind::Array) return static_cast<int64>(value.elements.size());
  return static_cast<int64>(value.bytes.size());
}

void Model::failInterface(int number, const char* text, size_t argument) {
  char message[1025];
  char identifier[32];
  std::snprintf(identifier, sizeof identifier, "0x%" PRIX64, identify_(argument));
  std::snprintf(message, sizeof message, "the object %s %s", identifier, text);
  pending_ = InterfaceError{number, message, argument};
}

std::optional<Model::InterfaceError> Model::takeInterfaceError() {
  return std::exchange(pending_, std::nullopt);
}

void Model::post(Record* record, const InterfaceError& error) {
  record->errCode = error.number;
  record->storeText("Kestrova KCI error " + std::to_string(error.number) +
                    ", message: " + error.message);
}

bool Model::store(size_t index, int64 offset, std::string_view bytes) {
  const Value& target = now_->arguments[index];
  if (target.kind != Value::Kind::Object) {
    failInterface(NOT_BYTES, "does not hold bytes", index);
    return false;
  }
  ByteObject& object = objects_[static_cast<size_t>(target.number)];
  if (object.invariant) {
    failInterface(INVARIANT, "is invariant", index);
    return false;
  }
  const size_t end = static_cast<size_t>(offset) + bytes.size();
  if (end > object.bytes.size()) object.bytes.resize(end);
  object.bytes.replace(static_cast<size_t>(offset), bytes.size(), bytes);
  return true;
}

bool Model::resize(size_t index, int64 size) {
  const Value& target = now_->arguments[index];
  if (target.kind == Value::Kind::Array) return true;
  if (target.kind != Value::Kind::Object) {
    failInterface(SIZE_FIXED, "cannot change", index);
    return false;
  }
  ByteObject& object = objects_[static_cast<size_t>(target.number)];
  if (object.invariant) {
    failInterface(INVARIANT, "is invariant", index);
    return false;
  }
  object.bytes.resize(static_cast<size_t>(size));
  return true;
}

// Zeros where the object holds no bytes.
std::string Model::fetch(size_t index, int64 offset, int64 count) {
  const Value& from = now_->arguments[index];
  std::string bytes;
  if (from.kind == Value::Kind::Object) {
    bytes = objects_[static_cast<size_t>(from.number)].bytes.substr(static_cast<size_t>(offset),
                                                                    static_cast<size_t>(count));
  } else if (from.isText() || from.kind == Value::Kind::Bytes) {
    bytes = from.bytes.substr(static_cast<size_t>(offset), static_cast<size_t>(count));
  } else {
    failInterface(NOT_BYTES, "does not hold bytes", index);
  }
  bytes.resize(static_cast<size_t>(count));
  return bytes;
}

// ---- opening and closing ----

// The new file is open before the old one is closed; nothing closes it where it finds no record.
Answer Model::registerFile(int descriptor, std::unique_ptr<GzipHandle> handle, bool isStd,
                           const std::string& mode) {
  const Value& file = now_->arguments[0];
  if (const std::optional<Answer> missing = missingSession(session_)) {
    if (!isStd) host_.lose(descriptor);
    return *missing;
  }
  std::unique_ptr<Record>& record = (*filesOf(session_))[file.number];
  const bool isNew = record == nullptr;
  if (isNew) {
    record = std::make_unique<Record>(&host_, bufferSize_);
  } else {
    record->clearError();
    record->close();
  }
  record->bind(handle != nullptr ? -1 : descriptor, std::move(handle), isStd, mode);
  return integer(isNew ? 1 : 2);
}

Answer Model::answerOpened(const std::string& path, const std::string& mode, bool gzip) {
  const Host::Opening how = openingFor(mode, gzip);
  int errNum = 0;
  const int descriptor = host_.open(path, how, !gzip, &errNum);
  if (descriptor < 0) {
    classErrorCode_ = errNum;
    classErrorText_ = (errnoText(errNum) + " : " + path).substr(0, CLASS_TEXT_LIMIT);
    return nil();
  }
  if (now_->arguments[0].isNil()) {
    host_.lose(descriptor);
    return nil();
  }
  std::unique_ptr<GzipHandle> handle;
  if (gzip && how.writes) {
    handle = std::make_unique<GzipWriter>(&host_, descriptor, path);
    ++host_.at(descriptor).file->gzipWriters;
  } else if (gzip) {
    handle = std::make_unique<GzipReader>(&host_, descriptor, path);
    ++host_.at(descriptor).file->gzipReaders;
  }
  return registerFile(descriptor, std::move(handle), false, mode);
}

Answer Model::open() {
  const Value& path = now_->arguments[1];
  const Value& mode = now_->arguments[2];
  if (path.kind == Value::Kind::Utf16 || sizeOf(path) == 0) return raised(2718, {detail(1)});
  if (!path.isText()) return raised(NOT_CHARACTERS, {detail(1)});
  if (sizeOf(path) > PATH_LIMIT) return outOfRange(1);
  const std::string pathText = cText(path.bytes);
  if (isStandardName(pathText)) {
    classErrorText_ = "Can not open standard file";
    return nil();
  }
  if (!mode.isText() && mode.kind != Value::Kind::Bytes)
    return raised(2094, {detail(2), detailClass(CLASS_STRING)});
  if (sizeOf(mode) > MODE_LIMIT) return outOfRange(2);
  const std::string modeText = cText(mode.bytes);
  const bool gzip = now_->arguments[3].kind == Value::Kind::True;
  if (!(gzip ? isGzipMode(modeText) : isPlainMode(modeText))) {
    classErrorText_ = "errno=22,EINVAL, Invalid argument (programmer error)";
    return nil();
  }
  return answerOpened(pathText, modeText, gzip);
}

Answer Model::createStandardFile() {
  const Value& which = now_->arguments[1];
  if (!which.isInteger() || which.number < 0 || which.number > 2) return nil();
  if (now_->arguments[0].isNil()) return nil();
  return registerFile(static_cast<int>(which.number), nullptr, true, which.number == 0 ? "r" : "a");
}

Answer Model::close() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return argument(0);
  found.record->dropReadAhead();
  found.record->clearError();
  return found.record->close() != 0 ? nil() : argument(0);
}

Answer Model::closeAll() {
  if (session_ == 0) return noMap(0);
  if (Files* files = filesOf(session_)) {
    for (auto& [file, record] : *files) {
      record->clearError();
      record->close();
    }
  }
  return simple(Kind::Class);
}

Answer Model::finalizeAll() {
  if (session_ == 0) return noMap(0);
  const Files* files = filesOf(session_);
  return integer(files != nullptr ? static_cast<int64>(files->size()) : 0);
}

bool Model::finalizeOne(int64 file, std::optional<Answer>* error) {
  const Found found = find(Value::file(file), 0, false);
  *error = found.raised;
  if (found.record == nullptr) return false;
  found.record->clearError();
  found.record->close();
  filesOf(session_)->erase(file);
  return true;
}

Answer Model::clientFinalize() {
  bool failed = false;
  for (const Value& element : now_->arguments[0].elements) {
    std::optional<Answer> error;
    if (element.kind == Value::Kind::File) {
      failed |= !finalizeOne(element.number, &error);
    } else {
      failed = true;
      if (element.isInteger() && element.number != NIL_ID) {
        error = missingSession(session_);
        if (!error) error = raised(2364, {{Answer::Detail::Kind::Identifier, element.number}});
      }
    }
    if (error) return *error;
  }
  return boolean(!failed);
}

void Model::shutdown(int session) {
  for (size_t i = 0; i < SESSIONS; ++i) {
    if (sessionIds_[i] != session || !sessions_[i]) continue;
    for (auto& [file, record] : *sessions_[i]) {
      record->clearError();
      record->close();
    }
    sessions_[i].reset();
  }
}

void Model::startup(int session) {
  shutdown(session);
  for (size_t i = 0; i < SESSIONS; ++i)
    if (sessionIds_[i] == session) sessions_[i].emplace();
}

// ---- reading ----

Answer Model::read() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const Value& itemSizeArgument = now_->arguments[2];
  const Value& amountArgument = now_->arguments[3];
  if (!amountArgument.isInteger()) return outOfRange(3);
  const int64 itemSize = itemSizeArgument.number;
  if (!itemSizeArgument.isInteger() || itemSize < 1 || itemSize > bufferSize_) return outOfRange(2);
  const int64 amount = amountArgument.number;
  // As many items at once as fit into the read buffer.
  const int64 perBuffer = bufferSize_ / itemSize;
  int64 items = 0;
  int64 stored = 0;
  while (items < amount) {
    const int64 wanted = std::min(amount - items, perBuffer) * itemSize;
    const int64 got = found.record->readIntoBuffer(wanted, "");
    if (got < itemSize) {
      if (found.record->pendingError() != 0) return nil();
      if (items == 0) {
        found.record->storeText(PAST_END);
        return integer(0);
      }
      return integer(stored);
    }
    const int64 count = std::min(wanted, got);
    store(1, stored, found.record->take(count));
    stored += count;
    items += count / itemSize;
    if (const auto error = takeInterfaceError()) {
      post(found.record, *error);
      return nil();
    }
  }
  return integer(stored);
}

Answer Model::getCharacter() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  Record* record = found.record;
  if (record == nullptr) return nil();
  if (!(record->readsAhead() && record->ahead() > 0) &&
      record->readIntoBuffer(bufferSize_, "") <= 0)
    return nil();
  Answer answer = simple(Kind::Character);
  answer.number = static_cast<unsigned char>(record->take(1)[0]);
  return answer;
}

Answer Model::getLine() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const Value& target = now_->arguments[1];
  const Value& start = now_->arguments[2];
  const Value& endArgument = now_->arguments[3];
  const Value& promptArgument = now_->arguments[4];
  std::string lineEnd;
  if (endArgument.isInteger()) {
    if (endArgument.number < 0 || endArgument.number > 255) return outOfRange(3);
    lineEnd = static_cast<char>(endArgument.number);
  } else {
    if (!endArgument.isText() || sizeOf(endArgument) < 1 || sizeOf(endArgument) > LINE_END_LIMIT)
      return outOfRange(3);
    lineEnd = endArgument.bytes;
  }
  if (!promptArgument.isNil() && (!promptArgument.isText() || sizeOf(promptArgument) < 1))
    return outOfRange(4);
  const std::string prompt = cText(promptArgument.bytes.substr(0, PROMPT_LIMIT));

  std::string made;  // the new String, where none was given
  const bool isNew = target.isNil();
  const int64 size = sizeOf(target);
  int64 index = -1;
  int64 sizeNow = size;
  for (;;) {
    int64 count = 0;
    const LineEnd reached = found.record->readToLineEnd(lineEnd, index < 0, prompt, &count);
    if (reached == LineEnd::Failed) return nil();
    if (index < 0) {
      if (!start.isInteger() || start.number < 1 || start.number > size + 1) return outOfRange(2);
      index = start.number - 1;
    }
    if (count == 0) break;
    const std::string part = found.record->take(count);
    if (isNew) {
      made += part;
    } else if (store(1, index, part)) {
      sizeNow = std::max(sizeNow, index + count);
    }
    index += count;
    if (reached == LineEnd::Found) break;
  }
  if (isNew) return made.empty() ? nil() : textAnswer(made);
  if (index < sizeNow) {
    resize(1, index);
    if (const auto error = takeInterfaceError()) {
      post(found.record, *error);
      return nil();
    }
  }
  return argument(1);
}

Answer Model::atEnd() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  return boolean(found.record->atEnd());
}

// ---- writing and positions ----

Answer Model::write() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  if (!now_->arguments[2].isInteger()) return outOfRange(2);
  if (!now_->arguments[3].isInteger()) return outOfRange(3);
  const int64 count = wrappedProduct(now_->arguments[2].number, now_->arguments[3].number);
  if (count > sizeOf(now_->arguments[1])) return raised(2284, {detail(1), detailInteger(count)});
  if (!found.record->undoReadAhead()) return nil();
  int64 total = 0;
  while (total < count) {
    const int64 written = found.record->write(fetch(1, total, std::min(count - total, READ_CHUNK)));
    if (written == 0 || found.record->pendingError() != 0) break;
    total += written;
  }
  return found.record->pendingError() != 0 ? nil() : integer(total);
}

Answer Model::putCharacter() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const Value& value = now_->arguments[1];
  const bool isCode = value.isInteger() && value.number >= -LARGEST_SMALL_INTEGER - 1 &&
                      value.number <= LARGEST_SMALL_INTEGER;
  if (!isCode && value.kind != Value::Kind::Character)
    return raised(2242,
                  {detail(1), detailClass(CLASS_CHARACTER), detailClass(CLASS_SMALL_INTEGER)});
  if (value.number < 0 || value.number > 255) return outOfRange(1);
  found.record->writeByte(static_cast<char>(value.number));
  return boolean(true);
}

void Model::printEach(Record* record, const std::string& bytes) {
  size_t column = 0;
  for (const char byte : bytes) {
    if (column > 200) {
      record->writeByte('\n');
      column = 0;
    }
    const std::string field = std::to_string(static_cast<unsigned char>(byte)) + " ";
    record->writeText(field);
    column += field.size();
  }
}

Answer Model::printBytes() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const int64 size = sizeOf(now_->arguments[1]);
  found.record->dropReadAhead();
  if (size == 0) {
    found.record->writeByte(' ');
    return argument(0);
  }
  const std::string bytes = fetch(1, 0, size);
  if (const auto error = takeInterfaceError()) {
    post(found.record, *error);
    return nil();
  }
  printEach(found.record, bytes);
  return argument(0);
}

Answer Model::seek() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const Value& position = now_->arguments[1];
  const Value& kind = now_->arguments[2];
  if (!position.isInteger()) return outOfRange(1);
  if (!kind.isInteger() || kind.number < 0 || kind.number > 2) return outOfRange(2);
  const int64 reached = found.record->seek(position.number, kind.number);
  return reached < 0 ? nil() : integer(reached);
}

Answer Model::position() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  const int64 at =
      found.record->readsAhead() ? found.record->readPosition() : found.record->tellHost();
  return at == -1 ? nil() : integer(at);
}

Answer Model::flush(bool sync) {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  found.record->dropReadAhead();
  found.record->clearError();
  return found.record->flush(sync) ? argument(0) : nil();
}

// ---- status and errors ----

Answer Model::errorString() {
  const Found found = find(now_->arguments[0], 0, true);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) {
    classErrorCode_ = 0;
    const std::string text = std::exchange(classErrorText_, "");
    return text.empty() ? nil() : textAnswer(text);
  }
  found.record->errCode = 0;
  const std::string text = std::exchange(found.record->text, "");
  if (text.empty()) return nil();
  Answer answer = textAnswer(text);
  answer.bytesUnknown = std::exchange(found.record->textUnknown, false);
  return answer;
}

Answer Model::errorCode() {
  const Found found = find(now_->arguments[0], 0, true);
  if (found.raised) return *found.raised;
  Answer answer = integer(found.record != nullptr ? found.record->errCode : classErrorCode_);
  answer.numberUnknown = answer.number == UNKNOWN_ERRNO;
  return answer;
}

Answer Model::isOpen() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  return boolean(found.record != nullptr);
}

Answer Model::isCompressed() {
  const Found found = find(now_->arguments[0], 0, true);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return nil();
  if (!found.record->compressed) return boolean(false);
  return boolean(found.record->handle() == nullptr || !found.record->handle()->isDirect());
}

Answer Model::fileDescriptor() {
  const Found found = find(now_->arguments[0], 0, true);
  if (found.raised) return *found.raised;
  return integer(found.record != nullptr ? found.record->descriptor() : -1);
}

Answer Model::classError() {
  const Value& text = now_->arguments[0];
  if (text.isNil()) {
    if (classErrorText_.empty()) return nil();
    classErrorCode_ = 0;
    return textAnswer(std::exchange(classErrorText_, ""));
  }
  classErrorCode_ = EINVAL;
  if (text.isText()) {
    classErrorText_ = cText(text.bytes.substr(0, CLASS_TEXT_LIMIT));
  } else {
    failInterface(NOT_CHARACTERS, "is not a character object", 0);
  }
  return simple(Kind::Class);
}

// ---- decimal byte text ----

// Reads values until something stops them, and stores them whenever LOAD_CHUNK have come together.
Answer Model::loadByteStrings() {
  const Found found = findOpen(now_->arguments[0]);
  if (found.raised) return *found.raised;
  Record* record = found.record;
  if (record == nullptr) return nil();
  if (!now_->arguments[2].isInteger()) return outOfRange(2);
  const int64 amount = now_->arguments[2].number;
  record->dropReadAhead();
  const auto mayGoOn = [&] { return !record->lastReadEof && record->pendingError() == 0; };
  std::string values;
  int64 stored = 0;
  const auto storeValues = [&] {
    if (!values.empty()) store(1, stored, values);
    stored += static_cast<int64>(values.size());
    values.clear();
  };
  int c = ' ';
  while (stored + static_cast<int64>(values.size()) < amount && mayGoOn() && !pending_) {
    while (isSeparator(c) && mayGoOn()) c = record->readByte();
    if (!isDigit(c)) break;
    int value = c - '0';
    for (int i = 1; i <= 4; ++i) {
      c = record->readByte();
      if (!mayGoOn() || i == 4 || !isDigit(c)) break;
      value = value * 10 + (c - '0');
    }
    values += static_cast<char>(value);
    if (static_cast<int64>(values.size()) == LOAD_CHUNK) storeValues();
  }
  if (!pending_) storeValues();
  if (const auto error = takeInterfaceError()) {
    post(record, *error);
    return nil();
  }
  return integer(stored);
}

// ---- the functions for C ----

Answer Model::readForC() {
  const Found found = findOpen(now_->arguments[0], now_->session);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return integer(-1);
  std::string bytes;
  const int64 got = found.record->readDirectly(now_->count, &bytes);
  if (got < 0) return integer(-1);
  if (got == 0 && found.record->lastReadEof) found.record->storeText(PAST_END);
  return textAnswer(bytes);
}

Answer Model::writeForC() {
  const Found found = findOpen(now_->arguments[0], now_->session);
  if (found.raised) return *found.raised;
  if (found.record == nullptr || !found.record->undoReadAhead()) return boolean(false);
  found.record->clearIndicators();
  if (now_->count <= 0) return boolean(true);
  const int64 written = found.record->write(now_->arguments[1].bytes);
  if (written == 0 || found.record->pendingError() != 0) return boolean(false);
  found.record->nextOsReadPos = wrappedSum(found.record->nextOsReadPos, written);
  return boolean(true);
}

Answer Model::errorStringForC() {
  const Found found = find(now_->arguments[0], now_->session, true);
  if (found.raised) return *found.raised;
  if (found.record == nullptr) return textAnswer("");
  const size_t room = now_->count == 0 ? 0 : static_cast<size_t>(now_->count) - 1;
  Answer answer = textAnswer(found.record->text.substr(0, room));
  answer.bytesUnknown = found.record->textUnknown;
  return answer;
}

// ---- one step ----

Answer Model::dispatch() {
  switch (now_->step) {
    case Step::KvfOpen:
      return open();
    case Step::KvfCreateStdFile:
      return createStandardFile();
    case Step::KvfClose:
      return close();
    case Step::KvfCloseAll:
      return closeAll();
    case Step::KvfFinalizeAll:
      return finalizeAll();
    case Step::KvfClientFinalize:
      return clientFinalize();
    case Step::KvfRead:
      return read();
    case Step::KvfGetC:
      return getCharacter();
    case Step::KvfGetLine:
      return getLine();
    case Step::KvfAtEnd:
      return atEnd();
    case Step::KvfWrite:
      return write();
    case Step::KvfPutC:
      return putCharacter();
    case Step::KvfPrintBytes:
      return printBytes();
    case Step::KvfSeek:
      return seek();
    case Step::KvfPosition:
      return position();
    case Step::KvfFlush:
      return flush(false);
    case Step::KvfSync:
      return flush(true);
    case Step::KvfErrorString:
      return errorString();
    case Step::KvfErrorCode:
      return errorCode();
    case Step::KvfIsOpen:
      return isOpen();
    case Step::KvfIsCompressed:
      return isCompressed();
    case Step::KvfGetFileDesc:
      return fileDescriptor();
    case Step::KvfLoadByteStrings:
      return loadByteStrings();
    case Step::KvfClassError:
      return classError();
    case Step::KvFileRead:
      return readForC();
    case Step::KvFileWrite:
      return writeForC();
    case Step::KvFileFetchErrorString:
      return errorStringForC();
    case Step::KvfStartup:
      startup(now_->session);
      break;
    case Step::KvfShutdown:
      shutdown(now_->session);
      break;
    case Step::SelectSession:
      session_ = now_->session;
      break;
    case Step::SetObject:
      object(now_->arguments[0].number).bytes = now_->arguments[1].bytes;
      break;
  }
  return simple(Kind::Nothing);
}

Operation Model::resolved(const Operation& operation) const {
  Operation whole = operation;
  for (Value& value : whole.arguments) {
    if (value.fromSize) value.number += sizeOf(whole.arguments[1]);
    value.fromSize = false;
  }
  return whole;
}

// An error of the interface that no action has asked for is raised by the host in the end.
Answer Model::perform(const Operation& operation) {
  now_ = &operation;
  pending_.reset();
  host_.lastErrno = UNKNOWN_ERRNO;
  Answer answer = dispatch();
  const auto error = takeInterfaceError();
  if (error && answer.kind != Kind::Raised) return raised(error->number, {detail(error->argument)});
  return answer;
}

// ---- what is left out ----

int64 Model::gzipRoomTaken(const HostFile& file, const Record* record) const {
  auto taken = static_cast<int64>(file.bytes.size()) + 128;
  for (const std::string& member : file.members) taken += static_cast<int64>(member.size()) + 64;
  return taken + record->handle()->tell();
}

// A file that a gzip handle reads stays as it is, and one that a handle writes stays small.
bool Model::admitsWriting(HostFile* file, Record* record, int64 amount) const {
  if (file == nullptr) return true;
  if (!record->compressed) return file->gzipReaders == 0;
  if (!record->handle()->writes()) return true;
  return amount < sizeLimit_ && gzipRoomTaken(*file, record) + amount + 64 < sizeLimit_ * 3 / 4;
}

bool Model::wouldRegister(const Value& file) {
  return !file.isNil() && session_ != 0 && filesOf(session_) != nullptr;
}

bool Model::admitsOpening(const Operation& operation) {
  const Value& modeArgument = operation.arguments[2];
  if (!operation.arguments[1].isText()) return true;
  if (!modeArgument.isText() && modeArgument.kind != Value::Kind::Bytes) return true;
  HostFile* file = host_.find(cText(operation.arguments[1].bytes));
  if (file == nullptr) return true;
  const std::string mode = cText(modeArgument.bytes);
  const bool gzip = operation.arguments[3].kind == Value::Kind::True;
  if (!(gzip ? isGzipMode(mode) : isPlainMode(mode))) return true;
  const Host::Opening how = openingFor(mode, gzip);
  const bool registers = wouldRegister(operation.arguments[0]);
  if (!registers && (gzip || host_.lost().size() >= 8)) return false;
  if (file->gzipWriters > 0 || (how.truncates && file->gzipReaders > 0)) return false;
  if (!gzip) return true;
  if (how.writes)
    return file->descriptors == 0 && static_cast<int64>(file->bytes.size()) < sizeLimit_ / 2;
  return file->name[0] != 's';
}

int64 Model::bytesToWrite(const Operation& operation) const {
  if (operation.step == Step::KvfPutC) return 1;
  if (operation.step == Step::KvFileWrite) return std::max<int64>(operation.count, 0);
  const int64 size = sizeOf(operation.arguments[1]);
  if (operation.step == Step::KvfPrintBytes) return 5 * size + 1;
  return size;
}

bool Model::admits(const Operation& operation) {
  const Value* first = operation.arguments.empty() ? nullptr : &operation.arguments[0];
  const bool hasFile = first != nullptr && first->kind == Value::Kind::File;
  const int session = operation.session > 0 ? operation.session : session_;
  HostFile* file = hasFile ? fileOf(session, first->number) : nullptr;
  Record* record = file != nullptr ? recordOf(session, first->number) : nullptr;
  switch (operation.step) {
    case Step::KvfOpen:
      return admitsOpening(operation);
    case Step::KvfWrite:
    case Step::KvfPutC:
    case Step::KvFileWrite:
      return admitsWriting(file, record, bytesToWrite(operation));
    case Step::KvfPrintBytes:
      // Each field is a write of its own.
      if (record != nullptr && !record->compressed && sizeOf(operation.arguments[1]) > 300)
        return false;
      return admitsWriting(file, record, bytesToWrite(operation));
    case Step::KvfFlush:
    case Step::KvfSync:
      return record == nullptr || !record->compressed || admitsWriting(file, record, 0);
    case Step::KvfSeek:
      if (record == nullptr || !record->compressed || !record->handle()->writes()) return true;
      return admitsWriting(file, record, std::max<int64>(operation.arguments[1].number, 0));
    case Step::KvfLoadByteStrings:
      // Each byte of a plain file is a read of its own.
      return record == nullptr || record->compressed || operation.arguments[2].number < 400 ||
             file->bytes.size() < 1600;
    default:
      return true;
  }
}

}  // namespace model
