// Calls of zlib as the module makes them, and those that zlib makes in turn. zlib itself is real: its
// archive is linked with malloc, read, write and the like led to the functions here.
#include "every_fault/world.h"

#include <fcntl.h>
#include <sys/types.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>

using namespace every_fault;

namespace {

// An error that a fault left in a handle, until it is cleared.
struct GzError {
  gzFile file;
  int code;
};
constexpr int GZ_ERRORS = 4;
GzError gzErrors[GZ_ERRORS];

// The handles that are open.
constexpr int GZ_HANDLES = 8;
gzFile openHandles[GZ_HANDLES];

void exchangeHandle(gzFile from, gzFile to) {
  for (gzFile& handle : openHandles) {
    if (handle != from) continue;
    handle = to;
    return;
  }
}

bool is(const Fault* fault, What what) { return fault != nullptr && fault->what == what; }

GzError* errorOf(gzFile file) {
  for (GzError& error : gzErrors) {
    if (error.file == file && file != nullptr) return &error;
  }
  return nullptr;
}

void clearError(gzFile file) {
  if (GzError* error = errorOf(file)) *error = {};
}

// zlib refuses everything while an error is in the handle; reading goes on behind Z_BUF_ERROR.
bool refuses(gzFile file, bool reads) {
  const GzError* error = errorOf(file);
  return error != nullptr && error->code != Z_OK && !(reads && error->code == Z_BUF_ERROR);
}

// zlib calls on while it works, so the line of its own call is written first, without its result.
struct Around {
  size_t line;
};

Around beginAround() {
  Around around = {w.log.size()};
  if (w.logging && !w.quiet) w.log.push_back(w.line);
  ++w.zlibDepth;
  return around;
}

template <class R>
R endAround(const Around& around, R result) {
  --w.zlibDepth;
  if (w.quiet) return result;
  mix(static_cast<uint64_t>(static_cast<int64>(result)));
  if (w.logging) w.log[around.line] += " = " + std::to_string(static_cast<int64>(result));
  return result;
}

// The failure of a call that is not made.
template <class R>
R fail(const Fault* fault, gzFile file, R failure) {
  errno = EIO;
  for (GzError& error : gzErrors) {
    if (error.file != nullptr && error.file != file) continue;
    error = {file, fault->what == What::Zlib ? fault->value : Z_OK};
    break;
  }
  return done(failure);
}

}  // namespace

namespace every_fault {
void forgetGzErrors() {
  for (GzError& error : gzErrors) error = {};
}

int closeLeftHandles() {
  int count = 0;
  for (gzFile& handle : openHandles) {
    if (handle == nullptr) continue;
    gzclose(handle);
    handle = nullptr;
    ++count;
  }
  return count;
}
}  // namespace every_fault

