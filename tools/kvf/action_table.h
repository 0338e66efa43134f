// The actions as the one table of the module lists them, for help and completion.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shell {

struct ActionRow {
  std::string_view name;
  int argumentCount;
  std::string_view parameters;  // "(OopType oFile, OopType oPath)"
  std::string_view meaning;
};

std::span<const ActionRow> actionRows();

// The row of that name, or null.
const ActionRow* findAction(std::string_view name);

// The names of the arguments: "oFile, oPath".
std::string argumentNames(const ActionRow& row);

// The long text for an action, from the comment above its definition; "" where there is none.
std::string_view actionDocumentation(std::string_view name);

// Prints every action with its arguments and meaning, one a line; an action that is not declared is
// marked.
std::string actionListing();

// What `kvf help NAME` prints; "" for an unknown name.
std::string helpFor(std::string_view name);

// The known name nearest to `name`, or "" when none is near.
std::string nearestName(std::string_view name);

}  // namespace shell
