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

std::string ErrorOf(const std::string& text) {
  LineMerger merger;
  return tests::ErrorOf([&] { Add(merger, text); });
}

TEST(LineMerger, MakesTheSameReportsOfAnyShards) {
  const ReplayOptions options = SomeSettings();
  const std::vector<Summary> summaries = {SummaryNamed("a.har"), SummaryNamed("b.har"),
                                          SummaryNamed("c.har")};
  const std::string failed = JsonErrorLine("d.har", "no") + "\n";
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
    EXPECT_EQ(JsonSummaryLine(merged, merger.Settings().value()) + "\n", last);
    EXPECT_EQ(TextReport(merged, *merger.Settings(), {}), TextReport(summaries, options, {}));
    EXPECT_EQ(JsonLine(merged[1], *merger.Settings()) + "\n", lines[1]);
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

TEST(CsvReport, EveryRowHasTheColumnsOfTheHeading) {
  Summary summary = SummaryNamed("a,\"b\".har");
  summary.skipped = {{"data: URL", 2}, {"websocket", 3}};
  const auto cells = [](const std::string& row) { return std::count(row.begin(), row.end(), ','); };
  const std::string heading = CsvHeading();
  const std::string row = CsvRow(summary, SomeSettings());
  EXPECT_TRUE(heading.starts_with("recording,profile,")) << heading;
  EXPECT_TRUE(heading.ends_with(",error\r\n")) << heading;
  EXPECT_NE(heading.find(",real.load_ms.off,"), std::string::npos) << heading;
  EXPECT_TRUE(row.starts_with("\"a,\"\"b\"\".har\",3g,")) << row;
  EXPECT_EQ(cells(row), cells(heading) + 1) << "the comma in the name";
  EXPECT_EQ(cells(CsvErrorRow("a.har", "no")), cells(heading));
  EXPECT_TRUE(CsvErrorRow("a.har", "no").ends_with(",no\r\n"));
  std::istringstream names(heading), values(CsvRow(SummaryNamed("a.har"), SomeSettings()));
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
