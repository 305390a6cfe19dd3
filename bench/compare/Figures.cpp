#include "bench/compare/Figures.h"

#include <cmath>

#include "bench/compare/Numbers.h"

namespace bench {
namespace {

Json::Value orNull(const std::optional<double>& number) {
  return number ? Json::Value(*number) : Json::Value();
}

std::optional<double> orNothing(const Json::Value& number) {
  return number.isNull() ? std::nullopt : std::optional(number.asDouble());
}

template <typename Number>
Number medianFigure(const std::vector<Figures>& all, Number Figures::*figure) {
  std::vector<double> values;
  values.reserve(all.size());
  for (const Figures& one : all) {
    values.push_back(static_cast<double>(one.*figure));
  }
  return static_cast<Number>(median(values));
}

std::optional<double> medianFigure(const std::vector<Figures>& all, std::optional<double> Figures::*figure) {
  std::vector<double> values;
  for (const Figures& one : all) {
    if (one.*figure) {
      values.push_back((one.*figure).value());
    }
  }
  return values.empty() ? std::nullopt : std::optional(median(values));
}

}  // namespace

double Figures::switchesPerThousand() const {
  return finished > 0 ? static_cast<double>(voluntarySwitches + involuntarySwitches) * 1000 /
                            static_cast<double>(finished)
                      : 0;
}

Json::Value Figures::toJson() const {
  Json::Value json(Json::objectValue);
  json["requests"] = Json::Int64(requests);
  json["abandoned"] = Json::Int64(abandoned);
  json["failed"] = Json::Int64(failed);
  json["finished"] = Json::Int64(finished);
  json["seconds"] = seconds;
  json["bytes"] = Json::Int64(bytes);
  json["medianMs"] = orNull(medianMs);
  json["p99Ms"] = orNull(p99Ms);
  json["cpuSeconds"] = cpuSeconds;
  json["voluntarySwitches"] = Json::Int64(voluntarySwitches);
  json["involuntarySwitches"] = Json::Int64(involuntarySwitches);
  json["peakKilobytes"] = Json::Int64(peakKilobytes);
  json["threads"] = threads;
  json["note"] = note;
  json["perSecond"] = perSecond();
  json["megabytesPerSecond"] = megabytesPerSecond();
  json["cpuSecondsPerThousand"] = cpuPerThousand();
  json["switchesPerThousand"] = switchesPerThousand();
  return json;
}

Figures Figures::fromJson(const Json::Value& json) {
  return {.requests = json["requests"].asInt64(),
          .abandoned = json["abandoned"].asInt64(),
          .failed = json["failed"].asInt64(),
          .finished = json["finished"].asInt64(),
          .seconds = json["seconds"].asDouble(),
          .bytes = json["bytes"].asInt64(),
          .medianMs = orNothing(json["medianMs"]),
          .p99Ms = orNothing(json["p99Ms"]),
          .cpuSeconds = json["cpuSeconds"].asDouble(),
          .voluntarySwitches = json["voluntarySwitches"].asInt64(),
          .involuntarySwitches = json["involuntarySwitches"].asInt64(),
          .peakKilobytes = json["peakKilobytes"].asInt64(),
          .threads = json["threads"].asInt(),
          .note = json["note"].asString()};
}

Figures Figures::medianOf(const std::vector<Figures>& all) {
  // By rate, so that what belongs together stays together: time, CPU and switches of one and the same run.
  std::vector<double> rates;
  rates.reserve(all.size());
  for (const Figures& one : all) {
    rates.push_back(one.perSecond());
  }
  const double middle = median(rates);
  Figures result = all.front();
  for (const Figures& one : all) {
    result = one.perSecond() == middle ? one : result;
  }
  result.medianMs = medianFigure(all, &Figures::medianMs);
  result.p99Ms = medianFigure(all, &Figures::p99Ms);
  result.peakKilobytes = medianFigure(all, &Figures::peakKilobytes);
  result.threads = medianFigure(all, &Figures::threads);
  result.requests = 0;
  result.abandoned = 0;
  result.failed = 0;
  for (const Figures& one : all) {
    result.requests += one.requests;
    result.abandoned += one.abandoned;
    result.failed += one.failed;
  }
  return result;
}

}  // namespace bench
