// Conditions on the figures of all recordings, by which a CI job tells a good run from a bad one. Any thread.
#ifndef REPLAY_REPORT_FAIL_CONDITION_H_
#define REPLAY_REPORT_FAIL_CONDITION_H_

#include <string>

namespace replay {

// "real.gain_ms.p5 < -10": a key of the JSON summary line with dots between the names, one of < <= > >= ==
// !=, and a number.
struct FailCondition {
  std::string text;  // as it was written
  bool needsSweep = false;
  std::string key;
  std::string comparison;
  double number = 0;
};

// Throws std::runtime_error with one line when the text is no such condition, or when no summary has the key;
// that of a sweep has `against_first` as well.
FailCondition ParseFailCondition(const std::string& text);

// Why the run fails by this condition: one line with the figure; empty when it does not. `summaryLine` is
// one of those that JsonSummaryLines returned. A figure that cannot be told (null) makes the run fail as
// well: passing would mislead.
std::string WhyFailed(const FailCondition& condition, const std::string& summaryLine);

}  // namespace replay

#endif  // REPLAY_REPORT_FAIL_CONDITION_H_
