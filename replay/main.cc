// kiv_replay: replays recordings, each in a process of its own, and writes the reports. One thread.
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

#include "host/plugin_functions.h"
#include "replay/child_jobs.h"
#include "replay/model/replay.h"
#include "replay/options_parser.h"
#include "replay/output_file.h"
#include "replay/recording/har_reader.h"
#include "replay/report/recording_report.h"
#include "replay/report/report_html.h"
#include "replay/report/report_json.h"
#include "replay/report/report_text.h"

namespace replay {
namespace {

std::string DefaultPluginPath() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib" /
         "libkiv_proc_plugin.so";
}

RecordingReport Failed(ReplayStatus status, const std::string& error) {
  RecordingReport report;
  report.status = status;
  report.error = PrintableText(error);
  return report;
}

RecordingReport ReplayOne(size_t index, const CommandLine& line, const host::PluginFunctions& plugin) {
  Recording recording;
  try {
    recording = ReadHarFile(line.recordings[index]);
  } catch (const std::exception& error) {
    return Failed(ReplayStatus::BadInput, error.what());
  }
  try {
    RecordingResult result = ReplayRecording(recording, line.replay, plugin);
    RecordingReport report;
    report.summary = Summarize(result);
    if (!line.htmlPath.empty()) report.html = HtmlSectionOf(index, recording, result);
    if (!line.harPath.empty()) report.har = HarPartOf(index, recording, result, line.replay);
    report.logLines = std::move(result.logLines);
    return report;
  } catch (const std::exception& error) {
    return Failed(ReplayStatus::Fault, line.recordings[index] + ": " + error.what());
  }
}

// On standard error, when somebody looks and there is something to wait for.
class Progress {
 public:
  explicit Progress(size_t count) : count_(count), shown_(count > 1 && isatty(STDERR_FILENO) == 1) {
    Show(0);
  }
  ~Progress() {
    if (shown_) fmt::print(stderr, "\r\033[K");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(size_t finished) const {
    if (!shown_) return;
    constexpr size_t kColumns = 40;
    const size_t filled = finished * kColumns / count_;
    fmt::print(stderr, "\r[{:#<{}}{:.<{}}] {}/{}", "", filled, "", kColumns - filled, finished, count_);
    std::fflush(stderr);
  }

 private:
  size_t count_;
  bool shown_;
};

RecordingReport ReportOf(const ChildOutcome& outcome, const std::string& recording) {
  if (!outcome.failure.empty())
    return Failed(ReplayStatus::Fault, recording + ": the replay " + outcome.failure);
  try {
    return Unpack(outcome.output);
  } catch (const std::runtime_error& error) {
    return Failed(ReplayStatus::Fault, recording + ": " + error.what());
  }
}

std::vector<RecordingReport> ReplayAll(const CommandLine& line, const host::PluginFunctions& plugin) {
  const Progress progress(line.recordings.size());
  const auto work = [&line, &plugin](size_t index) { return Pack(ReplayOne(index, line, plugin)); };
  const auto outcomes = RunInChildren(line.recordings.size(), line.jobs, work,
                                      [&progress](size_t finished) { progress.Show(finished); });
  std::vector<RecordingReport> reports;
  for (size_t index = 0; index < outcomes.size(); ++index) {
    reports.push_back(ReportOf(outcomes[index], line.recordings[index]));
  }
  return reports;
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

void WriteReports(const CommandLine& line, const std::vector<RecordingReport>& reports) {
  std::vector<Summary> summaries;
  std::vector<HtmlSection> sections;
  std::vector<HarPart> harParts;
  std::string jsonLines;
  for (const RecordingReport& report : reports) {
    summaries.push_back(report.summary);
    sections.push_back(report.html);
    harParts.push_back(report.har);
    jsonLines += JsonLine(report.summary, line.replay) + "\n";
  }
  jsonLines += JsonSummaryLine(summaries, line.replay) + "\n";
  // One that cannot be written keeps neither the others nor the table back.
  std::exception_ptr failure;
  const auto write = [&failure](const std::string& path, const auto& makeText) {
    if (path.empty()) return;
    try {
      WriteOutput(path, makeText());
    } catch (const std::exception&) {
      if (failure == nullptr) failure = std::current_exception();
    }
  };
  write(line.jsonPath, [&] { return jsonLines; });
  write(line.htmlPath, [&] { return HtmlReport(summaries, sections, line.replay); });
  write(line.harPath, [&] { return HarFile(harParts); });

  const bool outputTaken = line.jsonPath == "-" || line.htmlPath == "-" || line.harPath == "-";
  FILE* const terminal = outputTaken ? stderr : stdout;
  const char* const noColor = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): there is one thread
  const bool colour = isatty(fileno(terminal)) == 1 && (noColor == nullptr || *noColor == '\0');
  const std::string text = LogText(reports) + TextReport(summaries, line.replay, colour);
  if (std::fwrite(text.data(), 1, text.size(), terminal) != text.size() || std::fflush(terminal) != 0) {
    throw std::runtime_error("the table cannot be written");
  }
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
      "kiv_replay: --visits is ignored for recordings that load a page again themselves ({} of {}: {}{})\n",
      count, reports.size(), PrintableText(first->summary.name), count > 1 ? ", …" : "");
}

int Run(const std::vector<std::string>& arguments) {
  const auto line = ParseCommandLine(arguments, std::cout);
  if (!line) return EXIT_SUCCESS;
  const host::LoadedPlugin plugin(line->pluginPath.empty() ? DefaultPluginPath() : line->pluginPath);
  std::vector<RecordingReport> reports = ReplayAll(*line, plugin.Functions());

  int status = EXIT_SUCCESS;
  for (const RecordingReport& report : reports) {
    if (report.status == ReplayStatus::Done) continue;
    fmt::print(stderr, "kiv_replay: {}\n", report.error);
    // A fault of the program weighs more than bad input.
    if (status != static_cast<int>(ReplayStatus::Fault)) status = static_cast<int>(report.status);
  }
  if (line->visitsGiven) WarnOfIgnoredVisits(reports);
  std::erase_if(reports, [](const RecordingReport& report) { return report.status != ReplayStatus::Done; });
  if (!reports.empty()) WriteReports(*line, reports);  // else the reports of an earlier run stay
  return status;
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
