#include "tests/report_fixture.h"

#include <algorithm>
#include <array>

namespace tests {
namespace {

using namespace replay;
using host::ResourceKind;

struct Shape {
  ResourceKind kind;
  const char* path;
  const char* mimeType;
};
constexpr std::array<Shape, 6> kShapes = {
    {{ResourceKind::Stylesheet, "/theme/layout-", "text/css"},
     {ResourceKind::Script, "/js/app/chunk-", "text/javascript"},
     {ResourceKind::Image, "/media/photos/large/photo-", "image/webp"},
     {ResourceKind::Font, "/fonts/text-", "font/woff2"},
     {ResourceKind::Image, "/media/icons/icon-", "image/svg+xml"},
     {ResourceKind::Data, "/api/v2/teasers?page=", "application/json"}}};
constexpr std::array kHosts = {"https://www.shop.test", "https://static.shop.test",
                               "https://img.shop.test:8443"};

Request MakeRequest(size_t index) {
  const Shape& shape = kShapes[index % kShapes.size()];
  Request request;
  request.method = index % 31 == 30 ? "POST" : "GET";
  request.url = index == 0
                    ? "https://www.shop.test/"
                    : std::string(kHosts[index % 7 % kHosts.size()]) + shape.path + std::to_string(index);
  request.kind = index == 0 ? ResourceKind::Document : shape.kind;
  request.mimeType = index == 0 ? "text/html" : shape.mimeType;
  request.status = 200;
  request.protocol = index % 2 == 0 ? Protocol::Http2 : Protocol::Http1;
  request.bodyBytes = static_cast<int64_t>(800 + index * 7919 % 60000);
  request.declaredLength = request.bodyBytes;
  request.requestHeaders = "Accept: */*\r\nReferer: https://www.shop.test/\r\n";
  static constexpr char kResponse[] = "HTTP/1.1 200 OK\0Content-Type: text/css\0Cache-Control: max-age=60\0";
  request.responseHeaders.assign(kResponse, sizeof(kResponse));
  return request;
}

RequestRow OffRow(size_t index) {
  const auto place = static_cast<int64_t>(index);
  RequestRow row{.request = index, .blocksLoad = true};
  row.wantedUs = index == 0 ? 0 : 320000 + place / 6 * 23000 + place * 37 % 11 * 4000;
  row.connectUs = row.wantedUs + (index % 5 == 0 ? 0 : place * 131 % 60000);
  row.sentUs = row.connectUs + (index % 9 == 0 ? 170000 : 0);
  row.firstByteUs = row.sentUs + 190000 + place * 53 % 40000;
  row.endUs = row.firstByteUs + 8000 + place * 7919 % 90000;
  return row;
}

PreloadRow Preload(const Request& request, const RequestRow& off, size_t order) {
  PreloadRow preload{.url = request.url, .kind = request.kind, .bytes = request.bodyBytes};
  preload.orderedUs = 2000;
  preload.launchedUs = 2000 + static_cast<int64_t>(order) * 2500;
  preload.connectUs = preload.launchedUs;
  preload.sentUs = preload.launchedUs + (off.sentUs - off.connectUs);
  preload.firstByteUs = preload.sentUs + 180000;
  preload.endUs = preload.firstByteUs + (off.endUs - off.firstByteUs);
  return preload;
}

void FinishPluginRow(RequestRow& row, PreloadRow* preload, Visit& visit) {
  constexpr std::array kReasons = {WhyNot::NotKnownYet, WhyNot::NoDeclaredLength, WhyNot::BrowserAskedFirst,
                                   WhyNot::LimitReached};
  if (preload == nullptr) {
    row.why = row.request % 8 == 7 ? WhyNot::FreshInDiskCache : kReasons[row.request / 3 % kReasons.size()];
    if (row.why == WhyNot::FreshInDiskCache) {
      row.source = Source::DiskCache;
      row.connectUs = row.sentUs = row.firstByteUs = row.endUs = row.wantedUs;
      ++visit.fromDiskCache;
    } else {
      ++visit.fetched;
    }
    return;
  }
  const bool ready = preload->endUs <= row.wantedUs;
  row.source = ready ? Source::Served : Source::Joined;
  row.why = ready ? WhyNot::None : WhyNot::StillRunning;
  row.connectUs = row.sentUs = row.firstByteUs = row.wantedUs;
  row.endUs = std::max(row.wantedUs, preload->endUs);
  preload->fate = ready ? PreloadFate::Served : PreloadFate::Joined;
  ++(ready ? visit.served : visit.joined);
  visit.preloadedBytes += static_cast<uint64_t>(preload->bytes);
}

int64_t LastEnd(const WayResult& way) {
  int64_t end = 0;
  for (const RequestRow& row : way.requests) end = std::max(end, row.endUs);
  return end;
}

Visit MakeVisit(const Page& page, uint32_t number) {
  Visit visit{.pageUrl = page.requests[0].url, .number = number, .repeat = number > 1};
  WayResult& off = visit.ways[static_cast<size_t>(Way::Off)];
  WayResult& plugin = visit.ways[static_cast<size_t>(Way::Plugin)];
  plugin.preloads.reserve(page.requests.size());
  for (size_t index = 0; index < page.requests.size(); ++index) {
    off.requests.push_back(OffRow(index));
    RequestRow row = OffRow(index);
    if (index > 0) {
      PreloadRow* preload = nullptr;
      if (visit.repeat && index % 3 != 1) {
        plugin.preloads.push_back(Preload(page.requests[index], row, plugin.preloads.size()));
        preload = &plugin.preloads.back();
      }
      row.wantedUs -= row.wantedUs / 8;
      row.connectUs = std::max(row.wantedUs, row.connectUs - row.wantedUs / 7);
      row.sentUs = std::max(row.connectUs, row.sentUs - row.wantedUs / 7);
      FinishPluginRow(row, preload, visit);
    }
    plugin.requests.push_back(row);
  }
  const auto byWanted = [](const RequestRow& left, const RequestRow& right) {
    return left.wantedUs < right.wantedUs;
  };
  std::stable_sort(off.requests.begin(), off.requests.end(), byWanted);
  std::stable_sort(plugin.requests.begin(), plugin.requests.end(), byWanted);
  if (number == 3) {
    PreloadRow wasted = Preload(page.requests[1], OffRow(1), plugin.preloads.size());
    wasted.url = "https://ads.test/banner.js?</script><img src=x onerror=alert(1)>";
    visit.wastedBytes = static_cast<uint64_t>(wasted.bytes);
    visit.preloadedBytes += visit.wastedBytes;
    plugin.preloads.push_back(wasted);
  }
  off.pageLoadUs = LastEnd(off) + 40000;
  plugin.pageLoadUs = LastEnd(plugin) + 40000;
  if (!visit.repeat) return visit;
  visit.ways[static_cast<size_t>(Way::Hints)].pageLoadUs = plugin.pageLoadUs - plugin.pageLoadUs / 30;
  visit.ways[static_cast<size_t>(Way::Oracle)].pageLoadUs = off.pageLoadUs / 2;
  visit.commands = page.requests.size() * 4;
  return visit;
}

}  // namespace

Replayed MakeReplayed(const std::string& name, size_t rows) {
  Replayed replayed;
  Page page{.id = "page_1", .title = "Shop"};
  for (size_t index = 0; index < rows; ++index) page.requests.push_back(MakeRequest(index));
  replayed.recording = {
      .name = name, .browser = "Browser 146", .pages = {page}, .skipped = {{"data: URL", 3}}};
  replayed.result.name = name;
  replayed.result.skipped = replayed.recording.skipped;
  for (uint32_t number = 1; number <= 3; ++number) replayed.result.visits.push_back(MakeVisit(page, number));
  return replayed;
}

}  // namespace tests
