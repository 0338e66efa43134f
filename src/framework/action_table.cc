// Declares the actions to the C interface, in table order.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>

#include "framework/class_error.h"

namespace kvf {

static constexpr unsigned ACTION_FLAGS = UAFLAG_SYSTEM | UAFLAG_KVFILE;

// All functions of C are convertible to one another and back; the caller restores the arity.
template <typename Function>
static BoolType declareAction(const char* name, Function* function, int count) {
  const auto plain = reinterpret_cast<KciActionFnType>(reinterpret_cast<void (*)()>(function));
  return KciDeclareAction(name, plain, count, ACTION_FLAGS, TRUE) ? TRUE : FALSE;
}

// Every row is declared even after one failed, so that the other actions are there.
#define DECLARE_ACTION(name, count) all &= declareAction(#name, name, count);
#define IGNORE_ACTION(name, count, parameters, meaning)

}  // namespace kvf

using namespace kvf;

BoolType KvfUserActionInit() {
  BoolType all = TRUE;
#define KVF_ACTION(name, count, parameters, meaning) DECLARE_ACTION(name, count)
#define KVF_PASSIVE_ACTION IGNORE_ACTION
#include <kvfile/action_table.def>
  KvfInit();
  return all;
}

BoolType KvfPassiveObjActionInit() {
  BoolType all = TRUE;
#define KVF_ACTION IGNORE_ACTION
#define KVF_PASSIVE_ACTION(name, count, parameters, meaning) DECLARE_ACTION(name, count)
#include <kvfile/action_table.def>
  return all;
}
