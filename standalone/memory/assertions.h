// KVHOST_ASSERT: what must hold when a function of the host is entered, checked in debug builds.
//
// In other builds the condition is compiled and not evaluated, so that it cannot go stale.
#pragma once

#if defined(KVF_ASSERTIONS)
#include <cassert>
#define KVHOST_ASSERT(condition) assert(condition)
#else
#define KVHOST_ASSERT(condition) static_cast<void>(sizeof(static_cast<bool>(condition)))
#endif
