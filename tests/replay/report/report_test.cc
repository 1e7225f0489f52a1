// The reports: figures worked out by hand, and what must hold for the texts whatever the recording contains.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "replay/report/figure_text.h"
#include "replay/report/har_writer.h"
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
using tests::JsonLine;
using tests::JsonSummaryLine;

// Load events, in microseconds.
struct Loads {
  int64_t off, plugin, hints, oracle;
};

// First paint comes at half of the load.
Visit VisitWith(const Loads& loads, bool repeat = true, bool copy = false) {
  Visit visit{.repeat = repeat,
              .copy = copy,
              .served = 2,
              .joined = 1,
              .fetched = 3,
              .preloadedBytes = 40,
              .unusedBytes = 10,
              .commands = 5};
  for (const auto& [way, load] : {std::pair(Way::Off, loads.off), std::pair(Way::Plugin, loads.plugin),
                                  std::pair(Way::Hints, loads.hints), std::pair(Way::Oracle, loads.oracle)}) {
    visit.ways[Index(way)].times.pageLoadUs = load;
    visit.ways[Index(way)].times.firstPaintUs = load / 2;
  }
  WayResult& plugin = visit.ways[Index(Way::Plugin)];
  plugin.requests = {{.why = host::NotServed::None},
                     {.request = 1, .why = host::NotServed::Html},
                     {.request = 2, .why = host::NotServed::NotKnownYet, .beacon = true},
                     {.source = Source::Joined, .why = host::NotServed::StillRunning},
                     {.source = Source::DiskCache, .why = host::NotServed::FreshInDiskCache}};
  plugin.lastRequest = 2;
  plugin.preloads = {
      {.fate = PreloadFate::Served}, {.fate = PreloadFate::Joined}, {.fate = PreloadFate::Failed}};
  plugin.connections = 6;
  plugin.unusedConnections = 1;
  visit.ways[Index(Way::Off)].requests = plugin.requests;
  return visit;
}

Summary SummaryOf(const std::vector<Loads>& repeatVisits, bool copies = false) {
  RecordingResult result{.name = "a.har", .skipped = {{"data: URL", 2}}};
  result.visits.push_back(VisitWith({9000000, 9000000, 0, 0}, false));
  for (const Loads& loads : repeatVisits) result.visits.push_back(VisitWith(loads, true, copies));
  return Summarize(result);
}

size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Summary, AddsUpRepeatVisitsOnly) {
  const Loads first = {1000000, 1010000, 700000, 500000}, second = {1000000, 1010002, 900000, 600000};
  Summary total;
  AddTo(total, SummaryOf({first}));
  AddTo(total, SummaryOf({second}));
  for (const Summary& summary : {SummaryOf({first, second}), total}) {
    EXPECT_EQ(summary.requests, 5 * summary.visits) << "of all visits";
    EXPECT_EQ(summary.commands, 5 * summary.visits) << "of all visits";
    using host::NotServed;
    const std::map<NotServed, uint64_t> fetched = {{NotServed::NotKnownYet, 2}, {NotServed::Html, 2}};
    std::map<NotServed, uint64_t> reasons = fetched;
    reasons[NotServed::StillRunning] = reasons[NotServed::FreshInDiskCache] = 2;
    EXPECT_EQ(summary.reasons, reasons);
    EXPECT_EQ(summary.fetchedReasons, fetched) << "what was joined or fresh is no failure";

    const Totals totals = TotalsOf(summary.repeats);
    EXPECT_EQ(totals.visits, 2U);
    EXPECT_EQ(totals.slowerVisits, 1U) << "exactly 1% is not more";
    EXPECT_EQ(totals.laterPaintVisits, 1U) << "the same rule";
    EXPECT_EQ(totals.times[Index(Way::Plugin)].pageLoadUs, 2020002);
    EXPECT_EQ(totals.times[Index(Way::Plugin)].firstPaintUs, 1010001);
    EXPECT_EQ(totals.endedByBeacon, 0U) << "without the plugin the load ended otherwise";
    EXPECT_TRUE(summary.repeats[0].endedByBeacon[Index(Way::Plugin)]);
    EXPECT_EQ(
        (std::vector{totals.counts.served, totals.counts.joined, totals.counts.fetched,
                     totals.counts.preloads, totals.counts.unusedPreloads, totals.counts.preloadedBytes,
                     totals.counts.unusedBytes, totals.counts.connections, totals.counts.unusedConnections}),
        (std::vector<uint64_t>{4, 2, 6, 6, 2, 80, 20, 12, 2}));
  }
  EXPECT_EQ(SummaryOf({first, second}).visits, 3U);
  EXPECT_EQ(total.visits, 4U);
  EXPECT_EQ(total.skipped.at("data: URL"), 4U);
}