extern "C" {

// ---- what the module calls ----

gzFile seam_gzopen(const char* path, const char* mode) {
  const Fault* fault = call(FN_gzopen, TextArg{path}, TextArg{mode});
  if (fault != nullptr) {
    // zlib tells of its own want of memory without an errno.
    errno = fault->what == What::NoMemory ? 0 : fault->value;
    return donePointer<gzFile_s>(nullptr);
  }
  const Around around = beginAround();
  const gzFile file = gzopen(path, mode);
  endAround(around, file != nullptr);
  if (file != nullptr) exchangeHandle(nullptr, file);
  return file;
}

int seam_gzread(gzFile file, void* buf, unsigned len) {
  const Fault* fault = call(FN_gzread, int64{len});
  if (is(fault, What::Zlib)) return fail(fault, file, -1);
  if (is(fault, What::End)) return done(0);
  if (refuses(file, true)) return done(-1);
  const Around around = beginAround();
  return endAround(around, gzread(file, buf, static_cast<unsigned>(cutShort(fault, len))));
}

int seam_gzgetc(gzFile file) {
  const Fault* fault = call(FN_gzgetc);
  if (is(fault, What::End)) return done(-1);
  if (fault != nullptr) return fail(fault, file, -1);
  if (refuses(file, true)) return done(-1);
  const Around around = beginAround();
  return endAround(around, (gzgetc)(file));
}

int seam_gzungetc(int c, gzFile file) {
  const Fault* fault = call(FN_gzungetc, int64{c});
  if (fault != nullptr) return fail(fault, file, -1);
  if (refuses(file, true)) return done(-1);
  const Around around = beginAround();
  return endAround(around, gzungetc(c, file));
}

int seam_gzwrite(gzFile file, const void* buf, unsigned len) {
  const Fault* fault = call(FN_gzwrite, BytesArg{buf, int64{len}});
  if (fault != nullptr) return fail(fault, file, 0);
  if (refuses(file, false)) return done(0);
  const Around around = beginAround();
  return endAround(around, gzwrite(file, buf, len));
}

int seam_gzputc(gzFile file, int c) {
  const Fault* fault = call(FN_gzputc, int64{c});
  if (fault != nullptr) return fail(fault, file, -1);
  if (refuses(file, false)) return done(-1);
  const Around around = beginAround();
  return endAround(around, gzputc(file, c));
}

int seam_gzputs(gzFile file, const char* s) {
  const Fault* fault = call(FN_gzputs, TextArg{s});
  if (fault != nullptr) return fail(fault, file, -1);
  if (refuses(file, false)) return done(-1);
  const Around around = beginAround();
  return endAround(around, gzputs(file, s));
}

int seam_gzprintf(gzFile file, const char* format, ...) {
  const Fault* fault = call(FN_gzprintf, TextArg{format});
  if (fault != nullptr) return fail(fault, file, -1);
  if (refuses(file, false)) return done(errorOf(file)->code);
  const Around around = beginAround();
  va_list arguments;
  va_start(arguments, format);
  const int result = gzvprintf(file, format, arguments);
  va_end(arguments);
  return endAround(around, result);
}

z_off_t seam_gzseek(gzFile file, z_off_t offset, int whence) {
  const Fault* fault = call(FN_gzseek, int64{offset}, int64{whence});
  if (fault != nullptr) return fail(fault, file, z_off_t{-1});
  if (refuses(file, true)) return done(z_off_t{-1});
  const Around around = beginAround();
  return endAround(around, gzseek(file, offset, whence));
}

z_off_t seam_gztell(gzFile file) {
  const Fault* fault = call(FN_gztell);
  if (fault != nullptr) return fail(fault, file, z_off_t{-1});
  const Around around = beginAround();
  return endAround(around, gztell(file));
}

int seam_gzflush(gzFile file, int flush) {
  const Fault* fault = call(FN_gzflush, int64{flush});
  if (fault != nullptr) return fail(fault, file, fault->value);
  if (refuses(file, false)) return done(Z_STREAM_ERROR);
  const Around around = beginAround();
  return endAround(around, gzflush(file, flush));
}

// Gives the handle up in any case, as zlib does.
int seam_gzclose(gzFile file) {
  const Fault* fault = call(FN_gzclose);
  clearError(file);
  exchangeHandle(file, nullptr);
  const Around around = beginAround();
  const int status = gzclose(file);
  if (fault != nullptr) errno = EIO;
  return endAround(around, fault != nullptr ? fault->value : status);
}

const char* seam_gzerror(gzFile file, int* code) {
  call(FN_gzerror);
  if (const GzError* error = errorOf(file); error != nullptr && error->code != Z_OK) {
    *code = done(error->code);
    return "an error of zlib";
  }
  const char* text = gzerror(file, code);
  done(*code);
  return text;
}

void seam_gzclearerr(gzFile file) {
  call(FN_gzclearerr);
  clearError(file);
  gzclearerr(file);
  doneVoid();
}

int seam_gzdirect(gzFile file) {
  call(FN_gzdirect);
  const Around around = beginAround();
  return endAround(around, gzdirect(file));
}

// ---- what zlib calls ----

// In front of each block, for its count.
struct alignas(16) ZlibHeader {
  bool counted;
};

void* zlib_malloc(size_t size) {
  const Fault* fault = call(FN_zlib_malloc);
  if (fault != nullptr) {
    errno = ENOMEM;
    return donePointer<void>(nullptr);
  }
  auto* header = static_cast<ZlibHeader*>(malloc(sizeof(ZlibHeader) + size));
  if (header == nullptr) abort();
  header->counted = !w.quiet;
  if (!w.quiet) ++w.zlibBlocks;
  // The window of a deflate stream is large and is written before it is read.
  constexpr size_t LARGE = 40000;
  constexpr int STALE = 0xA5;
  if (size < LARGE) memset(header + 1, STALE, size);
  return donePointer(static_cast<void*>(header + 1));
}

void zlib_free(void* p) {
  if (p == nullptr) return;
  ZlibHeader* header = static_cast<ZlibHeader*>(p) - 1;
  if (header->counted) --w.zlibBlocks;
  free(header);
}

int zlib_open(const char* path, int flags, ...) {
  const Fault* fault =
      call(FN_zlib_open, TextArg{path}, int64{(flags & O_CLOEXEC) != 0}, int64{flags & O_ACCMODE});
  int number = fault != nullptr ? fault->value : 0;
  int fd = -1;
  if (fault == nullptr) {
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    // What a descriptor may do is asked for even where the file is a directory; reading fails then.
    fd = openFile(path, !writes, writes, (flags & O_APPEND) != 0, (flags & O_CREAT) != 0,
                  (flags & O_TRUNC) != 0, &number);
  }
  if (fd < 0) errno = number;
  return done(fd);
}

ssize_t zlib_read(int fd, void* buf, size_t count) {
  const Fault* fault = call(FN_zlib_read, int64{fd}, static_cast<int64>(count));
  if (is(fault, What::End)) return done(ssize_t{0});
  if (is(fault, What::Errno)) {
    errno = fault->value;
    return done(ssize_t{-1});
  }
  const int64 wanted = std::min(static_cast<int64>(count), unreadIn(fd));
  return done(static_cast<ssize_t>(readDescriptor(fd, buf, cutShort(fault, wanted))));
}

ssize_t zlib_write(int fd, const void* buf, size_t count) {
  const Fault* fault = call(FN_zlib_write, int64{fd}, static_cast<int64>(count));
  if (is(fault, What::Errno)) {
    errno = fault->value;
    return done(ssize_t{-1});
  }
  return done(
      static_cast<ssize_t>(writeDescriptor(fd, buf, cutShort(fault, static_cast<int64>(count)))));
}

off64_t zlib_lseek64(int fd, off64_t offset, int whence) {
  const Fault* fault = call(FN_zlib_lseek, int64{fd}, int64{offset}, int64{whence});
  if (fault != nullptr) {
    errno = fault->value;
    return done(off64_t{-1});
  }
  return done(off64_t{seekDescriptor(fd, offset, whence)});
}

// The descriptor is given up in any case, as Linux does.
int zlib_close(int fd) {
  const Fault* fault = call(FN_zlib_close, int64{fd});
  const int status = closeDescriptor(fd);
  if (fault == nullptr) return done(status);
  errno = fault->value;
  return done(-1);
}

}  // extern "C"
