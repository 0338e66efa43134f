#include "every_fault/world.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace every_fault {

World w;

// ---- the digest and the log ----

void mix(uint64_t value) {
  w.digest ^= value + 0x9E3779B97F4A7C15U + (w.digest << 6) + (w.digest >> 2);
  w.digest *= 0x100000001B3U;
}

void mixText(const char* text, size_t size) {
  uint64_t hash = 0xCBF29CE484222325U;
  for (size_t i = 0; i < size; ++i) {
    hash = (hash ^ static_cast<unsigned char>(text[i])) * 0x100000001B3U;
  }
  mix(hash);
}

std::string quoted(std::string_view bytes) {
  constexpr size_t SHOWN = 32;
  std::string text = "'";
  for (const char c : bytes.substr(0, SHOWN)) {
    char hex[8];
    if (c == '\n') {
      text += "\\n";
    } else if (c >= ' ' && c < 127) {
      text += c;
    } else {
      snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
      text += hex;
    }
  }
  if (bytes.size() > SHOWN) text += "...";
  text += "'";
  if (bytes.size() > SHOWN) text += " of " + std::to_string(bytes.size());
  return text;
}

void beginLine(Fn function) {
  w.line = functionName(function);
  w.line += "(";
}

void nextArgument() {
  if (w.logging && w.line.back() != '(') w.line += ", ";
}

void endArguments() { w.line += ")"; }

void endLine(const char* result) {
  if (w.quiet) return;
  mixText(result, strlen(result));
  if (!w.logging) return;
  if (result[0] != '\0') w.line += std::string(" = ") + result;
  // A call that called on has its own line already: it is completed from behind.
  w.log.push_back(w.line);
}

void endLineNumber(int64 result) {
  if (w.quiet) return;
  mix(static_cast<uint64_t>(result));
  if (w.logging) w.log.push_back(w.line + " = " + std::to_string(result));
}

void doneVoid() {
  if (!w.quiet && w.logging) w.log.push_back(w.line);
}

OopType doneOop(OopType result) {
  if (w.quiet) return result;
  mix(result == OOP_NIL ? 0 : oopIsSmallInteger(result) ? result : 1);
  if (w.logging) w.log.push_back(w.line + " = " + oopText(result));
  return result;
}

void showArgument(int64 value) {
  mix(static_cast<uint64_t>(value));
  if (w.logging) w.line += std::to_string(value);
}

void showArgument(OopArg value) {
  if (w.logging) w.line += oopText(value.oop);
}

void showArgument(TextArg value) {
  const char* text = value.text == nullptr ? "(null)" : value.text;
  mixText(text, strlen(text));
  if (w.logging) w.line += quoted(text);
}

void showArgument(BytesArg value) {
  const auto size = static_cast<size_t>(value.size < 0 ? 0 : value.size);
  mixText(static_cast<const char*>(value.bytes), size);
  if (w.logging) w.line += quoted({static_cast<const char*>(value.bytes), size});
}

void showArgument(StreamArg value) {
  const int fd = value.stream == nullptr ? -1 : descriptorOf(value.stream);
  mix(static_cast<uint64_t>(fd));
  if (!w.logging) return;
  w.line += value.stream == stdin     ? "stdin"
            : value.stream == stdout  ? "stdout"
            : value.stream == stderr  ? "stderr"
            : value.stream == nullptr ? "null"
                                      : "stream " + std::to_string(fd);
}

// ---- calls ----

namespace {

// What a run may make. Nothing that is tested here comes near it.
constexpr int TOO_MANY_CALLS = 400000;
// A read that is interrupted for ever is repeated for ever, as it should be: so it is not for ever.
constexpr int ENDLESS = 40;

}  // namespace

const Fault* beginCall(Fn function) {
  if (w.quiet) return nullptr;
  mix(function + 1000U);
  const int number = ++w.calls;
  if (number > TOO_MANY_CALLS) {
    fprintf(stderr, "\nthe run does not end: call %d is %s\n", number, functionName(function));
    abort();
  }
  w.made.push_back({function, w.step});
  for (int i = 0; i < w.plannedCount; ++i) {
    Planned& planned = w.planned[i];
    if (number == planned.at) planned.function = function;
    const bool repeated = planned.forever && number > planned.at && function == planned.function &&
                          (planned.fault->what != What::Interrupt || w.fired < ENDLESS);
    if (number != planned.at && !repeated) continue;
    if (planned.fault->what == What::Short) return planned.fault;  // counted where it cuts
    ++w.fired;
    ++w.firedInStep;
    if (w.firstFired == 0) w.firstFired = number;
    if (planned.fault->what == What::Raise) w.fetchCut = true;
    return planned.fault;
  }
  return nullptr;
}

