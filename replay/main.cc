// kiv_replay: replays recordings, each in a process of its own, and writes the reports. One thread.
#include <fmt/format.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <system_error>

#include "host/plugin_functions.h"
#include "replay/interruption.h"
#include "replay/options_parser.h"
#include "replay/output_check.h"
#include "replay/output_file.h"
#include "replay/replay_jobs.h"
#include "replay/report/fail_condition.h"
#include "replay/report/merge_lines.h"
#include "replay/report/printable_text.h"
#include "replay/report/recording_report.h"
#include "replay/report/report_formats.h"
#include "replay/report/report_json.h"
#include "replay/report/report_text.h"

namespace replay {
namespace {

constexpr int kConditionHolds = 3;  // exit status; the others are in ReplayStatus

std::string DefaultPluginPath() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib" /
         "libkiv_proc_plugin.so";
}

// The outputs that are written line by line. If one of them cannot be written, the others and the table still
// are: the first failure is remembered, and nothing more is written to that output.
class LineOutputs {
 public:
  explicit LineOutputs(const CommandLine& line) : settings_(line.settings) {
    for (const Output& output : line.outputs) {
      if (output.format->lines == nullptr) continue;
      streams_.emplace_back(output.format, std::make_unique<OutputStream>(output.path));
    }
  }

  void Write(const RecordingReport& report) {
    WriteAll([&](const ReportFormat& format) {
      const bool first = format.firstLines != nullptr && !begun_;
      return (first ? format.firstLines(settings_) : "") + format.lines(report, settings_);
    });
    begun_ = true;
  }
  // Writes what follows all lines. `reports` are those of the recordings that were replayed; at least one.
  void Finish(const std::vector<RecordingReport>& reports) {
    WriteAll([&](const ReportFormat& format) {
      return format.lastLines != nullptr ? format.lastLines(reports, settings_) : "";
    });
  }
  std::exception_ptr Failure() const { return failure_; }

 private:
  void WriteAll(const std::function<std::string(const ReportFormat&)>& textOf) {
    for (auto& [format, stream] : streams_) {
      if (stream == nullptr) continue;
      try {
        stream->Write(textOf(*format));
      } catch (const std::exception&) {
        if (failure_ == nullptr) failure_ = std::current_exception();
        stream.reset();
      }
    }
  }

