// Unicode and quoting helpers of the shell.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace shell {

// Bytes of the well-formed UTF-8 character that `bytes` begins with, 1 to 4; 0 when none does.
size_t utf8Length(std::string_view bytes);

// The code point of the well-formed character `bytes`.
uint32_t utf8Decode(std::string_view bytes);

// The UTF-8 form of a code point. A surrogate is encoded like any other value of 16 bits, so that
// an unpaired one survives the way to UTF-16.
std::string utf8Encode(uint32_t code);

// UTF-16 of UTF-8 in which single surrogates may stand as utf8Encode writes them. False where the
// text is anything else.
bool utf16FromEscapedUtf8(std::string_view bytes, std::u16string* units);

// UTF-8 of UTF-16; unpaired surrogates as utf8Encode writes them.
std::string utf8FromUtf16(std::u16string_view units);

// True for a code point that shows as itself: no control, format, direction or blank-like
// character.
bool isPrintable(uint32_t code);

// A byte for a message: 'x' or 16r0A.
std::string quotedCharacter(char c);

// `bytes` between quotes, which are doubled within. With `allowUnicode`, well-formed printable
// UTF-8 stands as it is. `*escaped` tells whether an escape had to be used.
std::string quoted(std::string_view bytes, bool allowUnicode, bool* escaped);

// `text` split at its newlines; a last line without one counts.
std::vector<std::string> splitLines(std::string_view text);

}  // namespace shell