TEST(Summary, TheHeadlineIsOfCopiesOnlyWhereThereIsNothingElse) {
  const Summary real = SummaryOf({{100, 80, 0, 0}}),
                copies = SummaryOf({{900, 90, 0, 0}, {900, 90, 0, 0}}, true);
  Summary both = copies;
  AddTo(both, real);
  for (const auto& [summary, count, gain] :
       {std::tuple(real, 1U, 20.0), std::tuple(copies, 2U, 810.0), std::tuple(both, 1U, 20.0)}) {
    const std::vector<VisitFigures> headline = Headline(summary.repeats);
    EXPECT_EQ(headline.size(), count);
    EXPECT_EQ(GainsOf(headline, &LoadTimes::pageLoadUs)->median, gain);
  }
  EXPECT_EQ(Select(both.repeats, true).size(), 2U);
  EXPECT_FALSE(HeadlineIsOfCopies({}));
}

TEST(Summary, GainsArePairedAndHaveNoPercentileOfFewVisits) {
  struct Case {
    std::vector<Loads> visits;
    double median;
    std::optional<double> p5, p95;
    double worst, best, total;
    const char* why;
  };
  std::vector<Loads> nineteen, twenty, twentyOne;
  for (int64_t gain = 1; gain <= 21; ++gain) {
    // The load times say nothing of the gains: the smallest gain is of the longest load.
    const Loads loads = {1000 - 7 * gain, 1000 - 8 * gain, 0, 0};
    if (gain <= 19) nineteen.push_back(loads);
    if (gain <= 20) twenty.push_back(loads);
    twentyOne.push_back(loads);
  }
  const std::optional<double> none;
  for (const Case& row :
       {Case{
            {{100, 40, 0, 0}, {900, 910, 0, 0}}, 25, none, none, -10, 60, 50, "not 500 - 475 of two medians"},
        Case{nineteen, 10, none, none, 1, 19, 190, "one too few"},
        Case{twenty, 10.5, 1, 19, 1, 20, 210, "1 and 19 of 20 are exactly 5 and 95%"},
        Case{twentyOne, 11, 2, 20, 1, 21, 231, "1 and 19 of 21 are less than 5 and 95%"}}) {
    const Gains gains = GainsOf(SummaryOf(row.visits).repeats, &LoadTimes::pageLoadUs).value();
    EXPECT_EQ(gains.median, row.median) << row.why;
    EXPECT_EQ(gains.p5, row.p5) << row.why;
    EXPECT_EQ(gains.p95, row.p95) << row.why;
    EXPECT_EQ(gains.worst, row.worst) << row.why;
    EXPECT_EQ(gains.best, row.best) << row.why;
    EXPECT_EQ(gains.total, row.total) << row.why;
  }
  EXPECT_FALSE(GainsOf({}, &LoadTimes::pageLoadUs));

  const auto figure = [&none](const Figures& figures) {
    return figures ? std::optional(At(figures, Way::Off)) : none;
  };
  const auto visits = SummaryOf(twenty).repeats, few = SummaryOf(nineteen).repeats;
  EXPECT_EQ(figure(Medians(visits, &LoadTimes::pageLoadUs)), 926.5) << "even: the mean of the middle two";
  EXPECT_EQ(figure(Medians(few, &LoadTimes::pageLoadUs)), 930);
  EXPECT_EQ(figure(Percentile95s(visits, &LoadTimes::pageLoadUs)), 986);
  EXPECT_EQ(figure(Percentile95s(few, &LoadTimes::pageLoadUs)), none);
  EXPECT_EQ(figure(Medians({}, &LoadTimes::pageLoadUs)), none);
}

TEST(Summary, GapClosed) {
  constexpr double kNone = 99;
  struct Case {
    std::vector<Loads> visits;  // milliseconds
    double overall, perVisit;
    const char* why;
  };
  for (const Case& row :
       {Case{{{100, 80, 0, 50}, {1000, 500, 0, 500}}, 520.0 / 550, 0.7, "the sum follows the long visit"},
        Case{{{100, 110, 0, 50}}, -0.2, -0.2, "a loss"},
        Case{{{100, 100, 0, 100}, {100, 75, 0, 50}}, 0.5, 0.5, "a visit without a gap is left out"},
        Case{{{100, 100, 0, 100}}, kNone, kNone, "no gap"}, Case{{{100, 100, 0, 99}}, 0, 0, "1 ms is one"},
        Case{{{100, 100, 0, 120}}, kNone, kNone, "a bound that is none"},
        Case{{}, kNone, kNone, "no repeat visit"}}) {
    std::vector<Loads> visits = row.visits;
    for (Loads& loads : visits) loads = {loads.off * 1000, loads.plugin * 1000, 0, loads.oracle * 1000};
    const Summary summary = SummaryOf(visits);
    EXPECT_DOUBLE_EQ(GapClosedOverall(summary.repeats, Way::Oracle).value_or(kNone), row.overall) << row.why;
    EXPECT_DOUBLE_EQ(GapClosedPerVisit(summary.repeats, Way::Oracle).value_or(kNone), row.perVisit)
        << row.why;
  }
  EXPECT_FALSE(GapClosed(2000, 1500, 1001)) << "below 1 ms";
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
  EXPECT_TRUE(line.at("oracle_p95_ms").is_null()) << "no percentile of one visit";
  EXPECT_EQ(line["gap_closed"], 0.399);
  EXPECT_EQ(line["skipped"], (json{{"data: URL", 2}}));
  EXPECT_EQ(line["reasons"],
            (json{{"not_known_yet", 1}, {"html", 1}, {"still_running", 1}, {"fresh_in_disk_cache", 1}}));
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
  EXPECT_EQ(nothing["real"]["gain_ms"], json::parse(R"({"p5":null,"p50":null,"p95":null,"total":0.0})"));
}

