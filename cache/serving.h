// The network stack's queries; plugin/kiv_proc_plugin.h has the contracts. Any thread. Each holds
// PreloadLock from its lookup to its return.
#ifndef CACHE_SERVING_H_
#define CACHE_SERVING_H_

#include <cstdint>
#include <string>

#include "cache/preload_cache.h"

namespace kiv {

// No argument may be null.
int32_t IsPreloaded(const char* url, std::string& headers, const char*& body, int32_t& length)
    LOCKS_EXCLUDED(PreloadLock);
int32_t ReleasePreloaded(const char* url) LOCKS_EXCLUDED(PreloadLock);
int32_t IsInDC(const char* url) LOCKS_EXCLUDED(PreloadLock);

}  // namespace kiv

#endif  // CACHE_SERVING_H_
