// Replays the recordings of a command line, each in a process of its own. The caller must have one thread.
#ifndef REPLAY_REPLAY_JOBS_H_
#define REPLAY_REPLAY_JOBS_H_

#include <functional>
#include <vector>

#include "host/plugin_functions.h"
#include "replay/options_parser.h"
#include "replay/report/recording_report.h"

namespace replay {

// Every recording has a report, in the order of the command line, after an interruption as well; `onReport`
// is given each as soon as it and all before it are ready. Shows its progress on standard error.
std::vector<RecordingReport> ReplayAll(const CommandLine& line, const host::PluginFunctions& plugin,
                                       const std::function<void(const RecordingReport&)>& onReport);

}  // namespace replay

#endif  // REPLAY_REPLAY_JOBS_H_
