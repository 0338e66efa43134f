// Declared actions: the table of them, and calling one by its name.
#include <kvfile/kvhost.h>

#include "hostlayer/fork.h"
#include "interface/error_state.h"

#include <array>
#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <string_view>
#include <utility>

struct kvhost::FoundAction {
  std::string name;
  KciActionFnType function;
  int argumentCount;
  unsigned flags;
  const FoundAction* next;  // in its bucket
};

namespace kvhost::interface {

namespace {

// Declaring takes the lock; looking up does not, for it happens in every call. Actions are
// therefore never freed, not even when they are forgotten.
class ActionTable {
 public:
  bool add(std::string_view name, KciActionFnType function, int argumentCount, unsigned flags);
  const FoundAction* find(std::string_view name) const;
  std::vector<DeclaredAction> list();
  void forgetAll();
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  static constexpr size_t BUCKETS = 256;
  static size_t bucketOf(std::string_view name) {
    return std::hash<std::string_view>{}(name) % BUCKETS;
  }

  std::mutex mutex_;
  std::deque<FoundAction> actions_;
  size_t firstKnown_ = 0;  // those before it are forgotten
  std::array<std::atomic<const FoundAction*>, BUCKETS> buckets_{};
};

bool ActionTable::add(std::string_view name, KciActionFnType function, int argumentCount,
                      unsigned flags) {
  const std::lock_guard lock(mutex_);
  if (find(name) != nullptr) return false;
  std::atomic<const FoundAction*>& bucket = buckets_[bucketOf(name)];
  const FoundAction* next = bucket.load(std::memory_order_relaxed);
  actions_.push_back({std::string(name), function, argumentCount, flags, next});
  bucket.store(&actions_.back(), std::memory_order_release);
  return true;
}

const FoundAction* ActionTable::find(std::string_view name) const {
  const FoundAction* action = buckets_[bucketOf(name)].load(std::memory_order_acquire);
  while (action != nullptr && action->name != name) action = action->next;
  return action;
}

std::vector<DeclaredAction> ActionTable::list() {
  const std::lock_guard lock(mutex_);
  std::vector<DeclaredAction> result;
  for (size_t i = firstKnown_; i < actions_.size(); ++i) {
    result.push_back({actions_[i].name, actions_[i].argumentCount, actions_[i].flags});
  }
  return result;
}

void ActionTable::forgetAll() {
  const std::lock_guard lock(mutex_);
  for (auto& bucket : buckets_) bucket.store(nullptr, std::memory_order_release);
  firstKnown_ = actions_.size();
}

ActionTable& actionTable() {
  static auto* table = new ActionTable;  // outlives every thread
  return *table;
}

struct PreparedCall {
  KciActionFnType function;
  const OopType* args;
};

// Casts the function to the type that it was declared with, by way of the one function type that
// may stand for any other.
template <size_t... I>
OopType callWithArguments(const PreparedCall& call, std::index_sequence<I...> /*indexes*/) {
  using Any = void (*)();
  using Real = OopType (*)(decltype(static_cast<OopType>(I))...);
  return reinterpret_cast<Real>(reinterpret_cast<Any>(call.function))(call.args[I]...);
}

template <size_t COUNT>
OopType invoke(void* context) {
  return callWithArguments(*static_cast<const PreparedCall*>(context),
                           std::make_index_sequence<COUNT>{});
}

using Invoker = OopType (*)(void*);
constexpr std::array<Invoker, KCI_MAX_ACTION_ARGS + 1> INVOKERS = {invoke<0>, invoke<1>, invoke<2>,
                                                                   invoke<3>, invoke<4>, invoke<5>,
                                                                   invoke<6>, invoke<7>, invoke<8>};

}  // namespace

}  // namespace kvhost::interface

namespace kvhost {

const char* nameOf(const FoundAction& action) { return action.name.c_str(); }

const FoundAction* findAction(std::string_view name) { return interface::actionTable().find(name); }

Outcome callAction(const FoundAction& action, const OopType* args, int count) {
  Outcome outcome;
  outcome.expectedCount = action.argumentCount;
  if (action.argumentCount != count) {
    outcome.status = CallStatus::WrongArgumentCount;
    return outcome;
  }
  interface::PreparedCall call {
    action.function, args
  };
  if (!interface::runGuarded(interface::INVOKERS[static_cast<size_t>(count)], &call, &outcome.value,
                             &outcome.error)) {
    outcome.status = CallStatus::Raised;
  }
  return outcome;
}

Outcome callAction(const char* name, const OopType* args, int count) {
  const FoundAction* action = findAction(name);
  if (action != nullptr) return callAction(*action, args, count);
  Outcome outcome;
  outcome.status = CallStatus::NoSuchAction;
  return outcome;
}

std::vector<DeclaredAction> declaredActions() { return interface::actionTable().list(); }

void forgetDeclaredActions() { interface::actionTable().forgetAll(); }

void lockActions() { interface::actionTable().lock(); }

void unlockActions() { interface::actionTable().unlock(); }

}  // namespace kvhost

extern "C" BoolType KciDeclareAction(const char* name, KciActionFnType fn, int argCount,
                                     unsigned flags, BoolType /*publish*/) {
  if (name == nullptr || fn == nullptr) return FALSE;
  const size_t length = std::strlen(name);
  if (length == 0 || length > KCI_MAX_ACTION_NAME) return FALSE;
  if (argCount < 0 || argCount > KCI_MAX_ACTION_ARGS) return FALSE;
  const bool added = kvhost::interface::actionTable().add({name, length}, fn, argCount, flags);
  return added ? TRUE : FALSE;
}
