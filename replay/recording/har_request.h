// Converts a row of a HAR to a request that can be replayed, or says why it cannot. Any thread.
#ifndef REPLAY_RECORDING_HAR_REQUEST_H_
#define REPLAY_RECORDING_HAR_REQUEST_H_

#include <optional>

#include "replay/recording/har_parser.h"
#include "replay/recording/recording.h"

namespace replay {

// Timings and body sizes beyond these limits are treated as unknown.
inline constexpr double kLongestTimingMs = 3600e3;
inline constexpr double kLargestBodyBytes = 4294967296.0;

// Why the row cannot be replayed, a literal and the key in Recording::skipped; null if it can be replayed.
const char* WhyNotReplayable(const HarEntry& entry);

// Converts a row that can be replayed. The page sets `startMs` and `endMs` later. If the file does not
// contain the status, it is assumed to be 200. `startedMs` is when the row started, in milliseconds since
// 1970.
Request MakeRequest(const HarEntry& entry, std::optional<double> startedMs);

// How long the row was queued in the browser before it started; 0 if the recorder does not say.
double QueuedMs(const HarEntry& entry);

// The time from the start of the row to its last byte, as far as the row says.
double DurationMs(const HarEntry& entry);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_REQUEST_H_
