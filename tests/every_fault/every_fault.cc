// Makes every call of the module's platform fail, in every way that it can, in every scenario of
// scenarios.txt, and holds what follows against the golden files and against what may never be.
#include "every_fault/golden.h"

#include <CLI/CLI.hpp>

#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <sstream>

using namespace every_fault;

namespace {

// The module's own read buffer. With another one each row would be another, and the golden files hold
// digests only.
constexpr int FULL_SIZE = 4096;

struct Options {
  std::string folder = KVF_SOURCE_DIR "/tests/every_fault";
  std::string scenario;  // part of a name
  std::string action;
  bool list = false;
  bool complete = false;
  bool update = false;
  bool single = false;
  bool pairs = false;
  int jobs = 1;
  int share = 0;
  int shares = 1;
};

std::vector<Scenario> chosen(const Options& options) {
  std::vector<Scenario> scenarios;
  for (Scenario& scenario : readScenarios(options.folder + "/scenarios.txt")) {
    if (!options.action.empty() && scenario.action != options.action) continue;
    if (scenario.name.find(options.scenario) == std::string::npos) continue;
    scenarios.push_back(std::move(scenario));
  }
  return scenarios;
}

std::string goldenPath(const Options& options, const std::string& action) {
  return options.folder + "/golden/" + action + ".txt";
}

// Each kind of complaint once, with the first run that led to it.
int tellComplaints(const std::vector<std::string>& complaints) {
  std::map<std::string, std::pair<std::string, int>> kinds;
  for (const std::string& complaint : complaints) {
    const size_t colon = complaint.find(": ", complaint.find(", ") + 1);
    const std::string scenario = complaint.substr(0, complaint.find(','));
    const std::string kind = colon == std::string::npos ? "" : complaint.substr(colon);
    auto& [first, count] = kinds[scenario + kind];
    if (count++ == 0) first = complaint;
  }
  for (const auto& [kind, found] : kinds) {
    printf("FAULT (%d times) %s\n", found.second, found.first.c_str());
  }
  return complaints.empty() ? 0 : 1;
}

// Every fifth second, for who waits.
class Progress {
 public:
  explicit Progress(const char* what) : what_(what) {}
  void tell(size_t done, size_t all, int64_t instances) {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < std::chrono::seconds(5)) return;
    last_ = now;
    fprintf(stderr, "  %s: scenario %zu of %zu, %lld instances\n", what_, done, all,
            static_cast<long long>(instances));
  }

