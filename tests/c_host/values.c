/* Integers, dates and character objects. */
#define _GNU_SOURCE
#include "c_host/minimal_host.h"

#include <limits.h>
#include <string.h>
#include <time.h>

/* ---- integers ---- */

int64 KciOopToI64_(OopType obj, int* err) {
  const MiniObject* object = miniObject(obj);
  int64 value = 0;
  if (oopIsSmallInteger(obj)) return oopSmallIntegerValue(obj);
  if (object && object->cls == MINI_CLASS_LARGE_INTEGER) {
    memcpy(&value, object->body, sizeof value);
  } else {
    *err = 1;
  }
  return value;
}

int KciOopToI32_(OopType obj, int* err) {
  int64 value = KciOopToI64_(obj, err);
  if (value >= INT_MIN && value <= INT_MAX) return (int)value;
  *err = 1;
  return 0;
}

OopType KciI64ToOop(int64 value) {
  const int64 limit = (int64)1 << 60;
  if (value >= -limit && value < limit) return oopFromSmallInteger(value);
  OopType oop = miniNewBytes(MINI_CLASS_LARGE_INTEGER, sizeof value);
  if (oop != OOP_NIL) memcpy(miniObject(oop)->body, &value, sizeof value);
  return oop;
}

OopType KciI32ToOop(int value) { return oopFromSmallInteger(value); }

/* ---- dates ---- */

void KciCTimeToDateTime(int64 time, KciDateTimeSType* out) {
  struct tm parts;
  if (!gmtime_r(&(time_t){time}, &parts)) {
    miniFail(MINI_ERR_RANGE, "year out of range");
    return;
  }
  out->year = parts.tm_year + 1900;
  out->dayOfYear = parts.tm_yday + 1;
  out->milliseconds = ((parts.tm_hour * 60 + parts.tm_min) * 60 + parts.tm_sec) * 1000;
  out->timeZone = OOP_NIL;
}

OopType KciNewDateTime(OopType cls, const KciDateTimeSType* value) {
  if (cls != OOP_CLASS_DATE_TIME) {
    miniFail(MINI_ERR_CLASS, "not a class of dates");
    return OOP_NIL;
  }
  OopType date = KciNewOop(cls);
  const OopType parts[] = {KciI32ToOop(value->year), KciI32ToOop(value->dayOfYear),
                           KciI32ToOop(value->milliseconds), value->timeZone};
  if (date != OOP_NIL) KciStoreOops(date, 1, parts, 4);
  return date;
}

/* ---- texts ---- */

static const MiniObject* characterObject(OopType obj) {
  const MiniObject* object = miniObject(obj);
  if (object && object->isCharacter) return object;
  miniFail(MINI_ERR_CLASS, "not a character object");
  return NULL;
}

int64 KciFetchChars_(OopType obj, int64 startIndex, char* buf, int64 maxSize) {
  if (!characterObject(obj)) return 0;
  int64 copied = KciFetchBytes_(obj, startIndex, (ByteType*)buf, maxSize);
  if (copied < maxSize) buf[copied] = '\0';
  return copied;
}

/* Appends the UTF-8 form of `code`, at most 4 bytes, to `out` and answers their count. */
static int encodeUtf8(uint32_t code, ByteType* out) {
  if (code < 0x80) {
    out[0] = (ByteType)code;
    return 1;
  }
  int extra = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  for (int i = extra; i > 0; i--) {
    out[i] = (ByteType)(0x80U | (code & 0x3FU));
    code >>= 6;
  }
  const ByteType lead[] = {0, 0xC0, 0xE0, 0xF0};
  out[0] = (ByteType)(lead[extra] | code);
  return extra + 1;
}

/* The code point at unit `*index` of UTF-16 text in the machine's byte order; moves past it. */
static uint32_t nextUtf16(const ByteType* bytes, int64 units, int64* index) {
  uint16_t unit[2] = {0, 0};
  int64 here = (*index)++;
  memcpy(unit, bytes + 2 * here, here + 1 < units ? 4 : 2);
  if (unit[0] < 0xD800 || unit[0] > 0xDBFF) return unit[0];
  if (unit[1] < 0xDC00 || unit[1] > 0xDFFF) return 0xFFFD;
  (*index)++;
  return 0x10000U + ((unit[0] & 0x3FFU) << 10) + (unit[1] & 0x3FFU);
}

static OopType utf8FromUtf16(OopType str) {
  int64 units = KciFetchSize_(str) / 2;
  OopType result = KciNewOop(OOP_CLASS_UTF8_STRING);
  for (int64 i = 0; i < units && result != OOP_NIL;) {
    ByteType piece[4];
    int length = encodeUtf8(nextUtf16(miniObject(str)->body, units, &i), piece);
    KciStoreBytesInstanceOf(OOP_NIL, result, KciFetchSize_(result) + 1, piece, length);
  }
  return result;
}

int64 KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                         OopType* utf8String, int flags) {
  (void)flags; /* a piece costs no more than the whole */
  if (KciFetchSize_(str) == 0) return 0;
  const MiniObject* object = characterObject(str);
  if (!object) return 0;
  if (object->cls != OOP_CLASS_UTF16_STRING) {
    return KciFetchBytes_(str, startIndex, buf, maxBytes);
  }
  OopType converted = utf8FromUtf16(str);
  if (converted == OOP_NIL) return 0;
  *utf8String = converted;
  return KciFetchBytes_(converted, startIndex, buf, maxBytes);
}

OopType KciNewString(const char* text) { return KciNewCharObj(OOP_CLASS_STRING, text); }

OopType KciNewCharObj(OopType cls, const char* text) {
  return KciNewByteObj(cls, text, strlen(text));
}

OopType KciNewSymbol(const char* text) {
  OopType found = miniFindSymbol(text, strlen(text));
  return found != OOP_NIL ? found : KciNewCharObj(MINI_CLASS_SYMBOL, text);
}

BoolType KciAll7Bit(const char* text, size_t* length) {
  BoolType all = TRUE;
  *length = strlen(text);
  for (size_t i = 0; i < *length; i++) all = all && (ByteType)text[i] < 128;
  return all;
}