int64 cutShort(const Fault* fault, int64 count) {
  if (fault == nullptr || fault->what != What::Short || count <= fault->value) return count;
  ++w.fired;
  ++w.firedInStep;
  w.fetchCut = true;
  if (w.firstFired == 0) w.firstFired = w.calls;
  return fault->value;
}

void takeBack(const Fault* fault) {
  if (fault == nullptr) return;
  --w.fired;
  --w.firedInStep;
  if (w.firstFired == w.calls) w.firstFired = 0;
}

void raiseError(int number, const char* message) {
  w.pending.initialize();
  w.pending.category = OOP_ERROR_CATEGORY;
  w.pending.number = number;
  snprintf(w.pending.message, sizeof w.pending.message, "%s", message);
  w.isPending = true;
  if (w.frameCount == 0) return;
  endLine("jumped");
  longjmp(w.frames[w.frameCount - 1]->buf, 1);
}

// ---- objects ----

namespace {

constexpr OopType FIRST_OBJECT = 0x1000;

}  // namespace

OopType newObject(OopType cls, bool pointers) {
  if (w.objectCount == w.objects.size()) w.objects.emplace_back();
  Object& object = w.objects[w.objectCount];
  object.cls = cls;
  object.pointers = pointers;
  object.bytes.clear();
  object.elements.clear();
  return ((FIRST_OBJECT + w.objectCount++) << 8) | 1;
}

Object* findObject(OopType oop) {
  if ((oop & 0xFF) != 1) return nullptr;
  const OopType index = (oop >> 8) - FIRST_OBJECT;
  return index < w.objectCount ? &w.objects[index] : nullptr;
}

OopType newBytes(OopType cls, std::string_view bytes) {
  const OopType oop = newObject(cls, false);
  findObject(oop)->bytes.assign(bytes);
  return oop;
}

std::string oopText(OopType oop) {
  if (oop == OOP_NIL) return "nil";
  if (oop == OOP_TRUE) return "true";
  if (oop == OOP_FALSE) return "false";
  if (oopIsSmallInteger(oop)) return std::to_string(oopSmallIntegerValue(oop));
  if (oopIsCharacter(oop)) return "$" + std::to_string(oopCharacterCode(oop));
  if (oop == OOP_CLASS_STRING) return "String";
  if (oop == OOP_CLASS_ARRAY) return "Array";
  if (oop == OOP_CLASS_CHARACTER) return "Character";
  if (oop == OOP_CLASS_SMALL_INTEGER) return "SmallInteger";
  if (oop == OOP_CLASS_UTF16_STRING) return "Utf16String";
  const Object* object = findObject(oop);
  if (object == nullptr) return "class " + std::to_string(oop);
  const auto index = static_cast<size_t>(object - w.objects.data());
  // The file objects come first.
  if (index < 4) return std::string(1, "FGHC"[index]);
  if (!object->pointers) return quoted(object->bytes);
  std::string text = "#(";
  for (const OopType element : object->elements) {
    if (text.size() > 2) text += " ";
    text += oopText(element);
  }
  return text + ")";
}

// ---- errors ----

const char* errnoName(int number) {
  const char* name = strerrorname_np(number);
  return number == 0 || name == nullptr ? "none" : name;
}

void describeErrno(int number, char* buffer, size_t size) {
  snprintf(buffer, size, "text of %s", errnoName(number));
}

// ---- files ----

int fileNamed(const char* name) {
  if (name[0] == '\0') return -1;
  for (int i = 0; i < FILES; ++i) {
    if (w.files[i].name == name) return i;
  }
  return -1;
}

static int lowestDescriptor() {
  for (int fd = 0; fd < DESCRIPTORS; ++fd) {
    if (!w.descriptors[fd].open) return fd;
  }
  abort();
}

