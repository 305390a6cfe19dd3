#include "Arguments.h"

#include <string_view>
#include <unordered_set>
#include <utility>

#include "CommandLine.h"
#include "OptionValues.h"
#include "PasswordFile.h"
#include "TerminalText.h"

namespace httppool {
namespace {

using Option = CommandLine::Option;
using Options = std::vector<Option>;
constexpr auto kNoValue = CommandLine::Value::No;
constexpr auto kValue = CommandLine::Value::Yes;

// One command line's reading; the first thing wrong is kept.
class Reading {
 public:
  Reading(int count, char* const* values) : line_(count, values) {}

  Arguments result() {
    readCommand();
    if (!isOver()) {
      finishCommand();
      takeCredentials();
    }
    return arguments_;
  }

 private:
  void fail(const std::string& what) {
    if (arguments_.error.empty()) {
      arguments_.error = what;
    }
  }

  bool isOver() const { return !arguments_.error.empty() || isAnswered_; }

  // Options before the command are --help and --version only.
  void readCommand() {
    readOptions(commonOptions(), CommandLine::Order::OptionsFirst);
    if (isOver()) {
      return;
    }
    const std::vector<std::string> operands = line_.operands();
    if (operands.empty()) {
      return fail("no command; try --help");
    }
    line_ = line_.fromFirstOperand();
    const std::string& command = operands.front();
    if (command == "get") {
      readCommand(Arguments::Command::Get, getOptions());
    } else if (command == "run") {
      readCommand(Arguments::Command::Run, runOptions());
    } else if (command == "demo") {
      readCommand(Arguments::Command::Demo, {});
    } else if (command == "trace") {
      readCommand(Arguments::Command::Trace, traceOptions());
    } else {
      fail("unknown command \"" + escaped(command) + "\"; try --help");
    }
  }

  void readCommand(Arguments::Command command, Options options) {
    arguments_.command = command;
    for (Option& option : commonOptions()) {
      options.push_back(std::move(option));
    }
    readOptions(options, CommandLine::Order::Any);
    operands_ = line_.operands();
  }

  void readOptions(const Options& options, CommandLine::Order order) {
    const std::string complaint = line_.readOptions(options, order, [this] { return isOver(); });
    if (!complaint.empty()) {
      fail(complaint);
    }
  }

  Options commonOptions() {
    return {{"help", 'h', kNoValue, [this](const char*) { answer(Arguments::Command::Help); }},
            {"version", '\0', kNoValue, [this](const char*) { answer(Arguments::Command::Version); }}};
  }

  Options runOptions() {
    return {{"concurrency", '\0', kValue, [this](const char* text) { takeConcurrency(text); }},
            {"timeout", '\0', kValue, [this](const char* text) { takeTimeout(text); }},
            {"quiet", 'q', kNoValue, [this](const char*) { takeOutput(Output::Quiet); }},
            {"json", '\0', kNoValue, [this](const char*) { takeOutput(Output::Json); }},
            {"snapshot", '\0', kNoValue, [this](const char*) { arguments_.showSnapshot = true; }},
            {"user", '\0', kValue, [this](const char* name) { user_ = name; }},
            {"password-file", '\0', kValue, [this](const char* file) { passwordFile_ = file; }},
            {"trust-on-first-use", '\0', kNoValue, [this](const char*) { takeTrust(Trust::OnFirstUse); }},
            {"no-trust", '\0', kNoValue, [this](const char*) { takeTrust(Trust::No); }}};
  }

  Options getOptions() {
    Options options{
        {"data", 'd', kValue, [this](const char* text) { request_.post = text; }},
        {"data-file", '\0', kValue, [this](const char* file) { takeProblem(readBody(file, request_)); }},
        {"header", 'H', kValue, [this](const char* field) { takeHeader(field); }},
        {"method", 'X', kValue, [this](const char* method) { request_.method = method; }},
        {"output", 'o', kValue, [this](const char* file) { takeFile("-o", file, request_.download); }}};
    for (Option& option : runOptions()) {
      options.push_back(std::move(option));
    }
    return options;
  }

  Options traceOptions() {
    return {{"request", '\0', kValue, [this](const char* text) { takeRequest(text); }},
            {"svg", '\0', kValue,
             [this](const char* file) { takeFile("--svg", file, arguments_.trace.picture); }}};
  }

