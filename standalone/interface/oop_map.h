// The map from object identifiers to pointers, as far as the host itself looks into one.
#pragma once

#include <kvfile/platform/kcisup.h>

#include <vector>

namespace kvhost::interface {

// The keys of all entries, in no particular order.
std::vector<OopType> keysOf(const KciOopMapType& map);

}  // namespace kvhost::interface
