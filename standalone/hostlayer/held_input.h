// The rest of a line that was longer than the buffer of whoever asked the line reader for it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace kvhost {

// Keeps `bytes`, which come before everything that `stream` delivers next. One line is held in the
// process, like the line reader that it comes from.
void holdInput(const FILE* stream, std::string bytes);

// Moves up to `limit` of the bytes held for `stream` to `buf`, and their number to `*taken`. False, with
// nothing changed, when none are held.
bool takeHeldInput(const FILE* stream, char* buf, size_t limit, size_t* taken);

}  // namespace kvhost
