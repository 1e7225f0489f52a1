// Writes the simulated loads with the plugin as a HAR 1.2 file that other viewers can open: a page for each
// visit, its requests, and the preloads as separate entries. In addition to the standard fields, entries have
// `_source` (where the response came from) and `_whyNot`, and preloads have `_preload` (how the preload
// ended) and `_orderedAt` (ms).
#ifndef REPLAY_REPORT_HAR_WRITER_H_
#define REPLAY_REPORT_HAR_WRITER_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// The JSON objects of one recording for the two arrays of the file, separated by commas.
struct HarPart {
  std::string pages;
  std::string entries;
};

// Returns the part of one recording. `index` is its place in the file, counted from 0. The first load begins
// at a fixed date, and the others follow after the time between visits.
HarPart HarPartOf(size_t index, const Recording& recording, const RecordingResult& result,
                  const ReplayOptions& options);

// Returns the whole file.
std::string HarFile(const std::vector<HarPart>& parts);

}  // namespace replay

#endif  // REPLAY_REPORT_HAR_WRITER_H_
