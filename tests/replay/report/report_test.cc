// The reports: figures worked out by hand, and what must hold for the texts whatever the recording contains.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"
#include "replay/report/recording_report.h"
#include "replay/report/report_html.h"
#include "replay/report/report_json.h"
#include "replay/report/report_text.h"
#include "replay/report/summary.h"
#include "tests/replay/report/report_fixture.h"

namespace replay {
namespace {

using nlohmann::json;

struct Loads {
  int64_t off, plugin, hints, oracle;
};

Visit VisitWith(const Loads& loads, bool repeat = true) {
  Visit visit{.repeat = repeat, .served = 2, .joined = 1, .fetched = 3, .wastedBytes = 10, .commands = 5};
  visit.ways[Index(Way::Off)].pageLoadUs = loads.off;
  visit.ways[Index(Way::Plugin)].pageLoadUs = loads.plugin;
  visit.ways[Index(Way::Hints)].pageLoadUs = loads.hints;
  visit.ways[Index(Way::Oracle)].pageLoadUs = loads.oracle;
  visit.ways[1].requests = {
      {.why = host::NotServed::None}, {.why = host::NotServed::Html}, {.why = host::NotServed::NotKnownYet}};
  return visit;
}

Summary SummaryOf(const std::vector<Loads>& repeatVisits) {
  RecordingResult result{.name = "a.har", .skipped = {{"data: URL", 2}}};
  result.visits.push_back(VisitWith({9000000, 9000000, 0, 0}, false));
  for (const Loads& loads : repeatVisits) result.visits.push_back(VisitWith(loads));
  return Summarize(result);
}

size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Summary, AddsUpRepeatVisitsOnly) {
  const Loads first = {1000000, 1010000, 700000, 500000}, second = {1000000, 1010001, 900000, 600000};
  Summary total;
  AddTo(total, SummaryOf({first}));
  AddTo(total, SummaryOf({second}));
  for (const Summary& summary : {SummaryOf({first, second}), total}) {
    EXPECT_EQ(summary.loads.size(), 2U);
    EXPECT_EQ(summary.requests, 3 * summary.visits) << "of all visits";
    EXPECT_EQ(summary.commands, 5 * summary.visits) << "of all visits";
    EXPECT_EQ(summary.served, 4U);
    EXPECT_EQ(summary.joined, 2U);
    EXPECT_EQ(summary.fetched, 6U);
    EXPECT_EQ(summary.wastedBytes, 20U);
    EXPECT_EQ(summary.reasons, (std::map<host::NotServed, uint64_t>{{host::NotServed::NotKnownYet, 2},
                                                                    {host::NotServed::Html, 2}}));
    EXPECT_EQ(summary.slowerVisits, 1U) << "exactly 1% is not more";
  }
  EXPECT_EQ(SummaryOf({first, second}).visits, 3U);
  EXPECT_EQ(total.visits, 4U);
  EXPECT_EQ(total.skipped.at("data: URL"), 4U);
}

TEST(Summary, FiguresOverVisits) {
  struct Case {
    std::vector<Loads> visits;
    double median, p95, mean;  // of the off way
    const char* why;
  };
  std::vector<Loads> twenty, twentyOne;
  for (int64_t load = 1; load <= 21; ++load) {
    if (load <= 20) twenty.push_back({load, 0, 0, 0});
    twentyOne.push_back({load, 0, 0, 0});
  }
  for (const Case& row : {Case{{{9, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 0}}, 2, 9, 4, "out of order"},
                          Case{{{4, 0, 0, 0}, {1, 0, 0, 0}}, 2.5, 4, 2.5, "even: the mean of the middle two"},
                          Case{twenty, 10.5, 19, 10.5, "19 of 20 are exactly 95%"},
                          Case{twentyOne, 11, 20, 11, "19 of 21 are less than 95%"}}) {
    const Summary summary = SummaryOf(row.visits);
    EXPECT_EQ(At(MedianLoads(summary), Way::Off), row.median) << row.why;
    EXPECT_EQ(At(Percentile95Loads(summary), Way::Off), row.p95) << row.why;
    EXPECT_DOUBLE_EQ(At(MeanLoads(summary), Way::Off), row.mean) << row.why;
  }
  EXPECT_FALSE(MedianLoads(SummaryOf({})));
}

TEST(Summary, GapClosed) {
  constexpr double kNone = 99;
  struct Case {
    std::vector<Loads> visits;
    double overall, perVisit;
    const char* why;
  };
  for (const Case& row :
       {Case{{{100, 80, 0, 50}, {1000, 500, 0, 500}}, 520.0 / 550, 0.7, "the sum follows the long visit"},
        Case{{{100, 110, 0, 50}}, -0.2, -0.2, "a loss"},
        Case{{{100, 100, 0, 100}, {100, 75, 0, 50}}, 0.5, 0.5, "a visit without a gap is left out"},
        Case{{{100, 100, 0, 100}}, kNone, kNone, "no gap"},
        Case{{{100, 100, 0, 120}}, kNone, kNone, "a bound that is none"},
        Case{{}, kNone, kNone, "no repeat visit"}}) {
    const Summary summary = SummaryOf(row.visits);
    EXPECT_DOUBLE_EQ(GapClosedOverall(summary).value_or(kNone), row.overall) << row.why;
    EXPECT_DOUBLE_EQ(GapClosedPerVisit(summary).value_or(kNone), row.perVisit) << row.why;
  }
}

TEST(FigureText, RoundsWithoutHidingTheSign) {
  const std::pair<std::string, const char*> cases[] = {
      {PercentText(0.4249), "42%"},         {PercentText(-0.004), "-0.4%"},
      {PercentText(0.00049), "0%"},         {PercentText(0.0995), "10%"},
      {PercentText(std::nullopt), "–"},     {SignedMillisecondsText(400), "0"},
      {SignedMillisecondsText(-600), "-1"}, {BytesText(999), "999 B"},
      {BytesText(999950), "1.0 MB"},        {DurationText(5400e3), "1.5 h"},
      {DurationText(90e3), "1.5 min"},      {DurationText(250), "250 ms"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(text, expected);
}

TEST(JsonReport, OneLineWithTheDocumentedKeys) {
  Summary summary = SummaryOf({{1000000, 800500, 700000, 500000}});
  summary.name = "b\xff\n.har";
  const std::string text = JsonLine(summary, ReplayOptions());
  EXPECT_EQ(text.find('\n'), std::string::npos);
  const json line = json::parse(text);
  EXPECT_EQ(line["recording"], "b\uFFFD\n.har") << "bytes that are not UTF-8 are replaced";
  EXPECT_EQ(line["off_ms"], 1000.0);
  EXPECT_EQ(line["plugin_ms"], 800.5);
  EXPECT_EQ(line["oracle_p95_ms"], 500.0);
  EXPECT_EQ(line["gap_closed"], 0.399);
  EXPECT_EQ(line["skipped"], (json{{"data: URL", 2}}));
  EXPECT_EQ(line["reasons"], (json{{"not_known_yet", 1}, {"html", 1}}));
  for (const char* key : {"visits", "requests", "hints_ms", "served", "joined", "fetched", "wasted_bytes",
                          "slower_visits", "repeat_visits", "from_disk_cache", "preloaded_bytes", "profile",
                          "commands", "unanswered_commands", "warnings", "rtt_ms", "down_mbit", "preloads"}) {
    EXPECT_TRUE(line.contains(key) && !line[key].is_null()) << key;
  }

  ReplayOptions native;
  native.profile = {"native", std::nullopt, std::nullopt};
  const json nothing = json::parse(JsonLine(SummaryOf({}), native));
  for (const char* key : {"off_ms", "oracle_p95_ms", "gap_closed", "gap_closed_per_visit", "rtt_ms"}) {
    EXPECT_TRUE(nothing.at(key).is_null()) << key;
  }
}

TEST(PrintableText, ShowsWhatATerminalWouldActOn) {
  const std::pair<const char*, const char*> cases[] = {
      {"Zürich – 東京 🙂", "Zürich – 東京 🙂"},
      {"a\nb\x1b[31m\x7f", R"(a\u000ab\u001b[31m\u007f)"},
      {"\xc2\x9b\xc2\xa0", "\\u009b\u00a0"},
      {"\u202egnp.\u2066\u200f\u061c", R"(\u202egnp.\u2066\u200f\u061c)"},
      {"\xff\xe2\x28\xc0\xaf", R"(\xff\xe2(\xc0\xaf)"},
  };
  for (const auto& [text, shown] : cases) EXPECT_EQ(PrintableText(text), shown);
}

// Columns of a line, for text without wide characters.
size_t Columns(const std::string& line) {
  return static_cast<size_t>(
      std::count_if(line.begin(), line.end(), [](char character) { return (character & 0xC0) != 0x80; }));
}

TEST(TextReport, FitsTheTerminalAndKeepsItsColumns) {
  std::vector<Summary> summaries;
  for (const std::string& name :
       {std::string("short.har"), std::string(300, 'n') + ".har",
        std::string("Zürich–Genève—ñandú-") + std::string(60, 'x'), std::string("\x1b[\xff")}) {
    Summary summary = SummaryOf({{123456789, 98765432, 87654321, 7654321}});
    summary.name = name;
    summary.wastedBytes = 987654321;
    summaries.push_back(summary);
  }
  const std::string text = TextReport(summaries, ReplayOptions(), {});
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << "nothing reaches the terminal that could control it";
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  ASSERT_GT(lines.size(), 8U);
  for (const std::string& line : lines) EXPECT_LE(Columns(line), 120U) << line;
  for (size_t row = 2; row <= 7; ++row) EXPECT_EQ(Columns(lines[row]), Columns(lines[2])) << lines[row];
  EXPECT_NE(lines[6].find(R"(\u001b[\xff)"), std::string::npos) << lines[6];

  EXPECT_NE(TextReport(summaries, ReplayOptions(), {.colour = true}).find("\x1b[1m"), std::string::npos);
  EXPECT_NE(TextReport({SummaryOf({})}, ReplayOptions(), {}).find("No page was visited twice"),
            std::string::npos);
}

TEST(HtmlReport, HoldsEverythingItselfWhateverTheUrls) {
  tests::Replayed replayed = tests::MakeReplayed("</script><b>&\".har");
  const Summary summary = Summarize(replayed.result);
  const HtmlSection section = HtmlSectionOf(3, replayed.recording, replayed.result);
  const std::string html = HtmlReport({summary}, {section}, ReplayOptions());

  EXPECT_EQ(CountOf(html, "<script"), 2U) << "the data and the script; what the URLs say begins none";
  EXPECT_EQ(CountOf(html, "</script"), 2U);
  EXPECT_EQ(CountOf(html, "<img"), 0U);
  EXPECT_EQ(CountOf(html, " src="), 1U) << "in the text of the hostile URL";
  for (const char* reference :
       {"url(", "@import", "<iframe", "<link rel=\"style", "href=\"http", "fetch(", "import("}) {
    EXPECT_EQ(CountOf(html, reference), 0U) << reference;
  }
  EXPECT_NE(html.find("<a href=\"#r3\">&lt;/script&gt;&lt;b&gt;&amp;&quot;.har</a>"), std::string::npos);
  EXPECT_NE(html.find("<th scope=\"row\">not known yet</th>"), std::string::npos)
      << "reasons are there without script";

  const size_t begin = html.find("<script type=\"application/json\">") + 32;
  const json data = json::parse(html.substr(begin, html.find("</script>", begin) - begin));
  ASSERT_EQ(data["visits"].size(), 3U);
  EXPECT_TRUE(data["visits"][0]["loads"].back().is_null()) << "a first visit has no oracle";
  const json& lines = data["visits"][2]["lines"];
  EXPECT_EQ(lines.size(), 41U) << "every request once, and the preload that nobody asked for";
  size_t preloads = 0, unasked = 0, served = 0;
  for (const json& line : lines) {
    if (line.size() > 6) ++preloads;
    if (line[3].is_null()) ++unasked;
    if (line[4] != "served") continue;
    ++served;
    EXPECT_EQ(line.at(8), "served") << "the bar of a served request shows its own preload";
  }
  EXPECT_EQ(preloads, replayed.result.visits[2].ways[1].preloads.size());
  EXPECT_EQ(unasked, 1U);
  EXPECT_EQ(served, replayed.result.visits[2].served);
  EXPECT_TRUE(served > 0 && replayed.result.visits[2].joined > 0) << "the page shows something";
}

TEST(HarWriter, WritesEveryRequestAndPreloadAsAnEntry) {
  tests::Replayed replayed = tests::MakeReplayed("a.har");
  replayed.recording.pages[0].requests[5].url = "https://a.test/x y|\xff?q=1&r&=%20#f?g=2";
  replayed.result.visits[0].ways[1].pageLoadUs = 977499;
  const HarPart part = HarPartOf(0, replayed.recording, replayed.result, ReplayOptions());
  const json log = json::parse(HarFile({part, part}))["log"];
  EXPECT_EQ(log["version"], "1.2");
  ASSERT_EQ(log["pages"].size(), 6U);
  EXPECT_EQ(log["pages"][1]["startedDateTime"], "2000-01-01T01:00:00.977Z") << "the first load, and an hour";
  EXPECT_EQ(log["pages"][1]["pageTimings"]["onLoad"],
            static_cast<double>(replayed.result.visits[1].ways[1].pageLoadUs) / 1e3);

  size_t preloads = 0, query = 0;
  for (const json& entry : log["entries"]) {
    double sum = 0;
    for (const auto& [name, value] : entry["timings"].items()) {
      if (name != "ssl" && value > 0) sum += value.get<double>();
    }
    EXPECT_NEAR(entry["time"].get<double>(), sum, 0.002) << entry["request"]["url"];
    if (entry.contains("_preload")) ++preloads;
    if (entry["request"]["url"] != "https://a.test/x%20y%7C%FF?q=1&r&=%20#f?g=2") continue;
    ++query;
    EXPECT_EQ(entry["request"]["queryString"],
              json::parse(R"([{"name":"q","value":"1"},{"name":"r","value":""},{"name":"","value":"%20"}])"));
    EXPECT_EQ(entry["response"]["statusText"], "OK");
    EXPECT_EQ(entry["response"]["headers"][1], (json{{"name", "Cache-Control"}, {"value", "max-age=60"}}));
    EXPECT_EQ(entry["request"]["headers"].size(), 2U);
  }
  const auto& visits = replayed.result.visits;
  EXPECT_EQ(preloads, 2 * (visits[1].ways[1].preloads.size() + visits[2].ways[1].preloads.size()));
  EXPECT_EQ(query, 6U) << "once per visit in both parts";
}

TEST(RecordingReport, SurvivesTheWayBetweenProcesses) {
  const tests::Replayed replayed = tests::MakeReplayed("a\xff.har");
  RecordingReport sent;
  sent.summary = Summarize(replayed.result);
  sent.html = HtmlSectionOf(7, replayed.recording, replayed.result);
  sent.har = HarPartOf(7, replayed.recording, replayed.result, ReplayOptions());
  sent.logLines = {"01-01 00:00:00.002  1  1 W : \xfe", ""};
  const std::string bytes = Pack(sent);
  const RecordingReport received = Unpack(bytes);
  EXPECT_EQ(JsonLine(received.summary, ReplayOptions()), JsonLine(sent.summary, ReplayOptions()));
  EXPECT_EQ(received.summary.name, sent.summary.name);
  EXPECT_EQ(received.html.number, 7U);
  EXPECT_EQ(received.html.text, sent.html.text);
  EXPECT_EQ(received.har.entries, sent.har.entries);
  EXPECT_EQ(received.logLines, sent.logLines);
  EXPECT_THROW(Unpack(bytes.substr(0, bytes.size() / 2)), std::runtime_error);
  EXPECT_THROW(Unpack(""), std::runtime_error);
}

}  // namespace
}  // namespace replay
