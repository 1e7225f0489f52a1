// What a replay is asked to do, and the figures of the network that it models.
#ifndef REPLAY_OPTIONS_H_
#define REPLAY_OPTIONS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace replay {

// The access link. Without a value a request keeps what was recorded ("native").
struct NetworkProfile {
  std::string name = "4g";
  std::optional<double> rttMs = 170;
  std::optional<double> downMbit = 9;
};

struct ReplayOptions {
  NetworkProfile profile;
  int socketsPerGroup = 6;
  uint32_t visits = 3;  // loads made of a recording that holds a single load of each page
  double revisitAfterMs = 3600e3;
  bool join = true;
  std::map<std::string, std::string> properties;  // system properties by name
  std::optional<int> logLevel;                    // keep the plugin's log at this verbosity
};

}  // namespace replay

#endif  // REPLAY_OPTIONS_H_
