// Faults as text: "NAME:COUNT[+]:ACTION".
#include "seam/recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace seam {
namespace {

constexpr int ERRNO_MAX = 4095;  // the largest that the kernel answers

// A number that takes up all of `text`.
std::optional<int64_t> parseNumber(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<int64_t> parseErrno(std::string_view text) {
  if (const auto number = parseNumber(text)) {
    return *number >= 1 && *number <= ERRNO_MAX ? number : std::nullopt;
  }
  for (int number = 1; number <= ERRNO_MAX; number++) {
    const char* name = strerrorname_np(number);
    if (name != nullptr && text == name) return number;
  }
  return std::nullopt;
}

// Insertions, deletions and replacements that turn one text into the other.
size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); i++) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < to.size(); j++) {
      const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return lower;
}

// "; did you mean X?" for the name that is nearest, where one is near at all.
std::string suggestion(const std::string& name) {
  const std::string* nearest = nullptr;
  size_t least = name.size() / 3 + 2;
  for (const std::string& known : functionNames()) {
    const size_t distance = editDistance(lowerCase(name), lowerCase(known));
    if (distance < least) {
      least = distance;
      nearest = &known;
    }
  }
  return nearest != nullptr ? fmt::format("; did you mean {}?", *nearest) : "";
}

bool refuse(std::string* message, std::string text) {
  *message = std::move(text);
  return false;
}

bool parseName(const std::string& name, Fault* fault, std::string* message) {
  if (name != "*" && findFunction(name) == nullptr) {
    return refuse(message, fmt::format("no function \"{}\"{}", name, suggestion(name)));
  }
  fault->function = name == "*" ? "" : name;
  return true;
}

bool parseCount(std::string_view text, Fault* fault, std::string* message) {
  std::string_view digits = text;
  fault->forever = digits.ends_with('+');
  if (fault->forever) digits.remove_suffix(1);
  const auto number = parseNumber(digits);
  if (!number || *number < 1) {
    return refuse(message,
                  fmt::format("\"{}\" is no count: wanted 1, 2, ... with an optional +", text));
  }
  fault->at = *number;
  return true;
}

struct ValuedAction {
  std::string_view word;
  Fault::Kind kind;
  int64_t least;
  int64_t most;
};

constexpr ValuedAction VALUED_ACTIONS[] = {
    {"short", Fault::Kind::Short, 1, std::numeric_limits<int32_t>::max()},
    {"result", Fault::Kind::Result, std::numeric_limits<int64_t>::min(),
     std::numeric_limits<int64_t>::max()},
    {"raise", Fault::Kind::Raise, 1, std::numeric_limits<int32_t>::max()},
};

bool parseValued(std::string_view word, std::string_view value, Fault* fault,
                 std::string* message) {
  for (const ValuedAction& action : VALUED_ACTIONS) {
    if (action.word != word) continue;
    const auto number = parseNumber(value);
    if (!number || *number < action.least || *number > action.most) {
      return refuse(message, fmt::format("\"{}\" is no value for {}", value, word));
    }
    fault->kind = action.kind;
    fault->value = *number;
    return true;
  }
  return refuse(message, fmt::format("no action \"{}=\": wanted short=, result= or raise=", word));
}

bool parseAction(std::string_view text, Fault* fault, std::string* message) {
  const size_t equals = text.find('=');
  if (equals != std::string_view::npos) {
    return parseValued(text.substr(0, equals), text.substr(equals + 1), fault, message);
  }
  if (text == "interrupt") {
    fault->kind = Fault::Kind::Interrupt;
  } else if (text == "nomem") {
    fault->kind = Fault::Kind::NoMemory;
  } else if (const auto number = parseErrno(text)) {
    fault->kind = Fault::Kind::Error;
    fault->value = *number;
  } else {
    return refuse(message, fmt::format("no action \"{}\": wanted an errno name or number, short=N, "
                                       "result=N, raise=N, interrupt or nomem",
                                       text));
  }
  return true;
}

bool answersAddress(const FunctionInfo& function) {
  return std::string_view("pfgs").find(function.resultKind) != std::string::npos;
}

std::string actionsOf(const FunctionInfo& function) {
  static constexpr std::pair<Fault::Kind, std::string_view> ACTIONS[] = {
      {Fault::Kind::Error, "ERRNO"},         {Fault::Kind::Short, "short=N"},
      {Fault::Kind::Result, "result=N"},     {Fault::Kind::Raise, "raise=N"},
      {Fault::Kind::Interrupt, "interrupt"}, {Fault::Kind::NoMemory, "nomem"}};
  std::string text;
  for (const auto& [kind, action] : ACTIONS) {
    if ((function.faults & faultBit(kind)) == 0) continue;
    // The only address that a fault can make up is null.
    text +=
        fmt::format(" {}", action == "result=N" && answersAddress(function) ? "result=0" : action);
  }
  return text;
}

}  // namespace

std::string faultListing() {
  std::string text;
  for (const std::string& name : functionNames()) {
    const std::string actions = actionsOf(*findFunction(name));
    if (!actions.empty()) text += fmt::format("{:<29}{}\n", name, actions);
  }
  return text;
}

bool faultFits(const FunctionInfo& function, const Fault& fault) {
  if ((function.faults & faultBit(fault.kind)) == 0) return false;
  return fault.kind != Fault::Kind::Result || !answersAddress(function) || fault.value == 0;
}

bool parseFault(const std::string& text, Fault* fault, std::string* message) {
  const size_t first = text.find(':');
  const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
  if (second == std::string::npos) {
    return refuse(message, fmt::format("\"{}\" is no fault: wanted NAME:COUNT:ACTION", text));
  }
  const std::string_view whole = text;
  Fault parsed;
  if (!parseName(text.substr(0, first), &parsed, message) ||
      !parseCount(whole.substr(first + 1, second - first - 1), &parsed, message) ||
      !parseAction(whole.substr(second + 1), &parsed, message)) {
    return false;
  }
  if (!parsed.function.empty() && !faultFits(*findFunction(parsed.function), parsed)) {
    return refuse(
        message, fmt::format("{} cannot end in \"{}\"", parsed.function, whole.substr(second + 1)));
  }
  *fault = parsed;
  return true;
}

}  // namespace seam
