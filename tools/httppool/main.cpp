// httppool: the library on the command line.

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "Arguments.h"
#include "CredentialPrompt.h"
#include "Demo.h"
#include "Interrupt.h"
#include "JobFile.h"
#include "JsonReport.h"
#include "LineReport.h"
#include "QuietReport.h"
#include "Runner.h"
#include "TableReport.h"
#include "TraceCommand.h"
#include "TrustPrompt.h"
#include "Usage.h"

namespace httppool {
namespace {

constexpr int kDone = 0;
constexpr int kNotDone = 1;
constexpr int kUnusable = 2;
constexpr int kSignalBase = 128;

int complain(const std::string& what, int status) {
  std::fprintf(stderr, "httppool: %s\n", what.c_str());
  return status;
}

std::unique_ptr<Report> makeReport(const Arguments& arguments, LineReport::Shape shape, Naming naming) {
  switch (arguments.output) {
    case Output::Json:
      return std::make_unique<JsonReport>();
    case Output::Quiet:
      return std::make_unique<QuietReport>(naming);
    case Output::Usual:
      break;
  }
  if (TableReport::isPossible()) {
    return std::make_unique<TableReport>(shape, naming, arguments.pools);
  }
  return std::make_unique<LineReport>(shape, naming);
}

int runPools(const Arguments& arguments, Report& report) {
  catchInterrupts();
  CredentialPrompt prompt(arguments.credentials);
  const Runner* running = nullptr;
  const TrustPrompt trustPrompt(arguments.trust,
                                [&] { return running ? running->lastDeadline() : std::nullopt; });
  Runner runner(arguments.pools, report, {arguments.limit, arguments.concurrency},
                {[&] { prompt.close(); }, [&] { prompt.open(); }});
  running = &runner;
  const Runner::Stop stop = runner.run();
  if (arguments.showSnapshot) {
    report.showSnapshot(snapshot());
  }
  switch (stop) {
    case Runner::Stop::Interrupted:
      return kSignalBase + caughtInterrupt();
    case Runner::Stop::Broken:
      return complain("the run loop could not be turned", kNotDone);
    case Runner::Stop::AllEnded:
      break;
  }
  return runner.isEveryTaskDone() ? kDone : kNotDone;
}

int get(const Arguments& arguments) {
  const auto& tasks = arguments.pools.front().tasks;
  const bool isSingleBody = tasks.size() == 1 && tasks.front().download.empty();
  const auto shape = isSingleBody ? LineReport::Shape::SingleBody : LineReport::Shape::Lines;
  return runPools(arguments, *makeReport(arguments, shape, Naming::Task));
}

int run(Arguments arguments) {
  JobFile file = readJobFile(arguments.jobFile);
  if (!file.error.empty()) {
    return complain(file.error, kUnusable);
  }
  arguments.pools = std::move(file.pools);
  return runPools(arguments, *makeReport(arguments, LineReport::Shape::Lines, Naming::PoolAndTask));
}

int demo() {
  const bool isAsPromised = runDemo();
  if (caughtInterrupt() != 0) {
    return kSignalBase + caughtInterrupt();
  }
  return isAsPromised ? kDone : kNotDone;
}

int main(int count, char** values) {
  const Arguments arguments = readArguments(count, values);
  if (!arguments.error.empty()) {
    return complain(arguments.error, kUnusable);
  }
  switch (arguments.command) {
    case Arguments::Command::Help:
      std::fputs(usage(), stdout);
      return kDone;
    case Arguments::Command::Version:
      std::puts("httppool " HTTPPOOL_VERSION);
      return kDone;
    case Arguments::Command::Get:
      return get(arguments);
    case Arguments::Command::Run:
      return run(arguments);
    case Arguments::Command::Demo:
      return demo();
    case Arguments::Command::Trace:
      return showTrace(arguments.trace);
  }
  return kUnusable;
}

}  // namespace
}  // namespace httppool

int main(int count, char** values) {
  try {
    return httppool::main(count, values);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "httppool: %s\n", exception.what());
    return 1;
  }
}
