#include "programs/actions.h"

namespace bench {

static const Actions table = {
#define KVF_ACTION(name, count, parameters, meaning) .name = ::name,
#include <kvfile/action_table.def>
};

static const Actions* volatile current = &table;

const Actions& actions() { return *current; }

}  // namespace bench
