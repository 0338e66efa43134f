// The errors of the platform, as the host tells them.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>

#include <string>

namespace kvtest {

// The host's own text for an errno value.
inline std::string hostText(int errNum) {
  ErrMsgStrType text;
  HostStrerror(errNum, text, sizeof text);
  return text;
}

// Takes the pending error of the interface; its number, or 0 when there is none.
inline int pendingNumber() {
  KciErrSType error;
  error.initialize();
  return KciErr(&error) != FALSE ? error.number : 0;
}

}  // namespace kvtest
