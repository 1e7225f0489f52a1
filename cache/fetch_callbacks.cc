#include "cache/fetch_callbacks.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "learning/host_map.h"
#include "net/http/http_request_headers.h"
#include "net/http/http_request_info.h"
#include "net/http/http_response_headers.h"
#include "plugin/log.h"
#include "plugin/plugin_state.h"
#include "url/gurl.h"

namespace kiv {
namespace {

// How many bytes a body buffer gets beyond those needed, each time it grows.
constexpr uint64_t kSlack = 10;

// Preloads are sent with these numbers; the network stack's own headers must give them the same names.
static_assert(net::LOWEST == 3);
static_assert(net::HttpRequestInfo::PREFETCH_MOTIVATED == 0);

// Compares unsigned, so that an undeclared length (-1) exceeds every limit.
bool ExceedsLimit(int64_t contentLength) {
  return GetPluginState().CacheSizeLimit() < static_cast<uint64_t>(contentLength);
}

void GiveSlotBack(const PreloadEntry& entry) {
  HostEntry* const host = FindHost(HostKey(entry.url));
  if (host == nullptr) return;
  if (host->activePreloads != 0) {
    --host->activePreloads;
  } else {
    KIV_WARNING("Unbalanced preloading: %s", entry.url.c_str());
  }
}

}  // namespace

net::HttpRequestInfo* FetchGetRequestInfo(void* cookie) {
  const base::AutoLock hold(PreloadLock);
  PreloadEntry* const entry = FindByCookie(cookie);
  if (entry == nullptr) {
    KIV_DEBUG("Fetch Request Info - bad cookie.");
    return nullptr;
  }
  auto info = std::make_unique<net::HttpRequestInfo>();
  info->url = GURL(entry->url);
  info->method = net::HttpRequestHeaders::kGetMethod;
  info->load_flags |= static_cast<int>(entry->loadFlags);
  info->priority = net::LOWEST;
  info->motivation = net::HttpRequestInfo::PREFETCH_MOTIVATED;
  info->extra_headers.AddHeadersFromString(entry->requestHeaders);
  entry->state = PreloadState::Running;  // last: if the request could not be made, the fetch is not running
  return info.release();
}

int32_t FetchStartComplete(void* cookie, const net::HttpResponseHeaders& headers) {
  const base::AutoLock hold(PreloadLock);
  PreloadEntry* const entry = FindByCookie(cookie);
  if (entry == nullptr) {
    KIV_DEBUG("Fetch Start Complete - bad cookie.");
    return 0;
  }
  // Copy first: without memory, no status may be recorded, or the body could be served without headers.
  if (GetPluginState().cacheEnabled) entry->responseHeaders = headers.raw_headers();
  entry->responseCode = headers.response_code();
  entry->contentLength = headers.GetContentLength();
  if (!ExceedsLimit(entry->contentLength)) return 1;
  KIV_WRITE_IF(CorvaneIsVerboseEnabled(), ANDROID_LOG_DEBUG, "Cancel uncacheable %s (%d)", entry->url.c_str(),
               static_cast<int32_t>(entry->contentLength));
  return 0;
}

int32_t FetchReadComplete(void* cookie, const char* bytes, uint32_t count) {
  const base::AutoLock hold(PreloadLock);
  PreloadEntry* const entry = FindByCookie(cookie);
  if (entry == nullptr) {
    KIV_DEBUG("Fetch Read Complete - bad cookie.");
    return 0;
  }
  if (!GetPluginState().cacheEnabled || ExceedsLimit(entry->contentLength)) return 0;

  const uint64_t newSize = uint64_t{entry->dataSize} + count;
  if (entry->dataCapacity < newSize) {
    const auto declared = static_cast<uint64_t>(entry->contentLength);
    const uint64_t capacity = (newSize < declared ? declared : newSize) + kSlack;
    if (capacity > UINT32_MAX) return 0;
    GrowBody(*entry, static_cast<uint32_t>(capacity));
  }
  std::memcpy(entry->data.get() + entry->dataSize, bytes, count);
  entry->dataSize = static_cast<uint32_t>(newSize);
  return 1;
}

int32_t FetchDone(void* cookie, int32_t result) {
  const base::AutoLock hold(PreloadLock);
  PreloadEntry* const entry = FindByCookie(cookie);
  if (entry == nullptr) {
    KIV_DEBUG("Fetch Done - bad cookie.");
    return 0;
  }
  // Set the state first: it must be final even if there is no memory to look the host up.
  const bool complete = result == 0 && entry->responseCode == 200 && entry->dataSize != 0;
  entry->state = complete ? PreloadState::Preloaded : PreloadState::Failed;
  GiveSlotBack(*entry);
  return 1;
}

}  // namespace kiv
