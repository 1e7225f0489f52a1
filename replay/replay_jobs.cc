#include "replay/replay_jobs.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <utility>

#include "replay/child_jobs.h"
#include "replay/model/replay.h"
#include "replay/recording/har_reader.h"
#include "replay/recording/recording_check.h"
#include "replay/recording/recording_names.h"
#include "replay/report/printable_text.h"

namespace replay {
namespace {

RecordingReport Failed(const std::string& name, ReplayStatus status, const std::string& error) {
  RecordingReport report;
  report.status = status;
  report.error = PrintableText(error);
  report.summary.name = name;
  return report;
}

RecordingReport ReportOf(const ChildOutcome& outcome, const std::string& name) {
  if (!outcome.failure.empty())
    return Failed(name, ReplayStatus::Fault, name + ": the replay " + outcome.failure);
  try {
    return Unpack(outcome.output);
  } catch (const std::runtime_error& error) {
    return Failed(name, ReplayStatus::Fault, name + ": " + error.what());
  }
}

// Under one setting, in this process.
RecordingReport ReplayUnder(size_t setting, size_t index, const Recording& recording, const CommandLine& line,
                            const host::PluginFunctions& plugin) try {
  const ReplayOptions& options = line.settings[setting].options;
  if (const std::string why = WhyTooLong(recording, options); !why.empty()) {
    return Failed(recording.name, ReplayStatus::BadInput, recording.name + ": " + why);
  }
  RecordingResult result = ReplayRecording(recording, options, plugin);
  RecordingReport report;
  report.index = index;
  report.summary = Summarize(result);
  for (const Output& output : line.outputs) {
    if (output.format->collect == nullptr || setting > 0) continue;
    report.parts[output.format->option] = output.format->collect(index, recording, result, options);
  }
  if (line.advise) report.suggested = SuggestChanges(recording, result);
  for (const LogLine& logged : result.log) report.logLines.push_back(logged.stamp + logged.text);
  return report;
} catch (const std::exception& error) {
  return Failed(recording.name, ReplayStatus::Fault, recording.name + ": " + error.what());
}

// How many processes a recording may use at a time: what the others leave.
unsigned JobsInside(const CommandLine& line) {
  const size_t recordingsAtATime = std::min<size_t>(line.jobs, line.recordings.size());
  return static_cast<unsigned>(std::max<size_t>(1, line.jobs / recordingsAtATime));
}

// The plugin can be used once in a process, so every setting has a process of its own again. The recording
// fails when it fails under any setting.
RecordingReport ReplayUnderAll(size_t index, const Recording& recording, const CommandLine& line,
                               const host::PluginFunctions& plugin) {
  std::vector<RecordingReport> reports(
      line.settings.size(),
      Failed(recording.name, ReplayStatus::LeftOut, recording.name + ": left out, interrupted"));
  RunInChildren(
      reports.size(), JobsInside(line),
      [&](size_t setting) { return Pack(ReplayUnder(setting, index, recording, line, plugin)); },
      [&](size_t setting, const ChildOutcome& outcome) {
        reports[setting] = ReportOf(outcome, recording.name);
      });
  for (size_t setting = 0; setting < reports.size(); ++setting) {
    if (reports[setting].status == ReplayStatus::Done) continue;
    reports[setting].error += " (with " + line.settings[setting].text + ")";
    return std::move(reports[setting]);
  }
  RecordingReport report = std::move(reports.front());
  for (size_t setting = 1; setting < reports.size(); ++setting) {
    report.further.push_back(std::move(reports[setting].summary));
  }
  return report;
}

// With one of the changes, in this process.
RecordingReport ReplayChanged(const Change& change, Recording recording, ReplayOptions options,
                              const host::PluginFunctions& plugin) try {
  Apply(change, recording, options);
  options.logLevel.reset();
  options.allWays = false;
  return {.summary = Summarize(ReplayRecording(recording, options, plugin))};
} catch (const std::exception& error) {
  return Failed(recording.name, ReplayStatus::Fault, recording.name + ": " + error.what());
}

// Tries the changes that the replay suggests, each in a process of its own, and keeps those that are worth
// it.
RecordingReport ReplayAndAdvise(size_t index, const Recording& recording, const CommandLine& line,
                                const host::PluginFunctions& plugin) {
  RecordingReport report = Failed(recording.name, ReplayStatus::LeftOut, recording.name + ": interrupted");
  RunInChildren(
      1, 1, [&](size_t) { return Pack(ReplayUnder(0, index, recording, line, plugin)); },
      [&](size_t, const ChildOutcome& outcome) { report = ReportOf(outcome, recording.name); });
  const std::vector<Change> changes = std::exchange(report.suggested, {});
  std::vector<std::optional<Advice>> tried(changes.size());
  RunInChildren(
      changes.size(), JobsInside(line),
      [&](size_t change) {
        return Pack(ReplayChanged(changes[change], recording, line.settings.front().options, plugin));
      },
      [&](size_t change, const ChildOutcome& outcome) {
        const RecordingReport changed = ReportOf(outcome, recording.name);
        if (changed.status != ReplayStatus::Done) {
          report.recordingWarnings.push_back("a change could not be tried: " + changed.error);
        } else {
          tried[change] = AdviceOf(changes[change], report.summary, changed.summary);
        }
      });
  for (std::optional<Advice>& advice : tried) {
    if (advice) report.advice.push_back(std::move(*advice));
  }
  report.advised = true;
  SortByValue(report.advice);
  return report;
}

// `name` is what the reports call it. Runs in a child process.
RecordingReport ReplayOne(size_t index, const std::string& name, const CommandLine& line,
                          const host::PluginFunctions& plugin) {
  Recording recording;
  try {
    recording = ReadHarFile(line.recordings[index]);
  } catch (const std::exception& error) {
    return Failed(name, ReplayStatus::BadInput, error.what());
  }
  recording.name = name;
  if (const std::string why = WhyNothingToReplay(recording); !why.empty()) {
    return Failed(name, ReplayStatus::BadInput, name + ": " + why);
  }
  RecordingReport report = IsSweep(line.settings) ? ReplayUnderAll(index, recording, line, plugin)
                           : line.advise          ? ReplayAndAdvise(index, recording, line, plugin)
                                                  : ReplayUnder(0, index, recording, line, plugin);
  if (report.status == ReplayStatus::Done) {
    for (std::string& warning : WarningsOf(recording)) report.recordingWarnings.push_back(std::move(warning));
  }
  return report;
}

// A progress bar on standard error. It is shown only on a terminal and for more than one recording.
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

// Takes reports in any order and returns them in the order of their indexes.
class InOrder {
 public:
  void Add(size_t index, RecordingReport report) { waiting_.emplace(index, std::move(report)); }
  // The next report; nothing if it has not been added yet.
  std::optional<RecordingReport> Take() {
    const auto next = waiting_.find(taken_);
    if (next == waiting_.end()) return std::nullopt;
    ++taken_;
    return std::move(waiting_.extract(next).mapped());
  }

