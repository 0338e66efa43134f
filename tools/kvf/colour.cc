#include "colour.h"

#include <unistd.h>

#include <cstdlib>

// Last, because it defines macros with everyday names.
#include <curses.h>
#include <term.h>

namespace shell {
namespace {

constexpr int FEWEST_COLOURS = 8;  // red is among them

// False for a terminal of an unknown type, which may show escapes as they are.
bool terminalHasColours() {
  int found = 0;
  if (setupterm(nullptr, STDERR_FILENO, &found) != OK) return false;
  int colours = tigetnum("colors");
  del_curterm(cur_term);
  return colours >= FEWEST_COLOURS;
}

}  // namespace

bool wantsColour(const std::string& setting) {
  if (setting != "auto") return setting == "always";
  const char* noColour = std::getenv("NO_COLOR");
  return (noColour == nullptr || *noColour == '\0') && isatty(STDERR_FILENO) != 0 &&
         terminalHasColours();
}

}  // namespace shell
