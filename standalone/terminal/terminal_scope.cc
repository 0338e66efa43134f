#include "terminal/terminal_scope.h"

#include <langinfo.h>

#include <atomic>
#include <cstring>

namespace kvhost {

namespace {

std::atomic<bool> resized{false};
std::atomic<bool> continued{false};

void noteResized(int) { resized.store(true); }
void noteContinued(int) { continued.store(true); }

void installHandler(int signal, void (*handler)(int), struct sigaction* former) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, former);
}

locale_t makeCharacterSet() {
  const locale_t users = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (users != nullptr && std::strcmp(nl_langinfo_l(CODESET, users), "ANSI_X3.4-1968") != 0) {
    return users;
  }
  if (users != nullptr) freelocale(users);
  return newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
}

// Made once and kept for the life of the process; null where the system has no such locale.
locale_t characterSet() {
  static const locale_t set = makeCharacterSet();
  return set;
}

}  // namespace

// With a null locale uselocale changes nothing and answers the one in use.
CharacterSetScope::CharacterSetScope() : former_(uselocale(characterSet())) {}

CharacterSetScope::~CharacterSetScope() { uselocale(former_); }

TerminalSignalScope::TerminalSignalScope() {
  installHandler(SIGWINCH, noteResized, &formerResize_);
  installHandler(SIGCONT, noteContinued, &formerContinue_);
}

TerminalSignalScope::~TerminalSignalScope() {
  sigaction(SIGWINCH, &formerResize_, nullptr);
  sigaction(SIGCONT, &formerContinue_, nullptr);
}

bool TerminalSignalScope::isNoted() { return resized.load() || continued.load(); }

bool TerminalSignalScope::takeResized() { return resized.exchange(false); }

bool TerminalSignalScope::takeContinued() { return continued.exchange(false); }

}  // namespace kvhost
