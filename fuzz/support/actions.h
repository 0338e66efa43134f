// Calling the module's actions from a target.
#pragma once

#include <kvfile/kvhost.h>

#include "support/target.h"

#include <array>
#include <string>

namespace fuzz {

// Calls an action that must neither raise nor leave an error-jump frame registered.
template <size_t COUNT>
OopType call(const char* action, const std::array<OopType, COUNT>& arguments) {
  const kvhost::Outcome outcome = kvhost::callAction(action, arguments.data(), COUNT);
  if (outcome.status == kvhost::CallStatus::Raised)
    fail(std::string(action) + " raised " + std::to_string(outcome.error.number));
  expect(kvhost::forgottenErrorJumps() == 0, "a frame is left registered");
  return outcome.value;
}

}  // namespace fuzz
