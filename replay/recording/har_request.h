// One row of a HAR to a request that can be replayed, and the reasons why some cannot. Any thread.
#ifndef REPLAY_RECORDING_HAR_REQUEST_H_
#define REPLAY_RECORDING_HAR_REQUEST_H_

#include <optional>

#include "replay/recording/har_parser.h"
#include "replay/recording/recording.h"

namespace replay {

// Timings and body sizes beyond these are taken for unknown.
inline constexpr double kLongestTimingMs = 3600e3;
inline constexpr double kLargestBodyBytes = 4294967296.0;

// Why the row cannot be replayed, as Recording::skipped counts it (a literal); null when it can.
const char* WhyNotReplayable(const HarEntry& entry);

// Of a row that can be replayed. `startMs` and `endMs` are left for the page to set; a status that the file
// does not tell is taken for 200. `startedMs`: when it started, in milliseconds since 1970.
Request MakeRequest(const HarEntry& entry, std::optional<double> startedMs);

// How long it waited in the browser before it started; 0 where the recorder does not tell.
double QueuedMs(const HarEntry& entry);

// From its start to its last byte, as far as the row tells.
double DurationMs(const HarEntry& entry);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_REQUEST_H_
