#include "replay/recording/recording_check.h"

#include <algorithm>

#include "net/http/header_text.h"
#include "url/gurl.h"

namespace replay {
namespace {

constexpr size_t kFewFromCache = 10;  // one in so many is what pictures that are used twice make

// The value of Sec-Fetch-Dest; empty if there is none.
base::StringPiece DestinationOf(const Request& request) {
  base::StringPiece lines = request.requestHeaders, name, value;
  while (net::TakeHeader(lines, net::kRequestLineEnd, name, value)) {
    if (net::EqualsIgnoringCase(name, "sec-fetch-dest")) return value;
  }
  return {};
}

bool IsLoadedDocument(const Request& request) {
  return request.kind == host::ResourceKind::Document && request.method == "GET" && request.status >= 200 &&
         request.status < 300;
}

// Since 2020, browsers say whether a document is for a tab or for a frame. For older recordings, a document
// counts as a navigation if nothing on the page initiated it, it comes from the page's own server, and it
// begins after the page had ended.
bool IsNavigation(const Page& page, size_t index, double quietSinceMs) {
  const Request& request = page.requests[index];
  if (!IsLoadedDocument(request)) return false;
  const base::StringPiece destination = DestinationOf(request);
  if (!destination.empty()) return destination == "document";
  const bool sameServer = GURL(request.url).host() == GURL(page.requests[page.document].url).host();
  return sameServer && request.initiatorUrl.empty() &&
         request.startMs > std::max(quietSinceMs, page.onLoadMs);
}

size_t NavigationsOf(const Page& page) {
  size_t navigations = 1;
  double quietSinceMs = 0;
  for (size_t index = 0; index < page.requests.size(); ++index) {
    if (index > page.document && IsNavigation(page, index, quietSinceMs)) ++navigations;
    quietSinceMs = std::max(quietSinceMs, page.requests[index].endMs);
  }
  return navigations;
}

}  // namespace

std::string WhyNothingToReplay(const Recording& recording) {
  if (!recording.pages.empty()) return "";
  if (recording.skipped.empty()) return "nothing to replay: log.entries is empty";
  std::string why = "nothing to replay: none of its entries can be used: ";
  const char* separator = "";
  for (const auto& [reason, count] : recording.skipped) {
    why += separator + std::to_string(count) + " (" + reason + ")";
    separator = ", ";
  }
  return why;
}

std::vector<std::string> WarningsOf(const Recording& recording) {
  std::vector<std::string> warnings;
  size_t requests = 0;
  for (const Page& page : recording.pages) requests += page.requests.size();
  if (recording.fromCache * kFewFromCache > requests) {
    warnings.push_back(
        std::to_string(recording.fromCache) + " of " + std::to_string(requests) +
        " responses came from the browser's cache, so their times say nothing about the network; " +
        "record with the cache disabled");
  }
  for (const Page& page : recording.pages) {
    const size_t navigations = NavigationsOf(page);
    if (navigations < 2) continue;
    warnings.push_back("page '" + page.id + "' contains " + std::to_string(navigations) +
                       " navigations but is replayed as one visit; record each load as a separate page");
  }
  return warnings;
}

}  // namespace replay
