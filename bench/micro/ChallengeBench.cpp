// WWW-Authenticate fields: what servers send, and what a hostile one might.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/url/loader/ChallengeParser.h"

namespace {

void choose(benchmark::State& state, const std::vector<std::string>& fields) {
  std::size_t bytes = 0;
  for (const std::string& field : fields) {
    bytes += field.size();
  }
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(foundation::chooseChallenge(fields));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
  state.SetComplexityN(static_cast<std::int64_t>(bytes));
}

std::string repeated(const std::string& text, std::size_t bytes) {
  std::string all;
  all.reserve(bytes + text.size());
  while (all.size() < bytes) {
    all += text;
  }
  return all;
}

void ChallengeTypical(benchmark::State& state) {
  choose(state, {"Negotiate", "NTLM", R"(Basic realm="The intranet", charset="UTF-8")"});
}
BENCHMARK(ChallengeTypical);

void ChallengeManySchemes(benchmark::State& state) {
  choose(state,
         {R"(Digest realm="a", nonce="dcd98b7102dd2f0e8b11d0f600bfb0c093", qop="auth,auth-int", )"
          R"(algorithm=SHA-256, Bearer realm="b", scope="x y z", error="invalid_token", )"
          R"(Negotiate YWJjZGVmZ2hpamtsbW5vcA==, HOBA max-age="180", challenge="16:MTEyMzEyMzEyMw==", )"
          R"(Basic realm="c")"});
}
BENCHMARK(ChallengeManySchemes);

/// No end of the quotes, with an escape for every other byte.
void ChallengeHostileQuotes(benchmark::State& state) {
  choose(state, {"Basic realm=\"" + repeated("\\\"", static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(ChallengeHostileQuotes)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

/// Nothing but starts of challenges that do not fit the grammar.
void ChallengeHostileCommas(benchmark::State& state) {
  choose(state, {repeated("a=b c,", static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(ChallengeHostileCommas)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

/// As many parameters as fit.
void ChallengeHostileParameters(benchmark::State& state) {
  choose(state, {"Basic " + repeated("x=y, ", static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(ChallengeHostileParameters)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

}  // namespace
