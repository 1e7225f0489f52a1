// The output formats of kiv_replay: one row for each with its option and the functions that write it. Plain
// data; any thread.
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
  const char* signature;  // occurs near the beginning of every file of this format that this program wrote
  bool needsReplay;  // it needs more than the summaries, so it cannot be made from the JSON lines of earlier
                     // runs
  // Adds to the report of the recording with that index what the format needs in addition to the summary.
  // Runs in the process that replayed it. Null if the summary is enough.
  void (*collect)(size_t index, const Recording& recording, const RecordingResult& result,
                  const ReplayOptions& options, RecordingReport& report);
  // A format has either `lines`, or `file`; the others are null.
  // Returns what precedes the lines of all recordings; may be null.
  std::string (*firstLines)();
  // Returns the lines of one recording, which may have failed. They are written as soon as this recording and
  // all before it are ready.
  std::string (*lines)(const RecordingReport& report, const ReplayOptions& options);
  // Returns what follows the lines of all recordings, given the reports of those that were replayed; there is
  // at least one. May be null.
  std::string (*lastLines)(const std::vector<RecordingReport>& reports, const ReplayOptions& options);
  // Returns the whole file, given the reports of the recordings that were replayed; there is at least one.
  std::string (*file)(const std::vector<RecordingReport>& reports, const ReplayOptions& options);
};

std::span<const ReportFormat> ReportFormats();

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_FORMATS_H_
