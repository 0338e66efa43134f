/* The object memory: a fixed table of objects, and the classes that they can have. */
#include "c_host/minimal_host.h"

#include <stdlib.h>
#include <string.h>

enum { MAX_OBJECTS = 4096, MAX_OBJECT_SIZE = 1 << 24, NOT_INSTANTIABLE = 2 };

/* The identifiers of objects follow those of the classes: both end in 01. */
static const OopType FIRST_OBJECT = 0x1000001;

typedef struct MiniClass {
  OopType oop;
  OopType superclass;
  int format;
  BoolType isCharacter;
  BoolType varies;
} MiniClass;

static MiniObject gObjects[MAX_OBJECTS];
static int gObjectCount;
static int gObjectLimit = MAX_OBJECTS;

/* The table is built in place, since the constants of oop.h are no constant expressions in C. */
static BoolType findClass(OopType oop, MiniClass* out) {
  const MiniClass classes[] = {
      {MINI_CLASS_OBJECT, OOP_NIL, NOT_INSTANTIABLE, FALSE, FALSE},
      {OOP_CLASS_STRING, MINI_CLASS_OBJECT, KCI_FORMAT_BYTES, TRUE, TRUE},
      {MINI_CLASS_SYMBOL, OOP_CLASS_STRING, KCI_FORMAT_BYTES, TRUE, FALSE},
      {OOP_CLASS_UTF8_STRING, MINI_CLASS_OBJECT, KCI_FORMAT_BYTES, TRUE, TRUE},
      {OOP_CLASS_UTF16_STRING, MINI_CLASS_OBJECT, KCI_FORMAT_BYTES, TRUE, TRUE},
      {MINI_CLASS_BYTE_ARRAY, MINI_CLASS_OBJECT, KCI_FORMAT_BYTES, FALSE, TRUE},
      {MINI_CLASS_LARGE_INTEGER, MINI_CLASS_OBJECT, KCI_FORMAT_BYTES, FALSE, FALSE},
      {OOP_CLASS_ARRAY, MINI_CLASS_OBJECT, KCI_FORMAT_POINTERS, FALSE, TRUE},
      {OOP_CLASS_DATE_TIME, MINI_CLASS_OBJECT, KCI_FORMAT_POINTERS, FALSE, TRUE},
      {MINI_CLASS_FILE, MINI_CLASS_OBJECT, KCI_FORMAT_POINTERS, FALSE, FALSE},
      {OOP_CLASS_SMALL_INTEGER, MINI_CLASS_OBJECT, NOT_INSTANTIABLE, FALSE, FALSE},
      {OOP_CLASS_CHARACTER, MINI_CLASS_OBJECT, NOT_INSTANTIABLE, FALSE, FALSE},
      {MINI_CLASS_BOOLEAN, MINI_CLASS_OBJECT, NOT_INSTANTIABLE, FALSE, FALSE},
      {MINI_CLASS_UNDEFINED_OBJECT, MINI_CLASS_OBJECT, NOT_INSTANTIABLE, FALSE, FALSE},
  };
  for (size_t i = 0; i < sizeof classes / sizeof classes[0]; i++) {
    if (classes[i].oop == oop) {
      *out = classes[i];
      return TRUE;
    }
  }
  return FALSE;
}

MiniObject* miniObject(OopType oop) {
  if (oop < FIRST_OBJECT || (oop & 0xFFU) != 1) return NULL;
  OopType index = (oop - FIRST_OBJECT) >> 8;
  return index < (OopType)gObjectCount ? &gObjects[index] : NULL;
}

OopType miniClassOf(OopType oop) {
  const MiniObject* object = miniObject(oop);
  MiniClass cls;
  if (object) return object->cls;
  if (oopIsSmallInteger(oop)) return OOP_CLASS_SMALL_INTEGER;
  if (oopIsCharacter(oop)) return OOP_CLASS_CHARACTER;
  if (oop == OOP_TRUE || oop == OOP_FALSE) return MINI_CLASS_BOOLEAN;
  if (oop == OOP_NIL) return MINI_CLASS_UNDEFINED_OBJECT;
  return findClass(oop, &cls) ? MINI_CLASS_OBJECT : OOP_NIL;
}

BoolType KciIsKindOfClass(OopType obj, OopType cls) {
  MiniClass found;
  for (OopType each = miniClassOf(obj); findClass(each, &found); each = found.superclass) {
    if (each == cls) return TRUE;
  }
  return FALSE;
}

void miniAllowObjects(int count) { gObjectLimit = gObjectCount + count; }

