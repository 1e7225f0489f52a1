#include "replay/report/summary.h"

#include <algorithm>
#include <cmath>

namespace replay {
namespace {

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Percentile95(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[(values.size() * 95 + 99) / 100 - 1];
}

double Mean(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

template <typename Reduce>
Figures EachWay(const Summary& summary, Reduce reduce) {
  if (summary.loads.empty()) return std::nullopt;
  PerWay<double> figures{};
  for (const Way way : kWays) {
    std::vector<double> values;
    for (const LoadTimes& loads : summary.loads) values.push_back(static_cast<double>(loads[Index(way)]));
    figures[Index(way)] = reduce(std::move(values));
  }
  return figures;
}

double Load(const LoadTimes& loads, Way way) {
  return static_cast<double>(loads[Index(way)]);
}

void AddRepeatVisit(Summary& summary, const Visit& visit) {
  LoadTimes loads{};
  for (const Way way : kWays) loads[Index(way)] = Of(visit, way).pageLoadUs;
  summary.loads.push_back(loads);
  if (IsSlower(visit)) ++summary.slowerVisits;
  summary.served += visit.served;
  summary.joined += visit.joined;
  summary.fetched += visit.fetched;
  summary.fromDiskCache += visit.fromDiskCache;
  summary.preloads += Of(visit, Way::Plugin).preloads.size();
  summary.preloadedBytes += visit.preloadedBytes;
  summary.wastedBytes += visit.wastedBytes;
  for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
    if (row.why != host::NotServed::None) ++summary.reasons[row.why];
  }
}

}  // namespace

Summary Summarize(const RecordingResult& result) {
  Summary summary;
  summary.name = result.name;
  summary.skipped = result.skipped;
  summary.visits = result.visits.size();
  for (const Visit& visit : result.visits) {
    summary.requests += Of(visit, Way::Plugin).requests.size();
    summary.commands += visit.commands;
    summary.unansweredCommands += visit.unansweredCommands;
    summary.warnings += visit.warnings;
    if (visit.repeat) AddRepeatVisit(summary, visit);
  }
  return summary;
}

void AddTo(Summary& total, const Summary& other) {
  total.visits += other.visits;
  total.requests += other.requests;
  total.loads.insert(total.loads.end(), other.loads.begin(), other.loads.end());
  total.slowerVisits += other.slowerVisits;
  total.served += other.served;
  total.joined += other.joined;
  total.fetched += other.fetched;
  total.fromDiskCache += other.fromDiskCache;
  total.preloads += other.preloads;
  total.preloadedBytes += other.preloadedBytes;
  total.wastedBytes += other.wastedBytes;
  for (const auto& [why, count] : other.reasons) total.reasons[why] += count;
  total.commands += other.commands;
  total.unansweredCommands += other.unansweredCommands;
  total.warnings += other.warnings;
  for (const auto& [reason, count] : other.skipped) total.skipped[reason] += count;
}

Figures MedianLoads(const Summary& summary) {
  return EachWay(summary, Median);
}

Figures Percentile95Loads(const Summary& summary) {
  return EachWay(summary, Percentile95);
}

Figures MeanLoads(const Summary& summary) {
  return EachWay(summary, Mean);
}

double At(const Figures& figures, Way way) {
  return figures.value()[Index(way)];
}

std::optional<Gains> GainsPerVisit(const Summary& summary) {
  if (summary.loads.empty()) return std::nullopt;
  std::vector<double> gains;
  for (const LoadTimes& loads : summary.loads)
    gains.push_back(Load(loads, Way::Off) - Load(loads, Way::Plugin));
  const auto [worst, best] = std::minmax_element(gains.begin(), gains.end());
  return Gains{.worst = *worst, .median = Median(gains), .best = *best};
}

std::optional<double> GainShare(double off, double plugin) {
  if (off <= 0) return std::nullopt;
  return (off - plugin) / off;
}

std::optional<double> GapClosed(double off, double plugin, double oracle) {
  if (off <= oracle) return std::nullopt;
  return (off - plugin) / (off - oracle);
}

std::optional<double> GapClosedOverall(const Summary& summary) {
  const Figures means = MeanLoads(summary);
  if (!means) return std::nullopt;
  return GapClosed(At(means, Way::Off), At(means, Way::Plugin), At(means, Way::Oracle));
}

std::optional<double> GapClosedPerVisit(const Summary& summary) {
  std::vector<double> shares;
  for (const LoadTimes& loads : summary.loads) {
    const auto share = GapClosed(Load(loads, Way::Off), Load(loads, Way::Plugin), Load(loads, Way::Oracle));
    if (share) shares.push_back(*share);
  }
  if (shares.empty()) return std::nullopt;
  return Median(std::move(shares));
}

std::vector<std::pair<host::NotServed, uint64_t>> ReasonsByFrequency(const Summary& summary) {
  std::vector<std::pair<host::NotServed, uint64_t>> reasons(summary.reasons.begin(), summary.reasons.end());
  std::stable_sort(reasons.begin(), reasons.end(),
                   [](const auto& left, const auto& right) { return left.second > right.second; });
  return reasons;
}

}  // namespace replay
