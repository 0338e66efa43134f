// With a host that converts texts: what a path action made it convert, it releases, however it ends.
#include "pathhost/path_fixture.h"
#include "support/converting_host.h"

#include <gmock/gmock.h>

#include <map>
#include <sstream>

namespace kvtest {
namespace {

using ::testing::ElementsAreArray;

struct Action {
  std::string name;
  std::vector<std::string> parameters;
};

// Those of the table with a parameter that is a path, so that no action is forgotten.
std::vector<Action> pathActions() {
  std::vector<Action> all;
  const auto add = [&all](const char* name, std::string parameters) {
    parameters = parameters.substr(1, parameters.size() - 2);
    Action action{name, {}};
    std::istringstream list(parameters);
    for (std::string type, parameter; list >> type >> parameter;) {
      if (parameter.back() == ',') parameter.pop_back();
      action.parameters.push_back(parameter);
    }
    all.push_back(action);
  };
#define KVF_ACTION(name, count, parameters, meaning) add(#name, #parameters);
#include <kvfile/action_table.def>
  std::erase_if(all, [](const Action& action) {
    return std::none_of(action.parameters.begin(), action.parameters.end(), [](const auto& name) {
      return name == "oPath" || name == "oOldFile" || name == "oDirSpec";
    });
  });
  return all;
}

class ConvertedPath : public PathTest {
 protected:
  // Calls the action with `path` for each of its paths, and with arguments that do for the others.
  void perform(const Action& action, OopType path) {
    const std::map<std::string, std::function<OopType()>> others = {
        {"oClass", [] { return KV_FILE; }},
        {"oFile", [] { return kvhost::newKvFile(); }},
        {"oIsCompressed", [] { return OOP_FALSE; }},
        {"utfResultsBool", [] { return OOP_FALSE; }},
        {"oMode", [&] { return action.name == "KvfOpen" ? str("r") : OOP_NIL; }}};
    std::vector<OopType> args;
    for (const std::string& name : action.parameters)
      args.push_back(others.contains(name) ? others.at(name)() : path);
    tryAct(action.name, args);
  }

  static void expectAllReleased(const Action& action) {
    EXPECT_FALSE(ConvertingHost::converted().empty()) << action.name << " fetched no text";
    EXPECT_THAT(ConvertingHost::released(), ElementsAreArray(ConvertingHost::converted()))
        << action.name;
  }
};

TEST_F(ConvertedPath, IsReleasedOfAFileThatIsThere) {
  for (const Action& action : pathActions()) {
    writeFile("file", "x");
    const ConvertingHost host;
    perform(action, str("file"));
    expectAllReleased(action);
  }
}

TEST_F(ConvertedPath, IsReleasedOfADirectory) {
  for (const Action& action : pathActions()) {
    std::filesystem::create_directory("folder");
    const ConvertingHost host;
    perform(action, str("folder"));
    expectAllReleased(action);
  }
}

TEST_F(ConvertedPath, IsReleasedWhereThereIsNothing) {
  for (const Action& action : pathActions()) {
    const ConvertingHost host;
    perform(action, str("no/such/file"));
    expectAllReleased(action);
  }
}

TEST_F(ConvertedPath, IsReleasedOfAPathThatIsTooLong) {
  for (const Action& action : pathActions()) {
    const ConvertingHost host;
    perform(action, str(std::string(5000, 'p')));
    expectAllReleased(action);
  }
}

TEST_F(ConvertedPath, IsReleasedWhereTheSecondOfTwoIsNone) {
  for (const OopType second : {OOP_NIL, str(""), smallInt(3)}) {
    const ConvertingHost host;
    tryAct("KvfRename", {KV_FILE, str("old"), second});
    EXPECT_EQ(ConvertingHost::converted().size(), 1U);
    EXPECT_THAT(ConvertingHost::released(), ElementsAreArray(ConvertingHost::converted()));
  }
}

TEST_F(ConvertedPath, IsNotReleasedWhereTheHostConvertedNothing) {
  for (const Action& action : pathActions()) {
    const auto calls = callsDuring([&] { perform(action, str("file")); });
    EXPECT_TRUE(callsOf(calls, "KciReleaseOops").empty()) << action.name;
  }
}

TEST_F(ConvertedPath, LoggedTextIsReleasedToo) {
  FILE* sink = std::fopen("log", "w");
  kvhost::setLogStream(sink);
  const ConvertingHost host;
  for (const size_t size : {size_t{1}, size_t{5000}})
    act("KvfKciLog", {KV_FILE, str(std::string(size, 'l'))});
  kvhost::setLogStream(stderr);
  std::fclose(sink);
  EXPECT_EQ(ConvertingHost::converted().size(), 2U);
  EXPECT_THAT(ConvertingHost::released(), ElementsAreArray(ConvertingHost::converted()));
}

}  // namespace
}  // namespace kvtest
