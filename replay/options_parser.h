// The command line of kiv_replay.
#ifndef REPLAY_OPTIONS_PARSER_H_
#define REPLAY_OPTIONS_PARSER_H_

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "replay/report/fail_condition.h"
#include "replay/report/report_formats.h"
#include "replay/report/settings.h"

namespace replay {

struct Output {
  const ReportFormat* format;
  std::string path;  // "-" is standard output
};

struct CommandLine {
  Settings settings;                    // more than one with --sweep
  std::string pluginPath;               // empty: the library beside the program
  std::vector<std::string> recordings;  // at least one; "-", at most once, is standard input
  std::vector<Output> outputs;          // the reports to write
  bool force = false;                   // outputs may replace files that are not reports
  bool merge = false;                   // `recordings` are files of JSON lines, which also set `settings`
  std::vector<FailCondition> failConditions;
  std::vector<std::string> settingsPaths;  // the other files that were read: lists, --props and --beacons
  bool advise = false;                     // try changes to each recording
  unsigned jobs = 1;
  bool visitsGiven = false;  // --visits was given
};

// Reads the arguments after the program's name, the files of --props and --beacons, and lists and folders of
// recordings. Returns nothing after --help or --version, whose text it writes to `out`. Throws
// std::runtime_error with one line that names the option and the place.
std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& arguments, std::ostream& out);

}  // namespace replay

#endif  // REPLAY_OPTIONS_PARSER_H_
