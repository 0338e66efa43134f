// The walk over the entries of a directory, each handed to a callback that may leave by a jump.
#include <kvfile/platform/host.h>

#include "interface/error_state.h"

#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

// One walk under way. All names are read, and the directory closed, before the first callback, so
// that a callback that leaves by a jump leaks no descriptor. The names, each with its NUL, are kept
// here and not in the frame of the walk, which such a jump abandons.
struct Walk {
  uint64_t call;  // the call of an action, or the like, that it was begun in
  std::string names;
};

// The walks of this thread. One that was left by a jump stays until one begins after its call has
// ended. Where frames lie tells nothing: a thread may have several stacks.
thread_local std::vector<std::unique_ptr<Walk>> walks;

void dropAbandonedWalks() {
  std::erase_if(walks, [](const auto& walk) { return !kvhost::interface::isUnderWay(walk->call); });
}

void dropWalk(const Walk* walk) {
  std::erase_if(walks, [walk](const auto& each) { return each.get() == walk; });
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

// Begins a walk of `path` with all its names; null with an errno value.
const Walk* beginWalk(const char* path, int* errNum) {
  dropAbandonedWalks();
  DIR* directory = openDirectory(path);
  if (directory == nullptr) {
    *errNum = errno;
    return nullptr;
  }
  const Walk* begun = nullptr;
  try {
    auto walk = std::make_unique<Walk>(Walk{kvhost::interface::currentCall(), {}});
    *errNum = readNames(directory, &walk->names);
    if (*errNum == 0) begun = walks.emplace_back(std::move(walk)).get();
  } catch (const std::bad_alloc&) {
    *errNum = ENOMEM;
  }
  closedir(directory);
  return begun;
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
  int errNum = 0;
  const Walk* walk = beginWalk(path, &errNum);
  if (walk != nullptr) {
    if (!visitNames(walk, path, callback, clientData)) errNum = ECANCELED;
    dropWalk(walk);
  }
  if (errNum == 0) return TRUE;
  clientData->errNum = errNum;
  return FALSE;
}

}  // extern "C"
