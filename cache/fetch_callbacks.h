// What the fetcher calls while a preload runs; plugin/kiv_proc_plugin.h has the contracts. Any thread, except
// that FetchDone runs on the command thread. Each holds PreloadLock from its lookup to its return.
#ifndef CACHE_FETCH_CALLBACKS_H_
#define CACHE_FETCH_CALLBACKS_H_

#include <cstdint>

#include "cache/preload_cache.h"

namespace net {
struct HttpRequestInfo;
class HttpResponseHeaders;
}  // namespace net

namespace kiv {

// No argument may be null, and `count` must not be 0.
net::HttpRequestInfo* FetchGetRequestInfo(void* cookie) LOCKS_EXCLUDED(PreloadLock);
int32_t FetchStartComplete(void* cookie, const net::HttpResponseHeaders& headers) LOCKS_EXCLUDED(PreloadLock);
int32_t FetchReadComplete(void* cookie, const char* bytes, uint32_t count) LOCKS_EXCLUDED(PreloadLock);
int32_t FetchDone(void* cookie, int32_t result) LOCKS_EXCLUDED(PreloadLock);

}  // namespace kiv

#endif  // CACHE_FETCH_CALLBACKS_H_
