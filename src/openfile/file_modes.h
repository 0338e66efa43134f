// The mode strings of files.
#pragma once

#include <kvfile/platform/oop.h>

namespace kvf {

inline constexpr int NUM_MODES = 15;
inline constexpr int NUM_GZ_MODES = 14;

// The modes that are shown to Smalltalk, plain and compressed. Validation does not look here: it
// also accepts the compressed modes "r1" and "r9".
extern const char* const validModes[NUM_MODES];
extern const char* const validGzModes[NUM_GZ_MODES];

// True when a file of that kind may be opened with `mode`.
BoolType validateMode(const char* mode, BoolType isGz);
BoolType validateNormalMode(const char* mode);
BoolType validateCompressedMode(const char* mode);

}  // namespace kvf
