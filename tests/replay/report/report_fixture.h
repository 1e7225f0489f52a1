// What the reports are made from: the example recording, replayed, with a URL in it that attacks the reports.
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

// Three visits to the first page of the example. In the last one, a preload from a hostile URL is unused.
Replayed MakeReplayed(const std::string& name);

}  // namespace tests

#endif  // TESTS_REPLAY_REPORT_REPORT_FIXTURE_H_
