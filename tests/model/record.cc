#include "model/record.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace model {

namespace {

bool contains(const std::string& mode, const char* part) {
  return mode.find(part) != std::string::npos;
}

}  // namespace

void Record::bind(int descriptor, std::unique_ptr<GzipHandle> handle, bool isStd,
                  const std::string& mode) {
  descriptor_ = descriptor;
  handle_ = std::move(handle);
  compressed = handle_ != nullptr;
  isStandardFile_ = isStd;
  lastOpWasRead = -1;
  lastReadEof = false;
  lastByteEndedLine_ = true;
  errCode = zErrCode = 0;
  nextOsReadPos = next_ = 0;
  buffer_.clear();
  const bool both = contains(mode, "a+") || contains(mode, "r+") || contains(mode, "w+");
  readable_ = both || contains(mode, "r");
  writable_ = both || contains(mode, "w");
  isAppend_ = !writable_ && contains(mode, "a");
  writable_ = writable_ || isAppend_;
}

// ---- errors ----

void Record::clearError() {
  errCode = zErrCode = 0;
  text.clear();
  textUnknown = false;
}

// The first text of a record is the only one that it ever has.
void Record::storeText(std::string_view what) {
  if (!hasTextBuffer_) text = what.substr(0, TEXT_LIMIT);
  hasTextBuffer_ = true;
}

void Record::storeHostError() {
  errCode = host_->lastErrno;
  if (!hasTextBuffer_ && errCode == UNKNOWN_ERRNO) textUnknown = true;
  storeText(errCode == UNKNOWN_ERRNO ? "?" : errnoText(errCode));
}

void Record::storeGzipError() {
  if (handle_ == nullptr) return;
  zErrCode = handle_->error();
  if (zErrCode == GZIP_ERRNO) {
    storeHostError();
  } else if (zErrCode != GZIP_OK) {
    storeText(handle_->errorText());
  }
}

// A handle that has lost its place stays failed, and tells so with EIO.
void Record::clearIndicators() {
  if (handle_ == nullptr) return;
  if (handle_->error() == GZIP_ERRNO) {
    host_->lastErrno = EIO;
  } else {
    handle_->clearError();
  }
}

// ---- reading ----

void Record::dropReadAhead() {
  lastOpWasRead = 0;
  buffer_.clear();
  lastReadEof = false;
}

int64 Record::readHost(int64 count, std::string* bytes) {
  clearError();
  bytes->clear();
  if (!isOpen()) return -1;
  if (!compressed) {
    const int64 got = host_->read(descriptor_, count, bytes);
    if (got == 0) lastReadEof = true;
    if (got < 0) storeHostError();
    return got;
  }
  const int64 asked = std::min(count, LARGEST_INT);
  const int64 got = handle_->read(asked, bytes);
  if (got == asked) return count;
  if (got == 0) lastReadEof = true;
  if (got < 0) storeGzipError();
  return got;
}

// A line from standard input, cut where it holds a NUL; -1 where there is none.
int64 Record::readLine(int64 wanted, std::string_view prompt, std::string* bytes) {
  const int64 room = wanted <= bufferSize_ - 3 ? wanted + 2 : bufferSize_;
  host_->print(prompt);
  const int status = host_->getLine(room - 1, bytes);
  if (status == 0) {
    bytes->resize(std::min(bytes->find('\0'), bytes->size()));
    return static_cast<int64>(bytes->size());
  }
  if (status == -1) lastReadEof = true;
  return -1;
}

