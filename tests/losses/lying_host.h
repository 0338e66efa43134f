// A host that keeps to its signatures and not to its word: it says that it gave more than it was asked
// for, fills buffers to their last byte, and leaves texts without an end. Needs a program that is
// linked with --wrap for each function that lying_host.cc defines.
#pragma once

#include <kvfile/platform/oop.h>

#include <fcntl.h>

namespace kvtest {

// What the host of this thread does; everything off is the host as it is.
struct Lies {
  // Added to a count where all that was asked for was given, held within the type of the count.
  int64 surplusOops = 0;         // KciFetchOops
  int64 surplusBytes = 0;        // KciFetchBytes_
  int64 surplusUtf8 = 0;         // KciFetchUtf8Bytes_
  int64 surplusRead = 0;         // HostReadFile_
  bool claimsWhenShort = false;  // the surplus also goes on top of a count that was not all

  // A letter that fills the text to the last byte of its buffer, with no NUL; 0: off.
  char version = 0;       // VerGetVersionParam, which then succeeds with a text
  char expandedName = 0;  // HostExpandFileName, which then succeeds
  char variable = 0;      // HostGetEnv, which then succeeds
  char socketText = 0;    // KciSupFetch- and KciSupSetKciSocketBufSize, which then fail
  char line = 0;          // UnixIoFgets_, which then succeeds
  char error = 0;         // KciErr: both texts of an error that was pending

  // The lock that HostLockFileQuery describes, where it is to.
  struct flock64 lock = {};
  bool describesLock = false;
};

extern thread_local Lies lies;

// How often snprintf was given the message of an error of the interface that had no end.
extern thread_local int endlessTextsPrinted;

// Lies for as long as it lives.
class LyingHost {
 public:
  explicit LyingHost(const Lies& told) { lies = told; }
  ~LyingHost() { lies = Lies(); }
  LyingHost(const LyingHost&) = delete;
  LyingHost& operator=(const LyingHost&) = delete;
};

}  // namespace kvtest
