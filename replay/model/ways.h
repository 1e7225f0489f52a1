// The table of the ways in which a visit is run. docs/replay-model.md describes each of them. Any thread.
#ifndef REPLAY_MODEL_WAYS_H_
#define REPLAY_MODEL_WAYS_H_

#include <array>
#include <cstddef>

namespace replay {

enum class Way { Off, Plugin, Hints, Preconnect, Reachable, Oracle };

// In the order of the reports.
inline constexpr std::array kWays = {Way::Off,        Way::Plugin,    Way::Hints,
                                     Way::Preconnect, Way::Reachable, Way::Oracle};

// One value for each way.
template <typename Value>
using PerWay = std::array<Value, kWays.size()>;

constexpr size_t Index(Way way) {
  return static_cast<size_t>(way);
}

struct WayWords {
  const char* key;   // in files and headings
  const char* text;  // what it is, after its name
};
const WayWords& WordsFor(Way way);

// Whether first visits are run in this way as well. The other ways need what an earlier visit has taught.
constexpr bool IsRunOnFirstVisits(Way way) {
  return way == Way::Off || way == Way::Plugin;
}

// Whether the way is no way of loading a page, but a bound for such ways.
constexpr bool IsBound(Way way) {
  return way == Way::Reachable || way == Way::Oracle;
}

}  // namespace replay

#endif  // REPLAY_MODEL_WAYS_H_