int64 Record::readIntoBuffer(int64 wanted, std::string_view prompt) {
  int64 have = readsAhead() ? ahead() : 0;
  if (wanted <= have) return have;
  if (have > 0) {
    buffer_.erase(0, static_cast<size_t>(next_));
  } else {
    buffer_.clear();
    have = 0;
    nextOsReadPos = tellHost();
  }
  next_ = 0;
  wanted -= have;
  if (wanted <= 0) return have;
  clearIndicators();
  std::string bytes;
  int64 got = 0;
  if (isInput()) {
    got = readLine(wanted, prompt, &bytes);
    lastOpWasRead = readable_ ? 1 : 0;
    if (got < 0) return have;
  } else {
    got = readHost(bufferSize_ - have, &bytes);
    lastOpWasRead = readable_ ? 1 : 0;
  }
  if (got <= 0 && have == 0) {
    if (got != 0) lastOpWasRead = -1;
    return got;
  }
  if (got > 0) {
    buffer_ += bytes;
    nextOsReadPos = wrappedSum(nextOsReadPos, got);
  }
  return have + std::max<int64>(got, 0);
}

std::string Record::take(int64 count) {
  std::string taken = buffer_.substr(static_cast<size_t>(next_), static_cast<size_t>(count));
  next_ += count;
  return taken;
}

LineEnd Record::readToLineEnd(std::string_view lineEnd, bool endIsError, std::string_view prompt,
                              int64* count) {
  const auto size = static_cast<int64>(lineEnd.size());
  if (!(readsAhead() && ahead() >= size)) {
    const int64 got = readIntoBuffer(bufferSize_ - (readsAhead() ? ahead() : 0), prompt);
    if (got <= 0) {
      if (lastReadEof && endIsError) {
        storeText(PAST_END);
        return LineEnd::Failed;
      }
      if (pendingError() != 0) return LineEnd::Failed;
    }
  }
  // A failed comparison skips the length of the line end, not one byte.
  const auto end = static_cast<int64>(buffer_.size());
  int64 at = next_;
  bool found = false;
  while (at < end && !found) {
    if (buffer_[static_cast<size_t>(at)] != lineEnd[0]) {
      ++at;
    } else if (size > end - at) {
      break;
    } else {
      found = buffer_.compare(static_cast<size_t>(at), lineEnd.size(), lineEnd) == 0;
      at += size;
    }
  }
  *count = at - next_;
  return found ? LineEnd::Found : LineEnd::NotFound;
}

bool Record::gzipAtEnd() {
  if (writable_) return true;
  if (readsAhead() && ahead() != 0) return false;
  const int byte = handle_->getByte();
  if (byte < 0) return true;
  handle_->ungetByte(byte);
  return false;
}

bool Record::atEnd() {
  if (compressed) return gzipAtEnd();
  if (readsAhead()) {
    if (lastReadEof) return true;
    if (ahead() > 0) return false;
    readIntoBuffer(bufferSize_, "");
    return ahead() <= 0;
  }
  if (readable_) {
    readIntoBuffer(bufferSize_, "");
    return lastReadEof || ahead() <= 0;
  }
  const int64 position = tellHost();
  seekHost(0, SEEK_END);
  const int64 end = tellHost();
  seekHost(position, SEEK_SET);
  return position >= end;
}

int64 Record::readDirectly(int64 count, std::string* bytes) {
  bytes->clear();
  count = std::max<int64>(count, 0);
  if (readsAhead() && ahead() > 0) *bytes = take(std::min(ahead(), count));
  const auto buffered = static_cast<int64>(bytes->size());
  if (count == buffered) return buffered;
  std::string more;
  const int64 got = readHost(count - buffered, &more);
  if (got < 0) return got;
  *bytes += more;
  lastOpWasRead = 1;
  nextOsReadPos = wrappedSum(nextOsReadPos, buffered + got);
  return buffered + got;
}

int Record::readByte() {
  if (compressed) return handle_ != nullptr ? handle_->getByte() : -1;
  std::string byte;
  return readHost(1, &byte) == 1 ? static_cast<unsigned char>(byte[0]) : -1;
}

// ---- writing and positions ----

bool Record::undoReadAhead() {
  if (!readsAhead() || ahead() <= 0) {
    dropReadAhead();
    return true;
  }
  const int64 position = readPosition();
  dropReadAhead();
  clearError();
  return seekHost(position, SEEK_SET) >= 0;
}

