// bench_compare: the pool beside other HTTP clients, at the same works, in one run.

#include <json/writer.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "bench/compare/Arguments.h"
#include "bench/compare/Budgets.h"
#include "bench/compare/Comparison.h"
#include "bench/compare/Report.h"

namespace {

constexpr const char* kHelp = R"(Usage: bench_compare [OPTIONS]

Gives the same HTTP work to the pool and to other clients in turn, against an
nginx of its own on loopback, and tells what each of them did with it.

  --works LIST        of: h1-N, tls-N, h2-N (N small requests in flight over
                      HTTP/1.1, HTTP/1.1 with TLS, HTTP/2), held-N (N answers
                      that the server holds back), download; N is any number.
                      Default: N of 1, 10, 100, 1000, 5000; held-1000; download
  --contenders LIST   of: pool, curl-multi, soup, qt, curl, aria2c. Default: all
  --seconds S         measured time of a work of one contender; default 3
  --repetitions N     of everything; figures are medians then; default 1
  --download-bytes N  size of the download; default 1000000000
  --budgets           measures the pool's budgets, too; without --works and
                      --contenders only what they need
  --json FILE         writes all figures to FILE
  --list              names the default works and the contenders, and ends
  --help              this text
)";

std::vector<bench::Work> worksOf(const bench::Arguments& arguments) {
  if (!arguments.has("works")) {
    return arguments.has("budgets") ? bench::worksOfBudgets() : bench::standardWorks();
  }
  std::vector<bench::Work> works;
  for (const std::string& name : arguments.list("works")) {
    if (name == "all") {
      return bench::standardWorks();
    }
    const std::optional<bench::Work> work = bench::workNamed(name);
    if (!work) {
      throw std::runtime_error("no such work: " + name);
    }
    works.push_back(*work);
  }
  return works;
}

std::vector<const bench::ContenderProgram*> contendersOf(const bench::Arguments& arguments) {
  std::vector<const bench::ContenderProgram*> contenders;
  for (const std::string& name : arguments.list("contenders")) {
    contenders.push_back(bench::contenderNamed(name));
    if (contenders.back() == nullptr) {
      throw std::runtime_error("no such contender: " + name);
    }
  }
  if (!contenders.empty()) {
    return contenders;
  }
  if (arguments.has("budgets") && !arguments.has("works")) {
    return bench::contendersOfBudgets();
  }
  for (const bench::ContenderProgram& one : bench::contenderPrograms()) {
    contenders.push_back(&one);
  }
  return contenders;
}

void list() {
  for (const bench::Work& work : bench::standardWorks()) {
    std::printf("%-10s %s\n", work.name.c_str(), work.title().c_str());
  }
  for (const bench::ContenderProgram& one : bench::contenderPrograms()) {
    std::printf("%-10s %s\n", one.name, one.title);
  }
}

void compare(const bench::Arguments& arguments) {
  bench::Comparison comparison(
      {.works = worksOf(arguments),
       .contenders = contendersOf(arguments),
       .seconds = arguments.number("seconds", 3, 0.01),
       .repetitions = static_cast<int>(arguments.number("repetitions", 1, 1)),
       .downloadBytes = static_cast<long>(arguments.number("download-bytes", 1e9, 1))});
  // Early, and not when all is measured.
  std::ofstream json;
  if (arguments.has("json")) {
    json.open(arguments.text("json"));
    if (!json) {
      throw std::runtime_error("cannot write " + arguments.text("json"));
    }
  }
  comparison.run();
  std::printf("%s", bench::tablesOf(comparison).c_str());
  const std::vector<bench::Budget> budgets =
      arguments.has("budgets") ? bench::measureBudgets(comparison) : std::vector<bench::Budget>();
  if (!budgets.empty()) {
    std::printf("%s", bench::tableOf(budgets).c_str());
  }
  if (json.is_open() && !(json << bench::jsonOf(comparison, budgets) << std::flush)) {
    throw std::runtime_error("cannot write " + arguments.text("json"));
  }
}

}  // namespace

int main(int count, char** words) {
  try {
    const bench::Arguments arguments(
        count, words, {"works", "contenders", "seconds", "repetitions", "download-bytes", "json"},
        {"budgets", "list", "help"});
    if (arguments.has("help")) {
      std::printf("%s", kHelp);
    } else if (arguments.has("list")) {
      list();
    } else {
      compare(arguments);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_compare: %s\n", error.what());
    return 1;
  }
}
