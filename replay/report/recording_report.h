// Everything that the reports need from one recording. The process that replayed it sends this record.
#ifndef REPLAY_REPORT_RECORDING_REPORT_H_
#define REPLAY_REPORT_RECORDING_REPORT_H_

#include <string>
#include <vector>

#include "replay/report/har_writer.h"
#include "replay/report/report_html.h"
#include "replay/report/summary.h"

namespace replay {

// The outcome of a recording; the numbers are the program's exit statuses. A recording that was left out
// after an interruption was not replayed.
enum class ReplayStatus { Done = 0, Fault = 1, BadInput = 2, LeftOut = 130 };

struct RecordingReport {
  ReplayStatus status = ReplayStatus::Done;
  std::string
      error;  // one line if the status is not Done; everything else except the summary's name is then empty
  std::vector<std::string> recordingWarnings;  // one line each: why its figures may be misleading
  Summary summary;
  HtmlSection html;  // empty if it was not asked for, like `har`
  HarPart har;
  std::vector<std::string> logLines;
};

// Converts a report to bytes and back, with any strings. Unpack throws std::runtime_error if bytes are
// missing.
std::string Pack(const RecordingReport& report);
RecordingReport Unpack(const std::string& bytes);

}  // namespace replay

#endif  // REPLAY_REPORT_RECORDING_REPORT_H_
