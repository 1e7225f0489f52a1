// Runs a recording through the plugin, each visit in all ways, in the model that docs/replay-model.md
// describes.
#ifndef REPLAY_MODEL_REPLAY_H_
#define REPLAY_MODEL_REPLAY_H_

#include <string>

#include "host/plugin_functions.h"
#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// Why the visits would take more virtual time than the dates of the clock can represent; empty if they do
// not.
std::string WhyTooLong(const Recording& recording, const ReplayOptions& options);

// Replays one recording. The library's state is process-wide, so nothing else in the process may have used it
// before or use it meanwhile. The visits must not be too long. Throws std::runtime_error on a fault of the
// plugin (a body that is not the one that was fetched, or an exported function that returns what it must
// not).
RecordingResult ReplayRecording(const Recording& recording, const ReplayOptions& options,
                                const host::PluginFunctions& plugin);

}  // namespace replay

#endif  // REPLAY_MODEL_REPLAY_H_
