// The names of recordings in reports. Any thread.
#ifndef REPLAY_RECORDING_RECORDING_NAMES_H_
#define REPLAY_RECORDING_RECORDING_NAMES_H_

#include <string>
#include <vector>

namespace replay {

// Returns a name for each path, by index: the name of the file, preceded by as many of its folders as are
// needed to distinguish it from the others ("shop/home.har", "news/home.har"). A path that occurs more than
// once is numbered: "home.har (2)". The name of "-" is "standard input".
std::vector<std::string> DistinctNames(const std::vector<std::string>& paths);

}  // namespace replay

#endif  // REPLAY_RECORDING_RECORDING_NAMES_H_
