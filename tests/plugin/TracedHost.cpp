#include "tests/plugin/TracedHost.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "tests/support/Files.h"

namespace test {
namespace {

/// The digits of a match as a number.
int number(const std::smatch& match, std::size_t group) {
  return std::stoi(match[group]);
}

TracedLine parsed(const std::smatch& match) {
  using namespace std::chrono;
  const sys_days day = year(number(match, 1)) / number(match, 2) / number(match, 3);
  const minutes offset = hours(number(match, 9)) + minutes(number(match, 10));
  const auto time = day + hours(number(match, 4)) + minutes(number(match, 5)) + seconds(number(match, 6)) +
                    microseconds(number(match, 7));
  return {.time = match[8] == "-" ? time + offset : time - offset,
          .offset = match[8].str() + match[9].str() + ":" + match[10].str(),
          .letter = match[11].str()[0],
          .process = number(match, 12),
          .thread = number(match, 13),
          .name = match[14],
          .text = match[15]};
}

}  // namespace

std::vector<TracedLine> tracedLines(const std::string& trace) {
  static const std::regex form(
      R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)\.(\d{6})([+-])(\d\d):(\d\d) ([DIWE]) (\d+)/(\d+) ([^ ]+) \| )"
      R"(([^\x00-\x1f\x7f]*))",
      std::regex::optimize);
  std::vector<TracedLine> lines;
  for (std::size_t at = 0; at < trace.size();) {
    const std::size_t end = trace.find('\n', at);
    if (end == std::string::npos) {
      ADD_FAILURE() << "no line end: " << trace.substr(at, 300);
      break;
    }
    const std::string line = trace.substr(at, end - at);
    // The expression would go through a long text by recursion.
    const std::string front = line.substr(0, 300);
    std::smatch match;
    if (std::regex_match(front, match, form)) {
      lines.push_back(parsed(match));
      lines.back().text += line.substr(front.size());
    } else {
      ADD_FAILURE() << "not the form of a line: " << front;
    }
    at = end + 1;
  }
  return lines;
}

std::vector<std::string> textsOf(const std::vector<TracedLine>& lines) {
  std::vector<std::string> texts;
  for (const TracedLine& line : lines) {
    texts.push_back(line.text);
  }
  return texts;
}

TracedHost::TracedHost(const std::string& program) {
  std::filesystem::create_directories(path("X/Contents/MacOS"));
  std::filesystem::create_directories(path("X/Contents/PlugIns"));
  std::filesystem::copy_file(program, path("X/Contents/MacOS/host"));
  std::filesystem::copy_file(TRACE_PLUGIN, path("X/Contents/PlugIns/qlxtracedylib.dylib"));
}

ChildProcess::Options TracedHost::options(std::vector<std::string> arguments, Environment environment) const {
  arguments.insert(arguments.begin(), path("X/Contents/MacOS/host"));
  environment.try_emplace("QLX_TRACE_FILE", file());
  environment.try_emplace("QLX_TRACE_LEVEL", std::nullopt);
  environment.try_emplace("QLX_TRACE_MAX_BYTES", std::nullopt);
  return {.arguments = std::move(arguments),
          .environment = std::move(environment),
          .workingFolder = folder_.path()};
}

std::string TracedHost::run(std::vector<std::string> arguments, Environment environment) const {
  const TemporaryFolder output;
  ChildProcess::Options options = this->options(std::move(arguments), std::move(environment));
  options.outputFile = output.file("output");
  ChildProcess host(options);
  const auto end = host.wait(std::chrono::minutes(2));
  const std::string printed = readFile(options.outputFile);
  EXPECT_TRUE(end.has_value()) << "it does not end; " << printed;
  EXPECT_EQ(end.value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0, .signal = 0})) << printed;
  return printed;
}

std::vector<TracedLine> TracedHost::lines() const {
  return tracedLines(fileExists(file()) ? readFile(file()) : "");
}

}  // namespace test
