// What a replay found: plain records that the reports print. Times are microseconds of the virtual clock,
// counted from the moment the page is requested.
#ifndef REPLAY_MODEL_RESULTS_H_
#define REPLAY_MODEL_RESULTS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/not_served.h"
#include "replay/model/parent_rule.h"
#include "replay/model/ways.h"
#include "replay/recording/recording.h"

namespace replay {

// Where a request of the page got its response from.
enum class Source {
  Network,    // its own transaction
  DiskCache,  // fresh in the HTTP cache: no transaction
  Served,     // held by the plugin
  Joined,     // waited for a preload, or what stands for one in a way without the plugin, that was under way
  Memory,     // there already, in a way without the plugin
};

const char* SourceText(Source source);  // "network", "disk cache", ...

struct RequestRow {
  size_t request = 0;  // index in Page::requests
  Source source = Source::Network;
  // Of the plugin way, for a resource that came from the network or the disk cache, or that joined.
  host::NotServed why = host::NotServed::None;
  int64_t wantedUs = 0;   // the browser asks
  int64_t connectUs = 0;  // its connection set-up begins; equals sentUs when none was needed
  int64_t sentUs = 0;     // the request goes out
  int64_t firstByteUs = 0;
  int64_t endUs = 0;
  bool blocksLoad = false;  // page load time waits for it
  bool beacon = false;      // by the rule of replay/model/beacons.h
};

// What became of a preload.
enum class PreloadFate { Served, Joined, Unused, Cancelled, Failed };

const char* FateText(PreloadFate fate);  // "served", ...

struct PreloadRow {
  std::string url;
  host::ResourceKind kind = host::ResourceKind::Other;
  int64_t orderedUs = 0;
  int64_t launchedUs = 0;  // CorvaneFetch
  int64_t connectUs = 0;   // as in RequestRow; all equal launchedUs when it never got so far
  int64_t sentUs = 0;
  int64_t firstByteUs = 0;
  int64_t endUs = 0;  // done, or the end of the visit
  int64_t bytes = 0;  // body bytes that came over the link for it
  PreloadFate fate = PreloadFate::Unused;
};

// The moments of one load that reports compare.
struct LoadTimes {
  int64_t firstPaintUs = 0;
  int64_t contentLoadedUs = 0;       // DOMContentLoaded
  int64_t pageLoadUs = 0;            // the load event
  int64_t loadWithoutBeaconsUs = 0;  // the load event, if it had not waited for beacons
  int64_t objectIndexUs = 0;         // the mean of the times at which the page's resources were complete
};

struct WayResult {
  LoadTimes times;
  size_t lastRequest = 0;            // index in Page::requests: the load event came after this one
  std::vector<RequestRow> requests;  // in order of wantedUs
  std::vector<PreloadRow> preloads;  // plugin way only, in order of launch
  uint64_t connections = 0;          // that were set up, or begun to be
  uint64_t unusedConnections = 0;    // of these, that carried no request
};

// What the recorded first paint, which the simulated ones are made from, was taken from.
enum class PaintSource { Recorded, ContentLoaded, Load };

struct Visit {
  size_t page = 0;  // index in Recording::pages
  std::string pageUrl;
  uint32_t number = 1;  // of this page URL, counted from 1
  bool repeat = false;  // only repeat visits count in the figures
  bool copy = false;    // a repeat visit that replays the very load that taught the host
  PaintSource paintSource = PaintSource::Recorded;
  PerWay<WayResult> ways;  // of a first visit only those that IsRunOnFirstVisits

  // Of the plugin way. Sub-resources only: the navigation is not counted.
  uint64_t served = 0;
  uint64_t joined = 0;
  uint64_t fetched = 0;  // over the network by the page itself
  uint64_t fromDiskCache = 0;
  uint64_t preloadedBytes = 0;
  uint64_t unusedBytes = 0;         // preloaded, never asked for
  uint64_t commands = 0;            // sent to the plugin
  uint64_t unansweredCommands = 0;  // for which OnCmd returned 0
  uint64_t warnings = 0;            // log lines of priority 5 and 6
};

struct RecordingResult {
  std::string name;
  std::map<std::string, size_t> skipped;  // rows of the recording that were not replayed, by reason
  std::vector<Visit> visits;
  ParentChoice parents;
  std::vector<std::string> logLines;  // the plugin's log, when asked for, each line ready to print
};

const WayResult& Of(const Visit& visit, Way way);

// Whether the load event came after a beacon.
bool EndedByBeacon(const WayResult& way);

// What every report calls later or slower, in any unit: by more than 1%.
constexpr bool IsLater(double time, double reference) {
  return time * 100 > reference * 101;
}

}  // namespace replay

#endif  // REPLAY_MODEL_RESULTS_H_
