// A replayed recording that nobody recorded: plausible figures in every field, the same at every call.
#ifndef TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_
#define TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_

#include <string>

#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace tests {

struct Replayed {
  replay::Recording recording;
  replay::RecordingResult result;
};

// One page of 40 requests, visited three times: two of the visits are repeat visits, and in the second of
// these a preload is wasted.
Replayed MakeReplayed(const std::string& name);

// As the recordings that were replayed under one setting.
std::vector<replay::RecordingReport> ReportsOf(const std::vector<replay::Summary>& summaries);

// Their lines under one setting.
std::string JsonLine(const replay::Summary& summary, const replay::ReplayOptions& options);
std::string JsonSummaryLine(const std::vector<replay::Summary>& summaries,
                            const replay::ReplayOptions& options);

}  // namespace tests

#endif  // TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_
