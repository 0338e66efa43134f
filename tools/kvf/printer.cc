#include "printer.h"

#include <kvfile/kvhost.h>

#include "messages.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace shell {
namespace {

std::string printText(std::string_view prefix, std::string_view bytes, bool allowUnicode) {
  bool escaped = false;
  std::string body = quoted(bytes, allowUnicode, &escaped);
  return std::string(prefix.empty() && escaped ? "e" : prefix) + body;
}

bool isPlainSymbol(std::string_view bytes) {
  auto isPart = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == ':';
  };
  bool startsWell = !bytes.empty() && isPart(bytes[0]) && bytes[0] != ':' &&
                    !(bytes[0] >= '0' && bytes[0] <= '9');
  return startsWell && std::all_of(bytes.begin(), bytes.end(), isPart);
}

std::string printSymbol(std::string_view bytes) {
  if (isPlainSymbol(bytes)) return "#" + std::string(bytes);
  return "#" + printText("", bytes, false);
}

std::string printCharacter(uint64_t code) {
  if (code == ' ') return "$ ";
  auto point = static_cast<uint32_t>(code);
  if (!isPrintable(point) || code > 0x10FFFF) return fmt::format("Character value: {}", code);
  // A code of one byte above 127 is a byte that was read, and no UTF-8 text.
  if (code >= 0x80 && code <= 0xFF) return fmt::format("Character value: {}", code);
  return "$" + utf8Encode(point);
}

std::string printByteArray(std::string_view bytes) {
  std::string out = "#[";
  for (char byte : bytes) {
    if (out.size() > 2) out += ' ';
    out += std::to_string(static_cast<unsigned char>(byte));
  }
  return out + "]";
}

std::u16string unitsOf(std::string_view bytes) {
  std::u16string units;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    char16_t unit = 0;
    std::copy_n(bytes.data() + i, sizeof unit, reinterpret_cast<char*>(&unit));
    units += unit;
  }
  return units;
}

// UTF-16 with everything that is no printable ASCII as \uHHHH, so that each unit can be told.
std::string printUtf16(std::string_view bytes) {
  std::string out = "w'";
  for (char16_t unit : unitsOf(bytes)) {
    if (unit == '\'') {
      out += "''";
    } else if (unit == '\\') {
      out += "\\\\";
    } else if (unit >= 0x20 && unit < 0x7F) {
      out += static_cast<char>(unit);
    } else {
      out += fmt::format("\\u{:04X}", static_cast<unsigned>(unit));
    }
  }
  return out + "'";
}

std::string printDateTime(OopType date) {
  std::vector<OopType> fields = kvhost::elementsOf(date);
  int err = 0;
  int year = KciOopToI32_(fields.at(0), &err);
  int day = KciOopToI32_(fields.at(1), &err);
  int milliseconds = KciOopToI32_(fields.at(2), &err);
  using namespace std::chrono;
  if (err != 0 || year < -32767 || year > 32767) return "aDateTime";
  year_month_day calendar{sys_days{std::chrono::year{year} / January / 1} + days{day - 1}};
  int seconds = milliseconds / 1000;
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", int{calendar.year()},
                     unsigned{calendar.month()}, unsigned{calendar.day()}, seconds / 3600,
                     seconds / 60 % 60, seconds % 60, milliseconds % 1000);
}

// True for what may stand within #( ).
bool isLiteral(OopType oop) {
  if (oop == OOP_NIL || oop == OOP_TRUE || oop == OOP_FALSE) return true;
  OopType cls = kvhost::classOf(oop);
  static constexpr OopType LITERAL_CLASSES[] = {
      OOP_CLASS_SMALL_INTEGER, kvhost::CLASS_LARGE_INTEGER, OOP_CLASS_STRING,
      OOP_CLASS_UTF8_STRING,   OOP_CLASS_UTF16_STRING,      kvhost::CLASS_SYMBOL,
      kvhost::CLASS_BYTE_ARRAY};
  if (std::find(std::begin(LITERAL_CLASSES), std::end(LITERAL_CLASSES), cls) !=
      std::end(LITERAL_CLASSES)) {
    return true;
  }
  if (cls == OOP_CLASS_CHARACTER) return printCharacter(oopCharacterCode(oop))[0] == '$';
  return false;
}

