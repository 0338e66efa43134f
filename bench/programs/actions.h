// The actions, as an interpreter reaches them: through pointers. So no compiler can take an action
// apart and put a half of it in front of the loop that calls it.
#pragma once

#include <kvfile/kvfile.h>

namespace bench {

struct Actions {
#define KVF_ACTION(name, count, parameters, meaning) OopType(*name) parameters;
#include <kvfile/action_table.def>
};

// The table of this program.
const Actions& actions();

}  // namespace bench
