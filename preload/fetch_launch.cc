#include "preload/fetch_launch.h"

#include <memory>
#include <utility>

#include "plugin/log.h"

namespace kiv {

int32_t LaunchFetch(const char* url, uint32_t loadFlags, net::URLRequestContext* context,
                    const char* requestHeaders) {
  if (url == nullptr || requestHeaders == nullptr) {
    KIV_ERROR("Incorrect Fetch parameters");
    return 0;
  }
  if (context == nullptr) {
    KIV_INFO("Skip URL with undefined context %s", url);
    return 0;
  }

  const base::AutoLock hold(PreloadLock);
  const uint32_t urlHash = CorvaneHash(url);
  const auto place = PreloadCache.lower_bound(urlHash);
  if (place != PreloadCache.end() && place->first == urlHash) {
    KIV_DEBUG("URL is already in KIV cache %s", url);
    return 1;
  }
  auto made = std::make_unique<PreloadEntry>();
  made->url = url;
  made->urlHash = urlHash;
  made->loadFlags = loadFlags;
  made->context = context;
  made->requestHeaders = requestHeaders;
  made->startTime = CorvaneGetSystemTime();
  PreloadEntry& entry = *PreloadCache.emplace_hint(place, urlHash, std::move(made))->second;

  if (CorvaneGetIoMessageLoop() != nullptr && CorvaneGetHttpCache() != nullptr) return StartFetch(entry);
  KIV_DEBUG("Delayed Fetch: %s", url);
  entry.state = PreloadState::Delayed;
  return 1;
}

}  // namespace kiv
