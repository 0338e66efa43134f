// The sessions of the process. A session belongs to the thread that began it.
#pragma once

#include <kvfile/platform/kcisup.h>

#include "memory/slot_directory.h"

#include <vector>

namespace kvhost::interface {

struct Session {
  int id = 0;
  bool begun = false;  // by sessionBegin; else it exists only because a map is kept under its id
  memory::OwnerType owner = memory::OWNER_NONE;
  KciOopMapType* fileMap = nullptr;
  int sockets[2] = {-1, -1};  // the pair whose buffer sizes are asked and set; made when needed

  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

// The session of this id, or null. The answer is good until the session ends.
Session* findSession(int id);

// This thread's current session, or null.
Session* currentSession();

// This thread's sessions that keep a file map.
std::vector<Session*> sessionsWithFiles();

// Makes any id current, one without a session too, and answers the one that was.
int exchangeCurrentSession(int id);

}  // namespace kvhost::interface
