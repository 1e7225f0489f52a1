#include "live/proxy/browser_cache_estimate.h"

#include <algorithm>

#include "host/http/cache_control.h"
#include "host/http/conditions.h"
#include "host/http/freshness.h"
#include "host/http/header_block.h"
#include "net/http/http_response_headers.h"

namespace live {
namespace {

// A reload, or a browser whose cache is switched off: it says nothing about what the cache holds.
bool IsReload(std::string_view requestHeaders) {
  const http::RequestCacheControl control = http::ReadRequestCacheControl(requestHeaders);
  return control.noCache || control.noStore || control.maxAgeS.has_value();
}

}  // namespace

const BrowserCacheEstimate::Entry* BrowserCacheEstimate::Find(const std::string& site,
                                                              const std::string& url) const {
  const Entry* const entry = entries_.Peek({site, url});
  if (entry == nullptr) return nullptr;
  const uint64_t* const generation = generations_.Peek(site);
  return generation == nullptr || entry->generation == *generation ? entry : nullptr;
}

bool BrowserCacheEstimate::Asked(const std::string& site, const std::string& url,
                                 std::string_view requestHeaders, bool isPage, double nowMs) {
  const Entry* const entry = Find(site, url);
  if (entry == nullptr || IsReload(requestHeaders) || http::IsConditional(requestHeaders) ||
      http::HasHeader(requestHeaders, "Range")) {
    return false;
  }
  const bool shouldBeFresh = nowMs < entry->freshUntilMs;
  if (!shouldBeFresh && !(isPage && entry->hasValidators)) return false;
  generations_.Use(site) = ++lastGeneration_;
  generations_.DropExcess();
  return true;
}

void BrowserCacheEstimate::Delivered(const std::string& site, const std::string& method,
                                     const std::string& url, const std::string& responseBlock, double nowMs) {
  if (method != "GET") return;
  const int status = net::HttpResponseHeaders(responseBlock).response_code();
  const Key key = {site, url};
  if (status == 206) return;
  const bool renewed = status == 304;
  const auto freshForMs = http::FreshForMs(method, renewed ? 200 : status, responseBlock, nowMs);
  if (!freshForMs) {
    entries_.Erase(key);
    return;
  }
  Entry& entry = entries_.Use(key);
  const uint64_t* const generation = generations_.Peek(site);
  entry.generation = generation != nullptr ? *generation : 0;
  const bool says =
      http::HasHeader(responseBlock, "Cache-Control") || http::HasHeader(responseBlock, "Expires");
  if (!renewed || says) entry.lifetimeMs = *freshForMs;
  entry.freshUntilMs = nowMs + entry.lifetimeMs;
  if (!renewed) {
    entry.hasValidators =
        http::HasHeader(responseBlock, "ETag") || http::HasHeader(responseBlock, "Last-Modified");
  }
  entries_.DropExcess();
}

bool BrowserCacheEstimate::IsFresh(const std::string& site, const std::string& url, double nowMs) const {
  const Entry* const entry = Find(site, url);
  return entry != nullptr && nowMs < entry->freshUntilMs;
}

}  // namespace live
