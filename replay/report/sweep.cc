#include "replay/report/sweep.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"

namespace replay {
namespace {

double Time(const VisitFigures& visit, Metric metric, Way way) {
  return static_cast<double>(visit.times[Index(way)].*metric);
}

double Gain(const VisitFigures& visit, Metric metric) {
  return static_cast<double>(GainUs(visit, metric));
}

std::string OptionalText(const std::optional<double>& microseconds) {
  return microseconds ? SignedMillisecondsText(*microseconds) : "–";
}

// A loss that rounds to nothing is none.
Look LookOf(double gainUs) {
  constexpr double kNothingUs = 500;
  return gainUs > kNothingUs ? Look::Good : gainUs < -kNothingUs ? Look::Bad : Look::Plain;
}

Cell BadCount(uint64_t count) {
  return {fmt::format("{}", count), count > 0 ? Look::Bad : Look::Plain};
}

using VisitsBySetting = std::vector<std::vector<VisitFigures>>;

Table EventTable(const VisitsBySetting& visits, const Settings& settings, const MetricWords& words) {
  Table table = {
      Heading({"", "gain", "share", "slower", "against first", "p5", "p95", "total", "better", "worse"})};
  table[0][0].text = std::string(words.text) + ", ms";
  for (size_t index = 0; index < settings.size(); ++index) {
    const Gains gains = GainsOf(visits[index], words.metric).value();
    double off = 0;
    uint64_t slower = 0;
    for (const VisitFigures& visit : visits[index]) {
      off += Time(visit, words.metric, Way::Off);
      if (IsLater(Time(visit, words.metric, Way::Plugin), Time(visit, words.metric, Way::Off))) ++slower;
    }
    TableRow row = {{PrintableText(settings[index].text), Look::Bold},
                    {SignedMillisecondsText(gains.median)},
                    {PercentText(GainShare(off, off - gains.total))},
                    BadCount(slower)};
    if (index > 0) {
      const Difference against = DifferenceOf(visits[0], visits[index], words.metric).value();
      row.push_back({SignedMillisecondsText(against.gains.median), LookOf(against.gains.median)});
      row.push_back({OptionalText(against.gains.p5)});
      row.push_back({OptionalText(against.gains.p95)});
      row.push_back({SignedMillisecondsText(against.gains.total), LookOf(against.gains.total)});
      row.push_back({fmt::format("{}", against.better)});
      row.push_back(BadCount(against.worse));
    }
    table.push_back(std::move(row));
  }
  return table;
}

Table PreloadTable(const VisitsBySetting& visits, const Settings& settings) {
  Table table = {
      Heading({"preloads", "number", "unused", "bytes", "unused bytes", "share", "against first"})};
  const auto unusedBytes = [&](size_t index) {
    return static_cast<int64_t>(TotalsOf(visits[index]).counts.unusedBytes);
  };
  for (size_t index = 0; index < settings.size(); ++index) {
    const PluginCounts counts = TotalsOf(visits[index]).counts;
    TableRow row = {{PrintableText(settings[index].text), Look::Bold},
                    {fmt::format("{}", counts.preloads)},
                    {fmt::format("{}", counts.unusedPreloads)},
                    {BytesText(counts.preloadedBytes)},
                    {BytesText(counts.unusedBytes)},
                    {PercentText(ShareOf(counts.unusedBytes, counts.preloadedBytes))}};
    if (index > 0) {
      const int64_t more = unusedBytes(index) - unusedBytes(0);
      const std::string text = BytesText(static_cast<uint64_t>(more < 0 ? -more : more));
      row.push_back(more > 0   ? Cell{"+" + text, Look::Bad}
                    : more < 0 ? Cell{"-" + text, Look::Good}
                               : Cell{"0"});
    }
    table.push_back(std::move(row));
  }
  return table;
}

}  // namespace

const char* const kSweepNote =
    "Gain, share and slower are against off under the same setting. Against first is the gain of a visit "
    "less its "
    "gain under the first setting: the median, percentiles and total over the visits. Better and worse count "
    "the visits in which that is more than 1% of the time.";

std::optional<Difference> DifferenceOf(const std::vector<VisitFigures>& first,
                                       const std::vector<VisitFigures>& other, Metric metric) {
  Difference difference;
  std::vector<double> gains;
  for (size_t index = 0; index < first.size(); ++index) {
    const double gain = Gain(other.at(index), metric) - Gain(first[index], metric);
    gains.push_back(gain);
    const double time = Time(other[index], metric, Way::Plugin);
    if (IsLater(time, time + gain)) ++difference.worse;
    if (IsLater(time + gain, time)) ++difference.better;
  }
  const std::optional<Gains> all = GainsOf(gains);
  if (!all) return std::nullopt;
  difference.gains = *all;
  return difference;
}

std::vector<Summary> TotalsBySetting(const std::vector<RecordingReport>& reports, const Settings& settings) {
  std::vector<Summary> totals(settings.size());
  for (const RecordingReport& report : reports) {
    for (size_t index = 0; index < settings.size(); ++index)
      AddTo(totals[index], SummaryUnder(report, index));
  }
  return totals;
}

std::vector<SweepTables> TablesOf(const std::vector<RecordingReport>& reports, const Settings& settings) {
  const std::vector<Summary> totals = TotalsBySetting(reports, settings);
  std::vector<SweepTables> all;
  for (const bool copies : {false, true}) {
    VisitsBySetting visits;
    for (const Summary& total : totals) visits.push_back(Select(total.repeats, copies));
    if (visits[0].empty()) continue;
    SweepTables tables = {
        .title = fmt::format("{} {} under {} settings", visits[0].size(),
                             copies ? "copies, which visit a recorded load again," : "real repeat visits",
                             settings.size())};
    for (const MetricWords& words : kMetrics) {
      if (words.metric != &LoadTimes::firstPaintUs && words.metric != &LoadTimes::pageLoadUs) continue;
      tables.tables.push_back(EventTable(visits, settings, words));
    }
    tables.tables.push_back(PreloadTable(visits, settings));
    all.push_back(std::move(tables));
  }
  return all;
}

}  // namespace replay
