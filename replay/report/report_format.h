// What an output of kiv_replay is made of. Plain data; any thread.
#ifndef REPLAY_REPORT_REPORT_FORMAT_H_
#define REPLAY_REPORT_REPORT_FORMAT_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "replay/model/results.h"
#include "replay/recording/recording.h"
#include "replay/report/recording_report.h"
#include "replay/report/settings.h"

namespace replay {

// Takes the text of a file piece by piece, in order.
using TextSink = std::function<void(std::string_view)>;

// A format is a file with one of these, and its line in report_formats.cc.
struct ReportFormat {
  const char* option;     // "--json"
  const char* what;       // for --help
  const char* signature;  // stands near the beginning of every file of this format that this program wrote
  bool needsReplay;  // it shows more than summaries hold: it cannot be made from the JSON lines of earlier
                     // runs
  bool oneSetting;   // it shows the loads themselves, and those of several settings would be mixed up
  // What the format needs of the `index`th recording beyond the summary: comes back to it as
  // RecordingReport::parts, under its option. Runs in the process that replayed the recording under the first
  // setting. Null: the summary is enough.
  std::string (*collect)(size_t index, const Recording& recording, const RecordingResult& result,
                         const ReplayOptions& options);
  // A format has either `lines`, or `file`; the others are null.
  // What comes before the lines of all recordings; may be null.
  std::string (*firstLines)(const Settings& settings);
  // The lines of one recording, written as soon as it and all before it are ready, failed ones too.
  std::string (*lines)(const RecordingReport& report, const Settings& settings);
  // And what comes after the lines of all recordings, from those that were replayed; there is at least one.
  // May be null.
  std::string (*lastLines)(const std::vector<RecordingReport>& reports, const Settings& settings);
  // The whole file, from the recordings that were replayed; there is at least one.
  void (*file)(const std::vector<RecordingReport>& reports, const Settings& settings, const TextSink& write);
};

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_FORMAT_H_
