// What a reader of the figures should know about a recording before he believes them. Any thread.
#ifndef REPLAY_RECORDING_RECORDING_CHECK_H_
#define REPLAY_RECORDING_RECORDING_CHECK_H_

#include <string>
#include <vector>

#include "replay/recording/recording.h"

namespace replay {

// Why nothing of the recording can be replayed, with the reasons of its rows; empty when something can.
std::string WhyNothingToReplay(const Recording& recording);

// One line for each page that seems to hold more than one navigation, since the replay takes a page for one
// visit, and one when many responses came from the cache of the browser that recorded them.
std::vector<std::string> WarningsOf(const Recording& recording);

}  // namespace replay

#endif  // REPLAY_RECORDING_RECORDING_CHECK_H_
