// JSON lines of earlier runs back into what the reports are made from, so that a corpus can be replayed in
// many places.
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

// The settings that the figures depend on, as an object of a JSON line, and back.
std::string SettingsJson(const ReplayOptions& options);

class LineMerger {
 public:
  // Adds the lines of one file, named `name`. The last lines, over all recordings of a run, are left out;
  // they are made anew. Throws std::runtime_error with one line that names the file and the line, when one is
  // no JSON line of kiv_replay or was made with other settings than those before.
  void Add(std::istream& lines, const std::string& name);

  // All of them by name, failed ones too, whatever order they came in. The file's and the run's own order is
  // lost. A recording of a sweep whose line for a setting is missing has failed.
  std::vector<RecordingReport> Reports() const;
  // Of all lines; the defaults when every recording failed.
  Settings MergedSettings() const;
  // How many lines are the same as another, as when a file is given twice. They count like all others; those
  // of a sweep, whose visits could not be told apart, are refused.
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

  std::multimap<std::string, RecordingReport> reportsByLine_;  // by name, then by the whole line
  std::map<std::string, BySetting> sweepLines_;                // by name
  std::vector<Known> known_;
  size_t repeated_ = 0;
};

}  // namespace replay

#endif  // REPLAY_REPORT_MERGE_LINES_H_
