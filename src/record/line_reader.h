// The terminal line reader that reads of standard input use. One for the process and without a
// lock: it is set and cleared when the product starts up and shuts down.
#pragma once

#include <kvfile/platform/lrsupreadline.h>

namespace kvf {

extern LineReaderStateType* lineReadState;  // null: none installed

}  // namespace kvf
