// How each function tells of a failure. A failure type has
//
//   FAILS        whether the function's contract knows a failure at all
//   fail         makes it: fills what the function fills, sets errno, and answers the failure value
//   errorNumber  the errno value behind a result, 0 where the result tells of no failure
//
// Both take the arguments as a tuple.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>

#include "seam/gz_errors.h"

#include <cerrno>
#include <cstdint>
#include <tuple>
#include <type_traits>

namespace seam {

template <class R>
R fromNumber(int64_t number) {
  if constexpr (std::is_void_v<R>) {
    return;
  } else if constexpr (std::is_pointer_v<R>) {
    return nullptr;
  } else {
    return static_cast<R>(number);
  }
}

// No failure: neither a result nor an argument tells of one.
struct Never {
  static constexpr bool FAILS = false;

  template <class R, class Arguments>
  static R fail(int64_t, const Arguments&) {
    return fromNumber<R>(0);
  }

  template <class R, class Arguments>
  static int errorNumber(R, const Arguments&) {
    return 0;
  }
};

// Answers `VALUE` (null where it answers an address) and sets errno.
template <int64_t VALUE>
struct Fails {
  static constexpr bool FAILS = true;

  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments&) {
    errno = static_cast<int>(number);
    return fromNumber<R>(VALUE);
  }

  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments&) {
    return result == fromNumber<R>(VALUE) ? errno : 0;
  }
};

using FailsNull = Fails<0>;

// Tells of its failures by an error of the interface, never by errno.
template <int64_t VALUE>
struct FailsSilently : Fails<VALUE> {
  template <class R, class Arguments>
  static int errorNumber(R, const Arguments&) {
    return 0;
  }
};

struct FailsNegative : Fails<-1> {
  template <class Arguments>
  static int errorNumber(ssize_t result, const Arguments&) {
    return result < 0 ? errno : 0;
  }

  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments& arguments) {
    return errorNumber(static_cast<ssize_t>(result), arguments);
  }
};

// Sets the int flag at argument FLAG, and answers 0.
template <size_t FLAG>
struct SetsFlag : Never {
  static constexpr bool FAILS = true;

  template <class R, class Arguments>
  static R fail(int64_t, const Arguments& arguments) {
    *std::get<FLAG>(arguments) = 1;
    return fromNumber<R>(0);
  }
};

// Stores the errno value at argument STATUS and answers nothing.
template <size_t STATUS>
struct SetsStatus : Never {
  static constexpr bool FAILS = true;

  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    errno = static_cast<int>(number);
    *std::get<STATUS>(arguments) = static_cast<int>(number);
    return fromNumber<R>(0);
  }
};

// Fills the HostErrSType at argument ERROR.
template <size_t ERROR, int64_t VALUE = 0>
struct FillsHostErr {
  static constexpr bool FAILS = true;

  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    errno = static_cast<int>(number);
    if (HostErrSType* error = std::get<ERROR>(arguments))
      error->theErrno = static_cast<int>(number);
    return fromNumber<R>(VALUE);
  }

  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments& arguments) {
    const HostErrSType* error = std::get<ERROR>(arguments);
    return result == fromNumber<R>(VALUE) && error != nullptr ? error->theErrno : 0;
  }
};

using FileTypeFails = FillsHostErr<1, HOST_FILE_KIND_ERROR>;

// A text of the error in the buffer at argument BUFFER, whose size is the next argument.
template <size_t BUFFER, int64_t VALUE>
struct FillsText : Fails<VALUE> {
  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    char* buffer = std::get<BUFFER>(arguments);
    const size_t size = std::get<BUFFER + 1>(arguments);
    if (buffer != nullptr && size > 0) HostStrerror(static_cast<int>(number), buffer, size);
    errno = static_cast<int>(number);
    return fromNumber<R>(VALUE);
  }
};

using FetchBufSizeFails = FillsText<1, -1>;
using SetBufSizeFails = FillsText<2, 0>;
using FstatFails = FillsText<2, 0>;

// Completes the record at argument ERROR with its text.
template <size_t ERROR, int64_t VALUE>
struct FillsSysErrTo : Fails<VALUE> {
  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    if (SysErrorSType* error = std::get<ERROR>(arguments)) {
      error->initialize();
      error->errCode = static_cast<SysErrorCodeEType>(number);
      error->categ = SYS_ERROR_CATEG_ERRNO;
      error->finishMsg();
    }
    errno = static_cast<int>(number);
    return fromNumber<R>(VALUE);
  }
};

// The locks answer 1 and 0 for what they found out, and anything else for a failure.
constexpr int LOCK_FAILED = 2;

template <size_t ERROR>
struct FillsSysErr : FillsSysErrTo<ERROR, LOCK_FAILED> {
  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments& arguments) {
    const SysErrorSType* error = std::get<ERROR>(arguments);
    return result != 0 && result != 1 && error != nullptr ? error->errCode : 0;
  }
};

using FileModTimeFails = FillsSysErrTo<2, 0>;
using LockQueryFails = FillsText<5, LOCK_FAILED>;

struct FileExistSizeFails : FillsHostErr<3> {
  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    *std::get<2>(arguments) = number != ENOENT;
    FillsText<4, 0>::template fail<R>(number, arguments);
    return FillsHostErr<3>::template fail<R>(number, arguments);
  }
};

struct DirectoryFails : Fails<0> {
  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    std::get<2>(arguments)->errNum = static_cast<int>(number);
    return Fails<0>::template fail<R>(number, arguments);
  }

  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments& arguments) {
    return result == 0 ? std::get<2>(arguments)->errNum : 0;
  }
};

// Reading a line answers 0, -1 at the end and -2 for an interrupt, and anything else for a failure.
struct LineReadFails : Fails<-3> {
  template <class R, class Arguments>
  static int errorNumber(R result, const Arguments&) {
    return result > 0 || result < -2 ? errno : 0;
  }
};

// Leaves an error in the gzip handle at argument HANDLE, as zlib does.
template <int64_t VALUE, size_t HANDLE = 0>
struct FailsGz : Fails<VALUE> {
  // The errno value of an error that was left there, or 0.
  template <class Arguments>
  static int leftError(const Arguments& arguments) {
    return notedGzError(std::get<HANDLE>(arguments));
  }

  template <class R, class Arguments>
  static R fail(int64_t number, const Arguments& arguments) {
    noteGzError(std::get<HANDLE>(arguments), static_cast<int>(number));
    return Fails<VALUE>::template fail<R>(number, arguments);
  }
};

using FailsUngetc = FailsGz<-1, 1>;

}  // namespace seam
