// Everything that the reports need from one recording. The process that replayed it sends this record.
#ifndef REPLAY_REPORT_RECORDING_REPORT_H_
#define REPLAY_REPORT_RECORDING_REPORT_H_

#include <map>
#include <string>
#include <vector>

#include "replay/report/advice.h"
#include "replay/report/summary.h"

namespace replay {

// The outcome of a recording; the numbers are the program's exit statuses. A recording that was left out
// after an interruption was not replayed.
enum class ReplayStatus { Done = 0, Fault = 1, BadInput = 2, LeftOut = 130 };

struct RecordingReport {
  size_t index = 0;  // of the recording in its run; links within a report use it
  ReplayStatus status = ReplayStatus::Done;
  std::string
      error;  // one line if the status is not Done; everything else except the summary's name is then empty
  std::vector<std::string> recordingWarnings;  // one line each: why its figures may be misleading
  Summary summary;                             // with the first setting
  std::vector<Summary> further;   // the same visits with the other settings of a sweep, in their order
  bool advised = false;           // whether changes were looked for
  std::vector<Change> suggested;  // changes that are still to be tried
  std::vector<Advice> advice;     // those that were tried and are worth it, the most valuable first
  std::map<std::string, std::string> parts;  // what the output formats collected, by their option
  std::vector<std::string> logLines;
};

// The summary with one of the settings, which are counted from 0.
inline const Summary& SummaryUnder(const RecordingReport& report, size_t setting) {
  return setting == 0 ? report.summary : report.further.at(setting - 1);
}

// Converts a report to bytes and back, with any strings. Unpack throws std::runtime_error if bytes are
// missing.
std::string Pack(const RecordingReport& report);
RecordingReport Unpack(const std::string& bytes);

}  // namespace replay

#endif  // REPLAY_REPORT_RECORDING_REPORT_H_
