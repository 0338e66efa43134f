#include "interface/error_table.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace kvhost::interface {

namespace {

struct ErrorRow {
  ErrorNumber number;
  int argCount;
  const char* text;  // of the first argument, which %s shows as an identifier
};

constexpr std::array ERRORS = {
    ErrorRow{ERROR_NO_SUCH_OBJECT, 1, "the object %s does not exist"},
    ErrorRow{ERROR_NOT_BYTES, 1, "the object %s does not hold bytes"},
    ErrorRow{ERROR_NOT_POINTERS, 1, "the object %s does not hold elements"},
    ErrorRow{ERROR_NOT_CHARACTERS, 1, "the object %s is not a character object"},
    ErrorRow{ERROR_SIZE_FIXED, 1, "the size of the object %s cannot change"},
    ErrorRow{ERROR_INVARIANT, 1, "the object %s is invariant"},
    ErrorRow{ERROR_WRONG_CLASS, 2, "the object %s is of the wrong class"},
    ErrorRow{ERROR_OUT_OF_RANGE, 1, "an index, size or count for the object %s is out of range"},
    ErrorRow{ERROR_NOT_INSTANTIABLE, 1, "%s is not a class of which such an instance can be made"},
    ErrorRow{ERROR_NO_MEMORY, 1, "there is no memory for the object %s, or it would be too large"},
    ErrorRow{ERROR_MALFORMED_TEXT, 1, "the object %s does not hold well-formed UTF-16 text"},
    ErrorRow{ERROR_DATE_RANGE, 0, "the point in time cannot be represented"},
};

}  // namespace

void describeError(ErrorNumber number, OopType first, OopType second, KciErrSType* err) {
  const auto* row = std::find_if(ERRORS.begin(), ERRORS.end(),
                                 [number](const ErrorRow& each) { return each.number == number; });
  char name[32];
  std::snprintf(name, sizeof name, "0x%" PRIX64, first);
  err->initialize();
  err->category = OOP_ERROR_CATEGORY;
  err->number = number;
  err->argCount = row->argCount;
  err->args[0] = row->argCount > 0 ? first : OOP_NIL;
  err->args[1] = row->argCount > 1 ? second : OOP_NIL;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(err->message, sizeof err->message, row->text, name);
#pragma GCC diagnostic pop
}

}  // namespace kvhost::interface
