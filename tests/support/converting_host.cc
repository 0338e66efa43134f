#include "support/converting_host.h"

#include <kvfile/kvhost.h>
#include <kvfile/platform/kcistring.h>

#include <algorithm>

namespace {

struct State {
  bool converts = false;
  std::vector<OopType> converted;
  std::vector<OopType> released;
};

State& state() {
  thread_local State instance;
  return instance;
}

bool wasMade(OopType object) {
  const std::vector<OopType>& made = state().converted;
  return std::find(made.begin(), made.end(), object) != made.end();
}

}  // namespace

namespace kvtest {

ConvertingHost::ConvertingHost() { state() = {true, {}, {}}; }
ConvertingHost::~ConvertingHost() { state() = {}; }
const std::vector<OopType>& ConvertingHost::converted() { return state().converted; }
const std::vector<OopType>& ConvertingHost::released() { return state().released; }

}  // namespace kvtest

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int64 __real_KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                                OopType* utf8String, int flags);
void __real_KciReleaseOops(OopType* oops, int count);

int64 __wrap_KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                                OopType* utf8String, int flags) {
  const int64 count = __real_KciFetchUtf8Bytes_(str, startIndex, buf, maxBytes, utf8String, flags);
  if (state().converts && count > 0 && !wasMade(str)) {
    const OopType other = kvhost::newUtf8(kvhost::bytesOf(str));
    state().converted.push_back(other);
    *utf8String = other;
  }
  return count;
}

void __wrap_KciReleaseOops(OopType* oops, int count) {
  state().released.insert(state().released.end(), oops, oops + count);
  __real_KciReleaseOops(oops, count);
}
}
// NOLINTEND(bugprone-reserved-identifier)
