// The interface's socket buffer sizes. Problems are answered as Strings: callers tell success from
// failure by the class of the answer.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>

#include "framework/arguments.h"
#include "framework/texts.h"

#include <climits>

namespace kvf {

namespace {

constexpr size_t OPTION_NAME_SIZE = 32;
constexpr size_t ERROR_TEXT_SIZE = 256;

OopType answerText(char (&text)[ERROR_TEXT_SIZE]) {
  text[ERROR_TEXT_SIZE - 1] = '\0';
  return KciNewString(text);
}

// The problem of a size, or null.
const char* sizeProblem(OopType oNewSize) {
  if (!oopIsSmallInteger(oNewSize)) return TEXT_SIZE_CLASS;
  const int64 size = oopSmallIntegerValue(oNewSize);
  if ((size & 1) != 0) return TEXT_SIZE_ODD;
  if (size < 1 || size > INT_MAX) return TEXT_SIZE_RANGE;
  return nullptr;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Asks the size of a socket buffer of the interface.
///
/// Arguments: oClass, the receiver. oBufKind, a String of at most 31 bytes, the option's name.
/// Answers: SmallInteger, bytes; a String with {TEXT_OPTION_NAME} or the host's text on failure.
/// Raises: 2094 and 2061 for oBufKind.
/// Stores: nothing.
/// Host calls: the string fetch, KciSupFetchKciSocketBufSize, KciI32ToOop; KciNewString for a
///   problem.
/// Blocks: never.
OopType KvfKciGetSocketBufSize(OopType /*oClass*/, OopType oBufKind) {
  char name[OPTION_NAME_SIZE];
  if (!fetchString(oBufKind, sizeof name, name)) return KciNewString(TEXT_OPTION_NAME);
  char text[ERROR_TEXT_SIZE];
  text[0] = '\0';
  const int size = KciSupFetchKciSocketBufSize(name, text, sizeof text);
  return size == -1 ? answerText(text) : KciI32ToOop(size);
}

/// Sets the size of a socket buffer of the interface.
///
/// Arguments: oClass, the receiver. oBufKind, a String of at most 31 bytes, the option's name.
///   oNewSize, a SmallInteger, bytes: an even number from 2 to 2147483646.
/// Answers: true; a String for a problem, checked in this order: {TEXT_SIZE_CLASS},
///   {TEXT_SIZE_ODD}, {TEXT_SIZE_RANGE}, {TEXT_OPTION_NAME}, or the host's text.
/// Raises: 2094 and 2061 for oBufKind.
/// Stores: nothing.
/// Host calls: the string fetch, KciSupSetKciSocketBufSize; KciNewString for a problem.
/// Blocks: never.
OopType KvfKciSetSocketBufSize(OopType /*oClass*/, OopType oBufKind, OopType oNewSize) {
  const char* problem = sizeProblem(oNewSize);
  if (problem != nullptr) return KciNewString(problem);
  char name[OPTION_NAME_SIZE];
  if (!fetchString(oBufKind, sizeof name, name)) return KciNewString(TEXT_OPTION_NAME);
  char text[ERROR_TEXT_SIZE];
  text[0] = '\0';
  const int size = static_cast<int>(oopSmallIntegerValue(oNewSize));
  return KciSupSetKciSocketBufSize(name, size, text, sizeof text) ? OOP_TRUE : answerText(text);
}
