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

#define KVHOST_ERROR(number, name, argCount, text) ErrorRow{ERROR_##name, argCount, text},
constexpr std::array ERRORS = {
#include "interface/error_table.def"
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
