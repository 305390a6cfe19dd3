#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/url/loader/ChallengeParser.h"

namespace foundation {

void PrintTo(const OfferedChallenge& challenge, std::ostream* out) {
  *out << challenge.scheme << " [" << challenge.token68 << "]";
  for (const auto& [name, value] : challenge.parameters) {
    *out << ' ' << name << "=<" << value << '>';
  }
}

namespace {

struct Case {
  const char* field;
  std::vector<OfferedChallenge> challenges;
};

class ParsedChallenges : public testing::TestWithParam<Case> {};

TEST_P(ParsedChallenges, AreAsTheGrammarSays) {
  EXPECT_EQ(parseChallenges(GetParam().field), GetParam().challenges) << GetParam().field;
}

INSTANTIATE_TEST_SUITE_P(
    WellFormed, ParsedChallenges,
    testing::Values(Case{"NTLM", {{"NTLM", "", {}}}},
                    Case{"Basic realm=\"a\"", {{"Basic", "", {{"realm", "a"}}}}},
                    Case{"Basic realm=plain", {{"Basic", "", {{"realm", "plain"}}}}},
                    Case{"Basic realm = \"a\" , charset = UTF-8",
                         {{"Basic", "", {{"realm", "a"}, {"charset", "UTF-8"}}}}},
                    Case{"Negotiate, NTLM, Basic realm=\"x\"",
                         {{"Negotiate", "", {}}, {"NTLM", "", {}}, {"Basic", "", {{"realm", "x"}}}}},
                    Case{"Digest realm=\"a, b\", nonce=\"n=\", Basic realm=\"one, \\\"two\\\" \\\\ three\"",
                         {{"Digest", "", {{"realm", "a, b"}, {"nonce", "n="}}},
                          {"Basic", "", {{"realm", "one, \"two\" \\ three"}}}}},
                    Case{"NTLM TlRMTVNTUAAC==", {{"NTLM", "TlRMTVNTUAAC==", {}}}},
                    Case{"Negotiate a-._~+/9=, NTLM", {{"Negotiate", "a-._~+/9=", {}}, {"NTLM", "", {}}}},
                    Case{"Negotiate token68 , Basic realm=\"\"",
                         {{"Negotiate", "token68", {}}, {"Basic", "", {{"realm", ""}}}}},
                    Case{"New a=b, c=d, Other e=f",
                         {{"New", "", {{"a", "b"}, {"c", "d"}}}, {"Other", "", {{"e", "f"}}}}},
                    Case{",, ,Basic\trealm=x,,\t,NTLM,", {{"Basic", "", {{"realm", "x"}}}, {"NTLM", "", {}}}},
                    Case{"Basic realm=\"\xc3\xa4\xff\"", {{"Basic", "", {{"realm", "\xc3\xa4\xff"}}}}}));

INSTANTIATE_TEST_SUITE_P(
    Malformed, ParsedChallenges,
    testing::Values(Case{"", {}}, Case{" \t", {}}, Case{",", {}}, Case{"\"", {}}, Case{"=", {}},
                    Case{"=x, NTLM", {{"NTLM", "", {}}}},
                    Case{"realm=\"nobody's\", NTLM", {{"NTLM", "", {}}}},
                    Case{"Basic realm=\"never closed, NTLM", {{"Basic", "", {}}}},
                    Case{"Basic realm=\"ends in \\", {{"Basic", "", {}}}},
                    Case{"Basic realm=\"a\"b, NTLM", {{"Basic", "", {}}, {"NTLM", "", {}}}},
                    Case{"Basic realm=a b, NTLM", {{"Basic", "", {}}, {"NTLM", "", {}}}},
                    Case{"Basic ;realm=a, NTLM", {{"Basic", "", {}}, {"NTLM", "", {}}}},
                    Case{"Basic\"quoted, comma\", NTLM", {{"NTLM", "", {}}}},
                    Case{"(Basic), NTLM", {{"NTLM", "", {}}}},
                    Case{"Basic \"a, NTLM\", Digest", {{"Basic", "", {}}, {"Digest", "", {}}}}));

TEST(ChallengeParser, FindsAParameterWithoutCaseAndTheFirstOfTwo) {
  const auto challenges = parseChallenges("Basic REALM=first, realm=second");
  ASSERT_EQ(challenges.size(), 1U);
  ASSERT_NE(challenges.front().parameter("Realm"), nullptr);
  EXPECT_EQ(*challenges.front().parameter("Realm"), "first");
  EXPECT_EQ(challenges.front().parameter("nonce"), nullptr);
}

TEST(ChallengeParser, IsBoundedInWhatItReturns) {
  std::string many;
  for (int i = 0; i < 1000; ++i) {
    many += "Basic realm=\"r\", ";
  }
  EXPECT_EQ(parseChallenges(many).size(), kOfferedChallengesLimit);
  EXPECT_EQ(chooseChallenge(std::vector<std::string>(1000, "NTLM"))->method, AuthenticationMethod::NTLM);
  // However they are spread over the fields.
  std::string allButOne;
  for (std::size_t i = 1; i < kOfferedChallengesLimit; ++i) {
    allButOne += "Basic realm=\"r\", ";
  }
  EXPECT_EQ(chooseChallenge({allButOne, "NTLM, Basic"})->method, AuthenticationMethod::NTLM);
  EXPECT_EQ(chooseChallenge({allButOne, "Basic, NTLM"})->method, AuthenticationMethod::HTTPBasic);
}

/// The shapes that make a careless reader look at everything again and again: they have to end.
TEST(ChallengeParser, GetsThroughLongHostileFields) {
  constexpr std::size_t kLength = 64 * 1024;
  EXPECT_EQ(parseChallenges(std::string(kLength, ',')).size(), 0U);
  EXPECT_EQ(parseChallenges(std::string(kLength, '"')).size(), 0U);
  EXPECT_EQ(parseChallenges(std::string(kLength, '=')).size(), 0U);
  EXPECT_EQ(parseChallenges(std::string(kLength, 'a')).size(), 1U);
  EXPECT_EQ(parseChallenges("Basic " + std::string(kLength, 'a')).front().token68.size(), kLength);
  EXPECT_EQ(parseChallenges("Basic realm=\"" + std::string(kLength, '\\')).front().parameters.size(), 0U);
  std::string quotes;
  std::string parameters = "Basic ";
  std::string schemes;
  while (quotes.size() < kLength) {
    quotes += "\",";
  }
  while (parameters.size() < kLength) {
    parameters += "a=\",\",";
  }
  while (schemes.size() < kLength) {
    schemes += "x\",";
  }
  EXPECT_EQ(parseChallenges(quotes).size(), 0U);
  EXPECT_EQ(parseChallenges(parameters).front().parameters.size(), (parameters.size() - 6) / 6);
  EXPECT_LE(parseChallenges(schemes).size(), kOfferedChallengesLimit);
}

struct Choice {
  std::vector<std::string> fields;
  std::optional<ChosenChallenge> chosen;
};

class ChosenScheme : public testing::TestWithParam<Choice> {};

TEST_P(ChosenScheme, IsTheFirstInTheOrder) {
  EXPECT_EQ(chooseChallenge(GetParam().fields), GetParam().chosen)
      << testing::PrintToString(GetParam().fields);
}

INSTANTIATE_TEST_SUITE_P(
    All, ChosenScheme,
    testing::Values(
        Choice{{}, std::nullopt}, Choice{{""}, std::nullopt}, Choice{{"Bearer realm=\"x\""}, std::nullopt},
        Choice{{"Basic realm=\"r\", NTLM"}, ChosenChallenge{AuthenticationMethod::NTLM, ""}},
        Choice{{"Negotiate", "ntlm"}, ChosenChallenge{AuthenticationMethod::NTLM, ""}},
        Choice{{"Negotiate", "Digest realm=d", "BASIC realm=b"},
               ChosenChallenge{AuthenticationMethod::HTTPBasic, "b"}},
        Choice{{"Negotiate, Digest realm=d"}, ChosenChallenge{AuthenticationMethod::HTTPDigest, "d"}},
        Choice{{"Bearer, Negotiate abc="}, ChosenChallenge{AuthenticationMethod::Negotiate, ""}},
        Choice{{"Basic realm=first, Basic realm=second"},
               ChosenChallenge{AuthenticationMethod::HTTPBasic, "first"}},
        Choice{{"Basic"}, ChosenChallenge{AuthenticationMethod::HTTPBasic, ""}},
        // A line that is broken does not take the next one with it.
        Choice{{"Bearer realm=\"open", "NTLM"}, ChosenChallenge{AuthenticationMethod::NTLM, ""}}));

}  // namespace
}  // namespace foundation
