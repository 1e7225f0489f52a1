// The figures as CSV: a heading, and a row per recording. Columns are the keys of the JSON lines, with dots
// between the names of nested ones.
#ifndef REPLAY_REPORT_REPORT_CSV_H_
#define REPLAY_REPORT_REPORT_CSV_H_

#include <string>

#include "replay/model/replay_options.h"
#include "replay/report/summary.h"

namespace replay {

// All lines include their line ends. Every row has the columns of the heading. For a recording that failed
// they are empty except for its name and `error`, the last column.
std::string CsvHeading();
std::string CsvRow(const Summary& summary, const ReplayOptions& options);
std::string CsvErrorRow(const std::string& name, const std::string& error);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_CSV_H_
