#include "preload/prefetch_handler.h"

#include <string>
#include <utility>

#include "net/http/http_request_headers.h"
#include "plugin/command_params.h"
#include "plugin/log.h"
#include "preload/preload_queue.h"
#include "preload/preload_scheduling.h"
#include "reflector/cached_url_map.h"

namespace kiv {
namespace {

using namespace command;

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

// The headers that a page's sub-resources are fetched with. Cookies, user agent and all others are left out.
std::string ReducedHeaders(const char* requestHeaders) {
  net::HttpRequestHeaders all;
  all.AddHeadersFromString(requestHeaders);
  net::HttpRequestHeaders reduced;
  reduced.SetHeader("Accept", "*/*");
  std::string value;
  if (all.GetHeader("X-Requested-With", &value)) reduced.SetHeader("X-Requested-With", value);
  return reduced.ToString();
}

void HandleRequestSeen(const CommandParams& params) {
  const char* const url = OrEmpty(params[RequestSeen::kUrl]);
  const char* const requestHeaders = OrEmpty(params[RequestSeen::kHeaders]);
  net::URLRequestContext* const context = params[RequestSeen::kContext];

  const auto known = CachedUrlMap.find(CorvaneHash(url));
  if (known == CachedUrlMap.end()) return;
  CachedUrlEntry& entry = known->second;
  if (entry.mainUrlHash == 0) {
    entry.headers = context != nullptr ? ReducedHeaders(requestHeaders) : requestHeaders;
    entry.context = context;
  }
  entry.state = 1;
}

void StartDelayed() LOCKS_EXCLUDED(PreloadLock) {
  const base::AutoLock hold(PreloadLock);
  for (const auto& [urlHash, entry] : PreloadCache) {
    if (entry->state != PreloadState::Delayed) continue;
    KIV_DEBUG("Process Delayed Fetch: %s", entry->url.c_str());
    entry->state = PreloadState::Pending;
    StartFetch(*entry);
  }
}

void HandleOrder(const CommandParams& params) {
  const uint32_t priority = params[OrderPreload::kPriority];
  const char* const url = OrEmpty(params[OrderPreload::kUrl]);
  const uint32_t mainUrlHash = params[OrderPreload::kPageHash];
  const uint32_t loadFlags = params[OrderPreload::kLoadFlags];

  const uint32_t urlHash = CorvaneHash(url);
  std::string requestHeaders;
  if (mainUrlHash == 0) {
    requestHeaders = OrEmpty(params[OrderPreload::kHeaders]);
    if (requestHeaders.empty()) {
      KIV_WARNING("No Prefetch Headers or Context: %s", url);
      return;
    }
  }
  const auto known = CachedUrlMap.find(urlHash);
  if (known == CachedUrlMap.end()) {
    KIV_INFO("Prefetch: %s", url);
  } else if (known->second.state == 0) {
    KIV_INFO("Bypass: %s", url);
  } else {
    return;
  }
  SetForPreload(url, mainUrlHash, priority, loadFlags, requestHeaders);
}

}  // namespace

int32_t HandlePrefetch(CorvaneCmd* cmd) {
  const CommandParams params(cmd);
  switch (cmd->action) {
    case RequestSeen::kId.action:
      HandleRequestSeen(params);
      return 1;
    case CheckPreloads::kId.action:
      CheckPreload();
      return 1;
    case StartDelayedFetches::kId.action:
      StartDelayed();
      return 1;
    case OrderPreload::kId.action:
      HandleOrder(params);
      return 1;
    default:
      return 0;
  }
}

}  // namespace kiv
