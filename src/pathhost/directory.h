// Listing a directory.
#pragma once

#include <kvfile/platform/host.h>

#include "framework/arguments.h"

namespace kvf {

// A new Array with one string per entry of the directory at `aPath`, or nil when it could not be
// walked. `forRuby` asks for bare names, else they are full paths; `utfResultsBool` makes names
// with bytes above 127 UTF-8 strings, else all are Strings.
OopType KvfDirectoryContents(const KvfPath* aPath, BoolType forRuby, BoolType utfResultsBool);

// Appends one entry to the Array in `clData`; always true. Full names are cut to 8194 bytes.
BoolType clientDirCallback(const char* dirName, const char* fileName, const char* seperator,
                           HostDirClientDataType* clData);

}  // namespace kvf
