// The networks that can be chosen by name. Names and figures are those of WebPageTest and sitespeed.io. Any
// thread.
#ifndef REPLAY_MODEL_NETWORK_PROFILES_H_
#define REPLAY_MODEL_NETWORK_PROFILES_H_

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace replay {

// An access link. If a value is absent, requests keep their recorded times.
struct NetworkProfile {
  std::string_view name = "4g";
  std::optional<double> rttMs = 170;
  std::optional<double> downMbit = 9;
  std::optional<double> upMbit = 9;
};

inline constexpr std::array<NetworkProfile, 13> kNetworkProfiles = {{
    {"2g", 800, 0.28, 0.256},
    {"edge", 840, 0.24, 0.2},
    {"dial", 120, 0.049, 0.03},
    {"3gslow", 400, 0.4, 0.4},
    {"3gem", 400, 0.4, 0.4},
    {"3g", 300, 1.6, 0.768},
    {"3gfast", 150, 1.6, 0.768},
    {"4g", 170, 9, 9},
    {"lte", 70, 12, 12},
    {"dsl", 50, 1.5, 0.384},
    {"cable", 28, 5, 1},
    {"fios", 4, 20, 5},
    {"native", std::nullopt, std::nullopt, std::nullopt},
}};

// The profile with that name, or null.
inline const NetworkProfile* FindNetworkProfile(std::string_view name) {
  const auto found = std::find_if(kNetworkProfiles.begin(), kNetworkProfiles.end(),
                                  [name](const NetworkProfile& profile) { return profile.name == name; });
  return found != kNetworkProfiles.end() ? &*found : nullptr;
}

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_PROFILES_H_
