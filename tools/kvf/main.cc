// The command line of kvf.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "action_table.h"
#include "checker.h"
#include "colour.h"
#include "files.h"
#include "functions.h"
#include "instrumentation.h"
#include "interactive.h"
#include "interpreter.h"
#include "runner.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

namespace {

enum ExitCode { EXIT_DONE = 0, EXIT_RAISED = 1, EXIT_USAGE = 2 };

constexpr size_t LONGEST_ANSWER_ON_TERMINAL = 1000;

struct CommandLine {
  std::vector<std::string> code;
  std::vector<std::string> scripts;
  std::vector<std::string> transcripts;
  shell::CheckOptions checkOptions;
  std::string helpName;
  std::string colour = "auto";
  bool keepGoing = false;
  bool quiet = false;
  bool checkFirst = false;
  shell::Instrumentation instrumentation;
};

void defineOptions(CLI::App& app, CommandLine& line) {
  app.set_version_flag("--version", "kvf " KVF_VERSION);
  app.add_option("-e,--execute", line.code, "Run CODE and exit; may be repeated")
      ->type_name("CODE")
      ->allow_extra_args(false);
  app.add_flag("-k,--keep-going", line.keepGoing, "Go on after a raised error");
  app.add_flag("-q,--quiet", line.quiet, "Do not print the answers of statements");
  app.add_flag("--check-first", line.checkFirst,
               "Read each script whole before it runs, and run nothing of one with a syntax error");
  app.add_flag("--trace", line.instrumentation.trace,
               "Print each platform call of the module to standard error");
  app.add_option(
         "--fault", line.instrumentation.faultTexts,
         "Make a platform call fail, as \"lseek:2:EIO\"; may be repeated; \"list\" prints what "
         "can fail")
      ->type_name("NAME:COUNT:ACTION")
      ->allow_extra_args(false);
  app.add_option("--color", line.colour, "Show errors in colour: auto, always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}));
}

struct Commands {
  CLI::App* run;
  CLI::App* check;
  CLI::App* actions;
  CLI::App* help;
};

Commands defineCommands(CLI::App& app, CommandLine& line) {
  Commands commands{};
  app.fallthrough();  // before the commands are made, which take it over
  commands.run = app.add_subcommand("run", "Run scripts; \"-\" is standard input");
  commands.run->add_option("FILE", line.scripts, "Scripts, in one workspace")->required();
  commands.check = app.add_subcommand("check", "Replay transcripts and show differences");
  commands.check->add_option("FILE", line.transcripts, "Transcripts, .md or plain")->required();
  commands.check->add_flag("--show", line.checkOptions.show,
                           "Print text, statements and answers as they are replayed");
  commands.check
      ->add_option("--timeout", line.checkOptions.timeout,
                   "Stop a transcript after so many seconds; 0: never")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  commands.actions = app.add_subcommand("actions", "List the actions and exported functions");
  commands.help = app.add_subcommand("help", "Explain an action or exported function");
  commands.help->add_option("NAME", line.helpName, "Its name")->required();
  app.require_subcommand(0, 1);
  return commands;
}

int usageError(const std::string& message) {
  std::cerr << "kvf: " << message << "\nRun kvf --help for the options.\n";
  return EXIT_USAGE;
}

int showHelp(const std::string& name) {
  std::string text = shell::helpFor(name);
  if (text.empty()) {
    std::string nearest = shell::nearestName(name);
    return usageError(fmt::format("there is no action or function '{}'{}", name,
                                  nearest.empty() ? "" : "; did you mean " + nearest + "?"));
  }
  std::cout << text;
  return EXIT_DONE;
}

int exitCodeOf(shell::RunResult result) {
  switch (result) {
    case shell::RunResult::Success:
      return EXIT_DONE;
    case shell::RunResult::Failed:
      return EXIT_RAISED;
    case shell::RunResult::SyntaxFailed:
      break;
  }
  return EXIT_USAGE;
}

struct Script {
  std::string name;
  std::string path;
  std::optional<std::string> text;          // of one that is run as a whole
  std::unique_ptr<shell::ScriptFile> file;  // of one that has to be open before the first runs
};

int reportUnreadable(const std::string& name, const std::string& problem) {
  std::cerr << "kvf: " << name << ": " << problem << '\n';
  return EXIT_USAGE;
}

// All scripts are looked at before the first runs, so that a name that is wrong stops everything.
bool findScripts(const CommandLine& line, std::vector<Script>* scripts) {
  for (const std::string& code : line.code) scripts->push_back({"-e", "", code, nullptr});
  std::vector<std::string> files = line.scripts;
  if (line.code.empty() && files.empty()) files.emplace_back("-");
  for (const std::string& file : files) {
    bool isStandardInput = file == "-";
    Script script{isStandardInput ? "standard input" : file, file, std::nullopt, nullptr};
    std::string problem;
    bool isThere = line.checkFirst ? shell::readWholeFile(file, &script.text.emplace(), &problem)
                                   : shell::isReadable(file, &problem);
    if (!isThere) {
      reportUnreadable(file, problem);
      return false;
    }
    if (isStandardInput && !line.checkFirst)
      script.file = std::make_unique<shell::ScriptFile>(file);
    scripts->push_back(std::move(script));
  }
  return true;
}

int runScript(shell::Runner& runner, Script& script) {
  if (script.text) return exitCodeOf(runner.run(*script.text, script.name));
  try {
    if (script.file == nullptr) script.file = std::make_unique<shell::ScriptFile>(script.path);
    int code = exitCodeOf(runner.runAsRead(*script.file, script.name));
    script.file.reset();
    return code;
  } catch (const std::runtime_error& error) {
    return reportUnreadable(script.path, error.what());
  }
}

int runScripts(shell::Interpreter& interpreter, const shell::RunOptions& options,
               std::vector<Script>& scripts) {
  shell::Runner runner(interpreter, std::cerr, options);
  int worst = EXIT_DONE;
  for (Script& script : scripts) {
    worst = std::max(worst, runScript(runner, script));
    if (worst != EXIT_DONE && !options.keepGoing) break;
  }
  return worst;
}

shell::RunOptions runOptions(const CommandLine& line) {
  shell::RunOptions options;
  options.keepGoing = line.keepGoing;
  options.printAnswers = !line.quiet;
  options.colour = shell::wantsColour(line.colour);
  if (isatty(STDOUT_FILENO) != 0) options.longestAnswer = LONGEST_ANSWER_ON_TERMINAL;
  return options;
}

int runWorkspace(const CommandLine& line) {
  bool isInteractive = line.code.empty() && line.scripts.empty() && isatty(STDIN_FILENO) != 0;
  std::vector<Script> scripts;
  if (!isInteractive && !findScripts(line, &scripts)) return EXIT_USAGE;
  shell::RunOptions options = runOptions(line);
  shell::Interpreter interpreter(std::cout);
  line.instrumentation.apply();
  int code = EXIT_DONE;
  try {
    if (isInteractive) {
      options.places = false;
      code = shell::runInteractively(interpreter, options);
    } else {
      code = runScripts(interpreter, options, scripts);
    }
  } catch (const shell::QuitRequest& request) {
    code = request.exitCode;
  }
  std::cerr << line.instrumentation.describeUnfired(shell::Instrumentation::tallies());
  shell::Instrumentation::remove();
  return code;
}

int runCommand(const Commands& commands, CommandLine& line) {
  for (const std::string& text : line.instrumentation.faultTexts) {
    if (text == "list") {
      std::cout << seam::faultListing();
      return EXIT_DONE;
    }
    seam::Fault fault;
    std::string problem;
    if (!seam::parseFault(text, &fault, &problem)) return usageError("--fault: " + problem);
    line.instrumentation.faults.push_back(fault);
  }
  if (*commands.actions) {
    std::cout << shell::actionListing();
    return EXIT_DONE;
  }
  if (*commands.help) return showHelp(line.helpName);
  if (*commands.check)
    return shell::checkTranscripts(line.transcripts, line.checkOptions, line.instrumentation);
  return runWorkspace(line);
}

bool prepareModule() {
  kvhost::initialize();
  shell::containTestFaults();
  bool actionsDeclared = KvfUserActionInit() != 0;
  bool passiveActionsDeclared = KvfPassiveObjActionInit() != 0;
  return actionsDeclared && passiveActionsDeclared;
}

// The exit code, once all that was printed has arrived.
int finish(int code) {
  std::cout << std::flush;
  if (std::cout && std::fflush(stdout) == 0) return code;
  if (shell::isReaderGone(STDOUT_FILENO)) return shell::EXIT_READER_GONE;
  std::cerr << "kvf: standard output cannot be written\n";
  return std::max<int>(code, EXIT_RAISED);
}

int reportParseResult(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
  bool isExtra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
  bool mayBeScript = isExtra && app.get_subcommands().empty();
  return usageError(std::string(error.what()) +
                    (mayBeScript ? "; scripts are run by kvf run FILE" : ""));
}

// A write to a pipe that nobody reads then fails with EPIPE, and one beyond the limit of a file's size
// with EFBIG, as an action is to report it. A handler and not SIG_IGN, which commands started from here
// would inherit.
void outliveFailingWrites() {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
}

int realMain(int argc, char** argv) {
  shell::occupyStandardDescriptors();
  outliveFailingWrites();
  kvhost::setLockWaitSignal(SIGRTMIN + 6);  // nothing else here uses it, and deadlocks are told
  CommandLine line;
  CLI::App app(
      "A workspace for the file module: without arguments, interactive on a terminal, else "
      "it runs standard input as a script.",
      "kvf");
  defineOptions(app, line);
  Commands commands = defineCommands(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return finish(reportParseResult(app, error));
  }
  if (!line.code.empty() && (!app.get_subcommands().empty())) {
    return usageError("-e and a command exclude each other");
  }
  if (!prepareModule()) std::cerr << "kvf: some actions could not be declared\n";
  return finish(runCommand(commands, line));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return realMain(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "kvf: " << error.what() << '\n';
    return EXIT_RAISED;
  }
}
