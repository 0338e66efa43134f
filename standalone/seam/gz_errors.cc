#include "seam/gz_errors.h"

#include <cstring>
#include <utility>
#include <vector>

namespace seam {
namespace {

// A thread has few handles, and hardly ever one that a fault befell.
std::vector<std::pair<gzFile, int>>& noted() {
  thread_local std::vector<std::pair<gzFile, int>> errors;
  return errors;
}

void forget(gzFile file) {
  std::erase_if(noted(), [file](const auto& entry) { return entry.first == file; });
}

}  // namespace

void noteGzError(gzFile file, int errorNumber) {
  forget(file);
  noted().emplace_back(file, errorNumber);
}

int notedGzError(gzFile file) {
  for (const auto& [handle, errorNumber] : noted()) {
    if (handle == file) return errorNumber;
  }
  return 0;
}

const char* tellGzError(gzFile file, int* code) {
  const int errorNumber = notedGzError(file);
  if (errorNumber == 0) return gzerror(file, code);
  if (code != nullptr) *code = Z_ERRNO;
  const char* text = strerrordesc_np(errorNumber);
  return text != nullptr ? text : "unknown error";
}

void clearGzError(gzFile file) {
  forget(file);
  gzclearerr(file);
}

int closeGz(gzFile file) {
  forget(file);
  return gzclose(file);
}

}  // namespace seam
