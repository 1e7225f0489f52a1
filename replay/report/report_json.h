// The figures as JSON, one object on one line per recording and one for all of them; docs/replay-json.md is
// its contract.
#ifndef REPLAY_REPORT_REPORT_JSON_H_
#define REPLAY_REPORT_REPORT_JSON_H_

#include <string>
#include <vector>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kJsonFormat;

// Lines are objects, without the line's end. Bytes that are not UTF-8 come out as U+FFFD.

// Of a recording, one per setting; one with its name and why when it could not be replayed.
std::vector<std::string> JsonLines(const RecordingReport& report, const Settings& settings);

// The last lines, over all recordings, one per setting.
std::vector<std::string> JsonSummaryLines(const std::vector<RecordingReport>& reports,
                                          const Settings& settings);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_JSON_H_