  void answer(Arguments::Command command) {
    arguments_.command = command;
    isAnswered_ = true;
  }

  void takeProblem(const std::optional<std::string>& problem) {
    if (problem) {
      fail(*problem);
    }
  }

  void takeFile(const std::string& option, const std::string& file, std::string& taken) {
    taken = file;
    if (file.empty()) {
      fail(option + " needs the name of a file");
    }
  }

  void takeHeader(std::string_view text) {
    if (const auto field = headerFieldFrom(text)) {
      request_.headers.push_back(*field);
    } else {
      fail("-H \"" + escaped(text) + "\" is not of the form 'Name: value'");
    }
  }

  void takeConcurrency(std::string_view text) {
    if (const auto number = numberFrom(text)) {
      arguments_.concurrency = *number;
    } else {
      fail("--concurrency \"" + escaped(text) + "\" is not a number of tasks, 1 or more");
    }
  }

  void takeTimeout(std::string_view text) {
    arguments_.limit = timeFrom(text);
    if (!arguments_.limit) {
      fail("--timeout \"" + escaped(text) + "\" is not a number of seconds between 0 and 1000000");
    }
  }

  void takeRequest(std::string_view text) {
    arguments_.trace.request = numberFrom(text);
    if (!arguments_.trace.request) {
      fail("--request \"" + escaped(text) + "\" is not the number of a request");
    }
  }

  void takeOutput(Output output) {
    if (arguments_.output != Output::Usual && arguments_.output != output) {
      return fail("--quiet and --json exclude each other");
    }
    arguments_.output = output;
  }

  void takeTrust(Trust trust) {
    if (arguments_.trust != Trust::Ask && arguments_.trust != trust) {
      return fail("--trust-on-first-use and --no-trust exclude each other");
    }
    arguments_.trust = trust;
  }

  void takeCredentials() {
    if (user_.has_value() != passwordFile_.has_value()) {
      return fail("--user and --password-file are given together or not at all");
    }
    if (!user_ || !arguments_.error.empty()) {
      return;
    }
    if (user_->empty()) {
      return fail("--user needs a name");
    }
    if (!isUtf8(*user_)) {
      return fail("--user \"" + oneLine(*user_) + "\" is not UTF-8");
    }
    Credentials credentials{*user_, {}};
    takeProblem(readPassword(*passwordFile_, credentials.password));
    arguments_.credentials = std::move(credentials);
  }

  void finishCommand() {
    switch (arguments_.command) {
      case Arguments::Command::Get:
        return operands_.empty() ? fail("get needs a URL") : finishGet();
      case Arguments::Command::Run:
        if (operands_.size() != 1) {
          return fail("run needs one job file");
        }
        arguments_.jobFile = operands_.front();
        return;
      case Arguments::Command::Demo:
        return operands_.empty() ? void() : fail("demo takes no arguments");
      case Arguments::Command::Trace:
        arguments_.trace.files = operands_;
        return operands_.empty() ? fail("trace needs a file") : void();
      default:
        return;
    }
  }

  void finishGet() {
    PoolJob pool{"get", {}};
    std::unordered_set<std::string> names;
    for (const std::string& url : operands_) {
      TaskJob task = request_;
      task.url = url;
      task.name = url;
      for (int time = 2; !names.insert(task.name).second; ++time) {
        task.name = url + " (" + std::to_string(time) + ")";
      }
      takeProblem(reasonAgainst(task));
      pool.tasks.push_back(std::move(task));
    }
    if (!request_.download.empty()) {
      if (pool.tasks.size() > 1) {
        return fail("-o takes one URL only");
      }
      takeProblem(reasonAgainstTarget(request_.download));
    }
    arguments_.pools.push_back(std::move(pool));
  }

  CommandLine line_;
  std::vector<std::string> operands_;
  Arguments arguments_;
  TaskJob request_;
  std::optional<std::string> user_;
  std::optional<std::string> passwordFile_;
  bool isAnswered_ = false;  // --help or --version: nothing else counts
};

}  // namespace

Arguments readArguments(int count, char* const* values) {
  return Reading(count, values).result();
}

}  // namespace httppool
