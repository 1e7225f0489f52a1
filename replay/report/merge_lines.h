// Reads the JSON lines of earlier runs back into the records that reports are made from, so that a corpus can
// be replayed on several machines.
#ifndef REPLAY_REPORT_MERGE_LINES_H_
#define REPLAY_REPORT_MERGE_LINES_H_

#include <cstdint>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/report/recording_report.h"

namespace replay {

// Converts the settings that the figures depend on to an object of a JSON line, and back.
std::string SettingsJson(const ReplayOptions& options);

class LineMerger {
 public:
  // Adds the lines of one file, whose name is `name`. Summary lines are skipped, because they are computed
  // again. Throws std::runtime_error with one line that names the file and the line if a line is not a JSON
  // line of kiv_replay, or if it was written with other settings than the lines before.
  void Add(std::istream& lines, const std::string& name);

  // Returns all of them, including those that failed, sorted by name. Their order in files and runs is lost.
  std::vector<RecordingReport> Reports() const;
  // The settings of all lines; nothing if every recording failed.
  const std::optional<ReplayOptions>& Settings() const { return settings_; }
  // How many lines are equal to another line, for example because a file was given twice. They count as well.
  size_t Repeated() const { return repeated_; }

 private:
  void AddLine(const std::string& line);

  std::multimap<std::string, RecordingReport> reportsByLine_;  // sorted by name, then by the whole line
  std::optional<ReplayOptions> settings_;
  std::string settingsText_;
  size_t repeated_ = 0;
};

}  // namespace replay

#endif  // REPLAY_REPORT_MERGE_LINES_H_
