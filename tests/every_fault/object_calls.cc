// The C interface of the machine: actions, errors and objects. A call that fails may leave by a jump,
// so nothing in these frames has a destructor.
#include <kvfile/platform/kcistring.h>

#include "every_fault/world.h"

#include <algorithm>
#include <cerrno>

using namespace every_fault;

namespace {

constexpr const char* ON_PURPOSE = "raised on purpose";

// Whether a fault of `what` befalls the call.
bool is(const Fault* fault, What what) { return fault != nullptr && fault->what == what; }

// The failure of a call that answers `failure`, where it comes back at all.
int64 failWith(const Fault* fault, int64 failure) {
  w.fetchCut = true;
  raiseError(fault != nullptr ? RAISED : WRONG_KIND,
             fault != nullptr ? ON_PURPOSE : "wrong kind of object");
  return done(failure);
}

OopType failNil(const Fault* fault) {
  raiseError(fault != nullptr ? RAISED : WRONG_KIND,
             fault != nullptr ? ON_PURPOSE : "wrong kind of object");
  return doneOop(OOP_NIL);
}

void failVoid(const Fault* fault) {
  raiseError(fault != nullptr ? RAISED : WRONG_KIND,
             fault != nullptr ? ON_PURPOSE : "wrong kind of object");
  doneVoid();
}

constexpr int CLAIMED = 7;  // what a lying fetch claims beyond the truth

// A fetch of bytes from `object`; startIndex is 1-based, and 0 is taken as 1.
int64 fetchBytes(const Fault* fault, const Object* object, int64 startIndex, void* buffer,
                 int64 count) {
  const bool bytes = object != nullptr && !object->pointers;
  if (is(fault, What::Raise) || !bytes || startIndex < 0 || count < 0) return failWith(fault, 0);
  const int64 start = std::max<int64>(startIndex, 1) - 1;
  const int64 left = std::max<int64>(static_cast<int64>(object->bytes.size()) - start, 0);
  const int64 n = cutShort(fault, std::min(left, count));
  if (n > 0) memcpy(buffer, object->bytes.data() + start, static_cast<size_t>(n));
  if (is(fault, What::Lie) && n > 0 && n < count) {
    memset(static_cast<char*>(buffer) + n, 'L', static_cast<size_t>(count - n));
  }
  // At the end there is nothing to lie about: a host that goes on for ever is one that does not end.
  if (is(fault, What::Lie) && n == 0) takeBack(fault);
  return done(is(fault, What::Lie) && n > 0 ? count + CLAIMED : n);
}

}  // namespace

extern "C" {

// ---- actions and errors ----

BoolType seam_KciDeclareAction(const char* name, KciActionFnType, int argCount, unsigned flags,
                               BoolType publish) {
  const Fault* fault =
      call(FN_KciDeclareAction, TextArg{name}, int64{argCount}, int64{flags}, int64{publish});
  return done(fault == nullptr ? TRUE : FALSE);
}

void seam_KciRaiseException(const KciErrSType* err) {
  const Fault* fault =
      call(FN_KciRaiseException, int64{err->number}, OopArg{err->args[0]}, OopArg{err->args[1]});
  doneVoid();
  w.raised = true;
  w.raise = *err;
  if (fault != nullptr) return;
  w.frameCount = 0;
  longjmp(*static_cast<jmp_buf*>(w.top), 1);
}

BoolType seam_KciErr(KciErrSType* err) {
  const Fault* fault = call(FN_KciErr);
  if (!w.isPending) takeBack(fault);
  if (fault != nullptr || !w.isPending) return done(FALSE);
  *err = w.pending;
  w.isPending = false;
  return done(TRUE);
}

void seam_KciPushErrJump(KciErrJumpSType* jump) {
  call(FN_KciPushErrJump);
  w.frames[w.frameCount++] = jump;
  doneVoid();
}

void seam_KciPopErrJump(KciErrJumpSType* jump) {
  call(FN_KciPopErrJump);
  while (w.frameCount > 0 && w.frames[w.frameCount - 1] != jump) --w.frameCount;
  if (w.frameCount > 0) --w.frameCount;
  doneVoid();
}

int seam_KciGetSessionId() { return done(call(FN_KciGetSessionId) != nullptr ? 0 : w.session); }

// ---- asking objects ----

BoolType seam_KciIsKindOfClass(OopType obj, OopType cls) {
  call(FN_KciIsKindOfClass, OopArg{obj}, OopArg{cls});
  const Object* object = findObject(obj);
  return done(object != nullptr && object->cls == cls ? TRUE : FALSE);
}

int64 seam_KciFetchSize_(OopType obj) {
  const Fault* fault = call(FN_KciFetchSize_, OopArg{obj});
  if (fault != nullptr) return failWith(fault, 0);
  const Object* object = findObject(obj);
  if (object == nullptr) return done(int64{0});
  return done(
      static_cast<int64>(object->pointers ? object->elements.size() : object->bytes.size()));
}

int64 seam_KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count) {
  const Fault* fault = call(FN_KciFetchBytes_, OopArg{obj}, startIndex, count);
  return fetchBytes(fault, findObject(obj), startIndex, buf, count);
}

