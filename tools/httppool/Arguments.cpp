#include "Arguments.h"

#include <getopt.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include "PasswordFile.h"
#include "TerminalText.h"

namespace httppool {
namespace {

enum Option { kData = 'd', kHeader = 'H', kOutput = 'o', kMethod = 'X', kHelp = 'h' };
enum LongOnlyOption {
  kDataFile = 256,
  kTimeout,
  kSnapshot,
  kUser,
  kPasswordFile,
  kTrustOnFirstUse,
  kNoTrust,
  kRequest,
  kSvg,
  kVersion
};

const option kCommonOptions[] = {{"help", no_argument, nullptr, kHelp},
                                 {"version", no_argument, nullptr, kVersion},
                                 {nullptr, 0, nullptr, 0}};
const option kTraceOptions[] = {{"request", required_argument, nullptr, kRequest},
                                {"svg", required_argument, nullptr, kSvg},
                                {"help", no_argument, nullptr, kHelp},
                                {"version", no_argument, nullptr, kVersion},
                                {nullptr, 0, nullptr, 0}};
const option kRunOptions[] = {{"timeout", required_argument, nullptr, kTimeout},
                              {"snapshot", no_argument, nullptr, kSnapshot},
                              {"user", required_argument, nullptr, kUser},
                              {"password-file", required_argument, nullptr, kPasswordFile},
                              {"trust-on-first-use", no_argument, nullptr, kTrustOnFirstUse},
                              {"no-trust", no_argument, nullptr, kNoTrust},
                              {"help", no_argument, nullptr, kHelp},
                              {"version", no_argument, nullptr, kVersion},
                              {nullptr, 0, nullptr, 0}};
const option kGetOptions[] = {{"data", required_argument, nullptr, kData},
                              {"data-file", required_argument, nullptr, kDataFile},
                              {"header", required_argument, nullptr, kHeader},
                              {"method", required_argument, nullptr, kMethod},
                              {"output", required_argument, nullptr, kOutput},
                              {"timeout", required_argument, nullptr, kTimeout},
                              {"snapshot", no_argument, nullptr, kSnapshot},
                              {"user", required_argument, nullptr, kUser},
                              {"password-file", required_argument, nullptr, kPasswordFile},
                              {"trust-on-first-use", no_argument, nullptr, kTrustOnFirstUse},
                              {"no-trust", no_argument, nullptr, kNoTrust},
                              {"help", no_argument, nullptr, kHelp},
                              {"version", no_argument, nullptr, kVersion},
                              {nullptr, 0, nullptr, 0}};

// One command line's reading; the first thing wrong is kept.
class Reading {
 public:
  Reading(int count, char* const* values) : count_(count), values_(values) {}

  Arguments result() {
    readCommand();
    if (arguments_.error.empty() && !isAnswered_) {
      finish();
    }
    return arguments_;
  }

 private:
  void fail(const std::string& what) {
    if (arguments_.error.empty()) {
      arguments_.error = what;
    }
  }

  // Options before the command are --help and --version only.
  void readCommand() {
    readOptions("+:h", kCommonOptions);
    if (!arguments_.error.empty() || isAnswered_) {
      return;
    }
    if (optind >= count_) {
      return fail("no command; try --help");
    }
    const std::string_view command = values_[optind];
    count_ -= optind;
    values_ += optind;
    if (command == "get") {
      arguments_.command = Arguments::Command::Get;
      readOptions(":d:H:o:X:h", kGetOptions);
    } else if (command == "run") {
      arguments_.command = Arguments::Command::Run;
      readOptions(":h", kRunOptions);
    } else if (command == "demo") {
      arguments_.command = Arguments::Command::Demo;
      readOptions(":h", kCommonOptions);
    } else if (command == "trace") {
      arguments_.command = Arguments::Command::Trace;
      readOptions(":h", kTraceOptions);
    } else {
      fail("unknown command \"" + escaped(command) + "\"; try --help");
    }
  }

  void readOptions(const char* shortOptions, const option* longOptions) {
    optind = 0;  // starts anew, also getopt's own reordering
    opterr = 0;
    // Only the main thread reads arguments.
    for (int found = 0; (found = getopt_long(count_, values_, shortOptions, longOptions, nullptr)) !=
                        -1;) {  // NOLINT(concurrency-mt-unsafe)
      if (found == '?' || found == ':') {
        const bool isShort = optopt > 0 && optopt < kDataFile;
        const std::string name =
            isShort ? "-" + escaped(std::string(1, static_cast<char>(optopt))) : escaped(values_[optind - 1]);
        return fail(found == ':' ? "option " + name + " needs a value"
                                 : "option " + name + " is not known here");
      }
      take(found);
      if (!arguments_.error.empty() || isAnswered_) {
        return;
      }
    }
  }

