// From a preload decision to a record in the preload cache and a running fetch. Command thread.
#ifndef PRELOAD_FETCH_LAUNCH_H_
#define PRELOAD_FETCH_LAUNCH_H_

#include <cstdint>

#include "cache/preload_cache.h"

namespace kiv {

// Makes the URL's PreloadEntry and starts its fetch, or leaves it Delayed while the host has no message loop
// or HTTP cache. Takes PreloadLock. `requestHeaders` is header lines as text; `context` is not owned. Returns
// 0 if nothing was launched (null text, no context, or the fetcher refused, which leaves the entry Pending),
// 1 if it is delayed or the URL was in the preload cache already, else the fetcher's non-zero answer.
int32_t LaunchFetch(const char* url, uint32_t loadFlags, net::URLRequestContext* context,
                    const char* requestHeaders) LOCKS_EXCLUDED(PreloadLock);

}  // namespace kiv

#endif  // PRELOAD_FETCH_LAUNCH_H_
