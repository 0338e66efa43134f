// The errors that the standalone host's C interface reports by itself, with their texts.
#pragma once

#include <kvfile/platform/kci.h>
#include <kvfile/platform/oop.h>

namespace kvhost::interface {

enum ErrorNumber : int {
  ERROR_NO_SUCH_OBJECT = 2101,
  ERROR_NOT_BYTES = 2102,
  ERROR_NOT_POINTERS = 2103,
  ERROR_NOT_CHARACTERS = 2104,
  ERROR_SIZE_FIXED = 2105,
  ERROR_INVARIANT = 2106,
  ERROR_WRONG_CLASS = 2107,
  ERROR_OUT_OF_RANGE = 2108,
  ERROR_NOT_INSTANTIABLE = 2109,
  ERROR_NO_MEMORY = 2110,
  ERROR_MALFORMED_TEXT = 2111,
  ERROR_DATE_RANGE = 2112
};

// Fills `*err` with the number, the text and the one or two arguments that the error takes.
void describeError(ErrorNumber number, OopType first, OopType second, KciErrSType* err);

}  // namespace kvhost::interface
