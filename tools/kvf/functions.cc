#include "functions.h"

#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "action_table.h"
#include "messages.h"
#include "printer.h"
#include "terminal/line_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csetjmp>
#include <csignal>

namespace shell {
namespace {

// ---- raised errors ----

struct ErrorMeaning {
  int number;
  std::string_view meaning;
};

#define KVF_ERROR(number, name, meaning, arguments) ErrorMeaning{number, meaning},
constexpr std::array ERROR_MEANINGS = {
#include <kvfile/error_table.def>
};

// An object may be an argument because it is too large.
std::string describeArgument(Interpreter& interpreter, OopType argument) {
  constexpr int64 LONGEST = 10'000;
  if (!kvhost::isValid(argument) || KciFetchSize_(argument) <= LONGEST) {
    return printString(interpreter, Value::object(argument));
  }
  return fmt::format("an instance of {}, size {}", kvhost::className(kvhost::classOf(argument)),
                     KciFetchSize_(argument));
}

std::string describeArguments(Interpreter& interpreter, const KciErrSType& error) {
  std::string out;
  for (int i = 0; i < std::min<int>(error.argCount, KCI_MAX_ERR_ARGS); i++) {
    out += out.empty() ? ", arguments: " : ", ";
    out += describeArgument(interpreter, error.args[i]);
  }
  return out;
}

// ---- calls ----

// The object that an argument is; throws, naming the function, for anything else.
OopType objectArgument(std::string_view name, const Value& argument) {
  if (!argument.isObject()) {
    throw EvaluationError(
        fmt::format("error: {} takes objects, and a {} is none", name, classNameOf(argument)));
  }
  return argument.oop;
}

[[noreturn]] void wrongCount(std::string_view name, int expected, std::string_view parameters,
                             size_t given) {
  throw EvaluationError(fmt::format("error: {} takes {} argument{} ({}), not {}", name, expected,
                                    expected == 1 ? "" : "s", parameters, given));
}

[[noreturn]] void unknownFunction(std::string_view name) {
  std::string nearest = nearestName(name);
  throw EvaluationError(fmt::format("error: there is no action or function '{}'{}", name,
                                    nearest.empty() ? "" : "; did you mean " + nearest + "?"));
}

OopType answerOf(Interpreter& interpreter, const kvhost::Outcome& outcome) {
  if (outcome.status == kvhost::CallStatus::Raised) {
    throw EvaluationError(describeRaised(interpreter, outcome.error), outcome.error.number);
  }
  return outcome.value;
}

[[noreturn]] void refuseCall(const Call& call, const kvhost::Outcome& outcome) {
  const ActionRow* row = findAction(call.function);
  if (outcome.status == kvhost::CallStatus::WrongArgumentCount) {
    wrongCount(call.function, outcome.expectedCount, row == nullptr ? "" : argumentNames(*row),
               call.arguments.size());
  }
  if (row == nullptr) unknownFunction(call.function);
  throw EvaluationError(fmt::format("error: the action {} is not declared", call.function));
}

kvhost::Outcome callFound(const Call& call, const OopType* oops, size_t count) {
  if (call.action == nullptr) call.action = kvhost::findAction(call.function);
  if (call.action != nullptr) {
    return kvhost::callAction(*call.action, oops, static_cast<int>(count));
  }
  kvhost::Outcome outcome;
  outcome.status = kvhost::CallStatus::NoSuchAction;
  return outcome;
}

Value callAction(Interpreter& interpreter, const Call& call, Arguments arguments) {
  // More arguments than any action takes are counted, and refused.
  OopType oops[KCI_MAX_ACTION_ARGS];
  size_t count = 0;
  for (const Value& argument : arguments) {
    OopType oop = objectArgument(call.function, argument);
    if (count < KCI_MAX_ACTION_ARGS) oops[count] = oop;
    count++;
  }
  kvhost::Outcome outcome = callFound(call, oops, count);
  if (outcome.status != kvhost::CallStatus::Answered &&
      outcome.status != kvhost::CallStatus::Raised) {
    refuseCall(call, outcome);
  }
  return Value::object(answerOf(interpreter, outcome));
}

// ---- the deliberate fault of KvfTestClientHandler ----

thread_local sigjmp_buf faultReturn;
thread_local volatile std::sig_atomic_t faultIsContained = 0;
thread_local volatile std::sig_atomic_t faultSignal = 0;

struct TestCall {
  OopType receiver;
};

void containFault(int signal) {
  if (faultIsContained == 0) {
    // Not the deliberate one: it comes again without a handler, and ends the process.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return;
  }
  faultIsContained = 0;
  faultSignal = signal;
  siglongjmp(faultReturn, 1);
}

OopType runTestHandler(void* context) {
  if (sigsetjmp(faultReturn, 1) != 0) return OOP_NIL;
  faultIsContained = 1;
  OopType answer = KvfTestClientHandler(static_cast<TestCall*>(context)->receiver);
  faultIsContained = 0;
  return answer;
}

Value callTestHandler(Interpreter& interpreter, Arguments arguments) {
  TestCall call{objectArgument("KvfTestClientHandler", arguments[0])};
  faultSignal = 0;
  kvhost::Outcome outcome = kvhost::protect(runTestHandler, &call);
  faultIsContained = 0;
  if (faultSignal != 0) {
    throw EvaluationError(
        fmt::format("error: KvfTestClientHandler read through a pointer that leads to nothing "
                    "({}); the fault was contained and the workspace goes on",
                    faultSignal == SIGSEGV ? "SIGSEGV" : "SIGBUS"));
  }
  return Value::object(answerOf(interpreter, outcome));
}

// ---- the exported C functions ----

constexpr int64_t MAX_TRANSFER = int64_t{1} << 30;

int sessionArgument(Arguments arguments, size_t index) {
  if (index >= arguments.size()) return 0;
  int64_t id = integerOf(arguments[index], "session id");
  if (id < INT_MIN || id > INT_MAX) throw EvaluationError("error: a session id has 32 bits");
  return static_cast<int>(id);
}

int64_t transferCount(const Value& value) {
  int64_t count = integerOf(value, "count");
  if (count > MAX_TRANSFER) {
    throw EvaluationError(fmt::format("error: the count {} is above {}", count, MAX_TRANSFER));
  }
  return count;
}

OopType fileArgument(const Value& value) { return objectArgument("the function", value); }

// What a C entry point is called with; plain, because a raise jumps over it.
struct EntryCall {
  OopType file;
  char* buffer;
  intptr_t size;
  int session;
  intptr_t result;
};

OopType runWrite(void* context) {
  auto* call = static_cast<EntryCall*>(context);
  call->result = KvFileWrite(call->file, reinterpret_cast<const ByteType*>(call->buffer),
                             call->size, call->session);
  return OOP_NIL;
}

OopType runRead(void* context) {
  auto* call = static_cast<EntryCall*>(context);
  call->result =
      KvFileRead(call->file, reinterpret_cast<ByteType*>(call->buffer), call->size, call->session);
  return OOP_NIL;
}

OopType runFetchErrorString(void* context) {
  auto* call = static_cast<EntryCall*>(context);
  KvFileFetchErrorString(call->file, call->buffer, static_cast<size_t>(call->size), call->session);
  return OOP_NIL;
}

Value callWrite(Interpreter& interpreter, Arguments arguments) {
  std::string bytes = bytesArgument(arguments[1], "bytes argument");
  EntryCall call{fileArgument(arguments[0]), bytes.data(), static_cast<intptr_t>(bytes.size()),
                 sessionArgument(arguments, 2), 0};
  answerOf(interpreter, kvhost::protect(runWrite, &call));
  return Value::boolean(call.result != 0);
}

Value callRead(Interpreter& interpreter, Arguments arguments) {
  int64_t count = transferCount(arguments[1]);
  std::string buffer(static_cast<size_t>(std::max<int64_t>(count, 1)), '\0');
  EntryCall call{fileArgument(arguments[0]), buffer.data(), count, sessionArgument(arguments, 2),
                 0};
  answerOf(interpreter, kvhost::protect(runRead, &call));
  if (call.result < 0) return Value::object(kvhost::newInteger(call.result));
  buffer.resize(static_cast<size_t>(call.result));
  return Value::object(kvhost::newString(buffer));
}

Value callFetchErrorString(Interpreter& interpreter, Arguments arguments) {
  int64_t size = transferCount(arguments[1]);
  if (size < 0) throw EvaluationError("error: the size of a buffer is not negative");
  // One byte is there even for size 0, because the first byte is always set.
  std::string buffer(static_cast<size_t>(size) + 1, '\0');
  EntryCall call{fileArgument(arguments[0]), buffer.data(), size, sessionArgument(arguments, 2), 0};
  answerOf(interpreter, kvhost::protect(runFetchErrorString, &call));
  return Value::object(kvhost::newString(buffer.c_str()));
}

Value callStartup(Interpreter&, Arguments arguments) {
  KvfStartup(sessionArgument(arguments, 0));
  return {};
}

Value callShutdown(Interpreter&, Arguments arguments) {
  KvfShutdown(sessionArgument(arguments, 0));
  return {};
}

Value callSetLineReader(Interpreter&, Arguments arguments) {
  if (!arguments[0].isTrue()) {
    KvFileSetLineReader(nullptr);
    return Value::boolean(false);
  }
  LineReaderStateType* reader = kvhost::lineReaderCreate("kvf", "");
  KvFileSetLineReader(reader);
  return Value::boolean(reader != nullptr);
}

Value callShutdownLineReader(Interpreter&, Arguments) {
  KvFileShutdownLineReader();
  return {};
}

Value callUserActionInit(Interpreter&, Arguments) {
  return Value::boolean(KvfUserActionInit() != 0);
}

Value callPassiveObjActionInit(Interpreter&, Arguments) {
  return Value::boolean(KvfPassiveObjActionInit() != 0);
}

constexpr std::array C_FUNCTIONS = {
    CFunction{"KvfUserActionInit", 0, 0, "", "Declare the file actions", callUserActionInit},
    CFunction{"KvfPassiveObjActionInit", 0, 0, "", "Declare the actions of passive objects",
              callPassiveObjActionInit},
    CFunction{"KvfStartup", 1, 1, "sessionId", "Give a session an empty file map", callStartup},
    CFunction{"KvfShutdown", 1, 1, "sessionId", "Close a session's files and drop its map",
              callShutdown},
    CFunction{"KvFileWrite", 2, 3, "oFile, bytes, sessionId",
              "Write all bytes of a text or ByteArray; true or false", callWrite},
    CFunction{"KvFileRead", 2, 3, "oFile, count, sessionId",
              "Read up to count bytes as a String, '' at the end; -1 on failure", callRead},
    CFunction{"KvFileFetchErrorString", 2, 3, "oFile, bufferSize, sessionId",
              "The pending error text as a buffer of that size gets it; '' when there is none",
              callFetchErrorString},
    CFunction{"KvFileSetLineReader", 1, 1, "install",
              "true: make and install a terminal line reader; else install none",
              callSetLineReader},
    CFunction{"KvFileShutdownLineReader", 0, 0, "", "Shut the installed line reader down",
              callShutdownLineReader},
};

Value callCFunction(Interpreter& interpreter, const CFunction& function, Arguments arguments) {
  if (arguments.size() < function.leastCount || arguments.size() > function.mostCount) {
    wrongCount(function.name, static_cast<int>(function.mostCount), function.parameters,
               arguments.size());
  }
  return function.handler(interpreter, arguments);
}

}  // namespace

std::span<const CFunction> cFunctions() { return C_FUNCTIONS; }

std::string_view meaningOfError(int number) {
  for (const ErrorMeaning& row : ERROR_MEANINGS) {
    if (row.number == number) return row.meaning;
  }
  return "";
}

std::string describeRaised(Interpreter& interpreter, const KciErrSType& error) {
  std::string meaning(meaningOfError(error.number));
  if (meaning.empty()) meaning = error.message;
  if (meaning.empty()) meaning = "no meaning is known";
  return fmt::format("error {} ({}), {}{}", error.number, meaning,
                     error.fatal != 0 ? "fatal" : "not fatal",
                     describeArguments(interpreter, error));
}

const CFunction* findEntryPoint(std::string_view name) {
  // An action like the others, but for its fault, which is to come back.
  static constexpr CFunction TEST_HANDLER = {"KvfTestClientHandler", 1, 1, "oClass", "",
                                             callTestHandler};
  if (name == TEST_HANDLER.name) return &TEST_HANDLER;
  const auto* found = std::find_if(C_FUNCTIONS.begin(), C_FUNCTIONS.end(),
                                   [&](const CFunction& each) { return each.name == name; });
  return found != C_FUNCTIONS.end() ? found : nullptr;
}

Value callFunction(Interpreter& interpreter, const Call& call, Arguments arguments) {
  if (call.entryPoint != nullptr) return callCFunction(interpreter, *call.entryPoint, arguments);
  return callAction(interpreter, call, arguments);
}

void containTestFaults() {
  struct sigaction action = {};
  action.sa_handler = containFault;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace shell
