#include "tests/replay/report/report_fixture.h"

#include <algorithm>
#include <array>

namespace tests {
namespace {

using namespace replay;
using host::ResourceKind;

constexpr std::array kKinds = {ResourceKind::Stylesheet, ResourceKind::Script, ResourceKind::Image,
                               ResourceKind::Font, ResourceKind::Data};

Request MakeRequest(size_t index) {
  Request request;
  request.method = index == 30 ? "POST" : "GET";
  request.url = index == 0 ? "https://www.shop.test/" : "https://img.shop.test:8443/" + std::to_string(index);
  request.kind = index == 0 ? ResourceKind::Document : kKinds[index % kKinds.size()];
  request.mimeType = index == 0 ? "text/html" : "text/css";
  request.status = 200;
  request.protocol = index % 2 == 0 ? Protocol::Http2 : Protocol::Http1;
  request.bodyBytes = request.declaredLength = static_cast<int64_t>(800 + index * 7919 % 60000);
  request.requestHeaders = "Accept: */*\r\nReferer: https://www.shop.test/\r\n";
  static constexpr char kResponse[] = "HTTP/1.1 200 OK\0Content-Type: text/css\0Cache-Control: max-age=60\0";
  request.responseHeaders.assign(kResponse, sizeof(kResponse));
  return request;
}

RequestRow MakeRow(size_t index) {
  const auto place = static_cast<int64_t>(index);
  RequestRow row{.request = index, .blocksLoad = true};
  row.wantedUs = index == 0 ? 0 : 320000 + place * 5000;
  row.connectUs = row.wantedUs + place % 5 * 12000;
  row.sentUs = row.connectUs + (index % 4 == 0 ? 170000 : 0);
  row.firstByteUs = row.sentUs + 190000;
  row.endUs = row.firstByteUs + 8000 + place * 7919 % 90000;
  return row;
}

// Launched one after the other; those that end after the page asks are joined.
PreloadRow Preload(RequestRow& row, const Request& request, Visit& visit) {
  const int64_t launchedUs = 2000 + static_cast<int64_t>(row.request) * 4000;
  PreloadRow preload{.url = request.url, .kind = request.kind, .orderedUs = 2000, .launchedUs = launchedUs};
  preload.connectUs = launchedUs;
  preload.sentUs = launchedUs + (row.sentUs - row.connectUs);
  preload.firstByteUs = preload.sentUs + 180000;
  preload.endUs = preload.firstByteUs + (row.endUs - row.firstByteUs);
  preload.bytes = request.bodyBytes;
  const bool ready = preload.endUs <= row.wantedUs;
  row.source = ready ? Source::Served : Source::Joined;
  row.why = ready ? host::NotServed::None : host::NotServed::StillRunning;
  row.connectUs = row.sentUs = row.firstByteUs = row.wantedUs;
  row.endUs = std::max(row.wantedUs, preload.endUs);
  preload.fate = ready ? PreloadFate::Served : PreloadFate::Joined;
  ++(ready ? visit.served : visit.joined);
  visit.preloadedBytes += static_cast<uint64_t>(preload.bytes);
  return preload;
}

Visit MakeVisit(const Page& page, uint32_t number) {
  Visit visit{.pageUrl = page.requests[0].url, .number = number, .repeat = number > 1};
  const auto at = [&visit](Way way) -> WayResult& { return visit.ways[Index(way)]; };
  WayResult &off = at(Way::Off), &plugin = at(Way::Plugin), &hints = at(Way::Hints),
            &oracle = at(Way::Oracle);
  for (size_t index = 0; index < page.requests.size(); ++index) {
    RequestRow row = MakeRow(index);
    off.requests.push_back(row);
    off.times.pageLoadUs = std::max(off.times.pageLoadUs, row.endUs);
    if (visit.repeat && index % 3 == 2) {
      plugin.preloads.push_back(Preload(row, page.requests[index], visit));
    } else if (index > 0) {
      row.why = index % 2 == 0 ? host::NotServed::NotKnownYet : host::NotServed::LimitReached;
      ++visit.fetched;
    }
    plugin.requests.push_back(row);
    plugin.times.pageLoadUs = std::max(plugin.times.pageLoadUs, row.endUs);
  }
  if (number == 3) {
    plugin.preloads.push_back({.url = "https://ads.test/banner.js?</script><img src=x onerror=alert(1)>"});
    plugin.preloads.back().bytes = 777;
    visit.unusedBytes = 777;
  }
  if (!visit.repeat) return visit;
  hints.times.pageLoadUs = plugin.times.pageLoadUs - 1000;
  oracle.times.pageLoadUs = off.times.pageLoadUs / 2;
  visit.commands = page.requests.size() * 4;
  return visit;
}

}  // namespace

Replayed MakeReplayed(const std::string& name) {
  Page page{.id = "page_1", .title = "Shop"};
  for (size_t index = 0; index < 40; ++index) page.requests.push_back(MakeRequest(index));
  Replayed replayed;
  replayed.recording = {.name = name, .browser = "Browser 146", .pages = {page}};
  replayed.result.name = name;
  for (uint32_t number = 1; number <= 3; ++number) replayed.result.visits.push_back(MakeVisit(page, number));
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
