// From the header fields' JSON text to the request, and its first step alone: the URL.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

#include "foundation/url/URL.h"
#include "httpPool/HttpCallMacImpl.h"
#include "httpPool/MacDownloadEngine.h"

namespace {

constexpr const char* kUrl =
    "https://user@www.example.com:8443/path/to/a/resource;v=1?query=some&more=of%20it#part";

std::string headerJson(std::size_t fields) {
  std::string text = R"({"HttpMethod":"PUT","Content-Type":"application/json; charset=utf-8")";
  for (std::size_t i = 0; i < fields; ++i) {
    text += R"(,"X-Field-)" + std::to_string(i) + R"(":"a value of some length with \"quotes\" in it")";
  }
  return text + "}";
}

void RequestOfHeaderJson(benchmark::State& state) {
  CHttpCallMacImpl call;
  MacDownloadEngine engine;
  const std::string json = headerJson(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] const auto _ : state) {
    call.SetHeaderFields(json.c_str());
    const foundation::Dictionary fields = call.ParseHeaders();
    const auto request = engine.generateURLRequest(kUrl, nullptr, &fields);
    benchmark::DoNotOptimize(request->HTTPMethod());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(json.size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(RequestOfHeaderJson)->Arg(1)->Arg(10)->Arg(100)->Arg(1'000);

void RequestUrl(benchmark::State& state) {
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(foundation::URL::parse(kUrl));
  }
}
BENCHMARK(RequestUrl);

}  // namespace
