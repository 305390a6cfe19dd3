#include "bench/compare/Report.h"

#include <algorithm>
#include <optional>
#include <set>
#include <sstream>

#include "bench/compare/Machine.h"
#include "bench/compare/Numbers.h"

namespace bench {
namespace {

using Row = std::vector<std::string>;

/// Characters, not bytes.
std::size_t widthOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

/// The first column to the left, the others to the right.
std::string aligned(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], widthOf(row[column]));
    }
  }
  std::ostringstream text;
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string blanks(widths[column] - widthOf(row[column]), ' ');
      text << (column == 0 ? "  " + row[column] + blanks : "  " + blanks + row[column]);
    }
    text << "\n";
  }
  return text.str();
}

std::string orDash(const std::optional<double>& number) {
  return number ? shortNumber(*number) : "-";
}

std::string beside(double value, double bare) {
  return bare > 0 && value > 0 ? shortNumber(value / bare) : "-";
}

std::string megabytes(long kilobytes) {
  return shortNumber(static_cast<double>(kilobytes) / 1024);
}

Row headOf(const Work& work) {
  return {"",        work.kind == Kind::Download ? "MB/s" : "finished/s",
          "x bare",  "median ms",
          "p99 ms",  work.kind == Kind::Download ? "CPU s" : "CPU s/1,000",
          "x bare",  work.kind == Kind::Download ? "switches" : "switches/1,000",
          "peak MB", "threads",
          "failed"};
}

Row rowOf(const Work& work, const std::string& title, const Figures& figures, const Figures& bare) {
  const bool isDownload = work.kind == Kind::Download;
  const double cpu = isDownload ? figures.cpuSeconds : figures.cpuPerThousand();
  const double bareCpu = isDownload ? bare.cpuSeconds : bare.cpuPerThousand();
  const double switches = figures.switchesPerThousand() / (isDownload ? 1000 : 1);
  return {title,
          shortNumber(isDownload ? figures.megabytesPerSecond() : figures.perSecond()),
          beside(figures.perSecond(), bare.perSecond()),
          orDash(figures.medianMs),
          orDash(figures.p99Ms),
          shortNumber(cpu),
          beside(cpu, bareCpu),
          shortNumber(switches),
          megabytes(figures.peakKilobytes),
          grouped(figures.threads),
          grouped(figures.failed)};
}

std::string tableOf(const Comparison& comparison, const Work& work, std::set<std::string>& notes) {
  const Cell* bareCell = comparison.cell(work.name, kBareLoop);
  const Figures bare = bareCell != nullptr && bareCell->isMeasured() ? bareCell->figures() : Figures();
  std::vector<Row> rows = {headOf(work)};
  std::string failures;
  for (const ContenderProgram* contender : comparison.settings().contenders) {
    const Cell& cell = *comparison.cell(work.name, contender->name);
    if (!cell.isMeasured()) {
      failures += std::string("  ") + contender->title + ": not measured: " + cell.failure + "\n";
      continue;
    }
    const Figures figures = cell.figures();
    rows.push_back(
        rowOf(work, std::string(contender->title) + (figures.note.empty() ? "" : " *"), figures, bare));
    if (!figures.note.empty()) {
      notes.insert(figures.note);
    }
  }
  return "\n" + work.title() + "\n" + aligned(rows) + failures;
}

Json::Value jsonOf(const Work& work, const ContenderProgram& contender, const Cell& cell) {
  Json::Value json = cell.isMeasured() ? cell.figures().toJson() : Json::Value(Json::objectValue);
  json["work"] = work.name;
  json["title"] = work.title();
  json["inFlight"] = work.inFlight;
  json["contender"] = contender.name;
  json["contenderTitle"] = contender.title;
  json["seenByServer"] = Json::Int64(cell.seenByServer);
  json["failure"] = cell.failure;
  json["repetitionsPerSecond"] = Json::arrayValue;
  for (const Figures& run : cell.runs) {
    json["repetitionsPerSecond"].append(run.perSecond());
  }
  return json;
}

}  // namespace

std::string tablesOf(const Comparison& comparison) {
  std::string text;
  std::set<std::string> notes;
  for (const Work& work : comparison.settings().works) {
    text += tableOf(comparison, work, notes);
  }
  for (const std::string& note : notes) {
    text += "\n* " + note;
  }
  return text + (notes.empty() ? "" : "\n");
}

std::string tableOf(const std::vector<Budget>& budgets) {
  std::vector<Row> rows = {{"figure", "measured", "", "allowed", "measured/allowed"}};
  for (const Budget& budget : budgets) {
    const std::optional<double> part = budget.measured && budget.allowed > 0
                                           ? std::optional(*budget.measured / budget.allowed)
                                           : std::nullopt;
    rows.push_back({budget.figure, orDash(budget.measured), budget.unit,
                    (budget.bound == Bound::AtMost ? "at most " : "at least ") + shortNumber(budget.allowed),
                    orDash(part)});
  }
  return "\nBudgets of the pool\n" + aligned(rows);
}

Json::Value jsonOf(const Comparison& comparison, const std::vector<Budget>& budgets) {
  const Comparison::Settings& settings = comparison.settings();
  Json::Value json;
  json["machine"] = describeMachine();
  json["settings"]["seconds"] = settings.seconds;
  json["settings"]["repetitions"] = settings.repetitions;
  json["settings"]["downloadBytes"] = Json::Int64(settings.downloadBytes);
  json["bareLoop"] = kBareLoop;
  json["cells"] = Json::arrayValue;
  for (const Work& work : settings.works) {
    for (const ContenderProgram* contender : settings.contenders) {
      json["cells"].append(jsonOf(work, *contender, *comparison.cell(work.name, contender->name)));
    }
  }
  json["budgets"] = Json::arrayValue;
  for (const Budget& budget : budgets) {
    json["budgets"].append(budget.toJson());
  }
  return json;
}

}  // namespace bench
