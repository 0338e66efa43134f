#include "interface/object_creation.h"

#include "interface/dropped_files.h"
#include "interface/error_state.h"
#include "interface/object_access.h"
#include "memory/contents.h"
#include "memory/object_memory.h"
#include "memory/symbol_table.h"

#include <cstring>

namespace kvhost::interface {

using memory::ClassInfo;
using memory::NewObject;

namespace {

constexpr int64_t MIN_SMALL_INTEGER = -(int64_t{1} << 60);
constexpr int64_t MAX_SMALL_INTEGER = (int64_t{1} << 60) - 1;

// The class whose instances are made from bytes, or null after reporting that `cls` is none.
const ClassInfo* byteClass(OopType cls) {
  const ClassInfo* info = memory::findClass(cls);
  const bool fits = info != nullptr && info->format == memory::Format::Bytes &&
                    (info->making == memory::Making::Anyone || cls == CLASS_SYMBOL);
  return fits ? info : failWith<const ClassInfo*>(nullptr, ERROR_NOT_INSTANTIABLE, cls);
}

OopType orNoMemory(OopType made, OopType cls) {
  return made != OOP_NIL ? made : failWith(OOP_NIL, ERROR_NO_MEMORY, cls);
}

}  // namespace

OopType makeByteObject(const ClassInfo& cls, std::string_view bytes) {
  if (cls.id == CLASS_SYMBOL) return memory::internSymbol(bytes);
  const NewObject object = memory::threadMemory().make(cls, static_cast<int64_t>(bytes.size()));
  if (object.slot == nullptr) return OOP_NIL;
  memory::copyBytes(contentsOf(*object.slot), bytes.data(), bytes.size());
  return object.oop;
}

OopType makeInteger(int64_t value) {
  if (value >= MIN_SMALL_INTEGER && value <= MAX_SMALL_INTEGER) return oopFromSmallInteger(value);
  const NewObject object =
      memory::threadMemory().make(*memory::findClass(CLASS_LARGE_INTEGER), sizeof value);
  if (object.slot == nullptr) return OOP_NIL;
  std::memcpy(contentsOf(*object.slot), &value, sizeof value);
  object.slot->flags |= memory::SLOT_INVARIANT;
  return object.oop;
}

}  // namespace kvhost::interface

using kvhost::interface::byteClass;
using kvhost::interface::failWith;
using kvhost::interface::makeByteObject;
using kvhost::interface::orNoMemory;

extern "C" {

OopType KciNewOop(OopType cls) {
  const kvhost::memory::ClassInfo* info = kvhost::memory::findClass(cls);
  if (info == nullptr || info->making != kvhost::memory::Making::Anyone) {
    return failWith(OOP_NIL, kvhost::interface::ERROR_NOT_INSTANTIABLE, cls);
  }
  const OopType made = kvhost::memory::threadMemory().make(*info, info->fixedSize).oop;
  if (cls == kvhost::CLASS_KV_FILE && made != OOP_NIL) kvhost::interface::noteNewFile(made);
  return orNoMemory(made, cls);
}

OopType KciNewByteObj(OopType cls, const char* bytes, size_t length) {
  const kvhost::memory::ClassInfo* info = byteClass(cls);
  return info != nullptr ? orNoMemory(makeByteObject(*info, {bytes, length}), cls) : OOP_NIL;
}

OopType KciCreateByteObj(OopType cls, OopType /*objId*/, const ByteType* bytes, int64 size,
                         int /*clusterId*/, BoolType makePermanent) {
  const kvhost::memory::ClassInfo* info = byteClass(cls);
  if (info == nullptr) return OOP_NIL;
  if (size < 0) return failWith(OOP_NIL, kvhost::interface::ERROR_OUT_OF_RANGE, cls);
  if (info->id == kvhost::CLASS_SYMBOL) {
    if (bytes == nullptr) return failWith(OOP_NIL, kvhost::interface::ERROR_NOT_INSTANTIABLE, cls);
    const void* text = bytes;
    return KciNewByteObj(cls, static_cast<const char*>(text), static_cast<size_t>(size));
  }
  kvhost::memory::ObjectMemory& objects = kvhost::memory::threadMemory();
  const kvhost::memory::NewObject object = objects.make(*info, size);
  if (object.slot == nullptr) return orNoMemory(OOP_NIL, cls);
  if (bytes != nullptr) {
    kvhost::memory::copyBytes(contentsOf(*object.slot), bytes, static_cast<size_t>(size));
  } else {
    object.slot->flags |= kvhost::memory::SLOT_UNSET;
  }
  if (makePermanent != FALSE && !objects.makePermanent(*object.slot)) {
    return orNoMemory(OOP_NIL, cls);
  }
  return object.oop;
}

// Nothing to do: what is no longer referred to is found by the collector.
void KciReleaseOops(OopType* /*oops*/, int /*count*/) {}

}  // extern "C"
