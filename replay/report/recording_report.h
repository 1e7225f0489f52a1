// Everything that the reports need of one recording, as it travels from the process that replayed it.
#ifndef REPLAY_REPORT_RECORDING_REPORT_H_
#define REPLAY_REPORT_RECORDING_REPORT_H_

#include <map>
#include <string>
#include <vector>

#include "replay/report/summary.h"

namespace replay {

// What became of the recording; the numbers are the program's exit statuses. What is left out after an
// interruption was not replayed.
enum class ReplayStatus { Done = 0, Fault = 1, BadInput = 2, LeftOut = 130 };

struct RecordingReport {
  size_t index = 0;  // of the recording in its run; links within a report use it
  ReplayStatus status = ReplayStatus::Done;
  std::string error;  // one line when it is not Done; the rest is then empty, except the summary's name
  std::vector<std::string> recordingWarnings;  // one line each: why its figures may mislead
  Summary summary;                             // under the first setting
  std::vector<Summary> further;  // the same visits under the other settings of a sweep, in their order
  std::map<std::string, std::string> parts;  // what outputs need beyond, by their option
  std::vector<std::string> logLines;
};

// Under one of the settings, counted from the first.
inline const Summary& SummaryUnder(const RecordingReport& report, size_t setting) {
  return setting == 0 ? report.summary : report.further.at(setting - 1);
}

// To bytes and back; any strings survive. Unpack throws std::runtime_error when the bytes are not whole.
std::string Pack(const RecordingReport& report);
RecordingReport Unpack(const std::string& bytes);

}  // namespace replay

#endif  // REPLAY_REPORT_RECORDING_REPORT_H_
