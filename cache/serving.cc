#include "cache/serving.h"

#include "cache/html_check.h"
#include "plugin/log.h"
#include "plugin/plugin_state.h"

namespace kiv {
namespace {

// A body is not lent if its length does not fit the caller's signed 32 bits, or if the loan could not be
// counted.
bool CanBeServed(const PreloadEntry& entry) {
  return entry.state == PreloadState::Preloaded &&
         GetPluginState().CacheSizeLimit() >= static_cast<uint64_t>(entry.contentLength) &&
         entry.dataSize <= INT32_MAX && entry.loans < UINT32_MAX;
}

}  // namespace

int32_t IsPreloaded(const char* url, std::string& headers, const char*& body, int32_t& length) {
  if (!GetPluginState().cacheEnabled) return 0;
  const base::AutoLock hold(PreloadLock);
  PreloadEntry* const entry = FindByHash(CorvaneHash(url));
  if (entry == nullptr || !CanBeServed(*entry)) return 0;
  headers = entry->responseHeaders;
  if (MentionsHtml(headers)) {
    KIV_WARNING("ignoring HTML resource: %s", url);
    return 0;
  }
  LendBody(*entry);
  body = entry->data.get();
  length = static_cast<int32_t>(entry->dataSize);
  KIV_DEBUG("Get preloaded URL: %s (%d)", url, length);
  return 1;
}

int32_t ReleasePreloaded(const char* url) {
  if (!GetPluginState().cacheEnabled) return 0;
  const base::AutoLock hold(PreloadLock);
  const uint32_t urlHash = CorvaneHash(url);
  const auto found = PreloadCache.find(urlHash);
  const bool held = found != PreloadCache.end();
  ReturnLoan(urlHash, held ? found->second.get() : nullptr);
  if (!held) return 0;
  RemoveEntry(found);
  KIV_DEBUG("Release preloaded URL: %s", url);
  return 1;
}

int32_t IsInDC(const char* url) {
  const base::AutoLock hold(PreloadLock);
  const auto found = PreloadCache.find(CorvaneHash(url));
  if (found == PreloadCache.end() || found->second->state != PreloadState::Preloaded) return 0;
  RemoveEntry(found);
  KIV_DEBUG("URL preloaded to DC: %s", url);
  return 1;
}

}  // namespace kiv
