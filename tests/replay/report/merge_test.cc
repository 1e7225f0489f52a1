// JSON lines back into reports, CSV, and conditions on the figures.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "replay/report/fail_condition.h"
#include "replay/report/merge_lines.h"
#include "replay/report/report_csv.h"
#include "replay/report/report_json.h"
#include "replay/report/report_text.h"
#include "replay/report/sweep.h"
#include "tests/replay/report/report_fixture.h"
#include "tests/support/text.h"

namespace replay {
namespace {

ReplayOptions SomeSettings() {
  ReplayOptions options;
  options.profile = *FindNetworkProfile("3g");
  options.socketsPerGroup = 4;
  options.revisitAfterMs = 86400e3;
  options.join = false;
  options.preconnect = false;
  options.costs.slowStart = false;
  options.properties = {{"net.cv.kiv.prlimit", "3"}};
  return options;
}

Summary SummaryNamed(const std::string& name) {
  Summary summary = Summarize(tests::MakeReplayed(name).result);
  summary.fetchedReasons[host::NotServed::Html] = 3;
  return summary;
}

void Add(LineMerger& merger, const std::string& text) {
  std::istringstream lines(text);
  merger.Add(lines, "x.jsonl");
}

using tests::JsonLine;
using tests::JsonSummaryLine;

std::string ErrorOf(const std::string& text) {
  LineMerger merger;
  return tests::ErrorOf([&] { Add(merger, text); });
}

TEST(LineMerger, MakesTheSameReportsOfAnyShards) {
  const ReplayOptions options = SomeSettings();
  const std::vector<Summary> summaries = {SummaryNamed("a.har"), SummaryNamed("b.har"),
                                          SummaryNamed("c.har")};
  const std::string failed = std::string(R"({"recording":"d.har","error":"no"})") + "\n";
  std::vector<std::string> lines;
  for (const Summary& summary : summaries) lines.push_back(JsonLine(summary, options) + "\n");
  const std::string last = JsonSummaryLine(summaries, options) + "\n";
  const std::vector<std::vector<std::string>> shards = {
      {lines[0] + lines[1] + lines[2] + failed + last},
      {lines[2] + last, failed, "", lines[1] + "\r\n" + lines[0]}};
  for (const auto& files : shards) {
    LineMerger merger;
    for (const std::string& file : files) Add(merger, file);
    std::vector<RecordingReport> reports = merger.Reports();
    ASSERT_EQ(reports.size(), 4U);
    EXPECT_EQ(reports[3].status, ReplayStatus::BadInput);
    EXPECT_EQ(reports[3].error, "no");
    reports.pop_back();
    std::vector<Summary> merged;
    for (const RecordingReport& report : reports) merged.push_back(report.summary);
    EXPECT_EQ(JsonSummaryLine(merged, merger.MergedSettings()[0].options) + "\n", last);
    EXPECT_EQ(TextReport(merged, merger.MergedSettings()[0].options, {}), TextReport(summaries, options, {}));
    EXPECT_EQ(JsonLine(merged[1], merger.MergedSettings()[0].options) + "\n", lines[1]);
    EXPECT_EQ(merger.Repeated(), 0U);
  }
  LineMerger twice;
  Add(twice, lines[0] + lines[0]);
  EXPECT_EQ(twice.Repeated(), 1U);
  EXPECT_EQ(twice.Reports().size(), 2U);
}

TEST(LineMerger, RefusesOtherLinesAndOtherSettings) {
  const std::string line = JsonLine(SummaryNamed("a.har"), SomeSettings()) + "\n";
  EXPECT_EQ(ErrorOf("\n" + line.substr(0, 99)), "x.jsonl: line 2 is not JSON, or was cut off");
  const std::string foreign = "x.jsonl: line 1 is not a line that kiv_replay --json of this version writes";
  for (const char* text : {"{}", "7", "{\"recording\": 5}", "{\"recording\": \"a\", \"visits\": 1}"}) {
    EXPECT_EQ(ErrorOf(text), foreign) << text;
  }
  ReplayOptions other = SomeSettings();
  other.costs.slowStart = true;
  const std::string error = ErrorOf(line + JsonLine(SummaryNamed("b.har"), other));
  EXPECT_TRUE(error.starts_with("x.jsonl: line 2 was written with other settings")) << error;
}

// Two settings, of which the second gains less in one visit.
const Settings kSweep = {{"join=on", {}}, {"join=off", {.join = false}}};
RecordingReport SweptReport(const std::string& name) {
  RecordingReport report = {.summary = SummaryNamed(name)};
  report.further = {report.summary};
  report.further[0].repeats[1].times[Index(Way::Plugin)].pageLoadUs += 100'000;
  return report;
}

TEST(LineMerger, PutsTheSettingsOfASweepTogether) {
  const std::vector<RecordingReport> reports = {SweptReport("a.har"), SweptReport("b.har")};
  const auto a = JsonLines(reports[0], kSweep), b = JsonLines(reports[1], kSweep);
  LineMerger merger;
  Add(merger, b[1] + "\n" + JsonSummaryLines(reports, kSweep)[0] + "\n" + a[0]);
  Add(merger, a[1] + "\n" + b[0]);
  const std::vector<RecordingReport> merged = merger.Reports();
  ASSERT_EQ(merged.size(), 2U);
  EXPECT_EQ(JsonLines(merged[0], merger.MergedSettings()), a);
  EXPECT_EQ(JsonSummaryLines(merged, merger.MergedSettings()), JsonSummaryLines(reports, kSweep));
  EXPECT_EQ(SweepText(merged, merger.MergedSettings(), {}), SweepText(reports, kSweep, {}));

  EXPECT_NE(ErrorOf(a[0] + "\n" + a[0]).find("line 2 is another one of 'a.har' with join=on"),
            std::string::npos);
  EXPECT_NE(ErrorOf(a[0] + "\n" + JsonLine(SummaryNamed("c.har"), {})).find("another --sweep"),
            std::string::npos);
  RecordingReport other = SweptReport("a.har");
  other.further[0].repeats[0].page = "https://other.test/";
  for (const auto& [lines, error] : {std::pair(a[1], "a.har: its line with join=on is missing"),
                                     std::pair(a[0] + "\n" + JsonLines(other, kSweep)[1],
                                               "a.har: its line with join=off is of other visits")}) {
    LineMerger broken;
    Add(broken, lines);
    EXPECT_EQ(broken.Reports().at(0).error, error);
  }
}

TEST(Sweep, DifferencesArePairedPerVisit) {
  const RecordingReport report = SweptReport("a.har");
  const auto difference =
      DifferenceOf(report.summary.repeats, report.further[0].repeats, &LoadTimes::pageLoadUs).value();
  EXPECT_EQ(difference.gains.median, -50'000) << "0 and -100 ms";
  EXPECT_EQ(difference.gains.total, -100'000);
  EXPECT_EQ(difference.worse, 1U);
  EXPECT_EQ(difference.better, 0U);
  const auto back =
      DifferenceOf(report.further[0].repeats, report.summary.repeats, &LoadTimes::pageLoadUs).value();
  EXPECT_EQ(back.better, 1U);
  auto slowerLink = report.summary.repeats;
  for (VisitFigures& visit : slowerLink) {
    for (const Way way : {Way::Off, Way::Plugin}) visit.times[Index(way)].pageLoadUs += 3'000'000;
  }
  EXPECT_EQ(DifferenceOf(report.summary.repeats, slowerLink, &LoadTimes::pageLoadUs)->gains.total, 0)
      << "the plugin gains as much";

  const std::string line = JsonSummaryLines({report}, kSweep)[1];
  EXPECT_EQ(WhyFailed(ParseFailCondition("against_first.real.load_ms.total < 0"), line),
            "against_first.real.load_ms.total < 0: against_first.real.load_ms.total is -100.0");
}

TEST(CsvReport, EveryRowHasTheColumnsOfTheHeading) {
  Summary summary = SummaryNamed("a,\"b\".har");
  summary.skipped = {{"data: URL", 2}, {"websocket", 3}};
  const auto cells = [](const std::string& row) { return std::count(row.begin(), row.end(), ','); };
  const Settings settings = {{.options = SomeSettings()}};
  const std::string heading = CsvHeading(settings);
  const std::string row = CsvRows({.summary = summary}, settings);
  EXPECT_TRUE(heading.starts_with("recording,profile,")) << heading;
  EXPECT_TRUE(heading.ends_with(",error\r\n")) << heading;
  EXPECT_NE(heading.find(",real.load_ms.off,"), std::string::npos) << heading;
  EXPECT_TRUE(row.starts_with("\"a,\"\"b\"\".har\",3g,")) << row;
  EXPECT_EQ(cells(row), cells(heading) + 1) << "the comma in the name";
  const std::string errorRow = CsvRows({.status = ReplayStatus::BadInput, .error = "no"}, settings);
  EXPECT_EQ(cells(errorRow), cells(heading));
  EXPECT_TRUE(errorRow.ends_with(",no\r\n"));
  std::istringstream names(heading), values(CsvRows({.summary = SummaryNamed("a.har")}, settings));
  std::map<std::string, std::string> cell;
  for (std::string name, value; std::getline(names, name, ',') && std::getline(values, value, ',');) {
    cell[name] = value;
  }
  EXPECT_EQ(cell["down_mbit"], "1.6");
  EXPECT_EQ(cell["visits"], "3");
}

TEST(FailCondition, ComparesAFigureOfTheSummary) {
  const std::string line =
      JsonSummaryLine({SummaryNamed("a.har")}, SomeSettings());  // three visits, no percentiles
  const struct {
    const char* condition;
    const char* why;  // empty: the run does not fail
  } cases[] = {
      {"visits > 2", "visits > 2: visits is 3"},
      {"visits>3", ""},
      {"visits >= 3", "visits >= 3: visits is 3"},
      {"visits<=2.5", ""},
      {"visits < 4", "visits < 4: visits is 3"},
      {" visits != 3", ""},
      {"visits==3 ", "visits==3 : visits is 3"},
      {"copies.visits > 7", ""},
      {"reasons.no_context >= 1", ""},
      {"reasons.no_context == 0", "reasons.no_context == 0: reasons.no_context is 0"},
      {"real.gain_ms.p5 < -10", "real.gain_ms.p5 < -10: real.gain_ms.p5 has no value for these visits"},
  };
  for (const auto& row : cases) EXPECT_EQ(WhyFailed(ParseFailCondition(row.condition), line), row.why);
  for (const char* wrong : {"", "visits", "visits >", "visits > x", "visits > nan", "slower > 0", "real > 1",
                            "profile == 1", "real.load_ms.none < 1", "> 5"}) {
    EXPECT_THROW(ParseFailCondition(wrong), std::runtime_error) << wrong;
  }
}

}  // namespace
}  // namespace replay
