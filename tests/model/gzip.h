// What zlib's gzip files do, as far as a single user of a file sees it: a writer is a stream of bytes
// with gaps of zeros that is cut into members, a reader is what the file's bytes decompress to.
//
// The model leaves out what depends on how much zlib holds back: nobody else may write to a file
// that a handle reads, or use one that a handle writes (Model::admits sees to it).
#pragma once

#include "model/host.h"

#include <zlib.h>

#include <string>
#include <string_view>

namespace model {

// zlib's codes.
inline constexpr int GZIP_OK = 0;
inline constexpr int GZIP_ERRNO = -1;
inline constexpr int GZIP_STREAM_ERROR = -2;
inline constexpr int GZIP_DATA_ERROR = -3;
inline constexpr int GZIP_BUFFER_ERROR = -5;

// What handles of both kinds have; positions count decompressed bytes.
class GzipHandle {
 public:
  GzipHandle(Host* host, int opened, std::string path)
      : descriptor(opened), host_(host), path_(std::move(path)) {}
  virtual ~GzipHandle() = default;
  GzipHandle(const GzipHandle&) = delete;
  GzipHandle& operator=(const GzipHandle&) = delete;

  virtual int64 read(int64 count, std::string* bytes) = 0;  // -1: failed
  virtual int getByte() = 0;                                // -1: none
  virtual void ungetByte(int byte) = 0;                     // the one that was got last
  virtual int64 write(std::string_view bytes) = 0;          // 0: nothing written
  virtual int64 seek(int64 offset, int whence) = 0;         // -1: refused
  virtual int flush() = 0;                                  // 0, or a code
  virtual void finish() = 0;                                // what closing writes
  virtual void clearError() = 0;
  virtual bool isDirect() = 0;  // the bytes of the file are read as they are
  virtual bool writes() const = 0;

  int64 tell() const { return position_ + gap_; }
  int error() const { return error_; }
  // As zlib tells it, with the file's name before it.
  std::string errorText() const { return path_ + ": " + message_; }

  const int descriptor;

 protected:
  void fail(int code, std::string_view message) {
    error_ = code;
    message_ = message;
  }

  Host* host_;
  int64 position_ = 0;
  int64 gap_ = 0;  // a seek that the next read or write carries out
  int error_ = GZIP_OK;
  std::string message_;

 private:
  std::string path_;
};

// Decompressing is left to zlib's inflate; how much of the file it is given at once, and how much is
// made of it at once, decides what is lost where a file is damaged or cut.
class GzipReader : public GzipHandle {
 public:
  using GzipHandle::GzipHandle;
  ~GzipReader() override;

  int64 read(int64 count, std::string* bytes) override;
  int getByte() override;
  void ungetByte(int byte) override;
  int64 write(std::string_view) override { return 0; }
  int64 seek(int64 offset, int whence) override;
  int flush() override { return GZIP_STREAM_ERROR; }
  void finish() override {}
  void clearError() override;
  bool isDirect() override;
  bool writes() const override { return false; }

 private:
  static constexpr int64 CHUNK = 16384;       // made at once
  static constexpr int64 INPUT = 8192;        // given at once
  static constexpr int64 ONE_READ = 1 << 30;  // never more than that from the file

  // Where the data stands: not looked at since the start of the file or the end of a member, copied
  // as it is, or decompressed.
  enum class State { Unknown, Copied, Packed };

  bool usable() const { return error_ == GZIP_OK || error_ == GZIP_BUFFER_ERROR; }
  bool isUsedUp() const { return sawEnd_ && input_.empty(); }
  int64 ready() const { return static_cast<int64>(output_.size() - passed_); }
  void pass(int64 count);

  // Each of these is false for a failure; nothing ready afterwards is the end.
  bool load(int64 count, std::string* bytes);
  bool loadInput();
  bool look();
  bool copy(int64 atMost);
  bool unpack(int64 atMost);
  bool fetch();
  bool makeReady(int64 wanted);
  bool skipGap();
  void rewind();
  bool failWith(int code, std::string_view message);

  State state_ = State::Unknown;
  bool direct_ = true;
  bool sawEnd_ = false;  // of the file
  std::string input_;    // read from the file and not decompressed yet
  std::string output_;   // ready to be delivered from passed_ on
  size_t passed_ = 0;
  z_stream stream_ = {};
  bool hasStream_ = false;
};

class GzipWriter : public GzipHandle {
 public:
  using GzipHandle::GzipHandle;

  int64 read(int64, std::string*) override { return -1; }
  int getByte() override { return -1; }
  void ungetByte(int) override {}
  int64 write(std::string_view bytes) override;
  int64 seek(int64 offset, int whence) override;
  int flush() override;
  void finish() override { flush(); }
  void clearError() override {}
  bool isDirect() override { return false; }
  bool writes() const override { return true; }

 private:
  void fillGap();
  void append(std::string_view bytes);

  std::string member_;
  bool memberBegun_ = true;  // a file that is opened and closed holds one empty member
};

}  // namespace model
