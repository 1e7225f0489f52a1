// The outputs of kiv_replay, one row each: the option that asks for it, and what writes it. Plain data; any
// thread.
#ifndef REPLAY_REPORT_REPORT_FORMATS_H_
#define REPLAY_REPORT_REPORT_FORMATS_H_

#include <span>
#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/recording_report.h"

namespace replay {

struct ReportFormat {
  const char* option;     // "--json"
  const char* what;       // for --help
  const char* signature;  // stands near the beginning of every file of this format that this program wrote
  bool needsReplay;  // it shows more than summaries hold: it cannot be made from the JSON lines of earlier
                     // runs
  // Adds what the format needs beyond the summary to the report of the `index`th recording. Runs in the
  // process that replayed it. Null: the summary is enough.
  void (*collect)(size_t index, const Recording& recording, const RecordingResult& result,
                  const ReplayOptions& options, RecordingReport& report);
  // A format has either `lines`, or `file`; the others are null.
  // What comes before the lines of all recordings; may be null.
  std::string (*firstLines)();
  // The lines of one recording, written as soon as it and all before it are ready, failed ones too.
  std::string (*lines)(const RecordingReport& report, const ReplayOptions& options);
  // And what comes after the lines of all recordings, from those that were replayed; there is at least one.
  // May be null.
  std::string (*lastLines)(const std::vector<RecordingReport>& reports, const ReplayOptions& options);
  // The whole file, from the recordings that were replayed; there is at least one.
  std::string (*file)(const std::vector<RecordingReport>& reports, const ReplayOptions& options);
};

std::span<const ReportFormat> ReportFormats();

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_FORMATS_H_
