// Collecting garbage: the collector's steps, with the files of dead file objects closed in between.
#include <kvfile/kvhost.h>

#include "interface/dropped_files.h"
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
  const int before = interface::exchangeCurrentSession(sessionId);
  const Outcome outcome = callAction("KvfClientFinalize", &ids, 1);
  interface::exchangeCurrentSession(before);
  return outcome.status == CallStatus::Answered;
}

// What could not be handed over stays registered, so its object is kept: else a new object with the
// same identifier would find itself bound to the old file.
int64 keepRegistered(Collector& collector, const Session& session) {
  const std::vector<OopType> left = deadKeys(collector, session);
  for (const OopType key : left) collector.mark(key);
  return static_cast<int64>(left.size());
}

void finalizeDeadFiles(Collector& collector, Collection* result) {
  for (Session* session : interface::sessionsWithFiles()) {
    const std::vector<OopType> dead = deadKeys(collector, *session);
    if (dead.empty()) continue;
    if (callFinalize(session->id, dead)) result->filesFinalized += static_cast<int64>(dead.size());
    if (session->fileMap == nullptr) continue;
    result->filesKept += keepRegistered(collector, *session);
    interface::shrink(*session->fileMap);
  }
}

}  // namespace

Collection collectGarbage() {
  Collection result;
  if (interface::currentCall() != 0) return result;  // an action runs
  memory::ObjectMemory& objects = memory::threadMemory();
  result.objectsBefore = objects.liveObjects();
  Collector collector(objects);
  collector.markFromRoots();
  finalizeDeadFiles(collector, &result);
  const int64 made = objects.liveObjects() - result.objectsBefore;  // for the call, and dead now
  result.objectsFreed = collector.sweep() - made;
  if (result.filesKept > 0) interface::noteUnclosedFiles();
  interface::noteCollection();
  return result;
}

}  // namespace kvhost
