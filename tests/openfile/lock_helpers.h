// Another process that holds, releases and sees record locks.
#pragma once

#include "openfile/openfile_fixture.h"

#include <fcntl.h>
#include <signal.h>

#include <chrono>

namespace kvtest {

// A child process that holds one lock from construction on, until it is released or destroyed.
class LockHolder {
 public:
  LockHolder(const std::string& path, short type, off_t start, off_t length,
             int releaseAfterMs = -1) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    EXPECT_EQ(pipe(order_), 0);
    pid_ = fork();
    if (pid_ == 0) {
      close(order_[1]);
      hold(path, type, start, length, ready[1], releaseAfterMs);
    }
    close(ready[1]);
    close(order_[0]);
    char answer = 0;
    EXPECT_EQ(::read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y') << "the other process could not lock";
    close(ready[0]);
  }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;
  ~LockHolder() { release(); }

  void release() {
    if (pid_ == 0) return;
    close(order_[1]);
    int status = 0;
    waitpid(pid_, &status, 0);
    EXPECT_EQ(status, 0);
    pid_ = 0;
  }

  pid_t pid() const { return pid_; }

 private:
  // Never comes back.
  void hold(const std::string& path, short type, off_t start, off_t length, int ready,
            int afterMs) {
    const int fd = open(path.c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    const char answer = fd >= 0 && fcntl(fd, F_SETLK, &lock) == 0 ? 'y' : 'n';
    if (write(ready, &answer, 1) != 1) _exit(2);
    char order = 0;
    if (afterMs >= 0) {
      usleep(static_cast<useconds_t>(afterMs) * 1000);
    } else if (read(order_[0], &order, 1) != 0) {
      _exit(2);
    }
    _exit(0);
  }

  pid_t pid_ = 0;
  int order_[2] = {-1, -1};
};

// What another process learns when it asks for a write lock on this range: "free", or the type,
// start and length of the lock in the way.
inline std::string lockSeenByOthers(const std::string& path, off_t start, off_t length) {
  return inChild([&] {
    const int fd = open(path.c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    if (fd < 0 || fcntl(fd, F_GETLK, &lock) != 0) return std::string("failed");
    if (lock.l_type == F_UNLCK) return std::string("free");
    return std::string(lock.l_type == F_WRLCK ? "write " : "read ") + std::to_string(lock.l_start) +
           " " + std::to_string(lock.l_len);
  });
}

class Locking : public OpenFileTest {
 protected:
  std::string lock(OopType file, OopType kind, OopType offset, OopType length, OopType millisecs) {
    return show(call("KvfLock", {file, kind, offset, length, millisecs}));
  }
  std::string lock(OopType file, const char* kind, int64 offset, int64 length,
                   int64 millisecs = 0) {
    return lock(file, str(kind), smallInt(offset), smallInt(length), smallInt(millisecs));
  }
  std::string unlockWith(OopType file, OopType offset, OopType length) {
    return show(call("KvfUnlock", {file, offset, length}));
  }
  std::string unlock(OopType file, int64 offset, int64 length) {
    return unlockWith(file, smallInt(offset), smallInt(length));
  }
  std::string query(OopType file, OopType kind, OopType offset, OopType length) {
    return show(call("KvfLockQuery", {file, kind, offset, length}));
  }
  std::string query(OopType file, const char* kind, int64 offset, int64 length) {
    return query(file, str(kind), smallInt(offset), smallInt(length));
  }
  OopType openForLocks() { return openWith(std::string(100, 'x'), "r+"); }
};

}  // namespace kvtest
