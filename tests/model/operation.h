// One step of a sequence: an action or exported function with its arguments, in a form that the
// model understands, the module can be given, and a transcript can show.
#pragma once

#include "model/host.h"

#include <string>
#include <string_view>
#include <vector>

namespace model {

// What an argument is. `number` holds the integer, the Character's code, or which file or object of
// the sequence is meant; `bytes` a text's or a byte object's content.
struct Value {
  enum class Kind {
    Nil,
    True,
    False,
    Integer,
    Character,
    File,
    Object,
    Text,
    Symbol,
    Bytes,
    Utf16,
    Array
  };

  Kind kind = Kind::Nil;
  int64 number = 0;
  bool fromSize = false;  // an integer that counts from the size of the step's second argument
  std::string bytes;
  std::vector<Value> elements;  // of an Array

  static Value nil() { return {}; }
  static Value boolean(bool value) { return make(value ? Kind::True : Kind::False); }
  static Value integer(int64 value) { return make(Kind::Integer, value); }
  static Value fromSizeOf(int64 difference) {
    Value value = integer(difference);
    value.fromSize = true;
    return value;
  }
  static Value character(int64 code) { return make(Kind::Character, code); }
  static Value file(int64 which) { return make(Kind::File, which); }
  static Value object(int64 which) { return make(Kind::Object, which); }
  static Value text(std::string_view content) { return make(Kind::Text, 0, content); }
  static Value symbol(std::string_view content) { return make(Kind::Symbol, 0, content); }
  static Value byteArray(std::string_view content) { return make(Kind::Bytes, 0, content); }
  static Value utf16() { return make(Kind::Utf16); }
  static Value array(std::vector<Value> elements) {
    Value made = make(Kind::Array);
    made.elements = std::move(elements);
    return made;
  }

  bool isNil() const { return kind == Kind::Nil; }
  bool isInteger() const { return kind == Kind::Integer; }
  bool isText() const { return kind == Kind::Text || kind == Kind::Symbol; }

 private:
  static Value make(Kind kind, int64 number = 0, std::string_view content = {}) {
    Value value;
    value.kind = kind;
    value.number = number;
    value.bytes = content;
    return value;
  }
};

// The steps that the model knows: actions, exported functions, and what an embedder does between.
#define MODEL_STEPS(X)      \
  X(KvfOpen)                \
  X(KvfCreateStdFile)       \
  X(KvfClose)               \
  X(KvfCloseAll)            \
  X(KvfFinalizeAll)         \
  X(KvfClientFinalize)      \
  X(KvfRead)                \
  X(KvfGetC)                \
  X(KvfGetLine)             \
  X(KvfAtEnd)               \
  X(KvfWrite)               \
  X(KvfPutC)                \
  X(KvfPrintBytes)          \
  X(KvfSeek)                \
  X(KvfPosition)            \
  X(KvfFlush)               \
  X(KvfSync)                \
  X(KvfErrorString)         \
  X(KvfErrorCode)           \
  X(KvfIsOpen)              \
  X(KvfIsCompressed)        \
  X(KvfGetFileDesc)         \
  X(KvfLoadByteStrings)     \
  X(KvfClassError)          \
  X(KvFileRead)             \
  X(KvFileWrite)            \
  X(KvFileFetchErrorString) \
  X(KvfStartup)             \
  X(KvfShutdown)            \
  X(SelectSession)          \
  X(SetObject)

enum class Step {
#define MODEL_STEP(name) name,
  MODEL_STEPS(MODEL_STEP)
#undef MODEL_STEP
};

const char* stepName(Step step);

// The arguments stand in the order of the action or function. Class-side actions take the class
// first; it is left out here.
struct Operation {
  Step step = Step::KvfErrorCode;
  std::vector<Value> arguments;
  int64 count = 0;  // of KvFileRead, KvFileWrite and KvFileFetchErrorString: the C integer
  int session = 0;  // a session id of theirs, of KvfStartup, KvfShutdown and SelectSession
};

// What a step answered. For Object the argument with that index came back.
struct Answer {
  enum class Kind { Nil, True, False, Integer, Character, Text, Argument, Class, Raised, Nothing };

  // An argument of a raised error.
  struct Detail {
    enum class Kind { Argument, Integer, Identifier, File, Class } kind;
    int64 number;  // which argument or file, the integer, or the identifier
  };

  Kind kind = Kind::Nil;
  int64 number = 0;  // or which argument, or the error's number
  std::string bytes;
  std::vector<Detail> details;
  bool numberUnknown = false;  // any number but 0 will do
  bool bytesUnknown = false;   // any text will do
};

}  // namespace model