int seam_KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count) {
  const Fault* fault = call(FN_KciFetchOops, OopArg{obj}, startIndex, int64{count});
  const Object* object = findObject(obj);
  if (is(fault, What::Raise) || object == nullptr || !object->pointers) {
    return static_cast<int>(failWith(fault, 0));
  }
  const int64 left =
      std::max<int64>(static_cast<int64>(object->elements.size()) - startIndex + 1, 0);
  const int64 n = cutShort(fault, std::min<int64>(left, count));
  for (int64 i = 0; i < n; ++i) buf[i] = object->elements[static_cast<size_t>(startIndex - 1 + i)];
  // A host that lies fills what it was given: the rest is nil.
  if (is(fault, What::Lie) && n > 0) {
    for (int64 i = n; i < count; ++i) buf[i] = OOP_NIL;
    return static_cast<int>(done(int64{count} + CLAIMED));
  }
  return static_cast<int>(done(n));
}

BoolType seam_KciFetchObjInfo(OopType obj, int64 startIndex, int64 bufSize, KciObjInfoSType* info,
                              ByteType* buf, int64* numRet) {
  const Fault* fault = call(FN_KciFetchObjInfo, OopArg{obj}, startIndex, bufSize);
  if (fault != nullptr) return static_cast<BoolType>(failWith(fault, 0));
  const Object* object = findObject(obj);
  *numRet = 0;
  *info = {0, KCI_FORMAT_POINTERS, OOP_NIL};
  if (object != nullptr && object->pointers) {
    info->size = static_cast<int64>(object->elements.size());
  } else if (object != nullptr) {
    info->size = static_cast<int64>(object->bytes.size());
    info->format = KCI_FORMAT_BYTES;
    *numRet = std::min(info->size, bufSize);
    memcpy(buf, object->bytes.data(), static_cast<size_t>(*numRet));
  }
  return done(TRUE);
}

int64 seam_KciOopToI64_(OopType obj, int* err) {
  const Fault* fault = call(FN_KciOopToI64_, OopArg{obj});
  const Object* object = findObject(obj);
  const bool large = object != nullptr && object->cls == OOP_CLASS_SMALL_INTEGER;
  if (fault != nullptr || (!oopIsSmallInteger(obj) && !large)) {
    *err = 1;
    return done(int64{0});
  }
  return done(large ? static_cast<int64>(object->elements[0]) : oopSmallIntegerValue(obj));
}

