// A platform whose functions cost nothing: what is measured over it is the module alone. There is
// one session, one file, and one object of bytes; the file's content lies in memory, and reading it
// is the one copy that is made.
#pragma once

#include <kvfile/platform/oop.h>

#include <string>

namespace costless {

inline constexpr OopType file_object = 0x101;    // the KvFile
inline constexpr OopType path_object = 0x201;    // any path
inline constexpr OopType bytes_object = 0x301;   // answered for every new String
inline constexpr OopType mode_r_object = 0x401;  // "r"
inline constexpr OopType mode_w_object = 0x501;  // "w"
inline constexpr OopType eol_object = 0x601;     // a String with the end-of-line sequence

// Sets what the file holds, `repetitions` times over, and what `eol_object` holds.
void setContent(const std::string& content, int64 repetitions, const std::string& eol);

// From now on what is stored into `bytes_object` is kept, and can be taken; else it is dropped.
void keepStoredBytes();
const std::string& storedBytes();

// The size that KciFetchSize_ answers for `bytes_object`.
void setSize(int64 size);

}  // namespace costless
