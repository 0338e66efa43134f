#include "hostlayer/environment.h"

#include <kvfile/platform/host.h>

#include "hostlayer/fork.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

constinit std::mutex environmentMutex;

}  // namespace

namespace kvhost {

std::optional<std::string> environmentValue(const std::string& name) {
  const std::lock_guard<std::mutex> guard(environmentMutex);
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return value;
}

void lockEnvironment() { environmentMutex.lock(); }

void unlockEnvironment() { environmentMutex.unlock(); }

}  // namespace kvhost

extern "C" {

// A value that does not fit is cut to `outSize` - 1 bytes. No variable has an empty name or one
// that holds "=".
BoolType HostGetEnv(const char* name, char* out, size_t outSize) {
  const std::optional<std::string> value = kvhost::environmentValue(name);
  if (!value.has_value()) return FALSE;
  std::snprintf(out, outSize, "%s", value->c_str());
  return TRUE;
}

BoolType HostSetEnv(const char* name, const char* value) {
  const std::lock_guard<std::mutex> guard(environmentMutex);
  const int status = value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  return status == 0 ? TRUE : FALSE;
}

}  // extern "C"
