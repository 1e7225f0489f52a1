// The figures of a replay: what one recording adds up to, and many recordings together. Plain values; any
// thread.
#ifndef REPLAY_REPORT_SUMMARY_H_
#define REPLAY_REPORT_SUMMARY_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "replay/model/results.h"

namespace replay {

using LoadTimes = PerWay<int64_t>;  // page load time by Way, microseconds

// Figures that can be added up. Everything that compares is of repeat visits only.
struct Summary {
  std::string name;
  uint64_t visits = 0;
  uint64_t requests = 0;         // of all visits, navigations among them
  std::vector<LoadTimes> loads;  // one per repeat visit
  uint64_t slowerVisits = 0;     // repeat visits for which IsSlower holds
  uint64_t served = 0;           // sub-resources of repeat visits from here on
  uint64_t joined = 0;
  uint64_t fetched = 0;
  uint64_t fromDiskCache = 0;
  uint64_t preloads = 0;
  uint64_t preloadedBytes = 0;
  uint64_t wastedBytes = 0;
  std::map<host::NotServed, uint64_t> reasons;  // sub-resources that were not served
  uint64_t commands = 0;                        // of all visits from here on
  uint64_t unansweredCommands = 0;
  uint64_t warnings = 0;
  std::map<std::string, size_t> skipped;
};

Summary Summarize(const RecordingResult& result);

// Adds every figure of `other` to `total`, whose name stays.
void AddTo(Summary& total, const Summary& other);

// One figure per way over the repeat visits, in microseconds; nothing when there are none.
using Figures = std::optional<PerWay<double>>;
Figures MedianLoads(const Summary& summary);        // the mean of the middle two when their number is even
Figures Percentile95Loads(const Summary& summary);  // nearest rank
Figures MeanLoads(const Summary& summary);

double At(const Figures& figures, Way way);  // the figures must be there

// What the plugin takes off, in microseconds, per visit.
struct Gains {
  double worst = 0;  // negative when a visit got slower
  double median = 0;
  double best = 0;
};
std::optional<Gains> GainsPerVisit(const Summary& summary);

// (off - plugin) / off; nothing when off is not above 0.
std::optional<double> GainShare(double off, double plugin);

// The share of the gap between off and oracle that the plugin closes: 1 reaches the bound, below 0 loses.
// Nothing when there is no gap.
std::optional<double> GapClosed(double off, double plugin, double oracle);

std::optional<double> GapClosedOverall(const Summary& summary);   // of the sums over the repeat visits
std::optional<double> GapClosedPerVisit(const Summary& summary);  // the median over visits that have a gap

// The reasons, most frequent first.
std::vector<std::pair<host::NotServed, uint64_t>> ReasonsByFrequency(const Summary& summary);

}  // namespace replay

#endif  // REPLAY_REPORT_SUMMARY_H_
