// File records opened directly on host files, without a file object, so that each operation of a
// record and the state that it leaves can be looked at.
#pragma once

#include "framework/class_error.h"
#include "record/error_routing.h"
#include "record/file_record.h"
#include "record/line_reader.h"
#include "record/registry.h"
#include "record/unread_guard.h"
#include "support/host_errors.h"
#include "support/module_fixture.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

using namespace kvf;

// The three positions that have to agree.
struct Positions {
  int64 logical;    // what Smalltalk sees
  int64 host;       // where the descriptor or handle stands
  intptr_t unread;  // bytes between them, in the buffer

  bool operator==(const Positions&) const = default;
};

inline void PrintTo(const Positions& at, std::ostream* out) {
  *out << "logical " << at.logical << ", host " << at.host << ", unread " << at.unread;
}

// What a record tells of its last failure.
struct Failure {
  int errCode;
  int zErrCode;
  std::string text;

  bool operator==(const Failure&) const = default;
};

inline void PrintTo(const Failure& failure, std::ostream* out) {
  *out << "errCode " << failure.errCode << ", zErrCode " << failure.zErrCode << ", text \""
       << failure.text << '"';
}

inline const Failure NO_FAILURE{0, 0, ""};

inline Failure hostFailure(int errNum) { return {errNum, 0, hostText(errNum)}; }

inline const char* const APPEND_REFUSAL = "Cannot seek on a file opened with append mode";
inline const char* const PAST_END = "attempt to read past end of file";

inline const ByteType* asBytes(std::string_view text) {
  return reinterpret_cast<const ByteType*>(text.data());
}

// Bytes 0, 1, 2, ... that tell where they came from; no period below 251.
inline std::string countingBytes(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

// The calls that move, read or write the host file, in a short form: "lseek(0, SEEK_CUR)",
// "HostReadFile_(4096)", "gztell". Asking for a descriptor and clearing indicators are left out.
inline std::vector<std::string> fileTraffic(const std::vector<seam::Call>& calls) {
  const std::vector<std::string> counted = {"HostReadFile_", "HostWriteFile_", "gzread",
                                            "gzwrite",       "gzputc",         "gzflush"};
  const std::vector<std::string> plain = {"gztell", "gzgetc", "gzungetc",     "gzclose",
                                          "gzputs", "fflush", "fsync",        "fclose",
                                          "fwrite", "printf", "UnixIoFgets_", "LrSupReadLine"};
  const auto has = [](const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  std::vector<std::string> traffic;
  for (const seam::Call& call : calls) {
    if (call.name == "lseek" || call.name == "gzseek")
      traffic.push_back(call.name + "(" + argumentOf(call, 1) + ", " + argumentOf(call, 2) + ")");
    else if (has(counted, call.name))
      traffic.push_back(call.name + "(" + lastArgumentOf(call) + ")");
    else if (has(plain, call.name))
      traffic.push_back(call.name);
  }
  return traffic;
}

using Traffic = std::vector<std::string>;

class RecordTest : public ModuleTest {
 protected:
  void TearDown() override {
    seam::stop();
    clearFaults();
    for (KvFileDataSType* record : records_) {
      record->lastPutcWasEoln = TRUE;
      record->kvfClose();
      KvFileDataSType::deallocate(record);
    }
    ModuleTest::TearDown();
  }

  // A record on what is given; the fixture closes and frees it.
  KvFileDataSType* adopt(FILE* stream, gzFile handle, bool isStd, const char* mode) {
    KvFileDataSType* record = KvFileDataSType::allocate();
    record->initialize(stream, handle, TRUE, OOP_NIL, isStd, mode);
    records_.push_back(record);
    return record;
  }

  KvFileDataSType* openPlain(const std::string& path, const char* mode) {
    FILE* stream = std::fopen(path.c_str(), mode);
    EXPECT_NE(stream, nullptr) << path;
    return adopt(stream, nullptr, false, mode);
  }

  KvFileDataSType* openGzip(const std::string& path, const char* mode) {
    gzFile handle = gzopen(path.c_str(), mode);
    EXPECT_NE(handle, nullptr) << path;
    return adopt(nullptr, handle, false, mode);
  }

  // A file of its own each time: truncating one that holds data may wait for the disk.
  KvFileDataSType* openPlainWith(std::string_view content, const char* mode) {
    std::filesystem::remove("plain");
    writeFile("plain", content);
    return openPlain("plain", mode);
  }

  // A gzip handle whose descriptor is switched for one that refuses what the handle wants to do.
  static gzFile brokenGzip(const char* path, const char* mode) {
    const bool writes = mode[0] != 'r';
    const int fd = ::open(path, writes ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0600);
    gzFile handle = gzdopen(fd, mode);
    const int refusing = ::open("/dev/null", writes ? O_RDONLY : O_WRONLY);
    ::dup2(refusing, fd);
    ::close(refusing);
    return handle;
  }

  static int64 hostPosition(const KvFileDataSType* record) {
    return record->compressed ? gztell(record->zf) : ::lseek(fileno(record->fPtr), 0, SEEK_CUR);
  }

  static Positions positionsOf(const KvFileDataSType* record) {
    const int64 host = hostPosition(record);
    const bool buffered = record->lastOpWasRead == 1;
    return {buffered ? record->readPosition() : host, host, buffered ? record->bufBytesAvail() : 0};
  }

  static Failure failureOf(const KvFileDataSType* record) {
    return {record->errCode, record->zErrCode, record->errString ? record->errString->msg : ""};
  }

  // Puts a failure into the record as an earlier operation would have left it.
  static void leaveFailure(KvFileDataSType* record, int errCode, int zErrCode, const char* text) {
    record->storeErrorString(text);
    record->errCode = errCode;
    record->zErrCode = zErrCode;
  }

  // Puts bytes to the front of the buffer, past what counts as read.
  static void leaveInBuffer(KvFileDataSType* record, std::string_view bytes) {
    unguardBytes(record->readBuffer, std::end(record->readBuffer));
    std::copy(bytes.begin(), bytes.end(), record->readBuffer);
  }

  // Takes up to `count` of the unread bytes, as the actions do.
  static std::string take(KvFileDataSType* record, intptr_t count) {
    const intptr_t taken = std::min(count, record->bufBytesAvail());
    const auto* from = reinterpret_cast<const char*>(record->readBuffer) + record->readBufIdx;
    record->readBufIdx += taken;
    return std::string(from, static_cast<size_t>(taken));
  }

  // Reads `count` bytes through the buffer.
  static std::string readThroughBuffer(KvFileDataSType* record, intptr_t count) {
    return record->readIntoBuffer(count, "") > 0 ? take(record, count) : std::string();
  }

  static ssize_t write(KvFileDataSType* record, std::string_view text) {
    return record->kvfwrite(asBytes(text), text.size());
  }

 private:
  std::vector<KvFileDataSType*> records_;
};

}  // namespace kvtest
