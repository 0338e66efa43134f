// Reading whole files, and where the shell keeps its history.
#pragma once

#include <string>
#include <string_view>

namespace shell {

// Reads the file, or standard input for "-". False with a text where it cannot be read.
bool readWholeFile(const std::string& path, std::string* text, std::string* problem);

// All that the descriptor's file holds, from its start on; "" where it cannot be read.
std::string contentsFrom(int descriptor);

// Reads to the end of the descriptor. False with errno.
bool readToEnd(int descriptor, std::string* text);

// Writes all of `text`. False with errno.
bool writeAll(int descriptor, std::string_view text);

// The file that keeps the history, its directory made: $XDG_STATE_HOME/kvf/history, or below
// ~/.local/state. "" where there is no place for it.
std::string historyPath();

}  // namespace shell
