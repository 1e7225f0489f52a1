// The options of a replay.
#ifndef REPLAY_MODEL_REPLAY_OPTIONS_H_
#define REPLAY_MODEL_REPLAY_OPTIONS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "replay/model/beacons.h"
#include "replay/model/network_costs.h"
#include "replay/model/network_profiles.h"
#include "replay/model/parent_rule.h"

namespace replay {

struct ReplayOptions {
  NetworkProfile profile;
  NetworkCosts costs;
  int socketsPerGroup = 6;
  uint32_t visits = 3;  // how often each page is loaded if the recording contains a single load of each page
  double revisitAfterMs = 3600e3;
  bool join = true;
  bool preconnect = true;
  std::optional<ParentRule> parents;  // absent: chosen for each page
  BeaconList beacons = DefaultBeaconList();
  std::map<std::string, std::string> properties;  // system properties by name
  bool allWays = true;          // false: only those that IsRunOnFirstVisits; the others are left empty
  std::optional<int> logLevel;  // keep the plugin's log at this verbosity
};

}  // namespace replay

#endif  // REPLAY_MODEL_REPLAY_OPTIONS_H_
