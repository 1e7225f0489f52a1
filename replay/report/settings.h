// The settings of a run: one, or with a sweep several under each of which the same recordings are replayed.
// Plain values; any thread.
#ifndef REPLAY_REPORT_SETTINGS_H_
#define REPLAY_REPORT_SETTINGS_H_

#include <string>
#include <vector>

#include "replay/model/replay_options.h"

namespace replay {

struct Setting {
  std::string text;  // what tells it from the others, such as "prlimit=2"; empty without a sweep
  ReplayOptions options;
};

// Never empty. The others are compared with the first one.
using Settings = std::vector<Setting>;

inline bool IsSweep(const Settings& settings) {
  return settings.size() > 1;
}

}  // namespace replay

#endif  // REPLAY_REPORT_SETTINGS_H_
