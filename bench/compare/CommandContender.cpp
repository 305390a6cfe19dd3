// The commands curl and aria2c, each given a list of requests in a file. A first, short list tells how long the
// measured one has to be, unless it has taken the time already. All of a measured list counts, from the program's start
// to its end.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/compare/Contender.h"
#include "bench/compare/Numbers.h"
#include "bench/compare/Usage.h"
#include "tests/support/ChildProcess.h"

namespace {

using bench::Assignment;
using bench::Figures;

/// How a command is told what to do, and what became of it.
struct Command {
  int mostInFlight;
  void (*writeList)(const Assignment&, int count, const std::string& listFile);
  std::vector<std::string> (*arguments)(const Assignment&, int inFlight, const std::string& listFile);
  /// Good answers, and how long each took where the command says so.
  long (*countGood)(const Assignment&, const std::string& output, std::vector<double>& milliseconds);
  const char* note;
};

std::string targetOf(const Assignment& assignment, int number) {
  return assignment.work.kind == bench::Kind::Download ? "downloaded" : std::to_string(number);
}

void writeCurlList(const Assignment& assignment, int count, const std::string& listFile) {
  const bool isDownload = assignment.work.kind == bench::Kind::Download;
  std::ofstream list(listFile);
  for (int number = 0; number < count; ++number) {
    list << "url = \"" << assignment.url << "\"\noutput = \""
         << (isDownload ? assignment.downloadFile() : std::string("/dev/null")) << "\"\n";
  }
}

std::vector<std::string> curlArguments(const Assignment& assignment, int inFlight,
                                       const std::string& listFile) {
  std::vector<std::string> arguments = {"/usr/bin/curl",
                                        "-q",
                                        "--silent",
                                        "--no-progress-meter",
                                        "--parallel",
                                        "--parallel-max",
                                        std::to_string(inFlight),
                                        "--cacert",
                                        assignment.authorityFile,
                                        "--write-out",
                                        "%{http_code} %{size_download} %{time_total}\\n",
                                        "--config",
                                        listFile};
  if (assignment.work.protocol != bench::Protocol::Http2) {
    // Else all wait until the first answer tells whether its connection can be shared.
    arguments.emplace_back("--parallel-immediate");
  }
  return arguments;
}

long countCurlGood(const Assignment& assignment, const std::string& output,
                   std::vector<double>& milliseconds) {
  std::ifstream lines(output);
  long good = 0;
  int status = 0;
  long bytes = 0;
  double seconds = 0;
  while (lines >> status >> bytes >> seconds) {
    if (status == 200 && bytes == assignment.bodyBytes) {
      ++good;
      milliseconds.push_back(seconds * 1000);
    }
  }
  return good;
}

void writeAriaList(const Assignment& assignment, int count, const std::string& listFile) {
  std::ofstream list(listFile);
  for (int number = 0; number < count; ++number) {
    list << assignment.url << "\n  out=" << targetOf(assignment, number) << "\n";
  }
}

std::vector<std::string> ariaArguments(const Assignment& assignment, int inFlight,
                                       const std::string& listFile) {
  return {"/usr/bin/aria2c",
          "--no-conf",
          "--quiet",
          "--file-allocation=none",
          "--allow-overwrite=true",
          "--auto-save-interval=0",
          "--max-connection-per-server=1",
          "--max-concurrent-downloads=" + std::to_string(inFlight),
          "--max-download-result=0",
          "--ca-certificate=" + assignment.authorityFile,
          "--dir=" + assignment.folder,
          "--input-file=" + listFile};
}

long countAriaGood(const Assignment& assignment, const std::string&, std::vector<double>&) {
  long good = 0;
  for (const auto& file : std::filesystem::directory_iterator(assignment.folder)) {
    good += file.file_size() == static_cast<std::uintmax_t>(assignment.bodyBytes) ? 1 : 0;
  }
  return good;
}

constexpr Command kCurl = {300, writeCurlList, curlArguments, countCurlGood,
                           "The curl command runs at most 300 transfers at once. Its times are its own "
                           "(time_total), without what a request "
                           "waits for its turn."};
constexpr Command kAria = {1'000'000, writeAriaList, ariaArguments, countAriaGood,
                           "aria2c writes every body to a file of its own, does not tell how long a request "
                           "took, and knows HTTP/1.1 only."};

class Runner {
 public:
  Runner(const Command& command, const Assignment& assignment)
      : command_(command),
        assignment_(assignment),
        inFlight_(std::min(assignment.work.inFlight, command.mostInFlight)),
        own_(std::filesystem::path(assignment.folder).string() + ".command") {
    std::filesystem::create_directory(own_);
  }

