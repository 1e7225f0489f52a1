// The figures as text for a terminal.
#ifndef REPLAY_REPORT_REPORT_TEXT_H_
#define REPLAY_REPORT_REPORT_TEXT_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/recording_report.h"
#include "replay/report/settings.h"
#include "replay/report/summary.h"

namespace replay {

// Where the text is shown.
struct Terminal {
  bool colour = false;  // it understands terminal escapes
  size_t columns = 120;
};

// Returns the table with a row for each recording, then the totals, the reasons why resources were not
// served, and the rows of the recordings that could not be replayed. The text ends with a line end.
std::string TextReport(const std::vector<Summary>& summaries, const ReplayOptions& options,
                       const Terminal& terminal);

// Returns what would make the pages of each recording faster, the most valuable first.
std::string AdviceText(const std::vector<RecordingReport>& reports, const Terminal& terminal);

// The tables that compare the settings of a sweep.
std::string SweepText(const std::vector<RecordingReport>& reports, const Settings& settings,
                      const Terminal& terminal);

// "4g, 9 Mbit/s, round trip 170 ms, 6 sockets, revisit after 1 h, joining": the conditions of the figures.
std::string ConditionsText(const ReplayOptions& options);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_TEXT_H_
