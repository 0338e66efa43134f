// What holds only while a line is read: the character set and the signals of the terminal.
#pragma once

#include <clocale>
#include <csignal>

namespace kvhost {

// While one lives, its thread reads and shows text in the character set of the user's environment,
// or in UTF-8 where the environment names none. The locale of the process stays as it is.
class CharacterSetScope {
 public:
  CharacterSetScope();
  ~CharacterSetScope();
  CharacterSetScope(const CharacterSetScope&) = delete;
  CharacterSetScope& operator=(const CharacterSetScope&) = delete;

 private:
  locale_t former_;
};

// While one lives, a change of the window size and a continuation after a stop are noted, and
// interrupt a blocking read. One at a time in the process.
class TerminalSignalScope {
 public:
  TerminalSignalScope();
  ~TerminalSignalScope();
  TerminalSignalScope(const TerminalSignalScope&) = delete;
  TerminalSignalScope& operator=(const TerminalSignalScope&) = delete;

  // True when one of them waits to be taken.
  static bool isNoted();

  // True when it happened since the last call.
  static bool takeResized();
  static bool takeContinued();

 private:
  struct sigaction formerResize_ {};
  struct sigaction formerContinue_ {};
};

}  // namespace kvhost
