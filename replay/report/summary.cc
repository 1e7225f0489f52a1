#include "replay/report/summary.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace replay {
namespace {

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// By nearest rank.
std::optional<double> Percentile(std::vector<double> values, size_t percent) {
  if (values.size() < kLeastForPercentiles) return std::nullopt;
  std::sort(values.begin(), values.end());
  return values[(values.size() * percent + 99) / 100 - 1];
}

double Time(const VisitFigures& visit, Metric metric, Way way) {
  return static_cast<double>(visit.times[Index(way)].*metric);
}

// Reduces the times of each way to one; nothing when `reduce` finds nothing.
template <typename Reduce>
Figures EachWay(const std::vector<VisitFigures>& visits, Metric metric, const Reduce& reduce) {
  if (visits.empty()) return std::nullopt;
  PerWay<double> figures{};
  for (const Way way : kWays) {
    std::vector<double> times;
    for (const VisitFigures& visit : visits) times.push_back(Time(visit, metric, way));
    const std::optional<double> figure = reduce(std::move(times));
    if (!figure) return std::nullopt;
    figures[Index(way)] = *figure;
  }
  return figures;
}

bool IsUsed(const PreloadRow& preload) {
  return preload.fate == PreloadFate::Served || preload.fate == PreloadFate::Joined;
}

VisitFigures FiguresOf(const Visit& visit) {
  const WayResult& plugin = Of(visit, Way::Plugin);
  VisitFigures figures = {.page = visit.pageUrl,
                          .number = visit.number,
                          .copy = visit.copy,
                          .paintSource = visit.paintSource,
                          .counts = {.served = visit.served,
                                     .joined = visit.joined,
                                     .fetched = visit.fetched,
                                     .fromDiskCache = visit.fromDiskCache,
                                     .preloads = plugin.preloads.size(),
                                     .preloadedBytes = visit.preloadedBytes,
                                     .unusedBytes = visit.unusedBytes,
                                     .connections = plugin.connections,
                                     .unusedConnections = plugin.unusedConnections}};
  for (const Way way : kWays) {
    figures.times[Index(way)] = Of(visit, way).times;
    figures.endedByBeacon[Index(way)] = EndedByBeacon(Of(visit, way));
  }
  for (const PreloadRow& preload : plugin.preloads) {
    if (!IsUsed(preload)) ++figures.counts.unusedPreloads;
  }
  return figures;
}

void Add(PluginCounts& sum, const PluginCounts& counts) {
  sum.served += counts.served;
  sum.joined += counts.joined;
  sum.fetched += counts.fetched;
  sum.fromDiskCache += counts.fromDiskCache;
  sum.preloads += counts.preloads;
  sum.unusedPreloads += counts.unusedPreloads;
  sum.preloadedBytes += counts.preloadedBytes;
  sum.unusedBytes += counts.unusedBytes;
  sum.connections += counts.connections;
  sum.unusedConnections += counts.unusedConnections;
}

void Add(LoadTimes& sum, const LoadTimes& times) {
  for (const MetricWords& words : kMetrics) sum.*words.metric += times.*words.metric;
}

}  // namespace

Summary Summarize(const RecordingResult& result) {
  Summary summary;
  summary.name = result.name;
  summary.skipped = result.skipped;
  for (const auto& [url, rule] : result.parents.rules) {
    ++(rule == ParentRule::Inferred ? summary.inferredPages : summary.recordedPages);
  }
  summary.startErrors = result.parents.errors;
  summary.visits = result.visits.size();
  for (const Visit& visit : result.visits) {
    const std::vector<RequestRow>& rows = Of(visit, Way::Plugin).requests;
    summary.requests += rows.size();
    summary.commands += visit.commands;
    summary.unansweredCommands += visit.unansweredCommands;
    summary.warnings += visit.warnings;
    if (!visit.repeat) continue;
    summary.repeats.push_back(FiguresOf(visit));
    for (const RequestRow& row : rows) {
      if (row.why == host::NotServed::None) continue;
      ++summary.reasons[row.why];
      if (row.source == Source::Network) ++summary.fetchedReasons[row.why];
    }
  }
  return summary;
}

void AddTo(Summary& total, const Summary& other) {
  total.visits += other.visits;
  total.requests += other.requests;
  total.repeats.insert(total.repeats.end(), other.repeats.begin(), other.repeats.end());
  for (const auto& [why, count] : other.reasons) total.reasons[why] += count;
  for (const auto& [why, count] : other.fetchedReasons) total.fetchedReasons[why] += count;
  total.commands += other.commands;
  total.unansweredCommands += other.unansweredCommands;
  total.warnings += other.warnings;
  for (const auto& [reason, count] : other.skipped) total.skipped[reason] += count;
  total.recordedPages += other.recordedPages;
  total.inferredPages += other.inferredPages;
  const auto append = [](std::vector<double>& all, const std::vector<double>& more) {
    all.insert(all.end(), more.begin(), more.end());
  };
  append(total.startErrors.recordedMs, other.startErrors.recordedMs);
  append(total.startErrors.inferredMs, other.startErrors.inferredMs);
}

