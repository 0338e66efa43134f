// The sessions of the process. A session belongs to the thread that began it.
#pragma once

#include <kvfile/platform/kcisup.h>

#include "memory/slot_directory.h"

#include <sys/types.h>

#include <vector>

namespace kvhost::interface {

struct Session {
  int id = 0;
  bool begun = false;  // by sessionBegin; else it exists only because a map is kept under its id
  memory::OwnerType owner = memory::OWNER_NONE;
  pid_t process = 0;  // that began it
  KciOopMapType* fileMap = nullptr;
  int sockets[2] = {-1, -1};  // the pair whose buffer sizes are asked and set; made when needed

  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

// This thread's current session, or null. The answer is good until the session ends.
Session* currentSession();

// This thread's sessions that keep a file map.
std::vector<Session*> sessionsWithFiles();

// Makes any id current, one without a session too, and answers the one that was.
int exchangeCurrentSession(int id);

// Forgets every session that another process began, with its map. What the maps lead to is left
// alone.
void forgetInheritedSessions();

// Hold the sessions as they are while the process forks.
void lockSessions();
void unlockSessions();

}  // namespace kvhost::interface
