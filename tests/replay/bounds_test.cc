// The bounds: no way of loading a page may beat them, and a page that leaves nothing to wait for reaches
// them.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "host/plugin_functions.h"
#include "replay/model/replay.h"

namespace replay {
namespace {

using host::ResourceKind;

std::vector<Visit> Replay(const Recording& recording, const ReplayOptions& options) {
  const host::LoadedPlugin library(KIV_PLUGIN_PATH);
  return ReplayRecording(recording, options, library.Functions()).visits;
}

Request Get(const std::string& url, double startMs, double endMs, int64_t bodyBytes, bool declared = true) {
  Request request{
      .url = url, .method = "GET", .startMs = startMs, .waitMs = 30, .endMs = endMs, .status = 200};
  request.kind = ResourceKind::Image;
  request.bodyBytes = bodyBytes;
  request.responseHeaders = std::string("HTTP/1.1 200 OK\0", 16);
  if (declared) request.responseHeaders += "Content-Length: " + std::to_string(bodyBytes) + '\0';
  request.responseHeaders += '\0';
  return request;
}

Request Document(const std::string& url, double endMs, int64_t bodyBytes) {
  Request request = Get(url, 0, endMs, bodyBytes, false);
  request.kind = ResourceKind::Document;
  request.receiveMs = 20;
  return request;
}

// Loads of a page with a bit of everything: servers and protocols, chains, what is fresh, asked for twice,
// not to be held, or new on every load.
Recording RandomRecording(uint32_t seed) {
  std::mt19937 random(seed);
  const auto upTo = [&random](int most) {
    return static_cast<int>(random() % static_cast<uint32_t>(most + 1));
  };
  std::vector<std::pair<std::string, Protocol>> servers;
  for (int server = 0; server <= upTo(4); ++server) {
    const auto protocol = static_cast<Protocol>(upTo(2));
    const std::string scheme = protocol == Protocol::Http1 && upTo(1) == 0 ? "http" : "https";
    servers.emplace_back(scheme + "://" + std::to_string(server) + ".test/", protocol);
  }
  const int resources = 3 + upTo(40), sizes = upTo(1) == 0 ? 8'000 : 120'000;
  Recording recording;
  for (int load = 0; load < 3; ++load) {
    std::mt19937 same(seed + 1);  // what all loads have in common
    Page page{.onLoadMs = -1, .requests = {Document(servers[0].first, 60 + upTo(300), 500 + upTo(60'000))}};
    page.requests[0].protocol = servers[0].second;
    for (int number = 0; number < resources; ++number) {
      const auto draw = static_cast<uint32_t>(same());
      const auto& [server, protocol] = servers[draw % servers.size()];
      if (upTo(9) == 0) continue;
      const bool isNew = upTo(9) == 0;
      const Request& parent =
          page.requests[static_cast<size_t>(upTo(static_cast<int>(page.requests.size()) - 1))];
      const double startMs = parent.endMs + upTo(3) * upTo(60);
      Request request =
          Get(server + std::to_string(draw / 8 % 50) + (isNew ? "n" + std::to_string(load) : ""), startMs,
              startMs + 20 + upTo(200), draw / 64 % static_cast<uint32_t>(sizes), draw / 512 % 5 != 0);
      request.protocol = protocol;
      request.waitMs = static_cast<double>(draw / 2048 % 4 == 0 ? upTo(300) : 5);
      request.initiatorUrl = upTo(2) == 0 ? "" : parent.url;
      request.kind = static_cast<ResourceKind>(draw / 8192 % 7);
      if (draw / 65536 % 4 == 0) request.freshForMs = draw / 65536 % 8 == 0 ? 1 : 86400e3;
      if (upTo(20) == 0) request.method = "POST";
      page.requests.push_back(std::move(request));
    }
    std::stable_sort(page.requests.begin() + 1, page.requests.end(),
                     [](const Request& a, const Request& b) { return a.startMs < b.startMs; });
    page.onLoadMs = page.requests.back().endMs + upTo(200);
    page.onContentLoadMs = page.requests[page.requests.size() / 2].endMs + upTo(100);
    page.firstPaintMs = page.requests[page.requests.size() / 3].endMs;
    recording.pages.push_back(std::move(page));
  }
  return recording;
}

// Each request, and each event of the page. Microseconds may be lost by rounding.
void ExpectNotBeaten(const WayResult& bound, const WayResult& way, const std::string& what) {
  constexpr int64_t kRoundedUs = 5;
  std::map<size_t, int64_t> ends;
  for (const RequestRow& row : way.requests) ends[row.request] = row.endUs;
  for (const RequestRow& row : bound.requests) {
    EXPECT_LE(row.endUs, ends.at(row.request) + kRoundedUs) << what << ", request " << row.request;
  }
  EXPECT_LE(bound.times.firstPaintUs, way.times.firstPaintUs + kRoundedUs) << what;
  EXPECT_LE(bound.times.contentLoadedUs, way.times.contentLoadedUs + kRoundedUs) << what;
  EXPECT_LE(bound.times.pageLoadUs, way.times.pageLoadUs + kRoundedUs) << what;
  EXPECT_LE(bound.times.loadWithoutBeaconsUs, way.times.loadWithoutBeaconsUs + kRoundedUs) << what;
  EXPECT_LE(bound.times.objectIndexUs, way.times.objectIndexUs + kRoundedUs) << what;
}

TEST(Bounds, NoWayBeatsThem) {
  int reached = 0, visits = 0;
  for (uint32_t seed = 0; seed < 40; ++seed) {
    for (const char* profile : {"3gfast", "4g", "cable", "native"}) {
      ReplayOptions options{.profile = *FindNetworkProfile(profile)};
      if (seed % 3 == 0)
        options.costs = {.certificates = false, .nameLookups = seed % 2 == 0, .slowStart = false};
      for (const Visit& visit : Replay(RandomRecording(seed), options)) {
        if (!visit.repeat) continue;
        const std::string what =
            std::string(profile) + " " + std::to_string(seed) + " " + std::to_string(visit.number);
        const WayResult& reachable = Of(visit, Way::Reachable);
        ExpectNotBeaten(reachable, Of(visit, Way::Off), what + " off");
        ExpectNotBeaten(reachable, Of(visit, Way::Plugin), what + " plugin");
        ExpectNotBeaten(reachable, Of(visit, Way::Preconnect), what + " preconnect");
        ExpectNotBeaten(Of(visit, Way::Oracle), reachable, what + " reachable");
        ExpectNotBeaten(Of(visit, Way::Oracle), Of(visit, Way::Hints), what + " hints");
        ++visits;
        if (Of(visit, Way::Plugin).times.pageLoadUs * 10 < reachable.times.pageLoadUs * 11) ++reached;
      }
    }
  }
  EXPECT_GT(reached, visits / 10) << "they are near what can be reached";
}

// 100 ms and one byte per microsecond. The document of a.test comes from 200 ms on, its picture from 100 ms
// on and that of b.test from the start, if the link is free.
TEST(Bounds, AreAsEarlyAsTheLinkAndTheConnectionAllow) {
  const struct {
    const char* why;
    int64_t document, own, other;  // bytes, header blocks among them
    bool slowStart;
    int64_t reachableMs, oracleMs;
  } rows[] = {
      {"nothing has to wait", 10'000, 50'000, 100'000, false, 210, 110},
      {"no bytes before the connection", 10'000, 150'000, 1'000, false, 260, 110},
      {"the link has them all to carry", 10'000, 50'000, 300'000, false, 360, 110},
      {"windows of 14,600 and twice that, then the rest", 100'000, 1'000, 1'000, true, 456, 356},
  };
  for (const auto& row : rows) {
    Page page{.requests = {Document("http://a.test/", 100, row.document - 17)}};
    page.requests.push_back(Get("http://a.test/own", 80, 200, row.own));
    page.requests.push_back(Get("http://b.test/other", 80, 200, row.other));
    for (Request& request : page.requests) {
      const auto size = static_cast<int64_t>(request.responseHeaders.size());
      if (request.kind == ResourceKind::Image) request.bodyBytes -= size;
    }
    const ReplayOptions options = {
        .profile = {"test", 100, 8},
        .costs = {.certificates = false, .nameLookups = false, .slowStart = row.slowStart},
        .visits = 2};
    const Visit visit = Replay({.pages = {page}}, options).at(1);
    EXPECT_EQ((Of(visit, Way::Reachable).times.pageLoadUs + 500) / 1000, row.reachableMs) << row.why;
    EXPECT_EQ((Of(visit, Way::Oracle).times.pageLoadUs + 500) / 1000, row.oracleMs) << row.why;
  }
}

}  // namespace
}  // namespace replay
