#include "interface/dropped_files.h"

#include <kvfile/kvhost.h>

#include "interface/oop_map.h"
#include "interface/sessions.h"
#include "memory/object_memory.h"

#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace kvhost {

namespace {

using interface::Session;

constexpr int MAX_SUSPECTS = 32;

// What this thread's files may be lost by, since it was asked last.
struct Suspicion {
  std::array<OopType, MAX_SUSPECTS> files;
  int count;
  bool anyFile;  // an object that may lead to many was dropped, or there are too many suspects
};

constinit thread_local Suspicion suspicion = {};

void suspect(OopType file) {
  if (suspicion.count == MAX_SUSPECTS) {
    suspicion.anyFile = true;
  } else {
    suspicion.files[static_cast<size_t>(suspicion.count++)] = file;
  }
}

bool isRegistered(const std::vector<Session*>& sessions, OopType file) {
  return std::any_of(sessions.begin(), sessions.end(), [file](const Session* session) {
    return KciOopMapEntryFind(session->fileMap, file) != nullptr;
  });
}

// Where a root holds the file itself, it is not lost, and a later loss will be noted in its turn.
bool isRoot(OopType file) {
  const auto& roots = memory::threadMemory().roots;
  return std::any_of(roots.begin(), roots.end(),
                     [file](const OopType* root) { return *root == file; });
}

// ---- descriptors ----

// Dropped files hold descriptors, of which a process has few. After so many opened files it is worth
// asking how many are left.
constexpr int FILES_BETWEEN_LOOKS = 256;

struct Descriptors {
  int filesSinceLook;
  int lowestAfterCollection;
};

constinit thread_local Descriptors descriptors = {};

// The lowest free descriptor, below which all are taken; -1 when there is none.
int lowestFreeDescriptor() {
  const int descriptor = eventfd(0, EFD_CLOEXEC);
  if (descriptor >= 0) close(descriptor);
  return descriptor;
}

int descriptorLimit() {
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1024;
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 1 << 30));
}

// True when dropped files may hold a good part of the descriptors that are left.
bool descriptorsRunLow() {
  if (descriptors.filesSinceLook < FILES_BETWEEN_LOOKS) return false;
  descriptors.filesSinceLook = 0;
  const int lowest = lowestFreeDescriptor();
  const int before = descriptors.lowestAfterCollection;
  const int enough = std::min(before + FILES_BETWEEN_LOOKS, (before + descriptorLimit()) / 2);
  return lowest < 0 || lowest >= enough;
}

}  // namespace

namespace interface {

void noteNewFile(OopType file) { suspect(file); }

void noteDroppedReference(OopType oop) {
  const memory::Slot* slot = memory::findSlot(oop);
  if (slot == nullptr || (slot->flags & memory::SLOT_POINTERS) == 0) return;
  if (slot->classNumber == memory::slotNumberOf(CLASS_KV_FILE)) {
    suspect(oop);
  } else if (slot->size > 0) {
    suspicion.anyFile = true;
  }
}

void noteUnclosedFiles() { suspicion.anyFile = true; }

void countRegisteredFile() { ++descriptors.filesSinceLook; }

void noteCollection() {
  descriptors.filesSinceLook = 0;
  descriptors.lowestAfterCollection = std::max(lowestFreeDescriptor(), 0);
}

}  // namespace interface

void storeRoot(OopType* address, OopType value) {
  if (*address != value) interface::noteDroppedReference(*address);
  *address = value;
}

bool takeDroppedFiles() {
  if (suspicion.count == 0 && !suspicion.anyFile) return false;
  const Suspicion noted = suspicion;
  suspicion = {};
  std::vector<Session*> sessions = interface::sessionsWithFiles();
  std::erase_if(sessions, [](const Session* each) { return interface::isEmpty(*each->fileMap); });
  if (sessions.empty()) return false;
  if (noted.anyFile) return true;
  return std::any_of(noted.files.begin(), noted.files.begin() + noted.count,
                     [&](OopType file) { return isRegistered(sessions, file) && !isRoot(file); });
}

bool collectionIsDue() {
  constexpr int64 MIN_BYTES = int64{16} << 20;
  constexpr int64 MIN_OBJECTS = 100'000;
  const memory::ObjectMemory& objects = memory::threadMemory();
  return objects.bytesSinceCollection() > std::max(MIN_BYTES, objects.bytesKept()) ||
         objects.objectsSinceCollection() > std::max(MIN_OBJECTS, objects.objectsKept()) ||
         descriptorsRunLow();
}

}  // namespace kvhost
