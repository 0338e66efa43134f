// What an expression of the shell's language can answer, and how its evaluation fails.
#pragma once

#include <kvfile/platform/kci.h>

#include "position.h"

#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace shell {

struct BlockBody;

// An object of the object memory, a block, or one of the two globals that are no objects there.
// A Value roots nothing by itself (see RootStack) and owns no block: a block lives as long as the
// statement that it stands in runs, or a variable holds it. It is small, because it is passed about
// with every step of a program.
struct Value {
  enum class Kind { Object, Block, Session, Smalltalk } kind = Kind::Object;
  union {
    OopType oop = OOP_NIL;   // Object; nil for the globals
    const BlockBody* block;  // Block
  };

  static Value object(OopType oop) {
    Value value;
    value.oop = oop;
    return value;
  }
  static Value ofBlock(const BlockBody* block) {
    Value value;
    value.kind = Kind::Block;
    value.block = block;
    return value;
  }
  static Value boolean(bool truth) { return object(oopFromBool(truth ? TRUE : FALSE)); }
  static Value global(Kind kind) {
    Value value;
    value.kind = kind;
    return value;
  }

  bool isObject() const { return kind == Kind::Object; }
  bool isSmallInteger() const { return isObject() && oopIsSmallInteger(oop) != 0; }
  bool isBlock() const { return kind == Kind::Block; }
  bool isTrue() const { return isObject() && oop == OOP_TRUE; }
  bool isFalse() const { return isObject() && oop == OOP_FALSE; }
};

using Arguments = std::span<const Value>;

// A statement failed: an error was raised, or the shell itself refused something. what() is the
// whole line to show, without the place.
class EvaluationError : public std::runtime_error {
 public:
  explicit EvaluationError(const std::string& text, int errorNumber = 0)
      : std::runtime_error(text), number(errorNumber) {}

  int number;                        // of a raised error; 0 where the shell refused
  bool interrupted = false;          // the user stopped it; nothing went wrong
  std::optional<Position> position;  // innermost message or call, once it is known
};

// What the system's shell reports of a program that ended by SIGPIPE.
constexpr int EXIT_READER_GONE = 141;

// The shell is to be left: the program asked for it, or nobody reads what it prints.
struct QuitRequest {
  int exitCode;
};

}  // namespace shell
