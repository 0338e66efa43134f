// The environment of the process.
#include <kvfile/kvfile.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>

#include "framework/arguments.h"
#include "pathhost/name_strings.h"

using namespace kvf;

/// Reads an environment variable, or expands the references in a file name.
///
/// Arguments: oClass, the receiver. varName, a String of at most 4095 bytes. opcodeOop,
///   SmallInteger 0 to read the variable of that name, 1 to expand the name.
/// Answers: a new String, or a new UTF-8 string where a byte is above 127. Expansion answers what
///   the host made of the name, an empty String where it made nothing. nil for a variable that does
///   not exist and for another opcode.
/// Raises: 2718 for an empty or UTF-16 name, 2061 for a longer one.
/// Stores: nothing.
/// Host calls: the path fetch, HostGetEnv or HostExpandFileName, KciAll7Bit, KciNewByteObj.
/// Blocks: never.
OopType KvfExpandEnvVar(OopType /*oClass*/, OopType varName, OopType opcodeOop) {
  KvfPath name;
  if (!fetchPath(varName, &name)) return OOP_NIL;
  if (!oopIsSmallInteger(opcodeOop) || name.isUtf16) return OOP_NIL;
  char result[16000];
  result[0] = '\0';
  const int64 opcode = oopSmallIntegerValue(opcodeOop);
  if (opcode == 0) {
    // One less than for an expansion: values of 15999 bytes have never been readable.
    if (!HostGetEnv(name.path, result, sizeof result - 1)) return OOP_NIL;
  } else if (opcode == 1) {
    HostExpandFileName(name.path, result, sizeof result, 0, 1);
  } else {
    return OOP_NIL;
  }
  result[sizeof result - 1] = '\0';
  return newNameString(result);
}

/// Sets an environment variable of the process, or removes it.
///
/// Arguments: oClass, the receiver. varName, a String of at most 4095 bytes. valOop, a String of 1
///   to 4095 bytes, or nil to remove the variable.
/// Answers: true, or nil on failure.
/// Raises: 2718 for an empty or UTF-16 name or value, 2061 for a longer one.
/// Stores: nothing.
/// Host calls: the path fetch, of the name and of the value; HostSetEnv.
/// Blocks: never.
OopType KvfSetEnvVar(OopType /*oClass*/, OopType varName, OopType valOop) {
  KvfPath name;
  if (!fetchPath(varName, &name)) return OOP_NIL;
  KvfPath value;
  if (valOop != OOP_NIL && !fetchPath(valOop, &value)) return OOP_NIL;
  if (name.isUtf16 || value.isUtf16) return OOP_NIL;
  return HostSetEnv(name.path, valOop == OOP_NIL ? nullptr : value.path) ? OOP_TRUE : OOP_NIL;
}

/// Reads the object identifier that the host keeps for tests of a client's fault handler. The host
/// may make that read fault on purpose.
///
/// Arguments: oClass, the receiver.
/// Answers: the identifier that the host points at.
/// Raises: nothing.
/// Stores: nothing.
/// Host calls: HostSetOopPtr.
/// Blocks: never.
OopType KvfTestClientHandler(OopType /*oClass*/) {
  OopType* where = nullptr;
  HostSetOopPtr(&where);
  // Volatile, so that the read is made at this place whatever it leads to.
  return *static_cast<volatile OopType*>(where);
}
