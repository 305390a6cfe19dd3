#include "tests/plugin/TracedHost.h"

#include <gtest/gtest.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "tests/support/Files.h"

namespace test {
namespace {

using Fields = std::array<std::string, 16>;

/// The fields of a line, from 1 on; none when it has not the form of a line. std::regex would go through a long text by
/// recursion, and sanitized it does not compile without warnings.
std::optional<Fields> fieldsOf(const std::string& line) {
  constexpr std::size_t kFrontBytes = 300;
  constexpr const char* kForm =
      "^([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]{2})[.]([0-9]{6})([+-])([0-9]{2}):"
      "([0-9]{2}) ([DIWE]) ([0-9]+)/([0-9]+) ([^ ]+) [|] (.*)$";
  static const regex_t form = [] {
    regex_t compiled;
    if (regcomp(&compiled, kForm, REG_EXTENDED) != 0) {
      throw std::logic_error("the form of a line is no expression");
    }
    return compiled;
  }();
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  std::array<regmatch_t, std::tuple_size_v<Fields>> matches{};
  const std::string front = line.substr(0, kFrontBytes);
  if (std::any_of(line.begin(), line.end(), isControl) ||
      regexec(&form, front.c_str(), matches.size(), matches.data(), 0) != 0) {
    return std::nullopt;
  }
  Fields fields;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    fields[i] = front.substr(matches[i].rm_so, matches[i].rm_eo - matches[i].rm_so);
  }
  fields.back() += line.substr(front.size());
  return fields;
}

TracedLine parsed(const Fields& fields) {
  using namespace std::chrono;
  const auto number = [&](std::size_t field) { return std::stoi(fields[field]); };
  const sys_days day = year(number(1)) / number(2) / number(3);
  const minutes offset = hours(number(9)) + minutes(number(10));
  const auto time =
      day + hours(number(4)) + minutes(number(5)) + seconds(number(6)) + microseconds(number(7));
  return {.time = fields[8] == "-" ? time + offset : time - offset,
          .offset = fields[8] + fields[9] + ":" + fields[10],
          .letter = fields[11][0],
          .process = number(12),
          .thread = number(13),
          .name = fields[14],
          .text = fields[15]};
}

}  // namespace

std::vector<TracedLine> tracedLines(const std::string& trace) {
  std::vector<TracedLine> lines;
  for (std::size_t at = 0; at < trace.size();) {
    const std::size_t end = trace.find('\n', at);
    if (end == std::string::npos) {
      ADD_FAILURE() << "no line end: " << trace.substr(at, 300);
      break;
    }
    const std::string line = trace.substr(at, end - at);
    if (const std::optional<Fields> fields = fieldsOf(line)) {
      lines.push_back(parsed(*fields));
    } else {
      ADD_FAILURE() << "not the form of a line: " << line.substr(0, 300);
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
