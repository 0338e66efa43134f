// The one place that turns an error number into a text:
//
//   errno=2,ENOENT, No such file or directory
//   errno=2,ENOENT, No such file or directory : notes.txt        (with what it was about)
//
// Error 0 reads "errno=0,NONE, No error was reported", a number without a name
// "errno=9999,UNKNOWN, Unknown error".
#pragma once

#include <kvfile/platform/syserror.h>

#include <cstddef>

namespace kvhost {

// Writes the text of `errNum` to the `size` bytes at `buf`, cut to fit and NUL-terminated; nothing
// where `size` is 0. A `subject` that is not null and not empty follows after " : ".
void formatErrno(int errNum, const char* subject, char* buf, std::size_t size);

// Records `errNum` and what it was about in `*err`; SysErrorFinishMsg then makes the text of both.
void recordErrno(SysErrorSType* err, int errNum, const char* subject);

}  // namespace kvhost
