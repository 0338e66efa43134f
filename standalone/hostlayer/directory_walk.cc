// The walk over the entries of a directory, each handed to a callback that may leave by a jump.
#include <kvfile/platform/host.h>

#include "hostlayer/retry.h"

#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

// One walk under way. All names are read, and the directory closed, before the first callback, so
// that a callback that leaves by a jump leaks no descriptor. The names, each with its NUL, are kept
// here and not in the frame of the walk, which such a jump abandons.
struct Walk {
  const void* frame;  // a stack address within HostDirectory
  std::string names;
};

// The walks of this thread, outermost first. One that was left by a jump stays until the next.
thread_local std::vector<std::unique_ptr<Walk>> walks;

// Drops the walks whose frames are gone: the stack grows downwards, so a frame at or below that of
// a walk that begins now is no longer there.
void dropAbandonedWalks(const void* frame) {
  while (!walks.empty() && !std::less<const void*>()(frame, walks.back()->frame)) walks.pop_back();
}

bool isSelfOrParent(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Adds the names in the open directory; 0, or the errno value of the failure.
int readNames(DIR* directory, std::string* names) {
  for (;;) {
    errno = 0;
    const struct dirent* entry = readdir(directory);
    if (entry == nullptr) return errno;
    if (!isSelfOrParent(entry->d_name)) names->append(entry->d_name, strlen(entry->d_name) + 1);
  }
}

DIR* openDirectory(const char* path) {
  for (;;) {
    DIR* directory = opendir(path);
    if (directory != nullptr || errno != EINTR) return directory;
  }
}

// Begins a walk of `path` with all its names; 0, or an errno value. The walk is there in either
// case but for ENOMEM.
int beginWalk(const char* path, const void* frame) {
  DIR* directory = openDirectory(path);
  if (directory == nullptr) return errno;
  int errNum = ENOMEM;
  try {
    walks.push_back(std::make_unique<Walk>(Walk{frame, {}}));
    errNum = readNames(directory, &walks.back()->names);
  } catch (const std::bad_alloc&) {
    errNum = ENOMEM;
  }
  closedir(directory);
  return errNum;
}

// Nothing in this frame needs destruction: the callback may abandon it by a jump.
BoolType visitNames(const Walk* walk, const char* path, HostDirCallbackType callback,
                    HostDirClientDataType* clientData) {
  const size_t pathLength = strlen(path);
  const char* separator = pathLength > 0 && path[pathLength - 1] == '/' ? "" : "/";
  const char* name = walk->names.data();
  const char* const end = name + walk->names.size();
  while (name < end) {
    const size_t length = strlen(name);
    if (!callback(path, name, separator, clientData)) return FALSE;
    name += length + 1;
  }
  return TRUE;
}

}  // namespace

extern "C" {

// `flag` 0 is "one level only", the one kind of walk that this host has; allowNfs changes nothing,
// since a mounted directory is walked like any other. A callback that answers false ends the walk,
// which then fails with ECANCELED.
BoolType HostDirectory(const char* path, HostDirCallbackType callback,
                       HostDirClientDataType* clientData, int /*flag*/) {
  const void* frame = __builtin_frame_address(0);
  dropAbandonedWalks(frame);
  int errNum = beginWalk(path, frame);
  if (errNum == 0 && !visitNames(walks.back().get(), path, callback, clientData)) {
    errNum = ECANCELED;
  }
  dropAbandonedWalks(frame);
  if (errNum == 0) return TRUE;
  clientData->errNum = errNum;
  return FALSE;
}

}  // extern "C"