int seam_KciOopToI32_(OopType obj, int* err) {
  const Fault* fault = call(FN_KciOopToI32_, OopArg{obj});
  const int64 value = oopIsSmallInteger(obj) ? oopSmallIntegerValue(obj) : int64{1} << 40;
  if (fault != nullptr || value != static_cast<int>(value)) {
    *err = 1;
    return done(0);
  }
  return done(static_cast<int>(value));
}

OopType seam_KciI64ToOop(int64 value) {
  const Fault* fault = call(FN_KciI64ToOop, value);
  if (fault != nullptr) return failNil(fault);
  const OopType small = oopFromSmallInteger(value);
  if (oopSmallIntegerValue(small) == value) return doneOop(small);
  const OopType large = newObject(OOP_CLASS_SMALL_INTEGER, true);
  findObject(large)->elements.push_back(static_cast<OopType>(value));
  return doneOop(large);
}

OopType seam_KciI32ToOop(int value) {
  call(FN_KciI32ToOop, int64{value});
  return doneOop(oopFromSmallInteger(value));
}

// ---- changing objects ----

void seam_KciStoreBytesInstanceOf(OopType, OopType obj, int64 startIndex, const ByteType* bytes,
                                  int64 count) {
  const Fault* fault =
      call(FN_KciStoreBytesInstanceOf, OopArg{obj}, startIndex, BytesArg{bytes, count});
  Object* object = findObject(obj);
  if (fault != nullptr || object == nullptr || object->pointers || startIndex < 1 || count < 0) {
    return failVoid(fault);
  }
  const auto at = static_cast<size_t>(startIndex - 1);
  const auto n = static_cast<size_t>(count);
  if (at + n > object->bytes.size()) object->bytes.resize(at + n);
  memcpy(object->bytes.data() + at, bytes, n);
  doneVoid();
}

static void storeElements(const Fault* fault, OopType obj, int64 startIndex, const OopType* values,
                          int64 count) {
  Object* object = findObject(obj);
  if (fault != nullptr || object == nullptr || !object->pointers) return failVoid(fault);
  const auto end = static_cast<size_t>(startIndex - 1 + count);
  if (end > object->elements.size()) object->elements.resize(end, OOP_NIL);
  std::copy(values, values + count, object->elements.begin() + (startIndex - 1));
  doneVoid();
}

void seam_KciStoreOop(OopType obj, int64 index, OopType value) {
  const Fault* fault = call(FN_KciStoreOop, index, OopArg{value});
  storeElements(fault, obj, index, &value, 1);
}

void seam_KciStoreOops(OopType obj, int64 startIndex, const OopType* values, int count) {
  const Fault* fault = call(FN_KciStoreOops, startIndex, int64{count});
  storeElements(fault, obj, startIndex, values, count);
}

void seam_KciAppendOops(OopType array, int64 count, const OopType* values) {
  const Fault* fault = call(FN_KciAppendOops, count, OopArg{values[0]});
  const Object* object = findObject(array);
  const int64 size = object == nullptr ? 0 : static_cast<int64>(object->elements.size());
  storeElements(fault, array, size + 1, values, count);
}

void seam_KciSetVaryingSize(OopType obj, int64 size) {
  const Fault* fault = call(FN_KciSetVaryingSize, OopArg{obj}, size);
  Object* object = findObject(obj);
  if (fault != nullptr || object == nullptr) return failVoid(fault);
  object->bytes.resize(static_cast<size_t>(size));
  doneVoid();
}

// ---- making objects ----

OopType seam_KciNewOop(OopType cls) {
  const Fault* fault = call(FN_KciNewOop, OopArg{cls});
  return fault != nullptr ? failNil(fault) : doneOop(newObject(cls, cls == OOP_CLASS_ARRAY));
}

OopType seam_KciNewByteObj(OopType cls, const char* bytes, size_t length) {
  const Fault* fault =
      call(FN_KciNewByteObj, OopArg{cls}, BytesArg{bytes, static_cast<int64>(length)});
  return fault != nullptr ? failNil(fault) : doneOop(newBytes(cls, {bytes, length}));
}

