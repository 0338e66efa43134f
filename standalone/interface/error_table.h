// The errors that the standalone host's C interface reports by itself, with their texts.
#pragma once

#include <kvfile/platform/kci.h>
#include <kvfile/platform/oop.h>

namespace kvhost::interface {

enum ErrorNumber : int {
#define KVHOST_ERROR(number, name, argCount, text) ERROR_##name = (number),
#include "interface/error_table.def"
};

// Fills `*err` with the number, the text and the one or two arguments that the error takes.
void describeError(ErrorNumber number, OopType first, OopType second, KciErrSType* err);

}  // namespace kvhost::interface
