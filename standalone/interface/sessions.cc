#include "interface/sessions.h"

#include <kvfile/kvhost.h>

#include "hostlayer/fork.h"
#include "memory/object_memory.h"

#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace kvhost::interface {

namespace {

struct SessionTable {
  std::mutex mutex;
  std::unordered_map<int, std::unique_ptr<Session>> sessions;
  int lastId = 0;
};

// Maps stored and sessions removed so far: what a thread remembers from before the last of them is
// doubtful.
constinit std::atomic<uint64_t> changes = 0;

SessionTable& sessionTable() {
  static auto* table = new SessionTable;  // outlives every thread
  return *table;
}

// The file map that this thread looked up last: actions ask for the same one again and again.
struct RememberedMap {
  int id;
  uint64_t changes;
  KciOopMapType* map;
};

constinit thread_local int currentId = 0;
constinit thread_local RememberedMap remembered = {0, 0, nullptr};

void noteChange() { changes.fetch_add(1, std::memory_order_release); }

// Called with the lock held.
Session* findSession(const SessionTable& table, int id) {
  const auto found = table.sessions.find(id);
  return found != table.sessions.end() ? found->second.get() : nullptr;
}

Session& addSession(SessionTable& table, int id, bool begun) {
  auto session = std::make_unique<Session>();
  session->id = id;
  session->begun = begun;
  session->owner = memory::threadMemory().owner();
  session->process = getpid();
  std::unique_ptr<Session>& place = table.sessions[id];
  place = std::move(session);
  return *place;
}

// Takes the session out; its sockets are closed behind the lock.
std::unique_ptr<Session> removeSession(int id) {
  SessionTable& table = sessionTable();
  const std::lock_guard lock(table.mutex);
  const auto found = table.sessions.find(id);
  if (found == table.sessions.end()) return nullptr;
  std::unique_ptr<Session> removed = std::move(found->second);
  table.sessions.erase(found);
  noteChange();
  return removed;
}

// Out of line, so that the way of a map that is remembered stays short.
[[gnu::cold, gnu::noinline]] KciOopMapType* findMap(int id) {
  SessionTable& table = sessionTable();
  const std::lock_guard lock(table.mutex);
  const Session* session = findSession(table, id);
  KciOopMapType* map = session != nullptr ? session->fileMap : nullptr;
  remembered = {id, changes.load(std::memory_order_relaxed), map};
  return map;
}

}  // namespace

Session::~Session() {
  for (const int descriptor : sockets) {
    if (descriptor >= 0) close(descriptor);
  }
}

Session* currentSession() {
  if (currentId == 0) return nullptr;
  SessionTable& table = sessionTable();
  const std::lock_guard lock(table.mutex);
  return findSession(table, currentId);
}

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

void forgetInheritedSessions() {
  SessionTable& table = sessionTable();
  const pid_t process = getpid();
  const std::lock_guard lock(table.mutex);
  std::erase_if(table.sessions, [process](const auto& entry) {
    const Session& session = *entry.second;
    if (session.process == process) return false;
    KciOopMapDestroy(session.fileMap);
    if (currentId == session.id) currentId = 0;
    return true;
  });
  noteChange();
}

void lockSessions() { sessionTable().mutex.lock(); }

void unlockSessions() { sessionTable().mutex.unlock(); }

}  // namespace kvhost::interface

namespace kvhost {

int sessionBegin() {
  makeForkSafe();
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
  using namespace kvhost::interface;
  const bool isRemembered =
      remembered.id == sessionId && remembered.changes == changes.load(std::memory_order_acquire);
  return isRemembered ? remembered.map : findMap(sessionId);
}

void KciSupStoreKvfileOopMap(int sessionId, KciOopMapType* map) {
  using namespace kvhost::interface;
  SessionTable& table = sessionTable();
  std::unique_lock lock(table.mutex);
  Session* session = findSession(table, sessionId);
  if (session == nullptr && map == nullptr) return;
  if (session == nullptr) session = &addSession(table, sessionId, false);
  session->fileMap = map;
  noteChange();
  const bool isOver = map == nullptr && !session->begun;
  lock.unlock();
  if (isOver) removeSession(sessionId);
}

}  // extern "C"
