// Conditions on the figures of all recordings, with which a CI job decides whether a run is good. Any thread.
#ifndef REPLAY_REPORT_FAIL_CONDITION_H_
#define REPLAY_REPORT_FAIL_CONDITION_H_

#include <string>

namespace replay {

// For example "real.gain_ms.p5 < -10": a key of the JSON summary line with dots between the names, one of
// < <= > >= == !=, and a number.
struct FailCondition {
  std::string text;  // as it was written
  bool needsSweep = false;
  std::string key;
  std::string comparison;
  double number = 0;
};

// Throws std::runtime_error with one line if the text is not such a condition, or if no summary has the key;
// the summary of a sweep also has `against_first`.
FailCondition ParseFailCondition(const std::string& text);

// Why the run fails because of this condition: one line with the figure, or empty if it does not fail.
// `summaryLine` is one of the lines that JsonSummaryLines returned. A figure that is null makes the run fail
// as well, because passing would be misleading.
std::string WhyFailed(const FailCondition& condition, const std::string& summaryLine);

}  // namespace replay

#endif  // REPLAY_REPORT_FAIL_CONDITION_H_
