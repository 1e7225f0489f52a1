// Suggested changes, tried on the example recording through the real plugin.
#include "replay/advice/change.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "cutils/properties.h"
#include "host/plugin_functions.h"
#include "replay/model/replay.h"
#include "replay/recording/har_reader.h"
#include "replay/recording/redirects.h"

namespace replay {
namespace {

RecordingResult Replay(const Recording& recording, const ReplayOptions& options) {
  const host::LoadedPlugin plugin(KIV_PLUGIN_PATH);
  RecordingResult result = ReplayRecording(recording, options, plugin.Functions());
  for (const auto& [name, value] : options.properties) property_set(name.c_str(), nullptr);
  return result;
}

// How often resources of the change were not served for its reason; for one that leaves a resource out, how
// often a preload brought it.
size_t Occurrences(const Change& change, const Recording& recording, const RecordingResult& result) {
  using host::NotServed;
  const auto concerns = [&](const Request& request, const RequestRow& row) {
    const bool network = row.source == Source::Network;
    switch (change.kind) {
      case ChangeKind::DeclareLength:
        return network && row.why == NotServed::NoDeclaredLength;
      case ChangeKind::SendAsData:
        return network && row.why == NotServed::Html;
      case ChangeKind::SkipRedirect:
        return network && IsRedirect(request);
      case ChangeKind::RaiseSizeLimit:
        return network && row.why == NotServed::OverSizeLimit;
      case ChangeKind::KeepAddress:
        return network && row.why != NotServed::UsedUp;
      case ChangeKind::AllowStoring:
        return row.source != Source::DiskCache;
      case ChangeKind::LeaveOut:
        return row.source == Source::Served || row.source == Source::Joined;
    }
    return false;
  };
  ReplayOptions unused;
  Change renamed = change;
  if (change.kind == ChangeKind::KeepAddress) {
    Recording urls;
    for (const std::string& url : change.urls) urls.pages.push_back({.requests = {{}, {.url = url}}});
    Apply(change, urls, unused);
    for (const Page& page : urls.pages) renamed.urls.push_back(page.requests[1].url);
  }
  size_t count = 0;
  for (const Visit& visit : result.visits) {
    if (!visit.repeat) continue;
    for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
      const Request& request = recording.pages[visit.page].requests[row.request];
      const bool isMeant = std::count(renamed.urls.begin(), renamed.urls.end(), request.url) > 0;
      if (isMeant && concerns(request, row)) ++count;
    }
  }
  return count;
}

TEST(Changes, EachTakesAwayTheReasonThatSuggestedIt) {
  Recording recording = ReadHarFile(KIV_EXAMPLE_RECORDING);
  const ReplayOptions options = {.properties = {{"net.cv.kiv.cslimit", "8000"}}};
  const RecordingResult result = Replay(recording, options);
  std::set<std::string> kinds;
  for (const Change& change : SuggestChanges(recording, result)) {
    SCOPED_TRACE(std::string(WordsFor(change.kind).key) + " " + change.urls.front());
    kinds.insert(WordsFor(change.kind).key);
    Recording changed = recording;
    ReplayOptions changedOptions = options;
    Apply(change, changed, changedOptions);
    EXPECT_GT(Occurrences(change, recording, result), 0U);
    EXPECT_EQ(Occurrences(change, changed, Replay(changed, changedOptions)), 0U);
  }
  EXPECT_EQ(kinds, (std::set<std::string>{"allow_storing", "declare_length", "keep_address", "preload",
                                          "raise_size_limit", "skip_redirect"}));
}

TEST(Changes, ReplaceTheTypeOfFragmentsAlone) {
  Recording recording;
  recording.pages = {{.requests = {{.url = "http://a.test/1"}, {.url = "http://a.test/2"}}}};
  for (Request& request : recording.pages[0].requests) {
    request.responseHeaders = std::string("HTTP/1.1 200 OK\0Content-Type: text/html\0\0", 41);
  }
  ReplayOptions options;
  Apply({.kind = ChangeKind::SendAsData, .urls = {"http://a.test/2"}}, recording, options);
  EXPECT_NE(recording.pages[0].requests[0].responseHeaders.find("text/html"), std::string::npos);
  EXPECT_EQ(recording.pages[0].requests[1].responseHeaders.find("text/html"), std::string::npos);
}

}  // namespace
}  // namespace replay