 private:
  const char* what_;
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// ---- single faults and the golden files ----

// The section of `text` that `name` begins, or the whole text.
std::string sectionOf(const std::string& text, const std::string& name) {
  const size_t begin = text.find("== " + name + "\n");
  if (begin == std::string::npos) return "";
  const size_t end = text.find("\n== ", begin);
  return text.substr(begin, end == std::string::npos ? end : end + 1 - begin);
}

int runSingles(const Options& options) {
  const std::vector<Scenario> scenarios = chosen(options);
  std::map<std::string, std::string> found;
  Tally tally;
  Progress progress("single faults");
  int status = 0;
  for (size_t i = 0; i < scenarios.size(); ++i) {
    const Scenario& scenario = scenarios[i];
    const std::string section = goldenSection(scenario, &tally);
    found[scenario.action] += section;
    progress.tell(i + 1, scenarios.size(), tally.instances);
    if (options.update) continue;
    const std::string golden =
        sectionOf(readText(goldenPath(options, scenario.action)), scenario.name);
    const std::string difference = firstDifference(golden, section);
    if (difference.empty()) continue;
    printf("DIFFERS %s: %s\n", scenario.name.c_str(), difference.c_str());
    status = 1;
  }
  if (options.update && options.scenario.empty()) {
    for (const auto& [action, text] : found) writeText(goldenPath(options, action), text);
  }
  printf("%zu scenarios, %lld single faults checked\n", scenarios.size(),
         static_cast<long long>(tally.instances));
  return tellComplaints(tally.complaints) | status;
}

// ---- pairs ----

std::string pairsPath(const Options& options) {
  return options.folder + "/golden/pairs" +
         (KVF_READ_BUF_SIZE == FULL_SIZE ? "" : "_" + std::to_string(KVF_READ_BUF_SIZE)) + ".txt";
}

std::string pairsLine(const Scenario& scenario, const Tally& tally) {
  char digest[20];
  snprintf(digest, sizeof digest, "%016llx", static_cast<unsigned long long>(tally.digest));
  return std::string(digest) + " " + std::to_string(tally.instances) + " " + scenario.name;
}

// One process's part: a line of each of its scenarios, and of each complaint, to `out`.
void runPart(const Options& options, const std::vector<Scenario>& scenarios, int part, FILE* out) {
  Progress progress("pairs");
  int64_t instances = 0;
  for (size_t i = static_cast<size_t>(part); i < scenarios.size();
       i += static_cast<size_t>(options.jobs)) {
    Tally tally;
    const Run clean = cleanRun(scenarios[i], &tally);
    // With the full buffer these are compared row by row.
    if (KVF_READ_BUF_SIZE != FULL_SIZE) {
      everySingle(scenarios[i], clean, &tally, [](const Plan&, const Run&) {});
    }
    everyPair(scenarios[i], clean, options.share, options.shares, &tally);
    fprintf(out, "%zu %s\n", i, pairsLine(scenarios[i], tally).c_str());
    for (const std::string& complaint : tally.complaints) fprintf(out, "! %s\n", complaint.c_str());
    fflush(out);
    instances += tally.instances;
    if (part == 0) progress.tell(i + 1, scenarios.size(), instances * options.jobs);
  }
}

// The lines of all parts, by scenario; complaints behind them.
bool gatherParts(const Options& options, const std::vector<Scenario>& scenarios,
                 std::vector<std::string>* lines, std::vector<std::string>* complaints) {
  lines->resize(scenarios.size());
  std::vector<FILE*> ends;
  fflush(stdout);
  for (int part = 0; part < options.jobs; ++part) {
    int ends2[2];
    if (pipe(ends2) != 0) return false;
    const pid_t child = fork();
    if (child == 0) {
      close(ends2[0]);
      FILE* out = fdopen(ends2[1], "w");
      runPart(options, scenarios, part, out);
      fclose(out);
      fflush(stdout);
      exit(0);
    }
    close(ends2[1]);
    ends.push_back(fdopen(ends2[0], "r"));
  }
  char line[2000];
  for (FILE* end : ends) {
    while (fgets(line, sizeof line, end) != nullptr) {
      std::string text(line);
      if (!text.empty() && text.back() == '\n') text.pop_back();
      if (text.starts_with("! ")) {
        complaints->push_back(text.substr(2));
      } else {
        const size_t space = text.find(' ');
        (*lines)[std::stoul(text.substr(0, space))] = text.substr(space + 1);
      }
    }
    fclose(end);
  }
  bool good = true;
  int status = 0;
  while (wait(&status) > 0) good = good && status == 0;
  return good;
}

// The lines by the name of the scenario, which follows the digest and the count.
std::map<std::string, std::string> linesOf(const std::string& text) {
  std::map<std::string, std::string> lines;
  std::istringstream stream(text);
  std::string line;
  while (std::getline(stream, line)) {
    lines[line.substr(line.find(' ', line.find(' ') + 1) + 1)] = line;
  }
  return lines;
}

// Lines that were not made anew stay, as long as there are such scenarios.
void updatePairs(const Options& options, const std::vector<Scenario>& scenarios,
                 const std::vector<std::string>& lines, std::map<std::string, std::string> known) {
  for (size_t i = 0; i < lines.size(); ++i) known[scenarios[i].name] = lines[i];
  std::string text;
  for (const Scenario& scenario : readScenarios(options.folder + "/scenarios.txt")) {
    if (known.contains(scenario.name)) text += known[scenario.name] + "\n";
  }
  writeText(pairsPath(options), text);
}

int runPairs(const Options& options) {
  const std::vector<Scenario> scenarios = chosen(options);
  std::vector<std::string> lines;
  std::vector<std::string> complaints;
  int status = gatherParts(options, scenarios, &lines, &complaints) ? 0 : 1;
  if (status != 0) printf("FAULT a part crashed\n");
  const std::map<std::string, std::string> golden = linesOf(readText(pairsPath(options)));
  int64_t instances = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (line.size() > 17) instances += std::stoll(line.substr(17));
    const auto known = golden.find(scenarios[i].name);
    const bool same = known != golden.end() && known->second == line;
    if (options.update || options.shares > 1 || same) continue;
    printf("DIFFERS in pairs.txt: %s\n", line.c_str());
    status = 1;
  }
  if (options.update && options.shares == 1) updatePairs(options, scenarios, lines, golden);
  printf("%zu scenarios, %lld pairs of faults checked\n", scenarios.size(),
         static_cast<long long>(instances));
  return tellComplaints(complaints) | status;
}

