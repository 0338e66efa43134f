#include "hostlayer/held_input.h"

#include <atomic>
#include <utility>

namespace kvhost {

namespace {

// Who reads another stream asks this alone. The bytes belong to the thread that reads the stream.
constinit std::atomic<const FILE*> heldFor = nullptr;

std::string& held() {
  static auto* bytes = new std::string;  // outlives whoever reads last
  return *bytes;
}

}  // namespace

void holdInput(const FILE* stream, std::string bytes) {
  const bool isEmpty = bytes.empty();
  held() = std::move(bytes);
  heldFor.store(isEmpty ? nullptr : stream, std::memory_order_release);
}

bool takeHeldInput(const FILE* stream, char* buf, size_t limit, size_t* taken) {
  if (stream == nullptr || heldFor.load(std::memory_order_acquire) != stream) return false;
  *taken = held().copy(buf, limit);
  holdInput(stream, held().substr(*taken));
  return true;
}

}  // namespace kvhost