int64 Record::write(std::string_view bytes) {
  clearIndicators();
  clearError();
  if (!undoReadAhead()) return -1;
  if (!bytes.empty()) lastByteEndedLine_ = bytes.back() == '\n';
  if (compressed) return handle_ != nullptr ? handle_->write(bytes) : 0;
  if (descriptor_ < 0) return -1;
  const int64 count = host_->write(descriptor_, bytes);
  if (count < 0) storeHostError();
  return count;
}

void Record::writeByte(char byte) {
  lastByteEndedLine_ = byte == '\n';
  if (!undoReadAhead() || !isOpen()) return;
  if (compressed) {
    handle_->write({&byte, 1});
  } else {
    host_->write(descriptor_, {&byte, 1});
  }
}

void Record::writeText(std::string_view bytes) {
  if (!bytes.empty()) lastByteEndedLine_ = bytes.back() == '\n';
  if (!isOpen()) return;
  if (compressed) {
    handle_->write(bytes);
  } else {
    host_->write(descriptor_, bytes);
  }
}

int64 Record::seekHost(int64 offset, int whence) {
  clearError();
  dropReadAhead();
  if (!isOpen()) return -1;
  if (compressed) {
    if (whence == SEEK_SET && offset < 0) return -1;  // zlib would lose its place
    const int64 position = handle_->seek(offset, whence);
    if (position < 0) storeGzipError();
    return position;
  }
  if (isAppend_ && !(whence == SEEK_END && offset == 0)) {
    errCode = EBADF;
    storeText("Cannot seek on a file opened with append mode");
    return -1;
  }
  const int64 position = host_->seek(descriptor_, offset, whence);
  if (position < 0) storeHostError();
  return position;
}

int64 Record::tellHost() {
  clearError();
  if (!isOpen()) return -1;
  if (compressed) return handle_->tell();
  return host_->seek(descriptor_, 0, SEEK_CUR);
}

bool Record::servesFromBuffer(int64 position) {
  if (!readsAhead() || ahead() <= 0 || writable_) return false;
  const int64 start = wrappedDifference(nextOsReadPos, static_cast<int64>(buffer_.size()));
  return position >= start && position < nextOsReadPos;
}

int64 Record::seek(int64 position, int64 kind) {
  if (kind == 2) {
    dropReadAhead();
    clearError();
    if (seekHost(position, SEEK_END) < 0) return -1;
    clearError();
    const int64 end = tellHost();
    if (end != -1) nextOsReadPos = end;
    return end;
  }
  if (kind == 1 && readsAhead()) position = wrappedSum(position, readPosition());
  if (servesFromBuffer(position)) {
    next_ += wrappedDifference(position, readPosition());
    return position;
  }
  dropReadAhead();
  clearError();
  const int64 reached = seekHost(position, SEEK_SET);
  if (reached < 0) return reached;
  return nextOsReadPos = position;
}

bool Record::flush(bool /*sync*/) {
  if (compressed) {
    if (handle_->flush() == GZIP_OK) return true;
    storeGzipError();
    return false;
  }
  if (!isInput() || host_->flushInput()) return true;
  storeHostError();
  return false;
}

int64 Record::close() {
  if (compressed) {
    if (handle_ != nullptr) {
      handle_->finish();
      HostFile* file = host_->at(handle_->descriptor).file;
      --(handle_->writes() ? file->gzipWriters : file->gzipReaders);
      host_->close(handle_->descriptor);
      handle_.reset();
    }
    return 0;
  }
  const int descriptor = std::exchange(descriptor_, -1);
  if (descriptor < 0) return 0;
  if (!isStandardFile_) {
    host_->close(descriptor);
    return 0;
  }
  if (descriptor != STDOUT_FILENO || lastByteEndedLine_) return 0;
  host_->print("\n");
  lastByteEndedLine_ = true;
  return 1;
}

}  // namespace model
