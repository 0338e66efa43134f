// The class-level error, and the action that takes or installs it.
#include "framework/class_error.h"

#include <kvfile/kvfile.h>
#include <kvfile/platform/kcistring.h>

#include "framework/bounded_copy.h"

#include <cerrno>

namespace kvf {

int classErrorCode = 0;
ErrMsgStrType classErrorString = "";

void KvfInit() {
  classErrorCode = 0;
  classErrorString[0] = '\0';
}

void storeClassErrorString(const char* text) {
  kvf::strlcpy(classErrorString, text, sizeof classErrorString);
}

OopType takeClassErrorString() {
  if (classErrorString[0] == '\0') return OOP_NIL;
  const OopType text = KciNewCharObj(OOP_CLASS_STRING, classErrorString);
  classErrorString[0] = '\0';
  return text;
}

}  // namespace kvf

using namespace kvf;

/// Takes the class-level error text, or installs one.
///
/// Arguments: oClass, the receiver. errToInstall, nil to take the pending text, or a String or
///   Symbol to install, of which the first 2047 bytes are kept.
/// Answers: with nil, a new String holding the pending text, or nil when there is none. Else
///   oClass.
/// Raises: nothing. The error that KciFetchChars_ leaves for an object that is no character object is
///   not asked for; a host that drops no error, as the standalone one, ends the action with it.
/// Stores: with nil, text and code are emptied when there was a text. Else the text is installed
///   with code 22; an object that is no character object leaves the text as it was.
/// Host calls: KciNewCharObj for a text that is taken, KciFetchChars_ for one that is installed.
/// Blocks: never.
OopType KvfClassError(OopType oClass, OopType errToInstall) {
  if (errToInstall == OOP_NIL) {
    if (classErrorString[0] != '\0') classErrorCode = 0;
    return takeClassErrorString();
  }
  KciFetchChars_(errToInstall, 1, classErrorString, sizeof classErrorString);
  classErrorString[sizeof classErrorString - 1] = '\0';
  classErrorCode = EINVAL;
  return oClass;
}
