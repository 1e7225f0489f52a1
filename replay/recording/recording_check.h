// Warnings about recordings whose figures may be misleading. Any thread.
#ifndef REPLAY_RECORDING_RECORDING_CHECK_H_
#define REPLAY_RECORDING_RECORDING_CHECK_H_

#include <string>
#include <vector>

#include "replay/recording/recording.h"

namespace replay {

// Why nothing in the recording can be replayed, with the reasons of its rows; empty if something can.
std::string WhyNothingToReplay(const Recording& recording);

// Returns one line for each page that seems to contain more than one navigation, because the replay treats a
// page as one visit, and one line if many responses came from the cache of the browser that was recorded.
std::vector<std::string> WarningsOf(const Recording& recording);

}  // namespace replay

#endif  // REPLAY_RECORDING_RECORDING_CHECK_H_
