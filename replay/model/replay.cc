#include "replay/model/replay.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "cutils/properties.h"
#include "replay/model/bounds.h"
#include "replay/model/page_events.h"
#include "replay/model/page_plan.h"
#include "replay/model/parent_choice.h"
#include "replay/model/plain_ways.h"
#include "replay/model/plugin_browser.h"
#include "replay/model/recorded_network.h"

namespace replay {
namespace {

// The time between two pages that are loaded one after the other.
constexpr int64_t kThinkUs = 10'000'000;

// Loads begin in the year 2000, and dates have four digits for the year.
constexpr double kMostVisitsMs = 7999 * 365.0 * 86400e3;

// How many sockets per host the plugin is told of: no bound, because most servers multiplex. Of the others
// the network keeps sockets for the browser.
constexpr int kPluginSockets = 100;

const std::string& UrlOf(const Page& page) {
  return page.requests.front().url;
}

// How often all pages are loaded, one after the other: as often as the options say if no page occurs twice in
// the recording, else once.
uint32_t RoundsOf(const Recording& recording, uint32_t visits) {
  std::set<std::string_view> urls;
  for (const Page& page : recording.pages) urls.insert(UrlOf(page));
  return urls.size() == recording.pages.size() ? visits : 1;
}

host::HostSettings Settings(const ReplayOptions& options) {
  host::HostSettings settings;
  settings.socketsPerGroup = options.socketsPerGroup;
  settings.pluginSockets = kPluginSockets;
  settings.joinRunning = options.join;
  settings.preconnect = options.preconnect;
  settings.verboseLevel = options.logLevel.value_or(0);
  return settings;
}

}  // namespace

std::string WhyTooLong(const Recording& recording, const ReplayOptions& options) {
  const size_t loads = recording.pages.size() * RoundsOf(recording, options.visits);
  if (static_cast<double>(loads) * options.revisitAfterMs <= kMostVisitsMs) return "";
  return std::to_string(loads) + " loads with that time between visits would end after the year 9999; " +
         "make --revisit-after or --visits smaller";
}

RecordingResult ReplayRecording(const Recording& recording, const ReplayOptions& options,
                                const host::PluginFunctions& plugin) {
  RecordingResult result = {.name = recording.name, .skipped = recording.skipped};
  const RecordedNetwork recordedNetwork = MeasureNetwork(recording);
  const host::HostSettings settings = Settings(options);
  for (const auto& [name, value] : options.properties) property_set(name.c_str(), value.c_str());

  RequestIndex recordingIndex;
  for (const Page& page : recording.pages) AddToIndex(page, recordingIndex);

  result.parents = ChooseParents(recording, options.parents);

  PluginBrowser browser(plugin, recordedNetwork, options, settings);
  std::map<std::string, uint32_t> visitsOf;
  std::map<std::string, int64_t> leftUs;
  const auto isWanted = [&options](Way way) { return options.allWays || IsRunOnFirstVisits(way); };
  PerWay<DiskCache> diskCaches;  // the plugin's way has the browser's
  const size_t loads = recording.pages.size() * RoundsOf(recording, options.visits);
  for (size_t load = 0; load < loads; ++load) {
    const size_t index = load % recording.pages.size();
    const Page& page = recording.pages[index];
    PagePlan plan = MakePlan(page, result.parents.rules.at(UrlOf(page)));
    plan.events = PlanEvents(page, plan, options.beacons);
    RequestIndex pageIndex;
    AddToIndex(page, pageIndex);
    Visit visit = {.page = index, .pageUrl = UrlOf(page), .number = ++visitsOf[UrlOf(page)]};
    visit.repeat = visit.number > 1;
    visit.copy = load >= recording.pages.size();
    visit.paintSource = plan.events.paintSource;
    if (visit.repeat) {
      browser.AdvanceTo(leftUs[visit.pageUrl] + static_cast<int64_t>(options.revisitAfterMs * 1000));
    } else if (load > 0) {
      browser.AdvanceTo(browser.NowUs() + kThinkUs);
    }
    const VisitSetup setup = {.page = page,
                              .pageIndex = pageIndex,
                              .recordingIndex = recordingIndex,
                              .plan = plan,
                              .recordedNetwork = recordedNetwork,
                              .options = options,
                              .settings = settings,
                              .nowUs = browser.NowUs()};
    const host::KnownPage* const known = browser.Known(visit.pageUrl);
    // Of the bounds first: what this visit leaves in the caches is not fresh for it.
    const IsFresh isFresh = [&](const std::string& url, int64_t afterUs) {
      const int64_t atUs = setup.nowUs + afterUs;
      return browser.IsFresh(url, atUs) ||
             std::any_of(diskCaches.begin(), diskCaches.end(),
                         [&](const DiskCache& cache) { return cache.IsFresh(url, atUs); });
    };
    for (const Way way : kWays) {
      if (visit.repeat && IsBound(way) && isWanted(way)) {
        // The page database may have forgotten the page since its last visit.
        static const host::KnownPage kForgotten;
        visit.ways[Index(way)] = ComputeBound(way, setup, known != nullptr ? *known : kForgotten, isFresh);
      }
    }
    for (const Way way : kWays) {
      if (way == Way::Plugin || IsBound(way) || !isWanted(way)) continue;
      // A first visit in another way differs from `off` only in the content of its disk cache.
      WayResult run = RunPlainWay(way, setup, known, diskCaches[Index(way)]);
      if (visit.repeat || IsRunOnFirstVisits(way)) visit.ways[Index(way)] = std::move(run);
    }
    browser.Load(setup, visit);
    leftUs[visit.pageUrl] = browser.NowUs();
    result.visits.push_back(std::move(visit));
  }
  result.log = browser.TakeLog();
  return result;
}

}  // namespace replay
