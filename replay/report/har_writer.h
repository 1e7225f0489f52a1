// Writes the simulated loads as a HAR 1.2 file that other viewers can open: for each visit a page without the
// plugin and a page with it, their requests, and the preloads as separate entries. In addition to the
// standard fields, entries have `_source` (where the response came from) and `_whyNot`, and preloads have
// `_preload` (how the preload ended) and `_orderedAt` (ms).
#ifndef REPLAY_REPORT_HAR_WRITER_H_
#define REPLAY_REPORT_HAR_WRITER_H_

#include <string>
#include <string_view>
#include <vector>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kHarFormat;

// Returns the JSON objects of one recording for the two arrays of the file, separated by commas: first the
// pages, then after a NUL the entries. `index` is the recording's place in the run, counted from 0. The first
// load begins at a fixed date, and the others follow after the time between visits; the loads of the two ways
// begin together.
std::string HarPartOf(size_t index, const Recording& recording, const RecordingResult& result,
                      const ReplayOptions& options);

// Writes the whole file.
void WriteHar(const std::vector<std::string_view>& parts, const TextSink& write);

}  // namespace replay

#endif  // REPLAY_REPORT_HAR_WRITER_H_
