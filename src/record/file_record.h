// The record of one file object: its stream or gzip handle, its read-ahead buffer, its mode and its
// error state, with the operations on them.
#pragma once

#include <kvfile/platform/oop.h>

#include <sys/types.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <type_traits>

#ifndef KVF_READ_BUF_SIZE
#define KVF_READ_BUF_SIZE 4096
#endif

namespace kvf {

inline constexpr intptr_t read_buf_size = KVF_READ_BUF_SIZE;  // bytes read ahead at most
inline constexpr ssize_t INTERRUPTED = -2;  // answer of a read that the user interrupted
inline constexpr int eol_max_size = 128;    // bytes of an end-of-line sequence

// A record's error text.
struct KvFileErrStrType {
  char msg[1024];  // NUL-terminated

  // A new buffer with an empty text, or null.
  static KvFileErrStrType* allocate();
};

// Invariants, as far as holds() can check them. The file is plain or compressed, and `compressed`
// says which of `fPtr` and `zf` counts; the other is null, and both are in a closed record. Index
// and size of the buffer are never negative nor beyond it; a line of standard input may be one byte
// longer than what is read ahead of other files. An error text buffer, once there, stays until the
// record is freed.
//
// The buffer counts only while `lastOpWasRead` is 1. Then the unread bytes are
// readBuffer[readBufIdx..readBufSize). There are none where the index is not below the size: it may
// even lie behind it, since clearReadBuf leaves it where it was and a direct read does not set it.
// `nextOsReadPos` is where the host is taken to stand, just behind the unread bytes, and
// readPosition() the position that Smalltalk sees. That is where the host really stands as long as
// refills alone filled the buffer: a direct read that took bytes from it counts those twice, and a
// pipe tells no position to begin from.
//
// Counts and positions are bytes. Every operation but those that say so may be called on a closed
// record, and then answers its failure value. Reads and writes may block as the host's do.
class KvFileDataSType {
 public:
  OopType objId;
  OopType pathObj;  // nil
  FILE* fPtr;
  KvFileDataSType* prev;
  KvFileDataSType* next;
  KvFileErrStrType* errString;  // null until the first text is stored
  int64 nextOsReadPos;
  intptr_t readBufSize;
  intptr_t readBufIdx;
  int errCode;        // errno value or interface error number of the last failure, 0 for none
  int lastOpWasRead;  // 1: the buffer is valid; 0: it is not; -1: fresh, or the last read failed
  BoolByteType isClient;
  BoolByteType compressed;
  BoolByteType lastReadEof;  // a read hit the end of the file; clearReadBuf forgets it
  BoolByteType lastPutcWasEoln;
  BoolByteType closeOnFinalize;
  BoolByteType isStdFile;  // never closed
  BoolByteType isAppend;   // seeks are refused
  BoolByteType readable;
  BoolByteType writable;
  // Two bytes to spare: a line fetch is given a size two larger than the space left. Aligned,
  // because a read into memory just behind a page boundary costs twice the time.
  alignas(16) ByteType readBuffer[read_buf_size + 2];
  gzFile zf;
  int zErrCode;  // zlib code of the last failure, 0 for none

  // What is said above of every record between two operations.
  bool holds() const;

  // ---- life cycle ----

  // A new record, not initialised, or null.
  static KvFileDataSType* allocate();

  // Sets up a new record for an open stream or handle, exactly one of which is given.
  void initialize(FILE* fileArg, gzFile gzFileArg, BoolType isClientArg, OopType kvfileOID,
                  BoolType isStd, const char* mode);

  // The same for a record in use, whose text buffer stays.
  void reinitialize(FILE* fileArg, gzFile gzFileArg, BoolType isClientArg, OopType kvfileOID,
                    BoolType isStd, const char* mode);

  // Frees a closed record with its text.
  static void deallocate(KvFileDataSType* dataPtr);

  // Sets what the file may do from its mode string; null changes nothing.
  void setFromMode(const char* mode);

  BoolType isOpen() const { return compressed ? zf != nullptr : fPtr != nullptr; }

  // Whether the data is really gzip data; closed files that were compressed count.
  BoolType usingCompression() const;
  BoolType isCompressed() const { return compressed; }

  // ---- errors ----

  // Forgets both codes and empties the text.
  void clearErrorCode();

  /// Host calls of the failure's text: UtlMalloc for the first text of the record, HostStrerror for
  ///   that of an errno value; gzerror before both for a compressed file.
  //
  // Fills the text from `errCode`, only while the record has no text buffer.
  void getErrorString();

  // Stores a text, cut to 1023 bytes, only while the record has no text buffer: the first text of a
  // record is its last, later failures change the codes alone.
  void storeErrorString(const char* str);

  // Takes over zlib's error of the handle, if it has one.
  void getGzError();

  // Takes over errno as the record's code, with its text.
  void storeErrno();

  // The pending code: zlib's for a compressed file, else errno's.
  int kvferror() const { return compressed ? zErrCode : errCode; }