  const Settings& settings_;
  std::vector<std::pair<const ReportFormat*, std::unique_ptr<OutputStream>>> streams_;
  bool begun_ = false;
  std::exception_ptr failure_;
};

void PrintErrorAndWarnings(const RecordingReport& report) {
  if (report.status != ReplayStatus::Done) fmt::print(stderr, "kiv_replay: {}\n", report.error);
  for (const std::string& warning : report.recordingWarnings) {
    fmt::print(stderr, "kiv_replay: warning: {}: {}\n", PrintableText(report.summary.name),
               PrintableText(warning));
  }
}

std::string LogText(const std::vector<RecordingReport>& reports) {
  std::string text;
  for (const RecordingReport& report : reports) {
    if (report.logLines.empty()) continue;
    text += fmt::format("--------- beginning of {}\n", PrintableText(report.summary.name));
    for (const std::string& logLine : report.logLines) text += PrintableText(logLine) + "\n";
  }
  return text;
}

bool IsOnTerminal(FILE* file) {
  return isatty(fileno(file)) == 1;
}

// The variable COLUMNS if it is a whole number of at least 20, else the width of the terminal, else 120.
size_t ColumnsOf(FILE* file) {
  constexpr size_t kFewest = 20;
  const char* const text = std::getenv("COLUMNS");
  if (text != nullptr) {
    size_t columns = 0;
    const auto [end, error] = std::from_chars(text, text + std::strlen(text), columns);
    if (error == std::errc() && *end == '\0' && columns >= kFewest) return columns;
  }
  winsize size{};
  if (ioctl(fileno(file), TIOCGWINSZ, &size) == 0 && size.ws_col >= kFewest) return size.ws_col;
  return Terminal().columns;
}

bool IsStandardOutputTaken(const CommandLine& line) {
  return std::any_of(line.outputs.begin(), line.outputs.end(),
                     [](const Output& output) { return output.path == "-"; });
}

// Prints the table to standard output, or to standard error if a report goes to standard output.
bool IsAdvised(const std::vector<RecordingReport>& reports) {
  return std::any_of(reports.begin(), reports.end(),
                     [](const RecordingReport& report) { return report.advised; });
}

void PrintTable(const CommandLine& line, const std::vector<RecordingReport>& reports) {
  FILE* const file = IsStandardOutputTaken(line) ? stderr : stdout;
  const char* const noColor = std::getenv("NO_COLOR");
  const Terminal terminal = {.colour = IsOnTerminal(file) && (noColor == nullptr || *noColor == '\0'),
                             .columns = ColumnsOf(file)};
  std::vector<Summary> summaries;
  for (const RecordingReport& report : reports) summaries.push_back(report.summary);
  const std::string text =
      LogText(reports) +
      (IsSweep(line.settings) ? SweepText(reports, line.settings, terminal)
                              : TextReport(summaries, line.settings.front().options, terminal)) +
      (IsAdvised(reports) ? AdviceText(reports, terminal) : "");
  if (std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fflush(file) != 0) {
    throw std::runtime_error("the table cannot be written");
  }
}

// Writes the outputs that are whole files, and the table. If one output cannot be written, the others and the
// table still are; the first failure is thrown at the end. `reports` are those of the replayed recordings.
void WriteReports(const CommandLine& line, const std::vector<RecordingReport>& reports,
                  std::exception_ptr failure) {
  for (const Output& output : line.outputs) {
    if (output.format->file == nullptr) continue;
    try {
      WriteOutput(output.path,
                  [&](const TextPieces& write) { output.format->file(reports, line.settings, write); });
    } catch (const std::exception&) {
      if (failure == nullptr) failure = std::current_exception();
    }
  }
  PrintTable(line, reports);
  if (failure != nullptr) std::rethrow_exception(failure);
}

void WarnOfIgnoredVisits(const std::vector<RecordingReport>& reports) {
  const auto ignores = [](const RecordingReport& report) {
    return !Select(report.summary.repeats, false).empty();
  };
  const auto count = std::count_if(reports.begin(), reports.end(), ignores);
  if (count == 0) return;
  const auto first = std::find_if(reports.begin(), reports.end(), ignores);
  fmt::print(
      stderr,
      "kiv_replay: --visits is ignored for recordings that already load a page again ({} of {}: {}{})\n",
      count, reports.size(), PrintableText(first->summary.name), count > 1 ? ", …" : "");
}

void CheckPlaces(const CommandLine& line, const std::string& pluginPath) {
  std::vector<PlannedOutput> outputs;
  for (const Output& output : line.outputs) {
    outputs.push_back({output.format->option, output.path, output.format->signature});
  }
  if (!IsStandardOutputTaken(line)) outputs.push_back({"standard output", "-", ""});  // by the table
  std::vector<std::string> inputs = line.recordings;
  if (!pluginPath.empty()) inputs.push_back(pluginPath);
  inputs.insert(inputs.end(), line.settingsPaths.begin(), line.settingsPaths.end());
  CheckOutputs(outputs, inputs, line.force);
}

// The exit status. A fault of the program takes precedence over bad input.
int StatusOf(const std::vector<RecordingReport>& reports) {
  ReplayStatus status = ReplayStatus::Done;
  for (const RecordingReport& report : reports) {
    if (report.status == ReplayStatus::Fault) return static_cast<int>(ReplayStatus::Fault);
    if (report.status != ReplayStatus::Done) status = report.status;
  }
  return static_cast<int>(status);
}

// "a.har, b.har and 16 more".
std::string SomeOf(const std::vector<std::string>& names) {
  constexpr size_t kShown = 5;
  std::string text;
  for (size_t index = 0; index < std::min(names.size(), kShown); ++index) {
    text += (index == 0 ? "" : ", ") + PrintableText(names[index]);
  }
  return names.size() > kShown ? text + fmt::format(" and {} more", names.size() - kShown) : text;
}

// Ends the process with the signal, so that the parent process sees how it ended.
void EndBySignal(int number, const std::vector<std::string>& leftOut) {
  fmt::print(stderr, "kiv_replay: ended early by signal {} ({})", number, sigdescr_np(number));
  if (!leftOut.empty()) fmt::print(stderr, ", {} recordings left out: {}", leftOut.size(), SomeOf(leftOut));
  fmt::print(stderr, "\n");
  std::fflush(nullptr);
  signal(number, SIG_DFL);
  raise(number);
}

// Checks the conditions of --fail-if and returns the exit status. An earlier failure, which makes the figures
// incomplete, takes precedence. `reports` are those of the recordings that were replayed.
int CheckConditions(const CommandLine& line, const std::vector<RecordingReport>& reports, int status) {
  if (line.failConditions.empty() || reports.empty()) return status;
  const std::vector<std::string> summaryLines = JsonSummaryLines(reports, line.settings);
  for (const FailCondition& condition : line.failConditions) {
    for (size_t index = 0; index < summaryLines.size(); ++index) {
      const std::string why = WhyFailed(condition, summaryLines[index]);
      if (why.empty()) continue;
      const std::string& setting = line.settings[index].text;
      fmt::print(stderr, "kiv_replay: --fail-if {}{}\n", why, setting.empty() ? "" : ", with " + setting);
      if (status == EXIT_SUCCESS) status = kConditionHolds;
    }
  }
  return status;
}

// Prints the errors, writes all that is not written line by line, and returns the exit status.
int Finish(const CommandLine& line, std::vector<RecordingReport> reports, LineOutputs& lineOutputs) {
  const int status = StatusOf(reports);
  std::vector<std::string> leftOut;
  for (const RecordingReport& report : reports) {
    if (report.status == ReplayStatus::LeftOut) {
      leftOut.push_back(report.summary.name);
    } else {
      PrintErrorAndWarnings(report);
    }
  }
  if (line.visitsGiven) WarnOfIgnoredVisits(reports);
  std::erase_if(reports, [](const RecordingReport& report) { return report.status != ReplayStatus::Done; });
  if (!reports.empty()) {
    lineOutputs.Finish(reports);
    WriteReports(line, reports, lineOutputs.Failure());  // otherwise the reports of an earlier run stay
  } else if (lineOutputs.Failure() != nullptr) {
    std::rethrow_exception(lineOutputs.Failure());
  }
  if (Interruption() != 0) EndBySignal(Interruption(), leftOut);
  return CheckConditions(line, reports, status);
}

int RunReplay(const CommandLine& line) {
  const std::string pluginPath = line.pluginPath.empty() ? DefaultPluginPath() : line.pluginPath;
  CheckPlaces(line, pluginPath);
  const host::LoadedPlugin plugin(pluginPath);
  LineOutputs lineOutputs(line);
  std::vector<RecordingReport> reports =
      ReplayAll(line, plugin.Functions(), [&](const RecordingReport& report) { lineOutputs.Write(report); });
  return Finish(line, std::move(reports), lineOutputs);
}

int RunMerge(CommandLine line) {
  CheckPlaces(line, "");
  LineMerger merger;
  for (const std::string& path : line.recordings) {
    if (path == "-") {
      merger.Add(std::cin, "standard input");
      continue;
    }
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    merger.Add(file, path);
  }
  if (merger.Repeated() > 0) {
    fmt::print(stderr, "kiv_replay: warning: {} lines are the same as other lines; was a file given twice?\n",
               merger.Repeated());
  }
  std::vector<RecordingReport> reports = merger.Reports();
  if (reports.empty()) throw std::runtime_error("nothing to merge: the files contain no lines of recordings");
  line.settings = merger.MergedSettings();
  LineOutputs lineOutputs(line);
  for (const RecordingReport& report : reports) lineOutputs.Write(report);
  return Finish(line, std::move(reports), lineOutputs);
}

int Run(const std::vector<std::string>& arguments) {
  const auto line = ParseCommandLine(arguments, std::cout);
  if (!line) return EXIT_SUCCESS;
  return line->merge ? RunMerge(*line) : RunReplay(*line);
}

}  // namespace
}  // namespace replay

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);  // a reader that leaves early is a write that fails
  try {
    return replay::Run({argv + 1, argv + argc});
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "kiv_replay: %s\n", error.what());
    return static_cast<int>(replay::ReplayStatus::Fault);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kiv_replay: %s\n", error.what());
    return static_cast<int>(replay::ReplayStatus::BadInput);
  }
}
