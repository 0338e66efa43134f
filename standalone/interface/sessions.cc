#include "interface/sessions.h"

#include <kvfile/kvhost.h>

#include "memory/object_memory.h"

#include <absl/container/flat_hash_map.h>

#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace kvhost::interface {

namespace {

struct SessionTable {
  std::mutex mutex;
  absl::flat_hash_map<int, std::unique_ptr<Session>> sessions;
  int lastId = 0;
};

// Sessions removed so far: what a thread remembers from before the last removal is doubtful.
constinit std::atomic<uint64_t> removals = 0;

SessionTable& sessionTable() {
  static auto* table = new SessionTable;  // outlives every thread
  return *table;
}

// The session that this thread looked up last: actions ask for the same one again and again.
struct RememberedSession {
  int id;
  uint64_t removals;
  Session* session;
};

constinit thread_local int currentId = 0;
constinit thread_local RememberedSession remembered = {0, 0, nullptr};

Session* findInTable(SessionTable& table, int id) {
  const std::lock_guard lock(table.mutex);
  const auto found = table.sessions.find(id);
  if (found == table.sessions.end()) return nullptr;
  remembered = {id, removals.load(std::memory_order_relaxed), found->second.get()};
  return found->second.get();
}

Session& addSession(SessionTable& table, int id, bool begun) {
  auto session = std::make_unique<Session>();
  session->id = id;
  session->begun = begun;
  session->owner = memory::threadMemory().owner();
  std::unique_ptr<Session>& place = table.sessions[id];
  place = std::move(session);
  return *place;
}

std::unique_ptr<Session> removeSession(int id) {
  SessionTable& table = sessionTable();
  const std::lock_guard lock(table.mutex);
  const auto found = table.sessions.find(id);
  if (found == table.sessions.end()) return nullptr;
  std::unique_ptr<Session> removed = std::move(found->second);
  table.sessions.erase(found);
  removals.fetch_add(1, std::memory_order_release);
  return removed;
}

}  // namespace

Session::~Session() {
  for (const int descriptor : sockets) {
    if (descriptor >= 0) close(descriptor);
  }
}

Session* findSession(int id) {
  if (remembered.session != nullptr && remembered.id == id &&
      remembered.removals == removals.load(std::memory_order_acquire)) {
    return remembered.session;
  }
  return findInTable(sessionTable(), id);
}

Session* currentSession() { return currentId != 0 ? findSession(currentId) : nullptr; }

std::vector<Session*> sessionsWithFiles() {
  SessionTable& table = sessionTable();
  const memory::OwnerType owner = memory::threadMemory().owner();
  const std::lock_guard lock(table.mutex);
  std::vector<Session*> result;
  for (const auto& [id, session] : table.sessions) {
    if (session->owner == owner && session->fileMap != nullptr) result.push_back(session.get());
  }
  return result;
}

int exchangeCurrentSession(int id) {
  const int before = currentId;
  currentId = id;
  return before;
}

}  // namespace kvhost::interface

namespace kvhost {

int sessionBegin() {
  interface::SessionTable& table = interface::sessionTable();
  const std::lock_guard lock(table.mutex);
  do {
    ++table.lastId;
  } while (table.sessions.contains(table.lastId));
  interface::currentId = interface::addSession(table, table.lastId, true).id;
  return interface::currentId;
}

void sessionEnd(int sessionId) {
  if (interface::currentId == sessionId) interface::currentId = 0;
  interface::removeSession(sessionId);
}

void sessionSelect(int sessionId) { interface::currentId = sessionId; }

}  // namespace kvhost

extern "C" {

int KciGetSessionId(void) { return kvhost::interface::currentId; }

KciOopMapType* KciSupGetKvfileOopMap(int sessionId) {
  const kvhost::interface::Session* session = kvhost::interface::findSession(sessionId);
  return session != nullptr ? session->fileMap : nullptr;
}

void KciSupStoreKvfileOopMap(int sessionId, KciOopMapType* map) {
  kvhost::interface::Session* session = kvhost::interface::findSession(sessionId);
  if (session == nullptr) {
    if (map == nullptr) return;
    kvhost::interface::SessionTable& table = kvhost::interface::sessionTable();
    const std::lock_guard lock(table.mutex);
    session = &kvhost::interface::addSession(table, sessionId, false);
  }
  session->fileMap = map;
  if (map == nullptr && !session->begun) kvhost::interface::removeSession(sessionId);
}

}  // extern "C"
