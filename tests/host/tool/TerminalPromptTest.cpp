// What a person at the terminal is asked, and what the library is answered.

#include <gtest/gtest.h>

#include <csignal>
#include <ostream>
#include <string>
#include <vector>

#include "Asker.h"
#include "OnTerminal.h"
#include "tests/support/WaitUntil.h"

namespace tooltest {
namespace {

const std::string kUser = "User name (empty to skip): ";
const std::string kPassword = "Password: ";
const std::string kRemember = "Remember for the other requests of this run? [y/N] ";
const std::string kSkipped = "a: skip\n";

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Waits for each question and types its answer.
void answerAll(Pty& terminal, const std::string& user, const std::string& password,
               const std::string& remember, int time = 1) {
  ASSERT_TRUE(terminal.waitFor(kUser, time));
  terminal.type(user + "\n");
  ASSERT_TRUE(terminal.waitFor(kPassword, time));
  EXPECT_FALSE(terminal.isEchoing());
  terminal.type(password + "\n");
  ASSERT_TRUE(terminal.waitFor(kRemember, time));
  EXPECT_TRUE(terminal.isEchoing());
  terminal.type(remember + "\n");
}

TEST(TerminalPrompt, AsksAndHidesThePassword) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  answerAll(host.terminal(), "ann", "open sesame", "");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "a: " + answerText("ann", "open sesame", true) + "\n");
  EXPECT_EQ(result.shown, "A server asks for a user name and a password.\r\n" + kUser + "ann\r\n" +
                              kPassword + "\r\n" + kRemember + "\r\n");
  EXPECT_TRUE(result.isRestored);
}

TEST(TerminalPrompt, PassesEveryCharacterOn) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  answerAll(host.terminal(), "J\xc3\xbcrgen \"the\" \\", "p\"\\\x01\xe4\xb8\x96", "");
  EXPECT_EQ(host.wait().out, "a: " +
                                 answerText(R"(J)"
                                            "\xc3\xbc"
                                            R"(rgen \"the\" \\)",
                                            R"(p\"\\\u0001)"
                                            "\xe4\xb8\x96",
                                            true) +
                                 "\n");
}

struct Remembering {
  std::string typed;
  bool rememberOfTheLibrary;
};

void PrintTo(const Remembering& remembering, std::ostream* stream) {
  *stream << '"' << remembering.typed << '"';
}

class RememberQuestion : public testing::TestWithParam<Remembering> {};

// The library keeps an answer for the run when "Remember" is false.
TEST_P(RememberQuestion, HasTheLibraryKeepWhatIsToLastForTheRun) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  answerAll(host.terminal(), "ann", "secret", GetParam().typed);
  EXPECT_EQ(host.wait().out, "a: " + answerText("ann", "secret", GetParam().rememberOfTheLibrary) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Typed, RememberQuestion,
                         testing::Values(Remembering{"y", false}, Remembering{"Y", false},
                                         Remembering{"yes", false}, Remembering{"", true},
                                         Remembering{"n", true}, Remembering{"yours", true}));

TEST(TerminalPrompt, EmptyNameSkips) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("\n");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.out, kSkipped);
  EXPECT_FALSE(contains(result.shown, kPassword)) << result.shown;
}

TEST(TerminalPrompt, EmptyPasswordSkips) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("ann\n");
  ASSERT_TRUE(host.terminal().waitFor(kPassword));
  host.terminal().type("\n");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.out, kSkipped);
  EXPECT_FALSE(contains(result.shown, kRemember)) << result.shown;
  EXPECT_TRUE(result.isRestored);
}

TEST(TerminalPrompt, WhatIsNotUtf8Skips) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("ann\n");
  ASSERT_TRUE(host.terminal().waitFor(kPassword));
  host.terminal().type("caf\xe9\n");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.out, kSkipped);
  EXPECT_TRUE(result.shown.ends_with("\r\nThis is not UTF-8, and skipped.\r\n")) << result.shown;
}

TEST(TerminalPrompt, SaysWhenTheAnswerWasNotAccepted) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a", "A", "a"});
  answerAll(host.terminal(), "ann", "wrong", "y", 1);
  answerAll(host.terminal(), "ann", "wrong", "n", 2);
  answerAll(host.terminal(), "ann", "right", "n", 3);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 0);
  const std::string dialog = kUser + "ann\r\n" + kPassword + "\r\n" + kRemember;
  EXPECT_EQ(result.shown, "A server asks for a user name and a password.\r\n" + dialog + "y\r\n" +
                              "The user name or the password was not accepted.\r\n" + dialog + "n\r\n" +
                              "The server asks again.\r\n" + dialog + "n\r\n");
}

TEST(TerminalPrompt, RequestsThatAskAtOnceGetOneQuestion) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"abc"});
  ASSERT_TRUE(test::waitUntil([&] { return host.process().err() == "waiting abc\n"; }));
  answerAll(host.terminal(), "ann", "secret", "");
  const OnTerminal::Result result = host.wait();
  const std::string answer = answerText("ann", "secret", true) + "\n";
  EXPECT_EQ(result.out, "a: " + answer + "b: " + answer + "c: " + answer);
  EXPECT_EQ(result.shown.find(kUser), result.shown.rfind(kUser)) << result.shown;
}

TEST(TerminalPrompt, OneSkipIsForAllThatAskAtOnce) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"ab"});
  ASSERT_TRUE(test::waitUntil([&] { return host.process().err() == "waiting ab\n"; }));
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("\n");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.out, "a: skip\nb: skip\n");
  EXPECT_EQ(result.shown.find(kUser), result.shown.rfind(kUser)) << result.shown;
}

