// Whether errors are shown in red.
#pragma once

#include <string>

namespace shell {

// `setting` is "always", "never", or "auto": then only on a terminal that is known to have colours,
// and where NO_COLOR is not set to something.
bool wantsColour(const std::string& setting);

}  // namespace shell