  void take(int found) {
    switch (found) {
      case kHelp:
        return answer(Arguments::Command::Help);
      case kVersion:
        return answer(Arguments::Command::Version);
      case kData:
        request_.post = optarg;
        return;
      case kDataFile:
        return takeProblem(readBody(optarg, request_));
      case kHeader:
        return takeHeader(optarg);
      case kMethod:
        request_.method = optarg;
        return;
      case kOutput:
        request_.download = optarg;
        return *optarg == '\0' ? fail("-o needs the name of a file") : void();
      case kTimeout:
        return takeTimeout(optarg);
      case kSnapshot:
        arguments_.showSnapshot = true;
        return;
      case kUser:
        user_ = optarg;
        return;
      case kPasswordFile:
        passwordFile_ = optarg;
        return;
      case kTrustOnFirstUse:
        return takeTrust(Trust::OnFirstUse);
      case kNoTrust:
        return takeTrust(Trust::No);
      case kRequest:
        return takeRequest(optarg);
      case kSvg:
        arguments_.trace.picture = optarg;
        return *optarg == '\0' ? fail("--svg needs the name of a file") : void();
      default:
        return;
    }
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

  void takeHeader(std::string_view field) {
    const std::size_t colon = field.find(':');
    if (colon == std::string_view::npos) {
      return fail("-H \"" + escaped(field) + "\" is not of the form 'Name: value'");
    }
    const std::string_view value = field.substr(colon + 1);
    const std::size_t first = value.find_first_not_of(" \t");
    const std::size_t last = value.find_last_not_of(" \t");
    request_.headers.push_back(
        {std::string(field.substr(0, colon)),
         std::string(first == std::string_view::npos ? "" : value.substr(first, last - first + 1))});
  }

  void takeTimeout(std::string_view text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    constexpr double kLongest = 1e6;
    if (error != std::errc() || end != text.data() + text.size() || !(seconds > 0 && seconds <= kLongest)) {
      return fail("--timeout \"" + escaped(text) + "\" is not a number of seconds between 0 and 1000000");
    }
    arguments_.limit = std::chrono::milliseconds(static_cast<long>(std::ceil(seconds * 1000)));
  }

  void takeRequest(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0) {
      return fail("--request \"" + escaped(text) + "\" is not the number of a request");
    }
    arguments_.trace.request = number;
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

  void finish() {
    finishCommand();
    takeCredentials();
  }

  void finishCommand() {
    const int operands = count_ - optind;
    switch (arguments_.command) {
      case Arguments::Command::Get:
        return operands == 0 ? fail("get needs a URL") : finishGet();
      case Arguments::Command::Run:
        if (operands != 1) {
          return fail("run needs one job file");
        }
        arguments_.jobFile = values_[optind];
        return;
      case Arguments::Command::Demo:
        return operands == 0 ? void() : fail("demo takes no arguments");
      case Arguments::Command::Trace:
        arguments_.trace.files.assign(values_ + optind, values_ + count_);
        return operands == 0 ? fail("trace needs a file") : void();
      default:
        return;
    }
  }

  void finishGet() {
    PoolJob pool{"get", {}};
    std::unordered_set<std::string> names;
    for (int index = optind; index < count_; ++index) {
      TaskJob task = request_;
      task.url = values_[index];
      task.name = task.url;
      for (int time = 2; !names.insert(task.name).second; ++time) {
        task.name = task.url + " (" + std::to_string(time) + ")";
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

  int count_;
  char* const* values_;
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

const char* usage() {
  return R"(httppool: HTTP requests as named tasks in named pools

usage: httppool get URL... [options]     request each URL, all side by side
       httppool run JOBS.json [options]  run the pools and tasks of a job file
       httppool demo                     show and check the library against an origin of its own
       httppool trace FILE... [options]  show the requests of trace logs, one after another; "-" is stdin
       httppool --help | --version

options of get:
  -d, --data TEXT          send TEXT as the body
      --data-file FILE     send the bytes of FILE as the body
  -H, --header 'NAME: VALUE'  send a header field; may be given several times
  -X, --method METHOD      the method; without it GET, and POST with a body
  -o, --output FILE        write the body of the answer to FILE (one URL, no body)
options of get and run:
      --timeout SECONDS    reset what is still running then
      --snapshot           show the library's snapshot of all pools at the end
      --user NAME          with --password-file: answer a server that asks for a password; without the two
      --password-file FILE   the terminal is asked. The password is the first line of FILE, "-" is stdin
      --trust-on-first-use accept certificates that cannot be verified, if they are for the right host
      --no-trust           accept none; without the two the terminal is asked
options of trace:
      --request N          only the request of that number
      --svg OUT            draw a timeline into OUT in place of the text; "-" is stdout

A task takes one line: status, elapsed time, name, result. With a single URL and without -o the body goes to
stdout and the line to stderr.

A job file is {"pools": [{"name": ..., "tasks": [{"name": ..., "url": ..., "method": ..., "headers": {NAME: VALUE},
"post": TEXT, "dataFile": FILE, "download": FILE}]}]}; name and url are required. Paths are taken from the current
folder.

exit status: 0 every task was done, 1 one was not, 2 arguments or job file cannot be used,
             130 (143) stopped by SIGINT (SIGTERM); of trace: 0, 1 no request in it, 2 a file cannot be used
)";
}

}  // namespace httppool
