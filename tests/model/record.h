// The model of one file object's record: what is read ahead, where the next byte is, and what the
// last failure was. Bytes read ahead are a string, the host's file a string with positions.
#pragma once

#include "model/gzip.h"
#include "model/host.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace model {

inline constexpr int64 LARGEST_INT = 2147483647;
inline constexpr size_t TEXT_LIMIT = 1023;  // of a record's error text
inline constexpr std::string_view PAST_END = "attempt to read past end of file";
inline constexpr int64 INTERRUPTED = -2;

// True when scanning for a line end stopped behind one, else what the caller is told.
enum class LineEnd { Found, NotFound, Failed };

class Record {
 public:
  Record(Host* host, int64 bufferSize) : host_(host), bufferSize_(bufferSize) {}

  // Binds the record to a descriptor or a handle, the first time or again.
  void bind(int descriptor, std::unique_ptr<GzipHandle> handle, bool isStd,
            const std::string& mode);

  bool isOpen() const { return compressed ? handle_ != nullptr : descriptor_ >= 0; }
  bool isStandardFile() const { return isStandardFile_; }
  bool readsAhead() const { return lastOpWasRead == 1; }
  int descriptor() const { return compressed ? -1 : descriptor_; }
  GzipHandle* handle() const { return handle_.get(); }

  // Errors.
  void clearError();
  void storeText(std::string_view text);
  void storeHostError();
  void storeGzipError();
  int pendingError() const { return compressed ? zErrCode : errCode; }

  // Reading.
  void dropReadAhead();
  int64 ahead() const { return static_cast<int64>(buffer_.size()) - next_; }
  int64 readPosition() const { return wrappedDifference(nextOsReadPos, ahead()); }
  int64 readHost(int64 count, std::string* bytes);
  int64 readIntoBuffer(int64 wanted, std::string_view prompt);
  // Counts the bytes read ahead up to behind the line end; the caller takes them.
  LineEnd readToLineEnd(std::string_view lineEnd, bool endIsError, std::string_view prompt,
                        int64* count);
  std::string take(int64 count);  // of the bytes read ahead
  bool atEnd();
  int64 readDirectly(int64 count, std::string* bytes);
  int readByte();

  // Writing and positions.
  bool undoReadAhead();
  int64 write(std::string_view bytes);
  void writeByte(char byte);
  void writeText(std::string_view text);
  int64 seekHost(int64 offset, int whence);
  int64 tellHost();
  int64 seek(int64 position, int64 kind);
  bool flush(bool sync);
  int64 close();  // what kvfClose answers
  void clearIndicators();

  bool compressed = false;
  bool lastReadEof = false;
  int lastOpWasRead = -1;
  int64 nextOsReadPos = 0;
  int errCode = 0;
  int zErrCode = 0;
  std::string text;
  bool textUnknown = false;  // a text that could not be foretold was stored

 private:
  bool isInput() const { return !compressed && descriptor_ == 0 && isStandardFile_; }
  int64 readLine(int64 wanted, std::string_view prompt, std::string* bytes);
  bool gzipAtEnd();
  bool servesFromBuffer(int64 position);

  Host* host_;
  int64 bufferSize_;
  int descriptor_ = -1;
  std::unique_ptr<GzipHandle> handle_;
  bool isStandardFile_ = false;
  bool isAppend_ = false;
  bool readable_ = false;
  bool writable_ = false;
  bool lastByteEndedLine_ = true;
  bool hasTextBuffer_ = false;
  std::string buffer_;
  int64 next_ = 0;  // of the next unread byte in buffer_; may lie behind its end
};

}  // namespace model
