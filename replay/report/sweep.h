// The same visits under several settings, side by side. Any thread.
#ifndef REPLAY_REPORT_SWEEP_H_
#define REPLAY_REPORT_SWEEP_H_

#include <optional>
#include <string>
#include <vector>

#include "replay/report/recording_report.h"
#include "replay/report/settings.h"
#include "replay/report/summary.h"
#include "replay/report/text_table.h"

namespace replay {

// One event of the same visits under two settings, paired per visit.
struct Difference {
  Gains gains;          // of the gain under the other setting less that under the first: positive is better
  uint64_t better = 0;  // visits in which the event comes more than 1% earlier than it would with the first
  uint64_t worse = 0;   // setting's gain, and more than 1% later
};

// `first` and `other` are the same visits in the same order. Nothing when there are none.
std::optional<Difference> DifferenceOf(const std::vector<VisitFigures>& first,
                                       const std::vector<VisitFigures>& other, Metric metric);

// What every recording adds up to under each of the settings. Visits keep their order, so that those of two
// settings are pairs.
std::vector<Summary> TotalsBySetting(const std::vector<RecordingReport>& reports, const Settings& settings);

// The tables of a sweep: real repeats and copies apart, each with a row per setting.
struct SweepTables {
  std::string title;          // "6 real repeat visits under 3 settings"
  std::vector<Table> tables;  // load event, first paint, preloads
};
std::vector<SweepTables> TablesOf(const std::vector<RecordingReport>& reports, const Settings& settings);

// How to read them.
extern const char* const kSweepNote;

}  // namespace replay

#endif  // REPLAY_REPORT_SWEEP_H_