TEST(JsonReport, RealRepeatsAndCopiesApartInEachLineAndTheSummary) {
  const Summary real = SummaryOf({{1000000, 800500, 700000, 500000}, {1000000, 1100000, 700000, 500000}});
  const Summary copies = SummaryOf({{4000000, 2000000, 3000000, 1000000}}, true);
  const json summary = json::parse(JsonSummaryLine({real, copies}, ReplayOptions()));
  const json realLine = json::parse(JsonLine(real, ReplayOptions()));
  const json copiesLine = json::parse(JsonLine(copies, ReplayOptions()));
  EXPECT_EQ(summary["real"], realLine["real"]);
  EXPECT_EQ(summary["copies"], copiesLine["copies"]);
  EXPECT_EQ(realLine["copies"], json::parse(JsonLine(SummaryOf({}), ReplayOptions()))["copies"]);

  json ways = json::object();
  for (const Way way : kWays) ways[WordsFor(way).key] = 0.0;
  json expected = {
      {"visits", 2},
      {"slower_visits", 1},
      {"later_paint_visits", 1},
      {"preloads", 6},
      {"unused_preloads", 2},
      {"preloaded_bytes", 80},
      {"unused_bytes", 20},
      {"unused_connections", 2},
      {"object_index_ms", ways},
      {"gain_ms", {{"p5", nullptr}, {"p50", 49.75}, {"p95", nullptr}, {"total", 99.5}}},
      {"first_paint_gain_ms", {{"p5", nullptr}, {"p50", 24.875}, {"p95", nullptr}, {"total", 49.75}}}};
  ways.update({{"off", 2000.0}, {"plugin", 1900.5}, {"hints", 1400.0}, {"oracle", 1000.0}});
  expected["load_ms"] = ways;
  ways.update({{"off", 1000.0}, {"plugin", 950.25}, {"hints", 700.0}, {"oracle", 500.0}});
  expected["first_paint_ms"] = ways;
  EXPECT_EQ(realLine["real"], expected);

  EXPECT_EQ(summary["summary"], true);
  EXPECT_EQ(summary["recordings"], 2);
  EXPECT_EQ(summary["repeat_visits"], 3);
  EXPECT_EQ(summary["headline"], "real");
  EXPECT_EQ(summary["slower_visits"], 1);
  EXPECT_FALSE(summary.contains("off_ms")) << "no medians over recordings that have nothing in common";
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
    summaries.push_back(summary);
  }
  const std::string text = TextReport(summaries, ReplayOptions(), {});
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << "nothing reaches the terminal that could control it";
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  ASSERT_GT(lines.size(), 8U);
  for (const std::string& line : lines) EXPECT_LE(Columns(line), 120U) << line;
  for (size_t row = 2; row <= 6; ++row) EXPECT_EQ(Columns(lines[row]), Columns(lines[2])) << lines[row];
  EXPECT_NE(lines[6].find(R"(\u001b[\xff)"), std::string::npos) << lines[6];
  for (const size_t columns : {40U, 60U, 80U}) {
    std::istringstream narrow(TextReport(summaries, ReplayOptions(), {.columns = columns}));
    for (std::string line; std::getline(narrow, line);) EXPECT_LE(Columns(line), columns) << line;
  }

  const Summary copies = SummaryOf({{1000000, 990000, 0, 0}}, true);
  const std::string apart = TextReport({summaries[0], copies}, ReplayOptions(), {});
  EXPECT_NE(apart.find("\n1 real repeat visit\n"), std::string::npos) << apart;
  EXPECT_NE(apart.find("\n1 copy of a recorded load\n"), std::string::npos);
  EXPECT_NE(apart.find("Unused: 1 of 3 preloads (33%), 10 B of 40 B (25%), 1 of 6 connections."),
            std::string::npos);
  EXPECT_EQ(apart.find("still running"), std::string::npos) << "what was joined is no failure";

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
  EXPECT_EQ(CountOf(html, " style="), 0U) << "the policy allows no style of a single element";
  EXPECT_EQ(CountOf(html, "default-src 'none'; style-src 'sha256-"), 1U);
  EXPECT_NE(html.find("<a href=\"#r3\">&lt;/script&gt;&lt;b&gt;&amp;&quot;.har</a>"), std::string::npos);
  EXPECT_NE(html.find("<th scope=\"row\">not known yet</th>"), std::string::npos)
      << "reasons are there without script";

  const size_t begin = html.find("<script type=\"application/json\">") + 32;
  const json data = json::parse(html.substr(begin, html.find("</script>", begin) - begin));
  ASSERT_EQ(data["visits"].size(), 3U);
  EXPECT_EQ(data["visits"][0]["ways"].size(), 2U) << "a first visit has no oracle";
  EXPECT_EQ(data["visits"][1]["ways"].size(), kWays.size());
  const json& lines = data["visits"][2]["lines"];
  EXPECT_EQ(lines.size(), 49U) << "all 47 requests once, and the two preloads that nobody asked for";
  size_t preloads = 0, unasked = 0, served = 0;
  const auto text = [&data](const json& number) { return data["texts"].at(number.get<size_t>()); };
  for (const json& line : lines) {
    const json &preload = line.at(2), &plugin = line.at(4);
    if (!preload.is_null()) ++preloads;
    if (line.at(0).is_null()) ++unasked;
    if (plugin.is_null() || text(plugin.at(0)) != "served") continue;
    ++served;
    EXPECT_EQ(text(preload.at(2)), "served") << "the bar of a served request shows its own preload";
  }
  EXPECT_EQ(preloads, replayed.result.visits[2].ways[1].preloads.size());
  EXPECT_EQ(unasked, 2U);
  EXPECT_EQ(served, replayed.result.visits[2].served);
  EXPECT_TRUE(served > 0 && replayed.result.visits[2].joined > 0) << "the page shows something";
}

