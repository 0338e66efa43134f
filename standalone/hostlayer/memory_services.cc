// The allocator, and the pointer that a test of the client's memory reads through.
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<bool> pointerFaults{false};
OopType testObject = OOP_NIL;

// A page that nothing may be read from, so that the fault is certain whatever else is mapped.
OopType* forbiddenAddress() {
  static void* const page = mmap(nullptr, static_cast<size_t>(sysconf(_SC_PAGESIZE)), PROT_NONE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return page == MAP_FAILED ? nullptr : static_cast<OopType*>(page);
}

}  // namespace

namespace kvhost {

void setTestPointerFaults(bool faults) { pointerFaults.store(faults); }

}  // namespace kvhost

extern "C" {

void HostSetOopPtr(OopType** where) {
  *where = pointerFaults.load() ? forbiddenAddress() : &testObject;
}

// The tag tells apart what is allocated where in a product with an allocator of its own; the C
// library's needs none.
void* UtlMalloc(size_t size, int /*siteTag*/) { return std::malloc(size); }

void UtlFree(void* p) { std::free(p); }

}  // extern "C"