void miniAllowAllObjects(void) { gObjectLimit = MAX_OBJECTS; }

void miniFreeObjects(void) {
  while (gObjectCount > 0) free(gObjects[--gObjectCount].body);
}

/* ---- sizes ---- */

static size_t unitSize(const MiniObject* object) {
  return object->isBytes ? sizeof(ByteType) : sizeof(OopType);
}

static void fillWithNil(MiniObject* object, int64 from) {
  OopType* oops = object->body;
  for (int64 i = from; i < object->size; i++) oops[i] = OOP_NIL;
}

/* Gives `object` another size. What is new is 0 or nil. */
static BoolType resize(MiniObject* object, int64 size) {
  if (size < 0 || size > MAX_OBJECT_SIZE) return FALSE;
  size_t unit = unitSize(object);
  void* body = realloc(object->body, (size_t)size * unit + 1);
  if (!body) return FALSE;
  int64 oldSize = object->size;
  object->body = body;
  object->size = size;
  if (size <= oldSize) return TRUE;
  if (object->isBytes) memset((char*)body + oldSize, 0, (size_t)(size - oldSize));
  if (!object->isBytes) fillWithNil(object, oldSize);
  return TRUE;
}

/* The object for a store that ends before index `end` + 1, grown to it; null when the call failed.
 */
static MiniObject* objectToChange(OopType obj, int64 startIndex, int64 count, BoolType isBytes) {
  MiniObject* object = miniObject(obj);
  if (!object || object->isBytes != isBytes) {
    miniFail(object ? MINI_ERR_WRONG_FORMAT : MINI_ERR_NO_OBJECT, "cannot store into this object");
    return NULL;
  }
  if (startIndex < 1 || count < 0 || startIndex > MAX_OBJECT_SIZE || count > MAX_OBJECT_SIZE) {
    miniFail(MINI_ERR_RANGE, "index or count out of range");
    return NULL;
  }
  int64 end = startIndex - 1 + count;
  BoolType grows = end > object->size;
  if (object->cls == MINI_CLASS_SYMBOL || object->cls == MINI_CLASS_LARGE_INTEGER ||
      (grows && !object->varies)) {
    miniFail(MINI_ERR_UNCHANGEABLE, "object is invariant or of fixed size");
    return NULL;
  }
  if (grows && !resize(object, end)) {
    miniFail(MINI_ERR_MEMORY, "no memory for the object");
    return NULL;
  }
  return object;
}

/* ---- making ---- */

static OopType newObject(OopType cls, int64 size) {
  MiniClass found;
  if (!findClass(cls, &found) || found.format == NOT_INSTANTIABLE) {
    miniFail(MINI_ERR_CLASS, "not a class with instances");
    return OOP_NIL;
  }
  MiniObject object = {
      cls, 0, NULL, found.format == KCI_FORMAT_BYTES, found.varies, found.isCharacter};
  if (size < 0 || gObjectCount >= gObjectLimit || !resize(&object, size)) {
    miniFail(size < 0 ? MINI_ERR_RANGE : MINI_ERR_MEMORY, "no room for a new object");
    return OOP_NIL;
  }
  gObjects[gObjectCount] = object;
  return FIRST_OBJECT + ((OopType)gObjectCount++ << 8);
}

OopType miniNewBytes(OopType cls, int64 size) {
  MiniClass found;
  if (findClass(cls, &found) && found.format == KCI_FORMAT_BYTES) return newObject(cls, size);
  miniFail(MINI_ERR_CLASS, "not a class of bytes");
  return OOP_NIL;
}

OopType miniFindSymbol(const char* text, size_t length) {
  for (int i = 0; i < gObjectCount; i++) {
    const MiniObject* each = &gObjects[i];
    if (each->cls == MINI_CLASS_SYMBOL && (size_t)each->size == length &&
        memcmp(each->body, text, length) == 0) {
      return FIRST_OBJECT + ((OopType)i << 8);
    }
  }
  return OOP_NIL;
}

OopType KciNewOop(OopType cls) { return newObject(cls, 0); }

OopType KciNewByteObj(OopType cls, const char* bytes, size_t length) {
  return KciCreateByteObj(cls, 1, (const ByteType*)bytes, (int64)length, 0, FALSE);
}

OopType KciCreateByteObj(OopType cls, OopType objId, const ByteType* bytes, int64 size,
                         int clusterId, BoolType makePermanent) {
  (void)objId; /* identifiers are always new, and nothing is clustered or collected */
  (void)clusterId;
  (void)makePermanent;
  OopType oop = miniNewBytes(cls, size);
  if (oop != OOP_NIL && bytes && size > 0) memcpy(miniObject(oop)->body, bytes, (size_t)size);
  return oop;
}

