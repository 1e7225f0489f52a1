// The figures of a replay: one record per repeat visit, with all ways of it side by side, and what many of
// them add up to. Plain values; any thread.
#ifndef REPLAY_REPORT_SUMMARY_H_
#define REPLAY_REPORT_SUMMARY_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/model/results.h"

namespace replay {

// What the plugin did in one visit or in several. Resources are counted, the navigation is not.
struct PluginCounts {
  uint64_t served = 0;
  uint64_t joined = 0;
  uint64_t fetched = 0;
  uint64_t fromDiskCache = 0;
  uint64_t preloads = 0;
  uint64_t unusedPreloads = 0;
  uint64_t preloadedBytes = 0;
  uint64_t unusedBytes = 0;
  uint64_t connections = 0;
  uint64_t unusedConnections = 0;
};

// One repeat visit.
struct VisitFigures {
  std::string page;
  uint32_t number = 0;  // of this page in its recording, from 2 on
  bool copy = false;
  PaintSource paintSource = PaintSource::Recorded;
  PerWay<LoadTimes> times;          // microseconds
  PerWay<bool> endedByBeacon = {};  // the load event came after one
  PluginCounts counts;
};

// Figures that can be added up. Everything that compares is of repeat visits only.
struct Summary {
  std::string name;
  uint64_t visits = 0;
  uint64_t requests = 0;  // of all visits, navigations among them
  std::vector<VisitFigures> repeats;
  std::map<host::NotServed, uint64_t> reasons;         // resources of repeat visits that were not served
  std::map<host::NotServed, uint64_t> fetchedReasons;  // of these, the ones that were fetched
  uint64_t commands = 0;                               // of all visits from here on
  uint64_t unansweredCommands = 0;
  uint64_t warnings = 0;
  std::map<std::string, size_t> skipped;
  // Pages by what their late requests are taken to wait for, and how well the rules predict.
  uint64_t recordedPages = 0;
  uint64_t inferredPages = 0;
  StartErrors startErrors;
};

Summary Summarize(const RecordingResult& result);

// Adds every figure of `other` to `total`, whose name stays.
void AddTo(Summary& total, const Summary& other);

// How far off another load's starts the two rules are, over the requests about which they differ: medians,
// and how often the inferred parent is closer. Nothing when there are none to compare.
struct Prediction {
  size_t requests = 0;
  size_t inferredCloser = 0;
  double recordedMs = 0;
  double inferredMs = 0;
};
std::optional<Prediction> PredictionOf(const StartErrors& errors);

// --- One time over several repeat visits.

// The times by the names that all outputs use. Those that lead a report come first.
using Metric = int64_t LoadTimes::*;
struct MetricWords {
  Metric metric;
  const char* key;
  const char* text;
};
inline constexpr std::array kMetrics = {
    MetricWords{&LoadTimes::firstPaintUs, "first_paint_ms", "first paint"},
    MetricWords{&LoadTimes::pageLoadUs, "load_ms", "load event"},
    MetricWords{&LoadTimes::contentLoadedUs, "content_loaded_ms", "DOMContentLoaded"},
    MetricWords{&LoadTimes::loadWithoutBeaconsUs, "load_without_beacons_ms", "load without beacons"},
    MetricWords{&LoadTimes::objectIndexUs, "object_index_ms", "object index"},
};

// What is taken off in one visit: positive when the way is faster than without the plugin.
int64_t GainUs(const VisitFigures& visit, Metric metric, Way way = Way::Plugin);

// The gain per visit over several visits, in microseconds. No percentile of fewer than 20 visits.
inline constexpr size_t kLeastForPercentiles = 20;
struct Gains {
  double median = 0;
  std::optional<double> p5, p95;  // by nearest rank; p5 is the worse end
  double worst = 0;               // negative when a visit got slower
  double best = 0;
  double total = 0;
};
std::optional<Gains> GainsOf(const std::vector<double>& gains);  // nothing: no visits
std::optional<Gains> GainsOf(const std::vector<VisitFigures>& visits, Metric metric);

// One figure per way, in microseconds; nothing when there are no visits, or too few for a percentile.
using Figures = std::optional<PerWay<double>>;
Figures Medians(const std::vector<VisitFigures>& visits, Metric metric);        // the mean of the middle two
Figures Percentile95s(const std::vector<VisitFigures>& visits, Metric metric);  // nearest rank

double At(const Figures& figures, Way way);  // the figures must be there

// (off - time) / off; nothing when off is not above 0.
std::optional<double> GainShare(double off, double time);

// The share of the gap between off and a bound that a time closes: 1 reaches the bound, below 0 loses.
// Nothing when the gap is below 1 ms.
std::optional<double> GapClosed(double offUs, double timeUs, double boundUs);

// By the plugin, of the load events: of their sums, and the median over the visits that have a gap.
std::optional<double> GapClosedOverall(const std::vector<VisitFigures>& visits, Way bound);
std::optional<double> GapClosedPerVisit(const std::vector<VisitFigures>& visits, Way bound);

// What "gap closed" is measured against.
inline constexpr Way kBound = Way::Reachable;

// The ways that a table with a row per recording has room for; the tables of gains have all.
inline constexpr std::array kRowWays = {Way::Off, Way::Plugin, kBound, Way::Oracle};

// --- Repeat visits together.

// Real repeats and copies are never added up. The headline is of the real ones, and of the copies when there
// are no others.
std::vector<VisitFigures> Select(const std::vector<VisitFigures>& visits, bool copies);
bool HeadlineIsOfCopies(const std::vector<VisitFigures>& visits);
std::vector<VisitFigures> Headline(const std::vector<VisitFigures>& visits);

// Several visits added up.
struct Totals {
  uint64_t visits = 0;
  uint64_t slowerVisits = 0;      // whose load event is later by IsLater
  uint64_t laterPaintVisits = 0;  // likewise the first paint
  uint64_t endedByBeacon = 0;     // visits whose load event without the plugin came after a beacon
  uint64_t paintNotRecorded = 0;  // visits whose first paint is made from another event
  PerWay<LoadTimes> times;        // sums, microseconds
  PluginCounts counts;
};
Totals TotalsOf(const std::vector<VisitFigures>& visits);

// part / whole; nothing when there is no whole.
std::optional<double> ShareOf(uint64_t part, uint64_t whole);

// Reasons, most frequent first.
std::vector<std::pair<host::NotServed, uint64_t>> ByFrequency(
    const std::map<host::NotServed, uint64_t>& reasons);

}  // namespace replay

#endif  // REPLAY_REPORT_SUMMARY_H_
