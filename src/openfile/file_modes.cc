// The tables of modes that are shown, and the rules by which modes are checked.
#include "openfile/file_modes.h"

#include <cstring>

namespace kvf {

const char* const validModes[NUM_MODES] = {"r",  "w",   "a",   "r+",  "w+",  "a+",  "rb", "wb",
                                           "ab", "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};

const char* const validGzModes[NUM_GZ_MODES] = {"r",  "w",   "a",   "rb", "wb", "ab",  "w1",
                                                "a1", "wb1", "ab1", "w9", "a9", "wb9", "ab9"};

static bool beginsWithAccess(const char* mode) {
  return mode[0] == 'a' || mode[0] == 'r' || mode[0] == 'w';
}

// zlib's compression levels: fastest and best.
static bool isLevel(char c) { return c == '1' || c == '9'; }

BoolType validateNormalMode(const char* mode) {
  const size_t len = strlen(mode);
  if (len == 0 || len > 3 || !beginsWithAccess(mode)) return FALSE;
  if (len == 1) return TRUE;
  if (mode[1] != '+' && mode[1] != 'b') return FALSE;
  if (len == 2) return TRUE;
  if (mode[2] == '+') return mode[1] == 'b';
  if (mode[2] == 'b') return mode[1] == '+';
  return FALSE;
}

BoolType validateCompressedMode(const char* mode) {
  const size_t len = strlen(mode);
  if (len == 0 || !beginsWithAccess(mode)) return FALSE;
  if (len == 1) return TRUE;
  // A level behind "r" means nothing to zlib; this short form has always been let through.
  if (isLevel(mode[1])) return len == 2;
  if (mode[1] != 'b') return FALSE;
  if (len == 2) return TRUE;
  return isLevel(mode[2]) && mode[0] != 'r' && len == 3;
}

BoolType validateMode(const char* mode, BoolType isGz) {
  return isGz ? validateCompressedMode(mode) : validateNormalMode(mode);
}

}  // namespace kvf