void KciReleaseOops(OopType* oops, int count) {
  (void)oops; /* objects live until the host is closed */
  (void)count;
}

/* ---- asking ---- */

int64 KciFetchSize_(OopType obj) {
  const MiniObject* object = miniObject(obj);
  if (object) return object->size;
  if (miniClassOf(obj) == OOP_NIL) miniFail(MINI_ERR_NO_OBJECT, "no such object");
  return 0;
}

/* How many of `count` elements there are from `startIndex` on. */
static int64 countFrom(const MiniObject* object, int64 startIndex, int64 count) {
  int64 rest = startIndex > object->size ? 0 : object->size - (startIndex - 1);
  return count < rest ? count : rest;
}

int64 KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count) {
  const MiniObject* object = miniObject(obj);
  if (!object || !object->isBytes) {
    miniFail(MINI_ERR_WRONG_FORMAT, "not a byte object");
    return 0;
  }
  if (startIndex < 0 || count < 0) {
    miniFail(MINI_ERR_RANGE, "index or count out of range");
    return 0;
  }
  int64 first = startIndex == 0 ? 1 : startIndex;
  int64 copied = countFrom(object, first, count);
  if (copied > 0) memcpy(buf, (const ByteType*)object->body + first - 1, (size_t)copied);
  return copied;
}

int KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count) {
  const MiniObject* object = miniObject(obj);
  if (!object || object->isBytes) {
    miniFail(MINI_ERR_WRONG_FORMAT, "not a pointer object");
    return 0;
  }
  if (startIndex < 1 || count < 0) {
    miniFail(MINI_ERR_RANGE, "index or count out of range");
    return 0;
  }
  int64 copied = countFrom(object, startIndex, count);
  const OopType* oops = object->body;
  for (int64 i = 0; i < copied; i++) buf[i] = oops[startIndex - 1 + i];
  return (int)copied;
}

BoolType KciFetchObjInfo(OopType obj, int64 startIndex, int64 bufSize, KciObjInfoSType* info,
                         ByteType* buf, int64* numRet) {
  const MiniObject* object = miniObject(obj);
  OopType cls = miniClassOf(obj);
  if (cls == OOP_NIL || startIndex < 0 || bufSize < 0) {
    miniFail(cls == OOP_NIL ? MINI_ERR_NO_OBJECT : MINI_ERR_RANGE, "cannot describe this object");
    return FALSE;
  }
  BoolType isBytes = object && object->isBytes;
  info->size = object ? object->size : 0;
  info->format = isBytes ? KCI_FORMAT_BYTES : KCI_FORMAT_POINTERS;
  info->objClass = cls;
  *numRet = isBytes ? KciFetchBytes_(obj, startIndex, buf, bufSize) : 0;
  return TRUE;
}

/* ---- changing ---- */

void KciStoreBytesInstanceOf(OopType cls, OopType obj, int64 startIndex, const ByteType* bytes,
                             int64 count) {
  if (cls != OOP_NIL && !KciIsKindOfClass(obj, cls)) {
    miniFail(MINI_ERR_CLASS, "object is not of the class");
    return;
  }
  MiniObject* object = objectToChange(obj, startIndex, count, TRUE);
  if (object && count > 0) {
    memcpy((ByteType*)object->body + startIndex - 1, bytes, (size_t)count);
  }
}

void KciStoreOop(OopType obj, int64 index, OopType value) { KciStoreOops(obj, index, &value, 1); }

void KciStoreOops(OopType obj, int64 startIndex, const OopType* values, int count) {
  MiniObject* object = objectToChange(obj, startIndex, count, FALSE);
  if (!object) return;
  OopType* oops = object->body;
  for (int64 i = 0; i < count; i++) oops[startIndex - 1 + i] = values[i];
}

void KciAppendOops(OopType array, int64 count, const OopType* values) {
  if (count < 0 || count > MAX_OBJECT_SIZE) {
    miniFail(MINI_ERR_RANGE, "count out of range");
    return;
  }
  KciStoreOops(array, KciFetchSize_(array) + 1, values, (int)count);
}

void KciSetVaryingSize(OopType obj, int64 size) {
  MiniObject* object = miniObject(obj);
  if (!object || !object->varies || size < 0) {
    miniFail(MINI_ERR_UNCHANGEABLE, "size cannot be changed to this");
  } else if (!resize(object, size)) {
    miniFail(MINI_ERR_MEMORY, "no memory for the object");
  }
}
