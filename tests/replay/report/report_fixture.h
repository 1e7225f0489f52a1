// What the reports are made from: the example recording, replayed, with a URL in it that attacks the reports.
#ifndef TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_
#define TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_

#include <string>
#include <vector>

#include "replay/model/results.h"
#include "replay/recording/recording.h"
#include "replay/report/recording_report.h"
#include "replay/report/report_json.h"

namespace tests {

struct Replayed {
  replay::Recording recording;
  replay::RecordingResult result;
};

// Three visits to the first page of the example. In the last one, a preload from a hostile URL is unused.
Replayed MakeReplayed(const std::string& name);

// As the recordings that were replayed under one setting.
std::vector<replay::RecordingReport> ReportsOf(const std::vector<replay::Summary>& summaries);

// Their lines under one setting.
std::string JsonLine(const replay::Summary& summary, const replay::ReplayOptions& options);
std::string JsonSummaryLine(const std::vector<replay::Summary>& summaries,
                            const replay::ReplayOptions& options);

}  // namespace tests

#endif  // TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_
