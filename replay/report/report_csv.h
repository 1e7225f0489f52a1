// The figures as CSV: a heading, and a row per recording and setting. Columns are the keys of the JSON lines,
// with dots between the names of nested ones.
#ifndef REPLAY_REPORT_REPORT_CSV_H_
#define REPLAY_REPORT_REPORT_CSV_H_

#include <string>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kCsvFormat;

// All lines include their line ends. Every row has the columns of the heading. For a recording that failed
// they are empty except for its name and `error`, the last column.
std::string CsvHeading(const Settings& settings);
std::string CsvRows(const RecordingReport& report, const Settings& settings);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_CSV_H_