  Figures run(int count);
  /// How many requests take about the wanted time, from what a shorter list took.
  int enoughFor(const Figures& trial, double seconds) const;
  int inFlight() const { return inFlight_; }

 private:
  void waitFor(test::ChildProcess& process, Figures& figures) const;

  const Command& command_;
  const Assignment& assignment_;
  int inFlight_;
  std::string own_;
};

void Runner::waitFor(test::ChildProcess& process, Figures& figures) const {
  while (!process.ended()) {
    figures.peakKilobytes = std::max(figures.peakKilobytes, bench::statusNumber(process.id(), "VmHWM:"));
    figures.threads =
        std::max(figures.threads, static_cast<int>(bench::statusNumber(process.id(), "Threads:")));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

Figures Runner::run(int count) {
  const std::string list = own_ + "/list";
  const std::string output = own_ + "/output";
  std::filesystem::remove(output);
  std::filesystem::remove_all(assignment_.folder);
  std::filesystem::create_directory(assignment_.folder);
  command_.writeList(assignment_, count, list);

  Figures figures;
  const bench::Usage before = bench::usageOf(RUSAGE_CHILDREN);
  const double begun = bench::now();
  test::ChildProcess process({.arguments = command_.arguments(assignment_, inFlight_, list),
                              .outputFile = output,
                              .raiseDescriptorLimit = true});
  waitFor(process, figures);
  figures.seconds = bench::now() - begun;
  const bench::Usage used = bench::usageOf(RUSAGE_CHILDREN) - before;
  figures.cpuSeconds = used.cpuSeconds;
  figures.voluntarySwitches = used.voluntarySwitches;
  figures.involuntarySwitches = used.involuntarySwitches;

  std::vector<double> milliseconds;
  figures.requests = count;
  figures.finished = command_.countGood(assignment_, output, milliseconds);
  figures.failed = count - figures.finished;
  figures.bytes = figures.finished * assignment_.bodyBytes;
  if (!milliseconds.empty()) {
    figures.medianMs = bench::percentile(milliseconds, 0.5);
    figures.p99Ms = bench::percentile(milliseconds, 0.99);
  }
  return figures;
}

int Runner::enoughFor(const Figures& trial, double seconds) const {
  constexpr int kMost = 100'000;
  return std::clamp(static_cast<int>(trial.perSecond() * seconds), inFlight_, std::max(kMost, inFlight_));
}

Figures runCommand(const Assignment& assignment) {
  if (assignment.command != "curl" && assignment.command != "aria2c") {
    throw std::runtime_error("no such command: " + assignment.command);
  }
  const Command& command = assignment.command == "curl" ? kCurl : kAria;
  Runner runner(command, assignment);
  if (assignment.seconds == 0) {
    return runner.run(1);
  }
  const int fewest = assignment.work.kind == bench::Kind::Held ? 1 : 100;
  const Figures trial = runner.run(std::max(fewest, runner.inFlight()));
  Figures figures = trial;
  if (trial.seconds < assignment.seconds) {
    figures = runner.run(runner.enoughFor(trial, assignment.seconds));
    figures.requests += trial.requests;
    figures.failed += trial.failed;
  }
  figures.note = command.note;
  return figures;
}

}  // namespace

int main(int count, char** words) {
  return bench::contenderMain(count, words, runCommand);
}
