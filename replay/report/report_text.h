// The figures as text for a terminal of 120 columns.
#ifndef REPLAY_REPORT_REPORT_TEXT_H_
#define REPLAY_REPORT_REPORT_TEXT_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/summary.h"

namespace replay {

// The table with a row per recording, then the totals, why sub-resources were not served, and what of the
// recordings could not be replayed. Ends with a line's end. `colour` allows terminal escapes.
std::string TextReport(const std::vector<Summary>& summaries, const ReplayOptions& options, bool colour);

// "4g, 9 Mbit/s, round trip 170 ms, 6 sockets, revisit after 1 h, joining": the conditions of the figures.
std::string ConditionsText(const ReplayOptions& options);

// Text that a terminal can show in one line: control characters and bytes that are not UTF-8 become '?'.
std::string PrintableText(const std::string& text);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_TEXT_H_