  // Clears the error indicator of the stream or handle, not the record's codes.
  void kvclearerr();

  // ---- the read buffer ----

  // Makes the buffer empty, without repositioning the host.
  void clearReadBuf();

  // Unread bytes; meaningless, and perhaps negative, while the buffer is not valid.
  intptr_t bufBytesAvail() const { return readBufSize - readBufIdx; }

  // The position of the next unread byte, while the buffer is valid.
  int64 readPosition() const;

  /// Host calls of the rewind: where bytes were read ahead that nobody consumed, fileno and lseek,
  ///   or gzseek; else none. The failure's text.
  //
  // Undoes read-ahead before a write. FALSE when the host could not be repositioned, with the error
  // in the record: then nothing may be written.
  BoolType clearReadBufBeforeWrite();

  // ---- reading ----

  // Reads up to `howMany` bytes past the buffer: the count, 0 at the end, or a negative value with
  // the error in the record. -2 is a read that was interrupted before any byte came.
  ssize_t kvfread(ByteType* buf, size_t howMany);

  /// Host calls of the refill: for the position fileno and lseek, or gztell, unless bytes are left
  ///   in the buffer; clearerr_unlocked, or gzerror and gzclearerr; then fileno and HostReadFile_,
  ///   or gzread. For standard input these last two are printf and fflush for the prompt, and
  ///   UnixIoFgets_; where a line reader is installed fileno and isatty come before, and on a
  ///   terminal LrSupReadLine in their place. The failure's text.
  //
  // Makes `numBytes` bytes available where one read can do it. Answers the bytes available, or the
  // result of the failing read when there are none. `prompt` is shown before a line of standard
  // input is read.
  ssize_t readIntoBuffer(ssize_t numBytes, const char* prompt);

  // The same where `avail` bytes are unread, fewer than `numBytes`.
  ssize_t refill(ssize_t numBytes, intptr_t avail, const char* prompt);

  // Looks for an end-of-line sequence of `eolSize` (1 to 128) bytes in the buffer, refilling it
  // first where it holds less. 1: found, 0: not found, and `*nextIdxOut` is the buffer index behind
  // the bytes that are the caller's; -2: interrupted; -1: failed, or at the end of the file while
  // `eofIsError`.
  int readToEol(const ByteType* eolBuf, int eolSize, intptr_t* nextIdxOut, BoolType eofIsError,
                const char* prompt);

  // Whether the file is at its end: the object true or false. May read.
  OopType atEnd();

  // The same for a compressed file.
  BoolType zAtEnd();

  // Reads into the caller's memory: unread bytes first, then one read. Answers the count or a
  // negative value; nothing is read for a count of 0 or less.
  ssize_t basicRead(ByteType* dest, intptr_t numBytes);

  // Reads one byte past the buffer: 0 to 255, or -1 at the end or on failure.
  int kvfgetc();

  // ---- writing and positioning ----

  // Writes `howMany` bytes: the count, or a negative value with the error in the record. zlib
  // reports a failed write as 0.
  ssize_t kvfwrite(const ByteType* buf, size_t howMany);

  // Writes one byte. A failed repositioning is recorded, a failed write is not.
  void kvfputc(ByteType c);

  // Writes a text as it stands, for a caller that has cleared the read buffer. Nothing is recorded.
  void kvfputs(const char* s);

  // Moves the host's position and empties the buffer: the new position, or a negative value with
  // the error in the record. `whence` is SEEK_SET or SEEK_END. A file in append mode refuses all
  // but the end itself.
  int64 kvfseek(int64 offset, int whence);

  // The host's position, or -1 with the error in the record.
  int64 kvftell();

  // Flushes, and waits for the disk when `doSync`: 0, or non-zero with the error in the record. A
  // compressed file ends its gzip member.
  int kvfflush(BoolType doSync);

  /// Host calls of the closing: for a plain file fclose, for a compressed one gzclose; fwrite and
  ///   fflush for standard output that ends within a line; none for any other standard file, and
  ///   for a file that is closed. The failure's text after a failed fclose.
  //
  // Closes the stream or handle and forgets it, also where closing fails. 0, or non-zero after a
  // failed fclose with the error in the record; standard output that ends within a line gets a
  // newline, and then the answer is the count of that write.
  int kvfClose();

  // The descriptor, -1 for a compressed or closed file.
  int kvfFileDesc() const;

  // ---- not used by the module ----

  // Does nothing and answers 0.
  BoolType ungetChar(ByteType) { return FALSE; }
};
static_assert(std::is_trivially_destructible_v<KvFileDataSType>);
static_assert(std::is_trivially_default_constructible_v<KvFileDataSType>);

// Moves the logical position, inside the buffer where that is possible without the host. `seekKind`
// 0: from the start; 1: from the current position, which only a read establishes; 2: from the end.
// Answers the new position, or a negative value with the error in the record.
int64 doSeek(KvFileDataSType* record, int64 position, int seekKind);

}  // namespace kvf
