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
#include "replay/report/settings.h"

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
  // A recording of a sweep that has no line for one of the settings has failed.
  std::vector<RecordingReport> Reports() const;
  // The settings of all lines; the defaults if every recording failed.
  Settings MergedSettings() const;
  // How many lines are equal to another line, for example because a file was given twice. They count as well.
  // In a sweep such lines are refused.
  size_t Repeated() const { return repeated_; }

 private:
  // What is known of one setting of the lines; nothing before its first line.
  struct Known {
    std::string text;
    std::optional<ReplayOptions> options;
    std::string optionsText;
  };
  using BySetting = std::map<size_t, Summary>;  // by place among the settings

  void AddLine(const std::string& line);
  size_t PlaceOfSetting(const std::vector<std::string>& sweep, const std::string& setting);
  RecordingReport Together(const std::string& name, const BySetting& summaries) const;

  std::multimap<std::string, RecordingReport> reportsByLine_;  // sorted by name, then by the whole line
  std::map<std::string, BySetting> sweepLines_;                // by name
  std::vector<Known> known_;
  size_t repeated_ = 0;
};

}  // namespace replay

#endif  // REPLAY_REPORT_MERGE_LINES_H_
