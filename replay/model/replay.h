// Runs a recording through the plugin, each visit in four ways, in the model that docs/replay-model.md
// describes.
#ifndef REPLAY_MODEL_REPLAY_H_
#define REPLAY_MODEL_REPLAY_H_

#include <string>

#include "host/plugin_functions.h"
#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// Why the visits would take more virtual time than the clock's dates can hold; empty when they do not.
std::string WhyTooLong(const Recording& recording, const ReplayOptions& options);

// One recording in one process: the library's state is process-wide, so nothing else may use it before or
// meanwhile. The visits must not be too long. Throws std::runtime_error on a fault of the plugin (a body that
// is not what was fetched, an exported function that answers what it must not).
RecordingResult ReplayRecording(const Recording& recording, const ReplayOptions& options,
                                const host::PluginFunctions& plugin);

}  // namespace replay

#endif  // REPLAY_MODEL_REPLAY_H_
