// The root directory of a target.
#include "support/jail.h"

#include "support/target.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace fuzz {

namespace {

int formerRoot = -1;

bool writeText(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  return written;
}

// Whoever is not root becomes it in a namespace of his own, where he stays who he was for files.
bool becomeRootOfNamespace() {
  const std::string user = "0 " + std::to_string(getuid()) + " 1";
  const std::string group = "0 " + std::to_string(getgid()) + " 1";
  return unshare(CLONE_NEWUSER) == 0 && writeText("/proc/self/uid_map", user) &&
         writeText("/proc/self/setgroups", "deny") && writeText("/proc/self/gid_map", group);
}

bool enterRootOfOwn() { return chroot(".") == 0 || (becomeRootOfNamespace() && chroot(".") == 0); }

bool leave() { return fchdir(formerRoot) == 0 && chroot(".") == 0; }

void makeTree() {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/", ignored)) {
    // A directory that nobody may enter is one that a path asked for.
    if (entry.is_directory(ignored)) chmod(entry.path().c_str(), 0700);
    std::filesystem::remove_all(entry.path(), ignored);
  }
  const int file = open("/f", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const bool made = file >= 0 && write(file, "ten bytes\n", 10) == 10 && close(file) == 0 &&
                    mkdir("/d", 0755) == 0 && symlink("f", "/l") == 0 && symlink("no", "/e") == 0;
  if (!made) fail("the scratch directory cannot be filled");
}

}  // namespace

bool Jail::isPossible() {
  enterScratchDirectory();
  if (formerRoot >= 0) return true;
  const int opened = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  formerRoot = fcntl(opened, F_DUPFD_CLOEXEC, 220);
  close(opened);
  const bool possible = formerRoot >= 0 && enterRootOfOwn() && leave();
  if (chdir(enterScratchDirectory().c_str()) != 0) fail("chdir");
  if (!possible) {
    report("SKIPPED: a root directory of one's own is not to be had here\n");
    formerRoot = -1;
  }
  return possible;
}

Jail::Jail() {
  if (chdir(enterScratchDirectory().c_str()) != 0 || chroot(".") != 0) fail("chroot");
  makeTree();
}

Jail::~Jail() {
  if (!leave() || chdir(enterScratchDirectory().c_str()) != 0) fail("the jail cannot be left");
}

}  // namespace fuzz
