#include "model/module_side.h"

#include <kvfile/kvfile.h>

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace model {

namespace {

constexpr size_t TRANSFER_BUFFER = 1 << 20;
constexpr size_t MAP_SIZE = 1 << 17;
constexpr char GUARD = '\x5A';
constexpr int64 COLLECT_AFTER = 20000;  // objects

[[noreturn]] void stop(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

int movedAway(int descriptor) {
  if (descriptor < 0) stop("open");
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, PRIVATE_DESCRIPTORS);
  close(descriptor);
  return moved;
}

struct Call {
  Step step;
  const OopType* a;
};

OopType callAction(void* context) {
  const auto* call = static_cast<const Call*>(context);
  const OopType* a = call->a;
  const OopType cls = kvhost::CLASS_KV_FILE;
  switch (call->step) {
    case Step::KvfOpen:
      return KvfOpen(a[0], a[1], a[2], a[3]);
    case Step::KvfCreateStdFile:
      return KvfCreateStdFile(a[0], a[1]);
    case Step::KvfClose:
      return KvfClose(a[0]);
    case Step::KvfCloseAll:
      return KvfCloseAll(cls);
    case Step::KvfFinalizeAll:
      return KvfFinalizeAll(cls);
    case Step::KvfClientFinalize:
      return KvfClientFinalize(a[0]);
    case Step::KvfRead:
      return KvfRead(a[0], a[1], a[2], a[3]);
    case Step::KvfGetC:
      return KvfGetC(a[0]);
    case Step::KvfGetLine:
      return KvfGetLine(a[0], a[1], a[2], a[3], a[4]);
    case Step::KvfAtEnd:
      return KvfAtEnd(a[0]);
    case Step::KvfWrite:
      return KvfWrite(a[0], a[1], a[2], a[3]);
    case Step::KvfPutC:
      return KvfPutC(a[0], a[1]);
    case Step::KvfPrintBytes:
      return KvfPrintBytes(a[0], a[1]);
    case Step::KvfSeek:
      return KvfSeek(a[0], a[1], a[2]);
    case Step::KvfPosition:
      return KvfPosition(a[0]);
    case Step::KvfFlush:
      return KvfFlush(a[0]);
    case Step::KvfSync:
      return KvfSync(a[0]);
    case Step::KvfErrorString:
      return KvfErrorString(a[0]);
    case Step::KvfErrorCode:
      return KvfErrorCode(a[0]);
    case Step::KvfIsOpen:
      return KvfIsOpen(a[0]);
    case Step::KvfIsCompressed:
      return KvfIsCompressed(a[0]);
    case Step::KvfGetFileDesc:
      return KvfGetFileDesc(a[0]);
    case Step::KvfLoadByteStrings:
      return KvfLoadByteStrings(a[0], a[1], a[2]);
    case Step::KvfClassError:
      return KvfClassError(cls, a[0]);
    default:
      return OOP_NIL;
  }
}

struct CCall {
  Step step;
  OopType file;
  char* buffer;
  int64 count;
  int session;
  int64 result;
};

OopType callForC(void* context) {
  auto* call = static_cast<CCall*>(context);
  void* buffer = call->buffer;
  switch (call->step) {
    case Step::KvFileRead:
      call->result =
          KvFileRead(call->file, static_cast<ByteType*>(buffer), call->count, call->session);
      break;
    case Step::KvFileWrite:
      call->result =
          KvFileWrite(call->file, static_cast<ByteType*>(buffer), call->count, call->session);
      break;
    case Step::KvFileFetchErrorString:
      KvFileFetchErrorString(call->file, call->buffer, static_cast<size_t>(call->count),
                             call->session);
      break;
    case Step::KvfStartup:
      KvfStartup(call->session);
      break;
    case Step::KvfShutdown:
      KvfShutdown(call->session);
      break;
    case Step::SelectSession:
      kvhost::sessionSelect(call->session);
      break;
    default:
      break;
  }
  return OOP_NIL;
}

}  // namespace

// ---- the process ----

ModuleSide::ModuleSide(int64 sizeLimit) : sizeLimit_(sizeLimit) {
  kvhost::initialize();
  if (!KvfUserActionInit()) stop("KvfUserActionInit");
  // The log must not reach the files that stand behind the standard descriptors.
  FILE* log = fdopen(movedAway(dup(STDERR_FILENO)), "w");
  kvhost::setLogStream(log);
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  std::setvbuf(stdin, nullptr, _IOFBF, 4096);
  makeDirectory();
  for (const char* name : STANDARD_FILES) watched_.push_back({name});
  for (const char* name : DATA_FILES) watched_.push_back({name});
  for (Watched& each : watched_) watch(&each);
  watched_.push_back({NEW_FILE});
  if (mkdir(DIRECTORY, 0700) != 0) stop("mkdir");
  redirect();
  buffer_.resize(TRANSFER_BUFFER);
  text_.resize(2048);
  for (int& session : sessions_) {
    session = kvhost::sessionBegin();
    KvfStartup(session);
  }
  for (OopType& each : files_) kvhost::addRoot(&each);
  for (OopType& each : objects_) kvhost::addRoot(&each);
  objects_.fill(OOP_NIL);
  files_.fill(OOP_NIL);
  std::signal(SIGXFSZ, SIG_IGN);
  limitFiles(true);
}

void ModuleSide::limitFiles(bool limited) {
  rlimit limit = {};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = limited ? static_cast<rlim_t>(sizeLimit_) : limit.rlim_max;
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) stop("setrlimit");
}

