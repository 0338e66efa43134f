// The one variable of the installed line reader.
#include "record/line_reader.h"

namespace kvf {

LineReaderStateType* lineReadState = nullptr;

}  // namespace kvf
