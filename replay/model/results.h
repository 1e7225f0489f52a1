// The results of a replay: plain records that the reports print. Times are microseconds of the virtual clock,
// counted from the moment when the page is requested.
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

// Where the response to a request of the page came from.
enum class Source {
  Network,    // its own transaction
  DiskCache,  // fresh in the HTTP cache: no transaction
  Served,     // held by the plugin
  Joined,     // waited for a running preload, or for what takes its place in a way without the plugin
  Memory,     // already there, in a way without the plugin
};

const char* SourceText(Source source);  // "network", "disk cache", ...

struct RequestRow {
  size_t request = 0;  // index in Page::requests
  Source source = Source::Network;
  // Why the resource was not served. Only the plugin way sets it.
  host::NotServed why = host::NotServed::None;
  int64_t wantedUs = 0;   // the browser asks
  int64_t connectUs = 0;  // its connection set-up begins; equals sentUs if none was needed
  int64_t sentUs = 0;     // the request goes out
  int64_t firstByteUs = 0;
  int64_t endUs = 0;
  bool blocksLoad = false;  // page load time waits for it
  bool beacon = false;      // by the rule of replay/model/beacons.h
};

// How a preload ended.
enum class PreloadFate { Served, Joined, Unused, Cancelled, Failed };

const char* FateText(PreloadFate fate);  // "served", ...

struct PreloadRow {
  std::string url;
  host::ResourceKind kind = host::ResourceKind::Other;
  int64_t orderedUs = 0;
  int64_t launchedUs = 0;  // CorvaneFetch
  int64_t connectUs = 0;   // as in RequestRow; all equal launchedUs if it never got that far
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
  uint64_t connections = 0;          // whose set-up was at least begun
  uint64_t unusedConnections = 0;    // those of them that carried no request
};

// Which recorded event is used as the first paint, from which the simulated ones are computed.
enum class PaintSource { Recorded, ContentLoaded, Load };

// A line of the plugin's log.
struct LogLine {
  int64_t atUs = 0;   // of the virtual clock
  std::string stamp;  // what logcat prints before the text
  std::string text;
};

struct Visit {
  size_t page = 0;      // index in Recording::pages
  int64_t startUs = 0;  // of the virtual clock, in the plugin's way
  std::string pageUrl;
  uint32_t number = 1;  // of this page URL, counted from 1
  bool repeat = false;  // only repeat visits count in the figures
  bool copy = false;    // a repeat visit that replays the very load that taught the host
  PaintSource paintSource = PaintSource::Recorded;
  PerWay<WayResult> ways;  // a first visit has only those for which IsRunOnFirstVisits is true

  // These are of the plugin way. They count resources, not the navigation.
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
  std::vector<LogLine> log;  // the plugin's, if the options ask for it
};

const WayResult& Of(const Visit& visit, Way way);

// Whether the last request before the load event was a beacon.
bool EndedByBeacon(const WayResult& way);

// The definition of "later" and "slower" in every report: by more than 1%. In any unit.
constexpr bool IsLater(double time, double reference) {
  return time * 100 > reference * 101;
}

}  // namespace replay

#endif  // REPLAY_MODEL_RESULTS_H_
