// Character objects. Strings and Symbols hold bytes, which need not be text of any encoding: names
// that the file system gave must reach it again unchanged. They are therefore their own UTF-8 form,
// whatever bytes they hold; only UTF-16 is converted.
#include "interface/error_state.h"
#include "interface/object_access.h"
#include "memory/contents.h"
#include "memory/object_memory.h"

#include <cstring>

namespace {

using kvhost::interface::failWith;
using kvhost::memory::Slot;

// Reads UTF-16 units in the byte order of the machine, and joins surrogates.
class CodePoints {
 public:
  explicit CodePoints(Slot& slot) : bytes_(contentsOf(slot)), units_(slot.size / 2) {}

  bool atEnd() const { return next_ >= units_; }

  // False for a surrogate without its other half.
  bool take(uint32_t* code) {
    const uint32_t unit = takeUnit();
    *code = unit;
    if ((unit & 0xF800) != 0xD800) return true;
    if (unit >= 0xDC00 || atEnd()) return false;
    const uint32_t low = takeUnit();
    *code = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    return (low & 0xFC00) == 0xDC00;
  }

 private:
  uint32_t takeUnit() {
    char16_t unit = 0;
    std::memcpy(&unit, bytes_ + 2 * next_++, sizeof unit);
    return unit;
  }

  const unsigned char* bytes_;
  int64_t units_;
  int64_t next_ = 0;
};

int encodedLength(uint32_t code) {
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < 0x10000 ? 3 : 4;
}

unsigned char* encode(uint32_t code, unsigned char* out) {
  constexpr unsigned LEAD[] = {0, 0, 0xC0, 0xE0, 0xF0};
  const int length = encodedLength(code);
  for (int i = length - 1; i > 0; --i, code >>= 6) {
    out[i] = static_cast<unsigned char>(0x80 | (code & 0x3F));
  }
  out[0] = static_cast<unsigned char>(LEAD[length] | code);
  return out + length;
}

// Bytes of the UTF-8 form, or -1 for malformed text.
int64_t utf8Length(Slot& text) {
  if (text.size % 2 != 0) return -1;
  int64_t length = 0;
  uint32_t code = 0;
  for (CodePoints points(text); !points.atEnd(); length += encodedLength(code)) {
    if (!points.take(&code)) return -1;
  }
  return length;
}

// The UTF-8 object of a UTF-16 object; nil after reporting an error.
OopType convertToUtf8(OopType utf16, Slot& text) {
  const int64_t length = utf8Length(text);
  if (length < 0) return failWith(OOP_NIL, kvhost::interface::ERROR_MALFORMED_TEXT, utf16);
  const auto made = kvhost::memory::threadMemory().make(
      *kvhost::memory::findClass(OOP_CLASS_UTF8_STRING), length);
  if (made.slot == nullptr) return failWith(OOP_NIL, kvhost::interface::ERROR_NO_MEMORY, utf16);
  unsigned char* out = contentsOf(*made.slot);
  uint32_t code = 0;
  for (CodePoints points(text); !points.atEnd();) {
    points.take(&code);
    out = encode(code, out);
  }
  return made.oop;
}

bool isUtf16(const Slot& slot) {
  return slot.classNumber == kvhost::memory::slotNumberOf(OOP_CLASS_UTF16_STRING);
}

OopType newFromText(OopType cls, const char* text) {
  return KciNewByteObj(cls, text, std::strlen(text));
}

}  // namespace

extern "C" {

int64 KciFetchChars_(OopType obj, int64 startIndex, char* buf, int64 maxSize) {
  const Slot* slot = kvhost::interface::characterObject(obj);
  if (slot == nullptr) return 0;
  if (isUtf16(*slot)) return failWith<int64>(0, kvhost::interface::ERROR_NOT_CHARACTERS, obj);
  void* bytes = buf;
  const int64 copied = KciFetchBytes_(obj, startIndex, static_cast<ByteType*>(bytes), maxSize);
  if (copied >= 0 && copied < maxSize && startIndex >= 0) buf[copied] = '\0';
  return copied;
}

int64 KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                         OopType* utf8String, int /*flags*/) {
  // What has no size, nil too, has no text: that is no failure.
  if (KciFetchSize_(str) == 0) return 0;
  Slot* slot = kvhost::interface::characterObject(str);
  if (slot == nullptr) return 0;
  if (!isUtf16(*slot)) return KciFetchBytes_(str, startIndex, buf, maxBytes);
  const OopType converted = convertToUtf8(str, *slot);
  if (converted == OOP_NIL) return 0;
  if (utf8String != nullptr) *utf8String = converted;
  return KciFetchBytes_(converted, startIndex, buf, maxBytes);
}

OopType KciNewString(const char* text) { return newFromText(OOP_CLASS_STRING, text); }

OopType KciNewCharObj(OopType cls, const char* text) {
  const kvhost::memory::ClassInfo* info = kvhost::memory::findClass(cls);
  if (info == nullptr || !info->characters) {
    return failWith(OOP_NIL, kvhost::interface::ERROR_NOT_INSTANTIABLE, cls);
  }
  return newFromText(cls, text);
}

OopType KciNewSymbol(const char* text) { return newFromText(kvhost::CLASS_SYMBOL, text); }

BoolType KciAll7Bit(const char* text, size_t* length) {
  unsigned char all = 0;
  const char* next = text;
  for (; *next != '\0'; ++next) all |= static_cast<unsigned char>(*next);
  *length = static_cast<size_t>(next - text);
  return all < 0x80 ? TRUE : FALSE;
}

}  // extern "C"