 private:
  size_t taken_ = 0;
  std::map<size_t, RecordingReport> waiting_;
};

}  // namespace

std::vector<RecordingReport> ReplayAll(const CommandLine& line, const host::PluginFunctions& plugin,
                                       const std::function<void(const RecordingReport&)>& onReport) {
  const std::vector<std::string> names = DistinctNames(line.recordings);
  const size_t count = names.size();
  const Progress progress(count);
  InOrder inOrder;
  std::vector<RecordingReport> reports;
  const auto handOn = [&] {
    while (auto report = inOrder.Take()) {
      onReport(*report);
      reports.push_back(std::move(*report));
    }
  };
  std::vector<bool> finished(count);
  size_t finishedCount = 0;
  RunInChildren(
      count, line.jobs, [&](size_t index) { return Pack(ReplayOne(index, names[index], line, plugin)); },
      [&](size_t index, const ChildOutcome& outcome) {
        finished[index] = true;
        inOrder.Add(index, ReportOf(outcome, names[index]));
        handOn();
        progress.Show(++finishedCount);
      });
  for (size_t index = 0; index < count; ++index) {
    if (!finished[index]) {
      inOrder.Add(index,
                  Failed(names[index], ReplayStatus::LeftOut, names[index] + ": left out, interrupted"));
    }
  }
  handOn();
  return reports;
}

}  // namespace replay
