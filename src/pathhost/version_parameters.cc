// Version parameters of the build and the machine.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/version.h>

#include "framework/class_error.h"
#include "framework/raise.h"
#include "framework/texts.h"

using namespace kvf;

/// Asks a version parameter of the build or of the machine.
///
/// Arguments: oClass, the receiver. oParamId, a SmallInteger: 0 CPU kind, 1 CPU architecture, 2
///   build architecture, 3 build date, 4 image kind, 5 release, 6 version, 7 node name, 8 name, 9
///   release and 10 version of the operating system, 11 process id, 12 processor count, 13 build
///   serial number, 14 build type. Other ids are the host's to refuse.
/// Answers: a SmallInteger or a new String, as the host has it; nil when the host knows no such id.
/// Raises: 2094 with oParamId and class SmallInteger; 2061 with oParamId beyond 32 bits.
/// Stores: at class level {TEXT_VERSION_FAILED}, beside the code that was there.
/// Host calls: KciOopToI32_, VerGetVersionParam, KciNewString or KciI32ToOop.
/// Blocks: never.
OopType KvfVersionParam(OopType /*oClass*/, OopType oParamId) {
  if (!oopIsSmallInteger(oParamId)) {
    raiseError(KVF_ERR_ARGUMENT_CLASS, oParamId, OOP_CLASS_SMALL_INTEGER);
    return OOP_NIL;
  }
  int conversionFailed = 0;
  const int id = KciOopToI32_(oParamId, &conversionFailed);
  if (conversionFailed != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oParamId);
    return OOP_NIL;
  }
  VerParamResultSType result;
  result.kind = VER_INT_KIND;
  result.intVal = 0;
  result.stringVal[0] = '\0';
  if (!VerGetVersionParam(static_cast<VerParamEType>(id), &result)) {
    storeClassErrorString(TEXT_VERSION_FAILED);
    return OOP_NIL;
  }
  result.stringVal[sizeof result.stringVal - 1] = '\0';
  return result.kind == VER_STRING_KIND ? KciNewString(result.stringVal)
                                        : KciI32ToOop(result.intVal);
}