static int freeFile(const char* name) {
  for (int i = 0; i < FILES; ++i) {
    if (w.files[i].name.empty()) {
      w.files[i].name = name;
      return i;
    }
  }
  abort();
}

int openFile(const char* path, bool reads, bool writes, bool appends, bool creates, bool truncates,
             int* error) {
  int file = fileNamed(path);
  const bool exists = file >= 0 && w.files[file].exists;
  *error = path[0] == '\0' ? ENOENT : 0;
  if (exists && w.files[file].kind == Kind::Directory) *error = EISDIR;
  if (!exists && !creates) *error = ENOENT;
  if (*error != 0) return -1;
  if (file < 0) file = freeFile(path);
  if (!exists) w.files[file].bytes.clear();
  w.files[file].exists = true;
  if (truncates) w.files[file].bytes.clear();
  w.lastOpened = file;
  const int fd = lowestDescriptor();
  w.descriptors[fd] = {true, file, 0, reads, writes, appends};
  return fd;
}

int closeDescriptor(int fd) {
  if (fd < 0 || fd >= DESCRIPTORS || !w.descriptors[fd].open) {
    errno = EBADF;
    return -1;
  }
  w.descriptors[fd].open = false;
  return 0;
}

static Descriptor* usable(int fd, bool forWriting) {
  if (fd >= 0 && fd < DESCRIPTORS && w.descriptors[fd].open &&
      (forWriting ? w.descriptors[fd].writes : w.descriptors[fd].reads)) {
    return &w.descriptors[fd];
  }
  errno = EBADF;
  return nullptr;
}

int64 readDescriptor(int fd, void* buffer, int64 count) {
  Descriptor* from = usable(fd, false);
  if (from == nullptr) return -1;
  const std::string& bytes = w.files[from->file].bytes;
  const auto size = static_cast<int64>(bytes.size());
  if (from->position >= size) return 0;
  const int64 n = std::min(count, size - from->position);
  memcpy(buffer, bytes.data() + from->position, static_cast<size_t>(n));
  from->position += n;
  return n;
}

int64 unreadIn(int fd) {
  const Descriptor& from = w.descriptors[fd < 0 || fd >= DESCRIPTORS ? 0 : fd];
  return std::max<int64>(static_cast<int64>(w.files[from.file].bytes.size()) - from.position, 0);
}

int64 writeDescriptor(int fd, const void* buffer, int64 count) {
  Descriptor* to = usable(fd, true);
  if (to == nullptr) return -1;
  std::string& bytes = w.files[to->file].bytes;
  if (to->appends) to->position = static_cast<int64>(bytes.size());
  if (count > 0) {
    const auto at = static_cast<size_t>(to->position);
    const auto n = static_cast<size_t>(count);
    if (at + n > bytes.size()) bytes.resize(at + n);
    memcpy(bytes.data() + at, buffer, n);
    w.written.push_back(
        {to->file, to->position, {static_cast<const char*>(buffer), n}, w.zlibDepth > 0});
    to->position += count;
  }
  return count;
}

int64 seekDescriptor(int fd, int64 offset, int whence) {
  if (fd < 0 || fd >= DESCRIPTORS || !w.descriptors[fd].open) {
    errno = EBADF;
    return -1;
  }
  Descriptor& moved = w.descriptors[fd];
  const MemFile& file = w.files[moved.file];
  if (file.kind == Kind::Pipe || file.kind == Kind::Terminal) {
    errno = ESPIPE;
    return -1;
  }
  int64 base = 0;
  if (whence == SEEK_CUR) base = moved.position;
  if (whence == SEEK_END) base = static_cast<int64>(file.bytes.size());
  int64 position = 0;
  if (__builtin_add_overflow(base, offset, &position) || position < 0) {
    errno = EINVAL;
    return -1;
  }
  // Far positions are for tests of their own: here a write there would fill the memory.
  return moved.position = position;
}

int openDescriptors() {
  int count = 0;
  for (const Descriptor& descriptor : w.descriptors) count += descriptor.open;
  return count;
}

int descriptorOf(FILE* stream) {
  if (stream == stdin) return 0;
  if (stream == stdout) return 1;
  if (stream == stderr) return 2;
  const Stream* own = reinterpret_cast<Stream*>(stream);
  return own >= w.streams && own < w.streams + DESCRIPTORS && own->open ? own->fd : -1;
}

}  // namespace every_fault
