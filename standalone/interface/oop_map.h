// The map from object identifiers to pointers, as far as the host itself looks into one.
#pragma once

#include <kvfile/platform/kcisup.h>

#include <vector>

namespace kvhost::interface {

// The keys of all entries, in no particular order.
std::vector<OopType> keysOf(const KciOopMapType& map);

// True when the map has no entry; deleted ones may make it false.
bool isEmpty(const KciOopMapType& map);

// Gives memory back where entries were deleted by the many. Entries move.
void shrink(KciOopMapType& map);

}  // namespace kvhost::interface
