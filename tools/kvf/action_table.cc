#include "action_table.h"

#include <kvfile/kvhost.h>

#include "functions.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace shell {
namespace {

#define KVF_ACTION(name, count, parameters, meaning) ActionRow{#name, count, #parameters, meaning},
constexpr std::array ROWS = {
#include <kvfile/action_table.def>
};

struct Documentation {
  std::string_view name;
  std::string_view text;
};

constexpr Documentation DOCUMENTATION[] = {
#include "action_docs.inc"
    {"", ""}};

bool isDeclared(std::string_view name) {
  std::vector<kvhost::DeclaredAction> actions = kvhost::declaredActions();
  return std::any_of(actions.begin(), actions.end(),
                     [&](const kvhost::DeclaredAction& action) { return action.name == name; });
}

// Insertions, deletions and replacements that turn `from` into `to`.
size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); i++) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < to.size(); j++) {
      size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::span<const ActionRow> actionRows() { return ROWS; }

const ActionRow* findAction(std::string_view name) {
  const auto* row = std::find_if(ROWS.begin(), ROWS.end(),
                                 [&](const ActionRow& each) { return each.name == name; });
  return row == ROWS.end() ? nullptr : row;
}

std::string argumentNames(const ActionRow& row) {
  std::string names;
  std::string_view rest = row.parameters.substr(1, row.parameters.size() - 2);
  constexpr std::string_view TYPE = "OopType ";
  for (size_t at = rest.find(TYPE); at != std::string_view::npos; at = rest.find(TYPE)) {
    rest.remove_prefix(at + TYPE.size());
    if (!names.empty()) names += ", ";
    names += rest.substr(0, rest.find(','));
  }
  return names;
}

std::string_view actionDocumentation(std::string_view name) {
  for (const Documentation& row : DOCUMENTATION) {
    if (row.name == name) return row.text;
  }
  return "";
}

std::string actionListing() {
  std::string out;
  for (const ActionRow& row : ROWS) {
    std::string call = fmt::format("{}({})", row.name, argumentNames(row));
    out += fmt::format("{:<63} {}{}\n", call, row.meaning,
                       isDeclared(row.name) ? "" : " (not declared)");
  }
  out += "\nExported C functions, in the form that scripts use:\n";
  for (const CFunction& function : cFunctions()) {
    std::string call = fmt::format("{}({})", function.name, function.parameters);
    out += fmt::format("{:<63} {}\n", call, function.meaning);
  }
  return out;
}

std::string helpFor(std::string_view name) {
  for (const CFunction& function : cFunctions()) {
    if (function.name != name) continue;
    return fmt::format("{}({})\n\n{}.\nAn exported C function; a sessionId may be left out.\n",
                       name, function.parameters, function.meaning);
  }
  const ActionRow* row = findAction(name);
  if (row == nullptr) return "";
  std::string out =
      fmt::format("{}({})\n\n{}. {} argument{}.{}\n", name, argumentNames(*row), row->meaning,
                  row->argumentCount, row->argumentCount == 1 ? "" : "s",
                  isDeclared(name) ? "" : " Not declared in this build.");
  std::string_view documentation = actionDocumentation(name);
  if (!documentation.empty()) out += fmt::format("\n{}\n", documentation);
  return out;
}

std::string nearestName(std::string_view name) {
  std::string nearest;
  size_t least = std::min<size_t>(name.size() / 3 + 1, 4);
  auto consider = [&](std::string_view candidate) {
    size_t distance = editDistance(name, candidate);
    if (distance < least) {
      least = distance;
      nearest = candidate;
    }
  };
  for (const ActionRow& row : ROWS) consider(row.name);
  for (const CFunction& function : cFunctions()) consider(function.name);
  return nearest;
}

}  // namespace shell
