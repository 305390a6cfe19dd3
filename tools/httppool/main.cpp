// httppool: the library on the command line.

#include <cstdio>
#include <exception>
#include <string>

#include "Arguments.h"
#include "CredentialPrompt.h"
#include "Demo.h"
#include "Interrupt.h"
#include "JobFile.h"
#include "Report.h"
#include "Runner.h"
#include "TraceCommand.h"
#include "TrustPrompt.h"

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

int runPools(const Arguments& arguments, Report& report) {
  catchInterrupts();
  CredentialPrompt prompt(arguments.credentials);
  const TrustPrompt trustPrompt(arguments.trust, arguments.limit);
  Runner runner(
      arguments.pools, [&](const TaskOutcome& outcome) { report.show(outcome); }, [&] { prompt.close(); });
  const Runner::Stop stop = runner.run(arguments.limit);
  if (arguments.showSnapshot) {
    report.showLine(snapshot());
  }
  switch (stop) {
    case Runner::Stop::Interrupted:
      return kSignalBase + caughtInterrupt();
    case Runner::Stop::Broken:
      return complain("the run loop could not be turned", kNotDone);
    case Runner::Stop::AllEnded:
    case Runner::Stop::TimedOut:
      break;
  }
  return report.isEveryTaskDone() ? kDone : kNotDone;
}

int get(const Arguments& arguments) {
  const auto& tasks = arguments.pools.front().tasks;
  const bool isSingleBody = tasks.size() == 1 && tasks.front().download.empty();
  Report report(isSingleBody ? Report::Shape::SingleBody : Report::Shape::Lines, Report::Naming::Task);
  return runPools(arguments, report);
}

int run(Arguments arguments) {
  JobFile file = readJobFile(arguments.jobFile);
  if (!file.error.empty()) {
    return complain(file.error, kUnusable);
  }
  arguments.pools = std::move(file.pools);
  Report report(Report::Shape::Lines, Report::Naming::PoolAndTask);
  return runPools(arguments, report);
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
