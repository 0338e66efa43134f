// The wrappers seam_X, generated from functions.def.
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/syserror.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>
#include <kvfile/platform/version.h>

#include "interface/error_state.h"
#include "seam/call.h"
#include "seam/gz_errors.h"

#include <unistd.h>
#include <zlib.h>

#include <cstdarg>
#include <cstdio>

namespace seam {
namespace {

// Longer than what a trace shows of a text, so that it is seen to be cut.
constexpr size_t PRINTED_MAX = 64;

// Logs through the host's logger. The function is asked for each time: the host may change it, and
// the trampoline has no place of its own to keep it in.
void logThrough(const char* text) { KciGetLogger()(text); }

int printThrough(const char* /*shown*/, const char* format, va_list* arguments) {
  // The checker loses sight of a va_list behind a pointer.
  return vprintf(format, *arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
}

int printToGz(gzFile file, const char* /*shown*/, const char* format, va_list* arguments) {
  return gzvprintf(file, format, *arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
}

KciLoggerType tracedLogger();

// A row of functions.def: the type that the templates of call.h take. `like` is the function whose
// signature the wrapper has.
// NOLINTBEGIN(bugprone-macro-parentheses): types and initialisers take none.
#define SEAM_ROW(symbol, label, like, realFunction, kinds, result, failure, traits)           \
  struct Row_##symbol : decltype(signatureOf(&like)) {                                        \
    using Failure = failure;                                                                  \
    static constexpr auto real = &realFunction;                                               \
    static constexpr Traits TRAITS = traits;                                                  \
    static constexpr FunctionInfo INFO = functionInfo<Failure>(label, kinds, result, TRAITS); \
  };
// NOLINTEND(bugprone-macro-parentheses)
#define SEAM_CALL(symbol, arity, kinds, result, failure, traits) \
  SEAM_ROW(symbol, #symbol, symbol, symbol, kinds, result, failure, traits)
#define SEAM_CALL_VIA(symbol, realFunction, arity, kinds, result, failure, traits) \
  SEAM_ROW(symbol, #symbol, symbol, realFunction, kinds, result, failure, traits)
#define SEAM_INNER(name, arity, kinds, result, failure, traits) \
  SEAM_ROW(name, #name, logThrough, logThrough, kinds, result, failure, traits)
#define SEAM_VARIADIC(symbol, realFunction, kinds, result, failure, traits) \
  SEAM_ROW(symbol, #symbol, realFunction, realFunction, kinds, result, failure, traits)
#include "seam/functions.def"
#undef SEAM_CALL
#undef SEAM_CALL_VIA
#undef SEAM_INNER
#undef SEAM_VARIADIC

void traceLog(const char* text) { call<Row_KciLogger>(text); }

KciLoggerType tracedLogger() { return &traceLog; }

}  // namespace

// The host's own table of errors knows only the numbers that it uses; a fault may raise any.
void leaveInterfaceError(int64_t number) {
  kvhost::interface::ErrorState& errors = kvhost::interface::errorState();
  errors.pending.initialize();
  errors.pending.category = OOP_ERROR_CATEGORY;
  errors.pending.number = static_cast<int>(number);
  snprintf(errors.pending.message, sizeof errors.pending.message, "%s", RAISED_TEXT);
  errors.isPending = true;
  if (errors.frames != nullptr) longjmp(errors.frames->buf, 1);
}

const KciErrSType* pendingInterfaceError() {
  const kvhost::interface::ErrorState& errors = kvhost::interface::errorState();
  return errors.isPending ? &errors.pending : nullptr;
}

// ---- the wrappers ----

#define SEAM_PARAMETERS_0(row)
#define SEAM_PARAMETERS_1(row) row::Argument<0> a0
#define SEAM_PARAMETERS_2(row) SEAM_PARAMETERS_1(row), row::Argument<1> a1
#define SEAM_PARAMETERS_3(row) SEAM_PARAMETERS_2(row), row::Argument<2> a2
#define SEAM_PARAMETERS_4(row) SEAM_PARAMETERS_3(row), row::Argument<3> a3
#define SEAM_PARAMETERS_5(row) SEAM_PARAMETERS_4(row), row::Argument<4> a4
#define SEAM_PARAMETERS_6(row) SEAM_PARAMETERS_5(row), row::Argument<5> a5
#define SEAM_PARAMETERS_7(row) SEAM_PARAMETERS_6(row), row::Argument<6> a6
#define SEAM_ARGUMENTS_0
#define SEAM_ARGUMENTS_1 a0
#define SEAM_ARGUMENTS_2 a0, a1
#define SEAM_ARGUMENTS_3 a0, a1, a2
#define SEAM_ARGUMENTS_4 a0, a1, a2, a3
#define SEAM_ARGUMENTS_5 a0, a1, a2, a3, a4
#define SEAM_ARGUMENTS_6 a0, a1, a2, a3, a4, a5
#define SEAM_ARGUMENTS_7 a0, a1, a2, a3, a4, a5, a6

#define SEAM_WRAPPER(symbol, arity, kinds)                                               \
  static_assert(Row_##symbol::ARITY == (arity) &&                                        \
                Row_##symbol::INFO.argumentKinds.size() == (arity));                     \
  extern "C" Row_##symbol::Result seam_##symbol(SEAM_PARAMETERS_##arity(Row_##symbol)) { \
    return call<Row_##symbol>(SEAM_ARGUMENTS_##arity);                                   \
  }
#define SEAM_CALL(symbol, arity, kinds, result, failure, traits) SEAM_WRAPPER(symbol, arity, kinds)
#define SEAM_CALL_VIA(symbol, real, arity, kinds, result, failure, traits) \
  SEAM_WRAPPER(symbol, arity, kinds)
#define SEAM_INNER(name, arity, kinds, result, failure, traits)
#define SEAM_VARIADIC(symbol, realFunction, kinds, result, failure, traits)
#include "seam/functions.def"
#undef SEAM_CALL
#undef SEAM_CALL_VIA
#undef SEAM_INNER
#undef SEAM_VARIADIC

// What a variadic function prints, for the record of its call.
class Shown {
 public:
  void fill(const char* format, va_list arguments) {
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): begun by the caller
    vsnprintf(text_, sizeof text_, format, arguments);
  }
  const char* text() const { return text_; }

 private:
  char text_[PRINTED_MAX] = "";
};
static_assert(std::is_trivially_destructible_v<Shown>);

extern "C" __attribute__((format(printf, 1, 2))) int seam_printf(const char* format, ...) {
  Shown shown;
  va_list arguments;
  va_start(arguments, format);
  if (active) shown.fill(format, arguments);
  va_end(arguments);
  va_start(arguments, format);
  const int result = call<Row_printf>(shown.text(), format, &arguments);
  va_end(arguments);
  return result;
}

extern "C" __attribute__((format(printf, 2, 3))) int seam_gzprintf(gzFile file, const char* format,
                                                                   ...) {
  Shown shown;
  va_list arguments;
  va_start(arguments, format);
  if (active) shown.fill(format, arguments);
  va_end(arguments);
  va_start(arguments, format);
  const int result = call<Row_gzprintf>(file, shown.text(), format, &arguments);
  va_end(arguments);
  return result;
}

// ---- the table ----

namespace {

constexpr const FunctionInfo* FUNCTIONS[] = {
#define SEAM_CALL(symbol, arity, kinds, result, failure, traits) &Row_##symbol::INFO,
#define SEAM_CALL_VIA(symbol, real, arity, kinds, result, failure, traits) &Row_##symbol::INFO,
#define SEAM_INNER(name, arity, kinds, result, failure, traits) &Row_##name::INFO,
#define SEAM_VARIADIC(symbol, realFunction, kinds, result, failure, traits) &Row_##symbol::INFO,
#include "seam/functions.def"
};

std::vector<std::string> namesOfAll() {
  std::vector<std::string> names;
  for (const FunctionInfo* function : FUNCTIONS) names.emplace_back(function->name);
  return names;
}

}  // namespace

const FunctionInfo* findFunction(std::string_view name) {
  for (const FunctionInfo* function : FUNCTIONS) {
    if (function->name == name) return function;
  }
  return nullptr;
}

const std::vector<std::string>& functionNames() {
  static const std::vector<std::string> names = namesOfAll();
  return names;
}

}  // namespace seam
