// What recordings are called in reports. Any thread.
#ifndef REPLAY_RECORDING_RECORDING_NAMES_H_
#define REPLAY_RECORDING_RECORDING_NAMES_H_

#include <string>
#include <vector>

namespace replay {

// A name for each path, by index: the file's own name, preceded by as many of its folders as it takes to tell
// it from the others ("shop/home.har", "news/home.har"). A path that is given more than once is numbered:
// "home.har (2)".
// "-" is "standard input".
std::vector<std::string> DistinctNames(const std::vector<std::string>& paths);

}  // namespace replay

#endif  // REPLAY_RECORDING_RECORDING_NAMES_H_