TEST(TerminalPrompt, WithoutATerminalSkips) {
  const Finished finished = Program(ASKING_HOST_PROGRAM, {"a"}).wait();
  EXPECT_EQ(finished.status, 0);
  EXPECT_TRUE(finished.out.ends_with("a: skip\n")) << finished.out;
}

TEST(TerminalPrompt, InTheBackgroundSkips) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"}, OnTerminal::Place::Background);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.ends_with("a: skip\n")) << result.out;
  EXPECT_EQ(result.shown, "");
  EXPECT_TRUE(result.isRestored);
}

// At which question, and what ends it.
struct Ending {
  std::string name;
  int answered;
  std::string typed;
  int status;
};

void PrintTo(const Ending& ending, std::ostream* stream) {
  *stream << ending.name;
}

class EndedQuestion : public testing::TestWithParam<Ending> {};

TEST_P(EndedQuestion, SkipsAndRestoresTheTerminal) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  const std::vector<std::string> questions{kUser, kPassword, kRemember};
  for (int question = 0; question < GetParam().answered; ++question) {
    ASSERT_TRUE(host.terminal().waitFor(questions[question]));
    host.terminal().type("secret\n");
  }
  ASSERT_TRUE(host.terminal().waitFor(questions[GetParam().answered]));
  host.terminal().type(GetParam().typed);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_EQ(result.out, kSkipped);
  EXPECT_TRUE(result.isRestored);
  EXPECT_TRUE(result.shown.ends_with("\r\n")) << result.shown;
}

INSTANTIATE_TEST_SUITE_P(
    All, EndedQuestion,
    testing::Values(Ending{"ControlCAtTheName", 0, Pty::kControlC, 130},
                    Ending{"ControlCInTheName", 0, std::string("an") + Pty::kControlC, 130},
                    Ending{"ControlCAtThePassword", 1, Pty::kControlC, 130},
                    Ending{"ControlCInThePassword", 1, std::string("sec") + Pty::kControlC, 130},
                    Ending{"ControlCAtRemember", 2, Pty::kControlC, 130},
                    Ending{"EndOfInputAtTheName", 0, Pty::kControlD, 0},
                    Ending{"EndOfInputAtThePassword", 1, Pty::kControlD, 0},
                    Ending{"EndOfInputAtRemember", 2, Pty::kControlD, 0}),
    [](const auto& info) { return info.param.name; });

TEST(TerminalPrompt, TerminationAtThePasswordRestoresTheTerminal) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("ann\n");
  ASSERT_TRUE(host.terminal().waitFor(kPassword));
  host.process().signalGroup(SIGTERM);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 143);
  EXPECT_EQ(result.out, kSkipped);
  EXPECT_TRUE(result.isRestored);
}

TEST(TerminalPrompt, NothingIsAskedAfterAnInterrupt) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a", "b"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type(Pty::kControlC);
  const OnTerminal::Result result = host.wait();
  EXPECT_TRUE(result.out.ends_with("b: skip\n")) << result.out;
  EXPECT_EQ(result.shown.find(kUser), result.shown.rfind(kUser)) << result.shown;
}

TEST(TerminalPrompt, IsEndedByItsClose) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"--close", "a", "b"});
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(contains(result.out, "a: skip\n")) << result.out;
  EXPECT_TRUE(contains(result.out, "b: skip\n")) << result.out;
  EXPECT_TRUE(result.isRestored);
}

TEST(TerminalPrompt, KeysThatWouldLeaveTheTerminalSilentArePartOfThePassword) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  answerAll(host.terminal(), "ann", std::string("a") + Pty::kControlZ + Pty::kControlBackslash + "b", "");
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "a: " + answerText("ann", R"(a\u001A\u001Cb)", true) + "\n");
}

TEST(TerminalPrompt, WhatWasTypedBeforeThePasswordIsAskedForIsNotThePassword) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("ann\nseen by all\n");
  ASSERT_TRUE(host.terminal().waitFor(kPassword));
  host.terminal().type("secret\n");
  ASSERT_TRUE(host.terminal().waitFor(kRemember));
  host.terminal().type("\n");
  EXPECT_EQ(host.wait().out, "a: " + answerText("ann", "secret", true) + "\n");
}

TEST(TerminalPrompt, HaltedOutputDoesNotHoldUpATermination) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a", "b"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type(std::string(Pty::kControlS) + "\n");
  // The second request's question waits for the output to go on.
  ASSERT_TRUE(test::waitUntil([&] { return contains(host.process().err(), "waiting b\n"); }));
  host.process().signalGroup(SIGTERM);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 143);
  EXPECT_TRUE(result.out.ends_with("b: skip\n")) << result.out;
}

TEST(TerminalPrompt, HaltedOutputWithinTheQuestionsDoesNotHoldUpATermination) {
  OnTerminal host(ASKING_HOST_PROGRAM, {"a"});
  ASSERT_TRUE(host.terminal().waitFor(kUser));
  host.terminal().type("ann\n");
  ASSERT_TRUE(host.terminal().waitFor(kPassword));
  host.terminal().type(std::string(Pty::kControlS) + "secret\n");
  ASSERT_TRUE(test::waitUntil([&] { return host.terminal().isEchoing(); }));
  host.process().signalGroup(SIGTERM);
  const OnTerminal::Result result = host.wait();
  EXPECT_EQ(result.status, 143);
  EXPECT_EQ(result.out, kSkipped);
}

}  // namespace
}  // namespace tooltest