// Prints objects; knows how deep it is, because an Array may hold itself.
class Printer {
 public:
  explicit Printer(Interpreter& interpreter) : interpreter_(interpreter) {}

  std::string print(OopType oop);

 private:
  std::string printArray(OopType oop);
  bool holdsLiteralsOnly(OopType array, int depth) const;

  static constexpr int MAX_DEPTH = 8;
  Interpreter& interpreter_;
  int depth_ = 0;
};

bool Printer::holdsLiteralsOnly(OopType array, int depth) const {
  if (depth > MAX_DEPTH) return false;
  std::vector<OopType> elements = kvhost::elementsOf(array);
  return std::all_of(elements.begin(), elements.end(), [&](OopType element) {
    if (kvhost::classOf(element) == OOP_CLASS_ARRAY) return holdsLiteralsOnly(element, depth + 1);
    return isLiteral(element);
  });
}

std::string Printer::printArray(OopType oop) {
  if (depth_ > MAX_DEPTH) return "anArray";
  bool isLiteralArray = holdsLiteralsOnly(oop, 0);
  std::string_view separator = isLiteralArray ? " " : ". ";
  depth_++;
  std::string out;
  for (OopType element : kvhost::elementsOf(oop)) {
    if (!out.empty()) out += separator;
    out += print(element);
  }
  depth_--;
  return isLiteralArray ? "#(" + out + ")" : "{" + out + "}";
}

std::string Printer::print(OopType oop) {
  if (oop == OOP_NIL) return "nil";
  if (oop == OOP_TRUE) return "true";
  if (oop == OOP_FALSE) return "false";
  if (oopIsCharacter(oop)) return printCharacter(oopCharacterCode(oop));
  Value value = Value::object(oop);
  if (isInteger(value)) return std::to_string(integerOf(value, "value"));
  if (isClass(value)) return std::string(kvhost::className(oop));
  switch (kvhost::classOf(oop)) {
    case OOP_CLASS_STRING:
      return printText("", kvhost::bytesOf(oop), false);
    case OOP_CLASS_UTF8_STRING:
      return printText("u", kvhost::bytesOf(oop), true);
    case OOP_CLASS_UTF16_STRING:
      return printUtf16(kvhost::bytesOf(oop));
    case kvhost::CLASS_SYMBOL:
      return printSymbol(kvhost::bytesOf(oop));
    case kvhost::CLASS_BYTE_ARRAY:
      return printByteArray(kvhost::bytesOf(oop));
    case OOP_CLASS_ARRAY:
      return printArray(oop);
    case OOP_CLASS_DATE_TIME:
      return printDateTime(oop);
    case kvhost::CLASS_KV_FILE:
      return fmt::format("aKvFile#{}", interpreter_.fileNumber(oop));
    default:
      return fmt::format("an object of class {} with identifier {}",
                         kvhost::className(kvhost::classOf(oop)), oop);
  }
}

}  // namespace

std::string printString(Interpreter& interpreter, const Value& value) {
  switch (value.kind) {
    case Value::Kind::Object:
      return Printer(interpreter).print(value.oop);
    case Value::Kind::Block:
      return "aBlock";
    case Value::Kind::Session:
      return "Session";
    case Value::Kind::Smalltalk:
      return "Smalltalk";
  }
  return "";
}

std::string displayString(Interpreter& interpreter, const Value& value) {
  if (!value.isObject()) return printString(interpreter, value);
  if (oopIsCharacter(value.oop)) {
    uint64_t code = oopCharacterCode(value.oop);
    if (code <= 0xFF) return {static_cast<char>(code)};
    return utf8Encode(static_cast<uint32_t>(code));
  }
  switch (kvhost::classOf(value.oop)) {
    case OOP_CLASS_STRING:
    case OOP_CLASS_UTF8_STRING:
    case kvhost::CLASS_SYMBOL:
      return kvhost::bytesOf(value.oop);
    case OOP_CLASS_UTF16_STRING:
      return utf8FromUtf16(unitsOf(kvhost::bytesOf(value.oop)));
    default:
      return printString(interpreter, value);
  }
}

}  // namespace shell
