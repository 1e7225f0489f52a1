// The simulated loads as a HAR 1.2 file that other viewers open: of each visit a page without the plugin and
// a page with it, their requests, and the preloads as entries of their own. Beyond the format, entries carry
// `_source` (where the response came from), `_whyNot`, and for preloads `_preload` (what became of it) and
// `_orderedAt` (ms).
#ifndef REPLAY_REPORT_HAR_WRITER_H_
#define REPLAY_REPORT_HAR_WRITER_H_

#include <string>
#include <string_view>
#include <vector>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kHarFormat;

// What one recording, the `index`th of its run, adds to the file's two arrays: JSON texts of objects,
// separated by commas; first the pages, then after a NUL the entries. Loads begin at a fixed date, and follow
// each other after the time between visits; those of the two ways begin together.
std::string HarPartOf(size_t index, const Recording& recording, const RecordingResult& result,
                      const ReplayOptions& options);

// The whole file.
void WriteHar(const std::vector<std::string_view>& parts, const TextSink& write);

}  // namespace replay

#endif  // REPLAY_REPORT_HAR_WRITER_H_
