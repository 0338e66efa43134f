#include "hostlayer/held_input.h"

#include <utility>

namespace kvhost {

namespace {

const FILE* heldFor = nullptr;

std::string& held() {
  static auto* bytes = new std::string;  // outlives whoever reads last
  return *bytes;
}

}  // namespace

void holdInput(const FILE* stream, std::string bytes) {
  heldFor = bytes.empty() ? nullptr : stream;
  held() = std::move(bytes);
}

bool takeHeldInput(const FILE* stream, char* buf, size_t limit, size_t* taken) {
  if (stream == nullptr || heldFor != stream) return false;
  *taken = held().copy(buf, limit);
  holdInput(stream, held().substr(*taken));
  return true;
}

}  // namespace kvhost
