/* Object identifiers: how a 64-bit identifier names a Smalltalk object, and the integer names
 * that all platform headers share.
 *
 * An identifier either carries its value (nil, the Booleans, Characters, SmallIntegers) or names an
 * object in the database's object memory. Identifiers are passed by value and own nothing. For its
 * objects a host may use any identifier that is none of the constants below and that neither of the
 * two tests takes; those of the classes end in the bits 001.
 *
 * All platform headers compile as C and as C++. They describe 64-bit Linux only: `long`, `off_t`
 * and pointers have 64 bits, and the structures cross the interface as the compiler lays them out.
 */
#ifndef KVFILE_PLATFORM_OOP_H
#define KVFILE_PLATFORM_OOP_H

#include <stddef.h>
#include <stdint.h>

typedef uint64_t OopType;

typedef int64_t int64;
typedef int32_t int32;
typedef uint8_t uint8;
typedef unsigned char ByteType;
typedef unsigned char BoolByteType; /* 0 or 1 in one byte */
typedef int BoolType;               /* 0 or 1 */

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Enumerations that cross the interface are ints, so that an id out of range can be passed on. */
#ifdef __cplusplus
#define KV_INT_ENUM(name) enum name : int
#else
#define KV_INT_ENUM(name) \
  typedef int name;       \
  enum name##Values
#endif

/* A function that C++ evaluates where it compiles, given a constant. */
#ifdef __cplusplus
#define KVFILE_CONSTANT_FUNCTION static constexpr
#else
#define KVFILE_CONSTANT_FUNCTION static inline
#endif

/* In C these are no constant expressions: they stand in no case label and no static initializer. */
static const OopType OOP_NIL = 0x14;
static const OopType OOP_FALSE = 0x0C;
static const OopType OOP_TRUE = 0x10C;

/* A text is taken for UTF-16 when it is a kind of that class, which is therefore no superclass of
 * the other two. All classes but those below are the host's own. */
static const OopType OOP_CLASS_STRING = 0x12401;
static const OopType OOP_CLASS_SMALL_INTEGER = 0x12201;
static const OopType OOP_CLASS_CHARACTER = 0x10B01;
static const OopType OOP_CLASS_ARRAY = 0x10501;
static const OopType OOP_CLASS_DATE_TIME = 0x1D001;
static const OopType OOP_CLASS_UTF16_STRING = 0x26B01;
static const OopType OOP_CLASS_UTF8_STRING = 0x25A01;

/* The category of every error that the file module raises. */
static const OopType OOP_ERROR_CATEGORY = 0x38701;

/* The SmallInteger for `value`, which must fit in 61 bits: -2^60 to 2^60 - 1. */
KVFILE_CONSTANT_FUNCTION OopType oopFromSmallInteger(int64 value) {
  return ((OopType)value << 3) | 2U;
}

/* Non-zero when `oop` is a SmallInteger. */
KVFILE_CONSTANT_FUNCTION BoolType oopIsSmallInteger(OopType oop) { return (oop & 6U) == 2U; }

/* The value of a SmallInteger; meaningless for any other identifier. */
KVFILE_CONSTANT_FUNCTION int64 oopSmallIntegerValue(OopType oop) { return (int64)oop >> 3; }

/* The Character whose code point is `code`. */
KVFILE_CONSTANT_FUNCTION OopType oopFromCharacter(uint32_t code) {
  return ((OopType)code << 8) | 0x1CU;
}

/* Non-zero when `oop` is a Character. */
KVFILE_CONSTANT_FUNCTION BoolType oopIsCharacter(OopType oop) { return (oop & 0xFFU) == 0x1CU; }

/* The code point of a Character; meaningless for any other identifier. */
KVFILE_CONSTANT_FUNCTION uint64_t oopCharacterCode(OopType oop) { return oop >> 8; }

/* The Boolean object for a C truth value. */
KVFILE_CONSTANT_FUNCTION OopType oopFromBool(BoolType value) {
  return value ? OOP_TRUE : OOP_FALSE;
}

#endif
