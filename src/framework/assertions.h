// What must hold where an operation begins. Debug builds check it and stop the process where it does
// not; a release build holds nothing of it, and no build asks the platform anything for it.
#pragma once

#ifdef KVF_ASSERTIONS
#include <cassert>
#define KVF_ASSERT(condition) assert(condition)
#else
#include <type_traits>
#define KVF_ASSERT(condition) static_assert(std::is_convertible_v<decltype(condition), bool>)
#endif
