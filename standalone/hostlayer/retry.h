// Restarting system calls that a signal interrupted.
#pragma once

#include <cerrno>

namespace kvhost {

// Makes `call` until it is not interrupted, and answers its result. Never to be used for close,
// which has released the descriptor even when it reports EINTR.
template <typename Call>
auto retryInterrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace kvhost
