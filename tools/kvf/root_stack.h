// Keeps the objects that a running expression still needs alive across a collection.
#pragma once

#include "value.h"

#include <deque>

namespace shell {

// A stack whose slots are roots of the object memory. A slot is made a root when the stack first
// grows over it and stays one, holding nil while it is free, so that pushing is one store.
class RootStack {
 public:
  RootStack() = default;
  ~RootStack();
  RootStack(const RootStack&) = delete;
  RootStack& operator=(const RootStack&) = delete;

  // Keeps everything pushed through it until it goes.
  class Frame {
   public:
    explicit Frame(RootStack& stack) : stack_(stack), base_(stack.depth_) {}
    ~Frame() {
      if (stack_.depth_ > base_) stack_.popTo(base_);
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    void push(const Value& value) {
      if (mayDie(value)) stack_.push(value.oop);
    }

   private:
    RootStack& stack_;
    size_t base_;
  };

 private:
  // False for what is no object, and for identifiers that carry their value.
  static bool mayDie(const Value& value) {
    return value.isObject() && value.oop != OOP_NIL && oopIsSmallInteger(value.oop) == 0;
  }
  void push(OopType oop);
  void popTo(size_t depth);

  std::deque<OopType> slots_;
  size_t depth_ = 0;
};

}  // namespace shell
