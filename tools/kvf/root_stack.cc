#include "root_stack.h"

#include <kvfile/kvhost.h>

namespace shell {

RootStack::~RootStack() {
  for (const OopType& slot : slots_) kvhost::removeRoot(&slot);
}

void RootStack::popTo(size_t depth) {
  while (depth_ > depth) slots_[--depth_] = OOP_NIL;
}

void RootStack::push(OopType oop) {
  if (depth_ == slots_.size()) {
    slots_.push_back(OOP_NIL);
    kvhost::addRoot(&slots_.back());
  }
  slots_[depth_++] = oop;
}

}  // namespace shell
