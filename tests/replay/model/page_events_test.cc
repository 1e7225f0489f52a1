// When a page's events come in a simulated load, against times worked out by hand; and which requests are
// beacons.
#include "replay/model/page_events.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace replay {
namespace {

using host::ResourceKind;

// A document from 0 to 200 ms, first byte at 100, and what it asks for.
Page MakePage(std::vector<Request> rest) {
  Page page{.firstPaintMs = 500, .onContentLoadMs = 600, .onLoadMs = 900};
  page.requests.push_back({.url = "https://a.test/", .receiveMs = 100, .endMs = 200, .status = 200});
  page.requests.front().kind = ResourceKind::Document;
  for (Request& request : rest) {
    if (request.url.empty()) request.url = "https://a.test/" + std::to_string(page.requests.size());
    if (request.status == 0) request.status = 200;
    request.method = "GET";
    page.requests.push_back(std::move(request));
  }
  return page;
}

// The load in which every request takes what it took in the recording, or `endUs` where that is given.
WayResult Load(const Page& page, const std::vector<std::pair<size_t, int64_t>>& otherEndsMs = {}) {
  PagePlan plan = MakePlan(page);
  plan.events = PlanEvents(page, plan, DefaultBeaconList());
  WayResult way;
  for (size_t index = 0; index < page.requests.size(); ++index) {
    const Request& request = page.requests[index];
    way.requests.push_back({.request = index,
                            .firstByteUs = static_cast<int64_t>((request.endMs - request.receiveMs) * 1000),
                            .endUs = static_cast<int64_t>(request.endMs * 1000),
                            .blocksLoad = plan.requests[index].blocksLoad});
  }
  for (const auto& [index, endMs] : otherEndsMs) way.requests[index].endUs = endMs * 1000;
  TimeEvents(plan, way);
  return way;
}

Request Row(ResourceKind kind, double startMs, double endMs, bool lowPriority = false) {
  return {.startMs = startMs, .endMs = endMs, .kind = kind, .lowPriority = lowPriority, .bodyBytes = 5000};
}

TEST(PageEvents, AnEventWaitsForWhatItWaitedForInTheRecording) {
  // 1 and 2 hold up the paint, 3 only DOMContentLoaded, 4 and 5 only the load event, 6 nothing.
  const Page page = MakePage({Row(ResourceKind::Stylesheet, 110, 400), Row(ResourceKind::Font, 410, 530),
                              Row(ResourceKind::Script, 120, 450, true), Row(ResourceKind::Image, 130, 850),
                              Row(ResourceKind::Script, 140, 700), Row(ResourceKind::Image, 910, 990)});
  const struct {
    std::vector<std::pair<size_t, int64_t>> ends;  // another end of a request, ms
    int64_t paintMs, contentLoadedMs, loadMs;
    size_t last;
  } rows[] = {
      {{}, 530, 600, 900, 4},  // as recorded; a font that ends with the paint counts
      {{{1, 100}, {2, 150}}, 150, 600, 900, 4},
      {{{1, 1000}},
       1000,
       1150,
       1150,
       1},  // 150 ms from there to DOMContentLoaded, which the load event follows
      {{{2, 2000}}, 2000, 600, 2050, 2},
      {{{3, 550}}, 530, 700, 900, 4},
      {{{4, 700}, {5, 750}}, 530, 600, 800, 5},
      {{{6, 5000}}, 530, 600, 900, 4},
  };
  for (const auto& row : rows) {
    const WayResult way = Load(page, row.ends);
    SCOPED_TRACE(&row - rows);
    EXPECT_EQ(way.times.firstPaintUs, row.paintMs * 1000);
    EXPECT_EQ(way.times.contentLoadedUs, row.contentLoadedMs * 1000);
    EXPECT_EQ(way.times.pageLoadUs, row.loadMs * 1000);
    EXPECT_EQ(way.lastRequest, row.last);
  }
  EXPECT_EQ(Load(page).times.objectIndexUs, (400 + 530 + 450 + 850 + 700) * 1000 / 5)
      << "before the load event";
}

TEST(PageEvents, WhatAFrameAsksForHoldsUpTheLoadEventOnly) {
  Request inFrame = Row(ResourceKind::Script, 300, 450);
  inFrame.initiatorUrl = "https://a.test/1";
  const Page page = MakePage({Row(ResourceKind::Document, 110, 250), inFrame});
  const WayResult way = Load(page, {{2, 1000}});
  EXPECT_EQ(way.times.firstPaintUs, 500'000);
  EXPECT_EQ(way.times.contentLoadedUs, 600'000);
  EXPECT_EQ(way.times.pageLoadUs, 1'450'000);
}

TEST(PageEvents, AnEventThatIsNotRecordedIsAsTheNextOne) {
  const Request script = Row(ResourceKind::Script, 110, 400), image = Row(ResourceKind::Image, 110, 800);
  const struct {
    double paintMs, contentLoadedMs;
    PaintSource source;
    int64_t simulatedPaintMs, simulatedContentLoadedMs;
  } rows[] = {
      {500, 600, PaintSource::Recorded, 500, 600},
      {-1, 600, PaintSource::ContentLoaded, 600, 600},
      {90, 600, PaintSource::ContentLoaded, 600, 600},  // before the document's first byte
      {-1, -1, PaintSource::Load, 900, 900},
      {-1, 100, PaintSource::Load, 900, 900},  // before the document's end
      {500, -1, PaintSource::Recorded, 500, 900},
  };
  for (const auto& row : rows) {
    Page page = MakePage({script, image});
    page.firstPaintMs = row.paintMs;
    page.onContentLoadMs = row.contentLoadedMs;
    SCOPED_TRACE(&row - rows);
    EXPECT_EQ(PlanEvents(page, MakePlan(page), {}).paintSource, row.source);
    EXPECT_EQ(Load(page).times.firstPaintUs, row.simulatedPaintMs * 1000);
    EXPECT_EQ(Load(page).times.contentLoadedUs, row.simulatedContentLoadedMs * 1000);
  }
  const Page alone = MakePage({});
  EXPECT_EQ(Load(alone).times.objectIndexUs, 200'000) << "a page without resources is its document";
}

TEST(PageEvents, ALoadThatWaitsForABeaconIsTimedWithoutItAsWell) {
  Request pixel = Row(ResourceKind::Image, 600, 850);
  pixel.bodyBytes = 43;
  const Page page = MakePage({Row(ResourceKind::Image, 110, 700), pixel});
  const WayResult way = Load(page);
  EXPECT_TRUE(way.requests[2].beacon);
  EXPECT_TRUE(EndedByBeacon(way));
  EXPECT_EQ(way.times.pageLoadUs, 900'000);
  EXPECT_EQ(way.times.loadWithoutBeaconsUs, 750'000);
  EXPECT_EQ(way.times.objectIndexUs, 700'000);
  EXPECT_FALSE(EndedByBeacon(Load(page, {{2, 650}})));
}

TEST(Beacons, AreFoundByTheirAddress) {
  const BeaconList list = ParseBeaconList("# ours\n\n Tracker.Example.com # and below\r\npixel\n/a/b\n");
  const std::pair<const char*, bool> rows[] = {
      {"https://tracker.example.com/x.js", true},
      {"https://eu.TRACKER.example.com:8443", true},
      {"https://example.com/", false},
      {"https://mytracker.example.com/", false},
      {"https://pixel.test/", true},
      {"https://a.pixel.test/x", true},
      {"https://pixels.test/", false},
      {"https://a.test/img/Pixel.gif?x=1", true},
      {"https://a.test/pixel", true},
      {"https://a.test/x?/pixel/", false},
      {"https://a.test/my-pixel.gif", false},
      {"https://a.test/a/b/c", true},
      {"https://a.test/x/a/b", false},
      {"https://a.test", false},
      {"no address", false},
      {"", false},
  };
  for (const auto& [url, listed] : rows) EXPECT_EQ(IsListed(list, url), listed) << url;
  EXPECT_FALSE(IsListed(ParseBeaconList(""), "https://tracker.example.com/pixel"));
  EXPECT_TRUE(IsListed(DefaultBeaconList(), "https://www.google-analytics.com/collect"));
}

TEST(Beacons, AreFoundByWhatTheyBringAndByWhoAskedForThem) {
  const struct {
    Request request;
    bool beacon;
    const char* why;
  } rows[] = {
      {{.status = 200, .kind = ResourceKind::Image, .bodyBytes = 100}, true, "a pixel"},
      {{.status = 200, .kind = ResourceKind::Image, .bodyBytes = 101}, false, "a small picture"},
      {{.status = 200, .kind = ResourceKind::Image, .bodyBytes = 0}, false, "a size that nobody recorded"},
      {{.status = 302, .kind = ResourceKind::Image, .bodyBytes = 20}, false, "leads to a picture"},
      {{.status = 404, .kind = ResourceKind::Image, .bodyBytes = 20}, false, "a missing picture"},
      {{.status = 204, .kind = ResourceKind::Data}, true, "nothing, by its status"},
      {{.status = 200, .kind = ResourceKind::Other, .declaredLength = 0}, true, "nothing, by its length"},
      {{.status = 200, .kind = ResourceKind::Data, .bodyBytes = 20}, false, "asked for something"},
      {{.method = "POST", .status = 200, .kind = ResourceKind::Data, .bodyBytes = 20},
       true,
       "told something"},
      {{.method = "POST", .status = 200, .kind = ResourceKind::Data, .bodyBytes = 101}, false, "answered"},
      {{.status = 200, .kind = ResourceKind::Script, .bodyBytes = 20}, false, "scripts are short at times"},
      {{.url = "https://ads.test/x.js", .status = 200, .kind = ResourceKind::Script}, true, "listed"},
      {{.status = 200,
        .kind = ResourceKind::Image,
        .initiatorUrl = "https://ads.test/x.js",
        .bodyBytes = 9000},
       true,
       "asked for by the one before"},
  };
  Page page = MakePage({});
  for (const auto& row : rows) {
    Request& request = page.requests.emplace_back(row.request);
    if (request.url.empty()) request.url = "https://a.test/" + std::to_string(page.requests.size());
    if (request.method.empty()) request.method = "GET";
    request.startMs = request.endMs = 300 + static_cast<double>(page.requests.size());
  }
  const std::vector<bool> beacons = FindBeacons(page, MakePlan(page), DefaultBeaconList());
  EXPECT_FALSE(beacons[0]) << "the page";
  for (const auto& row : rows)
    EXPECT_EQ(beacons[static_cast<size_t>(&row - rows) + 1], row.beacon) << row.why;
}

}  // namespace
}  // namespace replay