std::optional<Prediction> PredictionOf(const StartErrors& errors) {
  if (errors.recordedMs.empty()) return std::nullopt;
  Prediction prediction = {.requests = errors.recordedMs.size(),
                           .recordedMs = Median(errors.recordedMs),
                           .inferredMs = Median(errors.inferredMs)};
  for (size_t at = 0; at < prediction.requests; ++at) {
    if (errors.inferredMs[at] < errors.recordedMs[at]) ++prediction.inferredCloser;
  }
  return prediction;
}

int64_t GainUs(const VisitFigures& visit, Metric metric, Way way) {
  return visit.times[Index(Way::Off)].*metric - visit.times[Index(way)].*metric;
}

std::optional<Gains> GainsOf(const std::vector<double>& gains) {
  if (gains.empty()) return std::nullopt;
  const auto [worst, best] = std::minmax_element(gains.begin(), gains.end());
  return Gains{.median = Median(gains),
               .p5 = Percentile(gains, 5),
               .p95 = Percentile(gains, 95),
               .worst = *worst,
               .best = *best,
               .total = std::accumulate(gains.begin(), gains.end(), 0.0)};
}

std::optional<Gains> GainsOf(const std::vector<VisitFigures>& visits, Metric metric) {
  std::vector<double> gains;
  for (const VisitFigures& visit : visits) gains.push_back(static_cast<double>(GainUs(visit, metric)));
  return GainsOf(gains);
}

Figures Medians(const std::vector<VisitFigures>& visits, Metric metric) {
  return EachWay(visits, metric, Median);
}

Figures Percentile95s(const std::vector<VisitFigures>& visits, Metric metric) {
  return EachWay(visits, metric, [](std::vector<double> times) { return Percentile(std::move(times), 95); });
}

double At(const Figures& figures, Way way) {
  return figures.value()[Index(way)];
}

std::optional<double> GainShare(double off, double time) {
  if (off <= 0) return std::nullopt;
  return (off - time) / off;
}

std::optional<double> GapClosed(double offUs, double timeUs, double boundUs) {
  constexpr double kLeastGapUs = 1000;
  if (offUs - boundUs < kLeastGapUs) return std::nullopt;
  return (offUs - timeUs) / (offUs - boundUs);
}

std::optional<double> GapClosedOverall(const std::vector<VisitFigures>& visits, Way bound) {
  double off = 0, plugin = 0, best = 0;
  for (const VisitFigures& visit : visits) {
    off += Time(visit, &LoadTimes::pageLoadUs, Way::Off);
    plugin += Time(visit, &LoadTimes::pageLoadUs, Way::Plugin);
    best += Time(visit, &LoadTimes::pageLoadUs, bound);
  }
  return GapClosed(off, plugin, best);
}

std::optional<double> GapClosedPerVisit(const std::vector<VisitFigures>& visits, Way bound) {
  std::vector<double> shares;
  for (const VisitFigures& visit : visits) {
    const auto share = GapClosed(Time(visit, &LoadTimes::pageLoadUs, Way::Off),
                                 Time(visit, &LoadTimes::pageLoadUs, Way::Plugin),
                                 Time(visit, &LoadTimes::pageLoadUs, bound));
    if (share) shares.push_back(*share);
  }
  if (shares.empty()) return std::nullopt;
  return Median(std::move(shares));
}

std::vector<VisitFigures> Select(const std::vector<VisitFigures>& visits, bool copies) {
  std::vector<VisitFigures> selected;
  std::copy_if(visits.begin(), visits.end(), std::back_inserter(selected),
               [copies](const VisitFigures& visit) { return visit.copy == copies; });
  return selected;
}

bool HeadlineIsOfCopies(const std::vector<VisitFigures>& visits) {
  return !visits.empty() &&
         std::all_of(visits.begin(), visits.end(), [](const VisitFigures& visit) { return visit.copy; });
}

std::vector<VisitFigures> Headline(const std::vector<VisitFigures>& visits) {
  return Select(visits, HeadlineIsOfCopies(visits));
}

Totals TotalsOf(const std::vector<VisitFigures>& visits) {
  Totals totals;
  totals.visits = visits.size();
  for (const VisitFigures& visit : visits) {
    const auto isLater = [&visit](Metric metric) {
      return IsLater(Time(visit, metric, Way::Plugin), Time(visit, metric, Way::Off));
    };
    if (isLater(&LoadTimes::pageLoadUs)) ++totals.slowerVisits;
    if (isLater(&LoadTimes::firstPaintUs)) ++totals.laterPaintVisits;
    if (visit.endedByBeacon[Index(Way::Off)]) ++totals.endedByBeacon;
    if (visit.paintSource != PaintSource::Recorded) ++totals.paintNotRecorded;
    for (const Way way : kWays) Add(totals.times[Index(way)], visit.times[Index(way)]);
    Add(totals.counts, visit.counts);
  }
  return totals;
}

std::optional<double> ShareOf(uint64_t part, uint64_t whole) {
  if (whole == 0) return std::nullopt;
  return static_cast<double>(part) / static_cast<double>(whole);
}

std::vector<std::pair<host::NotServed, uint64_t>> ByFrequency(
    const std::map<host::NotServed, uint64_t>& reasons) {
  std::vector<std::pair<host::NotServed, uint64_t>> sorted(reasons.begin(), reasons.end());
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto& left, const auto& right) { return left.second > right.second; });
  return sorted;
}

}  // namespace replay
