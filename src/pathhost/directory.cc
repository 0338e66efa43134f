// Listing a directory: the host walks it and calls back for each entry. The callback makes objects,
// so that an interface error may leave it over the host's frames.
#include "pathhost/directory.h"

#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

#include "framework/class_error.h"
#include "framework/std_file_names.h"
#include "framework/texts.h"
#include "pathhost/name_strings.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace kvf {

// The callback may leave by an interface error, over the walk's frames.
static_assert(std::is_trivially_destructible_v<HostDirClientDataType>);

// The name of an entry behind its directory, cut to what two host file names hold.
struct FullName {
  char text[2 * HOST_FNAME_MAX_SIZE + 1];
  size_t length = 0;

  void append(const char* part) {
    const size_t copied = std::min(strlen(part), sizeof text - 1 - length);
    memcpy(text + length, part, copied);
    length += copied;
    text[length] = '\0';
  }
};
static_assert(std::is_trivially_destructible_v<FullName>);

BoolType clientDirCallback(const char* dirName, const char* fileName, const char* seperator,
                           HostDirClientDataType* clData) {
  FullName fullName;
  const char* name = fileName;
  if (clData->fullPath) {
    fullName.append(dirName);
    fullName.append(seperator);
    fullName.append(fileName);
    name = fullName.text;
  }
  const OopType string = clData->utfResult ? newNameString(name) : KciNewString(name);
  KciAppendOops(clData->arrayOop, 1, &string);
  return TRUE;
}

OopType KvfDirectoryContents(const KvfPath* aPath, BoolType forRuby, BoolType utfResultsBool) {
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  HostDirClientDataType clData(nullptr, nullptr, array, forRuby, TRUE, utfResultsBool);
  if (aPath->isUtf16) return OOP_NIL;
  return HostDirectory(aPath->path, clientDirCallback, &clData, 0) ? array : OOP_NIL;
}

}  // namespace kvf

using namespace kvf;

/// Lists a directory. One that cannot be read, because it is missing, no directory, or closed to
/// the user, answers nil, and neither a text nor a code tells why. The path is not expanded; "."
/// and ".." are left to the host, the order too.
///
/// Arguments: oClass, the receiver. oDirSpec, a String of at most 4095 bytes. utfResultsBool, true
///   to get names with bytes above 127 as UTF-8 strings; else all are Strings of the names' raw
///   bytes.
/// Answers: a new Array of new strings, each the directory, the host's separator and the name;
///   empty for an empty directory. nil when the directory could not be walked to its end.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level {TEXT_DIRECTORY_STD_FILE} for the name of a standard file, beside the
///   code that was there; nothing when the walk failed.
/// Host calls: the path fetch, KciNewOop, HostDirectory; within it per entry KciNewString, or
///   KciAll7Bit and KciNewByteObj, and KciAppendOops.
/// Blocks: as the file system does.
OopType KvfDirectory(OopType /*oClass*/, OopType oDirSpec, OopType utfResultsBool) {
  KvfPath aPath;
  if (!fetchPath(oDirSpec, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) {
    storeClassErrorString(TEXT_DIRECTORY_STD_FILE);
    return OOP_NIL;
  }
  return KvfDirectoryContents(&aPath, FALSE, utfResultsBool == OOP_TRUE);
}
