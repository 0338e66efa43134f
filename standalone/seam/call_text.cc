#include "seam/call_text.h"

#include <kvfile/platform/kcicmn.h>

#include "seam/seam.h"

#include <fmt/format.h>

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace seam {
namespace {

constexpr size_t TEXT_MAX = 40;  // bytes of a text that a trace shows
constexpr int64_t OOPS_MAX = 4;  // identifiers of an array that it shows

void appendEscaped(std::string* out, char character) {
  switch (character) {
    case '\n':
      *out += "\\n";
      return;
    case '\r':
      *out += "\\r";
      return;
    case '\t':
      *out += "\\t";
      return;
    case '\\':
    case '"':
      *out += '\\';
      *out += character;
      return;
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(character);
  if (byte < ' ' || byte > '~') {
    *out += fmt::format("\\x{:02x}", byte);
  } else {
    *out += character;
  }
}

void appendQuoted(std::string* out, std::string_view bytes, bool cut) {
  *out += '"';
  for (const char character : bytes) appendEscaped(out, character);
  *out += cut ? "\"..." : "\"";
}

void appendText(std::string* out, const char* text) {
  const size_t shown = strnlen(text, TEXT_MAX);
  appendQuoted(out, {text, shown}, text[shown] != '\0');
}

void appendBytes(std::string* out, const char* bytes, int64_t count) {
  const size_t size = count > 0 ? static_cast<size_t>(count) : 0;
  appendQuoted(out, {bytes, std::min(size, TEXT_MAX)}, size > TEXT_MAX);
}

void appendOop(std::string* out, OopType oop) {
  if (oop == OOP_NIL) {
    *out += "nil";
  } else if (oop == OOP_TRUE) {
    *out += "true";
  } else if (oop == OOP_FALSE) {
    *out += "false";
  } else if (oopIsSmallInteger(oop)) {
    *out += fmt::format("{}", oopSmallIntegerValue(oop));
  } else if (oopIsCharacter(oop)) {
    const uint64_t code = oopCharacterCode(oop);
    const bool printable = code > ' ' && code <= '~';
    *out +=
        printable ? fmt::format("${}", static_cast<char>(code)) : fmt::format("$\\x{:02x}", code);
  } else {
    *out += fmt::format("oop:{:#x}", oop);
  }
}

void appendOops(std::string* out, const OopType* oops, int64_t count) {
  *out += '[';
  for (int64_t i = 0; i < std::min(count, OOPS_MAX); i++) {
    if (i > 0) *out += ", ";
    appendOop(out, oops[i]);
  }
  *out += count > OOPS_MAX ? ", ...]" : "]";
}

void appendStream(std::string* out, const void* address) {
  auto* stream = static_cast<FILE*>(const_cast<void*>(address));
  if (stream == stdin) {
    *out += "stdin";
  } else if (stream == stdout) {
    *out += "stdout";
  } else if (stream == stderr) {
    *out += "stderr";
  } else {
    *out += fmt::format("fd {}", fileno(stream));
  }
}

void appendError(std::string* out, const KciErrSType& error) {
  *out += fmt::format("{{{}, ", error.number);
  appendText(out, error.message[0] != '\0' ? error.message : error.reason);
  *out += '}';
}

void appendAddress(std::string* out, char kind, const void* address, int64_t count) {
  if (address == nullptr) {
    *out += "null";
    return;
  }
  switch (kind) {
    case 's':
      return appendText(out, static_cast<const char*>(address));
    case 'b':
      return appendBytes(out, static_cast<const char*>(address), count);
    case 'a':
      return appendOops(out, static_cast<const OopType*>(address), count);
    case 'f':
      return appendStream(out, address);
    case 'e':
      return appendError(out, *static_cast<const KciErrSType*>(address));
    case 'g':
      *out += "gz";
      return;
    default:
      *out += "ptr";
  }
}

std::string nameOr(int64_t number, std::initializer_list<std::pair<int, const char*>> names) {
  for (const auto& [value, name] : names) {
    if (value == number) return name;
  }
  return std::to_string(number);
}

void appendNumber(std::string* out, char kind, int64_t number) {
  switch (kind) {
    case 'w':
      *out +=
          nameOr(number, {{SEEK_SET, "SEEK_SET"}, {SEEK_CUR, "SEEK_CUR"}, {SEEK_END, "SEEK_END"}});
      break;
    case 'z':
      *out += nameOr(number, {{Z_NO_FLUSH, "Z_NO_FLUSH"},
                              {Z_SYNC_FLUSH, "Z_SYNC_FLUSH"},
                              {Z_FULL_FLUSH, "Z_FULL_FLUSH"},
                              {Z_FINISH, "Z_FINISH"}});
      break;
    case 'm':
      *out += number < 0 ? std::to_string(number) : fmt::format("{:#o}", number);
      break;
    case 'u':
      *out += std::to_string(static_cast<uint64_t>(number));
      break;
    default:
      *out += std::to_string(number);
  }
}

}  // namespace

void appendWord(std::string* out, char kind, Word word, Word next) {
  if (kind == 'o') {
    appendOop(out, static_cast<OopType>(word.number));
  } else if (std::string_view("iuwzm").find(kind) != std::string_view::npos) {
    appendNumber(out, kind, word.number);
  } else {
    appendAddress(out, kind, word.address, next.number);
  }
}

std::vector<std::string> argumentTexts(std::string_view kinds, const Word* words) {
  std::vector<std::string> texts(kinds.size());
  for (size_t i = 0; i < kinds.size(); i++) {
    appendWord(&texts[i], kinds[i], words[i], i + 1 < kinds.size() ? words[i + 1] : Word{});
  }
  return texts;
}

std::string formatCall(const Call& call, bool withTime) {
  std::string line =
      fmt::format("{:4}  {}({})", call.number, call.name, fmt::join(call.arguments, ", "));
  if (!call.result.empty()) line += " = " + call.result;
  if (call.errnoAfter != 0) {
    const char* name = strerrorname_np(call.errnoAfter);
    const char* meaning = strerrordesc_np(call.errnoAfter);
    line += fmt::format(" {} ({})", name != nullptr ? name : std::to_string(call.errnoAfter),
                        meaning != nullptr ? meaning : "unknown error");
  }
  if (call.errorAfter != 0) line += fmt::format(" error {} ({})", call.errorAfter, call.errorText);
  if (call.injected) line += " [injected]";
  if (withTime) line += fmt::format("  {:.1f} us", static_cast<double>(call.nanoseconds) / 1000.0);
  return line;
}

}  // namespace seam
