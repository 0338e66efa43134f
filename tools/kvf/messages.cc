#include "messages.h"

#include <kvfile/kvhost.h>

#include "functions.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace shell {
namespace {

using MethodTable = std::unordered_map<std::string_view, const Method*>;

const MethodTable& methodTable() {
  static const MethodTable table = [] {
    MethodTable result;
    for (auto methods : {objectMessages(), numberMessages(), textMessages(), controlMessages(),
                         systemMessages()}) {
      for (const Method& method : methods) result.emplace(method.selector, &method);
    }
    return result;
  }();
  return table;
}

}  // namespace

const Method* findMethod(std::string_view selector) {
  auto found = methodTable().find(selector);
  return found != methodTable().end() ? found->second : nullptr;
}

std::vector<std::string> allSelectors() {
  std::vector<std::string> selectors;
  for (const auto& [selector, method] : methodTable()) selectors.emplace_back(selector);
  std::sort(selectors.begin(), selectors.end());
  return selectors;
}

void doesNotUnderstand(const Value& receiver, std::string_view selector) {
  throw EvaluationError(
      fmt::format("error: {} does not understand #{}", classNameOf(receiver), selector));
}

std::string classNameOf(const Value& value) {
  switch (value.kind) {
    case Value::Kind::Block:
      return "Block";
    case Value::Kind::Session:
      return "Session";
    case Value::Kind::Smalltalk:
      return "Smalltalk";
    case Value::Kind::Object:
      break;
  }
  if (isClass(value)) return std::string(kvhost::className(value.oop)) + " class";
  return std::string(kvhost::className(kvhost::classOf(value.oop)));
}

bool isLargeInteger(const Value& value) {
  return value.isObject() && kvhost::classOf(value.oop) == kvhost::CLASS_LARGE_INTEGER;
}

int64_t largeIntegerOf(const Value& value, std::string_view role) {
  if (!isLargeInteger(value)) {
    throw EvaluationError(
        fmt::format("error: the {} is no integer but of class {}", role, classNameOf(value)));
  }
  int err = 0;
  int64_t result = KciOopToI64_(value.oop, &err);
  if (err != 0) throw EvaluationError(fmt::format("error: the {} does not fit in 64 bits", role));
  return result;
}

bool isByteObject(const Value& value) {
  if (!value.isObject()) return false;
  switch (kvhost::classOf(value.oop)) {
    case OOP_CLASS_STRING:
    case OOP_CLASS_UTF8_STRING:
    case OOP_CLASS_UTF16_STRING:
    case kvhost::CLASS_SYMBOL:
    case kvhost::CLASS_BYTE_ARRAY:
      return true;
    default:
      return false;
  }
}

bool isArray(const Value& value) {
  return value.isObject() && kvhost::classOf(value.oop) == OOP_CLASS_ARRAY;
}

bool isClass(const Value& value) {
  return value.isObject() && kvhost::classOf(value.oop) == kvhost::CLASS_CLASS;
}

std::string bytesArgument(const Value& value, std::string_view role) {
  if (!isByteObject(value)) {
    throw EvaluationError(
        fmt::format("error: the {} is no text but of class {}", role, classNameOf(value)));
  }
  return kvhost::bytesOf(value.oop);
}

Value newByteObject(OopType cls, std::string_view bytes) {
  if (cls == kvhost::CLASS_SYMBOL) return Value::object(kvhost::newSymbol(bytes));
  return Value::object(KciNewByteObj(cls, bytes.data(), bytes.size()));
}

void throwPendingError(Interpreter& interpreter) {
  KciErrSType error;
  error.initialize();
  if (KciErr(&error) != 0) throw EvaluationError(describeRaised(interpreter, error), error.number);
}

}  // namespace shell