void ModuleSide::makeDirectory() {
  const char* place = std::getenv("KVF_MODEL_DIRECTORY");
  if (place == nullptr) place = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  directory_ = std::string(place) + "/kvf-model-XXXXXX";
  if (mkdtemp(directory_.data()) == nullptr || chdir(directory_.c_str()) != 0) stop("mkdtemp");
}

void ModuleSide::watch(Watched* file) {
  file->descriptor = movedAway(open(file->name.c_str(), O_RDWR | O_CREAT, 0600));
  void* memory = mmap(nullptr, MAP_SIZE, PROT_READ, MAP_SHARED, file->descriptor, 0);
  if (memory == MAP_FAILED) stop("mmap");
  file->memory = static_cast<const char*>(memory);
}

void ModuleSide::redirect() {
  constexpr int FLAGS[] = {O_RDONLY, O_RDWR, O_WRONLY | O_APPEND};
  for (int i = 0; i < 3; ++i) {
    const int opened = open(STANDARD_FILES[i], FLAGS[i]);
    if (opened < 0 || dup2(opened, i) < 0) stop("dup2");
    close(opened);
  }
}

std::vector<int> ModuleSide::takenDescriptors() const {
  std::vector<int> taken;
  for (int i = 3; i < Host::MAX_DESCRIPTORS; ++i)
    if (fcntl(i, F_GETFD) >= 0) taken.push_back(i);
  return taken;
}

void ModuleSide::begin(const std::vector<StartingFile>& files, const std::vector<int>& lost) {
  for (const int session : sessions_) KvfShutdown(session);
  for (const int descriptor : lost) close(descriptor);
  for (const StartingFile& file : files) {
    const auto watched = std::find_if(watched_.begin(), watched_.end(),
                                      [&](const Watched& each) { return each.name == file.name; });
    const auto size = static_cast<off_t>(file.bytes.size());
    if (ftruncate(watched->descriptor, 0) != 0 ||
        pwrite(watched->descriptor, file.bytes.data(), file.bytes.size(), 0) != size)
      stop("pwrite");
  }
  Watched& fresh = watched_.back();
  unlink(fresh.name.c_str());
  if (fresh.descriptor >= 0) {
    close(fresh.descriptor);
    munmap(const_cast<char*>(fresh.memory), MAP_SIZE);
  }
  fresh.descriptor = -1;
  __fpurge(stdin);
  std::clearerr(stdin);
  for (int i = 0; i < 3; ++i) lseek(i, 0, SEEK_SET);
  for (const int session : sessions_) KvfStartup(session);
  kvhost::sessionSelect(sessions_[0]);
  KvfErrorString(OOP_NIL);
  for (OopType& each : files_) each = kvhost::newKvFile();
  collectGarbage();
}

void ModuleSide::collectGarbage() {
  if (kvhost::objectsSinceCollection() > COLLECT_AFTER) kvhost::collectGarbage();
}

// ---- steps ----

void ModuleSide::setObject(int64 which, bool isByteArray, bool invariant, std::string_view bytes) {
  OopType& object = objects_[static_cast<size_t>(which)];
  object = isByteArray ? kvhost::newByteArray(bytes) : kvhost::newString(bytes);
  if (invariant) kvhost::makeInvariant(object);
}