void list(const Options& options) {
  std::map<std::string, int> counts;
  for (const std::string& name : stepNames()) counts[name] = 0;
  for (const Scenario& scenario : chosen(options)) {
    printf("%s\n", scenario.name.c_str());
    ++counts[scenario.action];
  }
  for (const std::string& name : stepNames()) printf("%3d %s\n", counts[name], name.c_str());
}

// Whether every action has as many scenarios as it should, and every C function some.
int checkComplete(const Options& options) {
  constexpr int PER_ACTION = 6;
  std::map<std::string, int> counts;
  for (const Scenario& scenario : chosen(options)) ++counts[scenario.action];
  int status = 0;
  for (const std::string& name : stepNames()) {
    // What takes no arguments, or can only succeed, has no six different scenarios.
    const bool plain = name.ends_with("ActionInit") || name.ends_with("LineReader");
    if (counts[name] >= (plain ? 2 : PER_ACTION)) continue;
    printf("%s has %d scenarios\n", name.c_str(), counts[name]);
    status = 1;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Makes every call of the module's platform fail, in every way that it can");
  app.add_option("--scenario", options.scenario, "only scenarios with this in their names");
  app.add_option("--action", options.action, "only those of this action or C function");
  app.add_flag("--single", options.single, "each fault alone, against the golden files (default)");
  app.add_flag("--pairs", options.pairs, "every pair of faults, against golden/pairs.txt");
  app.add_flag("--update", options.update, "rewrite the golden files instead");
  app.add_flag("--list", options.list, "show the scenarios, and how many each action has");
  app.add_flag("--complete", options.complete, "only see that every action has its scenarios");
  app.add_option("--jobs", options.jobs, "processes that share the pairs")
      ->check(CLI::Range(1, 64));
  app.add_option("--shares", options.shares,
                 "only one of so many parts of the pairs, digests unseen")
      ->check(CLI::Range(1, 1000));
  app.add_option("--folder", options.folder, "where scenarios.txt and golden/ are");
  CLI11_PARSE(app, argc, argv);
  if (options.list) {
    list(options);
    return 0;
  }
  if (options.complete) return checkComplete(options);
  if (strcmp(zlibVersion(), "1.2.13") != 0) {
    printf("the golden files tell the calls of zlib 1.2.13, and this is %s\n", zlibVersion());
    return 77;
  }
  prepare();
  int status = 0;
  const bool rows = KVF_READ_BUF_SIZE == FULL_SIZE;
  if (rows && (options.single || !options.pairs)) status |= runSingles(options);
  if (options.pairs || !rows) status |= runPairs(options);
  return status;
}
