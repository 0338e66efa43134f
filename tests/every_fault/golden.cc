#include "every_fault/golden.h"

#include <fstream>
#include <sstream>

namespace every_fault {

namespace {

constexpr size_t CALLS_SHOWN = 16;

void replaceAll(std::string* text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text->find(from, at)) != std::string::npos; at += to.size()) {
    text->replace(at, from.size(), to);
  }
}

// The names of the calls from number `first` on; the same in a row once, with their count.
std::string callNames(const std::vector<Made>& made, int first) {
  std::string text;
  size_t shown = 0;
  for (size_t i = static_cast<size_t>(first) - 1; i < made.size();) {
    size_t same = i;
    while (same < made.size() && made[same].function == made[i].function) ++same;
    if (++shown > CALLS_SHOWN) return text + " and " + std::to_string(made.size() - i) + " more";
    text += std::string(text.empty() ? "" : " ") + functionName(made[i].function);
    if (same - i > 1) text += "*" + std::to_string(same - i);
    i = same;
  }
  return text;
}

// What became of a fault, with its own errno as E, so that all errno values that end alike share a
// row.
std::string outcome(const Scenario& scenario, const Plan& plan, const Run& run) {
  std::string text = run.answers[scenario.marked];
  for (size_t i = scenario.marked + 1; i < run.answers.size(); ++i)
    text += "; then " + run.answers[i];
  text += "; " + run.look + "; again " + run.again;
  const Fault& fault = *plan.faults[0].fault;
  if (fault.what == What::Errno || fault.what == What::Partial) {
    const std::string number = std::to_string(fault.value);
    replaceAll(&text, std::string("text of ") + errnoName(fault.value), "text of E");
    replaceAll(&text, "code " + number + " ", "code E ");
    replaceAll(&text, "class " + number + " ", "class E ");
    if (text.starts_with(number + ";")) text.replace(0, number.size(), "E");
  }
  return text + "\n        calls: " + callNames(run.made, plan.faults[0].at);
}

// The rows of one call: each outcome once, with the faults that lead to it.
class Rows {
 public:
  void add(const std::string& fault, bool forever, const std::string& text) {
    Row* row = nullptr;
    for (Row& known : rows_) {
      if (known.outcome == text) row = &known;
    }
    if (row == nullptr) row = &rows_.emplace_back(Row{text, {}});
    if (!forever) {
      row->faults.push_back(fault);
    } else if (row->faults.empty() || row->faults.back() != fault) {
      for (Row& known : rows_) {
        if (!known.faults.empty() && known.faults.back() == fault) known.faults.back() += " once";
      }
      row->faults.push_back(fault + " ever");
    }
  }
  std::string take() {
    std::string text;
    for (const Row& row : rows_) {
      std::string faults;
      for (const std::string& fault : row.faults) faults += (faults.empty() ? "" : ", ") + fault;
      text += "    " + faults + "\n        " + row.outcome + "\n";
    }
    rows_.clear();
    return text;
  }

 private:
  struct Row {
    std::string outcome;
    std::vector<std::string> faults;
  };
  std::vector<Row> rows_;
};

std::string hex(uint64_t value) {
  char text[20];
  snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

std::string header(const Scenario& scenario, const Run& clean) {
  std::string text = "== " + scenario.name + "\n";
  for (size_t i = 0; i < scenario.steps.size(); ++i) {
    text += std::string(i == scenario.marked ? " > " : "   ") + scenario.steps[i].text + "  ->  " +
            clean.answers[i] + "\n";
  }
  return text + "   " + clean.look + "; again " + clean.again + "\n";
}

// The lines of a run are fewer than its calls where a call was left, and the line of a call of zlib
// stands before those that zlib made: they are numbered as lines.
std::string calls(const Run& clean) {
  std::string text = "  calls\n";
  for (const std::string& line : clean.log) {
    text += (line.starts_with("zlib:") ? "      " : "    ") + line + "\n";
  }
  return text;
}

}  // namespace

std::string goldenSection(const Scenario& scenario, Tally* tally) {
  const Run clean = cleanRun(scenario, tally);
  std::string text = header(scenario, clean) + calls(clean) + "  faults\n";
  Rows rows;
  int at = 0;
  Tally others;
  const auto flush = [&] {
    const std::string known = rows.take();
    if (!known.empty()) {
      text += "   call " + std::to_string(at) + " " +
              functionName(clean.made[static_cast<size_t>(at) - 1].function) + "\n" + known;
    }
  };
  everySingle(scenario, clean, tally, [&](const Plan& plan, const Run& run) {
    const Planned& planned = plan.faults[0];
    if (planned.at != at) flush();
    at = planned.at;
    if (clean.made[static_cast<size_t>(at) - 1].step == static_cast<int>(scenario.marked)) {
      rows.add(planned.fault->name, planned.forever, outcome(scenario, plan, run));
    } else {
      ++others.instances;
      others.digest = others.digest * 0x100000001B3U + run.digest;
    }
  });
  flush();
  return text + "   in the other steps " + std::to_string(others.instances) + " faults, digest " +
         hex(others.digest) + "\n";
}

std::string readText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
}

std::string firstDifference(const std::string& expected, const std::string& found) {
  std::istringstream left(expected);
  std::istringstream right(found);
  std::string leftLine;
  std::string rightLine;
  std::string section;
  for (int number = 1;; ++number) {
    const bool haveLeft = static_cast<bool>(std::getline(left, leftLine));
    const bool haveRight = static_cast<bool>(std::getline(right, rightLine));
    if (!haveLeft && !haveRight) return "";
    if (haveLeft && leftLine.starts_with("== ")) section = leftLine;
    if (haveLeft && haveRight && leftLine == rightLine) continue;
    return "line " + std::to_string(number) + ", " + section +
           "\n  golden: " + (haveLeft ? leftLine : "(ends)") +
           "\n  found:  " + (haveRight ? rightLine : "(ends)");
  }
}

}  // namespace every_fault