OopType seam_KciCreateByteObj(OopType cls, OopType, const ByteType* bytes, int64 size, int,
                              BoolType) {
  const Fault* fault = call(FN_KciCreateByteObj, OopArg{cls}, size);
  if (fault != nullptr || bytes != nullptr || size < 0) return failNil(fault);
  const OopType made = newObject(cls, false);
  // Bytes that nobody has stored yet: they must not be seen.
  findObject(made)->bytes.assign(static_cast<size_t>(size), '?');
  return doneOop(made);
}

void seam_KciReleaseOops(OopType* oops, int count) {
  call(FN_KciReleaseOops, int64{count});
  for (int i = 0; i < count; ++i) {
    const auto found = std::find(w.releasable.begin(), w.releasable.end(), oops[i]);
    if (found != w.releasable.end()) w.releasable.erase(found);
  }
  doneVoid();
}

void seam_KciCTimeToDateTime(int64 time, KciDateTimeSType* out) {
  const Fault* fault = call(FN_KciCTimeToDateTime, time);
  if (fault != nullptr) return failVoid(fault);
  *out = {1970, 1, static_cast<int>(time), OOP_NIL};
  doneVoid();
}

OopType seam_KciNewDateTime(OopType, const KciDateTimeSType* value) {
  const Fault* fault = call(FN_KciNewDateTime, int64{value->year}, int64{value->milliseconds});
  return fault != nullptr ? failNil(fault) : doneOop(newBytes(OOP_CLASS_STRING, "a DateTime"));
}

// ---- characters ----

int64 seam_KciFetchChars_(OopType obj, int64 startIndex, char* buf, int64 maxSize) {
  const Fault* fault = call(FN_KciFetchChars_, OopArg{obj}, startIndex, maxSize);
  return fetchBytes(fault, findObject(obj), startIndex, buf, maxSize);
}

int64 seam_KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                              OopType* utf8String, int flags) {
  const Fault* fault = call(FN_KciFetchUtf8Bytes_, OopArg{str}, startIndex, maxBytes, int64{flags});
  if (str == OOP_NIL && fault == nullptr) return done(int64{0});
  const Object* object = findObject(str);
  const bool converts =
      object != nullptr && !object->bytes.empty() && object->cls != OOP_CLASS_UTF8_STRING;
  if (is(fault, What::Convert) && !converts) takeBack(fault);
  if (is(fault, What::Convert) && converts) {
    const OopType made = newObject(OOP_CLASS_UTF8_STRING, false);
    object = findObject(str);
    findObject(made)->bytes = object->bytes;
    w.releasable.push_back(made);
    *utf8String = made;
  }
  return fetchBytes(fault, object, startIndex, buf, maxBytes);
}

OopType seam_KciNewString(const char* text) {
  const Fault* fault = call(FN_KciNewString, TextArg{text});
  return fault != nullptr ? failNil(fault) : doneOop(newBytes(OOP_CLASS_STRING, text));
}

OopType seam_KciNewCharObj(OopType cls, const char* text) {
  const Fault* fault = call(FN_KciNewCharObj, OopArg{cls}, TextArg{text});
  return fault != nullptr ? failNil(fault) : doneOop(newBytes(cls, text));
}

OopType seam_KciNewSymbol(const char* text) {
  const Fault* fault = call(FN_KciNewSymbol, TextArg{text});
  return fault != nullptr ? failNil(fault) : doneOop(newBytes(OOP_CLASS_STRING, text));
}

BoolType seam_KciAll7Bit(const char* text, size_t* length) {
  call(FN_KciAll7Bit, TextArg{text});
  *length = strlen(text);
  const bool all = std::all_of(text, text + *length, [](char c) { return c >= 0; });
  return done(all ? TRUE : FALSE);
}

}  // extern "C"
