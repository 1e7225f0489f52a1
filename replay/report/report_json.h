// Writes the figures as JSON: one object on one line for each recording, and one for all of them.
// docs/replay-json.md documents the keys.
#ifndef REPLAY_REPORT_REPORT_JSON_H_
#define REPLAY_REPORT_REPORT_JSON_H_

#include <string>
#include <vector>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kJsonFormat;

// All lines are objects without line ends. Bytes that are not UTF-8 are replaced by U+FFFD.

// Returns the lines of a recording, one for each setting, or one with its name and the error if it could not
// be replayed.
std::vector<std::string> JsonLines(const RecordingReport& report, const Settings& settings);

// Returns the last lines, which summarise all recordings, one for each setting.
std::vector<std::string> JsonSummaryLines(const std::vector<RecordingReport>& reports,
                                          const Settings& settings);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_JSON_H_