TEST(HarWriter, WritesEveryRequestAndPreloadAsAnEntry) {
  tests::Replayed replayed = tests::MakeReplayed("a.har");
  Request& odd = replayed.recording.pages[0].requests[5];
  odd.url = "https://a.test/x y|\xff?q=1&r&=%20#f?g=2";
  replayed.result.visits[0].ways[1].times.pageLoadUs = 977499;
  const std::string part = HarPartOf(0, replayed.recording, replayed.result, ReplayOptions());
  std::string file;
  WriteHar({part, part}, [&file](std::string_view text) { file += text; });
  const json log = json::parse(file)["log"];
  EXPECT_EQ(log["version"], "1.2");
  ASSERT_EQ(log["pages"].size(), 12U) << "three visits without the plugin and with it";
  EXPECT_EQ(log["pages"][2]["comment"], "visit 2, off");
  EXPECT_EQ(log["pages"][3]["startedDateTime"], "2000-01-01T01:00:00.977Z") << "the first load, and an hour";
  EXPECT_EQ(log["pages"][3]["pageTimings"]["onLoad"],
            static_cast<double>(replayed.result.visits[1].ways[1].times.pageLoadUs) / 1e3);

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
    EXPECT_EQ(entry["response"]["headers"][0], (json{{"name", "Content-Type"}, {"value", odd.mimeType}}));
    EXPECT_EQ(entry["request"]["headers"].size(), 7U);
  }
  const auto& visits = replayed.result.visits;
  EXPECT_EQ(preloads, 2 * (visits[1].ways[1].preloads.size() + visits[2].ways[1].preloads.size()));
  EXPECT_EQ(query, 4U) << "in both ways, once in each part";
}

TEST(RecordingReport, SurvivesTheWayBetweenProcesses) {
  const tests::Replayed replayed = tests::MakeReplayed("a\xff.har");
  RecordingReport sent;
  sent.summary = Summarize(replayed.result);
  sent.index = 7;
  sent.parts = {{"--a", std::string("\0\xff", 2)}, {"--b", ""}};
  sent.logLines = {"01-01 00:00:00.002  1  1 W : \xfe", ""};
  const std::string bytes = Pack(sent);
  const RecordingReport received = Unpack(bytes);
  EXPECT_EQ(JsonLine(received.summary, ReplayOptions()), JsonLine(sent.summary, ReplayOptions()));
  EXPECT_EQ(received.summary.name, sent.summary.name);
  EXPECT_EQ(received.index, 7U);
  EXPECT_EQ(received.parts, sent.parts);
  EXPECT_EQ(received.logLines, sent.logLines);
  EXPECT_THROW(Unpack(bytes.substr(0, bytes.size() / 2)), std::runtime_error);
  EXPECT_THROW(Unpack(""), std::runtime_error);
}

}  // namespace
}  // namespace replay
