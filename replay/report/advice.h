// What changes to a site would save, measured by replaying it with each of them. Plain values; any thread.
#ifndef REPLAY_REPORT_ADVICE_H_
#define REPLAY_REPORT_ADVICE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/advice/change.h"
#include "replay/report/summary.h"

namespace replay {

// What one event gains, paired per visit; microseconds. Positive: the change makes it earlier.
struct Saving {
  double median = 0;
  double total = 0;
  uint64_t betterVisits = 0;  // by more than 1%
  uint64_t worseVisits = 0;
};

struct Advice {
  Change change;
  bool copies = false;  // the visits are copies, because the recording has no others
  uint64_t visits = 0;
  Saving load;
  Saving firstPaint;
  double totalWithoutPlugin = 0;  // what the change saves of the load event without the plugin, microseconds
};

// `before` and `after` are the same visits without the change and with it, in the ways off and plugin.
// Nothing if the change is not worth it: it must save 1% and 10 ms of the load event or of the first paint on
// average, and must not cost as much of the other.
std::optional<Advice> AdviceOf(const Change& change, const Summary& before, const Summary& after);

// The most valuable first.
void SortByValue(std::vector<Advice>& advice);

// "4 responses of a.test declare no length, ...: declaring it would save 300 ms per visit (first paint 120
// ms)."
std::string AdviceText(const Advice& advice);

// The five that a terminal shows; no more than two of them are about single preloads.
std::vector<Advice> MostValuable(const std::vector<Advice>& sorted);

}  // namespace replay

#endif  // REPLAY_REPORT_ADVICE_H_
