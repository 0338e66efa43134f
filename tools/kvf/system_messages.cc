// Messages of the globals Session and Smalltalk.
#include <kvfile/kvhost.h>

#include "action_table.h"
#include "messages.h"

#include <fmt/format.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace shell {
namespace {

Value integerValue(int64_t value) { return Value::object(kvhost::newInteger(value)); }

void requireGlobal(const Value& receiver, Value::Kind kind, std::string_view selector) {
  if (receiver.kind != kind) doesNotUnderstand(receiver, selector);
}

// ---- Session ----

Value sessionBegin(Interpreter& interpreter, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Session, "begin");
  return integerValue(interpreter.beginSession());
}

Value sessionCurrent(Interpreter&, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Session, "current");
  return integerValue(KciGetSessionId());
}

Value sessionSelect(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Session, "select:");
  interpreter.selectSession(integerOf(arguments[0], "session id"));
  return arguments[0];
}

Value sessionEnd(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Session, "end:");
  interpreter.endSession(integerOf(arguments[0], "session id"));
  return arguments[0];
}

// ---- Smalltalk ----

Value collectGarbage(Interpreter& interpreter, const Value& receiver, Arguments) {
  bool isFileClass = receiver.isObject() && receiver.oop == kvhost::CLASS_KV_FILE;
  if (!isFileClass) requireGlobal(receiver, Value::Kind::Smalltalk, "collectGarbage");
  return integerValue(interpreter.collect());
}

Value testPointerFaults(Interpreter&, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "testPointerFaults:");
  if (!arguments[0].isTrue() && !arguments[0].isFalse()) {
    throw EvaluationError("error: true or false expected");
  }
  kvhost::setTestPointerFaults(arguments[0].isTrue());
  return arguments[0];
}

Value lastError(Interpreter& interpreter, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "lastError");
  return integerValue(interpreter.lastErrorNumber);
}

// The descriptor that the listing itself takes is not counted.
Value openDescriptors(Interpreter&, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "openDescriptors");
  std::error_code failed;
  std::filesystem::directory_iterator entries("/proc/self/fd", failed);
  if (failed) throw EvaluationError("error: no descriptor is left for listing them");
  int64_t count = 0;
  for ([[maybe_unused]] const auto& entry : entries) count++;
  return integerValue(count - 1);
}

Value liveObjects(Interpreter&, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "liveObjects");
  return integerValue(kvhost::liveObjects());
}

Value processId(Interpreter&, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "processId");
  return integerValue(getpid());
}

Value sleepMessage(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "sleep:");
  using Clock = std::chrono::steady_clock;
  auto end = Clock::now() + std::chrono::milliseconds(integerOf(arguments[0], "time"));
  while (Clock::now() < end) {
    auto slice = std::min<Clock::duration>(end - Clock::now(), std::chrono::milliseconds(20));
    std::this_thread::sleep_for(slice);
    interpreter.safePointInLoop();
  }
  return receiver;
}

// Runs a command by the system's shell; the command finds this program in $KVF.
Value systemMessage(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "system:");
  std::string command = bytesArgument(arguments[0], "command");
  std::error_code ignored;
  std::string self = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
  setenv("KVF", self.c_str(), 1);
  interpreter.print("");
  std::fflush(stdout);
  int status = std::system(command.c_str());
  if (status == -1) throw EvaluationError("error: the command could not be started");
  return integerValue(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

Value helpMessage(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "help:");
  std::string name = bytesArgument(arguments[0], "name");
  std::string text = helpFor(name);
  if (text.empty()) {
    throw EvaluationError(fmt::format("error: there is no action or function '{}'", name));
  }
  interpreter.print(text);
  return receiver;
}

Value quit(Interpreter&, const Value& receiver, Arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "quit");
  throw QuitRequest{0};
}

Value quitWith(Interpreter&, const Value& receiver, Arguments arguments) {
  requireGlobal(receiver, Value::Kind::Smalltalk, "quit:");
  int64_t code = integerOf(arguments[0], "exit code");
  if (code < 0 || code > 255) {
    throw EvaluationError(fmt::format("error: the exit code {} is not in 0 to 255", code));
  }
  throw QuitRequest{static_cast<int>(code)};
}

constexpr std::array METHODS = {
    Method{"begin", sessionBegin},
    Method{"current", sessionCurrent},
    Method{"select:", sessionSelect},
    Method{"end:", sessionEnd},
    Method{"collectGarbage", collectGarbage},
    Method{"testPointerFaults:", testPointerFaults},
    Method{"lastError", lastError},
    Method{"openDescriptors", openDescriptors},
    Method{"liveObjects", liveObjects},
    Method{"processId", processId},
    Method{"sleep:", sleepMessage},
    Method{"system:", systemMessage},
    Method{"help:", helpMessage},
    Method{"quit", quit},
    Method{"quit:", quitWith},
};

}  // namespace

std::span<const Method> systemMessages() { return METHODS; }

}  // namespace shell
