#include "replay/report/report_json.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "replay/report/advice_json.h"
#include "replay/report/merge_lines.h"
#include "replay/report/summary_json.h"
#include "replay/report/sweep.h"

namespace replay {
namespace {

using Json = nlohmann::ordered_json;

// Shares have four decimals, so that equal figures are equal text.
Json Share(const std::optional<double>& share) {
  if (!share) return nullptr;
  return std::round(*share * 1e4) / 1e4;
}

Json Optional(const std::optional<double>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json Milliseconds(double microseconds) {
  return std::round(microseconds) / 1e3;
}

Json Milliseconds(const std::optional<double>& microseconds) {
  return microseconds ? Milliseconds(*microseconds) : Json(nullptr);
}

Json Milliseconds(const Figures& figures, Way way) {
  return figures ? Milliseconds(At(figures, way)) : Json(nullptr);
}

Json SpreadOf(const std::optional<Gains>& gains) {
  return {{"p5", gains ? Milliseconds(gains->p5) : Json(nullptr)},
          {"p50", gains ? Milliseconds(gains->median) : Json(nullptr)},
          {"p95", gains ? Milliseconds(gains->p95) : Json(nullptr)},
          {"total", Milliseconds(gains ? gains->total : 0)}};
}

// The metrics of which `real` and `copies` have the sums.
constexpr std::array<Metric, 3> kSummed = {&LoadTimes::pageLoadUs, &LoadTimes::firstPaintUs,
                                           &LoadTimes::objectIndexUs};

// What `real` and `copies` are.
Json Group(const std::vector<VisitFigures>& visits) {
  const Totals totals = TotalsOf(visits);
  Json group;
  group["visits"] = totals.visits;
  group["slower_visits"] = totals.slowerVisits;
  group["later_paint_visits"] = totals.laterPaintVisits;
  for (const Metric metric : kSummed) {
    const auto words = std::find_if(kMetrics.begin(), kMetrics.end(),
                                    [metric](const MetricWords& row) { return row.metric == metric; });
    Json& sums = group[words->key];
    for (const Way way : kWays) {
      sums[WordsFor(way).key] = Milliseconds(static_cast<double>(totals.times[Index(way)].*metric));
    }
  }
  group["gain_ms"] = SpreadOf(GainsOf(visits, &LoadTimes::pageLoadUs));
  group["first_paint_gain_ms"] = SpreadOf(GainsOf(visits, &LoadTimes::firstPaintUs));
  group["preloads"] = totals.counts.preloads;
  group["unused_preloads"] = totals.counts.unusedPreloads;
  group["preloaded_bytes"] = totals.counts.preloadedBytes;
  group["unused_bytes"] = totals.counts.unusedBytes;
  group["unused_connections"] = totals.counts.unusedConnections;
  return group;
}

// The medians of several recordings together would compare visits that have nothing in common.
void AddMedians(Json& line, const std::vector<VisitFigures>& visits) {
  const Figures medians = Medians(visits, &LoadTimes::pageLoadUs);
  const Figures p95 = Percentile95s(visits, &LoadTimes::pageLoadUs);
  for (const Way way : kWays) line[std::string(WordsFor(way).key) + "_ms"] = Milliseconds(medians, way);
  for (const Way way : kWays) line[std::string(WordsFor(way).key) + "_p95_ms"] = Milliseconds(p95, way);
}

void AddConditions(Json& line, const Setting& setting) {
  const ReplayOptions& options = setting.options;
  line["profile"] = options.profile.name;
  line["rtt_ms"] = Optional(options.profile.rttMs);
  line["down_mbit"] = Optional(options.profile.downMbit);
  if (!setting.text.empty()) line["setting"] = setting.text;
}

void AddCounts(Json& line, const Summary& summary) {
  line["visits"] = summary.visits;
  line["repeat_visits"] = summary.repeats.size();
  line["requests"] = summary.requests;
}

void AddFigures(Json& line, const Summary& summary) {
  const std::vector<VisitFigures> visits = Headline(summary.repeats);
  const Totals totals = TotalsOf(visits);
  line["gap_closed"] = Share(GapClosedOverall(visits, Way::Oracle));
  line["gap_closed_per_visit"] = Share(GapClosedPerVisit(visits, Way::Oracle));
  line["reachable_gap_closed"] = Share(GapClosedOverall(visits, kBound));
  line["reachable_gap_closed_per_visit"] = Share(GapClosedPerVisit(visits, kBound));
  line["slower_visits"] = totals.slowerVisits;
  line["served"] = totals.counts.served;
  line["joined"] = totals.counts.joined;
  line["fetched"] = totals.counts.fetched;
  line["from_disk_cache"] = totals.counts.fromDiskCache;
  line["preloads"] = totals.counts.preloads;
  line["preloaded_bytes"] = totals.counts.preloadedBytes;
  line["wasted_bytes"] = totals.counts.unusedBytes;
  line["real"] = Group(Select(summary.repeats, false));
  line["copies"] = Group(Select(summary.repeats, true));
  line["commands"] = summary.commands;
  line["unanswered_commands"] = summary.unansweredCommands;
  line["warnings"] = summary.warnings;
  Json& parents = line["parents"] = {{"recorded_pages", summary.recordedPages},
                                     {"inferred_pages", summary.inferredPages}};
  const auto prediction = PredictionOf(summary.startErrors);
  parents["compared_requests"] = prediction ? prediction->requests : 0;
  parents["inferred_closer"] = prediction ? prediction->inferredCloser : 0;
  parents["recorded_error_ms"] = prediction ? Json(std::round(prediction->recordedMs)) : Json(nullptr);
  parents["inferred_error_ms"] = prediction ? Json(std::round(prediction->inferredMs)) : Json(nullptr);
  line["skipped"] = Json(summary.skipped);
  Json& reasons = line["reasons"] = Json::object();
  for (const auto& [why, count] : summary.reasons) reasons[host::WordsFor(why).key] = count;
}

// What `against_first` is. The visits are pairs.
Json Against(const std::vector<VisitFigures>& first, const std::vector<VisitFigures>& visits) {
  Json group;
  group["visits"] = visits.size();
  for (const MetricWords& words : kMetrics) {
    const std::optional<Difference> difference = DifferenceOf(first, visits, words.metric);
    Json& figures = group[words.key] = SpreadOf(difference ? std::optional(difference->gains) : std::nullopt);
    figures["better_visits"] = difference ? difference->better : 0;
    figures["worse_visits"] = difference ? difference->worse : 0;
  }
  group["unused_bytes"] = static_cast<int64_t>(TotalsOf(visits).counts.unusedBytes) -
                          static_cast<int64_t>(TotalsOf(first).counts.unusedBytes);
  return group;
}

void AddAgainstFirst(Json& line, const Summary& first, const Summary& summary) {
  line["against_first"] = {{"real", Against(Select(first.repeats, false), Select(summary.repeats, false))},
                           {"copies", Against(Select(first.repeats, true), Select(summary.repeats, true))}};
}

Json SavingOf(const Saving& saving) {
  return {{"p50", Milliseconds(saving.median)},
          {"total", Milliseconds(saving.total)},
          {"better_visits", saving.betterVisits},
          {"worse_visits", saving.worseVisits}};
}

Json AdviceOf(const RecordingReport& report) {
  if (!report.advised) return nullptr;
  Json all = Json::array();
  for (const Advice& advice : report.advice) {
    all.push_back({{"kind", WordsFor(advice.change.kind).key},
                   {"server", advice.change.server},
                   {"resources", advice.change.count},
                   {"visits", advice.visits},
                   {"load_ms", SavingOf(advice.load)},
                   {"first_paint_ms", SavingOf(advice.firstPaint)},
                   {"load_total_without_plugin_ms", Milliseconds(advice.totalWithoutPlugin)},
                   {"text", AdviceText(advice)},
                   {"urls", advice.change.urls}});
  }
  return all;
}

std::string Line(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string RecordingLine(const RecordingReport& report, size_t index, const Settings& settings) {
  const Summary& summary = SummaryUnder(report, index);
  Json line;
  line["recording"] = summary.name;
  AddConditions(line, settings[index]);
  AddCounts(line, summary);
  AddMedians(line, summary.repeats);
  AddFigures(line, summary);
  if (IsSweep(settings)) {
    AddAgainstFirst(line, report.summary, summary);
    for (const Setting& setting : settings) line["merge"]["sweep"].push_back(setting.text);
  }
  line["advice"] = AdviceOf(report);
  line["merge"]["settings"] = Json::parse(SettingsJson(settings[index].options));
  nlohmann::json figures = summary;
  figures.erase("name");  // it is in the line already
  line["merge"]["figures"] = figures;
  if (report.advised) line["merge"]["advice"] = nlohmann::json(report.advice);
  return Line(line);
}

std::string SummaryLine(const std::vector<Summary>& totals, size_t index, size_t recordings,
                        const Settings& settings) {
  const Summary& total = totals[index];
  Json line;
  line["summary"] = true;
  line["recordings"] = recordings;
  AddConditions(line, settings[index]);
  AddCounts(line, total);
  line["headline"] = HeadlineIsOfCopies(total.repeats) ? "copies" : "real";
  AddFigures(line, total);
  if (IsSweep(settings)) AddAgainstFirst(line, totals.front(), total);
  return Line(line);
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace

const ReportFormat kJsonFormat = {
    .option = "--json",
    .what = "write one JSON object per recording and line, as soon as it is ready",
    .signature = "{\"recording\":",
    .lines = [](const RecordingReport& report,
                const Settings& settings) { return Joined(JsonLines(report, settings)); },
    .lastLines = [](const std::vector<RecordingReport>& reports,
                    const Settings& settings) { return Joined(JsonSummaryLines(reports, settings)); }};

std::vector<std::string> JsonLines(const RecordingReport& report, const Settings& settings) {
  if (report.status != ReplayStatus::Done) {
    return {Line({{"recording", report.summary.name}, {"error", report.error}})};
  }
  std::vector<std::string> lines;
  for (size_t index = 0; index < settings.size(); ++index) {
    lines.push_back(RecordingLine(report, index, settings));
  }
  return lines;
}

std::vector<std::string> JsonSummaryLines(const std::vector<RecordingReport>& reports,
                                          const Settings& settings) {
  const std::vector<Summary> totals = TotalsBySetting(reports, settings);
  std::vector<std::string> lines;
  for (size_t index = 0; index < settings.size(); ++index) {
    lines.push_back(SummaryLine(totals, index, reports.size(), settings));
  }
  return lines;
}

}  // namespace replay
