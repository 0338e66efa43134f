#include "line_reader.h"

LineReaderStateType* lineReadState = nullptr;