OopType ModuleSide::make(const Value& value, bool asIdentifier) {
  switch (value.kind) {
    case Value::Kind::Nil:
      return OOP_NIL;
    case Value::Kind::True:
      return OOP_TRUE;
    case Value::Kind::False:
      return OOP_FALSE;
    case Value::Kind::Integer:
      return kvhost::newInteger(value.number);
    case Value::Kind::Character:
      return oopFromCharacter(static_cast<uint32_t>(value.number));
    case Value::Kind::File: {
      const OopType file = fileIdentifier(value.number);
      return asIdentifier ? kvhost::newInteger(static_cast<int64>(file)) : file;
    }
    case Value::Kind::Object:
      return objectIdentifier(value.number);
    case Value::Kind::Text:
      return kvhost::newString(value.bytes);
    case Value::Kind::Symbol:
      return kvhost::newSymbol(value.bytes);
    case Value::Kind::Bytes:
      return kvhost::newByteArray(value.bytes);
    case Value::Kind::Utf16:
      return kvhost::newUtf16(u"x");
    case Value::Kind::Array: {
      std::vector<OopType> elements;
      for (const Value& each : value.elements) elements.push_back(make(each, true));
      return kvhost::newArray(elements);
    }
  }
  return OOP_NIL;
}

void ModuleSide::prepare(const Operation& operation) {
  collectGarbage();
  for (size_t i = 0; i < operation.arguments.size(); ++i)
    identifiers_[i] = make(operation.arguments[i], false);
}

void ModuleSide::performForC(const Operation& operation, Observed* observed) {
  CCall call = {operation.step,  identifiers_[0],   buffer_.data(),
                operation.count, operation.session, 0};
  if (operation.step == Step::KvFileWrite)
    operation.arguments[1].bytes.copy(buffer_.data(), operation.arguments[1].bytes.size());
  const int64 room = std::clamp<int64>(operation.count, 0, TRANSFER_BUFFER - 8);
  char* behind = buffer_.data() + room;
  if (operation.step == Step::KvFileRead) std::memset(behind, GUARD, 8);
  const kvhost::Outcome outcome = kvhost::protect(callForC, &call);
  observed->forC = true;
  observed->raised = outcome.status == kvhost::CallStatus::Raised;
  if (observed->raised) observed->error = outcome.error;
  observed->result = call.result;
  if (operation.step == Step::KvFileRead) {
    observed->bytes = {buffer_.data(), static_cast<size_t>(std::max<int64>(call.result, 0))};
    observed->outsideTouched = std::count(behind, behind + 8, GUARD) != 8;
  } else if (operation.step == Step::KvFileFetchErrorString && !observed->raised) {
    observed->bytes = buffer_.data();
  }
}

Observed ModuleSide::perform(const Operation& operation) {
  Observed observed;
  switch (operation.step) {
    case Step::SetObject: {
      const int64 which = operation.arguments[0].number;
      setObject(which, which == 1, which == Model::OBJECTS - 1, operation.arguments[1].bytes);
      return observed;
    }
    case Step::KvFileRead:
    case Step::KvFileWrite:
    case Step::KvFileFetchErrorString:
    case Step::KvfStartup:
    case Step::KvfShutdown:
    case Step::SelectSession:
      performForC(operation, &observed);
      return observed;
    default:
      break;
  }
  Call call = {operation.step, identifiers_.data()};
  const kvhost::Outcome outcome = kvhost::protect(callAction, &call);
  observed.raised = outcome.status == kvhost::CallStatus::Raised;
  if (observed.raised) observed.error = outcome.error;
  observed.value = outcome.value;
  return observed;
}

// ---- asking ----

int ModuleSide::errorCode(OopType file) {
  Call call = {Step::KvfErrorCode, &file};
  return static_cast<int>(oopSmallIntegerValue(kvhost::protect(callAction, &call).value));
}

std::string_view ModuleSide::errorText(int64 file, int session) {
  CCall call = {Step::KvFileFetchErrorString,
                fileIdentifier(file),
                text_.data(),
                static_cast<int64>(text_.size()),
                session,
                0};
  kvhost::protect(callForC, &call);
  return text_.data();
}

std::string_view ModuleSide::bytesOf(OopType object) {
  const int64 size = KciFetchSize_(object);
  void* place = buffer_.data();
  KciFetchBytes_(object, 1, static_cast<ByteType*>(place), size);
  return {buffer_.data(), static_cast<size_t>(size)};
}

std::string_view ModuleSide::contentOf(const std::string& file) {
  for (Watched& each : watched_) {
    if (each.name != file) continue;
    if (each.descriptor < 0) watch(&each);
    return {each.memory, static_cast<size_t>(lseek(each.descriptor, 0, SEEK_END))};
  }
  return {};
}

int64 ModuleSide::descriptorPosition(int descriptor) const {
  return lseek(descriptor, 0, SEEK_CUR);
}

}  // namespace model
