// What this build and this machine tell of themselves.
#include <kvfile/platform/version.h>

#include "build_info.h"

#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

constexpr const char* buildArchitecture() {
#if defined(__x86_64__)
  return "x86_64";
#elif defined(__aarch64__)
  return "aarch64";
#elif defined(__riscv)
  return "riscv64";
#elif defined(__powerpc64__)
  return "ppc64";
#else
  return "unknown";
#endif
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KVHOST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KVHOST_SANITIZED 1
#endif

constexpr const char* buildType() {
#if defined(KVHOST_SANITIZED)
  return "sanitize";
#elif defined(__OPTIMIZE__)
  return "fast";
#else
  return "debug";
#endif
}

struct utsname systemNames() {
  struct utsname names = {};
  uname(&names);
  return names;
}

// The processor's name as the kernel shows it; where it shows none, its architecture.
std::string cpuKind() {
  std::ifstream info("/proc/cpuinfo");
  std::string line;
  while (std::getline(info, line)) {
    const size_t colon = line.find(": ");
    if (line.starts_with("model name") && colon != std::string::npos) return line.substr(colon + 2);
  }
  return systemNames().machine;
}

// The processors that this process may use, not all that the machine has.
int32 processorCount() {
  cpu_set_t usable;
  if (sched_getaffinity(0, sizeof usable, &usable) == 0) return CPU_COUNT(&usable);
  return static_cast<int32>(sysconf(_SC_NPROCESSORS_ONLN));
}

BoolType answer(VerParamResultSType* result, const std::string& text) {
  result->kind = VER_STRING_KIND;
  result->intVal = 0;
  std::snprintf(result->stringVal, sizeof result->stringVal, "%s", text.c_str());
  return TRUE;
}

BoolType answer(VerParamResultSType* result, int32 value) {
  result->kind = VER_INT_KIND;
  result->intVal = value;
  result->stringVal[0] = '\0';
  return TRUE;
}

}  // namespace

extern "C" {

// id  parameter           kind    value
//  0  CPU_KIND            String  the processor's model name: "AMD EPYC 7B13"
//  1  CPU_ARCH            String  the machine's architecture as uname has it: "x86_64"
//  2  KV_BUILD_ARCH       String  the architecture that the program was compiled for
//  3  KV_BUILD_DATE       String  day of the build, UTC: "2026-11-21" (SOURCE_DATE_EPOCH decides)
//  4  KV_IMAGE_KIND       String  "standalone": which host the module runs in
//  5  KV_RELEASE          String  "1.0": major and minor version
//  6  KV_VERSION          String  "1.0.0"
//  7  NODE_NAME           String  the machine's name
//  8  OS_NAME             String  "Linux"
//  9  OS_RELEASE          String  the kernel's release: "6.1.0-18-amd64"
// 10  OS_VERSION          String  the kernel's build: "#1 SMP ..."
// 11  PROCESS_ID          int
// 12  PROCESSOR_COUNT     int     processors that the process may use
// 13  KV_BUILD_SERIAL_NUM int     10000 * major + 100 * minor + patch of the version
// 14  KV_BUILD_TYPE       String  "fast" (optimised), "debug" or "sanitize"
BoolType VerGetVersionParam(VerParamEType id, VerParamResultSType* result) {
  switch (id) {
    case VER_INFO_CPU_KIND:
      return answer(result, cpuKind());
    case VER_INFO_CPU_ARCH:
      return answer(result, systemNames().machine);
    case VER_INFO_KV_BUILD_ARCH:
      return answer(result, buildArchitecture());
    case VER_INFO_KV_BUILD_DATE:
      return answer(result, kvhost::BUILD_DATE);
    case VER_INFO_KV_IMAGE_KIND:
      return answer(result, "standalone");
    case VER_INFO_KV_RELEASE:
      return answer(result, kvhost::BUILD_RELEASE);
    case VER_INFO_KV_VERSION:
      return answer(result, kvhost::BUILD_VERSION);
    case VER_INFO_NODE_NAME:
      return answer(result, systemNames().nodename);
    case VER_INFO_OS_NAME:
      return answer(result, systemNames().sysname);
    case VER_INFO_OS_RELEASE:
      return answer(result, systemNames().release);
    case VER_INFO_OS_VERSION:
      return answer(result, systemNames().version);
    case VER_INFO_PROCESS_ID:
      return answer(result, getpid());
    case VER_INFO_PROCESSOR_COUNT:
      return answer(result, processorCount());
    case VER_INFO_KV_BUILD_SERIAL_NUM:
      return answer(result, kvhost::BUILD_SERIAL);
    case VER_INFO_KV_BUILD_TYPE:
      return answer(result, buildType());
  }
  return FALSE;
}

}  // extern "C"
