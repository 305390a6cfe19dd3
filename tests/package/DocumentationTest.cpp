// The manual pages and the completions of shells know every command and option that "httppool --help" names.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "tests/package/Command.h"
#include "tests/support/Files.h"

namespace test {
namespace {

std::set<std::string> found(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  std::set<std::string> all;
  for (std::sregex_iterator at(text.begin(), text.end(), expression); at != std::sregex_iterator(); ++at) {
    all.insert((*at)[1].str());
  }
  return all;
}

const char* const kLongOption = "(--[a-z][a-z-]*)";

const std::string& help() {
  static const std::string text = outputOf({HTTPPOOL_PROGRAM, "--help"});
  return text;
}

std::set<std::string> options() {
  return found(help(), kLongOption);
}

std::set<std::string> commands() {
  return found(help(), "httppool ([a-z]+)");
}

/// What is in the first set and not in the second.
std::set<std::string> missing(const std::set<std::string>& wanted, const std::set<std::string>& there) {
  std::set<std::string> rest;
  std::set_difference(wanted.begin(), wanted.end(), there.begin(), there.end(),
                      std::inserter(rest, rest.end()));
  return rest;
}

const std::set<std::string> kNothing;

TEST(Help, NamesCommandsAndOptions) {
  EXPECT_EQ(missing({"get", "run", "demo", "trace"}, commands()), kNothing);
  EXPECT_EQ(missing({"--data", "--password-file", "--help", "--version"}, options()), kNothing);
}

/// As a terminal without letters in bold shows it.
std::string manualPage() {
  return outputOf({"/bin/sh", "-c", "mandoc -T ascii -O width=200 '" MANUAL_FOLDER "/httppool.1' | col -bx"});
}

TEST(ManualPage, NamesEveryOption) {
  EXPECT_EQ(missing(options(), found(manualPage(), kLongOption)), kNothing);
}

TEST(ManualPage, NamesNoOptionThatThereIsNot) {
  EXPECT_EQ(missing(found(manualPage(), kLongOption), options()), kNothing);
}

TEST(ManualPage, NamesEveryCommand) {
  EXPECT_EQ(missing(commands(), found(manualPage(), "httppool ([a-z]+)")), kNothing);
}

TEST(ManualPage, IsWellFormed) {
  for (const char* page : {"httppool.1", "zep-trust-panel.1"}) {
    EXPECT_EQ(outputOf({"mandoc", "-T", "lint", "-W", "warning", std::string(MANUAL_FOLDER "/") + page}), "");
  }
}

/// What bash offers after these words, the last of which is being written.
std::set<std::string> completionsOf(const std::string& words) {
  const std::string script = "source '" COMPLETION_FOLDER "/httppool' && COMP_WORDS=(" + words +
                             ") && COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && _httppool && "
                             "printf '%s\\n' \"${COMPREPLY[@]}\"";
  const std::vector<std::string> lines = linesOf(outputOf({"bash", "--norc", "-c", script}));
  return {lines.begin(), lines.end()};
}

TEST(BashCompletion, OffersEveryCommand) {
  EXPECT_EQ(missing(commands(), completionsOf("httppool ''")), kNothing);
}

TEST(BashCompletion, OffersEveryOptionOfSomeCommand) {
  std::set<std::string> offered;
  for (const std::string& command : commands()) {
    offered.merge(completionsOf("httppool " + command + " --"));
  }
  EXPECT_EQ(missing(options(), offered), kNothing);
  EXPECT_EQ(missing(offered, options()), kNothing);
}

TEST(BashCompletion, OffersWhatFits) {
  EXPECT_EQ(completionsOf("httppool get --tr"), (std::set<std::string>{"--trust-on-first-use"}));
  EXPECT_EQ(completionsOf("httppool demo --no"), (std::set<std::string>{""}));
  EXPECT_EQ(completionsOf("httppool get -X P"), (std::set<std::string>{"POST", "PUT", "PATCH"}));
}

TEST(ZshCompletion, NamesEveryCommandAndOption) {
  const std::string text = readFile(COMPLETION_FOLDER "/_httppool");
  EXPECT_EQ(missing(options(), found(text, kLongOption)), kNothing);
  EXPECT_EQ(missing(found(text, kLongOption), options()), kNothing);
  EXPECT_EQ(missing(commands(), found(text, "([a-z]+)\\\\:\"")), kNothing);
}

TEST(ZshCompletion, IsWellFormed) {
  EXPECT_EQ(outputOf({"zsh", "-f", "-n", COMPLETION_FOLDER "/_httppool"}), "");
}

}  // namespace
}  // namespace test
