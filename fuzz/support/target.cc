// What targets share: the way findings are told, and the process's surroundings.
#include "support/target.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#if defined(__SANITIZE_ADDRESS__)
#define FUZZ_WITH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_WITH_ASAN 1
#endif
#endif
#ifdef FUZZ_WITH_ASAN
#include <sanitizer/common_interface_defs.h>
#endif

namespace fuzz {

namespace {

// Above what the module opens, and where the model's comparison keeps its own.
constexpr int PRIVATE_DESCRIPTORS = 220;

int reportDescriptor = STDERR_FILENO;
std::string* scratch = nullptr;

#ifdef FUZZ_WITH_ASAN
void sendReportsTo(int descriptor) {
  const auto number = static_cast<intptr_t>(descriptor);
  // The sanitizer takes the number of a descriptor as a pointer.
  __sanitizer_set_report_fd(reinterpret_cast<void*>(number));
  // The process that finds names for addresses is started before a target hides the file system.
  if (std::getenv("FUZZ_SYMBOLS") == nullptr) return;
  char text[64];
  __sanitizer_symbolize_pc(__builtin_return_address(0), "%f", text, sizeof text);
}
#else
void sendReportsTo(int) {}
#endif

void removeScratchDirectory() {
  std::error_code ignored;
  std::filesystem::current_path("/", ignored);
  std::filesystem::remove_all(*scratch, ignored);
}

}  // namespace

void report(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(reportDescriptor, text.data(), text.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<size_t>(written));
  }
}

void fail(const std::string& what) {
  report("FINDING: " + what + "\n");
  std::abort();
}

void silence(int descriptor) {
  const int null = open("/dev/null", descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY | O_CLOEXEC);
  if (null < 0 || dup2(null, descriptor) < 0) fail("no /dev/null");
  close(null);
}

const std::string& enterScratchDirectory() {
  if (scratch != nullptr) return *scratch;
  const char* place = std::getenv("KVF_MODEL_DIRECTORY");
  if (place == nullptr) place = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  scratch = new std::string(std::string(place) + "/kvf-fuzz-XXXXXX");
  if (mkdtemp(scratch->data()) == nullptr || chdir(scratch->c_str()) != 0) fail("no directory");
  std::atexit(removeScratchDirectory);
  return *scratch;
}

void hostModelDirectory() { setenv("KVF_MODEL_DIRECTORY", enterScratchDirectory().c_str(), 1); }

void limitFileSize(uint64_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = {};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes == 0 ? limit.rlim_max : std::min<rlim_t>(bytes, limit.rlim_max);
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) fail("setrlimit");
}

int openDescriptors() {
  int count = 0;
  for (int i = 0; i < PRIVATE_DESCRIPTORS; ++i)
    if (fcntl(i, F_GETFD) >= 0) ++count;
  return count;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  const int kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, fuzz::PRIVATE_DESCRIPTORS);
  if (kept >= 0) fuzz::reportDescriptor = kept;
  fuzz::sendReportsTo(fuzz::reportDescriptor);
  return 0;
}
