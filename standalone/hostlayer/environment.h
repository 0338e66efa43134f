// The environment of the process, one thread at a time: the C library's own functions are not safe
// beside one another.
#pragma once

#include <optional>
#include <string>

namespace kvhost {

// The value of a variable, or nothing when there is none of that name.
std::optional<std::string> environmentValue(const std::string& name);

}  // namespace kvhost
