#include "tests/replay/report/report_fixture.h"

#include <algorithm>

#include "host/plugin_functions.h"
#include "replay/model/replay.h"
#include "replay/recording/har_reader.h"

namespace tests {
namespace {

using namespace replay;

Replayed ReplayExample() {
  Replayed replayed{.recording = ReadHarFile(KIV_EXAMPLE_RECORDING)};
  std::vector<Page>& pages = replayed.recording.pages;
  const std::string first = pages.front().requests.front().url;
  std::erase_if(pages, [&first](const Page& page) { return page.requests.front().url != first; });
  const host::LoadedPlugin plugin(KIV_PLUGIN_PATH);
  replayed.result = ReplayRecording(replayed.recording, {}, plugin.Functions());
  Visit& last = replayed.result.visits.back();
  last.ways[Index(Way::Plugin)].preloads.push_back(
      {.url = "https://ads.test/banner.js?</script><img src=x onerror=alert(1)>", .bytes = 777});
  last.unusedBytes += 777;
  return replayed;
}

}  // namespace

Replayed MakeReplayed(const std::string& name) {
  static const Replayed example = ReplayExample();
  Replayed replayed = example;
  replayed.recording.name = replayed.result.name = name;
  return replayed;
}

std::vector<RecordingReport> ReportsOf(const std::vector<Summary>& summaries) {
  std::vector<RecordingReport> reports;
  for (const Summary& summary : summaries) reports.push_back({.index = reports.size(), .summary = summary});
  return reports;
}

std::string JsonLine(const Summary& summary, const ReplayOptions& options) {
  return JsonLines({.summary = summary}, {{.options = options}}).at(0);
}

std::string JsonSummaryLine(const std::vector<Summary>& summaries, const ReplayOptions& options) {
  return JsonSummaryLines(ReportsOf(summaries), {{.options = options}}).at(0);
}

}  // namespace tests
