// Everything that the reports need of one recording, as it travels from the process that replayed it.
#ifndef REPLAY_REPORT_RECORDING_REPORT_H_
#define REPLAY_REPORT_RECORDING_REPORT_H_

#include <string>
#include <vector>

#include "replay/report/har_writer.h"
#include "replay/report/report_html.h"
#include "replay/report/summary.h"

namespace replay {

// What became of the recording; the numbers are the program's exit statuses. What is left out after an
// interruption was not replayed.
enum class ReplayStatus { Done = 0, Fault = 1, BadInput = 2, LeftOut = 130 };

struct RecordingReport {
  ReplayStatus status = ReplayStatus::Done;
  std::string error;  // one line when it is not Done; the rest is then empty, except the summary's name
  std::vector<std::string> recordingWarnings;  // one line each: why its figures may mislead
  Summary summary;
  HtmlSection html;  // empty when not wanted, as `har` is
  HarPart har;
  std::vector<std::string> logLines;
};

// To bytes and back; any strings survive. Unpack throws std::runtime_error when the bytes are not whole.
std::string Pack(const RecordingReport& report);
RecordingReport Unpack(const std::string& bytes);

}  // namespace replay

#endif  // REPLAY_REPORT_RECORDING_REPORT_H_
