#include "bench/compare/Comparison.h"

#include <json/reader.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bench/compare/Usage.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace bench {
namespace {

/// Whoever has not ended by then hangs.
double limitFor(const Work& work, double seconds) {
  return work.kind == Kind::Download ? 600 : 120 + 20 * seconds;
}

std::string programBeside(const std::string& name) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

/// What would send the requests elsewhere.
std::map<std::string, std::optional<std::string>> withoutProxies() {
  std::map<std::string, std::optional<std::string>> changes;
  for (const char* name :
       {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"}) {
    changes[name] = std::nullopt;
  }
  return changes;
}

/// One each for the connections, and some for the program itself.
std::string lackOfDescriptors(int inFlight) {
  constexpr rlim_t kOwn = 64;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t needed = static_cast<rlim_t>(inFlight) + kOwn;
  return limit.rlim_max >= needed ? ""
                                  : "needs " + std::to_string(needed) + " descriptors, the hard limit is " +
                                        std::to_string(limit.rlim_max);
}

}  // namespace

const std::vector<ContenderProgram>& contenderPrograms() {
  static const std::vector<ContenderProgram> all = {
      {"pool", "httpPool", "bench_contender_pool", nullptr},
      {kBareLoop, "bare curl multi loop", "bench_contender_curl", nullptr},
      {"soup", "libsoup 3", "bench_contender_soup", nullptr},
      {"qt", "Qt network", "bench_contender_qt", nullptr},
      {"curl", "curl --parallel", "bench_contender_command", "curl"},
      {"aria2c", "aria2c", "bench_contender_command", "aria2c"},
  };
  return all;
}

const ContenderProgram* contenderNamed(const std::string& name) {
  const auto& all = contenderPrograms();
  const auto found = std::find_if(all.begin(), all.end(), [&](const auto& one) { return name == one.name; });
  return found == all.end() ? nullptr : &*found;
}

Comparison::Comparison(const Settings& settings) : settings_(settings), server_(settings.downloadBytes) {
}

void Comparison::run() {
  const std::size_t count = settings_.contenders.size();
  std::size_t first = 0;
  for (int repetition = 0; repetition < settings_.repetitions; ++repetition) {
    for (const Work& work : settings_.works) {
      for (std::size_t turn = 0; turn < count; ++turn) {
        const ContenderProgram& contender = *settings_.contenders[(first + turn) % count];
        std::fprintf(stderr, "%d/%d %s: %s\n", repetition + 1, settings_.repetitions, work.name.c_str(),
                     contender.title);
        runCell(work, contender);
      }
      ++first;
    }
  }
}

void Comparison::runCell(const Work& work, const ContenderProgram& contender) {
  Cell& cell = cells_[{work.name, contender.name}];
  cell.failure = cell.failure.empty() ? lackOfDescriptors(work.inFlight) : cell.failure;
  if (!cell.failure.empty()) {
    return;
  }
  const std::string downloads = folder_.file("downloads");
  std::filesystem::create_directory(downloads);
  std::vector<std::string> arguments = {programBeside(contender.program),
                                        "--work",
                                        work.name,
                                        "--url",
                                        server_.urlOf(work),
                                        "--authority",
                                        server_.authorityFile(),
                                        "--seconds",
                                        work.kind == Kind::Download ? "0" : std::to_string(settings_.seconds),
                                        "--body-bytes",
                                        std::to_string(server_.bodyBytesOf(work)),
                                        "--folder",
                                        downloads};
  if (contender.command != nullptr) {
    arguments.insert(arguments.end(), {"--command", contender.command});
  }
  const long before = server_.requestsSeen();
  int threads = 0;
  const std::optional<Json::Value> result = runProgram(arguments, limitFor(work, settings_.seconds), threads);
  std::filesystem::remove_all(downloads);
  if (!result) {
    cell.failure = whatItSaid();
    return;
  }
  cell.seenByServer += server_.requestsSeen() - before;
  cell.runs.push_back(Figures::fromJson(*result));
  if (contender.command == nullptr) {
    cell.runs.back().threads = threads;
  }
}

std::optional<Json::Value> Comparison::runProgram(const std::vector<std::string>& arguments,
                                                  double limitSeconds, int& threads) {
  const std::string file = folder_.file("result");
  for (const std::string& old : {file, folder_.file("said")}) {
    std::filesystem::remove(old);
  }
  std::vector<std::string> all = arguments;
  all.insert(all.end(), {"--result", file});
  test::ChildProcess process({.arguments = all,
                              .environment = withoutProxies(),
                              .outputFile = folder_.file("said"),
                              .raiseDescriptorLimit = true});
  const double limit = now() + limitSeconds;
  while (!process.ended() && now() < limit) {
    threads = std::max(threads, static_cast<int>(statusNumber(process.id(), "Threads:")));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (process.ended() != test::ChildProcess::End{.exitStatus = 0}) {
    return std::nullopt;
  }
  Json::Value result;
  std::ifstream(file) >> result;
  return result;
}

std::string Comparison::whatItSaid() const {
  const std::string file = folder_.file("said");
  const std::string text = test::fileExists(file) ? test::readFile(file) : "";
  return text.empty() ? "did not end" : text.substr(0, text.find('\n'));
}

Json::Value Comparison::ask(const std::string& question, int tasks) {
  std::fprintf(stderr, "pool, %s: %d tasks\n", question.c_str(), tasks);
  const bool waits = question == "wait";
  int threads = 0;
  const std::optional<Json::Value> answer =
      runProgram({programBeside("bench_pool_probe"), "--ask", question, "--tasks", std::to_string(tasks),
                  "--seconds", std::to_string(settings_.seconds), "--port", std::to_string(server_.port()),
                  "--url", waits ? server_.silentUrl() : server_.urlOf({.name = "h1-1"})},
                 limitFor({}, settings_.seconds), threads);
  if (!answer) {
    std::fprintf(stderr, "%s\n", whatItSaid().c_str());
  }
  return answer.value_or(Json::Value());
}

const Cell* Comparison::cell(const std::string& work, const std::string& contender) const {
  const auto found = cells_.find({work, contender});
  return found == cells_.end() ? nullptr : &found->second;
}

}  // namespace bench
