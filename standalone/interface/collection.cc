// Collecting garbage: the collector's steps, with the files of dead file objects closed in between.
#include <kvfile/kvhost.h>

#include "interface/error_state.h"
#include "interface/oop_map.h"
#include "interface/sessions.h"
#include "memory/collector.h"
#include "memory/object_memory.h"

namespace kvhost {

namespace {

using interface::Session;
using memory::Collector;

std::vector<OopType> deadKeys(const Collector& collector, const Session& session) {
  std::vector<OopType> dead;
  for (const OopType key : interface::keysOf(*session.fileMap)) {
    if (collector.isDead(key)) dead.push_back(key);
  }
  return dead;
}

// The module takes the identifiers as integers, since the objects are about to go.
OopType arrayOfIds(const std::vector<OopType>& objects) {
  std::vector<OopType> ids;
  ids.reserve(objects.size());
  for (const OopType object : objects) ids.push_back(newInteger(static_cast<int64>(object)));
  return newArray(ids);
}

bool callFinalize(int sessionId, const std::vector<OopType>& dead) {
  const OopType ids = arrayOfIds(dead);
  if (ids == OOP_NIL) return false;
  const int before = interface::exchangeCurrentSession(sessionId);
  const Outcome outcome = callAction("KvfClientFinalize", &ids, 1);
  interface::exchangeCurrentSession(before);
  return outcome.status == CallStatus::Answered;
}

// Answers how many files were handed over. What could not be stays registered, so its object is
// kept: else a new object with the same identifier would find itself bound to the old file.
int64 finalizeDeadFiles(Collector& collector) {
  int64 finalized = 0;
  for (Session* session : interface::sessionsWithFiles()) {
    const std::vector<OopType> dead = deadKeys(collector, *session);
    if (dead.empty()) continue;
    if (callFinalize(session->id, dead)) {
      finalized += static_cast<int64>(dead.size());
    }
    if (session->fileMap == nullptr) continue;
    for (const OopType key : deadKeys(collector, *session)) collector.mark(key);
  }
  return finalized;
}

}  // namespace

Collection collectGarbage() {
  Collection result;
  if (interface::errorState().raisePoint != nullptr) return result;  // an action runs
  memory::ObjectMemory& objects = memory::threadMemory();
  result.objectsBefore = objects.liveObjects;
  Collector collector(objects);
  collector.markFromRoots();
  result.filesFinalized = finalizeDeadFiles(collector);
  const int64 made = objects.liveObjects - result.objectsBefore;  // for the call, and dead now
  result.objectsFreed = collector.sweep() - made;
  return result;
}

}  // namespace kvhost
