// The simulated loads with the plugin as a HAR 1.2 file that other viewers open: a page per visit, its
// requests, and the preloads as entries of their own. Beyond the format, entries carry `_source` (where the
// response came from), `_whyNot`, and for preloads `_preload` (what became of it) and `_orderedAt` (ms).
#ifndef REPLAY_REPORT_HAR_WRITER_H_
#define REPLAY_REPORT_HAR_WRITER_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// JSON texts of the objects of one recording, separated by commas: what goes into the file's two arrays.
struct HarPart {
  std::string pages;
  std::string entries;
};

// The part of one recording, the `index`th of the file, counted from 0. Loads begin at a fixed date, and
// follow each other after the time between visits.
HarPart HarPartOf(size_t index, const Recording& recording, const RecordingResult& result,
                  const ReplayOptions& options);

// The whole file.
std::string HarFile(const std::vector<HarPart>& parts);

}  // namespace replay

#endif  // REPLAY_REPORT_HAR_WRITER_H_
