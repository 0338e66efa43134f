#include "text.h"

#include <fmt/format.h>

namespace shell {
namespace {

constexpr uint32_t FIRST_SURROGATE = 0xD800;
constexpr uint32_t FIRST_LOW_SURROGATE = 0xDC00;
constexpr uint32_t LAST_SURROGATE = 0xDFFF;
constexpr uint32_t LAST_CODE_POINT = 0x10FFFF;

bool isSurrogate(uint32_t code) { return code >= FIRST_SURROGATE && code <= LAST_SURROGATE; }

uint32_t byteAt(std::string_view bytes, size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

// The length that a leading byte announces; 0 for a byte that leads nothing.
size_t announcedLength(uint32_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

// As utf8Length, but surrogates pass.
size_t looseLength(std::string_view bytes) {
  if (bytes.empty()) return 0;
  size_t length = announcedLength(byteAt(bytes, 0));
  if (length == 0 || length > bytes.size()) return 0;
  for (size_t i = 1; i < length; i++) {
    if ((byteAt(bytes, i) & 0xC0U) != 0x80U) return 0;
  }
  uint32_t code = utf8Decode(bytes.substr(0, length));
  bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  return isOverlong || code > LAST_CODE_POINT ? 0 : length;
}

std::string escapeOf(uint32_t byte) {
  switch (byte) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      return fmt::format("\\x{:02X}", byte);
  }
}

bool isPlainAscii(uint32_t byte) { return byte >= 0x20 && byte < 0x7F; }

// `bytes` as quoted() gives it, with a backslash doubled where `escapes` is set.
std::string quotedBody(std::string_view bytes, bool allowUnicode, bool escapes, bool* needsEscape) {
  std::string out;
  for (size_t i = 0; i < bytes.size();) {
    uint32_t byte = byteAt(bytes, i);
    size_t length = allowUnicode && byte >= 0x80 ? utf8Length(bytes.substr(i)) : 0;
    if (length > 0 && isPrintable(utf8Decode(bytes.substr(i, length)))) {
      out += bytes.substr(i, length);
      i += length;
      continue;
    }
    if (byte == '\'') {
      out += "''";
    } else if (isPlainAscii(byte) && !(escapes && byte == '\\')) {
      out += bytes[i];
    } else {
      out += escapeOf(byte);
      *needsEscape = true;
    }
    i++;
  }
  return out;
}

}  // namespace

size_t utf8Length(std::string_view bytes) {
  size_t length = looseLength(bytes);
  return length == 3 && isSurrogate(utf8Decode(bytes.substr(0, 3))) ? 0 : length;
}

uint32_t utf8Decode(std::string_view bytes) {
  static constexpr uint32_t LEAD_MASKS[] = {0x7F, 0x7F, 0x1F, 0x0F, 0x07};
  uint32_t code = byteAt(bytes, 0) & LEAD_MASKS[bytes.size()];
  for (size_t i = 1; i < bytes.size(); i++) code = (code << 6U) | (byteAt(bytes, i) & 0x3FU);
  return code;
}

std::string utf8Encode(uint32_t code) {
  std::string out;
  if (code < 0x80) return {static_cast<char>(code)};
  if (code < 0x800) {
    out += static_cast<char>(0xC0U | (code >> 6U));
  } else {
    if (code < 0x10000) {
      out += static_cast<char>(0xE0U | (code >> 12U));
    } else {
      out += static_cast<char>(0xF0U | (code >> 18U));
      out += static_cast<char>(0x80U | ((code >> 12U) & 0x3FU));
    }
    out += static_cast<char>(0x80U | ((code >> 6U) & 0x3FU));
  }
  out += static_cast<char>(0x80U | (code & 0x3FU));
  return out;
}

bool utf16FromEscapedUtf8(std::string_view bytes, std::u16string* units) {
  units->clear();
  for (size_t i = 0; i < bytes.size();) {
    size_t length = looseLength(bytes.substr(i));
    if (length == 0) return false;
    uint32_t code = utf8Decode(bytes.substr(i, length));
    if (code >= 0x10000) {
      *units += static_cast<char16_t>(FIRST_SURROGATE + ((code - 0x10000) >> 10U));
      *units += static_cast<char16_t>(FIRST_LOW_SURROGATE + ((code - 0x10000) & 0x3FFU));
    } else {
      *units += static_cast<char16_t>(code);
    }
    i += length;
  }
  return true;
}

std::string utf8FromUtf16(std::u16string_view units) {
  std::string out;
  for (size_t i = 0; i < units.size(); i++) {
    uint32_t code = units[i];
    bool isPair = code >= FIRST_SURROGATE && code < FIRST_LOW_SURROGATE && i + 1 < units.size() &&
                  units[i + 1] >= FIRST_LOW_SURROGATE && units[i + 1] <= LAST_SURROGATE;
    if (isPair) {
      code = 0x10000 + ((code - FIRST_SURROGATE) << 10U) + (units[i + 1] - FIRST_LOW_SURROGATE);
      i++;
    }
    out += utf8Encode(code);
  }
  return out;
}

bool isPrintable(uint32_t code) {
  if (code < 0x20 || (code >= 0x7F && code <= 0xA0) || code == 0xAD) return false;
  if (code >= 0x300 && code < 0x370) return false;  // combining marks hide in what they follow
  if (code >= 0x2000 && code <= 0x200F) return false;
  if (code >= 0x2028 && code <= 0x202F) return false;
  if (code >= 0x205F && code <= 0x206F) return false;
  if (code == 0x3000 || code == 0xFEFF || isSurrogate(code)) return false;
  return (code < 0xE000 || code > 0xF8FF) && (code & 0xFFFEU) != 0xFFFE && code < 0xE0000;
}

std::string quotedCharacter(char c) {
  auto byte = static_cast<unsigned char>(c);
  return isPlainAscii(byte) ? fmt::format("'{}'", c) : fmt::format("16r{:02X}", byte);
}

std::string quoted(std::string_view bytes, bool allowUnicode, bool* escaped) {
  *escaped = false;
  std::string body = quotedBody(bytes, allowUnicode, false, escaped);
  if (*escaped) body = quotedBody(bytes, allowUnicode, true, escaped);
  return "'" + body + "'";
}

std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace shell
