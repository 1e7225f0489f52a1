// Writes the figures as JSON: one object on one line for each recording, and one for all of them.
// docs/replay-json.md documents the keys.
#ifndef REPLAY_REPORT_REPORT_JSON_H_
#define REPLAY_REPORT_REPORT_JSON_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/summary.h"

namespace replay {

// Returns one object without a line end. Bytes that are not UTF-8 are replaced by U+FFFD.
std::string JsonLine(const Summary& summary, const ReplayOptions& options);

// The same for a recording that could not be replayed: its name and the error.
std::string JsonErrorLine(const std::string& name, const std::string& error);

// Returns the last line, which summarises all recordings.
std::string JsonSummaryLine(const std::vector<Summary>& summaries, const ReplayOptions& options);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_JSON_H_
