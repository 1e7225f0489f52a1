// The figures as JSON, one object on one line per recording and one for all of them; docs/replay-json.md is
// its contract.
#ifndef REPLAY_REPORT_REPORT_JSON_H_
#define REPLAY_REPORT_REPORT_JSON_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/summary.h"

namespace replay {

// One object without the line's end. Bytes that are not UTF-8 come out as U+FFFD.
std::string JsonLine(const Summary& summary, const ReplayOptions& options);

// The same for a recording that could not be replayed: its name and why.
std::string JsonErrorLine(const std::string& name, const std::string& error);

// The last line, over all recordings.
std::string JsonSummaryLine(const std::vector<Summary>& summaries, const ReplayOptions& options);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_JSON_H_
