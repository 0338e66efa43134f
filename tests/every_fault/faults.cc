#include "every_fault/faults.h"

#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

namespace every_fault {

namespace {

constexpr const char* NAMES[] = {
#define SEAM_CALL(function, ...) #function,
#define SEAM_CALL_VIA(function, ...) #function,
#define SEAM_INNER(function, ...) #function,
#define SEAM_VARIADIC(function, ...) #function,
#include "seam/functions.def"
#undef SEAM_CALL
#undef SEAM_CALL_VIA
#undef SEAM_INNER
#undef SEAM_VARIADIC
    "zlib:malloc", "zlib:open", "zlib:read", "zlib:write", "zlib:lseek", "zlib:close"};
static_assert(std::size(NAMES) == FN_COUNT);

constexpr const char* READ_ERRORS = "EIO EBADF EINVAL EISDIR EAGAIN ";
constexpr const char* WRITE_ERRORS = "EIO ENOSPC EFBIG EPIPE EBADF EDQUOT EAGAIN ";
constexpr const char* OPEN_ERRORS =
    "ENOENT EACCES EMFILE ENFILE EISDIR EROFS ENOMEM EINTR ELOOP ENAMETOOLONG ENOTDIR ENOSPC ";
constexpr const char* ZLIB_CODES = "Z_ERRNO Z_DATA_ERROR Z_BUF_ERROR Z_MEM_ERROR Z_STREAM_ERROR ";
constexpr const char* SHORT = "short=1 short=7 short=4095 ";

// The errors of the manual pages that a file module can meet, and what the contract of each platform
// function allows beside them. A function that is not named cannot fail.
const std::map<Fn, std::string>& table() {
  static const std::string read = std::string(READ_ERRORS) + SHORT;
  static const std::string write = std::string(WRITE_ERRORS) + SHORT;
  static const std::string seek = "EINVAL EBADF EOVERFLOW ESPIPE";
  static const std::string path = "ENOENT EACCES EPERM EROFS EIO ENOTDIR ELOOP ENAMETOOLONG ";
  static const std::map<Fn, std::string> faults = {
      {FN_KciDeclareAction, "refuse"},
      {FN_KciRaiseException, "back"},
      {FN_KciErr, "refuse"},
      {FN_KciGetSessionId, "refuse"},
      {FN_KciFetchSize_, "raise"},
      {FN_KciFetchBytes_, std::string("raise lie ") + SHORT},
      {FN_KciFetchOops, "raise lie short=1"},
      {FN_KciFetchObjInfo, "raise"},
      {FN_KciOopToI64_, "refuse"},
      {FN_KciOopToI32_, "refuse"},
      {FN_KciI64ToOop, "raise"},
      {FN_KciStoreBytesInstanceOf, "raise"},
      {FN_KciStoreOop, "raise"},
      {FN_KciStoreOops, "raise"},
      {FN_KciAppendOops, "raise"},
      {FN_KciSetVaryingSize, "raise"},
      {FN_KciNewOop, "raise"},
      {FN_KciNewByteObj, "raise"},
      {FN_KciCreateByteObj, "raise"},
      {FN_KciCTimeToDateTime, "raise"},
      {FN_KciNewDateTime, "raise"},
      {FN_KciFetchChars_, "raise short=1"},
      {FN_KciFetchUtf8Bytes_, "raise lie convert short=1"},
      {FN_KciNewString, "raise"},
      {FN_KciNewCharObj, "raise"},
      {FN_KciNewSymbol, "raise"},
      {FN_KciOopMapCreate, "nomem"},
      {FN_KciOopMapEntryAdd, "refuse"},
      {FN_KciSupGetKvfileOopMap, "refuse"},
      {FN_KciSupFetchKciSocketBufSize, "refuse"},
      {FN_KciSupSetKciSocketBufSize, "refuse"},
      {FN_HostReadFile_, read + "end interrupt lie"},
      {FN_HostWriteFile_, write + "end partial=28 partial=5"},
      {FN_HostOpenFile, OPEN_ERRORS},
      {FN_HostExpandFileName, "refuse"},
      {FN_HostLockFile, "refuse EDEADLK ENOLCK EBADF"},
      {FN_HostUnlockFile, "refuse ENOLCK EBADF"},
      {FN_HostLockFileQuery, "EBADF EINVAL EOVERFLOW"},
      {FN_HostRemoveSingleFile, path + "EBUSY EISDIR"},
      {FN_HostRemoveDirectory, path + "ENOTEMPTY EBUSY EINVAL"},
      {FN_HostCreateDirectory, path + "EEXIST ENOSPC EMLINK EDQUOT"},
      {FN_HostFileType, path},
      {FN_HostFileExistSize, "ENOENT EACCES ELOOP EIO refuse"},
      {FN_HostDirectory, "EACCES ENOENT ENOTDIR EMFILE ENOMEM partial=5"},
      {FN_HostGetEnv, "refuse"},
      {FN_HostSetEnv, "refuse"},
      {FN_UtlMalloc, "nomem"},
      {FN_UtlGetFileModTime, "ENOENT EACCES ELOOP EIO"},
      {FN_UnixIoFstat, "EBADF EOVERFLOW EIO"},
      {FN_UnixIoFgets_, "end interrupt EIO EBADF EISDIR short=1 short=7"},
      {FN_VerGetVersionParam, "refuse"},
      {FN_LrSupReadLine, "end interrupt EIO short=1 short=7"},
      {FN_gzopen, std::string(OPEN_ERRORS) + "nomem"},
      {FN_gzread, std::string(ZLIB_CODES) + "end short=1 short=7"},
      {FN_gzgetc, std::string(ZLIB_CODES) + "end"},
      {FN_gzungetc, "Z_DATA_ERROR"},
      {FN_gzwrite, ZLIB_CODES},
      {FN_gzputc, ZLIB_CODES},
      {FN_gzputs, ZLIB_CODES},
      {FN_gzprintf, "Z_ERRNO Z_MEM_ERROR"},
      {FN_gzseek, std::string(ZLIB_CODES) + "refuse"},
      {FN_gztell, "refuse"},
      {FN_gzflush, ZLIB_CODES},
      {FN_gzclose, "Z_ERRNO Z_BUF_ERROR Z_MEM_ERROR Z_STREAM_ERROR"},
      {FN_fileno, "EBADF"},
      {FN_lseek, seek},
      {FN_fsync, "EIO ENOSPC EDQUOT EINVAL EROFS EINTR EBADF"},
      {FN_fflush, "EIO ENOSPC EFBIG EPIPE EBADF EINTR"},
      {FN_fclose, "EIO ENOSPC EDQUOT EINTR EBADF"},
      {FN_fwrite, "EIO ENOSPC EPIPE"},
      {FN_isatty, "ENOTTY EBADF"},
      {FN_rename, path + "EXDEV EEXIST ENOTEMPTY EBUSY EISDIR ENOSPC"},
      {FN_printf, "EIO ENOSPC"},
      {FN_zlib_malloc, "nomem"},
      {FN_zlib_open, OPEN_ERRORS},
      {FN_zlib_read, read + "EINTR end"},
      {FN_zlib_write, write + "EINTR"},
      {FN_zlib_lseek, seek},
      {FN_zlib_close, "EIO EINTR EBADF ENOSPC"},
  };
  return faults;
}

const std::map<std::string, int>& numbers() {
  static const std::map<std::string, int> all = {
#define N(name) {#name, name}
      N(EIO),         N(EBADF),        N(EINVAL),        N(EISDIR),
      N(EAGAIN),      N(ENOSPC),       N(EFBIG),         N(EPIPE),
      N(EDQUOT),      N(ENOENT),       N(EACCES),        N(EMFILE),
      N(ENFILE),      N(EROFS),        N(ENOMEM),        N(EINTR),
      N(ELOOP),       N(ENAMETOOLONG), N(ENOTDIR),       N(EPERM),
      N(EBUSY),       N(ENOTEMPTY),    N(EEXIST),        N(EMLINK),
      N(EDEADLK),     N(ENOLCK),       N(ESPIPE),        N(EOVERFLOW),
      N(ENOTTY),      N(EXDEV),        N(Z_ERRNO),       N(Z_DATA_ERROR),
      N(Z_BUF_ERROR), N(Z_MEM_ERROR),  N(Z_STREAM_ERROR)
#undef N
  };
  return all;
}

Fault parse(const std::string& name) {
  static const std::map<std::string, What> plain = {
      {"end", What::End},         {"interrupt", What::Interrupt},
      {"raise", What::Raise},     {"nomem", What::NoMemory},
      {"refuse", What::Refuse},   {"lie", What::Lie},
      {"convert", What::Convert}, {"back", What::Back}};
  if (const auto found = plain.find(name); found != plain.end()) return {found->second, 0, name};
  const size_t equals = name.find('=');
  if (equals != std::string::npos) {
    const What what = name[0] == 's' ? What::Short : What::Partial;
    return {what, atoi(name.c_str() + equals + 1), name};
  }
  const auto number = numbers().find(name);
  if (number == numbers().end()) {
    fprintf(stderr, "no fault is called %s\n", name.c_str());
    abort();
  }
  return {name[0] == 'Z' ? What::Zlib : What::Errno, number->second, name};
}

using Lists = std::array<std::vector<Fault>, FN_COUNT>;

Lists parseAll() {
  Lists lists;
  for (const auto& [function, texts] : table()) {
    std::istringstream words(texts);
    std::string word;
    while (words >> word) lists[function].push_back(parse(word));
  }
  return lists;
}

}  // namespace

const char* functionName(Fn function) { return NAMES[function]; }

const std::vector<Fault>& faultsOf(Fn function) {
  static const Lists lists = parseAll();
  return lists[function];
}

}  // namespace every_fault
