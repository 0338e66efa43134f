/* A product's own headers and global names, of which the module's have to keep clear. */
#include <kvfile/kvfile.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/version.h>

#include <host.h>
#include <version.h>

#define NAME(symbol) \
  extern int symbol; \
  int symbol = 1;
#include "own/names.def"
#undef NAME

static const Host HOME = {"here"};

const char* productVersion(void) {
  VerParamResultSType result;
  HostErrSType error;
  error.theErrno = 0;
  return VerGetVersionParam(VER_INFO_PROCESS_ID, &result) && error.theErrno == 0 ? HOME.name : "";
}
