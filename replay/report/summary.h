// The figures of a replay: one record for each repeat visit, which contains all ways, and the sums and
// medians over many of them. Plain values; any thread.
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

// What the plugin did in one visit or in several. The counts are of resources, not of the navigation.
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

// One repeat visit. The counts are those of the plugin's way.
struct VisitFigures {
  std::string page;
  uint32_t number = 0;  // of this page in its recording, from 2 on
  bool copy = false;
  PaintSource paintSource = PaintSource::Recorded;
  PerWay<LoadTimes> times;          // microseconds
  PerWay<bool> endedByBeacon = {};  // the load event came after one
  PluginCounts counts;
};

// Figures that can be added up. All comparisons are over repeat visits only.
struct Summary {
  std::string name;
  uint64_t visits = 0;
  uint64_t requests = 0;  // of all visits, navigations among them
  std::vector<VisitFigures> repeats;
  std::map<host::NotServed, uint64_t> reasons;         // resources of repeat visits that were not served
  std::map<host::NotServed, uint64_t> fetchedReasons;  // of these, the ones that were fetched
  uint64_t commands = 0;                               // this and the following: of all visits
  uint64_t unansweredCommands = 0;
  uint64_t warnings = 0;
  std::map<std::string, size_t> skipped;
  // How many pages use each rule for their late requests, and how well the rules predict.
  uint64_t recordedPages = 0;
  uint64_t inferredPages = 0;
  StartErrors startErrors;
};

Summary Summarize(const RecordingResult& result);

// Adds every figure of `other` to `total`, but keeps the name of `total`.
void AddTo(Summary& total, const Summary& other);

// The errors with which the two rules predict another load's starts, over the requests on which they differ:
// the medians, and how often the inferred parent is closer. Nothing if there is nothing to compare.
struct Prediction {
  size_t requests = 0;
  size_t inferredCloser = 0;
  double recordedMs = 0;
  double inferredMs = 0;
};
std::optional<Prediction> PredictionOf(const StartErrors& errors);

// --- One time over several repeat visits.

// The metrics with the names that all outputs use. The most important ones come first.
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

// The gain of a way in one visit. Positive if it is faster than without the plugin.
int64_t GainUs(const VisitFigures& visit, Metric metric, Way way = Way::Plugin);

// The gains over several visits, in microseconds. There are no percentiles of fewer than 20 visits.
inline constexpr size_t kLeastForPercentiles = 20;
struct Gains {
  double median = 0;
  std::optional<double> p5, p95;  // by nearest rank; p5 is the worst end
  double worst = 0;               // negative if a visit got slower
  double best = 0;
  double total = 0;
};
// Nothing if there are no visits.
std::optional<Gains> GainsOf(const std::vector<double>& gains);
std::optional<Gains> GainsOf(const std::vector<VisitFigures>& visits, Metric metric);

// One figure for each way, in microseconds; nothing if there are no visits, or too few for a percentile.
using Figures = std::optional<PerWay<double>>;
Figures Medians(const std::vector<VisitFigures>& visits, Metric metric);        // the mean of the middle two
Figures Percentile95s(const std::vector<VisitFigures>& visits, Metric metric);  // nearest rank

double At(const Figures& figures, Way way);  // the figures must not be absent

// (off - time) / off; nothing unless off is above 0.
std::optional<double> GainShare(double off, double time);

// The share of the gap between off and a bound that a time closes: 1 means that it reaches the bound, a
// negative share that it is slower than off. Nothing if the gap is below 1 ms.
std::optional<double> GapClosed(double offUs, double timeUs, double boundUs);

// The gap that the plugin closes for the load event: for the sums over all visits, and the median over the
// visits that have a gap.
std::optional<double> GapClosedOverall(const std::vector<VisitFigures>& visits, Way bound);
std::optional<double> GapClosedPerVisit(const std::vector<VisitFigures>& visits, Way bound);

// The bound against which "gap closed" is measured.
inline constexpr Way kBound = Way::Reachable;

// The ways that fit into a table with a row for each recording; the tables of gains have all ways.
inline constexpr std::array kRowWays = {Way::Off, Way::Plugin, kBound, Way::Oracle};

// --- Repeat visits together.

// Real repeats and copies are never added up. The headline figures are those of the real ones, or of the
// copies if there are no real ones.
std::vector<VisitFigures> Select(const std::vector<VisitFigures>& visits, bool copies);
bool HeadlineIsOfCopies(const std::vector<VisitFigures>& visits);
std::vector<VisitFigures> Headline(const std::vector<VisitFigures>& visits);

// The totals of the plugin over several visits.
struct Totals {
  uint64_t visits = 0;
  uint64_t slowerVisits = 0;      // visits whose load event is later, as IsLater defines it
  uint64_t laterPaintVisits = 0;  // the same for the first paint
  uint64_t endedByBeacon = 0;     // visits whose load event without the plugin came after a beacon
  uint64_t paintNotRecorded = 0;  // visits whose first paint is computed from another event
  PerWay<LoadTimes> times;        // sums, microseconds
  PluginCounts counts;
};
Totals TotalsOf(const std::vector<VisitFigures>& visits);

// part / whole; nothing if the whole is 0.
std::optional<double> ShareOf(uint64_t part, uint64_t whole);

// Reasons, most frequent first.
std::vector<std::pair<host::NotServed, uint64_t>> ByFrequency(
    const std::map<host::NotServed, uint64_t>& reasons);

}  // namespace replay

#endif  // REPLAY_REPORT_SUMMARY_H_
